#include "session/signon_verbs.h"

#include <gtest/gtest.h>

#include "session/verb.h"

namespace {

soSignOnResp_t SampleResp(bool enhanced) {
  soSignOnResp_t r;
  r.enhanced = enhanced;
  r.result = 0;
  r.flags = SO_RESP_PSWD_EXPIRED;
  r.version = 8;
  r.release = 1;
  r.level = 2;
  r.salt = {1, 2, 3, 4, 5};
  r.iterations = 123456;
  r.nonce.fill(0x42);
  r.serverName = "SRV";
  r.serverMap = {0x80, 0x01};
  if (enhanced) r.agentMap = {0x40};
  return r;
}

TEST(SignOnVerbs, RoundTrips) {
  for (bool enhanced : {true, false}) {
    soSignOn_t in;
    in.enhanced = enhanced;
    in.version = 3;
    in.flags = SO_REQ_CHECKSUMS;
    in.node = "NODE1";
    in.platform = "Linux";
    in.clientMap = {0xFF};
    soBytes_t v = soBuildSignOn(in);
    EXPECT_EQ(enhanced ? uint32_t{VB_SignOnEnhanced} : uint32_t{VB_SignOn}, verbType(v.data()));
    EXPECT_EQ(v.size(), verbLength(v.data()));
    soSignOn_t out;
    ASSERT_EQ(0, soParseSignOn(v.data(), &out));
    EXPECT_EQ(in.node, out.node);
    EXPECT_EQ(in.platform, out.platform);
    EXPECT_EQ(enhanced ? in.clientMap : soBytes_t{}, out.clientMap);
    EXPECT_EQ(enhanced ? in.flags : 0, out.flags);

    soSignOnResp_t r = SampleResp(enhanced), back;
    soBytes_t rv = soBuildSignOnResp(r);
    ASSERT_EQ(0, soParseSignOnResp(rv.data(), &back));
    EXPECT_EQ(r.salt, back.salt);
    EXPECT_EQ(r.iterations, back.iterations);
    EXPECT_EQ(r.nonce, back.nonce);
    EXPECT_EQ(r.serverName, back.serverName);
    EXPECT_EQ(r.serverMap, back.serverMap);
    EXPECT_EQ(r.agentMap, back.agentMap);
    EXPECT_EQ(r.flags, back.flags);
  }
  soAuthenticate_t a, a2;
  a.clientNonce.fill(1);
  a.response.fill(2);
  soBytes_t av = soBuildAuthenticate(a);
  EXPECT_EQ(12u + 64u, av.size());
  ASSERT_EQ(0, soParseAuthenticate(av.data(), &a2));
  EXPECT_EQ(a.response, a2.response);
  soUpdVerifier_t u, u2;
  u.salt = {9, 9};
  u.iterations = 1000;
  u.tag[3] = 7;
  ASSERT_EQ(0, soParseUpdVerifier(soBuildUpdVerifier(u).data(), &u2));
  EXPECT_EQ(u.salt, u2.salt);
  EXPECT_EQ(7, u2.tag[3]);
  uint16_t rc = 0;
  ASSERT_EQ(0, soParseUpdVerifierResp(soBuildUpdVerifierResp(137).data(), &rc));
  EXPECT_EQ(137, rc);
}

// A hostile server may cut a verb anywhere or claim any length: the parser
// must refuse, never read beyond the verb.
TEST(SignOnVerbs, TruncatedAndForgedVerbsAreMalformed) {
  soBytes_t v = soBuildSignOnResp(SampleResp(true));
  for (size_t cut = 12; cut < v.size(); ++cut) {
    soBytes_t t(v.begin(), v.begin() + static_cast<long>(cut));
    SetFour(t.data() + 8, static_cast<uint32_t>(cut));
    soSignOnResp_t out;
    EXPECT_EQ(SO_RC_MALFORMED, soParseSignOnResp(t.data(), &out)) << "cut at " << cut;
  }
  soBytes_t lying = v;
  SetFour(lying.data() + 8, 5);  // shorter than its own header
  soSignOnResp_t out;
  EXPECT_EQ(SO_RC_MALFORMED, soParseSignOnResp(lying.data(), &out));

  soSignOnResp_t r = SampleResp(true);
  r.salt.clear();  // a salt is required
  EXPECT_EQ(SO_RC_MALFORMED, soParseSignOnResp(soBuildSignOnResp(r).data(), &out));

  soBytes_t wrongType = soBuildAuthResult(soAuthResult_t{});
  EXPECT_EQ(SO_RC_MALFORMED, soParseSignOnResp(wrongType.data(), &out));
  soAuthenticate_t a;
  EXPECT_EQ(SO_RC_MALFORMED, soParseAuthenticate(wrongType.data(), &a));
  wrongType[3] = 0xA4;
  soAuthResult_t ar;
  EXPECT_EQ(SO_RC_MALFORMED, soParseAuthResult(wrongType.data(), &ar));

  soSignOn_t s;
  s.node = "";  // a node name is required
  soSignOn_t sOut;
  EXPECT_EQ(SO_RC_MALFORMED, soParseSignOn(soBuildSignOn(s).data(), &sOut));
}

TEST(SignOnVerbs, OverlongFieldsAreCutOnTheWayOut) {
  soSignOn_t s;
  s.node = std::string(100, 'N');
  s.clientMap.assign(50, 0xFF);
  soSignOn_t out;
  ASSERT_EQ(0, soParseSignOn(soBuildSignOn(s).data(), &out));
  EXPECT_EQ(SO_NAME_MAX, out.node.size());
  EXPECT_EQ(SO_MAP_MAX, out.clientMap.size());
}

}  // namespace
