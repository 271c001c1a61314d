// Inside the message system: the message object, its caches and the
// catalogue reader.  Only diag/nl*.cpp and diag/logfile*.cpp include this.
#ifndef QMX_DIAG_NLSOBJECT_H_
#define QMX_DIAG_NLSOBJECT_H_

#include <iconv.h>
#include <nl_types.h>

#include <string>

#include "diag/diag_status.h"
#include "diag/nl.h"
#include "diag/nlinsert.h"
#include "platform/mutex.h"

// A cached message.  The records of one cache form a circular doubly linked
// list, most recently used at the head.
struct NLSMsg {
  NLSMsg* next = nullptr;
  NLSMsg* prev = nullptr;
  unsigned num = 0;
  unsigned char sev = nlsevNone;
  char trailer[16] = {};  // raw text after the last 0x12 near the end
  size_t idLen = 0;       // identifier kept at the start of text (0 or 9)
  std::string text;       // identifier (when kept) and body
  nlBody_t body;          // the body, decoded once
};

struct nlCache_t {
  NLSMsg* head = nullptr;
  unsigned count = 0;
};

inline constexpr size_t nlMaxPath = 1280;

struct nlsObject_t {
  nlOutputFn_t out[nlNumOutputFns] = {};
  char prefix[8] = "ANS";
  int outputMode = 0;  // the client type given to nlinit
  nl_catd engCat = reinterpret_cast<nl_catd>(-1);
  nl_catd natCat = reinterpret_cast<nl_catd>(-1);  // may equal engCat
  nlCache_t engCache;
  nlCache_t natCache;
  unsigned cacheLimit = 10;
  char failedRepository[nlMaxPath] = {};
  char workBuf[nlWorkBufSize] = {};
  int initialised = 0;
  int envFlag = 0;
  // Code-page switches from the test flags.
  int oemLogMsgs = 0;
  int ansiNlsRepos = 0;
  int oemDisplay = 0;
  int ansiInput = 0;
  int dateFormat = 0;
  int timeFormat = 0;
  int numberFormat = 0;
  // UTF-8 catalogue text to the local code page; (iconv_t)-1 when the local
  // code page is UTF-8 itself (no conversion needed).
  iconv_t toLocal = reinterpret_cast<iconv_t>(-1);
  std::string catName;
  std::string openedLocale;  // qmxLocale when the catalogues were opened
};

// The process-wide recursive message mutex.
extern psMutex_t nls_mutex;
// The object (null before newNlsGlobalObject).
extern nlsObject_t* nlsObj;

bool nlCatOpen(nl_catd c);

// Finds message |num| (national cache and catalogue, then English; only
// English when |english|).  The caller holds nls_mutex and may use the
// record until it releases it.  Null when absent.
NLSMsg* GetMsg(unsigned num, bool english);
// Reads message |num| from |cat| into a new record (null when absent,
// damaged or retired; the reason has been reported, except absence when
// |quietAbsent|: a national catalogue need not hold every message).
NLSMsg* ReadMsg(nl_catd cat, unsigned num, bool quietAbsent = false);
// Empties |cache|.
void nlFlushCache(nlCache_t* cache);

// Shows an internal message (not from the catalogue) with severity |sev|:
// through the output function unless in output mode 4, and into the error
// log when |sev| is above 4.
void nlIssueInternal(unsigned char sev, const char* text);

// Composes message |num| with |args| into |out| under the message mutex.
// Returns the severity, or nlsevNone when absent.
unsigned char nlCompose(unsigned num, bool english, va_list args, std::string* out);

// Logs a composed text as the routing rules say (schedule log in schedule
// mode; error log for severities above 4).
void nlLogComposed(unsigned char sev, const char* text);

// The catalogue directory for a language ("de" -> "DE_DE", "xx" -> "EN_US"
// with a trace line, "de_DE.UTF-8" -> "de_DE").
std::string nlNormaliseLanguage(const char* lang);

// The older indexed repository: the two-byte big-endian index entry of
// message |num| stands at byte 2 * num + 62 of |repository|.  Returns 0 and
// the entry, or DIAG_RC_MSGINDEX (ANS0105E read error, ANS0106E entry 0).
int ReadIndex(const char* repository, unsigned num, unsigned* entry);

// Issues the trace facility's catalogue messages (installed as its message
// hook while the catalogues are open).
void nlTraceMessage(unsigned msgNum, const char* insert, int toErrorLog);

// Date, time and number format bookkeeping (nlformat.cpp).
void nlApplyFormats(int dateFormat, int timeFormat, int numberFormat);

#endif  // QMX_DIAG_NLSOBJECT_H_
