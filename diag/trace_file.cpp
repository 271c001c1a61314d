// Opening, wrapping, segmenting, resetting and closing the trace output.
//
// A wrapping file starts with a one-line header that records where the next
// line goes, so that a reader (or a restarted process) can find the newest
// data:
//   bytes  0-11  "NQB Trace   "
//   bytes 12-23  next-write position, "%-12llu"
//   bytes 24-34  maximum size in MB, "%-10u "
//   then the product banner and build date.
// Lines are written at the next-write position and followed by an end marker
// that the next line overwrites; at the size limit writing continues just
// after the header, over the oldest lines.  With segments, reaching the limit
// of one file moves on to the next numbered file, round robin.
#include <sys/stat.h>
#include <unistd.h>

#include <strings.h>
#include <cinttypes>
#include <cstring>

#include "diag/diag_status.h"
#include "diag/trace_internal.h"

const char trProductBanner[] = "Space Management Client Version 1, Release 0, Level 0.0";
const char trBuildDate[] = __DATE__;

namespace {

const char kMagic[] = "NQB Trace   ";  // 12 bytes
const char kEndOfData[] = "\nEND OF DATA\n\n";

bool isSpecial(const char* name, const char* special) {
  return strcasecmp(name, special) == 0;
}

// Copies |name| into |out| (trMaxFileName + 1 bytes), taking a leading quote
// as the start of a quoted token.  False when the result is empty.
bool unquote(const char* name, char* out) {
  if (name[0] == '\'' || name[0] == '"') {
    const char quote = name[0];
    const char* end = strchr(name + 1, quote);
    size_t len = end != nullptr ? static_cast<size_t>(end - name - 1) : strlen(name + 1);
    memcpy(out, name + 1, len);
    out[len] = '\0';
  } else {
    snprintf(out, trMaxFileName + 1, "%s", name);
  }
  return out[0] != '\0';
}

// |name| made absolute against the current directory; false when too long.
bool makeAbsolute(const char* name, char* out) {
  if (name[0] == '/') {
    snprintf(out, trMaxFileName + 1, "%s", name);
    return true;
  }
  char cwd[trMaxFileName + 1];
  if (getcwd(cwd, sizeof(cwd)) == nullptr) return false;
  int n = snprintf(out, trMaxFileName + 1, "%s/%s", cwd, name);
  return n > 0 && static_cast<size_t>(n) <= trMaxFileName;
}

// Opens a wrapping file: continues it when its header says it was written
// with a maximum no larger than today's, else starts it anew.
FILE* openWrapping(TraceObject* o) {
  const uint64_t maxBytes = static_cast<uint64_t>(o->maxSize) * trSizeUnit;
  FILE* f = fopen(o->actualName, "r+");
  if (f != nullptr) {
    char first[257];
    first[0] = '\0';
    int64_t size = -1;
    if (fseeko(f, 0, SEEK_END) == 0) size = ftello(f);
    rewind(f);
    if (fgets(first, sizeof(first), f) == nullptr) first[0] = '\0';
    unsigned long long recordedNext = 0;
    unsigned recordedMax = 0;
    if (sscanf(first, "NQB Trace   %llu %u", &recordedNext, &recordedMax) == 2 && size >= 0 &&
        static_cast<uint64_t>(size) <= maxBytes && o->maxSize >= recordedMax && o->segCount < 2) {
      o->nextWrite = size;
      o->beginOfData = static_cast<int64_t>(strlen(first));
      fseeko(f, 24, SEEK_SET);
      fprintf(f, "%-10u ", o->maxSize);
      fflush(f);
      return f;
    }
    fclose(f);
  }
  f = fopen(o->actualName, "w+");
  if (f == nullptr) return nullptr;
  fprintf(f, "%s123456789012%-10u %s   Build date: %s\n\n", kMagic, o->maxSize, trProductBanner,
          trBuildDate);
  fflush(f);
  o->beginOfData = o->nextWrite = ftello(f);
  return f;
}

int openFailed(TraceObject* o) {
  if (o->stdoutAllowed) {
    printf("Unable to open trace output file %s\n", o->actualName);
    fflush(stdout);
  }
  trReset(1);
  return DIAG_RC_TRACEOPEN;
}

}  // namespace

