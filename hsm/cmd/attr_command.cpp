#include "hsm/cmd/attr_command.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/diag_status.h"
#include "diag/globalrc.h"
#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/cmd_stdout.h"
#include "hsm/cmd/dsc_mig_attr.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/cmd/hsm_startup.h"
#include "hsm/cmd/mig_parse.h"
#include "hsm/dmapi/dmi_log.h"
#include "hsm/dmapi/dmi_session.h"
#include "options/optobj.h"
#include "platform/clock.h"
#include "platform/file_space.h"
#include "platform/services.h"

namespace {

// The DMAPI session of this run, while it is open.  A signal's clean-up
// destroys it through the at-exit list, so that no session is left behind.
uint64_t g_openSession = 0;

void DestroySessionAtExit() {
  if (g_openSession == 0) return;
  uint64_t sid = g_openSession;
  g_openSession = 0;
  qmxDestroySession(sid);
}

// The file layer counts every VIRTUALMOUNTPOINT directory as a file space.
void RegisterVirtualMountPoints() {
  if (optionsP->virtualMountPoints == nullptr) return;
  for (const std::string& dir : optionsP->virtualMountPoints->items()) {
    psAddVirtualMountPoint(dir.c_str());
  }
}

}  // namespace

int qmxattrMain(int argc, char** argv) {
  cmdWatchStdout();
  psSetThreadMode(1);
  smInitOptFile(argc, argv, nullptr);
  dmiSetProgName(hsmWhoAmI());
  trRouteErrToFile(stderr);
  smGreetings();
  if (isTmpFsFull()) {
    nlfprintf(stderr, 9313, hsmWhoAmI());
    std::exit(CMD_EXIT_FAILED);
  }

  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  cb->commandKind = kCmdKindAttr;
  const bool shortFormat = optionsP->optionFormat != 0;
  int rc = shortFormat ? ParseMigOptShort(argc, argv) : ParseMigOptLong(argc, argv);
  if (rc != 0) {
    if (TR_GENERAL || TR_SM) {
      trPrintf(
          __FILE__, __LINE__,
          shortFormat ? "ParseMigOptShort failed. rc= %d\n" : "ParseMigOptLong failed. rc= %d\n",
          rc);
    }
    std::exit(CMD_EXIT_FAILED);
  }

  if (qmxCreateSession(&optionsP->dmapiSessionId, 0, 0) != 0) std::exit(CMD_EXIT_FAILED);
  g_openSession = optionsP->dmapiSessionId;
  psRegisterCleanUp(DestroySessionAtExit);

  smSysOptFile(1, nullptr);
  RegisterVirtualMountPoints();
  ClearStats();
  hsmStatVar[kHsmStatStartTime] = GetTod();

  rc = DscMigAttr(cb->threadSession());

  // What the command printed must have reached its reader.  A reader that
  // has gone wants no more words; any other failure is the run's error.
  const int outErr = cmdFlushStdout();
  if (outErr != 0 && outErr != EPIPE) {
    nlfprintf(stderr, 14020, std::strerror(outErr));
    // A code of the message rules rises with the message; the command's own
    // failure codes stand.
    if (rc >= DIAG_GRC_OK && rc < DIAG_GRC_ERROR) {
      rc = gRC != nullptr ? gRC->getMax() : DIAG_GRC_ERROR;
    }
  }

  g_openSession = 0;
  qmxDestroySession(optionsP->dmapiSessionId);
  smPostProc();
  if (outErr == EPIPE) cmdEndAsBrokenPipe();
  std::fflush(stdout);
  return rc;
}
