// The validators and setters named in the option table's callback column.
// Each follows optCallback_t: it checks |value| for |row| and, when |apply|
// is set, stores it in the options object.  0 or an option return code.
#ifndef QMX_OPTIONS_OPT_CALLBACKS_H_
#define QMX_OPTIONS_OPT_CALLBACKS_H_

#include "options/opt_types.h"

// Table-driven parsing by the row's parse kind.
int optGeneralCallback(optionObject*, const optionEntry*, const char*, const char*, int);

// Own callbacks.
int optListCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optNodeNameCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optLogNameCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optLogRetentionCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optCommMethodCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optTcpBuffSizeCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optTcpWindowSizeCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optUnitNumberCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optDateFormatCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optTimeFormatCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optNumberFormatCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optLanguageCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optInclExclCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optVirtualMountPointCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optTraceFileCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optTraceFlagsCallback(optionObject*, const optionEntry*, const char*, const char*, int);
int optTestFlagsCallback(optionObject*, const optionEntry*, const char*, const char*, int);

// Parses one quoted or plain token from |text| into |out| (|outSize| bytes,
// truncated to fit) and points |*rest| past it.  Returns 0, or PS_RC_QUOTE
// for an unclosed quote.
int optGetToken(const char* text, char* out, size_t outSize, const char** rest);

// Parses a whole number with decimal, octal ("0") or hexadecimal ("0x")
// prefix; only blanks may follow.  Signed or unsigned 64-bit conversion.
// Returns 0 or PS_RC_BADVALUE (no digits, trailing characters, overflow).
int optParseSigned(const char* text, int64_t* out);
int optParseUnsigned(const char* text, uint64_t* out);

#endif  // QMX_OPTIONS_OPT_CALLBACKS_H_
