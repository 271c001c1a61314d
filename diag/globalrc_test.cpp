#include "diag/globalrc.h"

#include <gtest/gtest.h>

#include "diag/testing/nl_test_util.h"
#include "diag/trace.h"

namespace {

class GlobalRCTest : public nltest::MessageTest {
 protected:
  void SetUp() override {
    MessageTest::SetUp();
    ASSERT_EQ(Start(), 0);
  }
};

TEST_F(GlobalRCTest, InformationalWarningInformationalGives8) {
  GlobalRC& rc = *pGlobalRC;
  EXPECT_EQ(rc.set(9033), 0);  // I
  EXPECT_EQ(rc.get(), 0);
  EXPECT_EQ(rc.set(1398), 1);  // W
  EXPECT_EQ(rc.get(), 8);
  EXPECT_EQ(rc.set(9033), 0);
  EXPECT_EQ(rc.get(), 8);
  EXPECT_EQ(rc.getMax(), 8);
  EXPECT_EQ(rc.getMacroMax(), 8);
}

TEST_F(GlobalRCTest, SkippedObjectMessagesGive4AndInternalErrors12) {
  GlobalRC& rc = *pGlobalRC;
  EXPECT_EQ(rc.set(1243), 1);
  EXPECT_EQ(rc.get(), 4);
  // 14005 is an error in the catalogue, yet it only reports a skipped file.
  EXPECT_EQ(GlobalRC::mapMessage(14005), 4);
  EXPECT_EQ(rc.set(9999), 1);
  EXPECT_EQ(rc.get(), 12);
  EXPECT_EQ(rc.set(1398), 0);  // lower: no change
  EXPECT_EQ(rc.get(), 12);
}

TEST_F(GlobalRCTest, SeverityMapping) {
  EXPECT_EQ(GlobalRC::mapMessage(9205), 0);  // display text
  EXPECT_EQ(GlobalRC::mapMessage(9033), 0);  // informational
  EXPECT_EQ(GlobalRC::mapMessage(1691), 8);  // warning
  EXPECT_EQ(GlobalRC::mapMessage(1107), 12);
  EXPECT_EQ(GlobalRC::mapMessage(4242), 0);  // absent
}

TEST_F(GlobalRCTest, AuditLogMessageFollowsTheTestFlag) {
  TEST_AUDITLOGRC = {0, 0, nullptr};
  EXPECT_EQ(GlobalRC::mapMessage(2046), 12);
  TEST_AUDITLOGRC = {1, 0, nullptr};
  EXPECT_EQ(GlobalRC::mapMessage(2046), 8);
  TEST_AUDITLOGRC = {1, 4, nullptr};
  EXPECT_EQ(GlobalRC::mapMessage(2046), 4);
  TEST_AUDITLOGRC = {0, 0, nullptr};
}

TEST_F(GlobalRCTest, ClearingKeepsWhatEachLevelPromises) {
  GlobalRC& rc = *pGlobalRC;
  rc.set(1107);
  rc.clearMacroRC();
  EXPECT_EQ(rc.get(), 0);
  EXPECT_EQ(rc.getMacroMax(), 0);
  EXPECT_EQ(rc.getMax(), 12);
  rc.set(1398);
  rc.clearRC();
  EXPECT_EQ(rc.get(), 0);
  EXPECT_EQ(rc.getMacroMax(), 8);
  EXPECT_EQ(rc.getMax(), 12);
  rc.clearAllRC();
  EXPECT_EQ(rc.getMax(), 0);
  EXPECT_EQ(rc.getMacroMax(), 0);
}

TEST_F(GlobalRCTest, ChangesAreTracedUnderExtrc) {
  qmxtest::TempDir dir;
  std::string trace = dir.path() + "/trace.out";
  new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  ASSERT_EQ(trEnable("EXTRC EXTRC_DETAIL", 1), 0);
  ASSERT_EQ(trBegin(trace.c_str(), 0), 0);
  pGlobalRC->set(1398);
  pGlobalRC->set(9033);
  trClose(1);
  delete_TraceObject();
  std::string t = qmxtest::readFile(trace);
  EXPECT_NE(t.find("msgNum = 1398 changed the Global RC."), std::string::npos);
  EXPECT_EQ(t.find("msgNum = 9033"), std::string::npos);
  EXPECT_NE(t.find("After processing, rc = 8, rcMacroMax = 8, rcMax = 8."), std::string::npos);
  EXPECT_NE(t.find("ENTER =====> GlobalRC::set"), std::string::npos);
}

}  // namespace
