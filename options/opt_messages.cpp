// Messages the option layer issues itself, and the report of an option
// error record.
#include <cstdlib>

#include "diag/nl.h"
#include "diag/trace.h"
#include "options/opt_internal.h"
#include "options/optobj.h"

void optMsgTableMismatch(const char* name) {
  TRACE_Fkt(__FILE__, __LINE__)(TR_CONFIG, "Mismatch between options arrays (%s)\n", name);
  nlprintf(9999, __FILE__, __LINE__);
}

void optMsgSourceNotAllowed(const char* name, const char* where, unsigned lineNo) {
  nlprintf(1691, name, where, static_cast<int>(lineNo));
}

void optMsgFeatureMissing(const char* feature) {
  nlprintf(7901, feature);
}

void optMsgOpenFailed(const char* fileName) {
  // Only traced here: the caller reports the failure as OPT_RC_OPENFAIL.
  if (!TR_CONFIG) return;
  char text[1024];
  if (nlapimsg(21301, text, sizeof(text), fileName) > 0)
    TRACE_Fkt(__FILE__, __LINE__)(TR_CONFIG, "%s\n", text);
}

int ReportOptionError(const optError* err) {
  if (err == nullptr) return PS_RC_BADARG;
  const int line = static_cast<int>(err->lineNumber);
  switch (err->rc) {
    case PS_RC_OK:
      break;
    case PS_RC_BADVALUE:
      nlprintf(1030, err->token, err->fileName, line, err->line);
      break;
    case PS_RC_QUOTE:
      nlprintf(1031, err->token, err->fileName, line, err->line);
      break;
    case OPT_RC_OPENFAIL:
      nlprintf(1032, err->fileName[0] ? err->fileName : err->token);
      break;
    case OPT_RC_NOSTANZA:
      nlprintf(1033, err->token, err->fileName);
      break;
    case OPT_RC_NOSERVER:
      nlprintf(1034, err->token, err->fileName, line, err->line);
      break;
    case PS_RC_NOMEM:
      nlprintf(1035, err->token, err->fileName, line);
      break;
    case PS_RC_BADARG:
      nlprintf(1036, err->token, err->fileName, line);
      break;
    default:
      nlprintf(1037, err->rc, err->token, err->fileName, line, err->line);
      break;
  }
  return err->rc;
}
