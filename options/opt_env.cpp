// The environment's part of the options: option and log directories, the
// default log names and the message catalogue's file name.
#include <unistd.h>

#include <cctype>
#include <cstring>

#include "diag/trace.h"
#include "options/opt_internal.h"
#include "options/optobj.h"
#include "platform/services.h"
#include "platform/sysroot.h"

namespace {
const char kBaDir[] = "/opt/norvik/nqb/client/ba/bin";
const char kApiDir[] = "/opt/norvik/nqb/client/api/bin";
const char kCatalogue[] = "qmxclientV3.cat";

// Copies an environment directory without its trailing "/" (the root stays).
bool takeDir(char* dst, size_t size, const char* env) {
  if (env == nullptr || *env == '\0') return false;
  size_t n = strlen(env);
  while (n > 1 && env[n - 1] == '/') --n;
  if (n >= size) return false;
  memcpy(dst, env, n);
  dst[n] = '\0';
  return true;
}
}  // namespace

char* optBuildFullName(const char* dir, const char* name, char sep, char* result, size_t size) {
  if (result == nullptr || size == 0) return nullptr;
  if (dir == nullptr) dir = "";
  if (name == nullptr) name = "";
  size_t d = strlen(dir);
  bool addSep = d > 0 && dir[d - 1] != sep;
  size_t need = d + (addSep ? 1 : 0) + strlen(name);
  if (need >= size) {
    result[0] = '\0';
    return nullptr;
  }
  // |result| may be |dir| itself: append in place.
  if (result != dir) memmove(result, dir, d);
  if (addSep) result[d++] = sep;
  memmove(result + d, name, strlen(name) + 1);
  return result;
}

void optComputerName(char* out, size_t size) {
  const char* host = psHostName();
  char buf[256] = {};
  if (host == nullptr || *host == '\0') {
    if (gethostname(buf, sizeof(buf) - 1) == 0) host = buf;
  }
  if (host == nullptr) host = "";
  snprintf(out, size, "%s", host);
  optUpper(out);
}

void optBuildLogNames(optionObject* opts) {
  // A relative schedule or audit name is placed in the log directory.
  optFields_t* f = opts->fields();
  auto prepare = [&](const char* given, const char* dflt, char* out) {
    const char* name = *given ? given : dflt;
    if (name[0] == '/')
      snprintf(out, optPathSize, "%s", name);
    else if (optBuildFullName(opts->logDir, name, '/', out, optPathSize) == nullptr)
      out[0] = '\0';
  };
  prepare(f->schedLogName, "qmxsched.log", opts->schedLogFullName);
  prepare(f->auditLogName, "qmxaudit.log", opts->auditLogFullName);
}

int clientOptions::optEnvVarInitialize(char** argv) {
  if (argv != nullptr && argv[0] != nullptr) psInitialization(argv);
  return optEnvVarInit();
}

int clientOptions::optEnvVarInit() {
  TRACE_ENTER_EXIT("clientOptions::optEnvVarInit");
  const euEnvironment_t* env = euGetEnvironment(0);
  bool api = clientType_ == ctCLAPI;
  const char* envDir = api ? env->qmxiDir : env->qmxDir;
  const char* envLog = api ? env->qmxiLog : env->qmxLog;
  logDir[0] = '\0';

  envDirGiven = takeDir(optDir, sizeof(optDir), envDir);
  if (!envDirGiven) {
    std::string builtIn = psSysPath(api ? kApiDir : kBaDir);
    snprintf(optDir, sizeof(optDir), "%s", builtIn.c_str());
  }
  // Logs go to QMX_LOG, else beside the option files (the directory QMX_DIR
  // names, or the client's own); the working directory serves only when
  // there is no directory at all, so that a command never leaves a log in
  // the directories it was asked about.
  if (!takeDir(logDir, sizeof(logDir), envLog)) snprintf(logDir, sizeof(logDir), "%s", optDir);
  if (logDir[0] == '\0') {
    if (env->pwd != nullptr && *env->pwd)
      snprintf(logDir, sizeof(logDir), "%s", env->pwd);
    else if (getcwd(logDir, sizeof(logDir)) == nullptr)
      logDir[0] = '\0';
  }

  // The catalogue name is appended lower-cased.
  char cat[sizeof(kCatalogue)];
  for (size_t i = 0; i < sizeof(kCatalogue); ++i)
    cat[i] = static_cast<char>(tolower(static_cast<unsigned char>(kCatalogue[i])));
  optBuildFullName(optDir, cat, '/', msgFileName, sizeof(msgFileName));

  if (optGetSourceEntry(OPT_ERRORLOGNAME) == 0)
    optBuildFullName(logDir, "qmxerror.log", '/', errorLogName, sizeof(errorLogName));
  optBuildLogNames(this);
  TRACE_Fkt(__FILE__, __LINE__)(TR_CONFIG, "optEnvVarInit: option dir '%s', log dir '%s'\n", optDir,
                                logDir);
  return PS_RC_OK;
}
