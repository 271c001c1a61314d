// The daemon's service under bad input and load: stale sockets, a full
// house, silent clients, clients that leave, and a stream of garbage.
#include <poll.h>
#include <sys/xattr.h>

#include <random>

#include "hsm/rdm/rdm_client.h"
#include "hsm/rootd/rootd_server.h"
#include "hsm/rootd/testing/rootd_testing.h"
#include "testing/check.h"
#include "testing/process.h"

using namespace rtdtest;

namespace {

class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RTD_NEED_ROOT();
    dmBindBuiltIn(&dm_);
    char* v = nullptr;
    ASSERT_EQ(dm_.init_service(&v), 0);
    sock_ = box_.path("run/qmxrootd.sock");
  }
  rtdServerConfig_t config(int maxClients = 16, int timeoutMs = 5000) {
    rtdServerConfig_t cfg;
    cfg.socketPath = sock_;
    cfg.dm = &dm_;
    cfg.maxClients = maxClients;
    cfg.timeoutMs = timeoutMs;
    return cfg;
  }
  // A request that must succeed whenever the daemon is sound.
  std::string initService() { return outcome(sock_, rdmInitServiceCall, rdmWriter()); }

  Sandbox box_;
  dmapiBinding_t dm_;
  std::string sock_;
};

TEST_F(ServerTest, StaleSocketIsReplacedALiveOneIsNot) {
  // A socket file nobody listens on.
  ASSERT_EQ(mkdir(box_.path("run").c_str(), 0755), 0);
  {
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un sa {};
    sa.sun_family = AF_UNIX;
    std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s", sock_.c_str());
    ASSERT_EQ(bind(fd, reinterpret_cast<struct sockaddr*>(&sa), sizeof sa), 0);
    close(fd);
  }
  ServerThread first(config());
  ASSERT_EQ(first.listenRc(), 0);
  struct stat st;
  ASSERT_EQ(stat(sock_.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666u);
  EXPECT_EQ(initService(), "0/0");

  // A second daemon finds the first answering and leaves its socket alone.
  rtdServer second(config());
  EXPECT_EQ(second.listen(), -1);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_EQ(initService(), "0/0");

  // Stopping removes the socket.
  first.stop();
  EXPECT_NE(access(sock_.c_str(), F_OK), 0);
  EXPECT_EQ(initService(), "no answer");
}

TEST_F(ServerTest, APlainFileInThePlaceOfTheSocketIsKept) {
  ASSERT_EQ(mkdir(box_.path("run").c_str(), 0755), 0);
  box_.file("run/qmxrootd.sock", 0, 0644, "keep me");
  rtdServer s(config());
  EXPECT_EQ(s.listen(), -1);
  EXPECT_EQ(errno, EEXIST);
  FILE* f = std::fopen(sock_.c_str(), "r");
  ASSERT_NE(f, nullptr);
  char buf[16] = {};
  EXPECT_NE(std::fgets(buf, sizeof buf, f), nullptr);
  std::fclose(f);
  EXPECT_STREQ(buf, "keep me");
}

TEST_F(ServerTest, OverTheLimitClientsAreToldToComeBack) {
  ServerThread t(config(1));
  ASSERT_EQ(t.listenRc(), 0);
  // One client holds the only place (served: the daemon waits for its
  // request).
  int holder = connectTo(sock_);
  ASSERT_GE(holder, 0);
  ASSERT_TRUE(qmxtest::waitUntil([&] { return t.server().activeClients() >= 1; }));
  rdmReply_t rep;
  ASSERT_EQ(call(sock_, rdmInitServiceCall, rdmWriter(), &rep, 0xABCDEF), 0);
  EXPECT_EQ(rep.status, EAGAIN);
  EXPECT_EQ(rep.key, 0xABCDEFu);
  EXPECT_EQ(rep.call, rdmInitServiceCall);
  close(holder);
  // The place comes free again.
  ASSERT_TRUE(qmxtest::waitUntil(
      [&] { return t.server().activeClients() == 0 && t.server().busyClients() == 0; }));
  EXPECT_EQ(initService(), "0/0");
}

TEST_F(ServerTest, SilentClientIsCutOffAndBlocksNobody) {
  ServerThread t(config(2, 200));
  ASSERT_EQ(t.listenRc(), 0);
  int silent = connectTo(sock_);
  ASSERT_GE(silent, 0);
  // Others are served while it says nothing.
  EXPECT_EQ(initService(), "0/0");
  // Then the daemon closes its connection: the read ends with end of file.
  char c;
  EXPECT_EQ(read(silent, &c, 1), 0);
  close(silent);
  // A client that stops in the middle of a request is cut off as well.
  int half = connectTo(sock_);
  ASSERT_GE(half, 0);
  ASSERT_EQ(write(half, "QRDM", 4), 4);
  EXPECT_EQ(read(half, &c, 1), 0);
  close(half);
  EXPECT_EQ(initService(), "0/0");
}

TEST_F(ServerTest, ManyRequestsOnOneConnection) {
  ServerThread t(config());
  ASSERT_EQ(t.listenRc(), 0);
  int fd = connectTo(sock_);
  ASSERT_GE(fd, 0);
  for (uint64_t key = 1; key <= 50; ++key) {
    rdmRequest_t req;
    req.call = rdmInitServiceCall;
    req.key = key;
    ASSERT_EQ(rdmWriteRequest(fd, req), 0);
    rdmReply_t rep;
    ASSERT_EQ(rdmReadReply(fd, &rep), 0);
    ASSERT_EQ(rep.key, key);
    ASSERT_EQ(rep.result, 0);
  }
  close(fd);
}

TEST_F(ServerTest, MalformedFramesAreAnsweredOrDropped) {
  ServerThread t(config());
  ASSERT_EQ(t.listenRc(), 0);
  // Unknown call: answered, the connection stays usable.
  EXPECT_EQ(outcome(sock_, 999, rdmWriter()), "status " + std::to_string(EOPNOTSUPP));
  // Arguments that don't decode exactly.
  rdmWriter extra;
  extra.u32(7);
  EXPECT_EQ(outcome(sock_, rdmInitServiceCall, extra), "status " + std::to_string(EPROTO));
  // A header announcing more than any request may carry: dropped.
  int fd = connectTo(sock_);
  ASSERT_GE(fd, 0);
  rdmWriter head;
  head.u32(rdmMagic);
  head.u32(rdmVersion | rdmInitServiceCall << 16);
  head.u64(1);
  head.u32(rdmMaxPayload + 1);
  ASSERT_EQ(write(fd, head.data().data(), head.data().size()),
            static_cast<ssize_t>(head.data().size()));
  char c;
  EXPECT_EQ(read(fd, &c, 1), 0);
  close(fd);
  auto bad = t.badRequests();
  EXPECT_EQ(std::count(bad.begin(), bad.end(), EPROTO), 2);
  EXPECT_EQ(std::count(bad.begin(), bad.end(), EOPNOTSUPP), 1);
  EXPECT_EQ(initService(), "0/0");
}

TEST_F(ServerTest, ClientLeavingMidReplyHurtsNobody) {
  ServerThread t(config());
  ASSERT_EQ(t.listenRc(), 0);
  std::string big(512 * 1024, 'x');
  std::string path = box_.file("big", 0, 0644, big.c_str());
  dm_sessid_t sid = newSession(sock_);
  ASSERT_NE(sid, 0u);
  for (int i = 0; i < 20; ++i) {
    int fd = connectTo(sock_);
    ASSERT_GE(fd, 0);
    rdmRequest_t req;
    req.call = rdmReadInvisCall;
    rdmWriter w;
    fileArgs(w, handleOf(dm_, path), sid);
    w.i64(0);
    w.u64(big.size());
    req.payload = w.data();
    ASSERT_EQ(rdmWriteRequest(fd, req), 0);
    close(fd);  // before the half-megabyte reply
  }
  // Busy for a moment with the abandoned replies, then serving again.
  std::string got;
  do {
    got = initService();
  } while (got == "status " + std::to_string(EAGAIN));
  EXPECT_EQ(got, "0/0");
}

// A few thousand random and truncated requests from a user that is not
// root, then a normal request from that user still gets its answer.
TEST_F(ServerTest, SurvivesAFuzzedStream) {
  ROOTD_SKIP_FORK_UNDER_SANITIZER();
  ServerThread t(config(16, 1000));
  ASSERT_EQ(t.listenRc(), 0);
  std::string own = box_.file("own", kNobody, 0644);
  auto h = handleOf(dm_, own);
  // A file the stream never names, for the request at the end.
  std::string last = box_.file("last", kNobody, 0644);
  ASSERT_EQ(setxattr(last.c_str(), "trusted.dmapi.KVRObj", "intact", 6, 0), 0);
  auto lastHandle = handleOf(dm_, last);
  std::string got = runAs(kNobody, [&] {
    std::mt19937 rng(12345);
    auto byte = [&] { return static_cast<unsigned char>(rng()); };
    dm_sessid_t sid = newSession(sock_);
    int answered = 0;
    for (int i = 0; i < 3000; ++i) {
      rdmRequest_t req;
      req.call = static_cast<uint16_t>(rng() % (rdmCallLimit + 3));
      req.key = rng();
      // Arguments: random bytes, or a plausible file call with damage.
      if (i % 3 == 0) {
        rdmWriter w;
        fileArgs(w, h, i % 2 ? sid : rng());
        w.name(attrName("KVRObj"));
        w.u64(rng() % 128);
        req.payload = w.data();
        for (int k = rng() % 4; k > 0; --k) req.payload[rng() % req.payload.size()] = byte();
      } else {
        req.payload.resize(rng() % 200);
        for (auto& b : req.payload) b = byte();
      }
      int fd = connectTo(sock_);
      if (fd < 0) return std::string("connect failed at ") + std::to_string(i);
      rdmWriter frame;
      frame.u32(i % 50 == 0 ? rng() : rdmMagic);
      frame.u32(rdmVersion | static_cast<uint32_t>(req.call) << 16);
      frame.u64(req.key);
      frame.u32(static_cast<uint32_t>(req.payload.size()));
      frame.raw(req.payload.data(), req.payload.size());
      size_t len = frame.data().size();
      if (i % 7 == 0) len = rng() % len;  // truncated
      (void)!write(fd, frame.data().data(), len);
      if (i % 7 == 0) shutdown(fd, SHUT_WR);
      rdmReply_t rep;
      if (rdmReadReply(fd, &rep) == 0) ++answered;
      close(fd);
    }
    rdmWriter w;
    fileArgs(w, lastHandle, sid);
    w.name(attrName("KVRObj"));
    w.u64(64);
    rdmReply_t rep;
    std::string r = outcome(sock_, rdmGetDmattrCall, w, &rep);
    rdmReader in(rep.payload.data(), rep.payload.size());
    in.u64();
    size_t n = 0;
    const unsigned char* v = in.bytes(&n);
    r += "=" + std::string(reinterpret_cast<const char*>(v), n);
    return std::string(answered > 1000 ? "answered" : "few answers") + " " + r;
  });
  EXPECT_EQ(got, "answered 0/0=intact");
  EXPECT_EQ(initService(), "0/0");
}

}  // namespace

