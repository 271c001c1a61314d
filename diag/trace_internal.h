// State shared by the trace facility's own source files.  Not for use
// outside diag/.
#ifndef QMX_DIAG_TRACE_INTERNAL_H_
#define QMX_DIAG_TRACE_INTERNAL_H_

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "diag/trace.h"
#include "platform/mutex.h"

// The process-wide trace object.  Fields are read by output calls without the
// trace mutex (see trace.h for the locking rules).
struct TraceObject {
  FILE* stream;              // trace output; null when none is open
  FILE* errRoute;            // set by trRouteErrToFile
  int64_t beginOfData;       // first byte after the file header
  int64_t nextWrite;         // where the next line goes in a wrapping file
  psMutex_t mutex;           // guards open, close, reset, name changes
  unsigned long lastThread;  // thread that wrote the previous line
  cliType_t clientType;
  char errorProg[256];                 // trSetErrorProg
  int commTracing;                     // an enabled class carries the comm marker
  int wrapping;                        // a maximum or segment size is in force
  int firstEnablePending;              // next trEnable turns TIMESTAMP and PREFIX on
  int stdoutAllowed;                   // cleared by trSetNoStdout
  char configName[trMaxFileName + 1];  // name first given to trBegin
  char actualName[trMaxActualName];    // open file (configName[.N])
  unsigned maxSize;                    // MB, 0 = no limit
  int sizeSettingsGiven;
  unsigned segSize;   // MB, 0 = one file
  unsigned segCount;  // 0 = none; ~0u = segments without maximum
  unsigned curSeg;    // 1-based
  unsigned prevSeg;
  unsigned lastSegSize;  // MB
  int switching;         // a segment switch is in progress
  int active;            // trGetTraceState
  int consoleMode;
  trConsoleCallback_t consoleCb;
  void* consoleCtx;
  trTIDProc_t tidProc;
  int started;  // trBegin completed
};

// Null until new_TraceObject.
extern TraceObject* trObj;

// Serialises writes to a wrapping file.  Recursive: a segment switch opens
// the next file (and may trace) while a write holds it.  Initialised once and
// kept for the life of the process, so that no writer can wait on a mutex
// that a closing thread destroys.
psMutex_t* trWrapMutex();

// The unit of TRACEMAX and TRACESEGSIZE in bytes (1 MB; tests shrink it).
extern uint64_t trSizeUnit;

// Keeps errno across a trace call.
class trErrnoKeeper {
 public:
  trErrnoKeeper() : saved_(errno) {}
  ~trErrnoKeeper() { errno = saved_; }

 private:
  int saved_;
};

// Output of already formatted text (trace_output.cpp).  |head| may be "".
// Returns 0, or -1 when the write failed (the trace is then reset).
int trWriteOut(const char* head, const char* text, bool plain);

// Date and time of now through the date/time hook, and the milliseconds.
void trNow(char* date, char* time, size_t size, unsigned long* millis);

// Issues a catalogue message through the hook, or the fallback line.
void trIssueMessage(unsigned msgNum, const char* insert, int toErrorLog);

// Wrap check and position bookkeeping of a wrapping file (trace_file.cpp);
// the caller holds the wrap mutex.
void trWrapCheck(size_t n);
void trRecordNextWrite();

// The product banner and build date written into file headers.
extern const char trProductBanner[];
extern const char trBuildDate[];

// Test hook: the size unit in bytes (default 1048576).
void trSetSizeUnitForTest(uint64_t bytes);

#endif  // QMX_DIAG_TRACE_INTERNAL_H_
