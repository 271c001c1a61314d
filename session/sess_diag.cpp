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
