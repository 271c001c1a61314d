#include "hsm/cmd/hsm_startup.h"

#include <pthread.h>
#include <unistd.h>

#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "diag/diag_status.h"
#include "diag/globalrc.h"
#include "diag/instr.h"
#include "diag/memory.h"
#include "diag/mempool.h"
#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/abbrev.h"
#include "hsm/cmd/cmd_error_log.h"
#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/corr_table.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "options/opt_status.h"
#include "options/optobj.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/fsinfo.h"
#include "platform/services.h"
#include "platform/sysroot.h"
#include "session/sess.h"

int bHsmCleanupStarted = 0;
GlobalRC* gRC = nullptr;

namespace {

// Version of the client shown by the banner.
constexpr int kVersion = 3, kRelease = 1, kLevel = 0, kSubLevel = 0;
// Longest argument the command line may carry.
constexpr size_t kMaxArg = 1278;

// The options that start-up applies before the option files are read.
struct PreParseOption {
  const char* name;
  int shortest;
  bool firstPass;
  bool secondPass;
};
constexpr PreParseOption kPreParse[] = {
    {"TRACEFILE", 7, true, false}, {"TRACEFLAGS", 7, false, true},  {"TRACEMAX", 6, true, true},
    {"TESTFLAGS", 5, true, true},  {"ERRORLOGNAME", 9, true, true},
};

unsigned long ThisThread() {
  return static_cast<unsigned long>(pthread_self());
}

// Starts (or restarts) the message system and copies what it resolved back
// into the options.  Returns nlinit's result.
int StartMessages(unsigned cacheSize) {
  clientOptions* o = optionsP;
  if (newNlsGlobalObject(nullptr, 0) != 0) return DIAG_RC_NOCATALOG;
  // The LANGUAGE option names the national catalogue; without it the
  // message system takes the locale of the environment.
  if (o->language[0] != '\0') nlSetLocale(o->language);
  nlInitInfo_t info{};
  int rc = nlinit(o->msgFileName, cacheSize, o->optDir, o->optGetClientType(), o->dateFormat,
                  o->timeFormat, o->numberFormat, &info, nullptr);
  if (rc != 0) return rc;
  if (o->language[0] == '\0') std::snprintf(o->language, sizeof o->language, "%s", info.locale);
  o->dateFormat = info.dateFormat;
  o->timeFormat = info.timeFormat;
  o->numberFormat = info.numberFormat;
  return 0;
}

// Ends the thread's server session: flushed and closed when signed on
// (|flush| false skips the flushing), terminated, deleted, and its map entry
// nulled.  Returns true when there was a session.
bool EndThreadSession(HSMGlobalCB* cb, bool flush) {
  auto it = cb->sessionMap.find(ThisThread());
  if (it == cb->sessionMap.end() || it->second == nullptr) return false;
  Sess_o* s = it->second;
  if (s->sessGetState() == sSignedOn) {
    if (flush) {
      s->sessFlushEvent();
      s->sessFlushVerb();
    }
    s->sessClose();
  }
  s->sessTerminate();
  delete_SessionObject(s);
  it->second = nullptr;
  return true;
}

void DestroyOptions() {
  if (optionsP == nullptr) return;
  clientOptions* o = optionsP;
  optionsP = nullptr;
  o->~clientOptions();
  qmxFree(o);
}

// The tear-down shared by the fatal paths; the caller has passed the
// run-once guards and ends the process afterwards.
void FatalTearDown(HSMGlobalCB* cb, bool fromSignal) {
  EndThreadSession(cb, false);
  psCleanUpatExit();
  delete_CorrSTable(cb->corrTable);
  DestroyOptions();
  clUtCleanUp();
  nlterm();
  if (fromSignal) {
    destroyNlsGlobalObject();
    mpDestroyAll();
  }
  trClose(1);
  dsCoreCleanUp();
  cb->cleanupDone = 1;
}

// Passes the run-once guards of a shut-down path.  False when another path
// has begun or everything is already down.
bool EnterShutDown(HSMGlobalCB* cb) {
  if (bHsmCleanupStarted == 1) return false;
  bHsmCleanupStarted = 1;
  return cb->cleanupDone == 0;
}

// A fatal start-up failure with its own exit status (CMD_EXIT_STARTUP or
// CMD_EXIT_MESSAGES).
[[noreturn]] void StartUpFailed(int status) {
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  if (EnterShutDown(cb)) FatalTearDown(cb, false);
  std::exit(status);
}

}  // namespace