int trBegin(const char* name, int announce) {
  trErrnoKeeper keep;
  TraceObject* o = trObj;
  if (o == nullptr) return -1;
  char given[trMaxFileName + 1];
  if (name == nullptr || name[0] == '\0' || strlen(name) > trMaxFileName || !unquote(name, given)) {
    printf("Invalid trace file name\n");
    fflush(stdout);
    return -1;
  }
  enum { kFile, kStdout, kStderr, kConsole } kind = kFile;
  if (isSpecial(given, "STDOUT")) {
    kind = kStdout;
  } else if (isSpecial(given, "STDERR")) {
    kind = kStderr;
  } else if (isSpecial(given, "CONSOLE")) {
    kind = kConsole;
  } else {
    char absolute[trMaxFileName + 1];
    if (!makeAbsolute(given, absolute)) {
      printf("Invalid trace file name\n");
      fflush(stdout);
      return -1;
    }
    psMutexGuard guard(&o->mutex);
    if (o->configName[0] == '\0') snprintf(o->configName, sizeof(o->configName), "%s", absolute);
    // The name of an output that is already open stays as it is.
    if (o->stream == nullptr && o->segCount >= 2) {
      snprintf(o->actualName, sizeof(o->actualName), "%s.%u", o->configName, o->curSeg);
    } else if (o->stream == nullptr) {
      snprintf(o->actualName, sizeof(o->actualName), "%s", o->configName);
    }
  }
  if (o->stream != nullptr) return 0;

  // Lock order everywhere: wrap mutex before trace mutex (a segment switch
  // reopens the file while a write holds the wrap mutex).
  psMutexGuard wrapFirst(o->wrapping ? trWrapMutex() : nullptr);
  psMutexGuard guard(&o->mutex);
  const char* tracingTo = nullptr;
  switch (kind) {
    case kConsole:
      if (o->consoleCb != nullptr && o->consoleCb(0, nullptr, o->consoleCtx) == 0) {
        o->consoleMode = 1;
        o->wrapping = 0;
        o->active = 1;
        o->stream = stderr;
        printf("Tracing to stderr\n");
        fflush(stdout);
      } else {
        o->consoleMode = 0;
      }
      break;
    case kStdout:
    case kStderr:
      o->wrapping = 0;
      o->stream = kind == kStdout ? stdout : stderr;
      tracingTo = kind == kStdout ? "Tracing to stdout\n" : "Tracing to stderr\n";
      break;
    case kFile:
      if (!o->wrapping) {
        FILE* f = fopen(o->actualName, "a");
        if (f == nullptr) return openFailed(o);
        fprintf(f, "%s%s  \nBuild Date: %s\nBEGINNING NEW TRACE\n\n", kMagic, trProductBanner,
                trBuildDate);
        fflush(f);
        o->stream = f;
      } else {
        FILE* f = openWrapping(o);
        if (f == nullptr) return openFailed(o);
        o->stream = f;
        if (o->switching) {
          fseeko(f, o->nextWrite, SEEK_SET);
          fprintf(f, "Continued from end of segment %u\n\n", o->prevSeg);
        } else {
          trWrapCheck(21);
          f = o->stream;
          if (f == nullptr) return DIAG_RC_TRACEOPEN;
          fseeko(f, o->nextWrite, SEEK_SET);
          fputs("BEGINNING NEW TRACE\n\n", f);
        }
        fflush(f);
        trRecordNextWrite();
      }
      break;
  }

  if (!o->started) {
    if (o->sizeSettingsGiven) {
      o->active = 1;
      TR_TIMESTAMP = 1;
      TR_PREFIX = 1;
    }
    o->active = 1;
    if (announce && kind == kFile && o->stream != nullptr) {
      char date[64], time[64];
      trNow(date, time, sizeof(date), nullptr);
      trPrintf(__FILE__, __LINE__, "Tracing to file: %s\n", o->actualName);
      trPrintf(__FILE__, __LINE__, "Tracefile maximum length set to %lu MB.\n",
               static_cast<unsigned long>(o->maxSize));
      trPrintf(__FILE__, __LINE__,
               "----------------------------------------------------------------\n%s %s - "
               "Trace begun.\n",
               date, time);
    }
  }
  if (tracingTo != nullptr) trPrintf(__FILE__, __LINE__, "%s", tracingTo);
  o->started = 1;
  return 0;
}

