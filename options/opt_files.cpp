// Reading the option files: the line reader, locating the user and system
// option files, the user file and the system file's server stanza.
#include <strings.h>

#include <cctype>
#include <cstring>
#include <string>

#include "diag/trace.h"
#include "options/opt_callbacks.h"
#include "options/opt_internal.h"
#include "options/optobj.h"
#include "platform/services.h"
#include "platform/sysroot.h"

namespace {
const char kUserOptName[] = "qmx.opt";
const char kSysOptPath[] = "/opt/norvik/nqb/client/ba/bin/qmx.sys";
const char kApiSysOptPath[] = "/opt/norvik/nqb/client/api/bin/qmx.sys";

// Options that may stand before the first stanza of the system file.
const uint16_t kPrologOptions[] = {
    OPT_DEFAULTSERVER,      OPT_MIGRATESERVER,     OPT_CHECKTHRESHOLDS,  OPT_RECONCILEINTERVAL,
    OPT_CANDIDATESINTERVAL, OPT_MAXTHRESHOLDPROC,  OPT_MAXRECONCILEPROC, OPT_MINRECALLDAEMONS,
    OPT_MAXRECALLDAEMONS,   OPT_MIGFILEEXPIRATION, OPT_MINMIGFILESIZE,   OPT_MAXMIGRATORS,
    OPT_MAXCANDPROCS,       OPT_OVERLAPRECALL,     OPT_CHECKFORORPHANS,  OPT_HSMDISTRIBUTEDRECALL,
};

bool isPrologOption(int id) {
  for (uint16_t p : kPrologOptions) {
    if (p == id) return true;
  }
  return false;
}

// The options that the early passes apply: trace and option-file options.
bool isPrescanOption(int id) {
  switch (id) {
    case OPT_TRACEFILE:
    case OPT_TRACEFLAGS:
    case OPT_TRACEMAX:
    case OPT_TRACESEGSIZE:
    case OPT_TESTFLAGS:
    case OPT_TFLAGS:
    case OPT_ERRORPROG:
    case OPT_OPTFILE:
      return true;
    default:
      return false;
  }
}

// An option line split into its upper-cased name and its value.
struct optLine {
  std::string original;  // the line as read, for error records
  std::string name;
  std::string value;
};

void splitLine(const char* line, optLine* out) {
  out->original = line;
  std::string text(line);
  optTrim(text.data());
  text.resize(strlen(text.c_str()));
  size_t i = 0;
  while (i < text.size() && !isspace(static_cast<unsigned char>(text[i]))) ++i;
  out->name = text.substr(0, i);
  optUpper(out->name.data());
  std::string value = text.substr(i);
  optSqueezeBlanks(value.data());
  optTrim(value.data());
  value.resize(strlen(value.c_str()));
  out->value = value;
}

FILE* openReadable(const char* name) {
  return fopen(name, "r");
}
}  // namespace

// ---------------------------------------------------------------------------

int utGetNextLine(FILE* fp, char* buf, size_t size, unsigned* lineNo) {
  if (fp == nullptr || buf == nullptr || size < 2) return 0;
  while (fgets(buf, static_cast<int>(size), fp) != nullptr) {
    ++*lineNo;
    size_t n = strlen(buf);
    if (n > 0 && buf[n - 1] == '\n') {
      buf[--n] = '\0';
    } else if (n + 1 == size) {
      // Longer than the buffer: the rest of the physical line is dropped,
      // and the cut line fails validation where it matters.
      int c;
      while ((c = fgetc(fp)) != EOF && c != '\n') {
      }
    }
    if (n > 0 && buf[n - 1] == '\r') buf[--n] = '\0';
    const char* p = buf;
    while (isspace(static_cast<unsigned char>(*p))) ++p;
    if (*p == '\0' || *p == '*') continue;
    return 1;
  }
  return 0;
}

