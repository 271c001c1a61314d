// The trace object: lifetime, class resolution, accessors and the seams to
// services that start later (messages, date formats).
#include <sys/syscall.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "diag/trace_internal.h"
#include "platform/clock.h"

namespace {

TraceObject theObject;
trMsgHook_t msgHook = nullptr;
trDateTimeHook_t dateTimeHook = nullptr;

void clearClassFlags() {
  for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) *e->flag = 0;
}

void clearTestFlags() {
  for (const trTestEntry_t* e = TestClassTable; e->keyword != nullptr; ++e) {
    free(e->record->str);
    *e->record = trTestFlag_t{0, 0, nullptr};
  }
}

void upcase7(char* s) {
  for (; *s != '\0'; ++s) {
    if (*s >= 'a' && *s <= 'z') *s = static_cast<char>(*s - 'a' + 'A');
  }
}

// Resolves one flag string; recursion follows aggregate members.
int resolve(const char* flags, int quiet, int enable, const trClassEntry_t* classes,
            const trAggrEntry_t* aggrs, int depth) {
  // An aggregate that names itself, directly or not, would recurse forever.
  if (depth > 32) return -1;
  const char* p = flags;
  char token[trMaxToken + 1];
  while (true) {
    while (*p != '\0' && isspace(static_cast<unsigned char>(*p))) ++p;
    if (*p == '\0') break;
    size_t n = 0;
    while (p[n] != '\0' && !isspace(static_cast<unsigned char>(p[n]))) ++n;
    size_t copy = n < trMaxToken ? n : trMaxToken;
    memcpy(token, p, copy);
    token[copy] = '\0';
    p += n;
    upcase7(token);
    const char* name = token;
    int negated = 0;
    if (*name == '-') {
      negated = 1;
      ++name;
    }
    const int on = enable && !negated;
    if (strcmp(name, "ALL") == 0) {
      for (const trClassEntry_t* e = classes; e->keyword != nullptr; ++e) {
        if (e->flag == &TR_TIMESTAMP || e->flag == &TR_PREFIX) continue;
        *e->flag = static_cast<unsigned char>(on);
      }
      continue;
    }
    const trAggrEntry_t* aggr = nullptr;
    for (const trAggrEntry_t* a = aggrs; a != nullptr && a->keyword != nullptr; ++a) {
      if (strcmp(a->keyword, name) == 0) {
        aggr = a;
        break;
      }
    }
    if (aggr != nullptr) {
      if (resolve(aggr->members, quiet, on, classes, aggrs, depth + 1) != 0) return -1;
      continue;
    }
    const trClassEntry_t* cls = nullptr;
    for (const trClassEntry_t* e = classes; e->keyword != nullptr; ++e) {
      if (strcmp(e->keyword, name) == 0) {
        cls = e;
        break;
      }
    }
    if (cls == nullptr) {
      if (!quiet) {
        printf("Invalid trace flag: %s\n", name);
        fflush(stdout);
      }
      return -1;
    }
    *cls->flag = static_cast<unsigned char>(on);
  }
  return 0;
}

}  // namespace

TraceObject* trObj = nullptr;
uint64_t trSizeUnit = 1048576;

psMutex_t* trWrapMutex() {
  static psMutex_t mx = [] {
    psMutex_t m{};
    psMutexInit(&m, 1);
    return m;
  }();
  return &mx;
}

void trSetSizeUnitForTest(uint64_t bytes) {
  trSizeUnit = bytes == 0 ? 1048576 : bytes;
}

int new_TraceObject(cliType_t type, unsigned long tid, trTIDProc_t tidProc) {
  trErrnoKeeper keep;
  if (trObj != nullptr) return 0;
  clearClassFlags();
  clearTestFlags();
  TraceObject* o = &theObject;
  memset(o, 0, sizeof(*o));
  psMutexInit(&o->mutex, 1);
  o->clientType = type;
  o->lastThread = tid;
  o->tidProc = tidProc;
  o->stdoutAllowed = 1;
  o->firstEnablePending = 1;
  o->curSeg = 1;
  trObj = o;
  return 0;
}

int delete_TraceObject() {
  trErrnoKeeper keep;
  if (trObj == nullptr) return 0;
  trClose(0);
  psMutexDestroy(&trObj->mutex);
  trObj = nullptr;
  clearClassFlags();
  clearTestFlags();
  return 0;
}

int trEnable(const char* flags, int quiet, const trClassEntry_t* classes,
             const trAggrEntry_t* aggrs) {
  trErrnoKeeper keep;
  if (trObj != nullptr && trObj->firstEnablePending) {
    TR_TIMESTAMP = 1;
    TR_PREFIX = 1;
    trObj->firstEnablePending = 0;
  }
  int rc = resolve(flags != nullptr ? flags : "", quiet, 1, classes, aggrs, 0);
  int comm = 0;
  for (const trClassEntry_t* e = classes; e->keyword != nullptr; ++e) {
    if (e->comm && *e->flag) comm = 1;
  }
  if (trObj != nullptr) {
    trObj->commTracing = comm;
    if (rc == 0) trObj->active = 1;
  }
  return rc;
}