void trWrapCheck(size_t n) {
  TraceObject* o = trObj;
  FILE* f = o->stream;
  if (f == nullptr) return;
  unsigned limit = o->maxSize;
  if (o->segCount >= 2) limit = o->curSeg == o->segCount ? o->lastSegSize : o->segSize;
  if (limit == 0) return;
  const double used = static_cast<double>(o->nextWrite + static_cast<int64_t>(n) + 17) /
                      static_cast<double>(trSizeUnit);
  if (used < limit) return;
  fseeko(f, o->beginOfData, SEEK_SET);
  if (o->segCount < 2) {
    fputs("\nContinued at beginning of file\n\n", f);
  } else {
    fprintf(f, "\nContinued at beginning of segment %u\n\n", o->curSeg % o->segCount + 1);
  }
  fflush(f);
  // The marker stays readable: the next line goes after it.
  o->nextWrite = ftello(f);
  if (o->segCount >= 2) {
    o->switching = 1;
    trClose(0);
    o->prevSeg = o->curSeg;
    o->curSeg = o->curSeg % o->segCount + 1;
    trBegin(o->configName, 1);
    o->switching = 0;
  }
}

void trRecordNextWrite() {
  TraceObject* o = trObj;
  FILE* f = o->stream;
  if (f == nullptr) return;
  o->nextWrite = ftello(f);
  fseeko(f, 12, SEEK_SET);
  fprintf(f, "%-12llu", static_cast<unsigned long long>(o->nextWrite));
  fseeko(f, o->nextWrite, SEEK_SET);
  fputs(kEndOfData, f);
  fflush(f);
}

int trSetMaxTraceSize(unsigned mb) {
  trErrnoKeeper keep;
  TraceObject* o = trObj;
  if (o == nullptr) return 0;
  if (mb > 0) {
    o->maxSize = mb;
    o->wrapping = 1;
    o->sizeSettingsGiven = 1;
    if (o->segSize > 0) {
      trSetMaxTraceSegSize(o->segSize);
    } else if (mb > 1000) {
      trSetMaxTraceSegSize(1000);
    }
    trWrapMutex();
  } else {
    o->wrapping = 0;
    o->maxSize = 0;
  }
  return 0;
}

int trSetMaxTraceSegSize(unsigned mb) {
  trErrnoKeeper keep;
  TraceObject* o = trObj;
  if (o == nullptr) return 0;
  if (mb > 0) {
    if (o->maxSize > 0) {
      if (mb > o->maxSize) mb = o->maxSize;
      o->segCount = (o->maxSize - 1) / mb + 1;
      o->lastSegSize = o->maxSize % mb == 0 ? mb : o->maxSize % mb;
    } else {
      o->segCount = ~0u;
      o->lastSegSize = mb;
    }
    o->segSize = mb;
    o->wrapping = 1;
    o->sizeSettingsGiven = 1;
    trWrapMutex();
  } else {
    o->segSize = 0;
    o->lastSegSize = 0;
    o->prevSeg = 0;
    o->switching = 0;
    o->segCount = 0;
    o->curSeg = 1;
  }
  return 0;
}

