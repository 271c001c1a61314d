// The options object of the process.
//
// optionObject owns the name-table object and the identifier-indexed row
// array, the valid mode (which source is being read), the feature word, the
// client type, the per-option "set by" bytes, the directories and names that
// the environment gives, and the table-driven validation of one option.
// clientOptions adds one field per option (optFields_t, see opt_fields.h:
// TCPPORT -> tcpPort, NODENAME -> nodeName ...) and the DMAPI session id.
//
// Life: constructed once per process with the client type; defaults are
// applied by the constructor; then the environment (optEnvVarInit), the user
// option file, the system option file's server stanza and the command line
// are read (later sources override earlier ones); optPostProcessOptions
// derives the rest.  optionsP points to the process-wide object.
//
// Start-up's order: optEnvVarInit; command-line options (first pass) with
// optValidateOptionCL; optPrescanTrOpt (the user file's trace options, trace
// file opened); optPrescanSysOptFile; optProcessOptions(optStoreUser ...);
// command line (second pass); optProcessOptions(optStoreSystem ...);
// optPostProcessOptions; optCheckUser.  Option names are passed as written,
// without a leading "-"; a failing call leaves an optError for
// ReportOptionError.
//
// Thread safety: filled by the start-up thread; afterwards read-only, so any
// thread may read fields.  optGetThreadOptionP gives a thread its own copy
// when one was installed.
//
// Key fields read by other layers (all in optFields_t):
//   start-up: optionFormat (0 STANDARD, 1 SHORT), logo, errorLogName,
//     errorLogMax, errorLogRetention (10000 = keep all), language,
//     dateFormat, timeFormat, numberFormat, subdir, enableLanFree, nodeName,
//     serverName, clusterNode, tcpDebug; object members msgFileName, optDir,
//     errorLogRetentionSave (0 discard "D", 1 save "S").
//   DMAPI layer: clientOptions::dmapiSessionId, hsmProgressiveDaemonStart,
//     hsmExtObjIdAttr, hsmMultiServer (record server names on files).
//   server session: tcpServerAddress, tcpPort, tcpNoDelay, tcpBuffSize
//     (bytes), tcpWindowSize (bytes), commMethod (1 TCPIP, 2 SHAREDMEM,
//     3 V6TCPIP), commRestartDuration, commRestartInterval, passwordAccess
//     (0 PROMPT, 1 GENERATE), passwordDir, largeCommBuffers.
//   file layer: virtualMountPoints (optStringList*, absolute directories,
//     each a file space of its own; null when none was given).
#ifndef QMX_OPTIONS_OPTOBJ_H_
#define QMX_OPTIONS_OPTOBJ_H_

#include <cstdint>
#include <cstdio>

#include "diag/trace.h"
#include "options/inclexcl.h"
#include "options/opt_fields.h"
#include "options/opt_ids.h"
#include "options/opt_status.h"
#include "options/opt_tables.h"
#include "options/opt_types.h"

// Capacities of the object's own texts (the terminating zero included).
constexpr size_t optDirSize = 1025;
constexpr size_t optPathSize = 1280;
constexpr size_t optServerNameSize = 65;
constexpr size_t optLineBufSize = 3585;

class optionObject {
 public:
  // Builds the row array from |table| (|count| rows, the end row included)
  // and the name-table object from |names|, then applies every default.  A
  // table whose identifiers exceed the end marker leaves the object not
  // constructed (constructed() false).
  optionObject(cliType_t cliType, const optionEntry* table, int count,
               const optSharedOptionTableEntry_t* names, optFields_t* fields);
  virtual ~optionObject();
  optionObject(const optionObject&) = delete;
  optionObject& operator=(const optionObject&) = delete;

  bool constructed() const { return rows_ != nullptr; }

  // Stores the default of every row up to the end row whose value form is
  // not 0; unless |full|, late rows are skipped.  Heap texts and lists are
  // released first.
  void setDefaults(int full);
  // optSetOptionDefaults(level): level non-zero is a full reset.
  void optSetOptionDefaults(int level) { setDefaults(level); }
  // Releases heap texts and lists (their fields become null).
  void optFreeOptions();

