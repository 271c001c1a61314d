#include "platform/services.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

int g_threadMode = 0;
std::string g_programPath;

pthread_key_t g_tsdKey;
pthread_once_t g_tsdOnce = PTHREAD_ONCE_INIT;
int g_tsdRc = 0;

constexpr int kMaxCleanUps = 32;
psCleanUpFn_t g_cleanUps[kMaxCleanUps];
int g_cleanUpCount = 0;

int g_coreUp = 0;
pid_t g_corePid = 0;
time_t g_coreStart = 0;

struct EnvSnapshot {
  euEnvironment_t view{};
  std::string store[10];
  bool taken = false;
};
EnvSnapshot g_env;

char g_hostName[256];

const char* Capture(std::string& slot, const char* name) {
  const char* v = std::getenv(name);
  if (v == nullptr) return nullptr;
  slot = v;
  return slot.c_str();
}

}  // namespace

int psSetThreadMode(int mode) {
  int old = g_threadMode;
  g_threadMode = mode ? 1 : 0;
  return old;
}

int psGetThreadMode() {
  return g_threadMode;
}

int psInitialization(char** argv) {
  g_programPath = (argv != nullptr && argv[0] != nullptr) ? argv[0] : "";
  return 0;
}

const char* psProgramPath() {
  return g_programPath.c_str();
}

int pkInstallSignalHandler(int sig, psSignalHandler_t handler) {
  struct sigaction sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sa_handler = handler;
  // Block the other terminating signals while a handler runs: the clean-up
  // it starts must not be re-entered halfway.
  sigemptyset(&sa.sa_mask);
  for (int s : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGABRT}) {
    if (s != sig) sigaddset(&sa.sa_mask, s);
  }
  sa.sa_flags = SA_RESTART;
  if (sigaction(sig, &sa, nullptr) != 0) return errno;
  return 0;
}

int pkTSDinit() {
  pthread_once(&g_tsdOnce, [] { g_tsdRc = pthread_key_create(&g_tsdKey, nullptr); });
  return g_tsdRc;
}

void* pkTSDget() {
  if (pkTSDinit() != 0) return nullptr;
  return pthread_getspecific(g_tsdKey);
}

int pkTSDset(void* value) {
  int rc = pkTSDinit();
  if (rc != 0) return rc;
  return pthread_setspecific(g_tsdKey, value);
}

int psRegisterCleanUp(psCleanUpFn_t fn) {
  if (fn == nullptr) return EINVAL;
  if (g_cleanUpCount >= kMaxCleanUps) return ENOMEM;
  g_cleanUps[g_cleanUpCount++] = fn;
  return 0;
}

void psCleanUpatExit() {
  // Pop before calling so that a clean-up that exits, or re-enters from a
  // signal handler, never runs a function twice.
  while (g_cleanUpCount > 0) {
    psCleanUpFn_t fn = g_cleanUps[--g_cleanUpCount];
    fn();
  }
}

int dsCoreInit(int apiMode, int threaded) {
  (void)apiMode;
  if (threaded) psSetThreadMode(1);
  if (g_coreUp) return 0;
  g_corePid = getpid();
  g_coreStart = time(nullptr);
  // Logs and trace files the client creates are readable by the group but
  // never writable by others.
  umask(umask(0) | 002);
  g_coreUp = 1;
  return 0;
}

void dsCoreCleanUp() {
  g_coreUp = 0;
}

int dsCoreIsUp() {
  return g_coreUp;
}

const euEnvironment_t* euGetEnvironment(int refresh) {
  if (g_env.taken && !refresh) return &g_env.view;
  euEnvironment_t& v = g_env.view;
  std::string* s = g_env.store;
  v.qmxDir = Capture(s[0], "QMX_DIR");
  v.qmxConfig = Capture(s[1], "QMX_CONFIG");
  v.qmxLog = Capture(s[2], "QMX_LOG");
  v.qmxiDir = Capture(s[3], "QMXI_DIR");
  v.qmxiConfig = Capture(s[4], "QMXI_CONFIG");
  v.qmxiLog = Capture(s[5], "QMXI_LOG");
  v.pwd = Capture(s[6], "PWD");
  v.lang = Capture(s[7], "LANG");
  v.lcAll = Capture(s[8], "LC_ALL");
  v.lcMessages = Capture(s[9], "LC_MESSAGES");
  g_env.taken = true;
  return &v;
}

int psMiscInit() {
  if (gethostname(g_hostName, sizeof g_hostName - 1) != 0) {
    std::strcpy(g_hostName, "localhost");
  }
  g_hostName[sizeof g_hostName - 1] = '\0';
  char* dot = std::strchr(g_hostName, '.');
  if (dot != nullptr) *dot = '\0';
  return 0;
}

const char* psHostName() {
  if (g_hostName[0] == '\0') psMiscInit();
  return g_hostName;
}

int FileSubsystemInit() {
  // The file layer keeps no open state; a process whose working directory
  // vanished can still run on absolute paths, so only EACCES-like failures
  // of the root matter.
  struct stat st;
  if (stat("/", &st) != 0) return errno;
  return 0;
}
