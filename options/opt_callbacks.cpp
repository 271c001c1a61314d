// The general callback and the own callbacks of the option table.
#include "options/opt_callbacks.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "diag/nl.h"
#include "options/opt_internal.h"
#include "options/opt_keywords.h"
#include "options/optobj.h"

namespace {

bool isBlank(char c) {
  return isspace(static_cast<unsigned char>(c)) != 0;
}

const char* skipBlanks(const char* p) {
  while (isBlank(*p)) ++p;
  return p;
}

// One token of |value| that must be all of it (only blanks may follow).
int wholeToken(const char* value, std::string* out) {
  std::vector<char> buf(strlen(value) + 1);
  const char* rest = nullptr;
  int rc = optGetToken(value, buf.data(), buf.size(), &rest);
  if (rc != PS_RC_OK) return rc;
  if (*skipBlanks(rest) != '\0') return PS_RC_BADVALUE;
  *out = buf.data();
  return PS_RC_OK;
}

bool isSignedStorage(int st) {
  return st == ST_I16 || st == ST_I32;
}

// Stores an integer by the row's storage.
void storeNumber(void* f, int storage, uint64_t v) {
  switch (storage) {
    case ST_BYTE:
      *static_cast<uint8_t*>(f) = static_cast<uint8_t>(v);
      break;
    case ST_I16:
    case ST_U16:
      *static_cast<uint16_t*>(f) = static_cast<uint16_t>(v);
      break;
    case ST_U64:
      *static_cast<uint64_t*>(f) = v;
      break;
    default:
      *static_cast<uint32_t*>(f) = static_cast<uint32_t>(v);
      break;
  }
}

// Whether |v| fits the storage at all, whatever the row's range says.
bool fitsSigned(int storage, int64_t v) {
  return storage == ST_I16 ? v >= INT16_MIN && v <= INT16_MAX : v >= INT32_MIN && v <= INT32_MAX;
}
bool fitsUnsigned(int storage, uint64_t v) {
  switch (storage) {
    case ST_BYTE:
      return v <= UINT8_MAX;
    case ST_U16:
      return v <= UINT16_MAX;
    case ST_U64:
      return true;
    default:
      return v <= UINT32_MAX;
  }
}

// Parses a number of the row's signedness and checks it against [low, high]
// and against what the storage can hold.
int parseRanged(const optionEntry* row, const char* text, uint64_t* out) {
  if (row->storage > ST_U64) return PS_RC_BADVALUE;
  if (isSignedStorage(row->storage)) {
    int64_t v = 0;
    if (optParseSigned(text, &v) != 0) return PS_RC_BADVALUE;
    if (v < row->low || v > static_cast<int64_t>(row->high)) return PS_RC_BADVALUE;
    if (!fitsSigned(row->storage, v)) return PS_RC_BADVALUE;
    *out = static_cast<uint64_t>(v);
  } else {
    uint64_t v = 0;
    if (optParseUnsigned(text, &v) != 0) return PS_RC_BADVALUE;
    if (v < static_cast<uint64_t>(row->low) || v > row->high) return PS_RC_BADVALUE;
    if (!fitsUnsigned(row->storage, v)) return PS_RC_BADVALUE;
    *out = v;
  }
  return PS_RC_OK;
}

// Stores text into a fixed (7) or heap (8) field.
int storeText(void* f, const optionEntry* row, const std::string& text) {
  if (row->storage == ST_TEXT) {
    if (text.size() >= row->size) return PS_RC_BADVALUE;
    memcpy(f, text.c_str(), text.size() + 1);
    return PS_RC_OK;
  }
  if (row->storage == ST_HEAP) {
    char* copy = strdup(text.c_str());
    if (copy == nullptr) return PS_RC_NOMEM;
    char** p = static_cast<char**>(f);
    free(*p);
    *p = copy;
    return PS_RC_OK;
  }
  return PS_RC_BADVALUE;
}

std::string caseFor(const optionEntry* row, std::string s) {
  if (row->valueForm != VF_KEEPCASE) optUpper(s.data());
  return s;
}

// Dates "MM/DD/YYYY" or "YYYY-MM-DD", times "HH:MM[:SS]", into the 7-byte
// form: year (2 bytes, little end first), month, day, hour, minute, second.
int parseDate(const char* s, unsigned char* out) {
  int y = 0, m = 0, d = 0;
  char tail = 0;
  if (sscanf(s, "%d/%d/%d%c", &m, &d, &y, &tail) != 3 &&
      sscanf(s, "%d-%d-%d%c", &y, &m, &d, &tail) != 3)
    return PS_RC_BADVALUE;
  static const int days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (y < 1900 || y > 9999 || m < 1 || m > 12 || d < 1 || d > days[m - 1]) return PS_RC_BADVALUE;
  bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  if (m == 2 && d == 29 && !leap) return PS_RC_BADVALUE;
  out[0] = static_cast<unsigned char>(y & 0xFF);
  out[1] = static_cast<unsigned char>(y >> 8);
  out[2] = static_cast<unsigned char>(m);
  out[3] = static_cast<unsigned char>(d);
  return PS_RC_OK;
}

int parseTime(const char* s, unsigned char* out) {
  int h = 0, mi = 0, se = 0;
  char tail = 0;
  int n = sscanf(s, "%d:%d:%d%c", &h, &mi, &se, &tail);
  if (n != 2 && n != 3) return PS_RC_BADVALUE;
  if (h < 0 || h > 23 || mi < 0 || mi > 59 || se < 0 || se > 59) return PS_RC_BADVALUE;
  out[4] = static_cast<unsigned char>(h);
  out[5] = static_cast<unsigned char>(mi);
  out[6] = static_cast<unsigned char>(se);
  return PS_RC_OK;
}

optStringList* listOf(void* f) {
  optStringList** p = static_cast<optStringList**>(f);
  if (*p == nullptr) *p = new (std::nothrow) optStringList;
  return *p;
}

// Splits |value| into quoted or plain tokens.
int splitTokens(const char* value, std::vector<std::string>* out) {
  std::vector<char> buf(strlen(value) + 1);
  const char* p = skipBlanks(value);
  while (*p) {
    const char* rest = nullptr;
    int rc = optGetToken(p, buf.data(), buf.size(), &rest);
    if (rc != PS_RC_OK) return rc;
    if (buf[0] != '\0') out->push_back(buf.data());
    p = skipBlanks(rest);
  }
  return PS_RC_OK;
}

}  // namespace

