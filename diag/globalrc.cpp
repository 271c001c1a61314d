#include "diag/globalrc.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "diag/diag_status.h"
#include "diag/nl.h"
#include "diag/trace.h"

GlobalRC* pGlobalRC = nullptr;

namespace {

// Messages that report a skipped object: the run goes on, the exit status
// says "some objects were not processed".  Sorted for binary search.
constexpr unsigned kSkippedMessages[] = {
    326,   1086,  1115,  1136,  1147,  1154,  1159,  1228,  1242,  1243,  1269,  1413,  1469,
    1753,  1754,  1802,  1803,  1804,  1946,  1947,  3008,  5154,  5279,  5823,  14005, 14007,
    14008, 14017, 14018, 14025, 14037, 14042, 14044, 14045, 14084, 14973, 14987,
};
static_assert(std::is_sorted(std::begin(kSkippedMessages), std::end(kSkippedMessages)));

// Entry and exit lines of each call, traced under EXTRC_DETAIL only.
class DetailScope {
 public:
  DetailScope(const char* name, unsigned line) : name_(name), line_(line) {
    if (TR_EXTRC_DETAIL) trPrintf(__FILE__, line_, "ENTER =====> %s\n", name_);
  }
  ~DetailScope() {
    if (TR_EXTRC_DETAIL) trPrintf(__FILE__, line_, "EXIT  <===== %s\n", name_);
  }

 private:
  const char* name_;
  unsigned line_;
};

}  // namespace

GlobalRC::GlobalRC() : rc(0), rcMacroMax(0), rcMax(0) {
  psMutexInit(&mutex, 0);
}

GlobalRC::~GlobalRC() {
  psMutexDestroy(&mutex);
}

int32_t GlobalRC::mapMessage(unsigned msgNum) {
  // The fixed numbers need no catalogue look-up.
  if (msgNum == 9999 || msgNum == 2046 ||
      std::binary_search(std::begin(kSkippedMessages), std::end(kSkippedMessages), msgNum)) {
    return mapMessage(msgNum, nlsevNone);
  }
  return mapMessage(msgNum, nlGetMsgSev(msgNum));
}

int32_t GlobalRC::mapMessage(unsigned msgNum, unsigned char severity) {
  if (std::binary_search(std::begin(kSkippedMessages), std::end(kSkippedMessages), msgNum)) {
    return DIAG_GRC_SKIPPED;
  }
  if (msgNum == 9999) return DIAG_GRC_ERROR;
  if (msgNum == 2046) {
    if (!TEST_AUDITLOGRC.set) return DIAG_GRC_ERROR;
    int v = static_cast<int>(TEST_AUDITLOGRC.value);
    return v < 1 ? DIAG_GRC_WARNING : v;
  }
  switch (severity) {
    case nlsevW:
      return DIAG_GRC_WARNING;
    case nlsevK:
    case nlsevE:
    case nlsevS:
      return DIAG_GRC_ERROR;
    default:
      return DIAG_GRC_OK;
  }
}

// Message 9999 raises the return code through this object again; a mutex
// that keeps failing must not make that an endless loop.
static thread_local bool reportingMutexFailure = false;

static void ReportMutexFailure(const char* file, unsigned line) {
  if (reportingMutexFailure) return;
  reportingMutexFailure = true;
  nlprintf(9999, file, line);
  reportingMutexFailure = false;
}

bool GlobalRC::lock(const char* file, unsigned line) {
  if (psMutexLock(&mutex) == 0) return true;
  if (TR_EXTRC) trPrintf(file, line, "Unable to acquire global rc mutex\n");
  ReportMutexFailure(file, line);
  return false;
}

void GlobalRC::unlock(const char* file, unsigned line) {
  if (psMutexUnlock(&mutex) == 0) return;
  if (TR_EXTRC) trPrintf(file, line, "Unable to release global rc mutex\n");
  ReportMutexFailure(file, line);
}

void GlobalRC::traceValues(const char* when) {
  if (TR_EXTRC_DETAIL) {
    trPrintf(__FILE__, __LINE__, "%s processing, rc = %d, rcMacroMax = %d, rcMax = %d.\n", when, rc,
             rcMacroMax, rcMax);
  }
}

int GlobalRC::set(unsigned msgNum) {
  // The mapping may read the catalogue; do it before taking our mutex so
  // that the message mutex is never taken inside it.
  return raise(msgNum, mapMessage(msgNum));
}

int GlobalRC::set(unsigned msgNum, unsigned char severity) {
  return raise(msgNum, mapMessage(msgNum, severity));
}

int GlobalRC::raise(unsigned msgNum, int32_t code) {
  DetailScope scope("GlobalRC::set", __LINE__);
  bool locked = lock(__FILE__, __LINE__);
  traceValues("Before");
  int rose = 0;
  if (code > rc) {
    if (TR_EXTRC) {
      trPrintf(__FILE__, __LINE__, "msgNum = %d changed the Global RC.\n",
               static_cast<int>(msgNum));
      trPrintf(__FILE__, __LINE__, "Old values: rc = %d, rcMacroMax = %d, rcMax = %d.\n", rc,
               rcMacroMax, rcMax);
    }
    rc = code;
    rcMacroMax = std::max(rcMacroMax, code);
    rcMax = std::max(rcMax, code);
    rose = 1;
  }
  traceValues("After");
  if (locked) unlock(__FILE__, __LINE__);
  return rose;
}

int32_t GlobalRC::get() {
  DetailScope scope("GlobalRC::get", __LINE__);
  bool locked = lock(__FILE__, __LINE__);
  int32_t v = rc;
  if (locked) unlock(__FILE__, __LINE__);
  return v;
}

int32_t GlobalRC::getMax() {
  DetailScope scope("GlobalRC::getMax", __LINE__);
  bool locked = lock(__FILE__, __LINE__);
  int32_t v = rcMax;
  if (locked) unlock(__FILE__, __LINE__);
  return v;
}

int32_t GlobalRC::getMacroMax() {
  DetailScope scope("GlobalRC::getMacroMax", __LINE__);
  bool locked = lock(__FILE__, __LINE__);
  int32_t v = rcMacroMax;
  if (locked) unlock(__FILE__, __LINE__);
  return v;
}

void GlobalRC::clearRC() {
  DetailScope scope("GlobalRC::clearRC", __LINE__);
  bool locked = lock(__FILE__, __LINE__);
  traceValues("Before");
  rc = 0;
  traceValues("After");
  if (locked) unlock(__FILE__, __LINE__);
}

void GlobalRC::clearMacroRC() {
  DetailScope scope("GlobalRC::clearMacroRC", __LINE__);
  bool locked = lock(__FILE__, __LINE__);
  traceValues("Before");
  rc = 0;
  rcMacroMax = 0;
  traceValues("After");
  if (locked) unlock(__FILE__, __LINE__);
}

void GlobalRC::clearAllRC() {
  DetailScope scope("GlobalRC::clearAllRC", __LINE__);
  bool locked = lock(__FILE__, __LINE__);
  traceValues("Before");
  rc = rcMacroMax = rcMax = 0;
  traceValues("After");
  if (locked) unlock(__FILE__, __LINE__);
}

GlobalRC* newGlobalRC() {
  if (pGlobalRC == nullptr) pGlobalRC = new (std::nothrow) GlobalRC;
  return pGlobalRC;
}

void deleteGlobalRC() {
  delete pGlobalRC;
  pGlobalRC = nullptr;
}
