#include "testing/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "testing/temp_dir.h"

namespace {

using std::chrono::milliseconds;

TEST(WaitUntil, HoldsOnceAnotherThreadMakesItTrueAndGivesUpAtTheLimit) {
  std::atomic<bool> flag{false};
  int asked = 0;
  std::thread t([&] { flag = true; });
  EXPECT_TRUE(qmxtest::waitUntil([&] {
    ++asked;
    return flag.load();
  }));
  t.join();
  EXPECT_GE(asked, 1);
  asked = 0;
  EXPECT_FALSE(qmxtest::waitUntil(
      [&] {
        ++asked;
        return false;
      },
      milliseconds(30), milliseconds(5)));
  EXPECT_GE(asked, 2) << "asked at once and again before giving up";
}

TEST(WaitChild, ExitStatusAndSignalInWords) {
  qmxtest::ChildEnd end = qmxtest::waitChild(qmxtest::forkChild([] { return 3; }));
  ASSERT_TRUE(end.ended) << end.how;
  EXPECT_TRUE(WIFEXITED(end.status));
  EXPECT_EQ(WEXITSTATUS(end.status), 3);
  EXPECT_EQ(end.how, "exited with 3");

  end = qmxtest::waitChild(qmxtest::forkChild([] {
    raise(SIGKILL);
    return 0;
  }));
  ASSERT_TRUE(end.ended);
  EXPECT_EQ(end.how, "killed by signal 9 (SIGKILL: Killed)");

  end = qmxtest::waitChild(qmxtest::forkChild([]() -> int { throw std::logic_error("x"); }));
  EXPECT_EQ(end.how, "exited with 125");
}

TEST(WaitChild, HangingChildIsKilledAndReapedAtTheLimit) {
  pid_t pid = qmxtest::forkChild([] {
    pause();
    return 0;
  });
  ASSERT_GT(pid, 0);
  qmxtest::ChildEnd end = qmxtest::waitChild(pid, milliseconds(50));
  EXPECT_FALSE(end.ended);
  EXPECT_EQ(end.how, "still ran after 50 ms: killed");
  errno = 0;
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1) << "left a zombie or a live child";
  EXPECT_EQ(errno, ECHILD);
}

TEST(WaitChild, NotAChildIsSaidSo) {
  qmxtest::ChildEnd end = qmxtest::waitChild(getpid(), milliseconds(50));
  EXPECT_FALSE(end.ended);
  EXPECT_NE(end.how.find("ECHILD"), std::string::npos) << end.how;
}

// A child that reads a fifo: it waits there once it has taken what was
// written, and not while it is busy or waiting elsewhere.
TEST(WaitsReading, SeesAReaderBlockedOnItsFifoOnly) {
  qmxtest::TempDir t;
  std::string fifo = t.path("in.fifo"), other = t.path("other.fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(other.c_str(), 0600), 0);
  int w = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  int wo = open(other.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(w, 0);
  ASSERT_GE(wo, 0);
  ASSERT_EQ(write(w, "x", 1), 1);
  pid_t pid = qmxtest::forkChild([&] {
    int fd = open(fifo.c_str(), O_RDONLY);
    char c;
    if (fd < 0 || read(fd, &c, 1) != 1) return 1;  // the byte already there
    if (read(fd, &c, 1) != 1) return 2;            // waits here
    int fo = open(other.c_str(), O_RDONLY);
    return fo >= 0 && read(fo, &c, 1) == 1 ? 0 : 3;  // and then here
  });
  ASSERT_GT(pid, 0);
  EXPECT_TRUE(qmxtest::waitUntil([&] { return qmxtest::waitsReading(pid, fifo); }));
  EXPECT_FALSE(qmxtest::waitsReading(pid, other));
  ASSERT_EQ(write(w, "y", 1), 1);
  EXPECT_TRUE(qmxtest::waitUntil([&] { return qmxtest::waitsReading(pid, other); }));
  EXPECT_FALSE(qmxtest::waitsReading(pid, fifo));
  ASSERT_EQ(write(wo, "z", 1), 1);
  qmxtest::ChildEnd end = qmxtest::waitChild(pid);
  EXPECT_EQ(end.how, "exited with 0");
  EXPECT_FALSE(qmxtest::waitsReading(pid, fifo)) << "a process that is gone waits for nothing";
  close(w);
  close(wo);
}

}  // namespace
