// What the session writes to the trace.
#include <gtest/gtest.h>

#include "diag/testing/trace_test_util.h"
#include "session/sess.h"
#include "session/signon.h"
#include "session/testing/test_server.h"
#include "session/verb.h"

namespace {

class SessTraceTest : public TraceFixture {
 protected:
  void SetUp() override {
    TraceFixture::SetUp();
    allClassesOff();
    ASSERT_EQ(0, trEnable("SESSION VERBINFO VERBDETAIL COMM ENTER EXIT", 1));
    ASSERT_EQ(0, trBegin(path("trace.out").c_str(), 0));
  }
  void TearDown() override {
    allClassesOff();
    TraceFixture::TearDown();
  }
  std::string Trace() {
    trClose(0);
    return qmxtest::readFile(path("trace.out"));
  }
};

int FailingLoad(commObj_t*, int) {
  return 7;
}

TEST_F(SessTraceTest, LifecycleAndFramingLines) {
  TestServer server;
  Sess_o bad(testSettings(server.port()), 1);
  bad.sessCommObj()->commFunc.commLoad = FailingLoad;
  EXPECT_EQ(7, bad.sessInit());

  Sess_o s(testSettings(server.port()), 1);
  ASSERT_EQ(0, s.sessInit());
  ASSERT_EQ(0, s.sessOpen());
  const unsigned char crcCap[] = {0x00, 0x00, 0x01};
  s.sessCopyFuncMap(crcCap, sizeof crcCap);
  s.sessSetUint8(sessCrcMode, 2);
  unsigned char verb[40] = {};
  verbSetShortHdr(verb, VB_Echo, sizeof verb);
  ASSERT_EQ(0, s.sessSendVerb(verb));
  unsigned char* back = nullptr;
  ASSERT_EQ(0, s.sessRecvVerb(&back));
  server.SetFault(TestServer::Fault::BadMagic);
  ASSERT_EQ(0, s.sessSendVerb(verb));
  EXPECT_EQ(136, s.sessRecvVerb(&back));
  EXPECT_EQ(0, s.sessTerminate());  // the broken session was closed: sInit
  std::string t = Trace();

  for (const char* line : {
           "sessInit(): commLoad returned 7.\n",
           "ENTER =====> Sess_o::sessOpen\n",
           "EXIT  <===== Sess_o::sessOpen\n",
           "sessOpen(): calling the communication specific open routine\n",
           "Session: sessOpen changed the state from sInit to sOpened.",
           "Calculated CRC value: ",
           "Sent verb: length 40, type 0x20 (Echo).",
           "Received verb: length 40, type 0x20 (Echo).",
           "sessRecvVerb(): Invalid verb received.\n",
           "sessRecvVerb(): length=0028, verb=20,magic=a4\n",
           "Session: sessClose changed the state from sOpened to sInit.",
           "TcpOpen: connected to 127.0.0.1 port ",
       })
    EXPECT_NE(std::string::npos, t.find(line)) << "missing: " << line << "\n" << t;
}

TEST_F(SessTraceTest, PasswordPathsAreTraced) {
  TestServer server;
  server.AddNode("NODE1", "pw1", true);
  qmxtest::TempDir pw("qmx-trace-pw-");
  sessSettings_t st = testSettings(server.port());
  st.passwordAccess = PSWD_GENERATE;
  st.passwordDir = pw.path();
  Sess_o s(st, 1);
  s.sessSetUint32(sessVerifierIter, AUTH_ITERATIONS_MIN);
  s.sessSetPassword("pw1");
  ASSERT_EQ(0, Logon(&s));
  Logoff(&s);

  server.SetExpired("NODE1", true);
  sessSchedHandler_t sched;
  sched.getConnection = [](void* ctx, int* fd) {
    *fd = static_cast<TestServer*>(ctx)->OpenServerInitiated();
    return 0;
  };
  sched.ctx = &server;
  Sess_o m(st, 1);
  m.sessSetBool(sessServerInitiated, true);
  m.sessSetVoid(sessSchedHandler, &sched);
  EXPECT_EQ(52, Logon(&m));
  std::string t = Trace();

  for (const char* line : {
           "PasswordExpiredGenerate: sessInitType(0)\n",
           "scSignOnTheSession: sessInitType(1), the password has expired, let's keep the "
           "session open...\n",
           "sessOpen(): requesting a server-initiated connection\n",
           "PasswordExpired: it is a server-initiated session and the main one! Let's return "
           "rc(52)\n",
       })
    EXPECT_NE(std::string::npos, t.find(line)) << "missing: " << line << "\n" << t;
}

}  // namespace