void optSqueezeBlanks(char* text) {
  char* out = text;
  const char* in = text;
  while (*in && *in != '"') {
    if (isspace(static_cast<unsigned char>(*in))) {
      *out++ = ' ';
      while (isspace(static_cast<unsigned char>(*in))) ++in;
    } else {
      *out++ = *in++;
    }
  }
  if (out != in) memmove(out, in, strlen(in) + 1);
}

// ---------------------------------------------------------------------------
// Locating the files.

int clientOptions::optOpenUserOptionFile(const char* explicitName, FILE** fp, optError* err) {
  *fp = nullptr;
  const char* name = nullptr;
  bool mustExist = true;
  char path[optPathSize];
  if (explicitName != nullptr && *explicitName) {
    name = explicitName;
  } else if (optFile[0]) {
    name = optFile;
  } else {
    const euEnvironment_t* env = euGetEnvironment(0);
    const char* config = clientType_ == ctCLAPI ? env->qmxiConfig : env->qmxConfig;
    if (config != nullptr && *config) {
      name = config;
    } else {
      std::string dir =
          optDir[0] ? std::string(optDir) : psSysPath("/opt/norvik/nqb/client/ba/bin");
      if (optBuildFullName(dir.c_str(), kUserOptName, '/', path, sizeof(path)) == nullptr)
        return optSetError(err, OPT_RC_OPENFAIL, kUserOptName, "", 0, kUserOptName);
      name = path;
      mustExist = false;
    }
  }
  *fp = openReadable(name);
  if (*fp == nullptr) {
    if (!mustExist) return PS_RC_OK;
    return optSetError(err, OPT_RC_OPENFAIL, name, "", 0, name);
  }
  snprintf(userOptFile, sizeof(userOptFile), "%s", name);
  userOptFileOpened = true;
  return PS_RC_OK;
}

int clientOptions::optOpenSystemOptionFile(const char* explicitName, FILE** fp, optError* err) {
  *fp = nullptr;
  char path[optPathSize];
  if (explicitName != nullptr && *explicitName) {
    snprintf(path, sizeof(path), "%s", explicitName);
  } else {
    std::string builtIn = psSysPath(clientType_ == ctCLAPI ? kApiSysOptPath : kSysOptPath);
    snprintf(path, sizeof(path), "%s", builtIn.c_str());
    if (optDir[0]) {
      const char* last = strrchr(builtIn.c_str(), '/');
      optBuildFullName(optDir, last ? last + 1 : builtIn.c_str(), '/', path, sizeof(path));
    }
  }
  *fp = openReadable(path);
  if (*fp == nullptr) {
    optMsgOpenFailed(path);
    return optSetError(err, OPT_RC_OPENFAIL, path, "", 0, path);
  }
  snprintf(sysOptFile, sizeof(sysOptFile), "%s", path);
  return PS_RC_OK;
}

// ---------------------------------------------------------------------------

int clientOptions::optProcessOptions(int store, const char* fileName, int mode, optError* err,
                                     int prescan) {
  TRACE_ENTER_EXIT("clientOptions::optProcessOptions");
  if (err == nullptr) return PS_RC_BADARG;
  if (store < optStoreSingle || store > optStoreUpdate) return PS_RC_BADARG;
  optClearError(err);
  int savedProc = setProcMode(mode);
  int rc = PS_RC_OK;
  FILE* fp = nullptr;
  switch (store) {
    case optStoreSingle:
    case optStoreUser:
    case optStoreUpdate: {
      validMode_ = store == optStoreSingle ? optSrcStore0 : optSrcUser;
      rc = optOpenUserOptionFile(fileName, &fp, err);
      if (rc != PS_RC_OK) break;
      if (store != optStoreUpdate && !prescan) {
        // A fresh read starts from the defaults (late rows keep theirs).
        setDefaults(0);
        // The error log's default comes from the environment's directories.
        optBuildFullName(logDir, "qmxerror.log", '/', errorLogName, sizeof(errorLogName));
        optBuildLogNames(this);
        ieList().setSpecialChars('*', '?');
        if (clientType_ != ctCLAPI) optComputerName(nodeName, sizeof(nodeName));
      }
      if (fp != nullptr) rc = optProcOptions(fp, userOptFile, err, prescan);
      validMode_ = optSrcUser;
      break;
    }
    case optStoreSystem:
      validMode_ = optSrcSystem;
      rc = optOpenSystemOptionFile(fileName, &fp, err);
      if (rc == PS_RC_OK) rc = optProcSysOptions(fp, sysOptFile, err, prescan);
      validMode_ = optSrcUser;
      break;
  }
  if (fp != nullptr) fclose(fp);
  setProcMode(savedProc);
  TRACE_Fkt(__FILE__, __LINE__)(TR_CONFIG, "optProcessOptions: store %d%s, file '%s', rc %d\n",
                                store, prescan ? " (pre-scan)" : "",
                                store == optStoreSystem ? sysOptFile : userOptFile, rc);
  if (rc != PS_RC_OK) {
    err->rc = rc;
    lastError = *err;
  }
  return rc;
}