// ---------------------------------------------------------------------------
// Token and number readers.

int optGetToken(const char* text, char* out, size_t outSize, const char** rest) {
  const char* p = skipBlanks(text);
  size_t n = 0;
  auto put = [&](char c) {
    if (n + 1 < outSize) out[n++] = c;
  };
  if (*p == '"' || *p == '\'') {
    char q = *p++;
    while (*p && *p != q) put(*p++);
    if (*p != q) {
      if (outSize) out[n] = '\0';
      return PS_RC_QUOTE;
    }
    ++p;
  } else {
    while (*p && !isBlank(*p)) put(*p++);
  }
  if (outSize) out[n] = '\0';
  if (rest) *rest = p;
  return PS_RC_OK;
}

int optParseSigned(const char* text, int64_t* out) {
  const char* p = skipBlanks(text);
  if (*p == '\0') return PS_RC_BADVALUE;
  errno = 0;
  char* end = nullptr;
  long long v = strtoll(p, &end, 0);
  if (end == p || errno == ERANGE || *skipBlanks(end) != '\0') return PS_RC_BADVALUE;
  *out = v;
  return PS_RC_OK;
}

int optParseUnsigned(const char* text, uint64_t* out) {
  const char* p = skipBlanks(text);
  // strtoull accepts a sign and negates; a user's "-1" is not a count.
  if (*p == '\0' || *p == '-' || *p == '+') return PS_RC_BADVALUE;
  errno = 0;
  char* end = nullptr;
  unsigned long long v = strtoull(p, &end, 0);
  if (end == p || errno == ERANGE || *skipBlanks(end) != '\0') return PS_RC_BADVALUE;
  *out = v;
  return PS_RC_OK;
}

