// The root daemon as a separate process, used by the real qmxattr run as
// an ordinary user, and by a forged request of that user.
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "testing/check.h"
#include "testing/files.h"
#include "testing/process.h"
#include "tests/sandbox.h"

namespace {

constexpr uid_t kUser = 65534;

// Little-endian fields of the daemon's requests, written out by hand so
// that the test speaks the wire format rather than our own encoder.
struct Frame {
  std::vector<unsigned char> b;
  void u32(uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<unsigned char>(v >> (8 * i)));
  }
  void u64(uint64_t v) {
    u32(static_cast<uint32_t>(v));
    u32(static_cast<uint32_t>(v >> 32));
  }
  void bytes(const void* p, size_t n) {
    u32(static_cast<uint32_t>(n));
    b.insert(b.end(), static_cast<const unsigned char*>(p),
             static_cast<const unsigned char*>(p) + n);
  }
};

struct Answer {
  int status = -1;
  int64_t result = 0;
  int err = 0;
  std::vector<unsigned char> payload;
};

uint64_t get64(const unsigned char* p) {
  uint64_t v = 0;
  for (int i = 7; i >= 0; --i) v = v << 8 | p[i];
  return v;
}

// One call: 1 init, 2 create session, 21 path to handle, 5 set attribute.
bool ask(const std::string& sock, uint16_t callNo, const Frame& args, Answer* a) {
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  struct sockaddr_un sa {};
  sa.sun_family = AF_UNIX;
  std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s", sock.c_str());
  if (connect(fd, reinterpret_cast<struct sockaddr*>(&sa), sizeof sa) != 0) {
    close(fd);
    return false;
  }
  Frame f;
  f.u32(0x4D445251);
  f.u32(1u | static_cast<uint32_t>(callNo) << 16);
  f.u64(77);
  f.u32(static_cast<uint32_t>(args.b.size()));
  f.b.insert(f.b.end(), args.b.begin(), args.b.end());
  bool ok = write(fd, f.b.data(), f.b.size()) == static_cast<ssize_t>(f.b.size());
  unsigned char head[36];
  size_t got = 0;
  while (ok && got < sizeof head) {
    ssize_t n = read(fd, head + got, sizeof head - got);
    if (n <= 0) ok = false;
    got += n > 0 ? static_cast<size_t>(n) : 0;
  }
  if (ok) {
    a->status = static_cast<int>(head[16] | head[17] << 8 | head[18] << 16 | head[19] << 24);
    a->result = static_cast<int64_t>(get64(head + 20));
    a->err = static_cast<int>(head[28] | head[29] << 8 | head[30] << 16 | head[31] << 24);
    uint32_t len =
        head[32] | head[33] << 8 | head[34] << 16 | static_cast<uint32_t>(head[35]) << 24;
    a->payload.resize(len);
    size_t have = 0;
    while (ok && have < len) {
      ssize_t n = read(fd, a->payload.data() + have, len - have);
      if (n <= 0) ok = false;
      have += n > 0 ? static_cast<size_t>(n) : 0;
    }
  }
  close(fd);
  return ok;
}

class RootdTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "the daemon runs as root and its clients as another user";
    fs_ = sb_.root() + "/hsmfs";
    ASSERT_EQ(sb_.manageFileSystem(fs_).status, 0);
    userLogs_ = sb_.root() + "/userlogs";
    qmxtest::makeDirs(userLogs_);
    chmod(userLogs_.c_str(), 0777);
    rootLogs_ = sb_.root() + "/rootlogs";
    qmxtest::makeDirs(rootLogs_);
    sock_ = sb_.sys("/run/qmxrootd.sock");
    // A fresh node: no space-management state yet; the daemon makes it.
    ASSERT_NE(access(sb_.sys("/etc/zpln/SpaceMan/config/dmiFSGlobalState").c_str(), F_OK), 0);
  }
  void TearDown() override { stopDaemon(); }

  std::string makeStub(const std::string& rel, const char* mode, uid_t owner) {
    std::string p = fs_ + "/" + rel;
    qmxtest::writeFile(p, "data");
    RunResult r =
        sb_.runClient("hsm/bin/qmxstub", {"migrate", p, "--mode", mode, "--compression", "none"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(chown(p.c_str(), owner, owner), 0);
    return p;
  }

  void startDaemon() {
    RunOptions o;
    o.env["QMX_LOG"] = rootLogs_;
    o.timeoutSec = 120;
    daemon_ = std::async(std::launch::async,
                         [this, o] { return sb_.runClient("hsm/bin/qmxrootd", {}, o); });
    // Ready once it answers; a daemon that ended instead shows in the test.
    Answer a;
    bool ready = qmxtest::waitUntil([&] {
      return ask(sock_, 1, Frame(), &a) ||
             daemon_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    if (!ready) ADD_FAILURE() << "qmxrootd did not answer on " << sock_;
  }
  // The daemon's process, from the socket's peer credentials.
  pid_t daemonPid() {
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un sa {};
    sa.sun_family = AF_UNIX;
    std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s", sock_.c_str());
    pid_t pid = -1;
    if (connect(fd, reinterpret_cast<struct sockaddr*>(&sa), sizeof sa) == 0) {
      struct ucred c;
      socklen_t len = sizeof c;
      if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &c, &len) == 0) pid = c.pid;
    }
    close(fd);
    return pid;
  }
  RunResult stopDaemon() {
    RunResult r;
    if (!daemon_.valid()) return r;
    pid_t pid = daemonPid();
    if (pid > 0) kill(pid, SIGTERM);
    return daemon_.get();
  }
  RunResult attrAsUser(const std::vector<std::string>& args) {
    RunOptions o;
    o.uid = kUser;
    o.gid = kUser;
    o.cwd = fs_;
    o.env["QMX_LOG"] = userLogs_;
    o.timeoutSec = 60;
    return sb_.runClient("hsm/bin/qmxattr", args, o);
  }

  Sandbox sb_;
  std::string fs_, userLogs_, rootLogs_, sock_;
  std::future<RunResult> daemon_;
};

TEST_F(RootdTest, OrdinaryUserListsAndSetsOwnStubsOnly) {
  std::string mine = makeStub("mine", "n", kUser);
  std::string theirs = makeStub("theirs", "s", 0);
  startDaemon();
  // The user's is the node's first run: the daemon has made the node's
  // state, which the user could not.
  EXPECT_EQ(access(sb_.sys("/etc/zpln/SpaceMan/config/dmiFSGlobalState").c_str(), F_OK), 0);
  RunResult r = attrAsUser({fs_});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("    n   mine"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("    s   theirs"), std::string::npos) << r.out;

  r = attrAsUser({"-recallmode=p", mine});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  r = attrAsUser({"-recallmode=p", theirs});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("ANS9096E"), std::string::npos) << r.out << r.err;
  r = attrAsUser({fs_});
  EXPECT_NE(r.out.find("    p   mine"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("    s   theirs"), std::string::npos) << r.out;

  // Stopped, the daemon takes its socket along; the next run fails at once
  // with the permission message.
  RunResult d = stopDaemon();
  EXPECT_EQ(d.status, 0) << d.out << d.err;
  EXPECT_NE(d.out.find("ANS9581I"), std::string::npos) << d.out;
  EXPECT_NE(access(sock_.c_str(), F_OK), 0);
  // The command asked for nothing it may not have.
  std::string log = qmxtest::readFile(rootLogs_ + "/qmxerror.log");
  EXPECT_EQ(log.find("ANS9582W"), std::string::npos) << log;
  r = attrAsUser({fs_});
  EXPECT_FALSE(r.timedOut);
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("ANS9505E"), std::string::npos) << r.out << r.err;
}

