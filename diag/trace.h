// The trace facility: the one diagnostic channel of the client.
//
// A single process-wide trace object holds a table of named trace classes,
// each a global one-byte flag (TR_<class>) that callers test before they
// format anything, so that a disabled class costs one load and a branch:
//
//   if (TR_SM) trPrintf(__FILE__, __LINE__, "candidate %s\n", path);
//   TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "candidate %s\n", path);
//   TRACE_ENTER_EXIT("recaller::qryAlias");   // ENTER/EXIT lines of a function
//
// Trace text goes to a trace file (optionally wrapping within a size limit and
// split into numbered segment files ".1", ".2", ...), to stdout, to stderr or
// to a console callback.  A traced line is an optional head (time stamp,
// process id, thread id, client-type tag, ": "), the prefix "%-20s(%4u): "
// with the source file name and line, and the text.
//
// The object also owns the test flags (TEST_<keyword>, debugging knobs set by
// the TESTFLAGS option) and switches the instrumentation object on.
//
// Every call here preserves errno.  Output calls return 0 and do nothing when
// trCanOutPut() is false.
//
// Thread safety: any thread may trace.  Opening, closing, resetting and name
// changes are serialised by the trace mutex, writes to a wrapping file by the
// wrap mutex; class flags are plain bytes read without locking.  Enabling
// classes and parsing test flags are start-up work, meant for one thread.
//
// Seams for services that come later in start-up (all optional):
//   trSetMessageHook    - the message system issues trSetTraceFileName's
//                         catalogue messages (1824, 1193, 1191, 1190).
//                         Without a hook a plain English line goes to stderr.
//   trSetDateTimeHook   - the message system formats time stamps with the
//                         client's date and time formats.  Without a hook
//                         "%m/%d/%Y" and "%H:%M:%S" are used.
//   trTIDProc           - the default thread-id callback for new_TraceObject;
//                         it writes only the thread-id field "[%u] ".
#ifndef QMX_DIAG_TRACE_H_
#define QMX_DIAG_TRACE_H_

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <cwchar>

#include "diag/diag_status.h"

// ---------------------------------------------------------------------------
// Trace classes: one global byte per class, non-zero when the class is on.
#define TR_CLASS(keyword, flag, comm) extern unsigned char flag;
#include "diag/trace_classes.def"

// Number of trace classes in the class table.
constexpr unsigned trNumClasses = 204;

// A row of a class table: keyword, its flag, communication marker (1 when
// enabling the class counts as communication tracing).  Tables end with a
// row whose keyword is null.
struct trClassEntry_t {
  const char* keyword;
  unsigned char* flag;
  int comm;
};

// A row of an aggregate table: keyword and its member string (classes,
// other aggregates or "ALL", each optionally with a leading "-").
struct trAggrEntry_t {
  const char* keyword;
  const char* members;
};

// The built-in tables (null-terminated).
extern const trClassEntry_t ClassTable[];
extern const trAggrEntry_t AggrTable[];

// ---------------------------------------------------------------------------
// Test flags.
//
// set   : 1 once the flag was given in TESTFLAGS.
// value : the number given after "KEYWORD:", or the or-ed instrumentation
//         class bits for INSTRUMENT; 0 when none.  A negative number
//         ("-1") is kept in two's complement so that (int)value < 0.
// str   : heap copy of a quoted string value, or null; owned by the trace
//         facility (freed by delete_TraceObject and when set again).
struct trTestFlag_t {
  int set;
  unsigned value;
  char* str;
};

#define TR_TESTFLAG(keyword, record) extern trTestFlag_t record;
#include "diag/trace_testflags.def"

struct trTestEntry_t {
  const char* keyword;
  trTestFlag_t* record;
};
// The test-flag table (null-terminated).
extern const trTestEntry_t TestClassTable[];

// ---------------------------------------------------------------------------
// Client type: the kind of program; CLIENTTYPE adds its 14-character tag.
enum cliType_t {
  ctCLBackup = 0,
  ctCLAdmin = 1,
  ctGUIBackup = 2,
  ctODBCDriver = 3,
  ctCLAPI = 4,
  ctCLSpaceMGT = 5,
  ctDICAD = 6,
  ctDIWebClient = 7,
  ctJBBDaemon = 8,
  ctUtlAppl = 9,
  ctCLUtlAppl = 10,
  ctGUIUtlAppl = 11,
  ctDIJavaGUI = 12
};

// The tag of |type|, e.g. "[ctCLSpaceMGT]"; "[ctUnkown    ]" for others.
const char* trClientTypeTag(int type);

// ---------------------------------------------------------------------------
// Limits.
constexpr size_t trMaxFileName = 1024;                  // longest trace file name
constexpr size_t trMaxActualName = trMaxFileName + 16;  // with a ".N" suffix
constexpr size_t trMaxToken = 1278;                     // longest flag token
constexpr size_t trLineBufSize = 4862;                  // one traced line
constexpr size_t trBannerSize = 256;                    // thread-banner buffer
constexpr size_t trTidSize = 64;                        // thread-id field buffer

