#include "hsm/cmd/spaceman_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "diag/trace.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/dmapi/dmi_fsstate.h"
#include "hsm/dmapi/dmi_session.h"
#include "options/optobj.h"
#include "platform/sysroot.h"

namespace {

const char kFn[] = "getSpaceManState";
// The recall daemon's executable tells whether the client is installed.
const char kRecallDaemon[] = "/opt/norvik/nqb/client/hsm/bin/qmxrecalld";

bool StateTrace() {
  return TR_SM || TR_SMLOG;
}

}  // namespace

char* qmxFSNameToSpaceManDir(const char* fsName, char* buf, size_t size) {
  std::snprintf(buf, size, "%s%s", fsName, "/.SpaceMan");
  return buf;
}

int getSpaceManState(const char* fsName) {
  TRACE_ENTER_EXIT("getSpaceManState");
  const int savedErrno = errno;
  const char* prog = hsmWhoAmI();

  clientOptions* opts = optGetThreadOptionP();
  uint64_t sid = opts != nullptr ? opts->dmapiSessionId : 0;
  if (sid == 0 || sid == UINT64_MAX) {
    // All ones is what SetFileAttr's fallback leaves behind.
    sid = dmiGetSid();
    if (sid == 0) {
      errno = savedErrno;
      return SPACEMAN_NOSESSION;
    }
    if (opts != nullptr) opts->dmapiSessionId = sid;
  }

  fsmState global{};
  std::snprintf(global.fsName, sizeof global.fsName, "%s", fsName);
  bool deactivated = false;
  if (dmiEntryGetGlobalState(sid, &global) == 0) {
    int migrate = (global.flags & fsmMigrateOn) ? 1 : 0;
    int recall = (global.flags & fsmRecallOn) ? 1 : 0;
    if (StateTrace()) {
      trPrintf(__FILE__, __LINE__,
               "(%s:%s): dmiEntryGetGlobalstate for  FS: %s returns with DMI_OK, migrate=%d, "
               "recall=%d\n",
               prog, kFn, fsName, migrate, recall);
    }
    deactivated = migrate == 0 && recall == 0;
    if (StateTrace()) {
      trPrintf(__FILE__, __LINE__,
               deactivated ? "(%s:%s): SpaceMan is global deactivated for FS %s\n"
                           : "(%s:%s): SpaceMan is global active for FS %s\n",
               prog, kFn, fsName);
    }
  } else if (StateTrace()) {
    trPrintf(__FILE__, __LINE__,
             "(%s:%s): dmiEntryGetGlobalstate for  FS: %s returns with DMI_ERROR\n", prog, kFn,
             fsName);
  }

  char dir[4096];
  qmxFSNameToSpaceManDir(fsName, dir, sizeof dir);
  int fd = open(dir, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (StateTrace()) {
      trPrintf(__FILE__, __LINE__,
               "(%s:%s): Can NOT open SpaceMan Dir %s return with SPACEMAN_NONE\n", prog, kFn, dir);
    }
    errno = savedErrno;
    return SPACEMAN_NONE;
  }

  // The directory stays open while the state is read, so that the file
  // system can't be unmounted under the question.
  int state = SPACEMAN_NONE;
  fsmState fs{};
  std::snprintf(fs.fsName, sizeof fs.fsName, "%s", fsName);
  if (dmiEntryGetFSState(sid, &fs) != 0) {
    if (StateTrace()) {
      trPrintf(__FILE__, __LINE__,
               "(%s:%s): dmiEntryGetFSState for  FS: %s returns with DMI_ERROR, rc ist set to "
               "SPACEMAN_NONE\n",
               prog, kFn, fsName);
    }
  } else {
    int migrate = (fs.flags & fsmMigrateOn) ? 1 : 0;
    int recall = (fs.flags & fsmRecallOn) ? 1 : 0;
    if (StateTrace()) {
      trPrintf(__FILE__, __LINE__,
               "(%s:%s): dmiEntryGetFSState for  FS: %s returns with DMI_OK, migrate=%d, "
               "recall=%d\n",
               prog, kFn, fsName, migrate, recall);
    }
    const char* line = nullptr;
    if (migrate && recall) {
      state = SPACEMAN_ACTIVE;
      line = "(%s:%s): migrate=1 and recall=1, rc set to %d\n";
    } else if (!migrate && !recall) {
      state = SPACEMAN_INACTIVE;
      line = "(%s:%s): migrate=0 and recall=0, rc set to %d\n";
    } else if (recall) {
      state = SPACEMAN_RECALLONLY;
      line = "(%s:%s): migrate=0 and recall=1, rc set to %d\n";
    } else {
      state = SPACEMAN_MIGONLY;
      line = "(%s:%s): migrate=1 and recall=0, rc set to %d\n";
    }
    if (deactivated) state = SPACEMAN_GLOBALDEACTIVATED;
    if (StateTrace()) trPrintf(__FILE__, __LINE__, line, prog, kFn, state);
  }
  close(fd);
  errno = savedErrno;
  return state;
}

int qmxSpaceManIsInstalled(const char* fsName) {
  struct stat st;
  if (stat(psSysPath(kRecallDaemon).c_str(), &st) != 0) {
    TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "qmxSpaceManIsInstalled: no.\n");
    return -1;
  }
  if (fsName == nullptr) {
    TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "qmxSpaceManIsInstalled: yes.\n");
    return 0;
  }
  int state = getSpaceManState(fsName);
  bool yes = state != SPACEMAN_NONE;
  TRACE_Fkt(__FILE__, __LINE__)(TR_SM, "qmxSpaceManIsInstalled(%s): %s, spaceManState(%d).\n",
                                fsName, yes ? "yes" : "no", state);
  return yes ? 0 : -1;
}
