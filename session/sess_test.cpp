#include "session/sess.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <cerrno>
#include <thread>

#include "session/testing/test_server.h"
#include "session/verb.h"

namespace {

// A session whose transport is never reached: nothing listens on port 9
// of the loopback address.
sessSettings_t Offline() {
  sessSettings_t s = testSettings(9);
  s.comm.connectTimeoutMs = 1000;
  return s;
}

TEST(SessTransitions, TableAsSpecified) {
  const sessStateType X = sTRANSERR;
  const sessStateType want[sopCount][5] = {
      {sInit, X, X, X, sInit},           {X, sOpened, X, X, X},
      {X, X, sSignedOn, X, X},           {X, sInit, sOpened, sSignedOn, X},
      {sUninit, sInit, sInit, sInit, X}, {sUninit, sUninit, X, X, X},
  };
  for (int op = 0; op < sopCount; ++op)
    for (int st = 0; st < 5; ++st)
      EXPECT_EQ(want[op][st],
                sessTransition(static_cast<sessOpType>(op), static_cast<sessStateType>(st)))
          << "op " << op << " from " << sessStateName(st);
  EXPECT_STREQ("sSignedOn", sessStateName(sSignedOn));
  EXPECT_STREQ("sTRANSERR", sessStateName(4));
  EXPECT_STREQ("sUnknown", sessStateName(9));
}

TEST(SessTransitions, IllegalOperationsLeaveTRANSERRUntilInit) {
  TestServer server;
  Sess_o s(testSettings(server.port()), 1);
  EXPECT_EQ(sUninit, s.sessGetState());
  EXPECT_EQ(136, s.sessOpen());  // not initialised
  EXPECT_EQ(sTRANSERR, s.sessGetState());
  EXPECT_EQ(136, s.sessClose());  // only sessInit leaves sTRANSERR
  EXPECT_EQ(136, s.sessTerminate());
  ASSERT_EQ(0, s.sessInit());
  EXPECT_EQ(sInit, s.sessGetState());

  ASSERT_EQ(0, s.sessOpen());
  EXPECT_EQ(sOpened, s.sessGetState());
  EXPECT_EQ(136, s.sessOpen());  // already open
  EXPECT_EQ(sTRANSERR, s.sessGetState());
  EXPECT_EQ(0, s.sessInit());
  EXPECT_EQ(sInit, s.sessGetState());

  ASSERT_EQ(0, s.sessOpen());
  ASSERT_EQ(0, s.sessSignOn());
  EXPECT_EQ(136, s.sessTerminate());  // signed on: close first
  EXPECT_EQ(sTRANSERR, s.sessGetState());
  ASSERT_EQ(0, s.sessInit());
  ASSERT_EQ(0, s.sessOpen());
  ASSERT_EQ(0, s.sessSignOn());
  EXPECT_EQ(0, s.sessClose());
  EXPECT_EQ(sInit, s.sessGetState());
  EXPECT_EQ(0, s.sessTerminate());
  EXPECT_EQ(sUninit, s.sessGetState());
  EXPECT_EQ(nullptr, s.sessGetBufferP());  // the pool went with it
}

TEST(SessTransitions, VerbTrafficInInitKeepsTheState) {
  Sess_o s(Offline(), 1);
  ASSERT_EQ(0, s.sessInit());
  unsigned char verb[4];
  verbSetShortHdr(verb, VB_Echo, 4);
  int rc = s.sessSendVerb(verb);
  EXPECT_NE(136, rc);  // allowed, though there is nobody to talk to
  EXPECT_NE(0, rc);
  EXPECT_EQ(sInit, s.sessGetState());
  EXPECT_EQ(0, s.sessFlushVerb());
  EXPECT_EQ(sInit, s.sessGetState());
  // In sUninit the same verb is illegal.
  Sess_o u(Offline(), 1);
  EXPECT_EQ(136, u.sessSendVerb(verb));
  EXPECT_EQ(sTRANSERR, u.sessGetState());
}

TEST(SessOpen, FailedOpenClosesAndReportsTheTransportCode) {
  Sess_o s(Offline(), 1);
  ASSERT_EQ(0, s.sessInit());
  int rc = s.sessOpen();
  EXPECT_EQ(COMM_RC_CONNECT, rc);
  EXPECT_EQ(sInit, s.sessGetState());
  EXPECT_EQ(1, s.sessCommObj()->openAttempts);

  // The restart settings are for reconnecting; a first open does not wait.
  Sess_o r(Offline(), 1);
  r.sessSetUint32(sessRestartDuration, 3600000);
  r.sessSetUint32(sessRestartInterval, 1000);
  ASSERT_EQ(0, r.sessInit());
  EXPECT_EQ(COMM_RC_CONNECT, r.sessOpen());
  EXPECT_EQ(1, r.sessCommObj()->openAttempts);
}

TEST(SessOpen, UnsupportedMethodFailsInit) {
  sessSettings_t st = Offline();
  st.comm.method = COMM_SHAREDMEM;
  Sess_o s(st, 1);
  EXPECT_EQ(COMM_RC_METHOD, s.sessInit());
  EXPECT_EQ(sUninit, s.sessGetState());
}

TEST(SessAttributes, TypedAccessorsAndDefaults) {
  Sess_o s(Offline(), 1);
  EXPECT_STREQ("NODE1", s.sessGetString(sessNodeName));
  EXPECT_STREQ("TCPIP", s.sessGetString(sessCommMethodName));
  EXPECT_EQ(9, s.sessGetUint16(sessCommPort));
  EXPECT_TRUE(s.sessGetBool(sessMainSession));
  EXPECT_TRUE(s.sessGetBool(sessEnhancedSignOn));
  EXPECT_EQ(uint32_t{AUTH_ITERATIONS_DEFAULT}, s.sessGetUint32(sessVerifierIter));

  s.sessSetBool(sessSAMode, true);
  s.sessSetUint8(sessCrcMode, 2);
  s.sessSetUint16(sessSAPort, 1501);
  s.sessSetUint32(sessBufferSize, 65536);
  s.sessSetUint64(sessBytesSent, 1ull << 40);
  s.sessSetString(sessOwner, "root");
  EXPECT_TRUE(s.sessGetBool(sessSAMode));
  EXPECT_EQ(2, s.sessGetUint8(sessCrcMode));
  EXPECT_EQ(1501, s.sessGetUint16(sessSAPort));
  EXPECT_EQ(65536u, s.sessGetUint32(sessBufferSize));
  EXPECT_EQ(1ull << 40, s.sessGetUint64(sessBytesSent));
  EXPECT_STREQ("root", s.sessGetString(sessOwner));
  s.sessSetString(sessOwner, nullptr);
  EXPECT_STREQ("", s.sessGetString(sessOwner));

  std::snprintf(s.sessGetCharP(sessServerPlatform), SESS_CHAR_LEN, "%s", "Linux x86_64");
  char small[6];
  s.sessGetChar(sessServerPlatform, small, sizeof small);
  EXPECT_STREQ("Linux", small);

  nDate d;
  d.year = 2026;
  d.month = 11;
  d.day = 21;
  s.sessSetDate(sessSignOnDate, d);
  EXPECT_EQ(2026, s.sessGetDate(sessSignOnDate).year);
  EXPECT_EQ(21, s.sessGetDate(sessSignOnDate).day);
  int x = 0;
  s.sessSetVoid(sessUserData, &x);
  EXPECT_EQ(&x, s.sessGetVoid(sessUserData));
  s.sessSetPassword("secret");
  EXPECT_EQ("secret", s.sessGetPassword());

  // Every index in the table has a type; the boolean range is 17 to 111.
  for (unsigned i = 0; i < 256; ++i) {
    const sessAttrDesc_t* a = sessAttrDesc(static_cast<uint8_t>(i));
    if (a == nullptr) continue;
    EXPECT_EQ(i, a->index);
    if (a->type == atBool) {
      EXPECT_GE(i, 17u);
      EXPECT_LE(i, 111u);
    }
  }
}

using SessDeathTest = ::testing::Test;

TEST_F(SessDeathTest, WrongIndexStopsWithTheAccessorsName) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Sess_o s(Offline(), 1);
  EXPECT_DEATH(s.sessGetBool(sessNodeName), "sessGetBool: attribute index 5 is not a Bool");
  EXPECT_DEATH(s.sessSetUint16(sessCrcMode, 1), "sessSetUint16");
  EXPECT_DEATH(s.sessGetString(sessPassword), "sessGetString");
  EXPECT_DEATH(s.sessGetCharP(sessNodeName), "sessGetCharP");
  EXPECT_DEATH(s.sessSetVoid(sessPassword, nullptr), "sessSetVoid");
  EXPECT_DEATH(s.sessGetUint32(200), "sessGetUint32");
  EXPECT_DEATH(s.sessGetUint64(0), "sessGetUint64");
}

