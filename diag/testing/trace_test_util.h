// Helpers shared by the trace facility's tests.
#ifndef QMX_DIAG_TESTING_TRACE_TEST_UTIL_H_
#define QMX_DIAG_TESTING_TRACE_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "diag/trace.h"
#include "diag/trace_internal.h"
#include "testing/files.h"
#include "testing/temp_dir.h"

// A fresh trace object and a scratch directory for every test.
class TraceFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    delete_TraceObject();
    new_TraceObject(ctCLSpaceMGT, 0, nullptr);
    tmp_ = std::make_unique<qmxtest::TempDir>("qmxtrace");
    dir_ = tmp_->path();
  }
  void TearDown() override {
    delete_TraceObject();
    trSetSizeUnitForTest(0);
    trSetDateTimeHook(nullptr);
    trSetMessageHook(nullptr);
    std::string why = tmp_ != nullptr ? tmp_->remove() : "";
    if (!why.empty()) ADD_FAILURE() << why;
  }

  std::string path(const std::string& name) const { return dir_ + "/" + name; }

  // Clears every class so that a test chooses the line format exactly.
  static void allClassesOff() {
    for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) *e->flag = 0;
  }

  std::unique_ptr<qmxtest::TempDir> tmp_;
  std::string dir_;
};

#endif  // QMX_DIAG_TESTING_TRACE_TEST_UTIL_H_
