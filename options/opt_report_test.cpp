// What a user sees: option errors and refusals through the catalogue.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "diag/testing/nl_test_util.h"
#include "options/optobj.h"
#include "platform/services.h"

namespace {

class OptReport : public nltest::MessageTest {
 protected:
  void SetUp() override {
    nltest::MessageTest::SetUp();
    ASSERT_EQ(Start(), 0);
    setenv("QMX_DIR", tmp.path().c_str(), 1);
    euGetEnvironment(1);
    optClearError(&err);
  }
  void TearDown() override {
    unsetenv("QMX_DIR");
    euGetEnvironment(1);
    nltest::MessageTest::TearDown();
  }
  std::string write(const std::string& name, const std::string& text) {
    std::string p = tmp.path() + "/" + name;
    std::ofstream(p) << text;
    return p;
  }
  // Everything shown so far, one text after the other.
  std::string shown() const {
    std::string all;
    for (const auto& s : nltest::Shown()) all += s.second;
    return all;
  }
  qmxtest::TempDir tmp;
  optError err;
};

TEST_F(OptReport, ErrorRecordNamesTokenFileLineAndText) {
  clientOptions o(ctCLSpaceMGT);
  o.optEnvVarInit();
  std::string sys = write("qmx.sys", "SERVERNAME a\n* note\n   TCPPORT 99999\n");
  ASSERT_EQ(o.optProcessOptions(optStoreSystem, sys.c_str(), 0, &err), 400);
  EXPECT_EQ(ReportOptionError(&err), 400);
  std::string text = shown();
  EXPECT_NE(text.find("ANS1030E"), std::string::npos) << text;
  EXPECT_NE(text.find("'TCPPORT'"), std::string::npos) << text;
  EXPECT_NE(text.find(sys), std::string::npos) << text;
  EXPECT_NE(text.find("line 3"), std::string::npos) << text;
  EXPECT_NE(text.find("TCPPORT 99999"), std::string::npos) << text;
}

TEST_F(OptReport, EachCodeHasItsMessage) {
  const struct {
    int rc;
    const char* id;
  } cases[] = {{400, "ANS1030E"}, {402, "ANS1031E"}, {406, "ANS1032E"}, {409, "ANS1033E"},
               {410, "ANS1034E"}, {102, "ANS1035E"}, {109, "ANS1036E"}, {77, "ANS1037E"}};
  for (const auto& c : cases) {
    nltest::Shown().clear();
    optSetError(&err, c.rc, "TOKEN", "TOKEN value", 12, "/etc/qmx.opt");
    EXPECT_EQ(ReportOptionError(&err), c.rc);
    std::string text = shown();
    EXPECT_NE(text.find(c.id), std::string::npos) << c.rc << ": " << text;
    EXPECT_TRUE(text.find("TOKEN") != std::string::npos ||
                text.find("/etc/qmx.opt") != std::string::npos)
        << text;
  }
  nltest::Shown().clear();
  optClearError(&err);
  EXPECT_EQ(ReportOptionError(&err), 0);
  EXPECT_TRUE(shown().empty());
  EXPECT_EQ(ReportOptionError(nullptr), 109);
}

TEST_F(OptReport, RefusedSourceIsMessage1691AndIgnored) {
  clientOptions o(ctCLSpaceMGT);
  o.optEnvVarInit();
  std::string sys = write("qmx.sys", "SERVERNAME alpha\n\n HSMEXTOBJIDATTR yes\n TCPPORT 1601\n");
  ASSERT_EQ(o.optProcessOptions(optStoreSystem, sys.c_str(), 0, &err), 0);
  EXPECT_EQ(o.tcpPort, 1601);
  std::string text = shown();
  EXPECT_NE(text.find("ANS1691W"), std::string::npos) << text;
  EXPECT_NE(text.find("HSMEXTOBJIDATTR"), std::string::npos) << text;
  EXPECT_NE(text.find("ALPHA"), std::string::npos) << text;  // the stanza
  EXPECT_NE(text.find("line 3"), std::string::npos) << text;
}

TEST_F(OptReport, MissingFeatureIsMessage7901) {
  clientOptions o(ctCLSpaceMGT);
  o.optEnvVarInit();
  o.enableLanFree = 1;
  o.platformSupport &= ~clientOptions::optSupLanFree;
  ASSERT_EQ(o.optPostProcessOptions(&err), 0);
  EXPECT_EQ(o.enableLanFree, 0);
  EXPECT_NE(shown().find("ANS7901E"), std::string::npos) << shown();
  EXPECT_NE(shown().find("LANFREE"), std::string::npos) << shown();
}

}  // namespace
