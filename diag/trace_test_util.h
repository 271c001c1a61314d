// Helpers shared by the trace facility's tests.
#ifndef QMX_DIAG_TRACE_TEST_UTIL_H_
#define QMX_DIAG_TRACE_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "diag/trace.h"
#include "diag/trace_internal.h"

// A fresh trace object and a scratch directory for every test.
class TraceFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    delete_TraceObject();
    new_TraceObject(ctCLSpaceMGT, 0, nullptr);
    char tmpl[] = "/tmp/qmxtraceXXXXXX";
    ASSERT_NE(nullptr, mkdtemp(tmpl));
    dir_ = tmpl;
  }
  void TearDown() override {
    delete_TraceObject();
    trSetSizeUnitForTest(0);
    trSetDateTimeHook(nullptr);
    trSetMessageHook(nullptr);
    std::string cmd = "rm -rf '" + dir_ + "'";
    if (system(cmd.c_str()) != 0) ADD_FAILURE() << "cannot remove " << dir_;
  }

  std::string path(const std::string& name) const { return dir_ + "/" + name; }

  static std::string readFile(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }

  // Clears every class so that a test chooses the line format exactly.
  static void allClassesOff() {
    for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) *e->flag = 0;
  }

  std::string dir_;
};

#endif  // QMX_DIAG_TRACE_TEST_UTIL_H_
