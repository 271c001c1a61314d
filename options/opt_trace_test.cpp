// Options that drive the trace facility: flags, test flags, the error
// program, the trace file opened by the early pass.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "diag/trace.h"
#include "options/optobj.h"
#include "platform/services.h"

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
  char tmpl[] = "/tmp/qmxtrXXXXXX";
  std::string dir = mkdtemp(tmpl);
  std::string trace = dir + "/t.trace";
  ASSERT_EQ(trEnable("CONFIG", 1), 0);
  ASSERT_EQ(trBegin(trace.c_str(), 0), 0);
  o.tcpPort = 1777;
  o.optDisplayToTrace();
  trClose(0);
  std::ifstream in(trace);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("TCPPORT                      1777\n"), std::string::npos) << text;
  std::system(("rm -rf '" + dir + "'").c_str());
}

TEST_F(OptTrace, EarlyPassStartsTheTraceFile) {
  char tmpl[] = "/tmp/qmxtrXXXXXX";
  std::string dir = mkdtemp(tmpl);
  std::string trace = dir + "/qmx.trace";
  std::ofstream(dir + "/qmx.opt") << "TRACEFILE " << trace << "\nTRACEFLAGS CONFIG\n"
                                  << "DATEFORMAT 3\n";
  setenv("QMX_DIR", dir.c_str(), 1);
  euGetEnvironment(1);
  o.optEnvVarInit();
  ASSERT_EQ(o.optPrescanTrOpt(&err), 0) << err.token;
  EXPECT_EQ(o.dateFormat, 0);  // the early pass applies only trace options
  struct stat st;
  EXPECT_EQ(stat(trace.c_str(), &st), 0);
  EXPECT_NE(TR_CONFIG, 0);
  unsetenv("QMX_DIR");
  euGetEnvironment(1);
  std::system(("rm -rf '" + dir + "'").c_str());
}

}  // namespace