optError* new_optError() {
  auto* e = static_cast<optError*>(qmxCalloc(1, sizeof(optError)));
  return e;
}

void delete_optError(optError*& err) {
  if (err != nullptr) qmxFree(err);
  err = nullptr;
}

int clSmPreInitialize(smSignalHandler_t handler, char** argv) {
  psInitialization(argv);
  for (int sig : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGABRT}) pkInstallSignalHandler(sig, handler);
  pkInstallSignalHandler(SIGPIPE, SIG_IGN);
  return 0;
}

int PreParseCmdLine(int argc, char** argv, int firstPass) {
  if (argc < 2) return 0;
  static char name[kMaxArg + 1];
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    size_t len = std::strlen(arg);
    if (len > kMaxArg) {
      nlfprintf(stderr, 1246, static_cast<int>(kMaxArg + 1));
      return CMD_RC_ARGTOOLONG;
    }
    if (arg[0] != '-') continue;
    const char* eq = std::strchr(arg, '=');
    size_t n = eq != nullptr ? static_cast<size_t>(eq - arg) - 1 : len - 1;
    for (size_t k = 0; k < n; ++k) {
      name[k] = static_cast<char>(std::toupper(static_cast<unsigned char>(arg[1 + k])));
    }
    name[n] = '\0';
    const char* value = eq != nullptr ? eq + 1 : "";
    for (const PreParseOption& p : kPreParse) {
      if (!Abbrev(name, p.name, p.shortest)) continue;
      if (firstPass ? !p.firstPass : !p.secondPass) break;
      int rc = optValidateOptionCL(optionsP, value, p.name, 0, 1, 8);
      if (rc != 0) {
        nlfprintf(stderr, 1107, arg);
        return rc;
      }
      break;
    }
  }
  return 0;
}

int smInitOptFile(int argc, char** argv, smSignalHandler_t handler) {
  dsCoreInit(0, 1);
  euGetEnvironment(0);
  psMiscInit();

  const char* slash = std::strrchr(argv[0], '/');
  hsmSetWhoAmI(slash != nullptr ? slash + 1 : argv[0]);
  if (std::strcmp(argv[0], "/hsmapi") == 0) {
    static char root[] = "/";
    static char* rootArgv[] = {root, nullptr};
    clSmPreInitialize(CleanUp, rootArgv);
  } else {
    clSmPreInitialize(handler != nullptr ? handler : CleanUp, argv);
  }

  new_TraceObject(ctCLSpaceMGT, ThisThread(), trTIDProc);
  optError* err = new_optError();
  if (err == nullptr || FileSubsystemInit() != 0) StartUpFailed(CMD_EXIT_STARTUP);
  if (gRC == nullptr) gRC = newGlobalRC();

  void* mem = qmxCalloc(1, sizeof(clientOptions));
  if (mem == nullptr) StartUpFailed(CMD_EXIT_STARTUP);
  optionsP =
      new (mem) clientOptions(ctCLSpaceMGT, optionTable, optionTableEntries, optSharedOptionTable);
  optionsP->optEnvVarInit();
  optionsP->optGetClientType();

  if (StartMessages(10) != 0) StartUpFailed(CMD_EXIT_STARTUP);

  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  cb->canReportInterrupt = 1;
  trReset(1);

  if (PreParseCmdLine(argc, argv, 1) != 0) HsmNormalCleanUp();

  int rc = optionsP->optPrescanTrOpt(err);
  if (rc == 0) rc = optionsP->optPrescanSysOptFile(nullptr, err);
  if (rc != 0) {
    if (rc == OPT_RC_OPENFAIL) err->rc = OPT_RC_OPENFAIL;
    ReportOptionError(err);
    HsmNormalCleanUp();
  }

  char work[1280] = {};
  rc = optionsP->optProcessOptions(optStoreUser, work, 0, err);
  if (rc != 0) {
    ReportOptionError(err);
    HsmNormalCleanUp();
  }

  if (PreParseCmdLine(argc, argv, 0) != 0) HsmNormalCleanUp();

  TR_PREFIX = 1;
  TR_TIMESTAMP = 1;
  // Only the command line asks for subdirectories; the option files can't.
  optionsP->subdir = 2;

  cb->canReportInterrupt = 0;
  if (StartMessages(50) != 0) StartUpFailed(CMD_EXIT_MESSAGES);

  if (TEST_HSMLF.set && TEST_HSMLF.value == 1) optionsP->enableLanFree = 1;

  int result = cmdOpenErrorLog(optionsP);

  cb->canReportInterrupt = 1;
  pkTSDinit();
  delete_optError(err);
  return result;
}