// ---------------------------------------------------------------------------

int optGeneralCallback(optionObject* opts, const optionEntry* row, const char* value,
                       const char* name, int apply) {
  (void)name;
  void* f = opts->fieldOf(row);
  if (f == nullptr && row->parseKind != PK_INCLEXCL) return PS_RC_BADVALUE;
  std::string tok;
  int rc = PS_RC_OK;
  switch (row->parseKind) {
    case PK_TEXT: {
      if (row->storage == ST_DATE) {
        unsigned char d[7];
        memcpy(d, f, 7);
        rc = row->valueForm == VF_TIME ? parseTime(value, d) : parseDate(value, d);
        if (rc == PS_RC_OK && apply) memcpy(f, d, 7);
        return rc;
      }
      std::string text = caseFor(row, value);
      if (row->storage == ST_TEXT && text.size() >= row->size) return PS_RC_BADVALUE;
      return apply ? storeText(f, row, text) : PS_RC_OK;
    }
    case PK_YESNO:
    case PK_FLAG: {
      int v = static_cast<int>(row->low);
      if (*value != '\0') {
        if ((rc = wholeToken(value, &tok)) != PS_RC_OK) return rc;
        if (optReadToggle(tok.c_str(), static_cast<int>(row->low), &v) != 0) return PS_RC_BADVALUE;
      }
      if (apply) {
        if (row->storage == ST_YESNO)
          *static_cast<int32_t*>(f) = (v == row->low) ? 1 : 0;
        else
          storeNumber(f, row->storage, static_cast<uint64_t>(v));
      }
      return PS_RC_OK;
    }
    case PK_SWITCH: {
      // Without a value the switch stands for itself ("low"); a value (yes
      // or no) is for the option files only, "no" giving "high".
      int v = static_cast<int>(row->low);
      if (*value != '\0') {
        int mode = opts->optGetValidMode();
        if (mode != optSrcSystem && mode != optSrcUser) return PS_RC_BADVALUE;
        if ((rc = wholeToken(value, &tok)) != PS_RC_OK) return rc;
        int yes = 0;
        if (optReadToggle(tok.c_str(), 1, &yes) != 0) return PS_RC_BADVALUE;
        v = yes ? static_cast<int>(row->low) : static_cast<int>(row->high);
      }
      if (apply) storeNumber(f, row->storage, static_cast<uint64_t>(v));
      return PS_RC_OK;
    }
    case PK_TOKEN: {
      if ((rc = wholeToken(value, &tok)) != PS_RC_OK) return rc;
      if (tok.size() < static_cast<uint64_t>(row->low) || tok.size() > row->high)
        return PS_RC_BADVALUE;
      tok = caseFor(row, tok);
      if (row->storage == ST_TEXT && tok.size() >= row->size) return PS_RC_BADVALUE;
      return apply ? storeText(f, row, tok) : PS_RC_OK;
    }
    case PK_NUMBER: {
      uint64_t v = 0;
      if ((rc = parseRanged(row, value, &v)) != PS_RC_OK) return rc;
      if (apply) storeNumber(f, row->storage, v);
      return PS_RC_OK;
    }
    case PK_INCLEXCL: {
      inclExclList scratch;
      inclExclList& list = apply ? opts->ieList() : scratch;
      return list.add(static_cast<int>(row->low), static_cast<int>(row->high), value,
                      opts->optGetValidMode());
    }
    case PK_KEYWORD: {
      if ((rc = wholeToken(value, &tok)) != PS_RC_OK) return rc;
      int i = optFindKeyword(row->keywords, tok.c_str());
      if (i < 0) return PS_RC_BADVALUE;
      if (apply) storeNumber(f, row->storage, static_cast<uint64_t>(row->keywords[i].value));
      return PS_RC_OK;
    }
    default:
      // Own-callback rows (12) and unknown kinds have nothing to parse here.
      return PS_RC_BADVALUE;
  }
}

