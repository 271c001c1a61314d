// Trace and message calls of the session layer, in one place.
//
// sessDiag writes a line to the diagnostic log (the trace, class ERROR or
// SESSION) and keeps errno; catalogue messages are issued with nlprintf.
#ifndef QMX_SESSION_SESS_DIAG_H_
#define QMX_SESSION_SESS_DIAG_H_

#include <cstdio>

#include "diag/trace.h"

#if __has_include("diag/nl.h")
#include "diag/nl.h"
#define QMX_SESSION_HAVE_NL 1
#else
int nlprintf(int num, ...);
int nlfprintf(FILE* stream, int num, ...);
#endif

// A line of the diagnostic log.
void sessDiag(const char* file, unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

#define SESS_DIAG(...) sessDiag(__FILE__, __LINE__, __VA_ARGS__)
#define SESS_TRACE(flag, ...)                            \
  do {                                                   \
    if (flag) trPrintf(__FILE__, __LINE__, __VA_ARGS__); \
  } while (0)

#endif  // QMX_SESSION_SESS_DIAG_H_
