// Instrumentation: where the time of each thread goes.
//
// Code brackets its work in numbered categories; the instrumentation object
// accumulates, per thread, the time spent in each category (the innermost
// open category of a thread gets the time) and the number of times it was
// entered, and writes a plain-text report at the end.
//
// It is switched on by the INSTRUMENT test flag: TESTFLAGS INSTRUMENT (all
// classes) or INSTRUMENT:DETAIL/API/DBOPS (the classes named).  Categories
// belong to three classes:
//   DETAIL (bit 1): categories 1 to 22, the client's own processing
//   API    (bit 2): categories 23 to 32, the programming interface
//   DBOPS  (bit 4): categories 33 to 37, database operations
// Calls for categories of classes that are off cost a bit test.
//
//   instrObj = instrObject::instrStart();      // null unless switched on
//   if (instrObj) instrObj->beginCategory(instrDmiAttributes);
//   ...
//   if (instrObj) instrObj->endCategory(instrDmiAttributes);
//   instrObject::instrStop(instrObj, 1);       // report, free, instrObj = null
//
// Thread safety: every member may be called from any thread; each thread's
// categories are its own.
#ifndef QMX_DIAG_INSTR_H_
#define QMX_DIAG_INSTR_H_

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "platform/mutex.h"

enum instrClass_t { instrDETAIL = 1, instrAPI = 2, instrDBOPS = 4, instrALL = 7 };

// The categories.  Numbers are fixed: reports of different runs compare.
enum instrCategory_t {
  // DETAIL
  instrProcessDirs = 1,
  instrSolveTree = 2,
  instrCompute = 3,
  instrTransaction = 4,
  instrBeginTxnVerb = 5,
  instrFileIO = 6,
  instrCompression = 7,
  instrEncryption = 8,
  instrCRC = 9,
  instrDelta = 10,
  instrDataVerb = 11,
  instrConfirmVerb = 12,
  instrEndTxnVerb = 13,
  instrSleep = 14,
  instrThreadWait = 15,
  instrOther = 16,
  instrDmiSession = 17,
  instrDmiAttributes = 18,
  instrDmiRights = 19,
  instrFileAttributes = 20,
  instrOptions = 21,
  instrMessages = 22,
  // API
  instrApiInit = 23,
  instrApiQuery = 24,
  instrApiSendData = 25,
  instrApiGetData = 26,
  instrApiBeginTxn = 27,
  instrApiEndTxn = 28,
  instrApiSendObj = 29,
  instrApiGetObj = 30,
  instrApiDeleteObj = 31,
  instrApiTerminate = 32,
  // DBOPS
  instrDbOpen = 33,
  instrDbQuery = 34,
  instrDbInsert = 35,
  instrDbDelete = 36,
  instrDbClose = 37
};

constexpr int instrNumCategories = 37;

// The class bit of category |cat| (0 for a number outside 1..37).
unsigned instrClassOf(int cat);
// The report name of category |cat| ("" outside 1..37).
const char* instrCategoryName(int cat);

class instrObject {
 public:
  // Creates the process's object when the INSTRUMENT test flag is set (or
  // |classes| is non-zero), stores it in instrObj and returns it; null when
  // instrumentation is off.  A second call returns the existing object.
  static instrObject* instrStart(unsigned classes = 0);
  // Ends instrumentation: with |report| non-zero writes the report (see
  // setReportFile), then deletes |obj| and clears instrObj.  Null is fine.
  static void instrStop(instrObject* obj, int report);

  explicit instrObject(unsigned classes);
  ~instrObject();
  instrObject(const instrObject&) = delete;
  instrObject& operator=(const instrObject&) = delete;

  unsigned classes() const { return classes_; }

  // Opens category |cat| for the calling thread; the category open before
  // it pauses until this one ends.  Returns false when |cat| is off or
  // not a category.
  bool beginCategory(int cat);
  // Closes the calling thread's innermost category if it is |cat|; a
  // mismatch closes nothing and returns false.
  bool endCategory(int cat);
  // Closes the innermost category, whatever it is, and opens |cat|.
  bool chgCategory(int cat);

  // Names the calling thread in the report; starts its clock.
  void newThread(const char* name);
  // Closes the calling thread's open categories and stops its clock.
  void endThread();

  // A free text line for the report (the banner, for example).
  void addMiscData(const char* text);

  // Writes the report to |out|.  Returns 0, or -1 when writing failed.
  int writeToReport(FILE* out);

  // Where instrStop writes the report; default "qmxinstr.rpt" in the
  // current directory.  The report is appended.
  void setReportFile(const char* name) { reportFile_ = name != nullptr ? name : ""; }

  // The calling thread's count of entries into |cat| (for checks).
  uint64_t entries(int cat);

 private:
  struct Thread {
    std::string name;
    uint64_t started = 0;   // ns
    uint64_t ended = 0;     // ns, 0 while running
    std::vector<int> open;  // innermost last
    uint64_t since = 0;     // when the innermost category last resumed
    uint64_t time[instrNumCategories + 1] = {};
    uint64_t count[instrNumCategories + 1] = {};
  };

  Thread& self();  // caller holds mutex_
  void charge(Thread& t, uint64_t now);

  unsigned classes_;
  psMutex_t mutex_;
  std::map<unsigned long, Thread> threads_;
  std::vector<std::string> misc_;
  std::string reportFile_ = "qmxinstr.rpt";
  uint64_t created_;
};

// The process's instrumentation object; null when instrumentation is off.
extern instrObject* instrObj;

#endif  // QMX_DIAG_INSTR_H_
