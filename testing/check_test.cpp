#include "testing/check.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "testing/temp_dir.h"

namespace {

TEST(SyscallOk, FailureNamesTheCallAndErrno) {
  qmxtest::TempDir t;
  std::string d = t.path("d");
  EXPECT_TRUE(QMX_SYSCALL_OK(mkdir(d.c_str(), 0755)));
  ::testing::AssertionResult again = QMX_SYSCALL_OK(mkdir(d.c_str(), 0755));
  EXPECT_FALSE(again);
  EXPECT_STREQ(again.message(), "mkdir(d.c_str(), 0755) returned -1: EEXIST (File exists)");
  // Only 0 is success; errno is shown only when the call set it.
  ::testing::AssertionResult one = QMX_SYSCALL_OK(getpid() > 0 ? 1 : 0);
  EXPECT_FALSE(one);
  EXPECT_STREQ(one.message(), "getpid() > 0 ? 1 : 0 returned 1");
}

TEST(ChildExited, SaysHowTheChildEndedInstead) {
  pid_t ok = qmxtest::forkChild([] { return 4; });
  EXPECT_TRUE(qmxtest::ChildExited(ok, 4));

  pid_t other = qmxtest::forkChild([] { return 5; });
  ::testing::AssertionResult r = qmxtest::ChildExited(other, 0);
  EXPECT_FALSE(r);
  EXPECT_EQ(std::string(r.message()),
            "child " + std::to_string(other) + ": exited with 5; expected exit status 0");

  pid_t hangs = qmxtest::forkChild([] {
    pause();
    return 0;
  });
  r = qmxtest::ChildExited(hangs, 0, std::chrono::milliseconds(20));
  EXPECT_FALSE(r);
  EXPECT_NE(std::string(r.message()).find("still ran after 20 ms: killed"), std::string::npos)
      << r.message();

  EXPECT_FALSE(qmxtest::ChildExited(-1, 0));
}

}  // namespace
