// Resolving trace flag strings against the class and aggregate tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "diag/trace.h"

namespace {

class TraceEnable : public ::testing::Test {
 protected:
  void SetUp() override {
    delete_TraceObject();
    new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  }
  void TearDown() override { delete_TraceObject(); }

  static std::set<std::string> enabled() {
    std::set<std::string> on;
    for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) {
      if (*e->flag) on.insert(e->keyword);
    }
    return on;
  }
};

TEST_F(TraceEnable, ServiceEnablesAllButItsExclusionsThenDevelopDropsTimestamp) {
  TR_TIMESTAMP = 0;
  TR_PREFIX = 0;
  ASSERT_EQ(0, trEnable("SERVICE", 0));
  // The first enable turns the format classes on, SERVICE leaves them so.
  EXPECT_EQ(1, TR_TIMESTAMP);
  EXPECT_EQ(1, TR_PREFIX);
  const std::set<std::string> off = {
      "NLS",          "COMMDETAIL",   "COMMFULL",     "DIRDETAIL",       "MEMORY",
      "MEMDETAIL",    "VERBDETAIL",   "MAC_DETAIL",   "INCLEXCL_DETAIL", "CLIENTTYPE",
      "PROXY_DETAIL", "EXTRC_DETAIL", "DEBUG",        "PFM_DETAIL",      "VM_DETAIL",
      "VSS_DETAIL",   "XATTR_DETAIL", "IC49009",      "BTREEDB",         "EDITOR",
      "CACHEDB",      "DBPERF",       "EXCLUDECACHE", "SMSIGNALHANDLER", "FP",
      "FPDETAIL1",    "FPDETAIL2",    "DEDUPENTER",   "DEDUPDETAIL"};
  std::set<std::string> on = enabled();
  for (const trClassEntry_t* e = ClassTable; e->keyword != nullptr; ++e) {
    EXPECT_EQ(off.count(e->keyword) == 0, on.count(e->keyword) == 1) << e->keyword;
  }
  EXPECT_EQ(1, TR_WARN_FAILED == 0);       // IC49009's flag
  EXPECT_EQ(1, trIsCommTracingEnabled());  // COMM stays on

  ASSERT_EQ(0, trEnable("DEVELOP", 0));
  EXPECT_EQ(0, TR_TIMESTAMP);
  EXPECT_EQ(1, TR_PREFIX);
  EXPECT_EQ(1, TR_SM);
}

TEST_F(TraceEnable, AllFmdbEnablesTwoMembersThenFailsOnTheUnknownOne) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, trEnable("ALL_FMDB", 0));
  EXPECT_EQ("Invalid trace flag: FMDBBAOBJDB\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(1, TR_FMDB_NPDB);
  EXPECT_EQ(1, TR_FMDB_FSDB);
  EXPECT_EQ(0, TR_FMDB_OBJDB);
  EXPECT_EQ(0, TR_FMDB);  // after the failing member
}

TEST_F(TraceEnable, NegatedAggregateTurnsItsMembersOff) {
  ASSERT_EQ(0, trEnable("api api_detail sm", 0));
  EXPECT_EQ(1, TR_API);
  EXPECT_EQ(1, TR_API_DETAIL);
  ASSERT_EQ(0, trEnable("-ALL_API", 0));
  EXPECT_EQ(0, TR_API);
  EXPECT_EQ(0, TR_API_DETAIL);
  EXPECT_EQ(1, TR_SM);
}

TEST_F(TraceEnable, SchedulerTurnsInclExclDetailBackOn) {
  ASSERT_EQ(0, trEnable("SCHEDULER", 0));
  EXPECT_EQ(1, TR_INCLEXCL_DETAIL);
  EXPECT_EQ(0, TR_THREAD_STATUS);
  EXPECT_EQ(0, TR_PFM);
  EXPECT_EQ(0, TR_NLS);
}

TEST_F(TraceEnable, UnknownKeywordStopsButKeepsEarlierTokens) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, trEnable("sm -bogus general", 0));
  EXPECT_EQ("Invalid trace flag: BOGUS\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(1, TR_SM);
  EXPECT_EQ(0, TR_GENERAL);

  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, trEnable("nosuch", 1));
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

TEST_F(TraceEnable, AllLeavesFormatClassesAlone) {
  ASSERT_EQ(0, trEnable("SM", 0));
  TR_TIMESTAMP = 0;
  ASSERT_EQ(0, trEnable("ALL", 0));
  EXPECT_EQ(0, TR_TIMESTAMP);
  EXPECT_EQ(1, TR_PREFIX);
  EXPECT_EQ(1, TR_VM_DETAIL);
  ASSERT_EQ(0, trEnable("-ALL", 0));
  EXPECT_EQ(1, TR_PREFIX);
  EXPECT_EQ(0, TR_SM);
  EXPECT_EQ(0, trIsCommTracingEnabled());
}

TEST_F(TraceEnable, CommunicationMarkerFollowsTheEnabledClasses) {
  ASSERT_EQ(0, trEnable("SM", 0));
  EXPECT_EQ(0, trIsCommTracingEnabled());
  ASSERT_EQ(0, trEnable("DELTASTAT", 0));
  EXPECT_EQ(1, trIsCommTracingEnabled());
  ASSERT_EQ(0, trEnable("-DELTASTAT COMPRESS", 0));
  EXPECT_EQ(0, trIsCommTracingEnabled());
}

TEST_F(TraceEnable, EnablePreservesErrno) {
  errno = 1234;
  trEnable("SM GENERAL", 0);
  EXPECT_EQ(1234, errno);
  testing::internal::CaptureStdout();
  trEnable("nosuchclass", 0);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(1234, errno);
}

}  // namespace