int clientOptions::optPrescanOptFile(const char* fileName, optError* err) {
  return optProcessOptions(optStoreUser, fileName, procMode_, err, 1);
}

int clientOptions::optPrescanSysOptFile(const char* fileName, optError* err) {
  return optProcessOptions(optStoreSystem, fileName, procMode_, err, 1);
}

int clientOptions::optPrescanTrOpt(optError* err) {
  int rc = optPrescanOptFile(nullptr, err);
  if (rc != PS_RC_OK) return rc;
  if (traceFile[0]) {
    rc = optTraceBegin(traceFile);
    if (rc != 0) return optSetError(err, rc, traceFile, "", 0, traceFile);
  }
  return PS_RC_OK;
}

// Validates one option line of an option file.  |where| names the file or
// the stanza for message 1691.
int clientOptions::validateLine(char* line, unsigned lineNo, const char* fileName, optError* err,
                                int prescan) {
  optLine l;
  splitLine(line, &l);
  int id = optGetOptionId(l.name.c_str());
  if (id < 0 || id == OPT_END_ID)
    return optSetError(err, PS_RC_BADVALUE, l.name.c_str(), l.original.c_str(), lineNo, fileName);
  const optionEntry* row = optGetRow(id);
  if (prescan && row != nullptr && row->late) return PS_RC_OK;
  int apply = prescan ? isPrescanOption(id) : 1;
  int rc = optValidateOption2(l.value.c_str(), l.name.c_str(), lineNo, apply, procMode_, id);
  if (rc == OPT_RC_SOURCE) {
    if (prescan) {
      // The early pass of the system file refuses what the stanza may not
      // hold; the user file's full read reports it instead.
      if (validMode_ == optSrcSystem)
        return optSetError(err, PS_RC_BADVALUE, l.name.c_str(), l.original.c_str(), lineNo,
                           fileName);
      return PS_RC_OK;
    }
    optMsgSourceNotAllowed(l.name.c_str(),
                           validMode_ == optSrcSystem && stanzaName[0] ? stanzaName : fileName,
                           lineNo);
    return PS_RC_OK;
  }
  if (rc != PS_RC_OK)
    return optSetError(err, rc, l.name.c_str(), l.original.c_str(), lineNo, fileName);
  return PS_RC_OK;
}

int clientOptions::optProcOptions(FILE* fp, const char* fileName, optError* err, int prescan) {
  char line[optLineBufSize];
  unsigned lineNo = 0;
  while (utGetNextLine(fp, line, sizeof(line), &lineNo)) {
    int rc = validateLine(line, lineNo, fileName, err, prescan);
    if (rc != PS_RC_OK) return rc;
  }
  // A file that cannot be read to its end (a directory, an I/O error) is as
  // good as one that cannot be opened.
  if (ferror(fp)) return optSetError(err, OPT_RC_OPENFAIL, fileName, "", lineNo, fileName);
  return PS_RC_OK;
}

