// Per-thread time accounting by category.
#include "diag/instr.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

#include "diag/trace.h"
#include "platform/clock.h"

instrObject* instrObj = nullptr;

namespace {

const char* const kNames[instrNumCategories + 1] = {"",
                                                    "Process Dirs",
                                                    "Solve Tree",
                                                    "Compute",
                                                    "Transaction",
                                                    "BeginTxn Verb",
                                                    "File I/O",
                                                    "Compression",
                                                    "Encryption",
                                                    "CRC",
                                                    "Delta",
                                                    "Data Verb",
                                                    "Confirm Verb",
                                                    "EndTxn Verb",
                                                    "Sleep",
                                                    "Thread Wait",
                                                    "Other",
                                                    "DMAPI Session",
                                                    "DMAPI Attributes",
                                                    "DMAPI Rights",
                                                    "File Attributes",
                                                    "Option Processing",
                                                    "Message Output",
                                                    "API Init",
                                                    "API Query",
                                                    "API Send Data",
                                                    "API Get Data",
                                                    "API Begin Txn",
                                                    "API End Txn",
                                                    "API Send Object",
                                                    "API Get Object",
                                                    "API Delete Object",
                                                    "API Terminate",
                                                    "DB Open",
                                                    "DB Query",
                                                    "DB Insert",
                                                    "DB Delete",
                                                    "DB Close"};

uint64_t nowNs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

unsigned long threadId() {
  return static_cast<unsigned long>(syscall(SYS_gettid));
}

double seconds(uint64_t ns) {
  return static_cast<double>(ns) / 1e9;
}

}  // namespace

unsigned instrClassOf(int cat) {
  if (cat >= 1 && cat <= 22) return instrDETAIL;
  if (cat >= 23 && cat <= 32) return instrAPI;
  if (cat >= 33 && cat <= 37) return instrDBOPS;
  return 0;
}

const char* instrCategoryName(int cat) {
  return cat >= 1 && cat <= instrNumCategories ? kNames[cat] : "";
}

instrObject* instrObject::instrStart(unsigned classes) {
  if (instrObj != nullptr) return instrObj;
  if (classes == 0) {
    if (!TEST_INSTRUMENT.set) return nullptr;
    // A bare INSTRUMENT means every class.
    classes = TEST_INSTRUMENT.value & instrALL;
    if (classes == 0) classes = instrALL;
  }
  instrObj = new instrObject(classes & instrALL);
  return instrObj;
}

void instrObject::instrStop(instrObject* obj, int report) {
  if (obj == nullptr) return;
  if (report && !obj->reportFile_.empty()) {
    FILE* out = fopen(obj->reportFile_.c_str(), "a");
    if (out != nullptr) {
      obj->writeToReport(out);
      fclose(out);
    } else if (TR_GENERAL) {
      trPrintf(__FILE__, __LINE__, "Cannot write the instrumentation report %s\n",
               obj->reportFile_.c_str());
    }
  }
  if (obj == instrObj) instrObj = nullptr;
  delete obj;
}

instrObject::instrObject(unsigned classes) : classes_(classes), created_(nowNs()) {
  psMutexInit(&mutex_, 0);
}

instrObject::~instrObject() {
  psMutexDestroy(&mutex_);
}

instrObject::Thread& instrObject::self() {
  auto [it, fresh] = threads_.try_emplace(threadId());
  if (fresh) it->second.started = nowNs();
  return it->second;
}

void instrObject::charge(Thread& t, uint64_t now) {
  if (!t.open.empty()) t.time[t.open.back()] += now - t.since;
  t.since = now;
}

bool instrObject::beginCategory(int cat) {
  if ((instrClassOf(cat) & classes_) == 0) return false;
  psMutexGuard guard(&mutex_);
  Thread& t = self();
  charge(t, nowNs());
  t.open.push_back(cat);
  ++t.count[cat];
  return true;
}

bool instrObject::endCategory(int cat) {
  if ((instrClassOf(cat) & classes_) == 0) return false;
  psMutexGuard guard(&mutex_);
  Thread& t = self();
  if (t.open.empty() || t.open.back() != cat) return false;
  charge(t, nowNs());
  t.open.pop_back();
  return true;
}

