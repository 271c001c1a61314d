// Verb traffic against the loopback test server.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "session/crc32.h"
#include "session/sess.h"
#include "session/signon.h"
#include "session/testing/test_server.h"
#include "session/verb.h"

namespace {

std::vector<unsigned char> MakeVerb(uint32_t type, uint32_t len, unsigned char fill = 0x33) {
  std::vector<unsigned char> v(len, fill);
  for (uint32_t i = 12; i < len; ++i) v[i] = static_cast<unsigned char>(i * 13 + fill);
  verbSetHdr(v.data(), type, len);
  return v;
}

class SessVerbTest : public ::testing::Test {
 protected:
  void Open(bool largeBuffers = false) {
    sessSettings_t st = testSettings(server_.port());
    st.largeBuffers = largeBuffers;
    sess_ = std::make_unique<Sess_o>(st, 1);
    ASSERT_EQ(0, sess_->sessInit());
    ASSERT_EQ(0, sess_->sessOpen());
  }
  // Sends |v| and expects it back unchanged.
  void RoundTrip(const std::vector<unsigned char>& v) {
    ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
    unsigned char* back = nullptr;
    ASSERT_EQ(0, sess_->sessRecvVerb(&back));
    ASSERT_EQ(v.size(), verbLength(back));
    EXPECT_EQ(0, std::memcmp(v.data(), back, v.size()));
  }
  // After a broken verb stream: closed, marked, and unusable until reopened.
  void ExpectBroken() {
    EXPECT_EQ(sInit, sess_->sessGetState());
    EXPECT_TRUE(sess_->sessGetBool(sessBroken));
    unsigned char* back = nullptr;
    EXPECT_NE(0, sess_->sessRecvVerb(&back));
    ASSERT_EQ(0, sess_->sessOpen());  // a new connection clears the mark
    EXPECT_FALSE(sess_->sessGetBool(sessBroken));
    RoundTrip(MakeVerb(VB_Echo, 64));
  }

