// Messages the option layer issues itself.  Until the catalogue is part of
// the build they are written to the trace under CONFIG.
#include "options/opt_internal.h"

void optMsgTableMismatch(const char* name) {
  optTraceConfig(__FILE__, __LINE__, "Mismatch between options arrays (%s)\n", name);
}

void optMsgSourceNotAllowed(const char* name, const char* where, unsigned lineNo) {
  optTraceConfig(__FILE__, __LINE__, "option %s is not allowed in %s (line %u); ignored\n", name,
                 where, lineNo);
}

void optMsgFeatureMissing(const char* feature) {
  optTraceConfig(__FILE__, __LINE__, "feature %s is not available\n", feature);
}

void optMsgOpenFailed(const char* fileName) {
  optTraceConfig(__FILE__, __LINE__, "cannot open the system options file %s\n", fileName);
}
