// Bounded waits for tests: for a condition, for a child process, and the
// readiness signal of a program that waits for its next input.  Every wait
// here ends by its deadline; none sleeps a fixed time in place of knowing.
//
// The functions may be called from any thread; forkChild's child, in a
// process with other threads, may only do what is safe after fork.
#ifndef QMX_TESTING_PROCESS_H_
#define QMX_TESTING_PROCESS_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

namespace qmxtest {

// Long enough for any honest start-up on a loaded machine; a test that
// waits this long has found a fault.
inline constexpr std::chrono::milliseconds kWaitLimit{30000};

// Asks |ready| at once and then every |interval| until it holds or |limit|
// has passed.  Tells whether it held.
bool waitUntil(const std::function<bool()>& ready, std::chrono::milliseconds limit = kWaitLimit,
               std::chrono::milliseconds interval = std::chrono::milliseconds(10));

// The outcome of a child process.
struct ChildEnd {
  bool ended = false;  // reaped in time (false: killed at the deadline, or not a child)
  int status = 0;      // wait status when |ended|
  std::string how;     // "exited with 0", "killed by signal 11 (SIGSEGV: ...)", or why not
};

// Waits for child |pid| at most |limit|.  A child still running then is
// killed (SIGKILL) and reaped, so that no test leaves one behind.
ChildEnd waitChild(pid_t pid, std::chrono::milliseconds limit = kWaitLimit);

// A wait status in words: "exited with 3", "killed by signal 9 (SIGKILL:
// Killed)".
std::string describeWaitStatus(int status);

// Forks a child that runs |fn| and leaves with its result as exit status
// (125 when |fn| throws), through _exit, so that none of the parent's
// clean-up runs twice.  Returns the child's pid, or -1 when fork failed.
pid_t forkChild(const std::function<int()>& fn);

// Whether process |pid| is blocked in a read of |path| (a pipe or fifo it
// opened by that name): a program that has taken every input it was given
// and waits for more.  False when it runs, waits elsewhere, or can't be
// looked at (/proc/PID/syscall needs the rights to trace the process).
bool waitsReading(pid_t pid, const std::string& path);

}  // namespace qmxtest

#endif  // QMX_TESTING_PROCESS_H_
