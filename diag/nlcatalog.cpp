// Opening the catalogues and reading messages from them.
#include <langinfo.h>
#include <strings.h>

#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <new>

#include "diag/diag_status.h"
#include "diag/globalrc.h"
#include "diag/logfile.h"
#include "diag/nlsobject.h"
#include "diag/trace.h"

char qmxLocale[nlMaxLocale + 1];
char Language[nlMaxLocale + 1];
char CodePage[64];

namespace {

const char kDefaultText[] = "ANS1111M Error retrieving message %d from qmxclientV3.cat.\n";

// Two-letter languages and the directory of their catalogue.
const struct {
  const char* given;
  const char* dir;
} kTwoLetter[] = {
    {"CZ", "CS_CZ"}, {"DE", "DE_DE"}, {"EN", "EN_US"}, {"ES", "ES_ES"}, {"FR", "FR_FR"},
    {"HU", "HU_HU"}, {"IT", "IT_IT"}, {"JA", "JA_JP"}, {"KO", "KO_KR"}, {"PL", "PL_PL"},
    {"PT", "PT_BR"}, {"RU", "RU_RU"}, {"ZH", "ZH_CN"},
};

// Severity letters, indexed by code; M (retired) is handled apart.
const char kSevLetters[] = "ZTRKIWESL";

void UpperCase(char* s) {
  for (; *s != '\0'; ++s) *s = static_cast<char>(toupper(static_cast<unsigned char>(*s)));
}

bool EndsWith(const char* s, const char* tail) {
  size_t a = strlen(s), b = strlen(tail);
  return a >= b && memcmp(s + a - b, tail, b) == 0;
}

// True for a locale that means "no particular language": C, POSIX, and
// those with a code set only ("C.UTF-8").
bool IsPlainLocale(const char* loc) {
  size_t n = strcspn(loc, ".@");
  return (n == 1 && (loc[0] == 'C' || loc[0] == 'c')) ||
         (n == 5 && strncasecmp(loc, "POSIX", 5) == 0);
}

bool TryOpen(const char* path, nl_catd* cat) {
  *cat = catopen(path, NL_CAT_LOCALE);
  return nlCatOpen(*cat);
}

// Builds dir/lang/name into |path|; false when it would not fit.
bool CatPath(char* path, const char* dir, const char* lang, const char* name) {
  int n = snprintf(path, nlMaxPath, "%s/%s/%s", dir, lang, name);
  return n >= 0 && static_cast<size_t>(n) < nlMaxPath;
}

// Converts the template part of |text| (from |from| on) to the local code
// page.  The identifier and the insert table are ASCII and stay as they are.
bool ToLocal(std::string* text, size_t from) {
  if (nlsObj->toLocal == reinterpret_cast<iconv_t>(-1) || from >= text->size()) return true;
  std::string in = text->substr(from);
  std::string out(in.size() * 4 + 16, '\0');
  char* ip = in.data();
  size_t il = in.size();
  char* op = out.data();
  size_t ol = out.size();
  iconv(nlsObj->toLocal, nullptr, nullptr, nullptr, nullptr);
  while (il > 0) {
    if (iconv(nlsObj->toLocal, &ip, &il, &op, &ol) == static_cast<size_t>(-1)) {
      if (errno == E2BIG) return false;
      // A character the local code page lacks: show '?' and go on.
      if (ol == 0) return false;
      *op++ = '?';
      --ol;
      ++ip;
      --il;
    }
  }
  out.resize(out.size() - ol);
  text->replace(from, std::string::npos, out);
  return true;
}

}  // namespace

std::string nlNormaliseLanguage(const char* lang) {
  std::string s = lang;
  if (strcasecmp(lang, "zh_TW.BIG5") == 0) return "Zh_TW";
  size_t dot = s.find('.');
  if (dot != std::string::npos) s.resize(dot);
  if (s.size() == 2) {
    std::string up = s;
    for (char& c : up) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    for (const auto& row : kTwoLetter) {
      if (up == row.given) return row.dir;
    }
    if (TR_NLS) {
      trPrintf(__FILE__, __LINE__,
               "Language specification \"%s\" not found, substituting US English\n", lang);
    }
    return "EN_US";
  }
  if (IsPlainLocale(s.c_str())) return "EN_US";
  return s;
}

