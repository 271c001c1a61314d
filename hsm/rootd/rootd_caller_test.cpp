// The caller's identity: taken from the socket, borrowed for one open on
// one thread, and handed back.
#include "hsm/rootd/rootd_caller.h"

#include <fcntl.h>

#include "hsm/rootd/testing/rootd_testing.h"
#include "testing/check.h"

using namespace rtdtest;

namespace {

TEST(CallerTest, PrintableEscapesWhatCouldStartALogLine) {
  EXPECT_EQ(rtdPrintable("/a/b c"), "/a/b c");
  EXPECT_EQ(rtdPrintable("a\nb\r\tc\\d\x7f"), "a\\x0Ab\\x0D\\x09c\\x5Cd\\x7F");
  EXPECT_EQ(rtdPrintable(nullptr), "");
}

TEST(CallerTest, PeerOfASocketIsTheConnectingProcess) {
  int sv[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
  rtdCaller_t c;
  ASSERT_EQ(rtdPeerCaller(sv[0], &c), 0);
  EXPECT_EQ(c.pid, getpid());
  EXPECT_EQ(c.uid, getuid());
  EXPECT_EQ(c.gid, getgid());
  int n = getgroups(0, nullptr);
  EXPECT_EQ(c.groups.size(), static_cast<size_t>(n));
  close(sv[0]);
  close(sv[1]);
}

TEST(CallerTest, StartTimeNamesOneProcess) {
  EXPECT_NE(rtdProcessStartTime(getpid()), 0u);
  pid_t child = fork();
  if (child == 0) _exit(0);
  ASSERT_TRUE(qmxtest::ChildExited(child, 0));
  EXPECT_EQ(rtdProcessStartTime(child), 0u);
}

TEST(CallerTest, OpenAsCallerUsesTheCallersRightsOnlyForThatOpen) {
  RTD_NEED_ROOT();
  Sandbox box;
  auto groups = [] {
    std::vector<gid_t> g(256);
    g.resize(static_cast<size_t>(getgroups(256, g.data())));
    return g;
  };
  std::vector<gid_t> before = groups();
  std::string secret = box.file("secret", 0, 0600);
  std::string shared = box.file("shared", 0, 0640);
  ASSERT_EQ(chown(shared.c_str(), 0, 4242), 0);
  rtdCaller_t nobody;
  nobody.uid = kNobody;
  nobody.gid = kNobody;
  EXPECT_EQ(rtdOpenAsCaller(nobody, secret.c_str(), O_RDONLY), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(rtdOpenAsCaller(nobody, shared.c_str(), O_RDONLY), -1);
  // A supplementary group opens the group-readable file.
  nobody.groups = {4242};
  int fd = rtdOpenAsCaller(nobody, shared.c_str(), O_RDONLY);
  EXPECT_GE(fd, 0);
  if (fd >= 0) close(fd);
  // The thread is root again afterwards.
  fd = open(secret.c_str(), O_RDONLY);
  EXPECT_GE(fd, 0);
  if (fd >= 0) close(fd);
  EXPECT_EQ(groups(), before);
}

}  // namespace
