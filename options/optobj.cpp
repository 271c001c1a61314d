#include "options/optobj.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "options/opt_internal.h"

clientOptions* optionsP = nullptr;

namespace {
thread_local clientOptions* threadOptions = nullptr;

// Options that need snapshot support on the platform.
bool isSnapshotOption(int id) {
  switch (id) {
    case OPT_DOMAIN_SNAPSHOT:
    case OPT_SNAPSHOTCACHELOCATION:
    case OPT_SNAPSHOTCACHESIZE:
    case OPT_SNAPSHOTFSIDLERETRIES:
    case OPT_SNAPSHOTFSIDLEWAIT:
    case OPT_SNAPSHOTPOLICY:
    case OPT_SNAPSHOTPROVIDERFS:
    case OPT_SNAPSHOTPROVIDERIMAGE:
    case OPT_PRESNAPSHOTCMD:
    case OPT_POSTSNAPSHOTCMD:
      return true;
    default:
      return false;
  }
}

// Unit of a number by its last letter: G 3, M 2, anything else 1 (K).
int unitOf(const char* value) {
  size_t n = strlen(value);
  char last = n ? static_cast<char>(toupper(static_cast<unsigned char>(value[n - 1]))) : 0;
  return last == 'G' ? 3 : last == 'M' ? 2 : 1;
}
}  // namespace

// ---------------------------------------------------------------------------
// Small text helpers of the option layer.

void optUpper(char* s) {
  for (; *s; ++s) {
    if (*s >= 'a' && *s <= 'z') *s = static_cast<char>(*s - 'a' + 'A');
  }
}

char* optTrim(char* s) {
  char* b = s;
  while (isspace(static_cast<unsigned char>(*b))) ++b;
  size_t n = strlen(b);
  while (n > 0 && isspace(static_cast<unsigned char>(b[n - 1]))) --n;
  memmove(s, b, n);
  s[n] = '\0';
  return s;
}

bool optCopy(char* dst, size_t size, const char* src) {
  size_t n = strlen(src);
  if (n >= size) return false;
  memcpy(dst, src, n + 1);
  return true;
}

// ---------------------------------------------------------------------------
// optionObject

optionObject::optionObject(cliType_t cliType, const optionEntry* table, int count,
                           const optSharedOptionTableEntry_t* names, optFields_t* fields)
    : names_(names), table_(table), tableCount_(count), fields_(fields) {
  optClearError(&lastError);
  // The fields start out zero so that setDefaults never frees garbage.
  memset(static_cast<void*>(fields_), 0, sizeof(optFields_t));
  int maxId = 0;
  for (int i = 0; i < count && table[i].id != OPT_END_ID; ++i) {
    if (table[i].id > maxId) maxId = table[i].id;
  }
  if (maxId >= OPT_END_ID) return;  // a damaged table: not constructed
  rowSlots_ = maxId + 1;
  rows_ = new (std::nothrow) const optionEntry*[rowSlots_]();
  setBy_ = new (std::nothrow) uint8_t[rowSlots_]();
  if (rows_ == nullptr || setBy_ == nullptr) {
    delete[] rows_;
    delete[] setBy_;
    rows_ = nullptr;
    setBy_ = nullptr;
    return;
  }
  for (int i = 0; i < count && table[i].id != OPT_END_ID; ++i) rows_[table[i].id] = &table[i];
  optSetClientType(cliType);
  setDefaults(1);
}

optionObject::~optionObject() {
  if (rows_ != nullptr) optFreeOptions();
  delete[] rows_;
  delete[] setBy_;
}

const optionEntry* optionObject::optGetRow(int id) const {
  if (rows_ == nullptr || id < 0 || id >= rowSlots_) return nullptr;
  return rows_[id];
}

void* optionObject::fieldOf(const optionEntry* row) const {
  if (row == nullptr || row->field < 0) return nullptr;
  return reinterpret_cast<char*>(fields_) + row->field;
}

uint8_t optionObject::optGetSourceEntry(int id) const {
  if (setBy_ == nullptr || id < 0 || id >= rowSlots_) return 0;
  return setBy_[id];
}