// Opens the catalogue |name| of |lang| under |dir|: the full path, then the
// bare name through the system's search path, then the normalised language.
// On failure the last path tried is kept as the failed repository.
bool nlOpenCat(const char* dir, const char* lang, const char* name, nl_catd* cat) {
  char path[nlMaxPath];
  if (!CatPath(path, dir, lang, name)) {
    if (TR_NLS) trPrintf(__FILE__, __LINE__, "openCat(): The passed arguments are too long\n");
    return false;
  }
  if (TryOpen(path, cat)) return true;
  if (TryOpen(name, cat)) return true;
  std::string norm = nlNormaliseLanguage(lang);
  if (!CatPath(path, dir, norm.c_str(), name)) {
    if (TR_NLS) trPrintf(__FILE__, __LINE__, "openCat(): The passed arguments are too long\n");
    return false;
  }
  if (TryOpen(path, cat)) return true;
  snprintf(nlsObj->failedRepository, sizeof nlsObj->failedRepository, "%s", path);
  if (TR_NLS) trPrintf(__FILE__, __LINE__, "openCat(): cannot open %s\n", path);
  return false;
}

NLSMsg* ReadMsg(nl_catd cat, unsigned num, bool quietAbsent) {
  char* wb = nlsObj->workBuf;
  if (!nlCatOpen(cat)) {
    const char* t = "Cannot get an NLS message due to catalog file is closed\n";
    if (TR_NLS) trPrintf(__FILE__, __LINE__, "%s", t);
    if (DLogFile::errorLogFile.isOpen()) LogMsg(t);
    return nullptr;
  }
  const char* raw = catgets(cat, 1, static_cast<int>(num), kDefaultText);
  if (raw == nullptr || raw == kDefaultText || EndsWith(raw, kDefaultText)) {
    if (quietAbsent) return nullptr;
    snprintf(wb, nlWorkBufSize, "ANS9999E %s(%u): Message No %u could not be found.\n", __FILE__,
             __LINE__, num);
    nlIssueInternal(nlsevE, wb);
    return nullptr;
  }
  // The severity letter follows the digits that start at the fourth
  // character: four digits, or five for the higher numbers.
  size_t digits = 0;
  while (digits < 5 && isdigit(static_cast<unsigned char>(raw[3 + digits]))) ++digits;
  if (strlen(raw) < 3) digits = 0;
  char letter = (digits == 4 || digits == 5) ? raw[3 + digits] : '\0';
  if (letter == 'M') return nullptr;  // retired
  const char* hit = letter != '\0' ? strchr(kSevLetters, letter) : nullptr;
  NLSMsg* m = nullptr;
  if (hit != nullptr) {
    m = new (std::nothrow) NLSMsg;
    if (m == nullptr) {
      nlIssueInternal(nlsevE,
                      "ANS0109E Insufficient memory for allocation of message structure.\n");
      if (pGlobalRC != nullptr) pGlobalRC->set(9999);
      return nullptr;
    }
    m->num = num;
    m->sev = static_cast<unsigned char>(hit - kSevLetters);
    const size_t idEnd = 3 + digits + 1;  // just past the letter
    if (m->sev <= nlsevR || m->sev == nlsevL) {
      const char* body = raw + idEnd;
      if (*body == ' ') ++body;
      m->text = body;
      m->idLen = 0;
    } else {
      // Five-digit numbers show four: the first digit is dropped.
      m->text.assign(raw, 3);
      m->text.append(raw + 3 + (digits - 4));
      m->idLen = 9;
    }
    // The trailer: what follows the last 0x12 within the last 15 bytes.
    size_t len = m->text.size();
    size_t from = len > 15 ? len - 15 : 0;
    size_t mark = m->text.find_last_of('\x12');
    if (mark != std::string::npos && mark >= from) {
      snprintf(m->trailer, sizeof m->trailer, "%s", m->text.c_str() + mark + 1);
      m->text.resize(mark);
    }
    size_t table = m->text.size() > m->idLen ? nlInsertTableLength(m->text.c_str() + m->idLen) : 0;
    if (table == 0 || !ToLocal(&m->text, m->idLen + table) ||
        nlDecodeBody(m->text.c_str() + m->idLen, &m->body) != 0) {
      delete m;
      m = nullptr;
    }
  }
  if (m == nullptr) {
    snprintf(wb, nlWorkBufSize, "ANS9999E %s(%u): Message No %u is corrupted.\n", __FILE__,
             __LINE__, num);
    nlIssueInternal(nlsevE, wb);
  }
  return m;
}

