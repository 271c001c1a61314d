// The option layer's calls into the trace facility.
#include <cstdarg>

#include "diag/trace.h"
#include "options/opt_internal.h"

void optTraceSetErrorProg(const char* name) {
  trSetErrorProg(name);
}

// TRACEMAX and TRACESEGSIZE are written in megabytes.
void optTraceSetMaxSize(unsigned mb) {
  trSetMaxTraceSize(mb);
}
void optTraceSetMaxSegSize(unsigned mb) {
  trSetMaxTraceSegSize(mb);
}

int optTraceSetFileName(const char* name) {
  return trSetTraceFileName(name);
}

// TRACEFLAGS complains itself about a bad flag; the option's error record
// then points at the line.
int optTraceEnable(const char* flags) {
  return trEnable(flags, 0);
}

int optTraceTestFlags(const char* flags) {
  return trProcTestFlags(flags);
}

int optTraceBegin(const char* name) {
  if (trIsStarted()) return 0;
  return trBegin(name, 1);
}

void optTraceConfig(const char* file, unsigned line, const char* fmt, ...) {
  if (!TR_CONFIG) return;
  va_list ap;
  va_start(ap, fmt);
  trVPrintf(file, line, fmt, ap);
  va_end(ap);
}