// ---------------------------------------------------------------------------
// Callbacks and seams.

// Thread-id callback: fills |banner| (trBannerSize bytes) with a thread
// banner line when the calling thread differs from the one that wrote the
// previous line (or leaves it empty), and |tid| (trTidSize bytes) with the
// thread-id field "[%u] ".  trFormatThreadBanner builds the banner text.
typedef void (*trTIDProc_t)(char* banner, char* tid);

// Default thread-id callback: writes only the thread-id field (the kernel's
// id of the calling thread); never a banner.
void trTIDProc(char* banner, char* tid);

// Formats the banner "\n%32s thread %s%2d================>\n" for a thread
// named |name| with number |num| into |banner| (trBannerSize bytes); the
// kind column depends on the client type.
void trFormatThreadBanner(char* banner, const char* name, int num);

// For thread-id callbacks: true when |tid| differs from the thread that
// wrote the previous line (a banner is due), and records |tid| as the last.
bool trSwapLastThread(unsigned long tid);

// Console callback: |op| 0 = open (result 0 means accepted), 1 = write
// |text|, 2 = close.  |ctx| is the context given at installation.
typedef int (*trConsoleCallback_t)(int op, const char* text, void* ctx);

// Catalogue messages of trSetTraceFileName: message |msgNum| with the one
// insert |insert| (a file name); |toErrorLog| 1 when the message must also
// go to the error log.
typedef void (*trMsgHook_t)(unsigned msgNum, const char* insert, int toErrorLog);
void trSetMessageHook(trMsgHook_t hook);  // null restores the fallback

// Time-stamp formatting: the date and time of |t| into |date| and |time|
// (each |size| bytes, at least 32).
typedef void (*trDateTimeHook_t)(const struct tm* t, char* date, char* time, size_t size);
void trSetDateTimeHook(trDateTimeHook_t hook);  // null restores the default

// ---------------------------------------------------------------------------
// Object lifetime.

// Creates the trace object (no-op when it exists): all classes off, all test
// flags cleared, stdout allowed, no stream.  |tid| is the creating thread.
// |tidProc| may be null (no thread-id field).  Returns 0.
int new_TraceObject(cliType_t type, unsigned long tid, trTIDProc_t tidProc);

// Destroys the trace object (closing an open trace), clears every class flag
// and frees the test-flag strings.  Returns 0.
int delete_TraceObject();

// ---------------------------------------------------------------------------
// Configuration.

// Resolves a white-space-separated flag string against the class and
// aggregate tables: classes, aggregates, "ALL", each negated by a leading
// "-".  The first call after creation or reset also turns TIMESTAMP and
// PREFIX on.  Returns 0, or -1 at the first unknown keyword (earlier tokens
// stay applied; unless |quiet|, "Invalid trace flag: %s" goes to stdout).
int trEnable(const char* flags, int quiet);
int trEnable(const char* flags, int quiet, const trClassEntry_t* classes,
             const trAggrEntry_t* aggrs);

// Size limits in MB (TRACEMAX, TRACESEGSIZE); 0 switches the limit off.
// A maximum above 1000 MB without a segment size gets segments of 1000 MB.
// Return 0.
int trSetMaxTraceSize(unsigned mb);
int trSetMaxTraceSegSize(unsigned mb);

// Remembers the trace file to open.  Returns 0 (a name that is already set
// is kept), -1 for a bad name (message 1824) or DIAG_RC_TRACELINK when the
// path is a symbolic link (the link is deleted if possible; messages 1193
// and 1191 or 1190; the name is not stored).
int trSetTraceFileName(const char* name);

// Opens the trace output: "STDOUT", "STDERR", "CONSOLE" (any case) or a file
// name (made absolute).  With |announce| the file name, the maximum and a
// begin line are traced.  Returns 0, -1 for a bad name, DIAG_RC_TRACEOPEN
// when the file cannot be opened (the trace is then reset).
int trBegin(const char* name, int announce);

// Parses the TESTFLAGS value: tokens "KEY", "KEY:number", "KEY:\"text\"",
// "INSTRUMENT:DETAIL/API/DBOPS", and "ALL" (sets every record).  Returns 0,
// or -1 at the first bad token (earlier tokens stay applied).
int trProcTestFlags(const char* flags);
// Why the last trProcTestFlags call failed ("" after success), for the
// caller's error message, e.g. "unknown test flag 'FOO'".
const char* trTestFlagsError();

void trRouteErrToFile(FILE* stream);
FILE* trGetErrFile();
void trSetErrorProg(const char* name);
const char* trGetErrorProg();  // "" when none
void trSetNoStdout();
void trInstallConsoleCallback(trConsoleCallback_t fn, void* ctx);
void trStartTracing();             // trace active again, if a file name is set or output open
void trStopTracing();              // pause output without closing
const char* trGetTraceFileName();  // the open (actual) file name, "" if none
int trGetTraceState();
int trIsStarted();
int trIsCommTracingEnabled();

