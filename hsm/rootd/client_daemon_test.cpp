#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/rxdsmapi.h"
#include "hsm/dmapi/testing/dmi_testing.h"
#include "hsm/dmapi/uxdsmapi.h"
#include "hsm/rdm/rdm_client.h"
#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rootd/rootd_requests.h"
#include "hsm/rootd/testing/fake_daemon.h"
#include "testing/check.h"

namespace {

int fakeInit(char** v) {
  static char version[] = "VEXA DMAPI 3.40";
  *v = version;
  return 0;
}

TEST(RdmProto, DispatchRefusesMalformedAndUnknownRequests) {
  dmapiBinding_t dm;
  dmBindBuiltIn(&dm);
  dm.init_service = fakeInit;
  rdmRequest_t req;
  rdmReply_t rep;
  req.call = rdmInitServiceCall;
  req.key = 42;
  req.payload = {1};  // InitService takes no arguments
  rtdDispatchAsRoot(dm, req, &rep);
  EXPECT_EQ(rep.status, EPROTO);
  EXPECT_EQ(rep.key, 42u);
  req.payload.clear();
  rtdDispatchAsRoot(dm, req, &rep);
  EXPECT_EQ(rep.status, 0);
  EXPECT_EQ(rep.result, 0);
  req.call = rdmCallLimit;
  rtdDispatchAsRoot(dm, req, &rep);
  EXPECT_EQ(rep.status, EOPNOTSUPP);
}

class RdmClientTest : public dmitest::Sandbox {
 protected:
  RdmClientTest() : Sandbox(false) {}
  void SetUp() override {
    Sandbox::SetUp();
    if (IsSkipped()) return;
    dmBindBuiltIn(&dm_);
    dm_.init_service = fakeInit;
    TEST_DMISESSIONPOOLSIZE.set = 1;
    TEST_DMISESSIONPOOLSIZE.value = 5;
    TEST_DMISESSIONPOOLTIME.set = 1;
    TEST_DMISESSIONPOOLTIME.value = 1;
  }
  void TearDown() override {
    TEST_DMISESSIONPOOLSIZE = trTestFlag_t{};
    TEST_DMISESSIONPOOLTIME = trTestFlag_t{};
    Sandbox::TearDown();
  }
  dmapiBinding_t dm_{};
};

TEST_F(RdmClientTest, PoolSettingsFallBackToTheirDefaults) {
  EXPECT_EQ(rdmPoolSize(), 5);
  EXPECT_EQ(rdmPoolTimeUs(), 1);
  TEST_DMISESSIONPOOLSIZE.value = static_cast<unsigned>(-1);
  TEST_DMISESSIONPOOLTIME.set = 0;
  EXPECT_EQ(rdmPoolSize(), 32);
  EXPECT_EQ(rdmPoolTimeUs(), 200000);
}

TEST_F(RdmClientTest, BusyDaemonIsAskedAgainUpToThePoolSize) {
  FakeDaemon d(&dm_);
  ASSERT_TRUE(d.ok());
  char version[64];
  d.busyReplies = 4;
  ASSERT_EQ(rdmInitService(version, sizeof version), 0);
  EXPECT_STREQ(version, "VEXA DMAPI 3.40");
  EXPECT_EQ(d.requests, 5);

  d.requests = 0;
  d.busyReplies = 5;
  EXPECT_EQ(rdmInitService(version, sizeof version), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(d.requests, 5);
}

TEST_F(RdmClientTest, UntrustworthyRepliesAndAnAbsentDaemonAreAccessErrors) {
  char version[64];
  EXPECT_EQ(rdmInitService(version, sizeof version), -1) << "no daemon";
  EXPECT_EQ(errno, EACCES);
  FakeDaemon d(&dm_);
  ASSERT_TRUE(d.ok());
  for (FakeDaemon::Mode m :
       {FakeDaemon::kWrongKey, FakeDaemon::kWrongSize, FakeDaemon::kHangUp, FakeDaemon::kRefuse}) {
    d.mode = m;
    errno = 0;
    EXPECT_EQ(rdmInitService(version, sizeof version), -1) << m;
    EXPECT_EQ(errno, EACCES) << m;
  }
  d.mode = FakeDaemon::kServe;
  EXPECT_EQ(rdmInitService(version, sizeof version), 0);

  // Through the access object: the service is simply not there.
  UXDSMAPI* u = new UXDSMAPI(DM_FALSE);
  u->init();
  delete XDSMAPI::setXDSMAPI(u);
  d.mode = FakeDaemon::kWrongKey;
  EXPECT_EQ(u->initService(), 0);
  EXPECT_EQ(errno, EPERM) << "EACCES is reported as missing permission";
}

TEST_F(RdmClientTest, DaemonOfAnotherUserIsNotBelieved) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run a daemon as another user";
  std::string path = rdmSocketPath();
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Listens as "nobody" and serves one connection honestly.
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        chmod(path.c_str(), 0777) != 0 || setgid(65534) != 0 || setuid(65534) != 0 ||
        listen(fd, 1) != 0)
      _exit(1);
    char c = 'L';
    if (write(ready[1], &c, 1) != 1) _exit(2);
    int conn = accept(fd, nullptr, nullptr);
    if (conn >= 0) rtdServeConnection(conn, dm_);
    _exit(0);
  }
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  char version[64];
  EXPECT_EQ(rdmInitService(version, sizeof version), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_TRUE(qmxtest::ChildExited(child, 0));
  close(ready[0]);
  close(ready[1]);
}