// A directory larger than one reply of the daemon: the user's listing,
// fetched in several replies while it is printed, is root's listing.
TEST_F(RootdTest, UsersListingOfALargeDirectoryIsRoots) {
  std::string big = fs_ + "/big";
  qmxtest::makeDirs(big);
  std::vector<std::string> args = {"migrate"};
  for (int i = 0; i < 1500; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "/s%04d", i);
    qmxtest::writeFile(big + name, "data");
    args.push_back(big + name);
  }
  // Every third file stays resident: its listing needs the second attribute.
  std::vector<std::string> migrated;
  for (size_t k = 1; k < args.size(); ++k)
    if (k % 3 != 0) migrated.push_back(args[k]);
  migrated.insert(migrated.begin(), "migrate");
  migrated.insert(migrated.end(), {"--mode", "p", "--compression", "none"});
  ASSERT_EQ(sb_.runClient("hsm/bin/qmxstub", migrated).status, 0);
  startDaemon();
  RunOptions o;
  o.cwd = fs_;
  o.env["QMX_LOG"] = rootLogs_;
  RunResult root = sb_.runClient("hsm/bin/qmxattr", {big}, o);
  ASSERT_EQ(root.status, 0) << root.err;
  RunResult user = attrAsUser({big});
  ASSERT_EQ(user.status, 0) << user.err;
  EXPECT_EQ(user.out, root.out);
  size_t lines = 0;
  for (size_t at = user.out.find("    p   s"); at != std::string::npos;
       at = user.out.find("    p   s", at + 1))
    ++lines;
  EXPECT_EQ(lines, 1000u);
}

TEST_F(RootdTest, OrdinaryUsersDefaultErrorLogIsTheirOwn) {
  std::string mine = makeStub("mine", "n", kUser);
  startDaemon();
  std::string home = sb_.root() + "/home/user";
  qmxtest::makeDirs(home);
  ASSERT_EQ(chown(home.c_str(), kUser, kUser), 0);
  RunOptions o;
  o.uid = kUser;
  o.gid = kUser;
  o.cwd = fs_;
  o.unsetEnv = {"QMX_LOG", "XDG_STATE_HOME"};
  o.env["HOME"] = home;
  o.timeoutSec = 60;
  // Root's place for the default log is not the user's: the run goes
  // without a word about the log.
  RunResult r = sb_.runClient("hsm/bin/qmxattr", {mine}, o);
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(r.err.find("ANS1398W"), std::string::npos) << r.err;
  for (const char* dir : {"/.local", "/.local/state", "/.local/state/qmx"}) {
    struct stat st;
    ASSERT_EQ(stat((home + dir).c_str(), &st), 0) << dir;
    EXPECT_EQ(st.st_mode & 07777, 0700u) << dir;
    EXPECT_EQ(st.st_uid, kUser) << dir;
  }
  // What the run has to log is logged there.
  r = sb_.runClient("hsm/bin/qmxattr", {fs_ + "/missing", mine}, o);
  EXPECT_EQ(r.status, 12) << r.err;
  EXPECT_NE(qmxtest::readFile(home + "/.local/state/qmx/qmxerror.log").find("ANS9126E"),
            std::string::npos);
  // XDG_STATE_HOME, when set, is the place.
  std::string state = sb_.root() + "/state";
  qmxtest::makeDirs(state);
  ASSERT_EQ(chown(state.c_str(), kUser, kUser), 0);
  o.env["XDG_STATE_HOME"] = state;
  r = sb_.runClient("hsm/bin/qmxattr", {fs_ + "/missing", mine}, o);
  EXPECT_EQ(r.err.find("ANS1398W"), std::string::npos) << r.err;
  EXPECT_NE(qmxtest::readFile(state + "/qmx/qmxerror.log").find("ANS9126E"), std::string::npos);
  // Root's default stays beside the client's option files.
  RunOptions asRoot;
  asRoot.cwd = fs_;
  asRoot.unsetEnv = {"QMX_LOG", "XDG_STATE_HOME"};
  asRoot.env["HOME"] = home;
  r = sb_.runClient("hsm/bin/qmxattr", {fs_ + "/missing", mine}, asRoot);
  EXPECT_NE(qmxtest::readFile(sb_.clientDir() + "/ba/bin/qmxerror.log").find("ANS9126E"),
            std::string::npos);
  EXPECT_EQ(qmxtest::readFile(home + "/.local/state/qmx/qmxerror.log").find("ANS9126E"),
            qmxtest::readFile(home + "/.local/state/qmx/qmxerror.log").rfind("ANS9126E"));
}

