// Composing messages and sending them where they belong.
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

#include "diag/globalrc.h"
#include "diag/nlsobject.h"
#include "diag/trace.h"

namespace {

// Room for a whole message, so that composing rarely reallocates.
constexpr size_t kInitialBuffer = 4096;

bool MutedStream(FILE* stream) {
  return nlsObj != nullptr && nlsObj->outputMode == nlClientTypeAPI &&
         (stream == stdout || stream == stderr);
}

char* Duplicate(const std::string& s) {
  char* p = static_cast<char*>(malloc(s.size() + 1));
  if (p != nullptr) memcpy(p, s.c_str(), s.size() + 1);
  return p;
}

// Every issued message counts for the return code, an absent one too (it
// may be one of the fixed numbers).  Done after composing, with the
// severity found then, so that an absent message is reported once.
void RaiseRC(unsigned num, unsigned char sev) {
  if (pGlobalRC != nullptr) pGlobalRC->set(num, sev);
}

}  // namespace

unsigned char nlCompose(unsigned num, bool english, va_list args, std::string* out) {
  if (psMutexLock(&nls_mutex) != 0) {
    if (TR_NLS) trPrintf(__FILE__, __LINE__, "Unable to acquire NLS mutex\n");
    return nlsevNone;
  }
  unsigned char sev = nlsevNone;
  if (NLSMsg* m = GetMsg(num, english)) {
    sev = m->sev;
    out->reserve(kInitialBuffer);
    out->assign(m->text, 0, m->idLen);
    if (m->idLen > 0 && strcmp(nlsObj->prefix, "ANS") != 0) {
      out->replace(0, 3, std::string(nlsObj->prefix).substr(0, 3));
    }
    va_list copy;
    va_copy(copy, args);
    if (nlComposeBody(m->body, copy, out) != 0) sev = nlsevNone;
    va_end(copy);
  }
  if (psMutexUnlock(&nls_mutex) != 0) {
    // "Unable to release NLS mutex"; reported once, not from inside itself.
    static thread_local bool reporting = false;
    if (!reporting) {
      reporting = true;
      nlprintf(9999, __FILE__, __LINE__);
      reporting = false;
    }
    return nlsevNone;
  }
  return sev;
}

int nlvfprintf(FILE* stream, unsigned num, va_list args) {
  std::string text;
  unsigned char sev = nlCompose(num, false, args, &text);
  RaiseRC(num, sev);
  if (sev == nlsevNone) return 0;
  nlLogComposed(sev, text.c_str());
  if (stream != nullptr && !MutedStream(stream)) fputs(text.c_str(), stream);
  return static_cast<int>(text.size());
}

int nlfprintf(FILE* stream, unsigned num, ...) {
  va_list ap;
  va_start(ap, num);
  int n = nlvfprintf(stream, num, ap);
  va_end(ap);
  return n;
}

int nlprintf(unsigned num, ...) {
  std::string text;
  va_list ap;
  va_start(ap, num);
  unsigned char sev = nlCompose(num, false, ap, &text);
  va_end(ap);
  RaiseRC(num, sev);
  if (sev == nlsevNone) return 0;
  nlLogComposed(sev, text.c_str());
  if (nlsObj->outputMode != nlClientTypeAPI && sev < nlNumOutputFns) nlsObj->out[sev](text.c_str());
  return static_cast<int>(text.size());
}

int nlvsprintf(char** out, unsigned num, va_list args) {
  if (out == nullptr) return 0;
  *out = nullptr;
  std::string text;
  unsigned char sev = nlCompose(num, false, args, &text);
  RaiseRC(num, sev);
  if (sev == nlsevNone) return 0;
  *out = Duplicate(text);
  return *out != nullptr ? static_cast<int>(text.size()) : 0;
}

int nlsprintf(char** out, unsigned num, ...) {
  va_list ap;
  va_start(ap, num);
  int n = nlvsprintf(out, num, ap);
  va_end(ap);
  return n;
}

char* nlMessage(unsigned num, ...) {
  char* s = nullptr;
  va_list ap;
  va_start(ap, num);
  nlvsprintf(&s, num, ap);
  va_end(ap);
  return s;
}

int nlEngsprintf(char** out, unsigned num, ...) {
  if (out == nullptr) return 0;
  *out = nullptr;
  std::string text;
  va_list ap;
  va_start(ap, num);
  unsigned char sev = nlCompose(num, true, ap, &text);
  va_end(ap);
  if (sev == nlsevNone) return 0;
  *out = Duplicate(text);
  return *out != nullptr ? static_cast<int>(text.size()) : 0;
}

int nlapimsg(unsigned num, char* buf, size_t size, ...) {
  if (buf == nullptr || size == 0) return 0;
  buf[0] = '\0';
  std::string text;
  va_list ap;
  va_start(ap, size);
  unsigned char sev = nlCompose(num, false, ap, &text);
  va_end(ap);
  if (sev == nlsevNone) return 0;
  snprintf(buf, size, "%s", text.c_str());
  return static_cast<int>(strlen(buf));
}

int nlresponse(unsigned num, char* buf, size_t size) {
  if (buf == nullptr || size == 0) return 0;
  buf[0] = '\0';
  psMutexGuard g(&nls_mutex);
  NLSMsg* m = GetMsg(num, false);
  if (m == nullptr || m->body.pieces.empty()) return 0;
  std::string r;
  for (const std::string& p : m->body.pieces) r += p;
  while (!r.empty() && (r.back() == '\n' || r.back() == ' ')) r.pop_back();
  snprintf(buf, size, "%s", r.c_str());
  return static_cast<int>(strlen(buf));
}

int nlsUcsToLocal(const uint16_t* ucs, char* out, size_t outSize) {
  if (ucs == nullptr || out == nullptr || outSize == 0) return -1;
  std::wstring w;
  for (; *ucs != 0; ++ucs) w.push_back(static_cast<wchar_t>(*ucs));
  size_t n = wcstombs(out, w.c_str(), outSize);
  if (n == static_cast<size_t>(-1) || n >= outSize) {
    out[0] = '\0';
    return -1;
  }
  return static_cast<int>(n);
}

int nlsLocalToUcs(const char* local, uint16_t* out, size_t outCount) {
  if (local == nullptr || out == nullptr || outCount == 0) return -1;
  std::wstring w(strlen(local) + 1, L'\0');
  size_t n = mbstowcs(w.data(), local, w.size());
  if (n == static_cast<size_t>(-1) || n >= outCount) {
    out[0] = 0;
    return -1;
  }
  for (size_t i = 0; i < n; ++i) {
    if (static_cast<unsigned long>(w[i]) > 0xFFFF) {
      out[0] = 0;
      return -1;
    }
    out[i] = static_cast<uint16_t>(w[i]);
  }
  out[n] = 0;
  return static_cast<int>(n);
}