// The whole path of a user who is not root: access object, protocol and a
// daemon that makes the calls through our provider.
class RdmEndToEndTest : public dmitest::Sandbox {};

TEST_F(RdmEndToEndTest, AttributeCommandWorksThroughTheDaemon) {
  manage(fs_);
  dmapiBinding_t dm;
  dmBindBuiltIn(&dm);
  FakeDaemon d(&dm);
  ASSERT_TRUE(d.ok());
  UXDSMAPI* u = new UXDSMAPI(DM_FALSE);
  u->init();
  delete XDSMAPI::setXDSMAPI(u);
  ASSERT_EQ(dmiInit(0), 0);
  dm_sessid_t sid = u->createSession(0, "qmxattr", 0);
  ASSERT_NE(sid, 0u);
  dm_sessid_t found = 0;
  ASSERT_EQ(dmiGetSidByName("qmxattr", &found, 0), 0);
  EXPECT_EQ(found, sid);

  std::string p = makeFile("stub");
  xdsm_handle_t h;
  ASSERT_EQ(handleSetWithPath(&h, p.c_str()), 0);
  char path[4096];
  ASSERT_EQ(u->handleToPath(h, path, sizeof path), 0);
  EXPECT_EQ(std::string(path), p);
  dmiInfo info{};
  info.attr = 0x200;
  info.migState = dmiStateMigrated;
  ASSERT_EQ(dmiSetDMAttrib(sid, h, DM_NO_TOKEN, info, 0), 0);
  dm_stat_t st{};
  ASSERT_EQ(u->getFileAttr(sid, h, DM_NO_TOKEN, DM_AT_STAT, &st), 0);
  EXPECT_EQ(st.dt_size, 4);
  char data[16] = {};
  EXPECT_EQ(u->readInvis(sid, h, DM_NO_TOKEN, 0, sizeof data, data), 4);
  EXPECT_STREQ(data, "data");
  handleFree(&h);

  migAttrRequest req{};
  req.operation = migAttrSet;
  req.mask = 255;
  req.value = dmiRecallPartial;
  std::strncpy(req.path, p.c_str(), sizeof req.path - 1);
  req.fd = open(p.c_str(), O_RDONLY);
  ASSERT_EQ(dmiEntryFileAttributes(sid, &req), 0);
  req.operation = migAttrQuery;
  req.value = 0;
  ASSERT_EQ(dmiEntryFileAttributes(sid, &req), 0);
  close(req.fd);
  EXPECT_EQ(req.value, 0x200u | dmiRecallPartial);

  // Errors of the call come back as the call's own errno.
  dm_attrname_t an = dmiAttrName("none");
  char buf[8];
  size_t rlen = 0;
  ASSERT_EQ(handleSetWithPath(&h, p.c_str()), 0);
  EXPECT_EQ(u->getDmattr(sid, h, DM_NO_TOKEN, &an, sizeof buf, buf, &rlen), -1);
  EXPECT_EQ(errno, ENOENT);
  handleFree(&h);
  EXPECT_EQ(u->destroySession(sid, 0), 1);
  EXPECT_EQ(u->getSID(), 0u);
}