TEST_F(RootdTest, ForgedRequestForAnotherUsersFileIsRefusedAndLogged) {
  std::string theirs = makeStub("theirs", "s", 0);
  startDaemon();
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t child = qmxtest::forkChild([&] {
    close(fds[0]);
    if (setgroups(0, nullptr) != 0 || setgid(kUser) != 0 || setuid(kUser) != 0) return 3;
    Answer a;
    Frame cs;
    cs.u64(0);
    cs.bytes("forger", 6);
    if (!ask(sock_, 2, cs, &a) || a.result != 0 || a.payload.size() != 8) return 4;
    uint64_t sid = get64(a.payload.data());
    Frame ph;
    ph.bytes(theirs.c_str(), theirs.size() + 1);
    if (!ask(sock_, 21, ph, &a) || a.result != 0 || a.payload.size() < 4) return 5;
    std::vector<unsigned char> handle(a.payload.begin() + 4, a.payload.end());
    Frame set;
    set.u64(sid);
    set.bytes(handle.data(), handle.size());
    set.u64(0);
    set.u64(0);
    set.b.insert(set.b.end(), {'K', 'V', 'R', 'O', 'b', 'j', 0, 0});
    set.u32(0);
    set.bytes("forged", 6);
    if (!ask(sock_, 5, set, &a)) return 6;
    std::string out = std::to_string(a.result) + "/" + std::to_string(a.err);
    (void)!write(fds[1], out.data(), out.size());
    return 0;
  });
  close(fds[1]);
  // The answer fits the pipe: the child is gone before it is read.
  ASSERT_TRUE(qmxtest::ChildExited(child, 0));
  char buf[64] = {};
  (void)!read(fds[0], buf, sizeof buf - 1);
  close(fds[0]);
  EXPECT_STREQ(buf, ("-1/" + std::to_string(EPERM)).c_str());
  RunResult show = sb_.runClient("hsm/bin/qmxstub", {"show", theirs});
  EXPECT_EQ(show.out.find("forged"), std::string::npos);
  stopDaemon();
  std::string log = qmxtest::readFile(rootLogs_ + "/qmxerror.log");
  std::string line = "ANS9582W qmxrootd: The call dm_set_dmattr of user 65534 (process " +
                     std::to_string(child) + ") was refused for '" + theirs + "'";
  EXPECT_NE(log.find(line), std::string::npos) << log;
}

TEST_F(RootdTest, SecondDaemonLeavesTheFirstInPlace) {
  startDaemon();
  RunOptions o;
  o.env["QMX_LOG"] = rootLogs_;
  RunResult second = sb_.runClient("hsm/bin/qmxrootd", {}, o);
  EXPECT_EQ(second.status, 12);
  EXPECT_NE(second.err.find("ANS9584E"), std::string::npos) << second.out << second.err;
  Answer a;
  EXPECT_TRUE(ask(sock_, 1, Frame(), &a));
  EXPECT_EQ(a.result, 0);
  RunOptions user;
  user.uid = kUser;
  user.gid = kUser;
  RunResult asUser = sb_.runClient("hsm/bin/qmxrootd", {}, user);
  EXPECT_EQ(asUser.status, 12);
  EXPECT_NE(asUser.err.find("ANS9586E"), std::string::npos) << asUser.out << asUser.err;
}

}  // namespace

namespace {

TEST_F(RootdTest, DetachedDaemonServesUntilSigterm) {
  RunOptions o;
  o.env["QMX_LOG"] = rootLogs_;
  RunResult start = sb_.runClient("hsm/bin/qmxrootd", {"-d", "-c", "4"}, o);
  ASSERT_EQ(start.status, 0) << start.out << start.err;
  EXPECT_NE(start.out.find("ANS9580I"), std::string::npos) << start.out;
  EXPECT_NE(start.out.find("up to 4 clients"), std::string::npos) << start.out;
  // The parent has gone; the detached daemon answers.
  pid_t pid = daemonPid();
  ASSERT_GT(pid, 0);
  RunResult r = attrAsUser({fs_});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  ASSERT_EQ(kill(pid, SIGTERM), 0);
  // It ends and takes its socket along.
  EXPECT_TRUE(qmxtest::waitUntil([&] { return kill(pid, 0) != 0; }))
      << "qmxrootd " << pid << " still runs";
  EXPECT_NE(access(sock_.c_str(), F_OK), 0);
  EXPECT_NE(qmxtest::readFile(rootLogs_ + "/qmxerror.log").find("ANS9581I"), std::string::npos);
}

}  // namespace
