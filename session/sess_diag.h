// Trace and message calls of the session layer, in one place.
//
// sessDiag writes a line to the diagnostic log (the trace, class ERROR or
// SESSION); sessMsg issues a catalogue message.  Both keep errno.
#ifndef QMX_SESSION_SESS_DIAG_H_
#define QMX_SESSION_SESS_DIAG_H_

#include <cstdio>

#if __has_include("diag/trace.h")
#include "diag/trace.h"
#define QMX_SESSION_HAVE_TRACE 1
#else
// Until the trace facility is built into this tree, the session's classes
// are plain switches and the trace goes to standard error.
inline unsigned char TR_SESSION = 0, TR_SESSVERB = 0, TR_VERBINFO = 0, TR_VERBDETAIL = 0,
                     TR_COMM = 0, TR_ERROR = 0, TR_ENTER = 0, TR_EXIT = 0;
int trPrintf(const char* file, unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
#define TRACE_ENTER_EXIT(name) ((void)0)
#endif

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
