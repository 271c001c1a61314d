// Sign-on paths against the loopback test server.
#include "session/signon.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "session/pswdfile.h"
#include "session/testing/test_server.h"
#include "session/verb.h"
#include "testing/temp_dir.h"

namespace {

// The interactive front end, scripted: answers password requests in order
// and records every request.
struct Script {
  std::deque<std::string> answers;
  std::vector<int> requests;
  std::vector<int> errors;

  static int Callback(void* ctx, int request, Sess_o*, char* buf, size_t size, int rc) {
    auto* s = static_cast<Script*>(ctx);
    s->requests.push_back(request);
    if (request == LOGIN_REPORT_ERROR) s->errors.push_back(rc);
    if (request != LOGIN_GET_PASSWORD && request != LOGIN_GET_NEW_PASSWORD) return 0;
    if (s->answers.empty()) return 1;
    std::snprintf(buf, size, "%s", s->answers.front().c_str());
    s->answers.pop_front();
    return 0;
  }
};

class SignOnTest : public ::testing::Test {
 protected:
  void SetUp() override { server_.AddNode("NODE1", "pw1"); }
  void TearDown() override { sess_.reset(); }

  // A session for NODE1; |prompt| installs the scripted callback.
  Sess_o* Make(uint8_t access, bool prompt, const char* password = nullptr) {
    sessSettings_t st = testSettings(server_.port());
    st.passwordAccess = access;
    st.passwordDir = dir_;
    st.canPrompt = prompt;
    auto s = std::make_unique<Sess_o>(st, 1);
    s->sessSetUint32(sessVerifierIter, AUTH_ITERATIONS_MIN);
    handler_.gsLoginCallback = Script::Callback;
    handler_.ctx = &script_;
    s->sessSetVoid(sessLoginHandler, &handler_);
    if (password != nullptr) s->sessSetPassword(password);
    sess_ = std::move(s);
    return sess_.get();
  }

  bool Echo(Sess_o* s) {
    unsigned char v[16] = {};
    verbSetShortHdr(v, VB_Echo, sizeof v);
    unsigned char* back = nullptr;
    return s->sessSendVerb(v) == 0 && s->sessRecvVerb(&back) == 0 && verbType(back) == VB_Echo;
  }