int smGreetings() {
  if (optionsP != nullptr && optionsP->logo) {
    time_t now = time(nullptr);
    struct tm tmv;
    char date[64] = "", clock[64] = "";
    if (psLocalTime(now, &tmv) != nullptr) dateFmt(&tmv, date, clock, sizeof date);
    nlprintf(9006, kVersion, kRelease, kLevel, kSubLevel, " ", date);
    char* text = nullptr;
    if (nlsprintf(&text, 9006, kVersion, kRelease, kLevel, kSubLevel, " ", date) > 0 &&
        text != nullptr) {
      if (instrObj != nullptr) {
        size_t n = std::strlen(text) + 2;
        char* copy = static_cast<char*>(std::malloc(n));
        if (copy != nullptr) {
          std::snprintf(copy, n, "\n%s", text);
          instrObj->addMiscData(copy);
          std::free(copy);
        }
      }
    }
    std::free(text);
  }
  char* copyright = nullptr;
  char* license = nullptr;
  time_t now = time(nullptr);
  struct tm tmv;
  int year = psLocalTime(now, &tmv) != nullptr ? tmv.tm_year + 1900 : 2026;
  nlsprintf(&copyright, 15755, year);
  nlsprintf(&license, 15756);
  if (copyright != nullptr && license != nullptr) {
    std::printf("%s %s\n\n", psConvertOemString(copyright), psConvertOemString(license));
  }
  std::free(copyright);
  std::free(license);
  return 0;
}

bool isTmpFsFull() {
  uint64_t avail = 0;
  // A failing query counts as not full: the command must not stop because
  // /tmp can't be asked.
  if (psFsAvailBlocks(psSysPath("/tmp").c_str(), &avail) != 0) return false;
  return avail == 0;
}