int trSetTraceFileName(const char* name) {
  trErrnoKeeper keep;
  TraceObject* o = trObj;
  if (o == nullptr) return -1;
  psMutexGuard guard(&o->mutex);
  if (o->configName[0] != '\0') return 0;
  char given[trMaxFileName + 1];
  if (name == nullptr || name[0] == '\0' || strlen(name) > trMaxFileName || !unquote(name, given)) {
    trIssueMessage(1824, name != nullptr ? name : "", 0);
    return -1;
  }
  if (isSpecial(given, "STDOUT") || isSpecial(given, "STDERR") || isSpecial(given, "CONSOLE")) {
    snprintf(o->configName, sizeof(o->configName), "%s", given);
    return 0;
  }
  char absolute[trMaxFileName + 1];
  if (!makeAbsolute(given, absolute)) {
    trIssueMessage(1824, given, 0);
    return -1;
  }
  // A link could point the trace at any file the user can't write himself.
  struct stat st;
  if (lstat(absolute, &st) == 0 && S_ISLNK(st.st_mode)) {
    const bool deleted = unlink(absolute) == 0;
    trIssueMessage(1193, absolute, deleted ? 0 : 1);
    trIssueMessage(deleted ? 1191 : 1190, absolute, deleted ? 0 : 1);
    return DIAG_RC_TRACELINK;
  }
  snprintf(o->configName, sizeof(o->configName), "%s", absolute);
  return 0;
}

int trReset(int close) {
  trErrnoKeeper keep;
  TraceObject* o = trObj;
  if (o == nullptr) return 0;
  // A write in progress finishes before the file goes away.
  psMutexGuard wrapFirst(close && o->wrapping ? trWrapMutex() : nullptr);
  psMutexGuard guard(&o->mutex);
  for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) *e->flag = 0;
  if (close) trClose(0);
  o->maxSize = 0;
  o->segSize = 0;
  o->segCount = 0;
  o->lastSegSize = 0;
  o->prevSeg = 0;
  o->curSeg = 1;
  o->wrapping = 0;
  o->sizeSettingsGiven = 0;
  o->started = 0;
  o->firstEnablePending = 1;
  o->configName[0] = '\0';
  return 0;
}

int trClose(int reset) {
  trErrnoKeeper keep;
  TraceObject* o = trObj;
  if (o == nullptr) return 0;
  if (reset) trReset(0);
  psMutexGuard wrapFirst(o->wrapping ? trWrapMutex() : nullptr);
  psMutexGuard guard(&o->mutex);
  if (!o->switching && o->consoleCb != nullptr) {
    if (o->consoleMode) o->consoleCb(2, nullptr, o->consoleCtx);
    o->consoleMode = 0;
  }
  FILE* f = o->stream;
  if (f != nullptr && f != stdout && f != stderr) {
    if (o->wrapping && !o->switching) {
      fseeko(f, o->nextWrite, SEEK_SET);
      fputs("\nEND OF DATA - close\n\n", f);
    }
    if (fclose(f) != 0) {
      printf("Unable to close trace output file %s: %s \n", o->actualName, strerror(errno));
      fflush(stdout);
    }
  }
  o->stream = nullptr;
  o->actualName[0] = '\0';
  return 0;
}

int trInitializeStatusLog(const char* dir, const char* name, char* result) {
  trErrnoKeeper keep;
  if (dir == nullptr || name == nullptr) return PS_RC_BADARG;
  if (trObj == nullptr) return -1;
  if (trObj->started) {
    trEnable("STATUSLOG", 1);
    if (result != nullptr) snprintf(result, trMaxActualName, "%s", trObj->actualName);
    return 0;
  }
  char full[trMaxFileName + 1];
  int n = snprintf(full, sizeof(full), "%s/%s", dir, name);
  if (n < 0 || static_cast<size_t>(n) > trMaxFileName) return PS_RC_NOMEM;
  trEnable(trObj->active ? "STATUSLOG" : "STATUSLOG -PREFIX", 1);
  int rc = trBegin(full, 0);
  if (result != nullptr) snprintf(result, trMaxActualName, "%s", full);
  return rc;
}