int ReadIndex(const char* repository, unsigned num, unsigned* entry) {
  psMutexGuard g(&nls_mutex);  // the work buffer is shared
  char* wb = nlsObj != nullptr ? nlsObj->workBuf : nullptr;
  char local[nlWorkBufSize];
  if (wb == nullptr) wb = local;
  FILE* f = fopen(repository, "rb");
  unsigned char b[2];
  bool ok = f != nullptr && fseek(f, 2L * num + 62, SEEK_SET) == 0 && fread(b, 1, 2, f) == 2;
  if (f != nullptr) fclose(f);
  if (!ok) {
    snprintf(wb, nlWorkBufSize,
             "ANS0105E Error trying to read index for message %u from repository '%s'.\n", num,
             repository);
    nlIssueInternal(nlsevE, wb);
    if (pGlobalRC != nullptr) pGlobalRC->set(9999);
    return DIAG_RC_MSGINDEX;
  }
  *entry = (static_cast<unsigned>(b[0]) << 8) | b[1];
  if (*entry == 0) {
    snprintf(wb, nlWorkBufSize, "ANS0106E Message index not found for message %u.\n", num);
    nlIssueInternal(nlsevE, wb);
    if (pGlobalRC != nullptr) pGlobalRC->set(9999);
    return DIAG_RC_MSGINDEX;
  }
  return 0;
}

void nlSetLocale(const char* language) {
  psMutexGuard g(&nls_mutex);
  snprintf(qmxLocale, sizeof qmxLocale, "%s", language != nullptr ? language : "");
  UpperCase(qmxLocale);
}

int initMsgSys(const char* language, const char* catName, int clientType, unsigned cacheSize,
               const char* msgDir, nlInitInfo_t* info) {
  psMutexGuard g(&nls_mutex);
  if (nlsObj == nullptr) return DIAG_RC_NOCATALOG;
  if (language == nullptr) language = "";
  if (msgDir == nullptr) msgDir = ".";
  if (strlen(language) > 1279 || strlen(msgDir) > 1024) return DIAG_RC_NOCATALOG;
  nlsObj->catName = (catName != nullptr && *catName != '\0' && clientType >= 9 && clientType <= 11)
                        ? catName
                        : nlDefaultCatalogue;
  const char* name = nlsObj->catName.c_str();
  nlsObj->cacheLimit = cacheSize > 0 ? cacheSize : 1;
  if (*language != '\0') {
    nlFlushCache(&nlsObj->engCache);
    nlFlushCache(&nlsObj->natCache);
  }
  char* wb = nlsObj->workBuf;

  if (!nlCatOpen(nlsObj->engCat) && !nlOpenCat(msgDir, "EN_US", name, &nlsObj->engCat)) {
    snprintf(wb, nlWorkBufSize,
             "ANS0102W Unable to open the message repository %s. The American English "
             "repository will be used instead.\n",
             nlsObj->failedRepository);
    nlIssueInternal(nlsevW, wb);
    return DIAG_RC_NOCATALOG;
  }

  // The process takes its locale (and so its code page) from the
  // environment; an embedding program owns its locale and is left alone.
  const bool ownsLocale = clientType != nlClientTypeAPI && clientType != 9;
  if (ownsLocale) setlocale(LC_ALL, "");

  // The local code page, and a converter from the catalogues' UTF-8.
  snprintf(CodePage, sizeof CodePage, "%s", nl_langinfo(CODESET));
  if (nlsObj->toLocal != reinterpret_cast<iconv_t>(-1)) {
    iconv_close(nlsObj->toLocal);
    nlsObj->toLocal = reinterpret_cast<iconv_t>(-1);
  }
  bool converterOk = true;
  if (strcasecmp(CodePage, "UTF-8") != 0 && strcasecmp(CodePage, "UTF8") != 0) {
    std::string to = std::string(CodePage) + "//TRANSLIT";
    nlsObj->toLocal = iconv_open(to.c_str(), "UTF-8");
    converterOk = nlsObj->toLocal != reinterpret_cast<iconv_t>(-1);
  }

  bool nationalWanted = false;
  if (*language != '\0') {
    if (qmxLocale[0] != '\0') {
      if (!converterOk) {
        snprintf(wb, nlWorkBufSize,
                 "ANS0121W Unable to open the iconv converter for the message repository %s. "
                 "The American English repository will be used instead.\n",
                 CodePage);
        nlIssueInternal(nlsevW, wb);
        snprintf(qmxLocale, sizeof qmxLocale, "EN_US");
      } else {
        nationalWanted = true;
      }
    } else {
      const char* loc;
      if (!ownsLocale) {
        loc = getenv("LC_ALL");
        if (loc == nullptr || *loc == '\0') loc = getenv("LC_MESSAGES");
        if (loc == nullptr || *loc == '\0') loc = getenv("LANG");
      } else {
        loc = setlocale(LC_MESSAGES, nullptr);
      }
      if (loc == nullptr || *loc == '\0') loc = "C";
      snprintf(qmxLocale, sizeof qmxLocale, "%s", IsPlainLocale(loc) ? "EN_US" : loc);
      UpperCase(qmxLocale);
      nationalWanted = !IsPlainLocale(loc);
    }
  }

  if (nlsObj->natCat != nlsObj->engCat && nlCatOpen(nlsObj->natCat)) catclose(nlsObj->natCat);
  nlsObj->natCat = nlsObj->engCat;
  nlFlushCache(&nlsObj->natCache);
  if (nationalWanted && nlNormaliseLanguage(qmxLocale) != "EN_US") {
    nl_catd nat;
    if (nlOpenCat(msgDir, qmxLocale, name, &nat)) {
      nlsObj->natCat = nat;
    } else {
      bool fits = strlen(name) + strlen(qmxLocale) + strlen(msgDir) < nlMaxPath;
      snprintf(wb, nlWorkBufSize,
               "ANS0102W Unable to open the message repository %s. The American English "
               "repository will be used instead.\n",
               fits ? nlsObj->failedRepository : "???");
      snprintf(qmxLocale, sizeof qmxLocale, "EN_US");
      nlIssueInternal(nlsevW, wb);
    }
  }
  snprintf(Language, sizeof Language, "%.*s", static_cast<int>(strcspn(qmxLocale, ".")), qmxLocale);
  if (TR_NLS) {
    trPrintf(__FILE__, __LINE__, "initMsgSys(): locale '%s', code page '%s', catalogue '%s'\n",
             qmxLocale, CodePage, name);
  }
  nlsObj->openedLocale = qmxLocale;
  trSetMessageHook(nlTraceMessage);
  if (info != nullptr) snprintf(info->locale, sizeof info->locale, "%s", qmxLocale);
  return 0;
}