int trEnable(const char* flags, int quiet) {
  return trEnable(flags, quiet, ClassTable, AggrTable);
}

void trRouteErrToFile(FILE* stream) {
  if (trObj != nullptr) trObj->errRoute = stream;
}

FILE* trGetErrFile() {
  return trObj != nullptr ? trObj->errRoute : nullptr;
}

void trSetErrorProg(const char* name) {
  if (trObj == nullptr) return;
  snprintf(trObj->errorProg, sizeof(trObj->errorProg), "%s", name != nullptr ? name : "");
}

const char* trGetErrorProg() {
  return trObj != nullptr ? trObj->errorProg : "";
}

void trSetNoStdout() {
  if (trObj != nullptr) trObj->stdoutAllowed = 0;
}

void trInstallConsoleCallback(trConsoleCallback_t fn, void* ctx) {
  if (trObj == nullptr) return;
  trObj->consoleCb = fn;
  trObj->consoleCtx = ctx;
}

void trStartTracing() {
  // A file name is set, or an output without one (stdout, stderr, console)
  // is open.
  if (trObj != nullptr && (trObj->configName[0] != '\0' || trObj->stream != nullptr)) {
    trObj->active = 1;
  }
}

void trStopTracing() {
  if (trObj != nullptr) trObj->active = 0;
}

const char* trGetTraceFileName() {
  return trObj != nullptr ? trObj->actualName : "";
}
int trGetTraceState() {
  return trObj != nullptr ? trObj->active : 0;
}
int trIsStarted() {
  return trObj != nullptr ? trObj->started : 0;
}
int trIsCommTracingEnabled() {
  return trObj != nullptr ? trObj->commTracing : 0;
}

bool trCanOutPut() {
  const TraceObject* o = trObj;
  if (o == nullptr || o->stream == nullptr || !o->active) return false;
  return o->stdoutAllowed || o->consoleMode || (o->stream != stdout && o->stream != stderr);
}

// ---------------------------------------------------------------------------
// Threads.

bool trSwapLastThread(unsigned long tid) {
  if (trObj == nullptr || trObj->lastThread == tid) return false;
  trObj->lastThread = tid;
  return true;
}

void trTIDProc(char* banner, char* tid) {
  if (banner != nullptr) banner[0] = '\0';
  unsigned long id = static_cast<unsigned long>(syscall(SYS_gettid));
  trSwapLastThread(id);
  if (tid != nullptr) snprintf(tid, trTidSize, "[%u] ", static_cast<unsigned>(id));
}

void trFormatThreadBanner(char* banner, const char* name, int num) {
  const char* kind = "       ";
  if (trObj != nullptr) {
    if (trObj->clientType == ctDICAD) {
      kind = "CAD    ";
    } else if (trObj->clientType == ctDIWebClient || trObj->clientType == ctDIJavaGUI) {
      kind = "Agent  ";
    }
  }
  snprintf(banner, trBannerSize, "\n%32s thread %s%2d================>\n",
           name != nullptr ? name : "", kind, num);
}

// ---------------------------------------------------------------------------
// Seams.

void trSetMessageHook(trMsgHook_t hook) {
  msgHook = hook;
}
void trSetDateTimeHook(trDateTimeHook_t hook) {
  dateTimeHook = hook;
}

void trIssueMessage(unsigned msgNum, const char* insert, int toErrorLog) {
  if (msgHook != nullptr) {
    msgHook(msgNum, insert, toErrorLog);
    return;
  }
  // Before the message system is up, say the same in plain words.
  const char* text = nullptr;
  switch (msgNum) {
    case 1824:
      text = "The trace file name '%s' is not valid.\n";
      break;
    case 1193:
      text = "The trace file '%s' is a symbolic link, which is not allowed.\n";
      break;
    case 1191:
      text = "The symbolic link '%s' was deleted.\n";
      break;
    case 1190:
      text = "The symbolic link '%s' could not be deleted.\n";
      break;
    default:
      break;
  }
  const char* arg = insert != nullptr ? insert : "";
  if (text != nullptr) {
    fprintf(stderr, text, arg);
  } else {
    fprintf(stderr, "Trace message %u: %s\n", msgNum, arg);
  }
}

void trNow(char* date, char* time, size_t size, unsigned long* millis) {
  time_t secs = 0;
  unsigned long ms = 0;
  psGetTimeMs(&secs, &ms);
  struct tm tmv;
  if (psLocalTime(secs, &tmv) == nullptr) memset(&tmv, 0, sizeof(tmv));
  if (dateTimeHook != nullptr) {
    dateTimeHook(&tmv, date, time, size);
  } else {
    strftime(date, size, "%m/%d/%Y", &tmv);
    strftime(time, size, "%H:%M:%S", &tmv);
  }
  if (millis != nullptr) *millis = ms;
}
