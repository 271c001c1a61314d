// Assertions that say why something failed, for the failures tests meet
// most: a call that returned -1 with errno instead of 0, and a child
// process that did not end as expected.
//
//   ASSERT_TRUE(QMX_SYSCALL_OK(mkdir(p.c_str(), 0755)));
//     -> "mkdir(p.c_str(), 0755) returned -1: EEXIST (File exists)"
//   EXPECT_TRUE(qmxtest::ChildExited(pid, 0));
//     -> "child 4711: killed by signal 11 (SIGSEGV: Segmentation fault);
//         expected exit status 0"
//
// A child is waited for at most kWaitLimit and killed after that, so a
// hanging child fails the test instead of hanging it.
#ifndef QMX_TESTING_CHECK_H_
#define QMX_TESTING_CHECK_H_

#include <gtest/gtest.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "testing/files.h"
#include "testing/process.h"

namespace qmxtest {

// Success when |rc| is 0; the failure names |call|, what it returned and,
// when set, |err|.
inline ::testing::AssertionResult SyscallOk(long rc, int err, const char* call) {
  if (rc == 0) return ::testing::AssertionSuccess();
  ::testing::AssertionResult r = ::testing::AssertionFailure() << call << " returned " << rc;
  if (err != 0) r << ": " << errnoText(err);
  return r;
}

// Waits (bounded) for child |pid| and tells whether it exited with |code|.
inline ::testing::AssertionResult ChildExited(pid_t pid, int code,
                                              std::chrono::milliseconds limit = kWaitLimit) {
  if (pid < 0) return ::testing::AssertionFailure() << "no child to wait for (fork failed)";
  ChildEnd end = waitChild(pid, limit);
  if (end.ended && WIFEXITED(end.status) && WEXITSTATUS(end.status) == code)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "child " << pid << ": " << end.how << "; expected exit status " << code;
}

namespace internal {

// Runs |call| and takes errno right after it, before anything else can
// change it.
template <typename Call>
::testing::AssertionResult CheckSyscall(Call call, const char* text) {
  errno = 0;
  long rc = static_cast<long>(call());
  int err = errno;
  return SyscallOk(rc, err, text);
}

}  // namespace internal

}  // namespace qmxtest

// The result of a call that returns 0, or -1 with errno, as an assertion:
// success for 0, else the call's text and errno in words.
#define QMX_SYSCALL_OK(call) ::qmxtest::internal::CheckSyscall([&] { return (call); }, #call)

#endif  // QMX_TESTING_CHECK_H_
