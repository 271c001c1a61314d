#include "platform/console.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

int clUtIsStdoutRedirected() {
  return isatty(STDOUT_FILENO) ? 0 : 1;
}

namespace {
int EnvNumber(const char* name, int fallback) {
  const char* v = std::getenv(name);
  if (v == nullptr || *v == '\0') return fallback;
  char* end = nullptr;
  long n = std::strtol(v, &end, 10);
  if (*end != '\0' || n <= 0 || n > 10000) return fallback;
  return static_cast<int>(n);
}
}  // namespace

void clUtGetScreenSize(int* rows, int* columns) {
  int r = 0, c = 0;
  struct winsize ws;
  if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) == 0) {
    r = ws.ws_row;
    c = ws.ws_col;
  }
  if (r <= 0) r = EnvNumber("LINES", 24);
  if (c <= 0) c = EnvNumber("COLUMNS", 80);
  if (rows != nullptr) *rows = r;
  if (columns != nullptr) *columns = c;
}

int clUtCanPrintInCleanUp() {
  return fcntl(STDERR_FILENO, F_GETFD) != -1 ? 1 : 0;
}

void clUtCleanUp() {
  std::fflush(stdout);
  std::fflush(stderr);
}

char* psConvertOemString(char* text) {
  return text;
}