  // The table-driven check and store of one option (see the .cpp for the
  // steps).  |value| may be null for "no value".  |id| from the name table.
  // Returns 0, PS_RC_BADVALUE, PS_RC_QUOTE, OPT_RC_SOURCE (the caller
  // reports 1691 and ignores it), PS_RC_NOMEM.
  int optValidateOption2(const char* value, const char* name, unsigned lineNo, int apply, int mode,
                         int id);
  // Resolves |name| and validates it under the current valid mode.
  int optValidateOption(const char* value, const char* name, unsigned lineNo, int apply, int mode);
  // The same for the command line: valid mode 255 for the one call.
  int optValidateOptionCL(const char* value, const char* name, unsigned lineNo, int apply,
                          int mode);
  // A whole "NAME value" line: the first token is the name, the rest the
  // value (white space squeezed before the first double quote, trimmed).
  int optValidateOptionStr(const char* line, unsigned lineNo, int apply, int mode);
  // As optValidateOptionStr, but under valid mode 255 (any source).
  int optValidateAnyOptionStr(const char* line, unsigned lineNo, int apply, int mode);

  int optGetValidMode() const { return validMode_; }
  // Accepts 255 and any value with one of the six low bits; else
  // PS_RC_BADARG.
  int optSetValidMode(int mode);
  cliType_t optGetClientType() const { return clientType_; }
  // Sets the client type and the feature word that goes with it.
  void optSetClientType(cliType_t type);
  // Sets the client type only (the feature word stays).
  void optSetClientTypeAny(cliType_t type) { clientType_ = type; }
  uint32_t optGetFeatureWord() const { return featureWord_; }
  void optSetFeatureWord(uint32_t w) { featureWord_ = w; }
  // The sources (valid-mode bits) that have set option |id|; 0 when none.
  uint8_t optGetSourceEntry(int id) const;
  // The identifier of |word| (see optSharedTable::optSTStringToId).
  int optGetOptionId(const char* word) const { return names_.optSTStringToId(word); }
  const optSharedTable& sharedTable() const { return names_; }
  // The row of |id|, or null.
  const optionEntry* optGetRow(int id) const;
  // Address of the field of |row| (null for rows without a field).
  void* fieldOf(const optionEntry* row) const;

  optFields_t* fields() const { return fields_; }
  inclExclList& ieList() { return inclExcl_; }
  const inclExclList& ieList() const { return inclExcl_; }

  // The processing mode argument of the call in progress.
  int procMode() const { return procMode_; }
  int setProcMode(int m) {
    int old = procMode_;
    procMode_ = m;
    return old;
  }

  // Platform support that some options need (all present on this platform;
  // tests clear bits to check the refusals).
  enum : uint32_t { optSupImage = 1, optSupSnapshot = 2, optSupLanFree = 4, optSupSubfile = 8 };
  uint32_t platformSupport = optSupImage | optSupSnapshot | optSupLanFree;

  // Texts the environment and the readers fill.
  char optDir[optDirSize] = {};             // QMX_DIR (or the built-in directory)
  char logDir[optDirSize] = {};             // QMX_LOG, else the option directory
  char userOptFile[optPathSize] = {};       // the user option file actually used
  char sysOptFile[optPathSize] = {};        // the system option file actually used
  char stanzaName[optServerNameSize] = {};  // the server stanza asked for
  char msgFileName[optPathSize] = {};       // message catalogue path
  char schedLogFullName[optPathSize] = {};  // prepared schedule-log path
  char auditLogFullName[optPathSize] = {};  // prepared audit-log path
  bool envDirGiven = false;                 // optDir came from the environment
  bool userOptFileOpened = false;           // OPTFILE is ignored once set
  bool nodeNameLocked = false;              // NODENAME lines are ignored
  bool serverNameLocked = false;            // SERVERNAME lines are ignored
  int keep = 0;                             // an embedding caller keeps the object

  // Units recorded after TXNBYTELIMIT and IMAGEGAPSIZE: 1 K, 2 M, 3 G.
  int txnByteLimitUnit = 1;
  int imageGapSizeUnit = 1;
  // Retention modes of the error and schedule logs: 0 discard, 1 save.
  int errorLogRetentionSave = 0;
  int schedLogRetentionSave = 0;

  // The error record of the file read last (also filled for the caller's).
  optError lastError;

 protected:
  // Copies every value of |src| (deep for heap texts and lists).  Returns
  // 0 or PS_RC_NOMEM.
  int copyValues(const optionObject& src);

  int validMode_ = 4;
  int procMode_ = 0;
  cliType_t clientType_ = ctCLBackup;
  uint32_t featureWord_ = 0;

 private:
  optSharedTable names_;
  const optionEntry* table_;
  int tableCount_;
  const optionEntry** rows_ = nullptr;
  uint8_t* setBy_ = nullptr;
  int rowSlots_ = 0;
  optFields_t* fields_;
  inclExclList inclExcl_;
};

class clientOptions : public optFields_t, public optionObject {
 public:
  clientOptions(cliType_t cliType, const optionEntry* table = optionTable,
                int count = optionTableEntries,
                const optSharedOptionTableEntry_t* names = optSharedOptionTable);
  ~clientOptions() override;