TEST_F(SessDeathTest, MissingTransportFunctionsAreAssertions) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Sess_o a(Offline(), 1);
  a.sessCommObj()->commFunc.commLoad = nullptr;
  EXPECT_DEATH(a.sessInit(), "commObj->commFunc.commLoad != __null");
  Sess_o b(Offline(), 1);
  ASSERT_EQ(0, b.sessInit());
  b.sessCommObj()->commFunc.commOpen = nullptr;
  EXPECT_DEATH(b.sessOpen(), "commObj->commFunc.commOpen != __null");
}

TEST(SessFuncMaps, BitOrderAndStorageAgentRules) {
  Sess_o s(Offline(), 1);
  // Capability 0 is the top bit of byte 0; 9 is bit 6 of byte 1; 23 is
  // the lowest bit of byte 2.
  const unsigned char server[] = {0x80, 0x40, 0x01, 0x00, 0x01};
  s.sessCopyFuncMap(server, sizeof server);
  EXPECT_TRUE(s.sessTestFuncMap(0));
  EXPECT_EQ(0, s.sessGetUint8(sessCapTestResult));
  EXPECT_FALSE(s.sessTestFuncMap(1));
  EXPECT_EQ(2, s.sessGetUint8(sessCapTestResult));
  EXPECT_TRUE(s.sessTestFuncMap(9));
  EXPECT_TRUE(s.sessTestFuncMap(23));
  EXPECT_TRUE(s.sessTestFuncMap(39));
  EXPECT_FALSE(s.sessTestFuncMap(255));
  EXPECT_FALSE(s.sessTestFuncMap(1000));

  const unsigned char agent[] = {0xC0, 0x00, 0x00, 0x00, 0x00};
  s.sessCopySAFuncMap(agent, sizeof agent);
  s.sessSetBool(sessSAMode, true);
  EXPECT_TRUE(s.sessTestFuncMap(0));  // both
  EXPECT_EQ(1, s.sessGetUint8(sessCapTestResult));
  EXPECT_FALSE(s.sessTestFuncMap(23));  // only the server
  EXPECT_EQ(3, s.sessGetUint8(sessCapTestResult));
  EXPECT_FALSE(s.sessTestFuncMap(1));  // only the agent
  EXPECT_EQ(2, s.sessGetUint8(sessCapTestResult));
  EXPECT_FALSE(s.sessTestFuncMap(2));  // neither
  EXPECT_EQ(4, s.sessGetUint8(sessCapTestResult));
  EXPECT_TRUE(s.sessTestSAFuncMap(1));
  EXPECT_FALSE(s.sessTestSAFuncMap(23));

  // 11 and 31 are decided by the server alone.
  const unsigned char server2[] = {0x00, 0x10, 0x00, 0x01};
  s.sessCopyFuncMap(server2, sizeof server2);
  EXPECT_TRUE(s.sessTestFuncMap(11));
  EXPECT_EQ(0, s.sessGetUint8(sessCapTestResult));
  EXPECT_TRUE(s.sessTestFuncMap(31));
  EXPECT_EQ(0, s.sessGetUint8(sessCapTestResult));

  EXPECT_TRUE(s.sessTestClientFuncMap(CAP_VERB_CRC));
  s.sessResetClientFuncMap(CAP_VERB_CRC);
  EXPECT_FALSE(s.sessTestClientFuncMap(CAP_VERB_CRC));
  EXPECT_TRUE(s.sessTestClientFuncMap(CAP_ENHANCED_SIGNON));
}