int optionObject::optSetValidMode(int mode) {
  if (mode != optModeCommandLine && (mode & 0x3F) == 0) return PS_RC_BADARG;
  validMode_ = mode;
  return PS_RC_OK;
}

void optionObject::optSetClientType(cliType_t type) {
  clientType_ = type;
  // Every client type on this platform gets every feature the platform
  // has; options of other operating systems stay silent.
  featureWord_ = optFeatAll & ~optFeatForeign;
}

void optionObject::optFreeOptions() {
  for (int i = 0; i < tableCount_ && table_[i].id != OPT_END_ID; ++i) {
    const optionEntry& r = table_[i];
    void* f = fieldOf(&r);
    if (f == nullptr) continue;
    if (r.storage == ST_HEAP) {
      char** p = static_cast<char**>(f);
      free(*p);
      *p = nullptr;
    } else if (r.storage == ST_LIST) {
      optStringList** p = static_cast<optStringList**>(f);
      delete *p;
      *p = nullptr;
    }
  }
  inclExcl_.clear();
}

void optionObject::setDefaults(int full) {
  for (int i = 0; i < tableCount_ && table_[i].id != OPT_END_ID; ++i) {
    const optionEntry& r = table_[i];
    if (r.valueForm == VF_NONE || (r.late && !full)) continue;
    void* f = fieldOf(&r);
    if (f == nullptr) continue;
    switch (r.storage) {
      case ST_BYTE:
        *static_cast<uint8_t*>(f) = static_cast<uint8_t>(r.defaultValue);
        break;
      case ST_I16:
      case ST_U16:
        *static_cast<uint16_t*>(f) = static_cast<uint16_t>(r.defaultValue);
        break;
      case ST_I32:
      case ST_U32:
      case ST_YESNO:
      case ST_OTHER:
        *static_cast<uint32_t*>(f) = static_cast<uint32_t>(r.defaultValue);
        break;
      case ST_U64:
        *static_cast<uint64_t*>(f) = r.defaultValue;
        break;
      case ST_TEXT: {
        char* t = static_cast<char*>(f);
        t[0] = '\0';
        if (r.defaultText != nullptr) optCopy(t, r.size, r.defaultText);
        break;
      }
      case ST_HEAP: {
        char** p = static_cast<char**>(f);
        free(*p);
        *p = nullptr;
        break;
      }
      case ST_LIST: {
        optStringList** p = static_cast<optStringList**>(f);
        delete *p;
        *p = nullptr;
        break;
      }
      case ST_DATE:
        memset(f, 0, 7);
        break;
      case ST_RAW:
        memset(f, 0, r.size);
        break;
      default:
        break;
    }
  }
}

int optionObject::optValidateOption(const char* value, const char* name, unsigned lineNo, int apply,
                                    int mode) {
  if (name == nullptr || *name == '\0') return PS_RC_BADVALUE;
  int id = names_.optSTStringToId(name);
  return optValidateOption2(value, name, lineNo, apply, mode, id);
}

int optionObject::optValidateOptionCL(const char* value, const char* name, unsigned lineNo,
                                      int apply, int mode) {
  int saved = validMode_;
  validMode_ = optModeCommandLine;
  int rc = optValidateOption(value, name, lineNo, apply, mode);
  validMode_ = saved;
  return rc;
}

int optionObject::optValidateOptionStr(const char* line, unsigned lineNo, int apply, int mode) {
  if (line == nullptr) return PS_RC_BADARG;
  std::string buf(line);
  char* text = buf.data();
  optTrim(text);
  char* v = text;
  while (*v && !isspace(static_cast<unsigned char>(*v))) ++v;
  if (*v) *v++ = '\0';
  optSqueezeBlanks(v);
  optTrim(v);
  optUpper(text);
  return optValidateOption(v, text, lineNo, apply, mode);
}

