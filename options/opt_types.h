// Types shared by the option tables, the options object and the option-file
// readers: table rows, column codes and the error record.  The return codes
// are in options/opt_status.h.
#ifndef QMX_OPTIONS_OPT_TYPES_H_
#define QMX_OPTIONS_OPT_TYPES_H_

#include <cstddef>
#include <cstdint>

#include "options/opt_status.h"

// Option identifiers: 16 bits; 999 ends both tables and means "unknown".
constexpr uint16_t OPT_END_ID = 999;

// Storage of an option's value (column "storage").
enum optStorage_e : int32_t {
  ST_BYTE = 0,    // one byte
  ST_I16 = 1,     // signed 16
  ST_U16 = 2,     // unsigned 16
  ST_I32 = 3,     // signed 32
  ST_U32 = 4,     // unsigned 32
  ST_U64 = 5,     // unsigned 64
  ST_YESNO = 6,   // yes/no as a 32-bit 0 or 1
  ST_TEXT = 7,    // fixed text array of |size| bytes
  ST_HEAP = 8,    // text allocated on the heap (char*)
  ST_DATE = 9,    // date or time, 7 bytes
  ST_LIST = 10,   // pointer to an optStringList
  ST_RAW = 11,    // |size| raw bytes
  ST_OTHER = 12,  // other 32-bit value
  ST_NONE = 99,   // no field (the option feeds a list)
};

// How the value text is parsed (column "parse kind").
enum optParseKind_e : int32_t {
  PK_TEXT = 0,      // plain text
  PK_YESNO = 1,     // yes/no word
  PK_SWITCH = 2,    // switch with an optional value (QUIET, VERBOSE)
  PK_TOKEN = 3,     // one quoted or plain token, length in [low, high]
  PK_NUMBER = 6,    // decimal, octal or hexadecimal number in [low, high]
  PK_INCLEXCL = 9,  // include or exclude rule
  PK_OWN = 12,      // the row's own callback does all the work
  PK_KEYWORD = 13,  // an abbreviation of a word of the keyword list
  PK_FLAG = 14,     // no value: stores "low"; a value is read as yes/no
};

// Value forms (column "value form").
enum optValueForm_e : int32_t {
  VF_NONE = 0,      // no default applied
  VF_NORMAL = 1,    // text is upper-cased
  VF_UNIT = 3,      // number with a unit letter
  VF_KEEPCASE = 4,  // text keeps its case (paths, passwords)
  VF_DATE = 5,
  VF_TIME = 6,
  VF_NOVALUE = 7,  // the option takes no value
};

// Sources (column "sources"), tested against the object's valid mode.
enum : uint8_t {
  optSrcStore0 = 0x01,     // the single client option file
  optSrcSystem = 0x02,     // the system option file (qmx.sys)
  optSrcUser = 0x04,       // the user option file (qmx.opt)
  optSrcIEFile = 0x08,     // an include-exclude file
  optSrcServerSet = 0x10,  // a server-side option set
  optSrcOther = 0x20,
  optSrcAny = 0xFF,
};
// Valid mode of the command line: admits every option whose mask is not 0.
constexpr int optModeCommandLine = 255;

// Feature bits (column "feature mask" against the object's feature word).
enum : uint32_t {
  optFeatBackup = 0x01,
  optFeatArchive = 0x02,
  optFeatHsm = 0x04,
  optFeatImage = 0x08,
  optFeatSnapshot = 0x10,
  optFeatNas = 0x20,
  optFeatVm = 0x40,
  optFeatLanFree = 0x80,
  optFeatSubfile = 0x100,
  optFeatForeign = 0x80000000u,  // options of other operating systems
  optFeatAll = 0xFFFFFFFFu,
};

// Object kinds of include-exclude rules (column "high" of those rows).
enum optObjKind_e : int32_t {
  OBJ_FILE = 1,
  OBJ_DIR,
  OBJ_ARCHIVE,
  OBJ_BACKUP,
  OBJ_SYMLINK,
  OBJ_COMPRESSION,
  OBJ_DEDUP,
  OBJ_ENCRYPTION,
  OBJ_SPACEMGMT,
  OBJ_FS,
  OBJ_FSNAS,
  OBJ_IMAGE,
  OBJ_RESTORE,
  OBJ_SUBFILE,
  OBJ_SYSTEMOBJECT,
  OBJ_SYSTEMSERVICE,
  OBJ_SYSTEMSTATE,
  OBJ_SIZE,
};

// One word of a keyword list (parse kind 13): the word, its shortest
// abbreviation and the value stored for it.  Lists end with a null word.
struct optKeyword_t {
  const char* word;
  uint16_t minLen;
  int32_t value;
};

class optionObject;
struct optionEntry;

// A row's validator and setter.  |value| is trimmed (may be ""), |name| the
// option name as written.  |apply| 0 only checks.  Returns 0 or a code.
typedef int (*optCallback_t)(optionObject* opts, const optionEntry* row, const char* value,
                             const char* name, int apply);

// One row of the option table.  Numbers in |low| and |high| are compared
// signed for signed storages and unsigned for the others.
struct optionEntry {
  uint16_t id;
  int32_t field;         // offset into optFields_t, -1 = no field
  int32_t storage;       // optStorage_e
  uint32_t size;         // bytes of storage 7 and 11
  uint32_t featureMask;  // ignored silently unless it meets the feature word
  uint16_t clientTypes;  // ignored silently unless it meets 1 << client type
  uint8_t sources;       // where the option may appear
  int32_t parseKind;     // optParseKind_e
  int64_t low;
  uint64_t high;
  int32_t valueForm;  // optValueForm_e
  optCallback_t callback;
  bool late;  // default only on a full reset; skipped by pre-scans
  const optKeyword_t* keywords;
  uint64_t defaultValue;
  const char* defaultText;
};

// One spelling of the name table.
struct optSharedOptionTableEntry_t {
  const char* name;  // upper case
  uint16_t minLen;   // shortest accepted abbreviation
  uint16_t id;       // option identifier; 999 in the end row
  uint16_t kind;     // 0 option, 1 also set by a server set, 2 keyword
};

// Option stores of optProcessOptions.
enum optionStore_e {
  optStoreSingle = 0,  // the single client option file (valid mode 1)
  optStoreUser = 1,    // the user option file qmx.opt (valid mode 4)
  optStoreSystem = 2,  // the system option file qmx.sys (valid mode 2)
  optStoreUpdate = 3,  // update of options already loaded (valid mode 4)
};

// Where an option-processing error happened: the offending token, the whole
// line, its number, the file and the return code.  Filled by the readers,
// printed by ReportOptionError.
struct optError {
  static constexpr size_t kTextSize = 3585;
  static constexpr size_t kFileSize = 1280;
  char token[kTextSize];
  char line[kTextSize];
  char fileName[kFileSize];
  unsigned lineNumber;
  int rc;
};
void optClearError(optError* err);
// Fills |err| (null is allowed) and returns |rc|.
int optSetError(optError* err, int rc, const char* token, const char* line, unsigned lineNumber,
                const char* fileName);

#endif  // QMX_OPTIONS_OPT_TYPES_H_