int optListCallback(optionObject* opts, const optionEntry* row, const char* value, const char* name,
                    int apply) {
  (void)name;
  std::vector<std::string> items;
  int rc = splitTokens(value, &items);
  if (rc != PS_RC_OK) return rc;
  if (items.empty()) return PS_RC_BADVALUE;
  if (!apply) return PS_RC_OK;
  optStringList* list = listOf(opts->fieldOf(row));
  if (list == nullptr) return PS_RC_NOMEM;
  bool keep = row->valueForm == VF_KEEPCASE;
  for (std::string& s : items) list->add(caseFor(row, s), keep);
  return PS_RC_OK;
}

int optNodeNameCallback(optionObject* opts, const optionEntry* row, const char* value,
                        const char* name, int apply) {
  (void)name;
  std::string tok;
  int rc = wholeToken(value, &tok);
  if (rc != PS_RC_OK) return rc;
  if (tok.size() < static_cast<uint64_t>(row->low) || tok.size() > row->high) return PS_RC_BADVALUE;
  for (char c : tok) {
    if (isBlank(c) || !isprint(static_cast<unsigned char>(c))) return PS_RC_BADVALUE;
  }
  optUpper(tok.data());
  return apply ? storeText(opts->fieldOf(row), row, tok) : PS_RC_OK;
}

int optLogNameCallback(optionObject* opts, const optionEntry* row, const char* value,
                       const char* name, int apply) {
  (void)name;
  std::string tok;
  int rc = wholeToken(value, &tok);
  if (rc != PS_RC_OK) return rc;
  if (tok.empty() || tok.size() > row->high) return PS_RC_BADVALUE;
  // A relative error-log name lives in the log directory; the schedule and
  // audit names keep what was written and get their prepared full names
  // after success.  "/" alone is start-up's "default name here" marker.
  std::string full = tok;
  if (row->id == OPT_ERRORLOGNAME && tok[0] != '/') {
    char buf[optPathSize];
    if (optBuildFullName(opts->logDir, tok.c_str(), '/', buf, sizeof(buf)) == nullptr)
      return PS_RC_BADVALUE;
    full = buf;
  }
  if (full.size() >= row->size) return PS_RC_BADVALUE;
  return apply ? storeText(opts->fieldOf(row), row, full) : PS_RC_OK;
}

int optLogRetentionCallback(optionObject* opts, const optionEntry* row, const char* value,
                            const char* name, int apply) {
  (void)name;
  // "N" (keep everything) or a number of days, then optionally D (discard
  // pruned lines, the default) or S (save them), separated by blank or comma.
  std::string text(value);
  for (char& c : text) {
    if (c == ',') c = ' ';
  }
  std::vector<std::string> words;
  int rc = splitTokens(text.c_str(), &words);
  if (rc != PS_RC_OK) return rc;
  if (words.empty() || words.size() > 2) return PS_RC_BADVALUE;
  uint64_t days = 0;
  optUpper(words[0].data());
  if (words[0] == "N") {
    days = 10000;
  } else if ((rc = parseRanged(row, words[0].c_str(), &days)) != PS_RC_OK) {
    return rc;
  }
  int save = 0;
  if (words.size() == 2) {
    optUpper(words[1].data());
    if (words[1] == "S")
      save = 1;
    else if (words[1] != "D")
      return PS_RC_BADVALUE;
  }
  if (!apply) return PS_RC_OK;
  storeNumber(opts->fieldOf(row), row->storage, days);
  if (row->id == OPT_ERRORLOGRETENTION)
    opts->errorLogRetentionSave = save;
  else
    opts->schedLogRetentionSave = save;
  return PS_RC_OK;
}

int optCommMethodCallback(optionObject* opts, const optionEntry* row, const char* value,
                          const char* name, int apply) {
  (void)name;
  std::string tok;
  int rc = wholeToken(value, &tok);
  if (rc != PS_RC_OK) return rc;
  int i = optFindKeyword(row->keywords, tok.c_str());
  if (i < 0) return PS_RC_BADVALUE;
  if (apply)
    storeNumber(opts->fieldOf(row), row->storage, static_cast<uint64_t>(row->keywords[i].value));
  return PS_RC_OK;
}

