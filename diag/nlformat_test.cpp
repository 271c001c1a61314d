#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

#include "diag/nl.h"

namespace {

struct tm Day(int y, int m, int d, int hh = 14, int mm = 5, int ss = 9) {
  struct tm t = {};
  t.tm_year = y - 1900;
  t.tm_mon = m - 1;
  t.tm_mday = d;
  t.tm_hour = hh;
  t.tm_min = mm;
  t.tm_sec = ss;
  return t;
}

TEST(DateTimeFormats, EveryTableEntry) {
  const char* dates[] = {"07/04/2026", "04-07-2026", "2026-07-04", "04.07.2026",
                         "2026.07.04", "2026/07/04", "04/07/2026"};
  struct tm t = Day(2026, 7, 4);
  char d[32], h[32];
  for (int f = 1; f <= 7; ++f) {
    ASSERT_EQ(setDateFmt(f), 0);
    dateFmt(&t, d, h, sizeof d);
    EXPECT_STREQ(d, dates[f - 1]) << f;
    // The pruner reads dates back with the same format.
    struct tm back;
    ASSERT_EQ(nlParseDate(d, &back), 10u) << f;
    EXPECT_EQ(back.tm_mday, 4);
    EXPECT_EQ(back.tm_mon, 6);
    EXPECT_EQ(back.tm_year, 126);
  }
  const char* times[] = {"14:05:09", "14,05,09", "14.05.09", "02:05:09PM", "PM02:05:09"};
  setlocale(LC_TIME, "C");
  for (int f = 1; f <= 5; ++f) {
    ASSERT_EQ(setTimeFmt(f), 0);
    dateFmt(&t, d, h, sizeof d);
    EXPECT_STREQ(h, times[f - 1]) << f;
  }
  EXPECT_EQ(setDateFmt(8), 109);
  EXPECT_EQ(setTimeFmt(-1), 109);
  EXPECT_EQ(getTimeFmt(), 5);  // unchanged by the refused one
  setDateFmt(1);
  setTimeFmt(1);
}

TEST(DateTimeFormats, FromTheLocale) {
  setlocale(LC_ALL, "C");
  ASSERT_EQ(setDateFmt(0), 0);
  EXPECT_STREQ(nlDatePattern(), "%m/%d/%Y");  // "%m/%d/%y" widened
  ASSERT_EQ(setTimeFmt(0), 0);
  EXPECT_STREQ(nlTimePattern(), "%H:%M:%S");
  setDateFmt(1);
  setTimeFmt(1);
}

TEST(DateTimeFormats, ParsingRejectsWhatIsNotADate) {
  setDateFmt(3);
  struct tm t;
  EXPECT_EQ(nlParseDate("2026-13-01 x", &t), 0u);
  EXPECT_EQ(nlParseDate("26-01-01", &t), 0u);
  EXPECT_EQ(nlParseDate("continued line", &t), 0u);
  EXPECT_EQ(nlParseDate("2026-01-31 10:00:00 text", &t), 10u);
  setDateFmt(1);
}

TEST(NumberFormats, ThousandsSeparators) {
  char buf[32];
  const char* expected[] = {"1,234,567", "1,234,567", "1 234 567",
                            "1 234 567", "1.234.567", "1'234'567"};
  for (int f = 1; f <= 6; ++f) {
    ASSERT_EQ(setNumberFmt(f), 0);
    EXPECT_STREQ(nlFormatNumber(1234567, buf, sizeof buf), expected[f - 1]) << f;
  }
  EXPECT_STREQ(nlFormatNumber(999, buf, sizeof buf), "999");
  EXPECT_STREQ(nlFormatNumber(1000, buf, sizeof buf), "1'000");
  EXPECT_EQ(setNumberFmt(7), 109);
  setNumberFmt(1);
}

}  // namespace