TEST(SessFuncMaps, ShowSessListsTheThreeMaps) {
  Sess_o s(Offline(), 1);
  const unsigned char server[] = {0x80, 0x00, 0x01};
  s.sessCopyFuncMap(server, sizeof server);
  char* text = nullptr;
  size_t len = 0;
  FILE* f = open_memstream(&text, &len);
  s.sessShowSess(f);
  std::fclose(f);
  std::string out(text, len);
  free(text);
  size_t a = out.find("Current Server Connection Supports:\n");
  size_t b = out.find("Current Storage Agent Connection Supports:\n");
  size_t c = out.find("Client Supports:\n");
  ASSERT_NE(std::string::npos, a);
  ASSERT_NE(std::string::npos, b);
  ASSERT_NE(std::string::npos, c);
  EXPECT_LT(a, b);
  EXPECT_LT(b, c);
  std::string serverPart = out.substr(a, b - a);
  EXPECT_NE(std::string::npos, serverPart.find("   00 - Enhanced sign-on\n"));
  EXPECT_NE(std::string::npos, serverPart.find("   23 - Verb checksums\n"));
  EXPECT_EQ(std::string::npos, serverPart.find("   20 - "));
  EXPECT_EQ(b + std::string("Current Storage Agent Connection Supports:\n").size(), c);
  EXPECT_NE(std::string::npos, out.find("   20 - Password verifier update\n", c));
}

TEST(SessObjects, DeleteClosesAndNullsThePointer) {
  TestServer server;
  Sess_o* s = new_SessionObject(nullptr, 1);
  ASSERT_NE(nullptr, s);
  EXPECT_EQ(sUninit, s->sessGetState());
  delete_SessionObject(s);
  EXPECT_EQ(nullptr, s);

  Sess_o* t = new Sess_o(testSettings(server.port()), 0);
  ASSERT_EQ(0, t->sessInit());
  ASSERT_EQ(0, t->sessOpen());
  delete_SessionObject(t);
  EXPECT_EQ(nullptr, t);
  delete_SessionObject(t);  // harmless on null
}

TEST(SessLock, TryFailsWhileAnotherThreadHolds) {
  Sess_o s(Offline(), 1);
  ASSERT_EQ(0, s.sessLock(sessLockAcquire));
  int other = -1;
  std::thread t([&] { other = s.sessLock(sessLockTry); });
  t.join();
  EXPECT_EQ(EBUSY, other);
  EXPECT_EQ(0, s.sessLock(sessLockTry));  // the owner may take it again
  EXPECT_EQ(0, s.sessLock(sessLockRelease));
  EXPECT_EQ(0, s.sessLock(sessLockRelease));
}

}  // namespace
