// The process return code: the worst message issued during the run.
//
// Every composed message tells GlobalRC its number (diag/nl.h does this);
// the number maps to a code of diag/diag_status.h (0, 4, 8 or 12) and the
// stored code only ever rises:
//   - a fixed list of "skipped" messages (1243, 14005, ...) gives
//     DIAG_GRC_SKIPPED;
//   - 9999 (internal error) gives DIAG_GRC_ERROR;
//   - 2046 gives the test flag AUDITLOGRC's value (DIAG_GRC_WARNING when
//     below 1), or DIAG_GRC_ERROR without the flag;
//   - others by severity: W gives DIAG_GRC_WARNING; K, E and S give
//     DIAG_GRC_ERROR; the rest DIAG_GRC_OK.
//
// The process object is reached through pGlobalRC, which may be null (then
// setting is skipped).  Thread safety: every member takes the object's
// mutex; a failure to take or release it is traced, issued as message 9999,
// and the value is still returned.
#ifndef QMX_DIAG_GLOBALRC_H_
#define QMX_DIAG_GLOBALRC_H_

#include <cstdint>

#include "diag/diag_status.h"
#include "platform/mutex.h"

class GlobalRC {
 public:
  GlobalRC();
  ~GlobalRC();
  GlobalRC(const GlobalRC&) = delete;
  GlobalRC& operator=(const GlobalRC&) = delete;

  // Raises the code to what message |msgNum| maps to.  Returns 1 when the
  // stored code rose, else 0.
  int set(unsigned msgNum);
  // The same when the caller already knows the message's severity code
  // (nlsevNone when absent); the message system uses it after composing.
  int set(unsigned msgNum, unsigned char severity);
  int32_t get();
  int32_t getMax();
  int32_t getMacroMax();
  void clearRC();       // rc = 0
  void clearMacroRC();  // rc = rcMacroMax = 0
  void clearAllRC();    // all three = 0

  // The code message |msgNum| maps to (no state change).
  static int32_t mapMessage(unsigned msgNum);
  static int32_t mapMessage(unsigned msgNum, unsigned char severity);

 private:
  int raise(unsigned msgNum, int32_t code);
  bool lock(const char* file, unsigned line);
  void unlock(const char* file, unsigned line);
  void traceValues(const char* when);

  int32_t rc;
  int32_t rcMacroMax;
  int32_t rcMax;
  psMutex_t mutex;
};

// The process's object; null until newGlobalRC.
extern GlobalRC* pGlobalRC;
// Creates pGlobalRC (no-op when it exists) and returns it.
GlobalRC* newGlobalRC();
void deleteGlobalRC();

#endif  // QMX_DIAG_GLOBALRC_H_