// Buffer and window sizes are written in kilobytes and kept in bytes.
static int kilobytesToBytes(optionObject* opts, const optionEntry* row, const char* value,
                            int apply) {
  uint64_t kb = 0;
  int rc = parseRanged(row, value, &kb);
  if (rc != PS_RC_OK) return rc;
  if (apply) storeNumber(opts->fieldOf(row), row->storage, kb * 1024);
  return PS_RC_OK;
}

int optTcpBuffSizeCallback(optionObject* opts, const optionEntry* row, const char* value,
                           const char* name, int apply) {
  (void)name;
  return kilobytesToBytes(opts, row, value, apply);
}

int optTcpWindowSizeCallback(optionObject* opts, const optionEntry* row, const char* value,
                             const char* name, int apply) {
  (void)name;
  return kilobytesToBytes(opts, row, value, apply);
}

int optUnitNumberCallback(optionObject* opts, const optionEntry* row, const char* value,
                          const char* name, int apply) {
  (void)name;
  // A count with an optional unit letter K, M or G; the count is kept as
  // written, the unit is recorded after success.  Range in kilobytes.
  std::string text(value);
  uint64_t factor = 1;
  if (!text.empty()) {
    char last = static_cast<char>(toupper(static_cast<unsigned char>(text.back())));
    if (last == 'K' || last == 'M' || last == 'G') {
      factor = last == 'G' ? 1024u * 1024u : last == 'M' ? 1024u : 1u;
      text.pop_back();
    }
  }
  uint64_t n = 0;
  if (text.empty() || optParseUnsigned(text.c_str(), &n) != 0) return PS_RC_BADVALUE;
  if (n > UINT32_MAX) return PS_RC_BADVALUE;
  uint64_t kb = n * factor;
  if (kb < static_cast<uint64_t>(row->low) || kb > row->high) return PS_RC_BADVALUE;
  if (apply) storeNumber(opts->fieldOf(row), row->storage, n);
  return PS_RC_OK;
}

static int formatNumber(optionObject* opts, const optionEntry* row, const char* value, int apply) {
  uint64_t v = 0;
  int rc = parseRanged(row, value, &v);
  if (rc != PS_RC_OK) return rc;
  if (apply) storeNumber(opts->fieldOf(row), row->storage, v);
  return PS_RC_OK;
}

int optDateFormatCallback(optionObject* opts, const optionEntry* row, const char* value,
                          const char* name, int apply) {
  (void)name;
  return formatNumber(opts, row, value, apply);
}

int optTimeFormatCallback(optionObject* opts, const optionEntry* row, const char* value,
                          const char* name, int apply) {
  (void)name;
  return formatNumber(opts, row, value, apply);
}

int optNumberFormatCallback(optionObject* opts, const optionEntry* row, const char* value,
                            const char* name, int apply) {
  (void)name;
  return formatNumber(opts, row, value, apply);
}

int optLanguageCallback(optionObject* opts, const optionEntry* row, const char* value,
                        const char* name, int apply) {
  (void)name;
  // A locale name such as EN_US, DE_DE or en_US.UTF-8, kept upper-cased.
  std::string tok;
  int rc = wholeToken(value, &tok);
  if (rc != PS_RC_OK) return rc;
  if (tok.size() < static_cast<uint64_t>(row->low) || tok.size() > row->high) return PS_RC_BADVALUE;
  for (char c : tok) {
    if (!isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '.' && c != '-' && c != '@')
      return PS_RC_BADVALUE;
  }
  optUpper(tok.data());
  if (!apply) return PS_RC_OK;
  rc = storeText(opts->fieldOf(row), row, tok);
  // The message system opens its national catalogue in this language.
  if (rc == PS_RC_OK) nlSetLocale(tok.c_str());
  return rc;
}

