#include "hsm/dmapi/dmi_session.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "diag/nl.h"
#include "hsm/dmapi/dmi_recover.h"
#include "hsm/dmapi/dmi_sessinfo.h"
#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/dmi_trace.h"
#include "hsm/dmapi/fs_config.h"
#include "hsm/dmapi/xdsmapi.h"
#include "options/optobj.h"

char QMXDMRECALLD[256];
char QMXDMMONITORD[256];
char QMXDMSCOUTD[256];
char QMXDMROOTD[256];
char QMXDMWATCHD[256];

namespace {

// Seconds of failed session opens of a daemon since message 9531 was last
// logged; daemons retry every few seconds, so 5 per failure makes the
// message appear about once an hour.
int gFailSeconds = 0;
constexpr int kFailLogSeconds = 3600;
constexpr int kFailStep = 5;

// The daemons, in the order their names are tested, with their session
// names.
struct Daemon {
  const char* program;
  char* sessionName;
};
const Daemon kDaemons[] = {
    {"qmxrecalld", QMXDMRECALLD}, {"qmxmonitord", QMXDMMONITORD}, {"qmxscoutd", QMXDMSCOUTD},
    {"qmxrootd", QMXDMROOTD},     {"qmxwatchd", QMXDMWATCHD},
};

const Daemon* myDaemon() {
  const char* prog = dmiProgName();
  for (const Daemon& d : kDaemons)
    if (std::strstr(prog, d.program) != nullptr) return &d;
  return nullptr;
}

clientOptions* opts() {
  return optGetThreadOptionP();
}

}  // namespace

int& dmiSessionFailSeconds() {
  return gFailSeconds;
}

int dmiInit(int quiet) {
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  if (x->initService() == DMI_XDSM_DONE) return 0;
  int err = errno;
  if (!quiet) nlfprintf(stderr, 9505, dmiProgName(), std::strerror(err));
  errno = err;
  return -1;
}

dm_sessid_t dmiGetSid() {
  return XDSMAPI::getXDSMAPI()->getSID();
}

const char* qmxWhoAmI() {
  const Daemon* d = myDaemon();
  if (d != nullptr && d->sessionName[0] != '\0') return d->sessionName;
  return dmiProgName();
}

dm_sessid_t dmiOpenSession(int force) {
  static const char kFn[] = "dmiOpenSession";
  TRACE_ENTER_EXIT(kFn);
  short instance = getInstanceNo();
  if (instance <= 0) {
    DMI_TRACE(DMI_TR_ON, kFn, "failed to get VEXA node number!\n");
    return DM_NO_SESSION;
  }
  static const char* const kFormats[] = {"rec%hd", "mon%hd", "sct%hd", "roo%hd", "wat%hd"};
  char* const names[] = {QMXDMRECALLD, QMXDMMONITORD, QMXDMSCOUTD, QMXDMROOTD, QMXDMWATCHD};
  for (int i = 0; i < 5; ++i) {
    char probe[256];
    if (std::snprintf(probe, sizeof probe, kFormats[i], instance) >= static_cast<int>(sizeof probe))
      return DM_NO_SESSION;
  }
  for (int i = 0; i < 5; ++i) std::snprintf(names[i], 256, kFormats[i], instance);
  DMI_TRACE(DMI_TR_ON, kFn, "my instance nr: %hd\n", instance);

  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  const Daemon* daemon = myDaemon();
  const char* name = qmxWhoAmI();
  dm_sessid_t oldsid = DM_NO_SESSION;
  dm_sessid_t sid = DM_NO_SESSION;
  char text[dmiTextBufSize];
  bool reused = false;
  if (daemon != nullptr) {
    clientOptions* o = opts();
    bool reuse =
        daemon->sessionName == QMXDMRECALLD && o != nullptr && o->hsmProgressiveDaemonStart != 0;
    if (reuse)
      DMI_TRACE(DMI_TR_ON, kFn, "recover orphaned session in REUSE MODE\n");
    else
      DMI_TRACE(DMI_TR_ON, kFn, "recover orphaned session in CREATE NEW MODE\n");
    if (dmiRecoverObsoletedSession(DM_NO_SESSION, name, reuse ? 1 : 0) != 0) {
      if (dmiGetSidByName(name, &oldsid, DM_NO_SESSION) != 0) return DM_NO_SESSION;
    } else if (reuse && x->getSID() != DM_NO_SESSION) {
      sid = x->getSID();
      reused = true;
      DMI_TRACE(DMI_TR_ON, kFn, "SUCCESS : recovered orphaned session: %s\n",
                dmiSessionIDToString(sid, text));
    }
  }
  if (!reused) {
    sid = x->createSession(oldsid, name, force);
    if (sid != DM_NO_SESSION)
      DMI_TRACE(DMI_TR_ON, kFn, "SUCCESS : created new session: %s\n",
                dmiSessionIDToString(sid, text));
  }
  if (sid != DM_NO_SESSION) {
    DMI_TRACE(DMI_TR_ON, kFn, "created DM session: %s\n", dmiSessionIDToString(sid, text));
    if (clientOptions* o = opts()) o->dmapiSessionId = sid;
    if (dmiSessionCreateInfo(sid) != 0)
      DMI_TRACE(DMI_TR_ON, kFn, "could not create session log file for sid : %s, errno: %d\n",
                dmiSessionIDToString(sid, text), errno);
    return sid;
  }
  int err = errno;
  if (err == EPERM) {
    nlfprintf(stderr, 9012, name);
  } else {
    bool rateLimited = daemon != nullptr && daemon->sessionName != QMXDMROOTD;
    bool logNow = true;
    if (rateLimited) {
      if (gFailSeconds < kFailLogSeconds) {
        gFailSeconds += kFailStep;
        logNow = false;
      } else {
        gFailSeconds = 0;
      }
    }
    if (logNow)
      dmiLogMsg(9531, name, dmiSessionIDToString(oldsid, text), dmiProgName(), std::strerror(err));
  }
  errno = err;
  return DM_NO_SESSION;
}

