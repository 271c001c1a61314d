// Writing traced lines: the line head, the prefix, the output channels, and
// the ENTER/EXIT guard.
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/trace_internal.h"

namespace {

const char* baseName(const char* file) {
  if (file == nullptr) return "";
  const char* slash = strrchr(file, '/');
  return slash != nullptr ? slash + 1 : file;
}

// The optional head: time stamp, pid, thread id, client-type tag, ": ".
// A thread banner, when due, is written out before the head is returned.
void buildHead(char* head, size_t size) {
  size_t n = 0;
  head[0] = '\0';
  auto append = [&](const char* text) {
    int w = snprintf(head + n, size - n, "%s", text);
    if (w > 0) n += static_cast<size_t>(w) < size - n ? static_cast<size_t>(w) : size - n - 1;
  };
  if (TR_TIMESTAMP) {
    char date[64], time[64], stamp[160];
    unsigned long ms = 0;
    trNow(date, time, sizeof(date), &ms);
    snprintf(stamp, sizeof(stamp), "%s %s.%03lu ", date, time, ms);
    append(stamp);
  }
  if (TR_PID) {
    char pid[32];
    snprintf(pid, sizeof(pid), "[%.6u] ", static_cast<unsigned>(getpid()));
    append(pid);
  }
  if (TR_TID && trObj->tidProc != nullptr) {
    char banner[trBannerSize];
    char tid[trTidSize];
    banner[0] = '\0';
    tid[0] = '\0';
    trObj->tidProc(banner, tid);
    if (banner[0] != '\0') trWriteOut("", banner, false);
    append(tid);
  }
  if (TR_CLIENTTYPE) append(trClientTypeTag(trObj->clientType));
  if (TR_TIMESTAMP || TR_PID || TR_TID) append(": ");
}

int formatLine(const char* file, unsigned line, const char* fmt, va_list ap) {
  char text[trLineBufSize];
  size_t n = 0;
  text[0] = '\0';
  if (TR_PREFIX) {
    int w = snprintf(text, sizeof(text), "%-20s(%4u): ", baseName(file), line);
    if (w > 0) n = static_cast<size_t>(w) < sizeof(text) ? static_cast<size_t>(w) : 0;
  }
  vsnprintf(text + n, sizeof(text) - n, fmt, ap);
  char head[512];
  buildHead(head, sizeof(head));
  trWriteOut(head, text, false);
  return 0;
}

// Wide text is converted to the locale's multibyte form before output.
std::string narrow(const wchar_t* fmt, va_list ap) {
  wchar_t wide[trLineBufSize];
  if (vswprintf(wide, trLineBufSize, fmt, ap) < 0) {
    // Too long or not representable: keep what was formatted.
    wide[trLineBufSize - 1] = L'\0';
  }
  std::string out;
  mbstate_t st{};
  char mb[MB_LEN_MAX];
  for (const wchar_t* w = wide; *w != L'\0'; ++w) {
    size_t k = wcrtomb(mb, *w, &st);
    if (k == static_cast<size_t>(-1)) {
      out.push_back('?');
      st = mbstate_t{};
    } else {
      out.append(mb, k);
    }
  }
  return out;
}

}  // namespace

int trWriteOut(const char* head, const char* text, bool plain) {
  TraceObject* o = trObj;
  if (o == nullptr) return 0;
  if (o->consoleMode && o->consoleCb != nullptr) {
    std::string all = std::string(head) + text;
    o->consoleCb(1, all.c_str(), o->consoleCtx);
    return 0;
  }
  FILE* f = o->stream;
  if (f == nullptr) return 0;
  if (f == stdout || f == stderr) {
    if (!o->stdoutAllowed) return 0;
    fprintf(f, "%s%s", head, text);
    fflush(f);
    return 0;
  }
  bool ok = true;
  if (o->wrapping) {
    psMutexGuard guard(trWrapMutex());
    if (o->stream == nullptr) return 0;
    fflush(o->stream);
    trWrapCheck(strlen(head) + strlen(text));
    f = o->stream;  // a segment switch opens another file
    if (f == nullptr) return 0;
    ok = fseeko(f, o->nextWrite, SEEK_SET) == 0 && fprintf(f, "%s%s", head, text) >= 0 &&
         fflush(f) == 0;
    if (ok) trRecordNextWrite();
  } else {
    ok = fprintf(f, "%s%s", head, text) >= 0 && fflush(f) == 0;
  }
  if (ok) return 0;
  int err = errno;
  char name[sizeof(o->actualName)];
  snprintf(name, sizeof(name), "%s", o->actualName);
  trReset(1);
  if (plain) {
    printf("Unable to write to trace file %s error is (%d) %s. Tracing disabled.\n", name, err,
           strerror(err));
  } else {
    printf("Unable to write to trace file %s. Tracing disabled.\n", name);
  }
  fflush(stdout);
  return -1;
}

int trVPrintf(const char* file, unsigned line, const char* fmt, va_list ap) {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  return formatLine(file, line, fmt, ap);
}

int trPrintf(const char* file, unsigned line, const char* fmt, ...) {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  va_list ap;
  va_start(ap, fmt);
  formatLine(file, line, fmt, ap);
  va_end(ap);
  return 0;
}

int trFktPrintf(const char* file, unsigned line, const char* fmt, ...) {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  va_list ap;
  va_start(ap, fmt);
  formatLine(file, line, fmt, ap);
  va_end(ap);
  return 0;
}

int trVPrintf(const char* file, unsigned line, const wchar_t* fmt, va_list ap) {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  std::string text = narrow(fmt, ap);
  return trPrintf(file, line, "%s", text.c_str());
}

int trPrintf(const char* file, unsigned line, const wchar_t* fmt, ...) {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  va_list ap;
  va_start(ap, fmt);
  std::string text = narrow(fmt, ap);
  va_end(ap);
  return trPrintf(file, line, "%s", text.c_str());
}

int trPrint(const char* fmt, ...) {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  char text[trLineBufSize];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(text, sizeof(text), fmt, ap);
  va_end(ap);
  trWriteOut("", text, true);
  return 0;
}

// ---------------------------------------------------------------------------

void trEnterExit::enter(const char* name) {
  trErrnoKeeper keep;
  if (name == nullptr) return;
  size_t len = strlen(name);
  while (len > 0 && (name[len - 1] == ' ' || name[len - 1] == '\t' || name[len - 1] == '\n' ||
                     name[len - 1] == '\r'))
    --len;
  char* copy = len < sizeof(small_) ? small_ : static_cast<char*>(malloc(len + 1));
  if (copy == nullptr) return;
  memcpy(copy, name, len);
  copy[len] = '\0';
  name_ = copy;
  if (TR_ENTER) trPrintf(file_, line_, "ENTER =====> %s\n", name_);
}

void trEnterExit::leave() {
  trErrnoKeeper keep;
  if (TR_EXIT) trPrintf(file_, line_, "EXIT  <===== %s\n", name_);
  if (name_ != small_) free(name_);
  name_ = nullptr;
}