int optionObject::optValidateAnyOptionStr(const char* line, unsigned lineNo, int apply, int mode) {
  int saved = validMode_;
  validMode_ = optModeCommandLine;
  int rc = optValidateOptionStr(line, lineNo, apply, mode);
  validMode_ = saved;
  return rc;
}

int optionObject::optValidateOption2(const char* value, const char* name, unsigned lineNo,
                                     int apply, int mode, int id) {
  (void)lineNo;
  if (name == nullptr || *name == '\0' || id < 0 || id == OPT_END_ID) return PS_RC_BADVALUE;
  int savedMode = setProcMode(mode);
  struct Restore {
    optionObject* o;
    int m;
    ~Restore() { o->setProcMode(m); }
  } restore{this, savedMode};

  // Options that a lock, an opened file or the platform switches off.
  if ((id == OPT_NODENAME && nodeNameLocked) || (id == OPT_SERVERNAME && serverNameLocked) ||
      (id == OPT_OPTFILE && userOptFileOpened) ||
      (id == OPT_ENABLELANFREE && !(platformSupport & optSupLanFree)))
    return PS_RC_OK;

  const optionEntry* row = optGetRow(id);
  if (row == nullptr) {
    optMsgTableMismatch(name);
    return PS_RC_BADVALUE;
  }
  if ((row->featureMask & featureWord_) == 0) return PS_RC_OK;
  if ((row->sources & validMode_) == 0) return OPT_RC_SOURCE;
  if (clientType_ < 0 || clientType_ > 15 || (row->clientTypes & (1u << clientType_)) == 0)
    return PS_RC_OK;

  std::string text(value ? value : "");
  optTrim(text.data());
  text.resize(strlen(text.c_str()));
  if (!text.empty() && row->valueForm == VF_NOVALUE) return PS_RC_BADVALUE;
  if (text.empty() && row->parseKind != PK_SWITCH && row->parseKind != PK_FLAG &&
      row->valueForm != VF_NOVALUE)
    return PS_RC_BADVALUE;

  // Refusals that depend on what the platform offers.
  if (id == OPT_IMAGEGAPSIZE && !(platformSupport & optSupImage)) return PS_RC_BADVALUE;
  if (isSnapshotOption(id) && !(platformSupport & optSupSnapshot)) return PS_RC_BADVALUE;

  if (row->callback == nullptr) return PS_RC_BADVALUE;
  int rc = row->callback(this, row, text.c_str(), name, apply);
  if (rc != PS_RC_OK || !apply) return rc;
  setBy_[id] = static_cast<uint8_t>(setBy_[id] | validMode_);

  optFields_t* f = fields_;
  switch (id) {
    case OPT_ERRORPROG:
      optTraceSetErrorProg(f->errorProg);
      break;
    case OPT_TRACEMAX:
      optTraceSetMaxSize(f->traceMax);
      break;
    case OPT_TRACESEGSIZE:
      optTraceSetMaxSegSize(f->traceSegSize);
      break;
    case OPT_SCHEDLOGNAME:
    case OPT_AUDITLOGNAME:
      optBuildLogNames(this);
      break;
    case OPT_TXNBYTELIMIT:
      txnByteLimitUnit = unitOf(text.c_str());
      break;
    case OPT_IMAGEGAPSIZE:
      imageGapSizeUnit = unitOf(text.c_str());
      break;
    default:
      break;
  }
  return PS_RC_OK;
}

// ---------------------------------------------------------------------------
// clientOptions

clientOptions::clientOptions(cliType_t cliType, const optionEntry* table, int count,
                             const optSharedOptionTableEntry_t* names)
    : optFields_t(), optionObject(cliType, table, count, names, this) {
  if (constructed() && cliType != ctCLAPI) optComputerName(nodeName, sizeof(nodeName));
}

clientOptions::~clientOptions() {
  if (threadOptions == this) threadOptions = nullptr;
}

