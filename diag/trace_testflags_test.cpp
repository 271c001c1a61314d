// Parsing TESTFLAGS into the test-flag records.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "diag/testing/trace_test_util.h"

namespace {

using ::testing::HasSubstr;

class TestFlags : public TraceFixture {};

TEST_F(TestFlags, BareNumericAndQuotedForms) {
  ASSERT_EQ(0, trProcTestFlags("hsmlf  dmisessionpoolsize:12\tADLDAPSERVER:\"ldap host:389\""));
  EXPECT_EQ(1, TEST_HSMLF.set);
  EXPECT_EQ(0u, TEST_HSMLF.value);
  EXPECT_EQ(nullptr, TEST_HSMLF.str);
  EXPECT_EQ(1, TEST_DMISESSIONPOOLSIZE.set);
  EXPECT_EQ(12u, TEST_DMISESSIONPOOLSIZE.value);
  ASSERT_NE(nullptr, TEST_AD_LDAP_SERVER.str);
  EXPECT_STREQ("ldap host:389", TEST_AD_LDAP_SERVER.str);
  EXPECT_EQ(0, TEST_DMISESSIONPOOLTIME.set);
}

TEST_F(TestFlags, NegativeNumberReadsBackAsNegative) {
  ASSERT_EQ(0, trProcTestFlags("DMISESSIONPOOLTIME:-1"));
  EXPECT_EQ(-1, static_cast<int>(TEST_DMISESSIONPOOLTIME.value));
}

TEST_F(TestFlags, SettingAgainReplacesTheString) {
  ASSERT_EQ(0, trProcTestFlags("BUMPDAYS:\"one\""));
  ASSERT_EQ(0, trProcTestFlags("BUMPDAYS:7"));
  EXPECT_EQ(nullptr, TEST_BUMP_DAYS.str);
  EXPECT_EQ(7u, TEST_BUMP_DAYS.value);
}

TEST_F(TestFlags, InstrumentTakesClassLists) {
  ASSERT_EQ(0, trProcTestFlags("INSTRUMENT:detail/DBOPS"));
  EXPECT_EQ(1u | 4u, TEST_INSTRUMENT.value);
  ASSERT_EQ(0, trProcTestFlags("instrument:API"));
  EXPECT_EQ(2u, TEST_INSTRUMENT.value);
  ASSERT_EQ(0, trProcTestFlags("INSTRUMENT:3"));
  EXPECT_EQ(3u, TEST_INSTRUMENT.value);
  EXPECT_EQ(-1, trProcTestFlags("INSTRUMENT:DETAIL/BOGUS"));
  EXPECT_THAT(trTestFlagsError(), HasSubstr("BOGUS"));
  EXPECT_EQ(-1, trProcTestFlags("INSTRUMENT:DETAIL/"));
}

TEST_F(TestFlags, AllSetsEveryRecordWithTheSameValue) {
  ASSERT_EQ(0, trProcTestFlags("ALL:5"));
  for (const trTestEntry_t* e = TestClassTable; e->keyword != nullptr; ++e) {
    if (e->record == &TEST_SHOWALLCONSISTENTRC) continue;  // see below
    EXPECT_EQ(1, e->record->set) << e->keyword;
    EXPECT_EQ(5u, e->record->value) << e->keyword;
  }
  // ALL includes DISABLECONSISTENTRC, which clears SHOWALLCONSISTENTRC.
  EXPECT_EQ(0, TEST_SHOWALLCONSISTENTRC.set);
}

TEST_F(TestFlags, DisableConsistentRcSetsTheIgnoresAndClearsShowAll) {
  ASSERT_EQ(0, trProcTestFlags("SHOWALLCONSISTENTRC IGNOREPOSTSCHEDULECMD:3"));
  ASSERT_EQ(0, trProcTestFlags("DISABLECONSISTENTRC"));
  EXPECT_EQ(1, TEST_IGNOREPRESCHEDULECMD.set);
  EXPECT_EQ(1, TEST_IGNOREPOSTSCHEDULECMD.set);
  EXPECT_EQ(3u, TEST_IGNOREPOSTSCHEDULECMD.value);  // an explicit value stays
  EXPECT_EQ(0, TEST_SHOWALLCONSISTENTRC.set);
  // Later in the same string does not win either.
  ASSERT_EQ(0, trProcTestFlags("SHOWALLCONSISTENTRC"));
  EXPECT_EQ(0, TEST_SHOWALLCONSISTENTRC.set);
}

TEST_F(TestFlags, ErrorsStopAtTheBadTokenAndSayWhy) {
  struct Case {
    const char* flags;
    const char* why;
  } cases[] = {
      {"NOSUCHFLAG", "unknown test flag 'NOSUCHFLAG'"},
      {"HSMLF:12x", "bad number"},
      {"HSMLF:", "bad number"},
      {"HSMLF:99999999999", "bad number"},
      {"HSMLF:--1", "bad number"},
      {"ADLDAPSERVER:\"open", "unbalanced quote"},
      {"NOSUCH:\"text\"", "unknown test flag 'NOSUCH'"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(-1, trProcTestFlags(c.flags)) << c.flags;
    EXPECT_THAT(trTestFlagsError(), HasSubstr(c.why)) << c.flags;
  }
  ASSERT_EQ(-1, trProcTestFlags("OEMDISPLAY BOGUS ANSIINPUT"));
  EXPECT_EQ(1, TEST_OEMDISPLAY.set);
  EXPECT_EQ(0, TEST_ANSIINPUT.set);
  ASSERT_EQ(0, trProcTestFlags("AUDITLOGRC:4"));
  EXPECT_STREQ("", trTestFlagsError());
}

TEST_F(TestFlags, ListingShowsSetFlagsWithTheirValues) {
  ASSERT_EQ(0, trProcTestFlags("AUDITLOGRC:8 AGENTTIMEOUT:\"30s\""));
  testing::internal::CaptureStdout();
  trQueryTestFlags();
  EXPECT_EQ("Enabled test flags:\n  AGENTTIMEOUT = \"30s\"\n  AUDITLOGRC = 8\n",
            testing::internal::GetCapturedStdout());
}

TEST_F(TestFlags, NewAndDeleteClearTheRecords) {
  ASSERT_EQ(0, trProcTestFlags("OEMLOGMSGS:\"x\" ANSINLSREPOS"));
  delete_TraceObject();
  EXPECT_EQ(0, TEST_OEMLOGMSGS.set);
  EXPECT_EQ(nullptr, TEST_OEMLOGMSGS.str);
  EXPECT_EQ(0, TEST_ANSINLSREPOS.set);
}

TEST_F(TestFlags, TableRowsAreUniqueAndUpperCase) {
  int rows = 0;
  for (const trTestEntry_t* e = TestClassTable; e->keyword != nullptr; ++e, ++rows) {
    for (const char* c = e->keyword; *c != '\0'; ++c) EXPECT_FALSE(islower(*c)) << e->keyword;
    for (const trTestEntry_t* f = e + 1; f->keyword != nullptr; ++f) {
      EXPECT_STRNE(e->keyword, f->keyword);
      EXPECT_NE(e->record, f->record) << e->keyword;
    }
  }
  EXPECT_GE(rows, 13);
}

}  // namespace