int termMsgSys() {
  psMutexGuard g(&nls_mutex);
  if (nlsObj == nullptr) return 0;
  nlFlushCache(&nlsObj->engCache);
  nlFlushCache(&nlsObj->natCache);
  if (nlsObj->natCat != nlsObj->engCat && nlCatOpen(nlsObj->natCat)) catclose(nlsObj->natCat);
  if (nlCatOpen(nlsObj->engCat)) catclose(nlsObj->engCat);
  nlsObj->engCat = nlsObj->natCat = reinterpret_cast<nl_catd>(-1);
  trSetMessageHook(nullptr);  // the trace facility falls back to plain text
  if (nlsObj->toLocal != reinterpret_cast<iconv_t>(-1)) {
    iconv_close(nlsObj->toLocal);
    nlsObj->toLocal = reinterpret_cast<iconv_t>(-1);
  }
  nlsObj->initialised = 0;
  return 0;
}

void nlterm() {
  termMsgSys();
}

int nlinit(const char* language, unsigned cacheSize, const char* msgDir, int clientType,
           int dateFormat, int timeFormat, int numberFormat, nlInitInfo_t* info,
           const char* catName) {
  if (language == nullptr || *language == '\0') return DIAG_RC_NOCATALOG;
  psMutexGuard g(&nls_mutex);
  if (nlsObj == nullptr) return DIAG_RC_NOCATALOG;
  nlsObj->oemLogMsgs = TEST_OEMLOGMSGS.set;
  nlsObj->ansiNlsRepos = TEST_ANSINLSREPOS.set;
  nlsObj->oemDisplay = TEST_OEMDISPLAY.set;
  nlsObj->ansiInput = TEST_ANSIINPUT.set;
  nlsObj->outputMode = clientType;
  nlsObj->dateFormat = dateFormat;
  nlsObj->timeFormat = timeFormat;
  nlsObj->numberFormat = numberFormat;
  nlApplyFormats(dateFormat, timeFormat, numberFormat);
  int rc = 0;
  if (!nlsObj->initialised || (qmxLocale[0] != '\0' && nlsObj->openedLocale != qmxLocale)) {
    // First start, or the LANGUAGE option named another language since.
    rc = initMsgSys(language, catName, clientType, cacheSize, msgDir, info);
  } else if (cacheSize > 0) {
    nlsObj->cacheLimit = cacheSize;
  }
  if (rc != 0) return rc;
  // The locale may have changed under the formats that follow it.
  nlApplyFormats(dateFormat, timeFormat, numberFormat);
  nlsObj->initialised = 1;
  DLogFile::loadMarkers();
  if (info != nullptr) {
    if (info->locale[0] == '\0') snprintf(info->locale, sizeof info->locale, "%s", qmxLocale);
    info->dateFormat = getDateFmt();
    info->timeFormat = getTimeFmt();
    info->numberFormat = getNumberFmt();
  }
  return 0;
}
