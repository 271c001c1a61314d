// Helpers shared by the option layer's own files; not for other layers.
#ifndef QMX_OPTIONS_OPT_INTERNAL_H_
#define QMX_OPTIONS_OPT_INTERNAL_H_

#include <cstddef>

class clientOptions;
class optionObject;

// Upper-cases |s| in place (7-bit ASCII only).
void optUpper(char* s);
// Removes white space at both ends of |s| in place; returns |s|.
char* optTrim(char* s);
// Copies |src| into |dst| of |size| bytes; false (and |dst| untouched) when
// it does not fit.
bool optCopy(char* dst, size_t size, const char* src);

// The computer's name, upper-cased, into |out|.
void optComputerName(char* out, size_t size);
// Rebuilds the prepared schedule- and audit-log path names.
void optBuildLogNames(optionObject* opts);

// Bridges to the trace facility.
void optTraceSetErrorProg(const char* name);
void optTraceSetMaxSize(unsigned mb);
void optTraceSetMaxSegSize(unsigned mb);
int optTraceSetFileName(const char* name);
int optTraceEnable(const char* flags);
int optTraceTestFlags(const char* flags);
int optTraceBegin(const char* name);
// Traces one line under the CONFIG class.
void optTraceConfig(const char* file, unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

// Catalogue messages the option layer issues itself.
void optMsgTableMismatch(const char* name);                       // 9999
void optMsgSourceNotAllowed(const char* name, const char* where,  // 1691
                            unsigned lineNo);
void optMsgFeatureMissing(const char* feature);  // 7901
void optMsgOpenFailed(const char* fileName);     // 21301 (trace)

#endif  // QMX_OPTIONS_OPT_INTERNAL_H_
