// Instrumentation: switching on, category bookkeeping, the report.
#include "diag/instr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include "diag/testing/trace_test_util.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Instr : public TraceFixture {
 protected:
  void TearDown() override {
    instrObject::instrStop(instrObj, 0);
    TraceFixture::TearDown();
  }
  static std::string report(instrObject* obj) {
    char* buf = nullptr;
    size_t len = 0;
    FILE* mem = open_memstream(&buf, &len);
    EXPECT_EQ(0, obj->writeToReport(mem));
    fclose(mem);
    std::string out(buf, len);
    free(buf);
    return out;
  }
};

TEST_F(Instr, CategoriesBelongToTheirClasses) {
  EXPECT_EQ(0u, instrClassOf(0));
  EXPECT_EQ(unsigned(instrDETAIL), instrClassOf(1));
  EXPECT_EQ(unsigned(instrDETAIL), instrClassOf(22));
  EXPECT_EQ(unsigned(instrAPI), instrClassOf(23));
  EXPECT_EQ(unsigned(instrAPI), instrClassOf(32));
  EXPECT_EQ(unsigned(instrDBOPS), instrClassOf(33));
  EXPECT_EQ(unsigned(instrDBOPS), instrClassOf(37));
  EXPECT_EQ(0u, instrClassOf(38));
  std::set<std::string> names;
  for (int c = 1; c <= instrNumCategories; ++c) {
    EXPECT_STRNE("", instrCategoryName(c));
    EXPECT_TRUE(names.insert(instrCategoryName(c)).second) << c;
  }
}

TEST_F(Instr, SwitchedOnOnlyByTheTestFlag) {
  EXPECT_EQ(nullptr, instrObject::instrStart());
  ASSERT_EQ(0, trProcTestFlags("INSTRUMENT:API/DBOPS"));
  instrObject* obj = instrObject::instrStart();
  ASSERT_NE(nullptr, obj);
  EXPECT_EQ(obj, instrObj);
  EXPECT_EQ(unsigned(instrAPI | instrDBOPS), obj->classes());
  EXPECT_EQ(obj, instrObject::instrStart());  // one per process
  instrObject::instrStop(obj, 0);
  EXPECT_EQ(nullptr, instrObj);

  ASSERT_EQ(0, trProcTestFlags("INSTRUMENT"));
  obj = instrObject::instrStart();
  ASSERT_NE(nullptr, obj);
  EXPECT_EQ(unsigned(instrALL), obj->classes());
}

TEST_F(Instr, OnlyEnabledClassesAreCounted) {
  instrObject obj(instrAPI);
  EXPECT_FALSE(obj.beginCategory(instrFileIO));
  EXPECT_TRUE(obj.beginCategory(instrApiQuery));
  EXPECT_TRUE(obj.endCategory(instrApiQuery));
  EXPECT_FALSE(obj.beginCategory(0));
  EXPECT_FALSE(obj.beginCategory(38));
  EXPECT_EQ(0u, obj.entries(instrFileIO));
  EXPECT_EQ(1u, obj.entries(instrApiQuery));
}

TEST_F(Instr, NestingChangingAndMismatchedEnds) {
  instrObject obj(instrALL);
  obj.beginCategory(instrProcessDirs);
  obj.beginCategory(instrDmiAttributes);
  EXPECT_FALSE(obj.endCategory(instrProcessDirs));  // not the innermost
  EXPECT_TRUE(obj.endCategory(instrDmiAttributes));
  EXPECT_TRUE(obj.chgCategory(instrDbQuery));  // replaces ProcessDirs
  EXPECT_FALSE(obj.endCategory(instrProcessDirs));
  EXPECT_TRUE(obj.endCategory(instrDbQuery));
  EXPECT_FALSE(obj.endCategory(instrDbQuery));  // nothing open
  EXPECT_EQ(1u, obj.entries(instrProcessDirs));
  EXPECT_EQ(1u, obj.entries(instrDmiAttributes));
  EXPECT_EQ(1u, obj.entries(instrDbQuery));
}

TEST_F(Instr, ReportNamesThreadsCategoriesAndMiscData) {
  instrObject obj(instrDETAIL | instrDBOPS);
  obj.newThread("main");
  obj.addMiscData("\nBanner line of the command");
  obj.beginCategory(instrOptions);
  obj.endCategory(instrOptions);
  std::thread worker([&] {
    obj.newThread("worker");
    obj.beginCategory(instrDbInsert);
    obj.beginCategory(instrDbInsert);
    obj.endThread();
  });
  worker.join();
  std::string r = report(&obj);
  EXPECT_THAT(r, HasSubstr("Classes: DETAIL DBOPS\n"));
  EXPECT_THAT(r, HasSubstr("Banner line of the command\n"));
  EXPECT_THAT(r, HasSubstr(" (main)  elapsed "));
  EXPECT_THAT(r, HasSubstr(" (worker)  elapsed "));
  EXPECT_THAT(r, HasSubstr(instrCategoryName(instrOptions)));
  // Entries per thread and for all threads together.
  char line[80];
  snprintf(line, sizeof(line), "  %-20s", instrCategoryName(instrDbInsert));
  size_t first = r.find(line);
  ASSERT_NE(std::string::npos, first);
  EXPECT_EQ(' ', r[first + strlen(line)]);
  EXPECT_EQ("2\n", r.substr(r.find('\n', first) - 1, 2));
  EXPECT_THAT(r.substr(r.find("All threads")), HasSubstr(line));
  EXPECT_THAT(r, Not(HasSubstr(instrCategoryName(instrApiInit))));
}

TEST_F(Instr, StopAppendsTheReportToItsFile) {
  instrObject* obj = instrObject::instrStart(instrDETAIL);
  ASSERT_NE(nullptr, obj);
  obj->setReportFile(path("r.rpt").c_str());
  obj->beginCategory(instrCompute);
  instrObject::instrStop(obj, 1);
  EXPECT_EQ(nullptr, instrObj);
  std::string r = qmxtest::readFile(path("r.rpt"));
  EXPECT_THAT(r, HasSubstr("Instrumentation report"));
  EXPECT_THAT(r, HasSubstr(instrCategoryName(instrCompute)));
}

}  // namespace