int clientOptions::optProcSysOptions(FILE* fp, const char* fileName, optError* err, int prescan) {
  const optSharedTable& names = sharedTable();
  char line[optLineBufSize];
  unsigned lineNo = 0;
  int rc = PS_RC_OK;

  // 1. The prolog: lines before the first stanza.
  while (utGetNextLine(fp, line, sizeof(line), &lineNo) || ferror(fp)) {
    if (ferror(fp)) return optSetError(err, OPT_RC_OPENFAIL, fileName, "", lineNo, fileName);
    optLine l;
    splitLine(line, &l);
    if (names.optSTAbbrev(l.name.c_str(), OPT_SERVERNAME)) break;
    int id = optGetOptionId(l.name.c_str());
    if (id < 0 || id == OPT_END_ID)
      return optSetError(err, PS_RC_BADVALUE, l.name.c_str(), l.original.c_str(), lineNo, fileName);
    if (!isPrologOption(id))
      return optSetError(err, OPT_RC_NOSERVER, l.name.c_str(), l.original.c_str(), lineNo,
                         fileName);
    int apply = (!prescan || id == OPT_DEFAULTSERVER || id == OPT_MIGRATESERVER) ? 1 : 0;
    rc = optValidateOption2(l.value.c_str(), l.name.c_str(), lineNo, apply, procMode_, id);
    if (rc != PS_RC_OK)
      return optSetError(err, rc, l.name.c_str(), l.original.c_str(), lineNo, fileName);
  }

  // 2. The stanza asked for.
  std::string wanted = serverName[0] ? serverName : defaultServer;
  if (migrateServer[0] == '\0' && defaultServer[0]) {
    snprintf(migrateServer, sizeof(migrateServer), "%s", defaultServer);
  }

  // 3. Find it.
  rewind(fp);
  lineNo = 0;
  bool found = false;
  bool firstStanza = true;
  while (!found && utGetNextLine(fp, line, sizeof(line), &lineNo)) {
    optLine l;
    splitLine(line, &l);
    if (!names.optSTAbbrev(l.name.c_str(), OPT_SERVERNAME)) continue;
    char stanza[optLineBufSize];
    if (optGetToken(l.value.c_str(), stanza, sizeof(stanza), nullptr) != PS_RC_OK)
      return optSetError(err, PS_RC_QUOTE, l.value.c_str(), l.original.c_str(), lineNo, fileName);
    optUpper(stanza);
    if (stanza[0] == '\0' || strlen(stanza) >= optServerNameSize)
      return optSetError(err, PS_RC_BADVALUE, stanza, l.original.c_str(), lineNo, fileName);
    if (firstStanza) {
      // With no server named anywhere the first stanza serves; with no
      // migration server given, it is also the one files migrate to.
      firstStanza = false;
      if (wanted.empty()) {
        wanted = stanza;
        snprintf(serverName, sizeof(serverName), "%.64s", stanza);
      }
      if (migrateServer[0] == '\0') snprintf(migrateServer, sizeof(migrateServer), "%.64s", stanza);
    }
    if (strcasecmp(stanza, wanted.c_str()) == 0) {
      found = true;
      snprintf(stanzaName, sizeof(stanzaName), "%.64s", stanza);
      snprintf(serverName, sizeof(serverName), "%.64s", stanza);
    }
  }
  if (!found) return optSetError(err, OPT_RC_NOSTANZA, wanted.c_str(), "", lineNo, fileName);
  TRACE_Fkt(__FILE__, __LINE__)(TR_CONFIG, "optProcSysOptions: stanza '%s' at line %u of %s\n",
                                stanzaName, lineNo, fileName);

  // 4. Its options, up to the next stanza.
  while (utGetNextLine(fp, line, sizeof(line), &lineNo)) {
    optLine l;
    splitLine(line, &l);
    if (names.optSTAbbrev(l.name.c_str(), OPT_SERVERNAME)) break;
    rc = validateLine(line, lineNo, fileName, err, prescan);
    if (rc != PS_RC_OK) return rc;
  }
  return PS_RC_OK;
}
