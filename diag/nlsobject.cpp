// The message object: creation, output functions, the message caches.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "diag/logfile.h"
#include "diag/nlsobject.h"
#include "diag/trace.h"
#include "platform/platform_status.h"

psMutex_t nls_mutex = {PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP, 1};
nlsObject_t* nlsObj = nullptr;

namespace {

int scheduleMode = 0;

void DefaultOutput(const char* text) {
  fputs(text, stdout);
}

}  // namespace

// The trace facility's own catalogue messages (bad or linked trace file
// names).  Errors and warnings reach the error log by their severity.
void nlTraceMessage(unsigned msgNum, const char* insert, int /*toErrorLog*/) {
  nlfprintf(stderr, msgNum, insert != nullptr ? insert : "");
}

namespace {

void UnlinkRecord(nlCache_t* cache, NLSMsg* m) {
  if (m->next == m) {
    cache->head = nullptr;
  } else {
    m->prev->next = m->next;
    m->next->prev = m->prev;
    if (cache->head == m) cache->head = m->next;
  }
  m->next = m->prev = nullptr;
  --cache->count;
}

void PushHead(nlCache_t* cache, NLSMsg* m) {
  if (cache->head == nullptr) {
    m->next = m->prev = m;
  } else {
    NLSMsg* h = cache->head;
    m->next = h;
    m->prev = h->prev;
    h->prev->next = m;
    h->prev = m;
  }
  cache->head = m;
  ++cache->count;
}

NLSMsg* FindInCache(nlCache_t* cache, unsigned num) {
  NLSMsg* h = cache->head;
  if (h == nullptr) return nullptr;
  NLSMsg* m = h;
  do {
    if (m->num == num) {
      if (m != h) {
        UnlinkRecord(cache, m);
        PushHead(cache, m);
      }
      return m;
    }
    m = m->next;
  } while (m != h);
  return nullptr;
}

void Insert(nlCache_t* cache, NLSMsg* m, unsigned limit) {
  if (limit == 0) limit = 1;
  while (cache->count >= limit && cache->head != nullptr) {
    NLSMsg* tail = cache->head->prev;
    UnlinkRecord(cache, tail);
    delete tail;
  }
  PushHead(cache, m);
}

}  // namespace

bool nlCatOpen(nl_catd c) {
  return c != reinterpret_cast<nl_catd>(-1);
}

int newNlsGlobalObject(const nlOutputFn_t* fns, int envFlag) {
  psMutexGuard g(&nls_mutex);
  if (nlsObj != nullptr) return 0;
  nlsObj = new (std::nothrow) nlsObject_t;
  if (nlsObj == nullptr) return PS_RC_NOMEM;
  nlsObj->envFlag = envFlag;
  for (int i = 0; i < nlNumOutputFns; ++i) {
    nlsObj->out[i] = (fns != nullptr && fns[i] != nullptr) ? fns[i] : DefaultOutput;
  }
  return 0;
}

nlsObject_t* getNlsGlobalObjectHandle() {
  return nlsObj;
}

void destroyNlsGlobalCache() {
  psMutexGuard g(&nls_mutex);
  if (nlsObj == nullptr) return;
  nlFlushCache(&nlsObj->engCache);
  nlFlushCache(&nlsObj->natCache);
}

void destroyNlsGlobalObject() {
  psMutexGuard g(&nls_mutex);
  if (nlsObj == nullptr) return;
  termMsgSys();
  trSetDateTimeHook(nullptr);
  delete nlsObj;
  nlsObj = nullptr;
}

void setNlsGlobalObjectMsgPrefix(const char* prefix) {
  psMutexGuard g(&nls_mutex);
  if (nlsObj == nullptr || prefix == nullptr) return;
  snprintf(nlsObj->prefix, sizeof nlsObj->prefix, "%.3s", prefix);
}

void setNlsOutputFunction(unsigned sev, nlOutputFn_t fn) {
  psMutexGuard g(&nls_mutex);
  if (nlsObj == nullptr || sev >= static_cast<unsigned>(nlNumOutputFns)) return;
  nlsObj->out[sev] = fn != nullptr ? fn : DefaultOutput;
}

void nlFlushCache(nlCache_t* cache) {
  while (cache->head != nullptr) {
    NLSMsg* m = cache->head;
    UnlinkRecord(cache, m);
    delete m;
  }
  cache->count = 0;
}

NLSMsg* GetMsg(unsigned num, bool english) {
  if (nlsObj == nullptr) return nullptr;
  const bool national = !english && nlsObj->natCat != nlsObj->engCat && nlCatOpen(nlsObj->natCat);
  nlCache_t* cache = national ? &nlsObj->natCache : &nlsObj->engCache;
  if (NLSMsg* hit = FindInCache(cache, num)) return hit;
  NLSMsg* m = nullptr;
  if (national) {
    m = ReadMsg(nlsObj->natCat, num, true);
  }
  if (m == nullptr) {
    // Messages missing from the national catalogue come from the English
    // one; a message absent there too has already been reported.
    if (national) {
      nlCache_t* eng = &nlsObj->engCache;
      if (NLSMsg* hit = FindInCache(eng, num)) {
        m = new (std::nothrow) NLSMsg(*hit);
      } else {
        m = ReadMsg(nlsObj->engCat, num);
      }
      if (m == nullptr) return nullptr;
    } else {
      m = ReadMsg(nlsObj->engCat, num);
      if (m == nullptr) return nullptr;
    }
  }
  Insert(cache, m, nlsObj->cacheLimit);
  return m;
}

unsigned char nlGetMsgSev(unsigned num) {
  if (psMutexLock(&nls_mutex) != 0) {
    if (TR_NLS) trPrintf(__FILE__, __LINE__, "Unable to acquire NLS mutex\n");
    return nlsevE;
  }
  NLSMsg* m = GetMsg(num, false);
  unsigned char sev = m != nullptr ? m->sev : static_cast<unsigned char>(nlsevNone);
  if (psMutexUnlock(&nls_mutex) != 0) return nlsevNone;
  return sev;
}

int nlLockMutex() {
  int rc = psMutexLock(&nls_mutex);
  if (rc != 0 && TR_NLS) trPrintf(__FILE__, __LINE__, "Unable to acquire NLS mutex\n");
  return rc;
}

int nlUnlockMutex() {
  int rc = psMutexUnlock(&nls_mutex);
  static thread_local bool reporting = false;
  if (rc != 0 && !reporting) {
    reporting = true;
    nlprintf(9999, __FILE__, __LINE__);
    reporting = false;
  }
  return rc;
}

void nlIssueInternal(unsigned char sev, const char* text) {
  if (nlsObj == nullptr) {
    fputs(text, stderr);
    return;
  }
  if (TR_NLS) trPrintf(__FILE__, __LINE__, "%s", text);
  if (nlsObj->outputMode != nlClientTypeAPI && sev < nlNumOutputFns) nlsObj->out[sev](text);
  nlLogComposed(sev, text);
}

void nlLogComposed(unsigned char sev, const char* text) {
  if (scheduleMode && DLogFile::schedLogFile.isOpen()) LogSchedMsg(text);
  if (sev != nlsevNone && sev > nlsevI && DLogFile::errorLogFile.isOpen()) LogMsg(text);
}

void SetMsgLoggingMode(int on) {
  DLogFile::setLoggingEnabled(on);
}
int nlGetMsgLoggingMode() {
  return DLogFile::loggingEnabled();
}
void nlSetScheduleMode(int on) {
  scheduleMode = on != 0;
}