  TestServer server_;
  std::unique_ptr<Sess_o> sess_;
};

TEST_F(SessVerbTest, ShortAndExtendedVerbsTravelWhole) {
  Open();
  RoundTrip(MakeVerb(VB_Echo, 4));
  RoundTrip(MakeVerb(VB_Echo, 300));
  RoundTrip(MakeVerb(VB_DataExt, 12));
  RoundTrip(MakeVerb(VB_ObjectData, 32768));  // exactly the limit
  EXPECT_EQ(4u, sess_->sessGetUint64(sessVerbsSent));
  EXPECT_EQ(4u, sess_->sessGetUint64(sessVerbsRecv));

  // Into a caller's buffer.
  std::vector<unsigned char> mine(sess_->sessGetBufferSize());
  auto v = MakeVerb(VB_Data, 1000);
  ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
  unsigned char* p = mine.data();
  ASSERT_EQ(0, sess_->sessRecvVerb(&p));
  EXPECT_EQ(mine.data(), p);
  EXPECT_EQ(0, std::memcmp(v.data(), mine.data(), v.size()));
}

TEST_F(SessVerbTest, BadMagicClosesTheSession) {
  Open();
  server_.SetFault(TestServer::Fault::BadMagic);
  auto v = MakeVerb(VB_Echo, 40);
  ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
  unsigned char* back = nullptr;
  EXPECT_EQ(136, sess_->sessRecvVerb(&back));
  ExpectBroken();
}

TEST_F(SessVerbTest, LengthLimitsAndTheBulkException) {
  Open();
  RoundTrip(MakeVerb(VB_BulkData, 32769));
  RoundTrip(MakeVerb(VB_BulkData, 3 * 1048576 + 5));  // any length
  // The same into a caller's buffer: the verb moves to the session's buffer.
  std::vector<unsigned char> mine(sess_->sessGetBufferSize());
  auto big = MakeVerb(VB_BulkData, 100000);
  ASSERT_EQ(0, sess_->sessSendVerb(big.data()));
  unsigned char* p = mine.data();
  ASSERT_EQ(0, sess_->sessRecvVerb(&p));
  EXPECT_NE(mine.data(), p);
  EXPECT_EQ(0, std::memcmp(big.data(), p, big.size()));

  auto over = MakeVerb(VB_ObjectData, 32769);
  ASSERT_EQ(0, sess_->sessSendVerb(over.data()));
  unsigned char* back = nullptr;
  EXPECT_EQ(136, sess_->sessRecvVerb(&back));
  ExpectBroken();

  // A short verb claiming 32,769 bytes is refused the same way.
  server_.SetFault(TestServer::Fault::OversizedVerb);
  auto v = MakeVerb(VB_Echo, 8);
  ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
  EXPECT_EQ(136, sess_->sessRecvVerb(&back));
  EXPECT_EQ(sInit, sess_->sessGetState());
}

TEST_F(SessVerbTest, LargeBuffersRaiseTheLimit) {
  Open(true);
  EXPECT_EQ(VERB_MAX_LEN_LARGE, sess_->sessGetBufferSize());
  RoundTrip(MakeVerb(VB_ObjectData, 32769));
  RoundTrip(MakeVerb(VB_ObjectData, 1048576));
  auto over = MakeVerb(VB_ObjectData, 1048577);
  ASSERT_EQ(0, sess_->sessSendVerb(over.data()));
  unsigned char* back = nullptr;
  EXPECT_EQ(136, sess_->sessRecvVerb(&back));
  EXPECT_EQ(sInit, sess_->sessGetState());
}

TEST_F(SessVerbTest, ChecksumModesFollowTheServersCapability) {
  Open();
  const unsigned char crcCap[] = {0x00, 0x00, 0x01};  // capability 23
  sess_->sessCopyFuncMap(crcCap, sizeof crcCap);

  sess_->sessSetUint8(sessCrcMode, 1);  // data verbs only
  RoundTrip(MakeVerb(VB_Echo, 50));
  EXPECT_EQ(0, server_.checksumsGood());
  RoundTrip(MakeVerb(VB_Data, 50));
  RoundTrip(MakeVerb(VB_DataExt, 50));
  RoundTrip(MakeVerb(VB_ObjectData, 50));
  EXPECT_EQ(3, server_.checksumsGood());

  sess_->sessSetUint8(sessCrcMode, 2);  // every verb
  RoundTrip(MakeVerb(VB_Echo, 50));
  EXPECT_EQ(4, server_.checksumsGood());

  sess_->sessSetUint8(sessCrcMode, 7);  // anything else: none
  RoundTrip(MakeVerb(VB_Data, 50));
  EXPECT_EQ(4, server_.checksumsGood());

  // Without the server's capability nothing is protected.
  sess_->sessSetUint8(sessCrcMode, 2);
  sess_->sessCopyFuncMap(nullptr, 0);
  RoundTrip(MakeVerb(VB_Data, 50));
  EXPECT_EQ(4, server_.checksumsGood());
  EXPECT_EQ(0, server_.checksumsBad());
}

TEST_F(SessVerbTest, ServerChecksumsAreVerified) {
  Open();
  server_.SetSendChecksums(true);
  RoundTrip(MakeVerb(VB_Echo, 77));
  RoundTrip(MakeVerb(VB_BulkData, 50000));
  EXPECT_TRUE(sess_->sessGetBool(sessCrcSeen));

  server_.SetFault(TestServer::Fault::WrongChecksum);
  auto v = MakeVerb(VB_Echo, 77);
  ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
  unsigned char* back = nullptr;
  EXPECT_EQ(136, sess_->sessRecvVerb(&back));
  server_.SetSendChecksums(false);
  ExpectBroken();
}

TEST_F(SessVerbTest, DroppedAndShortConnectionsCloseTheSession) {
  Open();
  server_.SetFault(TestServer::Fault::DropConnection);
  auto v = MakeVerb(VB_Echo, 100);
  ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
  unsigned char* back = nullptr;
  EXPECT_EQ(COMM_RC_LOST, sess_->sessRecvVerb(&back));
  ExpectBroken();

  server_.SetFault(TestServer::Fault::ShortRead);
  ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
  EXPECT_EQ(COMM_RC_LOST, sess_->sessRecvVerb(&back));
  ExpectBroken();
}

TEST_F(SessVerbTest, RecvBuffReadsWhatHasArrived) {
  Open();
  auto v = MakeVerb(VB_Echo, 5000);
  ASSERT_EQ(0, sess_->sessSendVerb(v.data()));
  std::vector<unsigned char> got;
  unsigned char buf[700];
  while (got.size() < v.size()) {
    uint32_t n = 0;
    ASSERT_EQ(0, sess_->sessRecvBuff(buf, sizeof buf, &n));
    ASSERT_GT(n, 0u);
    ASSERT_LE(n, sizeof buf);
    got.insert(got.end(), buf, buf + n);
  }
  EXPECT_EQ(v, got);
}

TEST_F(SessVerbTest, BadVerbsFromTheCallerAreRefused) {
  Open();
  unsigned char bad[4] = {0, 4, VB_Echo, 0xA4};
  EXPECT_EQ(109, sess_->sessSendVerb(bad));
  unsigned char shortLen[4] = {0, 2, VB_Echo, 0xA5};
  EXPECT_EQ(109, sess_->sessSendVerb(shortLen));
  EXPECT_EQ(109, sess_->sessSendVerb(nullptr));
  EXPECT_EQ(sOpened, sess_->sessGetState());
}

// The whole conversation: sign-on, a thousand verbs each way with checksums
// on both sides, sign-off and a clean close.
TEST_F(SessVerbTest, SignOnAndAThousandCheckedVerbs) {
  server_.AddNode("NODE1", "pw1");
  server_.SetSendChecksums(true);
  sessSettings_t st = testSettings(server_.port());
  st.checksumMode = 2;
  sess_ = std::make_unique<Sess_o>(st, 1);
  sess_->sessSetPassword("pw1");
  ASSERT_EQ(0, Logon(sess_.get()));
  ASSERT_EQ(sSignedOn, sess_->sessGetState());
  EXPECT_TRUE(sess_->sessTestFuncMap(CAP_VERB_CRC));  // announced at sign-on
  // The sign-on verb leaves before the server's capabilities are known; the
  // authentication verb after it is protected already.
  int before = server_.checksumsGood();
  EXPECT_EQ(1, before);
  for (int i = 0; i < 1000; ++i) {
    uint32_t len = 12 + static_cast<uint32_t>((i * 97) % 20000);
    RoundTrip(MakeVerb(i % 2 ? VB_ObjectData : VB_Echo, len, static_cast<unsigned char>(i)));
  }
  EXPECT_EQ(before + 1000, server_.checksumsGood());
  EXPECT_EQ(0, server_.checksumsBad());
  EXPECT_EQ(1000, server_.echoed());
  EXPECT_EQ(0, Logoff(sess_.get()));
  EXPECT_EQ(sInit, sess_->sessGetState());
  EXPECT_EQ(0, sess_->sessTerminate());
  EXPECT_EQ(sUninit, sess_->sessGetState());
}

}  // namespace
