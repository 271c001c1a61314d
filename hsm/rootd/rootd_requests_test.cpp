// The table of requests answered in-process: every call has its row, no
// request that does not decode reaches the provider, the root-only rows
// refuse other callers, root is never held back, and the file rules hand
// the provider the caller's file.
#include "hsm/rootd/rootd_requests.h"

#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hsm/provider/handle.h"
#include "hsm/rdm/rdm_calls.h"
#include "hsm/rdm/rdm_status.h"
#include "hsm/rootd/testing/rootd_testing.h"

namespace {

using rtdtest::kNobody;

// A provider that records what reached it, over the built-in one.
struct Recorder {
  dmapiBinding_t real{};
  int calls = 0;
  std::vector<unsigned char> lastHandle;
};
Recorder* gRec = nullptr;

int recGetDmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_attrname_t* name,
                 size_t buflen, void* bufp, size_t* rlenp) {
  ++gRec->calls;
  const unsigned char* h = static_cast<const unsigned char*>(hanp);
  gRec->lastHandle.assign(h, h + hlen);
  return gRec->real.get_dmattr(sid, hanp, hlen, token, name, buflen, bufp, rlenp);
}

int recHandleToPath(void* dirh, size_t dirl, void* targh, size_t targl, size_t buflen, char* buf,
                    size_t* rlenp) {
  ++gRec->calls;
  const unsigned char* h = static_cast<const unsigned char*>(targh);
  gRec->lastHandle.assign(h, h + targl);
  return gRec->real.handle_to_path(dirh, dirl, targh, targl, buflen, buf, rlenp);
}

int recGetAllTokens(dm_sessid_t, unsigned int, dm_token_t*, unsigned int* nelemp) {
  ++gRec->calls;
  *nelemp = 0;
  return 0;
}

class RequestTableTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dmBindBuiltIn(&rec_.real);
    dm_ = rec_.real;
    dm_.get_dmattr = recGetDmattr;
    dm_.handle_to_path = recHandleToPath;
    dm_.getall_tokens = recGetAllTokens;
    gRec = &rec_;
    nobody_.uid = nobody_.gid = kNobody;
    nobody_.pid = getpid();
    ctx_.dm = &dm_;
    ctx_.sessions = &sessions_;
    ctx_.caller = &nobody_;
    ctx_.refused = [](void* arg, const rtdCaller_t& c, const char* call, const std::string& object,
                      int err) {
      static_cast<std::vector<std::string>*>(arg)->push_back(std::string(call) + " " +
                                                             std::to_string(c.uid) + " " + object +
                                                             " " + std::to_string(err));
    };
    ctx_.refusedArg = &refusals_;
  }
  void TearDown() override { gRec = nullptr; }

  template <class M>
  rdmReply_t ask(const typename M::Args& a, const rtdCaller_t& who) {
    rdmRequest_t req;
    req.call = M::kCall;
    req.key = 77;
    rdmWriter w;
    M::encodeArgs(a, &w);
    req.payload = w.data();
    rtdGuardContext_t ctx = ctx_;
    ctx.caller = &who;
    rdmReply_t rep;
    rtdDispatch(ctx, req, &rep);
    EXPECT_EQ(rep.key, 77u);
    EXPECT_EQ(rep.call, M::kCall);
    return rep;
  }

  Recorder rec_;
  dmapiBinding_t dm_{};
  rtdSessionTable sessions_;
  rtdCaller_t nobody_;
  rtdCaller_t root_;  // uid 0
  rtdGuardContext_t ctx_;
  std::vector<std::string> refusals_;
};

TEST(RequestTable, EveryCallHasOneRowAndNothingElseHasAny) {
  std::set<const rtdRequestRow_t*> rows;
  for (int call = rdmInitServiceCall; call < rdmCallLimit; ++call) {
    const rtdRequestRow_t* r = rtdFindRequest(static_cast<uint16_t>(call));
    ASSERT_NE(r, nullptr) << "call " << call;
    EXPECT_EQ(r->call, call);
    EXPECT_EQ(std::strncmp(r->function, "dm_", 3), 0) << r->function;
    rows.insert(r);
  }
  EXPECT_EQ(rows.size(), static_cast<size_t>(rdmCallLimit - rdmInitServiceCall));
  EXPECT_EQ(rtdFindRequest(0), nullptr);
  EXPECT_EQ(rtdFindRequest(rdmCallLimit), nullptr);
}

// A request that does not decode never reaches the provider, whose every
// function is missing here: a call would crash the test.
TEST(RequestTable, UndecodableAndUnknownRequestsAreAnsweredByStatusAlone) {
  dmapiBinding_t none{};
  for (int call = rdmInitServiceCall; call <= rdmCallLimit; ++call) {
    rdmRequest_t req;
    req.call = static_cast<uint16_t>(call);
    req.key = 9;
    req.payload = {0xFF};
    rdmReply_t rep;
    rep.result = 5;
    rep.payload = {1};
    rtdDispatchAsRoot(none, req, &rep);
    EXPECT_EQ(rep.status, call == rdmCallLimit ? EOPNOTSUPP : EPROTO) << call;
    EXPECT_EQ(rep.key, 9u);
    EXPECT_EQ(rep.result, 0);
    EXPECT_EQ(rep.err, 0);
    EXPECT_TRUE(rep.payload.empty());
  }
}

