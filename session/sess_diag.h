// Trace and message calls of the session layer, in one place.
//
// sessDiag writes a line to the diagnostic log (the trace, class ERROR or
// SESSION) and keeps errno; catalogue messages are issued with nlprintf, or
// written to the trace with SESS_TRACE_MSG.
#ifndef QMX_SESSION_SESS_DIAG_H_
#define QMX_SESSION_SESS_DIAG_H_

#include <cstdio>

#include "diag/trace.h"

#include "diag/nl.h"

// A line of the diagnostic log.
void sessDiag(const char* file, unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

#define SESS_DIAG(...) sessDiag(__FILE__, __LINE__, __VA_ARGS__)
// A catalogue message written to the trace only: composed but neither shown
// nor logged, and the return code is left alone.
#define SESS_TRACE_MSG(flag, num, ...)                                     \
  do {                                                                     \
    if (flag) {                                                            \
      char sessMsgBuf_[1024];                                              \
      if (nlapimsg(num, sessMsgBuf_, sizeof sessMsgBuf_, __VA_ARGS__) > 0) \
        trPrintf(__FILE__, __LINE__, "%s", sessMsgBuf_);                   \
    }                                                                      \
  } while (0)
#define SESS_TRACE(flag, ...)                            \
  do {                                                   \
    if (flag) trPrintf(__FILE__, __LINE__, __VA_ARGS__); \
  } while (0)

#endif  // QMX_SESSION_SESS_DIAG_H_