  // The DMAPI session of the process (0 = none).  Written by the DMAPI layer
  // and the command, read back by them.
  uint64_t dmapiSessionId = 0;

  // --- Environment ---------------------------------------------------
  // Reads QMX_DIR / QMX_CONFIG / QMX_LOG (QMXI_* for the API client type)
  // into optDir, logDir, the log names and the message file name.  Returns 0.
  int optEnvVarInit();
  // The same, after recording the program path from |argv|.
  int optEnvVarInitialize(char** argv);

  // --- Option files ---------------------------------------------------
  // Reads the option file of |store| (see optionStore_e) under the store's
  // valid mode.  |fileName| names the file ("" or null: locate it).  |mode|
  // is remembered for the call and restored.  |prescan| non-zero applies
  // only the trace and option-file options, skips late rows and treats
  // unknown names as errors.  Returns 0, PS_RC_BADARG (unknown store,
  // missing error record), or the first reading or validation error
  // (recorded in |err|).
  int optProcessOptions(int store, const char* fileName, int mode, optError* err, int prescan = 0);
  // Early passes: the user option file, the system option file's stanza.
  int optPrescanOptFile(const char* fileName, optError* err);
  int optPrescanSysOptFile(const char* fileName, optError* err);
  // Pre-scans the user option file for the trace options and starts the
  // trace file they name.  Returns 0 or an error code.
  int optPrescanTrOpt(optError* err);
  // Opens the user option file (see opt_files.cpp for the search order).
  // Returns 0 with |*fp| set, 0 with |*fp| null (no default file), or
  // OPT_RC_OPENFAIL.
  int optOpenUserOptionFile(const char* explicitName, FILE** fp, optError* err);
  int optOpenSystemOptionFile(const char* explicitName, FILE** fp, optError* err);

  // Derived settings once every source is read (log names, implicit
  // exclusions, feature checks with message 7901).  Returns 0 or
  // PS_RC_BADVALUE.
  int optPostProcessOptions(optError* err);
  // OPT_RC_USERALLOWED when the calling user may run commands (USERS and
  // GROUPS; with neither set everyone may), else 0.
  int optCheckUser() const;

  // Prints every option with its value, one per line, to |out|.
  void optDisplay(FILE* out = stdout) const;
  // The same listing appended to the trace output as it stands (no prefix);
  // the caller decides by its trace classes whether to ask for it.
  void optDisplayToTrace() const;
  // Prints "name  text" with the name padded to |width|.
  void optPrintToScreen(int id, const char* text, int width, FILE* out = stdout) const;

  // A per-thread copy of |src| (heap texts and lists copied too) that a
  // thread may change and install with optSetThreadOptionP; null when out
  // of memory.  ouDeleteShadowOpts discards it (never the process's own
  // object), uninstalls it and clears the pointer.
  static clientOptions* ouCreateShadowOpts(const clientOptions& src);
  static void ouDeleteShadowOpts(clientOptions*& shadow);

 private:
  int optProcOptions(FILE* fp, const char* fileName, optError* err, int prescan);
  int optProcSysOptions(FILE* fp, const char* fileName, optError* err, int prescan);
  int validateLine(char* line, unsigned lineNo, const char* fileName, optError* err, int prescan);
};

// The process-wide options object (null before start-up creates it).
extern clientOptions* optionsP;
// The options object of the calling thread: its own when one was installed
// with optSetThreadOptionP, else optionsP.
clientOptions* optGetThreadOptionP();
void optSetThreadOptionP(clientOptions* opts);

// Command-line validation as start-up calls it: valid mode 255 for the call.
int optValidateOptionCL(clientOptions* opts, const char* value, const char* name, unsigned lineNo,
                        int apply, int mode);

// Joins |dir| and |name| into |result| (|size| bytes) with |sep| between
// them unless |dir| is empty or already ends in |sep|.  Returns |result|,
// or null when it does not fit.
char* optBuildFullName(const char* dir, const char* name, char sep, char* result, size_t size);

// Reads the next option line of |fp| into |buf| (optLineBufSize bytes):
// counts every physical line in |*lineNo|, removes one trailing newline or
// carriage return, skips empty, blank and comment ("*") lines.  Returns 1
// with a line, 0 at end of file.
int utGetNextLine(FILE* fp, char* buf, size_t size, unsigned* lineNo);

// Squeezes every run of white space before the first double quote of |text|
// to one blank (in place); text from that quote on is kept as it stands.
void optSqueezeBlanks(char* text);

// Prints |err| through the catalogue message of its code: the token, the
// file, the line number and the line.  Returns err->rc.
int ReportOptionError(const optError* err);

#endif  // QMX_OPTIONS_OPTOBJ_H_
