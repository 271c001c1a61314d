#include "hsm/rootd/rootd_daemon.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diag/logfile.h"
#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/cmd/hsm_startup.h"
#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/dmapi/dmi_fsstate.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rootd/rootd_server.h"
#include "hsm/rootd/rootd_status.h"

namespace {

// The start-up options that smInitOptFile reads (name, shortest form).
struct StartupOption {
  const char* name;
  size_t shortest;
};
constexpr StartupOption kStartup[] = {
    {"TRACEFILE", 7}, {"TRACEFLAGS", 7}, {"TRACEMAX", 6}, {"TESTFLAGS", 5}, {"ERRORLOGNAME", 9}};

bool isStartupOption(const char* arg) {
  const char* eq = std::strchr(arg, '=');
  if (arg[0] != '-' || eq == nullptr) return false;
  size_t n = static_cast<size_t>(eq - arg) - 1;
  for (const StartupOption& o : kStartup) {
    if (n < o.shortest || n > std::strlen(o.name)) continue;
    bool same = true;
    for (size_t k = 0; k < n && same; ++k)
      same = std::toupper(static_cast<unsigned char>(arg[1 + k])) == o.name[k];
    if (same) return true;
  }
  return false;
}

// A whole decimal number in [lo, hi].
bool number(const char* text, int lo, int hi, int* out) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text, &end, 10);
  if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
  *out = static_cast<int>(v);
  return true;
}

rtdServer* gServer = nullptr;

void onSignal(int) {
  if (gServer != nullptr) gServer->stop();
}

// Writes an informational message to standard output and the error log
// (informational messages are not logged by themselves).
void announce(unsigned num, ...) {
  va_list ap;
  va_start(ap, num);
  char* text = nullptr;
  nlvsprintf(&text, num, ap);
  va_end(ap);
  if (text == nullptr) return;
  std::fputs(text, stdout);
  std::fflush(stdout);
  DLogFile::errorLogFile.writeLine(text);
  std::free(text);
}

void reportRefusal(void*, const rtdCaller_t& c, const char* call, const std::string& object,
                   int err) {
  nlfprintf(stderr, 9582, hsmWhoAmI(), call, static_cast<unsigned>(c.uid), static_cast<int>(c.pid),
            object.c_str(), std::strerror(err));
}

void reportBadRequest(void*, const rtdCaller_t& c, int err) {
  nlfprintf(stderr, 9583, hsmWhoAmI(), static_cast<unsigned>(c.uid), static_cast<int>(c.pid),
            std::strerror(err));
}

// Leaves the terminal: the parent waits until the child has its socket
// (so that a failure still reaches the terminal and the exit status) and
// ends with the child's verdict; the child goes on in a session of its
// own.  Returns, in the child, the descriptor to report the verdict on;
// -1 when no child could be made (the daemon stays in the foreground).
int detachFromTerminal() {
  int verdict[2];
  if (pipe2(verdict, O_CLOEXEC) != 0) return -1;
  pid_t pid = fork();
  if (pid < 0) {
    close(verdict[0]);
    close(verdict[1]);
    return -1;
  }
  if (pid > 0) {
    close(verdict[1]);
    unsigned char status = rtdVerdictFailed;
    if (read(verdict[0], &status, 1) != 1) status = rtdVerdictFailed;
    _exit(status);
  }
  close(verdict[0]);
  setsid();
  return verdict[1];
}

// The child's verdict to the waiting parent; then off the terminal.
void tellParent(int verdictFd, unsigned char status) {
  if (verdictFd < 0) return;
  std::fflush(stdout);
  std::fflush(stderr);
  (void)!write(verdictFd, &status, 1);
  close(verdictFd);
  if (status != rtdVerdictServing) return;
  if (chdir("/") != 0) {
    // The root directory is always there; nothing to do otherwise.
  }
  int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null >= 0) {
    dup2(null, 0);
    dup2(null, 1);
    dup2(null, 2);
    if (null > 2) close(null);
  }
}

}  // namespace

int rtdParseArgs(int argc, char** argv, rtdArgs_t* out, std::string* bad) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (isStartupOption(a)) continue;
    if (std::strcmp(a, "-d") == 0) {
      out->daemon = true;
      continue;
    }
    if ((std::strncmp(a, "-c", 2) == 0 || std::strncmp(a, "-t", 2) == 0) &&
        std::strchr(a, '=') == nullptr) {
      const char* v = a[2] != '\0' ? a + 2 : (i + 1 < argc ? argv[++i] : nullptr);
      bool ok =
          a[1] == 'c' ? number(v, 1, 256, &out->maxClients) : number(v, 1, 3600, &out->timeoutSec);
      if (ok) continue;
      *bad = v != nullptr && a[2] == '\0' ? std::string(a) + " " + v : a;
      return -1;
    }
    *bad = a;
    return -1;
  }
  return 0;
}

int rtdDaemonMain(int argc, char** argv) {
  smInitOptFile(argc, argv, onSignal);
  if (getuid() != 0 || geteuid() != 0) {
    nlfprintf(stderr, 9586, hsmWhoAmI());
    smPostProc();
    return rtdExitSevere;
  }
  rtdArgs_t args;
  std::string bad;
  if (rtdParseArgs(argc, argv, &args, &bad) != 0) {
    nlfprintf(stderr, 9587, hsmWhoAmI(), bad.c_str());
    smPostProc();
    return rtdExitSevere;
  }
  std::string which, error;
  const dmapiBinding_t* dm = dmBindProvider(&which, &error);
  char* version = nullptr;
  if (dm == nullptr || dm->init_service(&version) != 0) {
    nlfprintf(stderr, 9505, hsmWhoAmI(), dm == nullptr ? error.c_str() : std::strerror(errno));
    smPostProc();
    return rtdExitSevere;
  }
  if (TR_SM)
    trPrintf(__FILE__, __LINE__, "provider %s, version %s\n", which.c_str(),
             version != nullptr ? version : "NULL");
  // Users' commands read the node's space-management state but may not
  // create it; on a fresh node it is made here, so that a user's first run
  // does not depend on one of root's.
  fsmState global{};
  if (dmiGetGlobalState(DM_NO_SESSION, &global) != 0 && TR_SM)
    trPrintf(__FILE__, __LINE__, "global state not readable, errno %d\n", errno);

  rtdServerConfig_t cfg;
  cfg.socketPath = rdmSocketPath();
  cfg.dm = dm;
  cfg.maxClients = args.maxClients;
  cfg.timeoutMs = args.timeoutSec * 1000;
  cfg.report.refused = reportRefusal;
  cfg.report.badRequest = reportBadRequest;
  static rtdServer server(cfg);
  // The socket is made by the process that serves it: clients learn the
  // daemon's process from it.
  int verdictFd = args.daemon ? detachFromTerminal() : -1;
  if (server.listen() != 0) {
    int err = errno;
    if (err == EADDRINUSE)
      nlfprintf(stderr, 9584, hsmWhoAmI(), cfg.socketPath.c_str());
    else
      nlfprintf(stderr, 9585, hsmWhoAmI(), cfg.socketPath.c_str(), std::strerror(err));
    tellParent(verdictFd, rtdVerdictFailed);
    smPostProc();
    return rtdExitSevere;
  }
  announce(9580, hsmWhoAmI(), cfg.socketPath.c_str(), args.maxClients);
  tellParent(verdictFd, rtdVerdictServing);
  gServer = &server;
  server.run();
  gServer = nullptr;
  announce(9581, hsmWhoAmI(), cfg.socketPath.c_str());
  smPostProc();
  return rtdExitOk;
}