int smSysOptFile(int exitOnError, clientOptions* opts) {
  if (opts == nullptr) opts = optionsP;
  optError* err = new_optError();
  if (err == nullptr) {
    TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "smSysOptFile: not enough memory!\n");
    if (exitOnError == 1) HsmNormalCleanUp();
    return CMD_RC_SYSOPT_NOMEM;
  }
  TRACE_Fkt(__FILE__, __LINE__)(TR_SM,
                                "smSysOptFile: before the qmx.sys processing, machineName(%s), "
                                "serverName(%s), bClusterNode(%d), m_optP(%p)\n",
                                opts->nodeName, opts->serverName, opts->clusterNode,
                                static_cast<void*>(opts));
  opts->ieList().clear();

  char work[1280] = {};
  int rc = opts->optProcessOptions(optStoreSystem, work, 0, err);
  if (rc != 0) {
    ReportOptionError(err);
    if (exitOnError == 1) HsmNormalCleanUp();
    delete_optError(err);
    return CMD_RC_SYSOPT_FILE;
  }
  rc = opts->optPostProcessOptions(err);
  if (rc != 0) {
    TRACE_Fkt(__FILE__, __LINE__)(
        TR_SM, "smSysOptFile: optPostProcessOptions() failed due to rc(%d)\n", rc);
    if (exitOnError == 1) {
      nlfprintf(stderr, 1038);
      ReportOptionError(err);
      HsmNormalCleanUp();
    }
    delete_optError(err);
    return CMD_RC_SYSOPT_POST;
  }
  // The system options may name another error log or change its size or
  // retention; they take effect from here on.  A log that can't be opened
  // is reported (1398) and the command goes on, as at start-up.
  if (opts == optionsP) cmdReopenErrorLog(opts);
  if (opts->optCheckUser() != OPT_RC_USERALLOWED) {
    if (exitOnError == 1) {
      nlfprintf(stderr, 1216);
      HsmNormalCleanUp();
    }
    delete_optError(err);
    return CMD_RC_SYSOPT_USER;
  }

  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  if (TR_GENERAL || TR_SM || TR_SMVERBOSE) {
    trPrintf(__FILE__, __LINE__, "Command line operands are:\n");
    for (int i = 0; i < cb->operandCount; ++i) {
      trPrintf(__FILE__, __LINE__, "\toperand[%d] is '%s'\n", i, cb->operands[i]);
    }
    trPrintf(__FILE__, __LINE__, "Current option settings:\n");
    // The dump is written to a memory stream first: the trace owns its
    // output stream.
    char* dump = nullptr;
    size_t dumpLen = 0;
    FILE* mem = open_memstream(&dump, &dumpLen);
    if (mem != nullptr) {
      opts->optDisplay(mem);
      std::fclose(mem);
      if (dump != nullptr) trPrint("%s", dump);
      std::free(dump);
    }
    trPrint("\n");
  }
  delete_optError(err);
  if (opts->tcpDebug) nlprintf(11290);

  delete_CorrSTable(cb->corrTable);
  EndThreadSession(cb, true);

  Sess_o* sess = new_SessionObject(opts, 1);
  cb->sessionMap[ThisThread()] = sess;
  if (sess != nullptr) {
    cb->corrTable = new_CorrSTable(sess->sessGetString(5), nullptr, 0);
    if (cb->corrTable != nullptr) {
      TRACE_Fkt(__FILE__, __LINE__)(TR_SM,
                                    "smSysOptFile: after the qmx.sys processing, machineName(%s), "
                                    "serverName(%s), bClusterNode(%d)\n",
                                    opts->nodeName, opts->serverName, opts->clusterNode);
      return 0;
    }
  }
  if (exitOnError == 0) return CMD_RC_SYSOPT_SESSION;
  HsmNormalCleanUp();
  return CMD_RC_SYSOPT_SESSION;
}

int smPostProc() {
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  if (!EnterShutDown(cb)) return 0;
  instrObject::instrStop(instrObj, 1);
  const int keep = optionsP != nullptr ? optionsP->keep : 0;
  if (EndThreadSession(cb, true)) {
    if (keep == 0) psCleanUpatExit();
    delete_CorrSTable(cb->corrTable);
  }
  if (optionsP == nullptr) return 0;
  if (keep != 0) {
    // An embedding caller keeps everything up for its next command.
    bHsmCleanupStarted = 0;
    return 0;
  }
  DestroyOptions();
  clUtCleanUp();
  nlterm();
  trClose(1);
  dsCoreCleanUp();
  cb->cleanupDone = 1;
  return 0;
}

void HsmNormalCleanUp() {
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  if (!EnterShutDown(cb)) return;
  FatalTearDown(cb, false);
  std::exit(CMD_EXIT_FAILED);
}

void CleanUp(int sig) {
  (void)sig;
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  if (!EnterShutDown(cb)) return;
  if (cb->canReportInterrupt == 1 && cb->canPrintInCleanUp == 1) nlfprintf(stderr, 11159);
  FatalTearDown(cb, true);
  std::exit(CMD_EXIT_FAILED);
}
