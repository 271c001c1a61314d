#include "session/sess_diag.h"

#include <cerrno>
#include <cstdarg>

void sessDiag(const char* file, unsigned line, const char* fmt, ...) {
  if (!TR_ERROR && !TR_SESSION) return;
  int saved = errno;
  char text[1024];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  trPrintf(file, line, "%s", text);
  errno = saved;
}

#ifndef QMX_SESSION_HAVE_NL
int nlprintf(int num, ...) {
  std::fprintf(stdout, "ANS%04d\n", num);
  return 0;
}
int nlfprintf(FILE* stream, int num, ...) {
  std::fprintf(stream, "ANS%04d\n", num);
  return 0;
}
#endif
