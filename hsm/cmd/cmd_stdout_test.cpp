#include "hsm/cmd/cmd_stdout.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include "testing/process.h"

namespace {

// Runs |body| in a child whose standard output is |out|, and returns how
// the child ended.
qmxtest::ChildEnd InChild(int out, const std::function<int()>& body) {
  pid_t pid = qmxtest::forkChild([&] {
    if (dup2(out, STDOUT_FILENO) < 0) return 100;
    cmdWatchStdout();
    return body();
  });
  return qmxtest::waitChild(pid);
}

// Prints far more than any stdio buffer holds.
void PrintMany() {
  for (int i = 0; i < 2000; ++i) std::printf("%5s   line %d of many\n", "-", i);
}

TEST(StdoutTest, WhatIsPrintedArrivesWhole) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  qmxtest::ChildEnd end = InChild(p[1], [] {
    std::printf("first\n");
    std::printf("second\n");
    return cmdFlushStdout() == 0 && !cmdStdoutFailed() ? 0 : 1;
  });
  close(p[1]);
  std::string got(64, '\0');
  got.resize(static_cast<size_t>(read(p[0], got.data(), got.size())));
  close(p[0]);
  EXPECT_EQ(end.how, "exited with 0");
  EXPECT_EQ(got, "first\nsecond\n");
}

TEST(StdoutTest, AFullDeviceIsSeenWithItsErrno) {
  int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  qmxtest::ChildEnd end = InChild(full, [] {
    std::printf("one line\n");
    if (cmdStdoutFailed()) return 1;  // still in the buffer
    PrintMany();
    if (!cmdStdoutFailed()) return 2;
    return cmdFlushStdout() == ENOSPC ? 0 : 3;
  });
  close(full);
  EXPECT_EQ(end.how, "exited with 0");
}

TEST(StdoutTest, AGoneReaderIsEpipeAndEndsTheProcessAsSigpipeWould) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  close(p[0]);
  qmxtest::ChildEnd end = InChild(p[1], [] {
    // As the start-up code has it.
    signal(SIGPIPE, SIG_IGN);
    PrintMany();
    if (!cmdStdoutFailed() || cmdFlushStdout() != EPIPE) return 1;
    cmdEndAsBrokenPipe();
  });
  close(p[1]);
  ASSERT_TRUE(end.ended) << end.how;
  EXPECT_TRUE(WIFSIGNALED(end.status)) << end.how;
  EXPECT_EQ(WTERMSIG(end.status), SIGPIPE) << end.how;
}

}  // namespace
