// Options that drive the trace facility: flags, test flags, the error
// program, the trace file opened by the early pass.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "diag/trace.h"
#include "options/optobj.h"
#include "options/testing/env_var.h"
#include "testing/files.h"
#include "testing/temp_dir.h"

namespace {

class OptTrace : public ::testing::Test {
 protected:
  OptTrace() : o(ctCLSpaceMGT) {
    new_TraceObject(ctCLSpaceMGT, 0, trTIDProc);
    optClearError(&err);
  }
  ~OptTrace() override {
    trReset(1);
    delete_TraceObject();
  }
  int user(const char* name, const char* value) {
    o.optSetValidMode(optSrcUser);
    return o.optValidateOption(value, name, 1, 1, 0);
  }
  clientOptions o;
  optError err;
};

TEST_F(OptTrace, FlagsReachTheTraceFacility) {
  EXPECT_EQ(TR_CONFIG, 0);
  ASSERT_EQ(user("TRACEFLAGS", "config"), 0);
  EXPECT_NE(TR_CONFIG, 0);
  EXPECT_STREQ(o.traceFlags, "CONFIG");
  // An unknown class refuses the option and keeps the stored flags.
  testing::internal::CaptureStdout();
  EXPECT_EQ(user("TRACEFLAGS", "NOSUCHCLASS"), 400);
  testing::internal::GetCapturedStdout();
  EXPECT_STREQ(o.traceFlags, "CONFIG");
  // TRACEFLAGS may come from anywhere, the command line included.
  EXPECT_EQ(o.optValidateOptionCL("-config", "TRACEFL", 0, 1, 8), 0);
  EXPECT_EQ(TR_CONFIG, 0);
}

TEST_F(OptTrace, TestFlagsAndErrorProgram) {
  EXPECT_EQ(TEST_HSMLF.set, 0);
  ASSERT_EQ(user("TESTFLAGS", "hsmlf"), 0);
  EXPECT_NE(TEST_HSMLF.set, 0);
  EXPECT_EQ(user("TESTFLAGS", "NOTAFLAG"), 400);
  ASSERT_EQ(user("ERRORPROG", "/usr/bin/Mailer"), 0);
  EXPECT_STREQ(trGetErrorProg(), "/usr/bin/Mailer");
  // Checking without applying leaves the facility alone.
  o.optSetValidMode(optSrcUser);
  EXPECT_EQ(o.optValidateOption("/other", "ERRORPROG", 1, 0, 0), 0);
  EXPECT_STREQ(trGetErrorProg(), "/usr/bin/Mailer");
}

TEST_F(OptTrace, OptionListingGoesToTheTrace) {
  qmxtest::TempDir dir("qmxtr");
  std::string trace = dir.path("t.trace");
  ASSERT_EQ(trEnable("CONFIG", 1), 0);
  ASSERT_EQ(trBegin(trace.c_str(), 0), 0);
  o.tcpPort = 1777;
  o.optDisplayToTrace();
  trClose(0);
  std::string text = qmxtest::readFile(trace);
  EXPECT_NE(text.find("TCPPORT                      1777\n"), std::string::npos) << text;
}

TEST_F(OptTrace, EarlyPassStartsTheTraceFile) {
  qmxtest::TempDir dir("qmxtr");
  std::string trace = dir.path("qmx.trace");
  dir.write("qmx.opt", "TRACEFILE " + trace + "\nTRACEFLAGS CONFIG\nDATEFORMAT 3\n");
  opttest::EnvVar qmxDir("QMX_DIR", dir.path().c_str());
  o.optEnvVarInit();
  ASSERT_EQ(o.optPrescanTrOpt(&err), 0) << err.token;
  EXPECT_EQ(o.dateFormat, 0);  // the early pass applies only trace options
  struct stat st;
  EXPECT_EQ(stat(trace.c_str(), &st), 0);
  EXPECT_NE(TR_CONFIG, 0);
}

}  // namespace