bool instrObject::chgCategory(int cat) {
  if ((instrClassOf(cat) & classes_) == 0) return false;
  psMutexGuard guard(&mutex_);
  Thread& t = self();
  charge(t, nowNs());
  if (!t.open.empty()) t.open.pop_back();
  t.open.push_back(cat);
  ++t.count[cat];
  return true;
}

void instrObject::newThread(const char* name) {
  psMutexGuard guard(&mutex_);
  Thread& t = self();
  t.name = name != nullptr ? name : "";
  t.started = nowNs();
  t.ended = 0;
}

void instrObject::endThread() {
  psMutexGuard guard(&mutex_);
  Thread& t = self();
  uint64_t now = nowNs();
  charge(t, now);
  t.open.clear();
  t.ended = now;
}

void instrObject::addMiscData(const char* text) {
  if (text == nullptr) return;
  psMutexGuard guard(&mutex_);
  misc_.emplace_back(text);
}

uint64_t instrObject::entries(int cat) {
  if (cat < 1 || cat > instrNumCategories) return 0;
  psMutexGuard guard(&mutex_);
  return self().count[cat];
}

int instrObject::writeToReport(FILE* out) {
  psMutexGuard guard(&mutex_);
  const uint64_t now = nowNs();
  time_t secs = 0;
  psGetTimeMs(&secs, nullptr);
  struct tm tmv;
  char when[64] = "";
  if (psLocalTime(secs, &tmv) != nullptr) strftime(when, sizeof(when), "%m/%d/%Y %H:%M:%S", &tmv);
  bool ok = fprintf(out, "Instrumentation report, %s\nClasses:%s%s%s\nElapsed: %.3f sec\n", when,
                    classes_ & instrDETAIL ? " DETAIL" : "", classes_ & instrAPI ? " API" : "",
                    classes_ & instrDBOPS ? " DBOPS" : "", seconds(now - created_)) >= 0;
  for (const std::string& m : misc_) ok = ok && fprintf(out, "%s\n", m.c_str()) >= 0;

  uint64_t allTime[instrNumCategories + 1] = {};
  uint64_t allCount[instrNumCategories + 1] = {};
  for (auto& [tid, t] : threads_) {
    // Time of a category still open counts up to now.
    uint64_t open = !t.open.empty() && t.ended == 0 ? now - t.since : 0;
    uint64_t end = t.ended != 0 ? t.ended : now;
    ok = ok &&
         fprintf(out, "\nThread %lu%s%s%s  elapsed %.3f sec\n", tid, t.name.empty() ? "" : " (",
                 t.name.c_str(), t.name.empty() ? "" : ")", seconds(end - t.started)) >= 0;
    ok = ok && fprintf(out, "  %-20s %14s %10s\n", "Category", "Time (sec)", "Entries") >= 0;
    for (int c = 1; c <= instrNumCategories; ++c) {
      uint64_t time = t.time[c] + (!t.open.empty() && t.open.back() == c ? open : 0);
      if (t.count[c] == 0 && time == 0) continue;
      ok = ok && fprintf(out, "  %-20s %14.6f %10llu\n", kNames[c], seconds(time),
                         static_cast<unsigned long long>(t.count[c])) >= 0;
      allTime[c] += time;
      allCount[c] += t.count[c];
    }
  }
  ok = ok &&
       fprintf(out, "\nAll threads\n  %-20s %14s %10s\n", "Category", "Time (sec)", "Entries") >= 0;
  for (int c = 1; c <= instrNumCategories; ++c) {
    if (allCount[c] == 0 && allTime[c] == 0) continue;
    ok = ok && fprintf(out, "  %-20s %14.6f %10llu\n", kNames[c], seconds(allTime[c]),
                       static_cast<unsigned long long>(allCount[c])) >= 0;
  }
  ok = ok && fprintf(out, "\n") >= 0 && fflush(out) == 0;
  return ok ? 0 : -1;
}
