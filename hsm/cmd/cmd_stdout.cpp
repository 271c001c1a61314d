#include "hsm/cmd/cmd_stdout.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "platform/careful_file.h"

namespace {

bool g_watching = false;
int g_firstError = 0;

ssize_t WriteOut(void* /*cookie*/, const char* buf, size_t size) {
  if (psWriteAll(STDOUT_FILENO, buf, size) != 0) {
    if (g_firstError == 0) g_firstError = errno != 0 ? errno : EIO;
    return -1;
  }
  return static_cast<ssize_t>(size);
}

}  // namespace

void cmdWatchStdout() {
  if (g_watching) return;
  cookie_io_functions_t io{nullptr, WriteOut, nullptr, nullptr};
  FILE* out = fopencookie(nullptr, "w", io);
  if (out == nullptr) return;
  // A terminal sees each line at once, as with the plain stream.
  if (setvbuf(out, nullptr, isatty(STDOUT_FILENO) ? _IOLBF : _IOFBF, BUFSIZ) != 0) {
    std::fclose(out);
    return;
  }
  std::fflush(stdout);
  stdout = out;
  g_watching = true;
}

bool cmdStdoutFailed() {
  return g_firstError != 0 || std::ferror(stdout) != 0;
}

int cmdFlushStdout() {
  if (std::fflush(stdout) != 0 && g_firstError == 0 && !g_watching) g_firstError = errno;
  if (g_firstError != 0) return g_firstError;
  return std::ferror(stdout) != 0 ? EIO : 0;
}

void cmdEndAsBrokenPipe() {
  std::signal(SIGPIPE, SIG_DFL);
  sigset_t pipeOnly;
  sigemptyset(&pipeOnly);
  sigaddset(&pipeOnly, SIGPIPE);
  sigprocmask(SIG_UNBLOCK, &pipeOnly, nullptr);
  std::raise(SIGPIPE);
  _exit(128 + SIGPIPE);  // only if the signal could not end the process
}