// Clears every class flag and the size settings and file name; |close|
// non-zero also closes the output.  Returns 0.
int trReset(int close);
// Closes the output (a file; never stdout or stderr); |reset| non-zero
// resets first.  Returns 0.
int trClose(int reset);

// ---------------------------------------------------------------------------
// Output.

// True when the object exists, an output is open, trace is active and the
// output may be written (stdout allowed, console mode, or a real file).
bool trCanOutPut();

// A traced line: head, prefix (source file name and line), text.
int trPrintf(const char* file, unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int trPrintf(const char* file, unsigned line, const wchar_t* fmt, ...);
int trVPrintf(const char* file, unsigned line, const char* fmt, va_list ap)
    __attribute__((format(printf, 3, 0)));
int trVPrintf(const char* file, unsigned line, const wchar_t* fmt, va_list ap);

// The text alone, appended to the output (continues a line).
int trPrint(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// Hex dump of |len| bytes at |addr|, |width| bytes per row.
int trPrintFormattedDump(const void* addr, unsigned len, unsigned width);

// Prints |len| bytes of |buf|: form trStrText as text (non-printable bytes
// as "."), trStrHex as a hex dump of 16 bytes per row.
enum { trStrText = 0, trStrHex = 1 };
int trPrintStr(const char* buf, unsigned len, int form);

// Lists the enabled classes to the trace output.
int trQuery();
// Prints the class and aggregate tables to stdout.
int trQueryTraceFlags();
// Prints the trace settings (mode 0) or every class ON/OFF to stdout.
// |kind| is reserved for the caller's kind of listing and ignored here.
int trStatus(int kind, int mode);
// Lists the set test flags to the trace output / to stdout.
int trPrintEnabledTestFlags();
int trQueryTestFlags();

// Opens a status log: when a trace is already started, STATUSLOG is enabled
// and the status lines go into the trace; otherwise STATUSLOG ("STATUSLOG
// -PREFIX" while trace is off) is enabled and |dir|/|name| opened.  |result|
// (may be null) receives the file name in use; it must hold
// trMaxActualName bytes.  Returns 0, PS_RC_BADARG (null directory or name),
// PS_RC_NOMEM (name too long), or trBegin's result.
int trInitializeStatusLog(const char* dir, const char* name, char* result);

// ---------------------------------------------------------------------------
// TRACE_Fkt: a function object for one call site.
//
//   TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "rc=%d\n", rc);
//
// The class flag is tested inline (one byte compare and a branch); only an
// enabled class reaches the out-of-line formatting.  The format is checked
// against the arguments at compile time, as for printf.  errno is preserved.
int trFktPrintf(const char* file, unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

class TRACE_Fkt {
 public:
  TRACE_Fkt(const char* file, unsigned line) : file_(file), line_(line) {}
  // Always inlined so that the arguments pass straight through
  // (__builtin_va_arg_pack) without a va_list on the disabled path.
  __attribute__((always_inline, format(printf, 3, 4))) inline void operator()(unsigned char flag,
                                                                              const char* fmt,
                                                                              ...) const {
    if (__builtin_expect(flag != 0, 0)) trFktPrintf(file_, line_, fmt, __builtin_va_arg_pack());
  }

 private:
  const char* file_;
  unsigned line_;
};

// ---------------------------------------------------------------------------
// ENTER/EXIT scope guard.
//
// Writes "ENTER =====> <name>" (class ENTER) on construction and
// "EXIT  <===== <name>" (class EXIT) on destruction, both with the file and
// line given at construction; errno is untouched.  The name is copied
// (trailing white space removed) only when ENTER or EXIT is on at entry, so
// a guard costs two byte tests when tracing is off.
class trEnterExit {
 public:
  trEnterExit(const char* name, const char* file, unsigned line) : file_(file), line_(line) {
    if (__builtin_expect((TR_ENTER | TR_EXIT) != 0, 0)) enter(name);
  }
  ~trEnterExit() {
    if (__builtin_expect(name_ != nullptr, 0)) leave();
  }
  trEnterExit(const trEnterExit&) = delete;
  trEnterExit& operator=(const trEnterExit&) = delete;

 private:
  void enter(const char* name);
  void leave();

  const char* file_;
  unsigned line_;
  char* name_ = nullptr;  // the copy; null when nothing is to be printed
  char small_[96];        // holds short names without a heap allocation
};

#define TRACE_ENTER_EXIT_CAT2(a, b) a##b
#define TRACE_ENTER_EXIT_CAT(a, b) TRACE_ENTER_EXIT_CAT2(a, b)
#define TRACE_ENTER_EXIT(name) \
  trEnterExit TRACE_ENTER_EXIT_CAT(trEnterExit_, __LINE__)((name), __FILE__, __LINE__)

#endif  // QMX_DIAG_TRACE_H_