int optVirtualMountPointCallback(optionObject* opts, const optionEntry* row, const char* value,
                                 const char* name, int apply) {
  (void)name;
  std::string dir;
  int rc = wholeToken(value, &dir);
  if (rc != PS_RC_OK) return rc;
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  // One absolute directory below the root; the root is a file space anyway.
  if (dir.size() < 2 || dir[0] != '/' || dir.size() >= optDirSize) return PS_RC_BADVALUE;
  if (!apply) return PS_RC_OK;
  optStringList* list = listOf(opts->fieldOf(row));
  if (list == nullptr) return PS_RC_NOMEM;
  list->add(dir);
  return PS_RC_OK;
}

int optInclExclCallback(optionObject* opts, const optionEntry* row, const char* value,
                        const char* name, int apply) {
  (void)name;
  std::string file;
  int rc = wholeToken(value, &file);
  if (rc != PS_RC_OK) return rc;
  if (file.empty() || file.size() >= optPathSize) return PS_RC_BADVALUE;
  if (!apply) return PS_RC_OK;
  FILE* fp = fopen(file.c_str(), "r");
  if (fp == nullptr) {
    optSetError(&opts->lastError, OPT_RC_OPENFAIL, file.c_str(), "", 0, file.c_str());
    return OPT_RC_OPENFAIL;
  }
  // The file's lines are include and exclude rules, read under the
  // include-exclude file's source.
  int saved = opts->optGetValidMode();
  opts->optSetValidMode(optSrcIEFile);
  char line[optLineBufSize];
  unsigned lineNo = 0;
  rc = PS_RC_OK;
  while (rc == PS_RC_OK && utGetNextLine(fp, line, sizeof(line), &lineNo)) {
    std::string copy(line);
    rc = opts->optValidateOptionStr(line, lineNo, 1, opts->procMode());
    if (rc != PS_RC_OK) {
      char tokenBuf[optLineBufSize];
      optGetToken(copy.c_str(), tokenBuf, sizeof(tokenBuf), nullptr);
      optSetError(&opts->lastError, rc, tokenBuf, copy.c_str(), lineNo, file.c_str());
    }
  }
  fclose(fp);
  opts->optSetValidMode(saved);
  if (rc != PS_RC_OK) return rc == OPT_RC_SOURCE ? PS_RC_BADVALUE : rc;
  optStringList* list = listOf(opts->fieldOf(row));
  if (list == nullptr) return PS_RC_NOMEM;
  list->add(file);
  return PS_RC_OK;
}

// ---------------------------------------------------------------------------
// Trace options: stored, then handed to the trace facility.

int optTraceFileCallback(optionObject* opts, const optionEntry* row, const char* value,
                         const char* name, int apply) {
  (void)name;
  std::string file;
  int rc = wholeToken(value, &file);
  if (rc != PS_RC_OK) return rc;
  if (file.empty() || file.size() >= row->size) return PS_RC_BADVALUE;
  if (!apply) return PS_RC_OK;
  if (optTraceSetFileName(file.c_str()) != 0) return PS_RC_BADVALUE;
  return storeText(opts->fieldOf(row), row, file);
}

int optTraceFlagsCallback(optionObject* opts, const optionEntry* row, const char* value,
                          const char* name, int apply) {
  (void)name;
  std::string flags(value);
  if (flags.empty() || flags.size() >= row->size) return PS_RC_BADVALUE;
  optUpper(flags.data());
  if (!apply) return PS_RC_OK;
  if (optTraceEnable(flags.c_str()) != 0) return PS_RC_BADVALUE;
  return storeText(opts->fieldOf(row), row, flags);
}

int optTestFlagsCallback(optionObject* opts, const optionEntry* row, const char* value,
                         const char* name, int apply) {
  (void)name;
  std::string flags(value);
  if (flags.empty() || flags.size() >= row->size) return PS_RC_BADVALUE;
  optUpper(flags.data());
  if (!apply) return PS_RC_OK;
  if (optTraceTestFlags(flags.c_str()) != 0) return PS_RC_BADVALUE;
  return storeText(opts->fieldOf(row), row, flags);
}
