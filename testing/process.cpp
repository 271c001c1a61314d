#include "testing/process.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "testing/files.h"

namespace qmxtest {

bool waitUntil(const std::function<bool()>& ready, std::chrono::milliseconds limit,
               std::chrono::milliseconds interval) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (ready()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(interval);
  }
}

std::string describeWaitStatus(int status) {
  if (WIFEXITED(status)) return "exited with " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) {
    int sig = WTERMSIG(status);
    const char* abbrev = sigabbrev_np(sig);
    return "killed by signal " + std::to_string(sig) + " (" +
           (abbrev != nullptr ? std::string("SIG") + abbrev + ": " : "") + strsignal(sig) + ")" +
           (WCOREDUMP(status) ? ", core dumped" : "");
  }
  return "wait status " + std::to_string(status);
}

ChildEnd waitChild(pid_t pid, std::chrono::milliseconds limit) {
  ChildEnd end;
  int status = 0, err = 0;
  pid_t got = 0;
  bool inTime = waitUntil(
      [&] {
        got = waitpid(pid, &status, WNOHANG);
        err = errno;
        return got != 0 && !(got < 0 && err == EINTR);
      },
      limit, std::chrono::milliseconds(5));
  if (!inTime) {
    kill(pid, SIGKILL);
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    end.how = "still ran after " + std::to_string(limit.count()) + " ms: killed";
    return end;
  }
  if (got < 0) {
    end.how = "cannot wait for process " + std::to_string(pid) + ": " + errnoText(err);
    return end;
  }
  end.ended = true;
  end.status = status;
  end.how = describeWaitStatus(status);
  return end;
}

pid_t forkChild(const std::function<int()>& fn) {
  pid_t pid = fork();
  if (pid != 0) return pid;
  int rc = 125;
  try {
    rc = fn();
  } catch (...) {
  }
  _exit(rc);
}

bool waitsReading(pid_t pid, const std::string& path) {
  const std::string proc = "/proc/" + std::to_string(pid);
  // "NR ARG0 ..." while the process waits in a system call; "running" or
  // nothing otherwise.
  std::ifstream in(proc + "/syscall");
  long nr = -1;
  std::string fdArg;
  if (!(in >> nr >> fdArg) || (nr != SYS_read && nr != SYS_readv)) return false;
  long fd = std::strtol(fdArg.c_str(), nullptr, 16);
  // The descriptor's file (through the process's own view of it) and
  // |path| are the same object.
  struct stat open, named;
  return stat((proc + "/fd/" + std::to_string(fd)).c_str(), &open) == 0 &&
         stat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
         open.st_ino == named.st_ino;
}

}  // namespace qmxtest