int optionObject::copyValues(const optionObject& src) {
  optFreeOptions();
  memcpy(static_cast<void*>(fields_), src.fields_, sizeof(optFields_t));
  // The copied pointers still belong to |src|: give this object its own.
  for (int i = 0; i < tableCount_ && table_[i].id != OPT_END_ID; ++i) {
    const optionEntry& r = table_[i];
    void* f = fieldOf(&r);
    if (f == nullptr) continue;
    if (r.storage == ST_HEAP) {
      char** p = static_cast<char**>(f);
      if (*p != nullptr && (*p = strdup(*p)) == nullptr) return PS_RC_NOMEM;
    } else if (r.storage == ST_LIST) {
      optStringList** p = static_cast<optStringList**>(f);
      if (*p != nullptr && (*p = new (std::nothrow) optStringList(**p)) == nullptr)
        return PS_RC_NOMEM;
    }
  }
  if (setBy_ != nullptr && src.setBy_ != nullptr && rowSlots_ == src.rowSlots_)
    memcpy(setBy_, src.setBy_, rowSlots_);
  inclExcl_ = src.inclExcl_;
  platformSupport = src.platformSupport;
  memcpy(optDir, src.optDir, sizeof(optDir));
  memcpy(logDir, src.logDir, sizeof(logDir));
  memcpy(userOptFile, src.userOptFile, sizeof(userOptFile));
  memcpy(sysOptFile, src.sysOptFile, sizeof(sysOptFile));
  memcpy(stanzaName, src.stanzaName, sizeof(stanzaName));
  memcpy(msgFileName, src.msgFileName, sizeof(msgFileName));
  memcpy(schedLogFullName, src.schedLogFullName, sizeof(schedLogFullName));
  memcpy(auditLogFullName, src.auditLogFullName, sizeof(auditLogFullName));
  envDirGiven = src.envDirGiven;
  userOptFileOpened = src.userOptFileOpened;
  nodeNameLocked = src.nodeNameLocked;
  serverNameLocked = src.serverNameLocked;
  txnByteLimitUnit = src.txnByteLimitUnit;
  imageGapSizeUnit = src.imageGapSizeUnit;
  errorLogRetentionSave = src.errorLogRetentionSave;
  schedLogRetentionSave = src.schedLogRetentionSave;
  validMode_ = src.validMode_;
  featureWord_ = src.featureWord_;
  return PS_RC_OK;
}

clientOptions* clientOptions::ouCreateShadowOpts(const clientOptions& src) {
  clientOptions* copy = new (std::nothrow) clientOptions(src.optGetClientType());
  if (copy == nullptr) return nullptr;
  if (!copy->constructed() || copy->copyValues(src) != PS_RC_OK) {
    delete copy;
    return nullptr;
  }
  copy->dmapiSessionId = src.dmapiSessionId;
  return copy;
}

void clientOptions::ouDeleteShadowOpts(clientOptions*& shadow) {
  if (shadow == nullptr || shadow == optionsP) return;
  if (threadOptions == shadow) threadOptions = nullptr;
  delete shadow;
  shadow = nullptr;
}

clientOptions* optGetThreadOptionP() {
  return threadOptions ? threadOptions : optionsP;
}
void optSetThreadOptionP(clientOptions* opts) {
  threadOptions = opts;
}

int optValidateOptionCL(clientOptions* opts, const char* value, const char* name, unsigned lineNo,
                        int apply, int mode) {
  if (opts == nullptr) opts = optionsP;
  if (opts == nullptr) return PS_RC_BADARG;
  return opts->optValidateOptionCL(value, name, lineNo, apply, mode);
}

void optClearError(optError* err) {
  if (err == nullptr) return;
  err->token[0] = err->line[0] = err->fileName[0] = '\0';
  err->lineNumber = 0;
  err->rc = 0;
}

int optSetError(optError* err, int rc, const char* token, const char* line, unsigned lineNumber,
                const char* fileName) {
  if (err == nullptr) return rc;
  snprintf(err->token, sizeof(err->token), "%s", token ? token : "");
  snprintf(err->line, sizeof(err->line), "%s", line ? line : "");
  snprintf(err->fileName, sizeof(err->fileName), "%s", fileName ? fileName : "");
  err->lineNumber = lineNumber;
  err->rc = rc;
  return rc;
}
