// Date, time and number formats of the client (DATEFORMAT, TIMEFORMAT,
// NUMBERFORMAT).  The trace facility and the logs format their time stamps
// through dateFmt.
#include <langinfo.h>

#include <cctype>
#include <clocale>
#include <cstring>
#include <ctime>

#include "diag/nlsobject.h"
#include "diag/trace.h"
#include "platform/platform_status.h"

namespace {

const char* const kDatePatterns[] = {
    nullptr,  // 0: from the locale
    "%m/%d/%Y", "%d-%m-%Y", "%Y-%m-%d", "%d.%m.%Y", "%Y.%m.%d", "%Y/%m/%d", "%d/%m/%Y",
};
const char* const kTimePatterns[] = {
    nullptr,  // 0: from the locale
    "%H:%M:%S", "%H,%M,%S", "%H.%M.%S", "%I:%M:%S%p", "%p%I:%M:%S",
};
// Thousands separator and decimal mark per number format.
const struct {
  char thousands;
  char decimal;
} kNumberFormats[] = {
    {0, 0},  // 0: from the locale
    {',', '.'}, {',', ','}, {' ', ','}, {' ', '.'}, {'.', ','}, {'\'', ','},
};

constexpr int kNumDate = sizeof kDatePatterns / sizeof kDatePatterns[0];
constexpr int kNumTime = sizeof kTimePatterns / sizeof kTimePatterns[0];
constexpr int kNumNumber = sizeof kNumberFormats / sizeof kNumberFormats[0];

int dateFormat = 1;
int timeFormat = 1;
int numberFormat = 1;
char datePattern[16] = "%m/%d/%Y";
char timePattern[16] = "%H:%M:%S";
char thousandsSep = ',';

// The locale's date format, when it is day, month and year with separators;
// a two-digit year is widened so that dates stay unambiguous.
void LocaleDate(char* out, size_t size) {
  const char* d = nl_langinfo(D_FMT);
  std::string r;
  int seen = 0;
  for (const char* p = d; p != nullptr && *p != '\0'; ++p) {
    if (*p == '%') {
      char c = *++p;
      if (c == 'd' || c == 'm' || c == 'Y' || c == 'y') {
        r += c == 'y' ? "%Y" : std::string("%") + c;
        seen |= c == 'd' ? 1 : c == 'm' ? 2 : 4;
        continue;
      }
      seen = -1;
      break;
    }
    if (isalnum(static_cast<unsigned char>(*p))) {
      seen = -1;
      break;
    }
    r += *p;
  }
  snprintf(out, size, "%s", (seen == 7 && r.size() < size) ? r.c_str() : "%m/%d/%Y");
}

// The locale's time format, when it uses only %H, %I, %M, %S and %p in a
// sensible combination and fits 14 characters.
void LocaleTime(char* out, size_t size) {
  const char* t = nl_langinfo(T_FMT);
  bool ok = t != nullptr && strlen(t) <= 14;
  bool h = false, i = false, m = false, p = false;
  for (const char* c = t; ok && *c != '\0'; ++c) {
    if (*c != '%') {
      ok = !isalnum(static_cast<unsigned char>(*c));
      continue;
    }
    switch (*++c) {
      case 'H':
        h = true;
        break;
      case 'I':
        i = true;
        break;
      case 'M':
        m = true;
        break;
      case 'S':
        break;
      case 'p':
        p = true;
        break;
      default:
        ok = false;
    }
  }
  ok = ok && m && (h != i) && (p == i);
  snprintf(out, size, "%s", ok ? t : "%H:%M:%S");
}

void FormatDate(const struct tm* t, char* date, char* time, size_t size) {
  dateFmt(t, date, time, size);
}

}  // namespace

int setDateFmt(int fmt) {
  if (fmt < 0 || fmt >= kNumDate) return PS_RC_BADARG;
  dateFormat = fmt;
  if (fmt == 0) {
    LocaleDate(datePattern, sizeof datePattern);
  } else {
    snprintf(datePattern, sizeof datePattern, "%s", kDatePatterns[fmt]);
  }
  return 0;
}

int setTimeFmt(int fmt) {
  if (fmt < 0 || fmt >= kNumTime) return PS_RC_BADARG;
  timeFormat = fmt;
  if (fmt == 0) {
    LocaleTime(timePattern, sizeof timePattern);
  } else {
    snprintf(timePattern, sizeof timePattern, "%s", kTimePatterns[fmt]);
  }
  return 0;
}

int setNumberFmt(int fmt) {
  if (fmt < 0 || fmt >= kNumNumber) return PS_RC_BADARG;
  numberFormat = fmt;
  if (fmt == 0) {
    const struct lconv* lc = localeconv();
    thousandsSep = (lc != nullptr && lc->thousands_sep != nullptr) ? lc->thousands_sep[0] : ',';
  } else {
    thousandsSep = kNumberFormats[fmt].thousands;
  }
  return 0;
}

int getDateFmt() {
  return dateFormat;
}
int getTimeFmt() {
  return timeFormat;
}
int getNumberFmt() {
  return numberFormat;
}
const char* nlDatePattern() {
  return datePattern;
}
const char* nlTimePattern() {
  return timePattern;
}

void nlApplyFormats(int date, int time, int number) {
  // Unknown numbers keep the format in force (the options reject them).
  setDateFmt(date);
  setTimeFmt(time);
  setNumberFmt(number);
  trSetDateTimeHook(FormatDate);
}

void dateFmt(const struct tm* t, char* date, char* time, size_t size) {
  if (date != nullptr && size > 0 && strftime(date, size, datePattern, t) == 0) date[0] = '\0';
  if (time != nullptr && size > 0 && strftime(time, size, timePattern, t) == 0) time[0] = '\0';
}

size_t nlParseDate(const char* text, struct tm* out) {
  struct tm r = {};
  const char* s = text;
  for (const char* p = datePattern; *p != '\0'; ++p) {
    if (*p != '%') {
      if (*s++ != *p) return 0;
      continue;
    }
    char c = *++p;
    int maxDigits = c == 'Y' ? 4 : 2;
    int value = 0, n = 0;
    while (n < maxDigits && isdigit(static_cast<unsigned char>(s[n])))
      value = value * 10 + (s[n++] - '0');
    if (n == 0 || (c == 'Y' && n != 4)) return 0;
    s += n;
    if (c == 'd') r.tm_mday = value;
    if (c == 'm') r.tm_mon = value - 1;
    if (c == 'Y') r.tm_year = value - 1900;
    if (c == 'y') r.tm_year = value + 100;
  }
  if (r.tm_mday < 1 || r.tm_mday > 31 || r.tm_mon < 0 || r.tm_mon > 11) return 0;
  if (out != nullptr) *out = r;
  return static_cast<size_t>(s - text);
}

char* nlFormatNumber(unsigned long long value, char* buf, size_t size) {
  char digits[32];
  int n = snprintf(digits, sizeof digits, "%llu", value);
  std::string r;
  for (int i = 0; i < n; ++i) {
    if (i > 0 && (n - i) % 3 == 0 && thousandsSep != '\0') r += thousandsSep;
    r += digits[i];
  }
  snprintf(buf, size, "%s", r.c_str());
  return buf;
}
