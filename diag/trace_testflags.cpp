// Parsing the TESTFLAGS value into the test-flag records.
#include <strings.h>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/trace_internal.h"

namespace {

std::string lastError;

// The instrumentation classes that INSTRUMENT:<list> accepts.
struct instrClassName_t {
  const char* name;
  unsigned bit;
};
const instrClassName_t kInstrClasses[] = {{"DETAIL", 1}, {"API", 2}, {"DBOPS", 4}};

void setRecord(trTestFlag_t* r, unsigned value, const char* str) {
  free(r->str);
  r->str = str != nullptr ? strdup(str) : nullptr;
  r->set = 1;
  r->value = value;
}

trTestFlag_t* findRecord(const std::string& name) {
  for (const trTestEntry_t* e = TestClassTable; e->keyword != nullptr; ++e) {
    if (name == e->keyword) return e->record;
  }
  return nullptr;
}

// Decimal number; a leading "-" is kept in two's complement.
bool parseNumber(const std::string& text, unsigned* out) {
  if (text.empty()) return false;
  const char* s = text.c_str();
  bool negative = *s == '-';
  if (negative) ++s;
  if (!isdigit(static_cast<unsigned char>(*s))) return false;
  errno = 0;
  char* end = nullptr;
  unsigned long long v = strtoull(s, &end, 10);
  if (errno != 0 || *end != '\0' || v > UINT_MAX) return false;
  if (negative && v > static_cast<unsigned long long>(INT_MAX) + 1) return false;
  *out = negative ? 0u - static_cast<unsigned>(v) : static_cast<unsigned>(v);
  return true;
}

bool parseInstrClasses(const std::string& text, unsigned* out) {
  unsigned bits = 0;
  size_t start = 0;
  while (start <= text.size()) {
    size_t slash = text.find('/', start);
    std::string cls =
        text.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
    bool known = false;
    for (const instrClassName_t& c : kInstrClasses) {
      if (strcasecmp(cls.c_str(), c.name) == 0) {
        bits |= c.bit;
        known = true;
      }
    }
    if (!known) {
      lastError = "unknown instrumentation class '" + cls + "'";
      return false;
    }
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  *out = bits;
  return true;
}

// Next white-space-separated token; quotes keep blanks inside a token.
bool nextToken(const char*& p, std::string* token) {
  while (*p != '\0' && isspace(static_cast<unsigned char>(*p))) ++p;
  if (*p == '\0') return false;
  token->clear();
  char quote = 0;
  for (; *p != '\0'; ++p) {
    if (quote == 0 && isspace(static_cast<unsigned char>(*p))) break;
    if (*p == '"') quote = quote == 0 ? '"' : 0;
    token->push_back(*p);
  }
  return true;
}

int processToken(const std::string& token) {
  size_t colon = token.find(':');
  std::string name = token.substr(0, colon);
  for (char& c : name) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  unsigned value = 0;
  std::string str;
  bool haveStr = false;
  if (colon != std::string::npos) {
    std::string arg = token.substr(colon + 1);
    if (!arg.empty() && arg[0] == '"') {
      if (arg.size() < 2 || arg.back() != '"') {
        lastError = "unbalanced quote in test flag '" + token + "'";
        return -1;
      }
      str = arg.substr(1, arg.size() - 2);
      haveStr = true;
    } else if (name == "INSTRUMENT" && !arg.empty() &&
               !isdigit(static_cast<unsigned char>(arg[0]))) {
      if (!parseInstrClasses(arg, &value)) return -1;
    } else if (!parseNumber(arg, &value)) {
      lastError = "bad number in test flag '" + token + "'";
      return -1;
    }
  }
  const char* s = haveStr ? str.c_str() : nullptr;
  if (name == "ALL") {
    for (const trTestEntry_t* e = TestClassTable; e->keyword != nullptr; ++e) {
      setRecord(e->record, value, s);
    }
  } else {
    trTestFlag_t* r = findRecord(name);
    if (r == nullptr) {
      lastError = "unknown test flag '" + name + "'";
      return -1;
    }
    setRecord(r, value, s);
  }
  return 0;
}

std::string describe(const trTestEntry_t* e) {
  char line[64];
  std::string out = "  ";
  out += e->keyword;
  if (e->record->str != nullptr) {
    out += " = \"";
    out += e->record->str;
    out += "\"";
  } else {
    snprintf(line, sizeof(line), " = %u", e->record->value);
    out += line;
  }
  out += "\n";
  return out;
}

// Consistent return codes off means the schedule commands' codes are ignored
// too, and the detailed listing of consistent codes is off.
void applyDisableConsistentRC() {
  if (!TEST_DISABLECONSISTENTRC.set) return;
  if (!TEST_IGNOREPRESCHEDULECMD.set) setRecord(&TEST_IGNOREPRESCHEDULECMD, 0, nullptr);
  if (!TEST_IGNOREPOSTSCHEDULECMD.set) setRecord(&TEST_IGNOREPOSTSCHEDULECMD, 0, nullptr);
  free(TEST_SHOWALLCONSISTENTRC.str);
  TEST_SHOWALLCONSISTENTRC = trTestFlag_t{0, 0, nullptr};
}

}  // namespace

int trProcTestFlags(const char* flags) {
  trErrnoKeeper keep;
  lastError.clear();
  if (flags == nullptr) return 0;
  const char* p = flags;
  std::string token;
  int rc = 0;
  while (rc == 0 && nextToken(p, &token)) rc = processToken(token);
  applyDisableConsistentRC();
  return rc;
}

const char* trTestFlagsError() {
  return lastError.c_str();
}

int trPrintEnabledTestFlags() {
  trErrnoKeeper keep;
  if (!trCanOutPut()) return 0;
  trPrint("Enabled test flags:\n");
  for (const trTestEntry_t* e = TestClassTable; e->keyword != nullptr; ++e) {
    if (e->record->set) trPrint("%s", describe(e).c_str());
  }
  return 0;
}

int trQueryTestFlags() {
  trErrnoKeeper keep;
  printf("Enabled test flags:\n");
  for (const trTestEntry_t* e = TestClassTable; e->keyword != nullptr; ++e) {
    if (e->record->set) printf("%s", describe(e).c_str());
  }
  fflush(stdout);
  return 0;
}
