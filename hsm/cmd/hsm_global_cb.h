// The process-wide control block of every space-management command.
//
// One instance per process, created on first use by HSMGlobalCB::GetHsmCB()
// and never destroyed.  The parser fills it, the command reads it, and the
// shut-down paths use its flags so that each tear-down runs once.  The
// command runs on one thread; sessionMap is keyed by thread because the same
// start-up code serves multi-threaded daemons, which take sessionMapMutex.
#ifndef QMX_HSM_CMD_HSM_GLOBAL_CB_H_
#define QMX_HSM_CMD_HSM_GLOBAL_CB_H_

#include <cstdint>
#include <map>

#include "platform/mutex.h"

class Sess_o;
class CorrSTable;

// Size of the path buffers of the control block.
constexpr int kHsmPathMax = 1280;
// Size of the server-name buffer (64 characters and the terminator).
constexpr int kHsmServerNameMax = 65;

class HSMGlobalCB {
 public:
  // The process's control block, created on the first call.
  static HSMGlobalCB* GetHsmCB();

  // The server session of the calling thread, or null when it has none.
  Sess_o* threadSession();

  // Fields in declaration order; other commands' fields are zeroed.
  std::map<unsigned long, Sess_o*> sessionMap;  // thread id -> session
  psMutex_t sessionMapMutex;
  CorrSTable* corrTable = nullptr;
  int canReportInterrupt = 0;  // the signal clean-up may print 11159
  int commandKind = 8;         // 29 for the attribute command
  int commandVariant = 8;      // second word beside commandKind (other commands)
  int cleanupDone = 0;         // everything has been torn down
  int canPrintInCleanUp = 0;   // clUtCanPrintInCleanUp() at construction
  char** operands = nullptr;   // point into the argument vector
  int operandCount = 0;
  int operandCapacity = 20;
  int verbose = 0;
  int queryMode = 0;  // 1 show attributes, 0 set the recall mode
  int helpRequested = 0;
  int stdoutRedirected = 0;
  int screenRows = 0;
  int screenColumns = 0;
  char fileListName[kHsmPathMax] = {};
  uint8_t recallMode = 0;  // requested recall mode as the parser gives it
  char serverName[kHsmServerNameMax] = {};
  // Other commands' defaults (a stop time of day and a display letter).
  int startTime[3] = {23, 59, 59};
  int endTime[3] = {23, 59, 59};
  char displayKind = 'g';
  int parseFlag = 0;  // second flag the long grammar sets with queryMode

  HSMGlobalCB(const HSMGlobalCB&) = delete;
  HSMGlobalCB& operator=(const HSMGlobalCB&) = delete;

 private:
  HSMGlobalCB();
  static HSMGlobalCB* pInstance;
};

// The program's base name, as trace lines and messages print it.
const char* hsmWhoAmI();
// Stores |name| (at most 254 characters); null stores "unknown".
void hsmSetWhoAmI(const char* name);

// Run statistics: 21 words; word kHsmStatStartTime holds the start time.
constexpr int kHsmStatWords = 21;
constexpr int kHsmStatStartTime = 17;
extern uint32_t hsmStatVar[kHsmStatWords];
// Zeroes the run statistics.
void ClearStats();

#endif  // QMX_HSM_CMD_HSM_GLOBAL_CB_H_
