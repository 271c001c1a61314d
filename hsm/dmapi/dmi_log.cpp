#include "hsm/dmapi/dmi_log.h"

#include <errno.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "diag/logfile.h"
#include "diag/nl.h"
#include "diag/trace.h"
#include "platform/services.h"

namespace {

char gProgName[256];

}  // namespace

void dmiSetProgName(const char* name) {
  if (name == nullptr) name = "";
  std::strncpy(gProgName, name, sizeof gProgName - 1);
  gProgName[sizeof gProgName - 1] = '\0';
}

const char* dmiProgName() {
  if (gProgName[0] != '\0') return gProgName;
  const char* prog = psProgramPath();
  if (prog == nullptr || *prog == '\0') prog = program_invocation_short_name;
  if (prog == nullptr || *prog == '\0') return "unknown";
  const char* slash = std::strrchr(prog, '/');
  return slash != nullptr ? slash + 1 : prog;
}

void dmiLogMsg(unsigned num, ...) {
  int saved = errno;
  va_list ap;
  va_start(ap, num);
  char* text = nullptr;
  nlvsprintf(&text, num, ap);
  va_end(ap);
  if (text != nullptr) {
    if (TR_DMI) trPrintf(__FILE__, __LINE__, "%s", text);
    LogMsg(text);
    std::free(text);
  } else if (TR_DMI) {
    trPrintf(__FILE__, __LINE__, "(%s): message %u\n", dmiProgName(), num);
  }
  errno = saved;
}
