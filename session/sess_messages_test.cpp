// The catalogue messages the session issues.  The message system of the
// whole test program runs on the real catalogue with recording output
// functions, so that no test writes to the terminal and these can look at
// what a user would have seen.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "diag/testing/nl_test_util.h"
#include "session/sess.h"
#include "session/signon.h"
#include "session/testing/test_server.h"
#include "session/verb.h"

namespace {

class MessageEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    setenv("LC_ALL", "C.UTF-8", 1);
    nlSetLocale(nullptr);
    ASSERT_EQ(0, newNlsGlobalObject(nltest::kRecorders, 0));
    newGlobalRC();
    ASSERT_EQ(0, nlinit("AMENG", 50, nltest::ClientBinDir().c_str(), 5, 1, 1, 1, nullptr, nullptr));
  }
  void TearDown() override {
    nlterm();
    destroyNlsGlobalObject();
    deleteGlobalRC();
  }
};

const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new MessageEnvironment);

// The texts shown since the last call that carry the identifier of message
// |num| ("ANS", its last four digits, the severity).
std::vector<std::string> TakeShown(unsigned num) {
  std::vector<std::string> out;
  char id[16];
  std::snprintf(id, sizeof id, "ANS%04u", num % 10000);
  for (const auto& [sev, text] : nltest::Shown())
    if (text.rfind(id, 0) == 0) out.push_back(text);
  nltest::Shown().clear();
  return out;
}

TEST(SessMessages, IllegalTransitionsNameTheState) {
  nltest::Shown().clear();
  Sess_o s(testSettings(9), 1);
  EXPECT_EQ(136, s.sessOpen());
  auto shown = TakeShown(20007);
  ASSERT_EQ(1u, shown.size());
  EXPECT_NE(std::string::npos, shown[0].find("sUninit")) << shown[0];

  ASSERT_EQ(0, s.sessInit());
  nltest::Shown().clear();
  EXPECT_EQ(136, s.sessInit());
  shown = TakeShown(20052);
  ASSERT_EQ(1u, shown.size());
  EXPECT_NE(std::string::npos, shown[0].find("sInit"));

  ASSERT_EQ(0, s.sessInit());
  unsigned char* v = nullptr;
  Sess_o u(testSettings(9), 1);
  EXPECT_EQ(136, u.sessRecvVerb(&v));
  EXPECT_EQ(1u, TakeShown(20023).size());
  ASSERT_EQ(0, u.sessInit());
  EXPECT_EQ(0, u.sessClose());  // sInit to sInit is legal
  Sess_o t(testSettings(9), 1);
  unsigned char verb[4];
  verbSetShortHdr(verb, VB_Echo, 4);
  EXPECT_EQ(136, t.sessSendVerb(verb));
  EXPECT_EQ(1u, TakeShown(20027).size());
}

TEST(SessMessages, FailedOpenShows9020WithTheCode) {
  nltest::Shown().clear();
  Sess_o s(testSettings(9), 1);
  ASSERT_EQ(0, s.sessInit());
  EXPECT_EQ(COMM_RC_CONNECT, s.sessOpen());
  auto shown = TakeShown(9020);
  ASSERT_EQ(1u, shown.size());
  EXPECT_NE(std::string::npos, shown[0].find(std::to_string(COMM_RC_CONNECT))) << shown[0];
}

TEST(SessMessages, ChecksumMismatchIsReported) {
  TestServer server;
  Sess_o s(testSettings(server.port()), 1);
  ASSERT_EQ(0, s.sessInit());
  ASSERT_EQ(0, s.sessOpen());
  nltest::Shown().clear();
  server.SetFault(TestServer::Fault::WrongChecksum);
  unsigned char verb[20] = {};
  verbSetShortHdr(verb, VB_Echo, sizeof verb);
  ASSERT_EQ(0, s.sessSendVerb(verb));
  unsigned char* back = nullptr;
  EXPECT_EQ(136, s.sessRecvVerb(&back));
  std::vector<std::string> all;
  for (const auto& [sev, text] : nltest::Shown()) all.push_back(text);
  auto has = [&](const char* id) {
    return std::any_of(all.begin(), all.end(),
                       [&](const std::string& t) { return t.rfind(id, 0) == 0; });
  };
  EXPECT_TRUE(has("ANS1867")) << ::testing::PrintToString(all);
  EXPECT_TRUE(has("ANS1871"));
  // Both checksums and the verb's name are in the text.
  for (const auto& t : all) {
    if (t.rfind("ANS1867", 0) == 0) {
      EXPECT_NE(std::string::npos, t.find("Echo")) << t;
    }
  }
}

TEST(SessMessages, UnchangeablePasswordGoesToStandardError) {
  TestServer server;
  server.AddNode("NODE1", "pw1", true);
  Sess_o s(testSettings(server.port()), 1);
  s.sessSetPassword("pw1");
  testing::internal::CaptureStderr();
  EXPECT_EQ(52, Logon(&s));
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, err.find("ANS1831E")) << err;
}

}  // namespace