// Every call gives through the daemon what it gives made directly.
TEST_F(RdmEndToEndTest, EveryCallAnswersAsTheDirectCallDoes) {
  dmapiBinding_t dm;
  dmBindBuiltIn(&dm);
  FakeDaemon d(&dm);
  ASSERT_TRUE(d.ok());
  RXDSMAPI direct(DM_TRUE, &dm);
  direct.init();
  ASSERT_EQ(direct.initService(), 1);
  UXDSMAPI viaDaemon(DM_FALSE);
  viaDaemon.init();
  ASSERT_EQ(viaDaemon.initService(), 1);
  dm_sessid_t sid = viaDaemon.createSession(0, "every-call", 0);
  ASSERT_NE(sid, 0u);
  std::string p = makeFile("f", std::string(8192, 'x'));
  xdsm_handle_t hu, hr;
  ASSERT_EQ(viaDaemon.pathToHandle(p.c_str(), &hu), 0);
  ASSERT_EQ(direct.pathToHandle(p.c_str(), &hr), 0);
  ASSERT_EQ(hu.hlen, hr.hlen);
  EXPECT_EQ(std::memcmp(hu.hanp, hr.hanp, hu.hlen), 0);

  // Rights, holes, file attributes, data.
  EXPECT_EQ(viaDaemon.requestRight(sid, hu, DM_NO_TOKEN, DM_RR_WAIT, DM_RIGHT_EXCL), 0);
  EXPECT_EQ(viaDaemon.releaseRight(sid, hu, DM_NO_TOKEN), 0);
  EXPECT_EQ(viaDaemon.requestRight(sid, hu, DM_NO_TOKEN, 0x80, DM_RIGHT_EXCL), -1);
  EXPECT_EQ(errno, EINVAL);
  dm_off_t roffU = -1, roffR = -2;
  dm_size_t rlenU = 1, rlenR = 2;
  int rcU = viaDaemon.probeHole(sid, hu, DM_NO_TOKEN, 4096, 0, &roffU, &rlenU);
  int rcR = direct.probeHole(sid, hr, DM_NO_TOKEN, 4096, 0, &roffR, &rlenR);
  EXPECT_EQ(rcU, rcR);
  EXPECT_EQ(roffU, roffR);
  EXPECT_EQ(rlenU, rlenR);
  ASSERT_EQ(viaDaemon.punchHole(sid, hu, DM_NO_TOKEN, roffU, rlenU), 0);
  char hole[8] = {1};
  EXPECT_EQ(direct.readInvis(sid, hr, DM_NO_TOKEN, roffU, sizeof hole, hole), 8);
  EXPECT_EQ(std::memcmp(hole, "\0\0\0\0\0\0\0\0", 8), 0);
  dm_fileattr_t fa{};
  fa.fa_mode = 0600;
  ASSERT_EQ(viaDaemon.setFileAttr(sid, hu, DM_NO_TOKEN, DM_AT_MODE, &fa), 0);
  dm_stat_t su{}, sr{};
  ASSERT_EQ(viaDaemon.getFileAttr(sid, hu, DM_NO_TOKEN, DM_AT_STAT, &su), 0);
  ASSERT_EQ(direct.getFileAttr(sid, hr, DM_NO_TOKEN, DM_AT_STAT, &sr), 0);
  EXPECT_EQ(su.dt_mode & 07777, 0600u);
  EXPECT_EQ(su.dt_ino, sr.dt_ino);
  EXPECT_EQ(su.dt_size, sr.dt_size);
  char data[16] = {};
  EXPECT_EQ(viaDaemon.readInvis(sid, hu, DM_NO_TOKEN, 0, 4, data), 4);
  EXPECT_STREQ(data, "xxxx");

  // Regions.
  dm_region_t reg{0, 100, DM_REGION_READ, 0};
  dm_boolean_t exact = DM_FALSE;
  ASSERT_EQ(viaDaemon.setRegion(sid, hu, DM_NO_TOKEN, 1, &reg, &exact, 0), 0);
  dm_region_t regs[2] = {};
  unsigned int n = 0;
  ASSERT_EQ(viaDaemon.getRegion(sid, hu, DM_NO_TOKEN, 2, regs, &n), 0);
  ASSERT_EQ(n, 1u);
  EXPECT_EQ(regs[0].rg_size, 100u);
  EXPECT_EQ(viaDaemon.getRegion(sid, hu, DM_NO_TOKEN, 0, regs, &n), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(n, 1u);

  // Attributes: too small a buffer reports the length needed.
  dm_attrname_t an = dmiAttrName("abc");
  ASSERT_EQ(viaDaemon.setDmattr(sid, hu, DM_NO_TOKEN, &an, 0, 10, "0123456789"), 0);
  char small[4];
  size_t rlen = 0;
  EXPECT_EQ(viaDaemon.getDmattr(sid, hu, DM_NO_TOKEN, &an, sizeof small, small, &rlen), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(rlen, 10u);
  EXPECT_EQ(viaDaemon.removeDmattr(sid, hu, DM_NO_TOKEN, 0, &an), 0);
  EXPECT_EQ(direct.getDmattr(sid, hr, DM_NO_TOKEN, &an, sizeof small, small, &rlen), -1);
  EXPECT_EQ(errno, ENOENT);

  // Events and tokens.
  dm_token_t token = DM_NO_TOKEN;
  ASSERT_EQ(viaDaemon.createUserEvent(sid, 5, "hello", &token), 0);
  dm_token_t tokens[4];
  ASSERT_EQ(viaDaemon.getAllTokens(sid, 4, tokens, &n), 0);
  ASSERT_EQ(n, 1u);
  EXPECT_TRUE(DM_TOKEN_EQ(tokens[0], token));
  EXPECT_EQ(viaDaemon.getAllTokens(sid, 0, tokens, &n), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(n, 1u);
  unsigned int cleared = 0;
  XDSMAPI* previous = XDSMAPI::setXDSMAPI(&viaDaemon);
  EXPECT_EQ(dmiClearAllEvents(sid, 0, &cleared), 0);
  XDSMAPI::setXDSMAPI(previous);
  EXPECT_EQ(cleared, 1u);
  EXPECT_EQ(viaDaemon.getAllTokens(sid, 4, tokens, &n), 0);
  EXPECT_EQ(n, 0u);
  char events[256];
  EXPECT_EQ(viaDaemon.getEvents(sid, 1, 0, sizeof events, events, &rlen), -1);
  EXPECT_EQ(errno, EAGAIN);

  // Sessions.
  dm_sessid_t sids[4];
  ASSERT_EQ(viaDaemon.getAllSessions(4, sids, &n), 0);
  EXPECT_EQ(n, 1u);
  char info[64];
  ASSERT_EQ(viaDaemon.querySession(sid, sizeof info, info, &rlen), 0);
  EXPECT_STREQ(info, "every-call");
  viaDaemon.freeHandle(&hu);
  EXPECT_EQ(hu.hanp, nullptr);
  direct.freeHandle(&hr);
  EXPECT_EQ(viaDaemon.destroySession(sid, 0), 1);
  EXPECT_EQ(viaDaemon.querySession(sid, sizeof info, info, &rlen), -1);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