namespace {

// The client of the daemon keeps its connection between calls, opens a
// new one when the daemon dropped the old, and a forked child never uses
// its parent's.
TEST_F(ServerTest, ClientKeepsItsConnectionUntilTheDaemonDropsIt) {
  ServerThread t(config(16, 100));
  ASSERT_EQ(t.listenRc(), 0);
  char version[64];
  ASSERT_EQ(rdmInitService(version, sizeof version), 0);
  ASSERT_EQ(rdmInitService(version, sizeof version), 0);
  EXPECT_EQ(t.server().activeClients(), 1);
  pid_t child = fork();
  if (child == 0) {
    char v[64];
    // The child's own connection: the daemon sees the child, now another
    // user, as caller; on its parent's it would pass for root.
    if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(3);
    dm_sessid_t sid = 0;
    _exit(rdmInitService(v, sizeof v) == 0 && rdmCreateSession(0, "child", &sid) == 0 ? 0 : 1);
  }
  EXPECT_TRUE(qmxtest::ChildExited(child, 0));
  // The session is recorded for the child as the user it had become.
  EXPECT_EQ(t.server().sessions().sessionsOf(child, kNobody).size(), 1u);
  // Idle, the connection is dropped; the next call opens another.
  ASSERT_TRUE(qmxtest::waitUntil([&] { return t.server().activeClients() == 0; }));
  EXPECT_EQ(rdmInitService(version, sizeof version), 0);
}

}  // namespace