TEST_F(RequestTableTest, RootOnlyCallsRefuseOthersNamingTheSession) {
  const rdmFileArgs_t file{0x1A2B, {1, 2, 3}, DM_NO_TOKEN};
  struct RootOnly {
    rdmReply_t rep;
    const char* function;
  };
  RootOnly cases[] = {
      {ask<rdmPunchHoleMsg_t>({file, 0, 0}, nobody_), "dm_punch_hole"},
      {ask<rdmSetFileAttrMsg_t>({file, 0, {}}, nobody_), "dm_set_fileattr"},
      {ask<rdmRequestRightMsg_t>({file, 0, DM_RIGHT_EXCL}, nobody_), "dm_request_right"},
      {ask<rdmReleaseRightMsg_t>({file}, nobody_), "dm_release_right"},
      {ask<rdmGetEventsMsg_t>({0x1A2B, 1, 0, 64}, nobody_), "dm_get_events"},
      {ask<rdmRespondEventMsg_t>({0x1A2B, DM_NO_TOKEN, DM_RESP_CONTINUE, 0}, nobody_),
       "dm_respond_event"},
      {ask<rdmCreateUserEventMsg_t>({0x1A2B, {'x'}}, nobody_), "dm_create_userevent"},
      {ask<rdmGetAllTokensMsg_t>({0x1A2B, 4}, nobody_), "dm_getall_tokens"},
  };
  ASSERT_EQ(refusals_.size(), std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    const rdmReply_t& rep = cases[i].rep;
    EXPECT_EQ(rep.status, rdmStatusMade) << cases[i].function;
    EXPECT_EQ(rep.result, -1) << cases[i].function;
    EXPECT_EQ(rep.err, EPERM) << cases[i].function;
    EXPECT_EQ(refusals_[i], std::string(cases[i].function) + " 65534 1A2B 1");
  }
  EXPECT_EQ(rec_.calls, 0);
  // The refused list call answers its count alone, zero.
  rdmWriter zero;
  zero.u32(0);
  EXPECT_EQ(cases[7].rep.payload, zero.data());
  // Root is never held back: not by a root-only row, not by a token.
  EXPECT_EQ(ask<rdmGetAllTokensMsg_t>({0x1A2B, 4}, root_).result, 0);
  rdmGetDmattrMsg_t::Args tokened{{0, {1, 2, 3}, dm_token_t{7, 7}}, {}, 8};
  ask<rdmGetDmattrMsg_t>(tokened, root_);
  EXPECT_EQ(rec_.calls, 2);
  EXPECT_EQ(rec_.lastHandle, (std::vector<unsigned char>{1, 2, 3}));
  EXPECT_EQ(refusals_.size(), std::size(cases));
  rdmReply_t rep = ask<rdmGetDmattrMsg_t>(tokened, nobody_);
  EXPECT_EQ(rep.err, EPERM);
  EXPECT_EQ(refusals_.back(), "dm_get_dmattr 65534 token 1");
  EXPECT_EQ(rec_.calls, 2);
}

// The caller's readable file reaches the provider through the daemon's
// descriptor; a handle asked about for its path goes as given.
TEST_F(RequestTableTest, FileRulesHandTheProviderTheFileTheCallerReached) {
  RTD_NEED_ROOT();
  rtdtest::Sandbox box;
  std::string path = box.file("mine", kNobody, 0644);
  std::vector<unsigned char> h = rtdtest::handleOf(rec_.real, path);
  ASSERT_FALSE(h.empty());

  ask<rdmGetDmattrMsg_t>({{DM_NO_SESSION, h, DM_NO_TOKEN}, rtdtest::attrName("KVRObj"), 8},
                         nobody_);
  qdmHandle_t used;
  ASSERT_EQ(qdmHandleDecode(rec_.lastHandle.data(), rec_.lastHandle.size(), &used), 0);
  EXPECT_EQ(std::string(used.path, used.pathLen).rfind("/proc/self/fd/", 0), 0u);

  rdmReply_t rep = ask<rdmHandleToPathMsg_t>({h, 256}, nobody_);
  EXPECT_EQ(rep.result, 0);
  EXPECT_EQ(rec_.lastHandle, h);
  rdmHandleToPathMsg_t::Reply v;
  ASSERT_TRUE(rdmHandleToPathMsg_t::decodeReply({h, 256}, rep.payload.data(), rep.payload.size(),
                                                rep.result, &v));
  EXPECT_STREQ(reinterpret_cast<const char*>(v.path.data()), path.c_str());

  // Root's call is made with the handle as given.
  ask<rdmGetDmattrMsg_t>({{DM_NO_SESSION, h, DM_NO_TOKEN}, rtdtest::attrName("KVRObj"), 8}, root_);
  EXPECT_EQ(rec_.lastHandle, h);
  EXPECT_TRUE(refusals_.empty());
}

}  // namespace