int dmiCloseSession(dm_sessid_t sid, int flag) {
  static const char kFn[] = "dmiCloseSession";
  TRACE_ENTER_EXIT(kFn);
  if (sid == DM_NO_SESSION || sid == DM_INVALID_SESSION) {
    DMI_TRACE(DMI_TR_ON, kFn, "call argument was (NO_SESSION || INVALID_SESSION)\n");
    errno = EINVAL;
    return -1;
  }
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  char text[dmiTextBufSize];
  dmiSessionIDToString(sid, text);
  // A forked child shares its parent's session: it forgets it and leaves
  // the parent's events, session and marker file alone.
  if (sid == x->getSID() && x->getCreator() != 0 && x->getCreator() != getpid()) {
    x->setSID(DM_NO_SESSION);
    return 0;
  }
  unsigned int count = 0;
  if (dmiClearAllEvents(sid, flag, &count) == 0)
    DMI_TRACE(DMI_TR_ON, kFn,
              "cleared %u undelivered events and outstanding tokens on session %s\n", count, text);
  int rc = 0;
  if (x->destroySession(sid, flag) != DMI_XDSM_DONE) {
    int err = errno;
    DMI_TRACE(DMI_TR_ON, kFn, "destroy session (%s) failed due to errno(%d), reason(%s)\n", text,
              err, std::strerror(err));
    rc = -1;
  }
  if (sid == x->getSID()) {
    x->setSID(DM_NO_SESSION);
    DMI_TRACE(DMI_TR_ON, kFn, "set the saved sid (%s) to DM_NO_SESSION\n", text);
  }
  int err = errno;
  if (dmiSessionRemoveInfo(sid, flag, 0) != 0)
    DMI_TRACE(DMI_TR_ON, kFn, "could not remove session log file for sid : %s, errno: %d\n", text,
              errno);
  errno = err;
  return rc;
}

int qmxCreateSession(uint64_t* sid, int /*flags1*/, int /*flags2*/) {
  TRACE_ENTER_EXIT("qmxCreateSession");
  if (sid == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (dmiInit(0) != 0) return -1;
  dm_sessid_t s = dmiOpenSession(0);
  if (s == DM_NO_SESSION) return -1;
  *sid = s;
  return 0;
}

int qmxDestroySession(uint64_t sid) {
  TRACE_ENTER_EXIT("qmxDestroySession");
  if (sid == DM_NO_SESSION) sid = dmiGetSid();
  if (sid == DM_NO_SESSION) return 0;
  int rc = dmiCloseSession(sid, 0);
  if (clientOptions* o = opts())
    if (o->dmapiSessionId == sid) o->dmapiSessionId = DM_NO_SESSION;
  return rc;
}
