#include "hsm/cmd/cmd_error_log.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/logfile.h"
#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/file_kind_text.h"
#include "options/optobj.h"
#include "platform/services.h"

namespace {

// What the log was opened with.
struct LogSettings {
  std::string name;
  unsigned long maxSize = 0;
  unsigned retentionDays = 0;
  char retentionMode = 'D';
  bool operator==(const LogSettings&) const = default;
};

LogSettings g_opened;
bool g_isOpened = false;
// The command line's ERRORLOGNAME, which the system option file must not
// replace; empty when the command line gave none.
std::string g_commandLineName;

bool Given(const char* s) {
  return s != nullptr && *s != '\0';
}

// An ordinary user's own place for the default log ("" when there is
// none): the state directory of the XDG conventions.
std::string UserLogPath() {
  const char* state = std::getenv("XDG_STATE_HOME");
  std::string dir;
  if (Given(state) && state[0] == '/') {
    dir = state;
  } else {
    const char* home = std::getenv("HOME");
    if (!Given(home) || home[0] != '/') {
      const struct passwd* pw = getpwuid(getuid());
      home = pw != nullptr ? pw->pw_dir : nullptr;
    }
    if (!Given(home)) return "";
    dir = std::string(home) + "/.local/state";
  }
  return dir + "/qmx/qmxerror.log";
}

LogSettings Wanted(clientOptions* o) {
  LogSettings s;
  if (std::strcmp(o->errorLogName, "/") == 0) {
    optBuildFullName(o->optDir, "qmxerror.log", '/', o->errorLogName, sizeof o->errorLogName);
  }
  s.name = o->errorLogName;
  const euEnvironment_t* env = euGetEnvironment(0);
  if (getuid() != 0 && o->optGetSourceEntry(OPT_ERRORLOGNAME) == 0 &&
      (env == nullptr || !Given(env->qmxLog))) {
    std::string own = UserLogPath();
    if (!own.empty()) s.name = own;
  }
  s.maxSize = o->errorLogMax;
  s.retentionDays = o->errorLogRetention == 10000 ? 0 : o->errorLogRetention;
  s.retentionMode = o->errorLogRetentionSave ? 'S' : 'D';
  return s;
}

int Open(const LogSettings& s) {
  DLogFile& log = DLogFile::errorLogFile;
  DLogFile::InitializeLogFile(log, s.maxSize, "qmxerlog.pru", s.retentionDays, s.retentionMode, 0,
                              0);
  g_opened = s;
  g_isOpened = true;
  if (s.name.empty()) return 0;
  // Nobody else needs to read an ordinary user's log on its way.
  if (getuid() != 0 && s.name == UserLogPath()) utBuildPath(s.name.c_str(), 0700);
  if (log.utOpenOutputFile(s.name.c_str()) == 0) return 0;
  int e = log.lastErrno();
  std::string why = e == EINVAL || e == ELOOP ? cmdFileKindText(log.lastKind()) : std::strerror(e);
  nlfprintf(stderr, 1398, s.name.c_str(), e, why.c_str());
  return CMD_RC_ERRORLOG;
}

}  // namespace

int cmdOpenErrorLog(clientOptions* opts) {
  // Only the command line can have named the log by now: the user option
  // file may not, and the system option file has not been read.
  g_commandLineName =
      opts->optGetSourceEntry(OPT_ERRORLOGNAME) != 0 ? opts->errorLogName : std::string();
  return Open(Wanted(opts));
}

int cmdReopenErrorLog(clientOptions* opts) {
  if (!g_commandLineName.empty()) {
    std::snprintf(opts->errorLogName, sizeof opts->errorLogName, "%s", g_commandLineName.c_str());
  }
  LogSettings s = Wanted(opts);
  if (g_isOpened && s == g_opened) return 0;
  if (TR_GENERAL || TR_SM) {
    trPrintf(__FILE__, __LINE__, "The system options change the error log to '%s'\n",
             s.name.c_str());
  }
  return Open(s);
}