  qmxtest::TempDir tmp_{"qmx-signon-"};
  const std::string dir_ = tmp_.path();
  TestServer server_;
  Script script_;
  sessLoginHandler_t handler_;
  std::unique_ptr<Sess_o> sess_;
};

TEST_F(SignOnTest, EnhancedSignOnAuthenticatesBothWays) {
  Sess_o* s = Make(PSWD_PROMPT, false, "pw1");
  ASSERT_EQ(0, Logon(s));
  EXPECT_EQ(sSignedOn, s->sessGetState());
  EXPECT_EQ(1, server_.enhancedSignOns());
  EXPECT_EQ(1, server_.authOk());
  EXPECT_TRUE(s->sessGetBool(sessAuthenticated));
  EXPECT_TRUE(s->sessGetBool(sessServerProven));
  EXPECT_STREQ("TESTSRV", s->sessGetCharP(sessServerNameRecv));
  EXPECT_EQ(8, s->sessGetUint16(sessServerVersion));
  EXPECT_TRUE(s->sessTestFuncMap(CAP_VERB_CRC));
  EXPECT_FALSE(s->sessTestFuncMap(CAP_SERVER_INITIATED));
  EXPECT_EQ(std::vector<int>{LOGIN_SIGNED_ON}, script_.requests);
  EXPECT_TRUE(Echo(s));
  EXPECT_EQ(0, Logoff(s));
  EXPECT_EQ(sInit, s->sessGetState());
  EXPECT_TRUE(s->sessGetBool(sessSignOffSent));
  EXPECT_TRUE(IsConnected(s) == false);
}

TEST_F(SignOnTest, OlderSignOnVerbWhenNotEnhanced) {
  Sess_o* s = Make(PSWD_PROMPT, false, "pw1");
  s->sessSetBool(sessEnhancedSignOn, false);
  ASSERT_EQ(0, Logon(s));
  EXPECT_EQ(1, server_.signOns());
  EXPECT_EQ(0, server_.enhancedSignOns());
  EXPECT_EQ(sSignedOn, s->sessGetState());
}

TEST_F(SignOnTest, PromptedPasswordAndOneRetryAfterRejection) {
  Sess_o* s = Make(PSWD_PROMPT, true, "wrong");
  script_.answers = {"pw1"};
  ASSERT_EQ(0, Logon(s));
  EXPECT_EQ((std::vector<int>{LOGIN_REPORT_ERROR, LOGIN_GET_PASSWORD, LOGIN_SIGNED_ON}),
            script_.requests);
  EXPECT_EQ(std::vector<int>{137}, script_.errors);
  EXPECT_EQ(1, server_.authRejected());
  EXPECT_TRUE(s->sessGetBool(sessPswdPrompted));
}

TEST_F(SignOnTest, SecondRejectionEndsInLogoff) {
  Sess_o* s = Make(PSWD_PROMPT, true);
  script_.answers = {"bad1", "bad2", "bad3"};
  EXPECT_EQ(137, Logon(s));
  // Asked once up front, once more after the rejection, never a third time.
  EXPECT_EQ((std::vector<int>{LOGIN_GET_PASSWORD, LOGIN_REPORT_ERROR, LOGIN_GET_PASSWORD,
                              LOGIN_REPORT_ERROR}),
            script_.requests);
  EXPECT_EQ(2, server_.authRejected());
  EXPECT_EQ(sInit, s->sessGetState());
}

TEST_F(SignOnTest, FailuresAreReportedAndLoggedOff) {
  server_.SetSignOnResult(137);  // the node is locked
  Sess_o* s = Make(PSWD_PROMPT, false, "pw1");
  EXPECT_EQ(137, Logon(s));
  EXPECT_EQ(std::vector<int>{137}, script_.errors);
  EXPECT_EQ(sInit, s->sessGetState());

  server_.SetSignOnResult(0);
  sessSettings_t st = testSettings(9);  // nobody listens there
  st.comm.connectTimeoutMs = 1000;
  Sess_o off(st, 1);
  off.sessSetVoid(sessLoginHandler, &handler_);
  off.sessSetPassword("pw1");
  EXPECT_EQ(COMM_RC_CONNECT, Logon(&off));
  EXPECT_EQ((std::vector<int>{137, COMM_RC_CONNECT}), script_.errors);
  EXPECT_EQ(sInit, off.sessGetState());

  // No password and nobody to ask.
  Sess_o* n = Make(PSWD_PROMPT, false);
  EXPECT_EQ(137, Logon(n));
  EXPECT_EQ(0, server_.authOk());
}

// A server that cannot prove it knows the node's verifier is an impostor,
// and one that sends a damaged answer is not believed either.
TEST_F(SignOnTest, ImpostorsAndGarbledAnswersAreRefused) {
  server_.SetFault(TestServer::Fault::WrongProof);
  Sess_o* s = Make(PSWD_PROMPT, false, "pw1");
  EXPECT_EQ(137, Logon(s));
  EXPECT_EQ(1, server_.authOk());                  // the server took the response...
  EXPECT_FALSE(s->sessGetBool(sessServerProven));  // ...but the client did not take the server
  EXPECT_EQ(sInit, s->sessGetState());

  server_.SetFault(TestServer::Fault::Malformed);
  Sess_o* t = Make(PSWD_PROMPT, false, "pw1");
  EXPECT_EQ(136, Logon(t));
  EXPECT_EQ(sInit, t->sessGetState());

  Sess_o* u = Make(PSWD_PROMPT, false, "pw1");  // and a good server is still welcome
  EXPECT_EQ(0, Logon(u));
}

TEST_F(SignOnTest, ServerAskingForCheapVerifiersIsRefused) {
  server_.AddNode("WEAK", "pw", false, 10);
  sessSettings_t st = testSettings(server_.port(), "WEAK");
  Sess_o s(st, 1);
  s.sessSetPassword("pw");
  EXPECT_EQ(137, Logon(&s));
  EXPECT_EQ(0, server_.authOk() + server_.authRejected());  // no response was sent
}

TEST_F(SignOnTest, GeneratedPasswordIsStoredAsAVerifierOnly) {
  Sess_o* s = Make(PSWD_GENERATE, true);
  script_.answers = {"pw1"};
  ASSERT_EQ(0, Logon(s));
  EXPECT_EQ("", s->sessGetPassword());  // not kept once stored
  struct stat st {};
  ASSERT_EQ(0, ::stat((dir_ + "/qmx.pwd").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777);
  pswdRecord_t rec;
  ASSERT_EQ(0, pswdFRead("TESTSRV", "NODE1", &rec));
  EXPECT_EQ(server_.SaltOf("NODE1"), rec.salt);
  Logoff(s);

  // A later session signs on from the file without asking.
  script_.requests.clear();
  Sess_o* t = Make(PSWD_GENERATE, true);
  ASSERT_EQ(0, Logon(t));
  EXPECT_TRUE(t->sessGetBool(sessPswdFromFile));
  EXPECT_EQ(std::vector<int>{LOGIN_SIGNED_ON}, script_.requests);
  EXPECT_EQ(2, server_.authOk());
}

TEST_F(SignOnTest, RejectedStoredPasswordIsDeletedAndRetriedOnce) {
  Sess_o* s = Make(PSWD_GENERATE, true);
  script_.answers = {"pw1"};
  ASSERT_EQ(0, Logon(s));
  Logoff(s);

  // The server refuses the stored verifier: it is deleted, the user asked.
  server_.SetFault(TestServer::Fault::RejectAuth);
  script_.requests.clear();
  script_.answers = {"pw1"};
  Sess_o* t = Make(PSWD_GENERATE, true);
  ASSERT_EQ(0, Logon(t));
  EXPECT_EQ((std::vector<int>{LOGIN_REPORT_ERROR, LOGIN_GET_PASSWORD, LOGIN_SIGNED_ON}),
            script_.requests);
  pswdRecord_t rec;
  EXPECT_EQ(0, pswdFRead("TESTSRV", "NODE1", &rec));  // stored again from the typed one
  Logoff(t);

  // Without a user to ask, the rejected record is gone and the sign-on fails.
  server_.SetFault(TestServer::Fault::RejectAuth);
  Sess_o* u = Make(PSWD_GENERATE, false);
  EXPECT_EQ(137, Logon(u));
  EXPECT_EQ(ENOENT, pswdFRead("TESTSRV", "NODE1", &rec));
  EXPECT_EQ(sInit, u->sessGetState());
}

TEST_F(SignOnTest, ExpiredGeneratedPasswordIsReplaced) {
  Sess_o* s = Make(PSWD_GENERATE, true);
  script_.answers = {"pw1"};
  ASSERT_EQ(0, Logon(s));
  Logoff(s);
  pswdRecord_t before;
  ASSERT_EQ(0, pswdFRead("TESTSRV", "NODE1", &before));

  server_.SetExpired("NODE1", true);
  script_.requests.clear();
  Sess_o* t = Make(PSWD_GENERATE, false);
  ASSERT_EQ(0, Logon(t));
  EXPECT_EQ(sSignedOn, t->sessGetState());
  EXPECT_EQ(1, server_.verifierUpdates());
  EXPECT_FALSE(server_.PasswordIs("NODE1", "pw1"));
  EXPECT_TRUE(t->sessGetBool(sessPswdUpdated));
  EXPECT_TRUE(Echo(t));
  pswdRecord_t after;
  ASSERT_EQ(0, pswdFRead("TESTSRV", "NODE1", &after));
  EXPECT_NE(before.verifier, after.verifier);
  EXPECT_NE(before.salt, after.salt);
  Logoff(t);

  // The new stored verifier is the one the server now holds.
  Sess_o* u = Make(PSWD_GENERATE, false);
  ASSERT_EQ(0, Logon(u));
  EXPECT_TRUE(u->sessGetBool(sessPswdFromFile));
}

TEST_F(SignOnTest, ExpiredPasswordWithPrompting) {
  server_.SetExpired("NODE1", true);
  Sess_o* s = Make(PSWD_PROMPT, true, "pw1");
  script_.answers = {"fresh-pw"};
  ASSERT_EQ(0, Logon(s));
  EXPECT_EQ((std::vector<int>{LOGIN_GET_NEW_PASSWORD, LOGIN_SIGNED_ON}), script_.requests);
  EXPECT_TRUE(server_.PasswordIs("NODE1", "fresh-pw"));
  EXPECT_EQ("fresh-pw", s->sessGetPassword());
  EXPECT_EQ(sSignedOn, s->sessGetState());
}

TEST_F(SignOnTest, ExpiredPasswordThatCannotBeChanged) {
  server_.SetExpired("NODE1", true);
  Sess_o* s = Make(PSWD_PROMPT, false, "pw1");
  EXPECT_EQ(52, Logon(s));  // message 1831: see sess_messages_test.cpp
  EXPECT_EQ(sInit, s->sessGetState());
  EXPECT_EQ(0, server_.verifierUpdates());
  EXPECT_EQ(std::vector<int>{52}, script_.errors);
}

int HandOver(void* ctx, int* fd) {
  *fd = static_cast<TestServer*>(ctx)->OpenServerInitiated();
  return *fd < 0 ? COMM_RC_CONNECT : 0;
}

TEST_F(SignOnTest, ServerInitiatedSessions) {
  sessSchedHandler_t sched;
  sched.getConnection = HandOver;
  sched.ctx = &server_;
  Sess_o* s = Make(PSWD_GENERATE, false, "pw1");
  s->sessSetBool(sessServerInitiated, true);
  s->sessSetVoid(sessSchedHandler, &sched);
  ASSERT_EQ(0, Logon(s));
  EXPECT_STREQ("TESTSRV", s->sessGetCharP(sessServerNameRecv));
  EXPECT_EQ(connServerInitiated, s->sessGetUint8(sessConnMode));
  EXPECT_TRUE(Echo(s));
  Logoff(s);

  // The main session of the scheduler does not change an expired password.
  server_.SetExpired("NODE1", true);
  Sess_o* t = Make(PSWD_GENERATE, false, "pw1");
  t->sessSetBool(sessServerInitiated, true);
  t->sessSetVoid(sessSchedHandler, &sched);
  EXPECT_EQ(52, Logon(t));
  EXPECT_EQ(0, server_.verifierUpdates());

  // Without a scheduler there is no connection to be had.
  Sess_o* u = Make(PSWD_GENERATE, false, "pw1");
  u->sessSetBool(sessServerInitiated, true);
  EXPECT_EQ(COMM_RC_METHOD, Logon(u));
}

TEST_F(SignOnTest, ReopenAfterALostConnectionAndNewSessions) {
  Sess_o* s = Make(PSWD_PROMPT, false, "pw1");
  ASSERT_EQ(0, Logon(s));
  EXPECT_EQ(0, CheckSession(s));  // nothing to do
  EXPECT_EQ(1, server_.connections());

  server_.SetFault(TestServer::Fault::DropConnection);
  EXPECT_FALSE(Echo(s));
  EXPECT_FALSE(IsConnected(s));
  ASSERT_EQ(0, CheckSession(s));
  EXPECT_EQ(sSignedOn, s->sessGetState());
  EXPECT_TRUE(Echo(s));
  EXPECT_EQ(2, server_.connections());

  Sess_o other(testSettings(server_.port(), "SOMEONE"), 0);
  ASSERT_EQ(0, LogonNewSession(&other, s));
  EXPECT_STREQ("NODE1", other.sessGetString(sessNodeName));
  EXPECT_TRUE(Echo(&other));
  EXPECT_TRUE(Echo(s));  // both conversations run side by side
  EXPECT_EQ(0, ReopenSess(&other));
  EXPECT_EQ(4, server_.connections());
}

}  // namespace
