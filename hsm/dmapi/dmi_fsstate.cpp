#include "hsm/dmapi/dmi_fsstate.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "diag/logfile.h"
#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/dmi_trace.h"
#include "hsm/dmapi/sys_lock.h"
#include "platform/sysroot.h"

const char* const dmiGlobalLockDir = "/etc/zpln/SpaceMan";
const char* const dmiGlobalLockFile = "/config/dmiFSGlobalState.pid";

namespace {

constexpr unsigned kWaitSeconds = 5;
constexpr int kWriterTries = 5;
// A new global state file: recall and migration on.
constexpr uint32_t kNewGlobalWord = fsmRecallOn | fsmMigrateOn;

void defaultSleep(unsigned seconds) {
  sleep(seconds);
}
dmiStateSleep_t gSleep = defaultSleep;

bool absent(int err) {
  return err == ENOENT || err == ENODATA || err == DMI_ERRNO_NOATTR;
}

dm_sessid_t effectiveSid(dm_sessid_t sid) {
  return sid == DM_INVALID_SESSION ? dmiGetSid() : sid;
}

int lockFailed() {
  int err = errno;
  std::string dir = psSysPath(dmiGlobalLockDir);
  dmiLogMsg(9545, dmiProgName(), dir.c_str(), dmiGlobalLockFile);
  errno = err;
  return -1;
}

// Reads "KVRStat" of |h| into |buf|.  Returns 0, or -1 after message 9511.
int readStat(dm_sessid_t sid, const xdsm_handle_t& h, const fsmState* st,
             unsigned char (&buf)[dmiStatSize]) {
  std::memset(buf, 0, sizeof buf);
  dm_attrname_t name = dmiAttrName(DMI_ATTR_STAT);
  size_t rlen = 0;
  int rc = XDSMAPI::getXDSMAPI()->getDmattr(sid, h, DM_NO_TOKEN, &name, sizeof buf, buf, &rlen);
  // The five words that carry the state must all be there.
  if (rc == 0 && rlen < 5 * sizeof(uint32_t)) {
    rc = -1;
    errno = EIO;
  }
  if (rc != 0) {
    int err = errno;
    char sidText[dmiTextBufSize];
    const char* fs = st != nullptr && st->fsName[0] != '\0' ? st->fsName : "<NA>";
    dmiLogMsg(9511, dmiProgName(), dmiSessionIDToString(sid, sidText), fs,
              dmiHandleToHex(h).c_str(), "DM_NO_TOKEN", std::strerror(err));
    errno = err;
    return -1;
  }
  return 0;
}

int writeStat(dm_sessid_t sid, const xdsm_handle_t& h, const unsigned char (&buf)[dmiStatSize]) {
  dm_attrname_t name = dmiAttrName(DMI_ATTR_STAT);
  if (XDSMAPI::getXDSMAPI()->setDmattr(sid, h, DM_NO_TOKEN, &name, 0, sizeof buf, buf) != 0) {
    int err = errno;
    char sidText[dmiTextBufSize];
    dmiLogMsg(9512, dmiProgName(), dmiSessionIDToString(sid, sidText), dmiHandleToHex(h).c_str(),
              "DM_NO_TOKEN", std::strerror(err));
    errno = err;
    return -1;
  }
  return 0;
}

void putWords(unsigned char (&buf)[dmiStatSize], unsigned char flags, uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    uint32_t w = (flags >> i) & 1u;
    std::memcpy(buf + 4 * i, &w, 4);
  }
  std::memcpy(buf + 16, &value, 4);
}

// Whether the state file of |h| carries "KVRStat": 1 yes, 0 no, -1 error.
int hasStat(dm_sessid_t sid, const xdsm_handle_t& h) {
  dm_attrname_t name = dmiAttrName(DMI_ATTR_STAT);
  size_t rlen = 0;
  // Presence is all that counts: an empty buffer gets E2BIG for any value.
  if (XDSMAPI::getXDSMAPI()->getDmattr(sid, h, DM_NO_TOKEN, &name, 0, nullptr, &rlen) == 0 ||
      errno == E2BIG)
    return 1;
  return absent(errno) ? 0 : -1;
}

std::string statePath(const char* fsName) {
  std::string p = std::string(fsName) + "/" + ".SpaceMan/dmiFSState";
  return p;
}

}  // namespace

dmiStateSleep_t dmiSetStateSleep(dmiStateSleep_t fn) {
  dmiStateSleep_t old = gSleep;
  gSleep = fn != nullptr ? fn : defaultSleep;
  return old;
}

std::string dmiGlobalStatePath() {
  return psSysPath("/etc/zpln/SpaceMan/config/dmiFSGlobalState");
}

// ---- Global state ------------------------------------------------------

int DmiCreateGlobalStateFile() {
  std::string path = dmiGlobalStatePath();
  int rc = utBuildPath(path.c_str());
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  uint32_t word = kNewGlobalWord;
  ssize_t n = write(fd, &word, sizeof word);
  int err = errno;
  close(fd);
  if (n != static_cast<ssize_t>(sizeof word)) {
    errno = n < 0 ? err : EIO;
    return -1;
  }
  return 0;
}

int dmiGetGlobalState(dm_sessid_t /*sid*/, fsmState* st) {
  static const char kFn[] = "dmiGetGlobalState";
  if (st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  std::string path = dmiGlobalStatePath();
  // Readers wait as long as a writer holds the lock.
  while (serQuerySysLock(dmiGlobalLockDir, dmiGlobalLockFile, serLockExclusive) != 0) {
    if (errno == ECONNABORTED) return -1;
    if (TR_GENERAL || TR_DMI)
      trPrintf(__FILE__, __LINE__, "%s: waiting for read access of state file %s\n", kFn,
               path.c_str());
    gSleep(kWaitSeconds);
  }
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (serAcquireSysLock(dmiGlobalLockDir, dmiGlobalLockFile) != 0) return lockFailed();
    if (DmiCreateGlobalStateFile() != 0) {
      int err = errno;
      st->flags &= static_cast<unsigned char>(~(fsmRecallOn | fsmMigrateOn));
      serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile);
      errno = err;
      return -1;
    }
    serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile);
    fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
  }
  uint32_t word = 0;
  ssize_t n = read(fd, &word, sizeof word);
  close(fd);
  st->flags &= static_cast<unsigned char>(~(fsmRecallOn | fsmMigrateOn));
  if (n != static_cast<ssize_t>(sizeof word)) {
    // Damaged: report it and delete it; the next reader creates it anew.
    dmiLogMsg(9528, dmiProgName(), path.c_str());
    unlink(path.c_str());
    errno = EIO;
    return -1;
  }
  st->flags |= static_cast<unsigned char>(word & (fsmRecallOn | fsmMigrateOn));
  return 0;
}

int dmiSetGlobalState(dm_sessid_t /*sid*/, const fsmState* st) {
  if (st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int tries = 0;
  while (serAcquireSysLock(dmiGlobalLockDir, dmiGlobalLockFile) != 0) {
    if (++tries == kWriterTries) return lockFailed();
    gSleep(kWaitSeconds);
  }
  std::string path = dmiGlobalStatePath();
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
  if (fd < 0) {
    if (DmiCreateGlobalStateFile() != 0) {
      int err = errno;
      serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile);
      errno = err;
      return -1;
    }
    fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  }
  uint32_t word = st->flags & (fsmRecallOn | fsmMigrateOn);
  ssize_t n = fd >= 0 ? write(fd, &word, sizeof word) : -1;
  int err = errno;
  if (fd >= 0) close(fd);
  if (n != static_cast<ssize_t>(sizeof word)) {
    if (n >= 0) err = EIO;
    dmiLogMsg(9527, dmiProgName(), path.c_str(), std::strerror(err));
    serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile);
    errno = err;
    return -1;
  }
  serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile);
  return 0;
}

// ---- Per-file-system state ---------------------------------------------

int dmiGetFSStateHandle(const char* fsName, xdsm_handle_t* h) {
  if (fsName == nullptr || h == nullptr) {
    errno = EINVAL;
    return -1;
  }
  char path[fsmPathSize + 32];
  int n = std::snprintf(path, sizeof path, "%s/%s", fsName, ".SpaceMan/dmiFSState");
  if (n < 0 || n >= static_cast<int>(sizeof path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  return handleSetWithPath(h, path);
}

int dmiGetFSMode(dm_sessid_t sid, const char* fsName, int* mode) {
  if (mode == nullptr) {
    errno = EINVAL;
    return -1;
  }
  *mode = 0;
  xdsm_handle_t h;
  if (dmiGetFSStateHandle(fsName, &h) != 0) return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
  int has = hasStat(effectiveSid(sid), h);
  int err = errno;
  handleFree(&h);
  if (has < 0) {
    errno = err;
    return -1;
  }
  *mode = has;
  return 0;
}

int dmiGetFSState(dm_sessid_t sid, const xdsm_handle_t& h, fsmState* st) {
  if (st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  sid = effectiveSid(sid);
  unsigned char buf[dmiStatSize];
  if (readStat(sid, h, st, buf) != 0) return -1;
  unsigned char flags = 0;
  for (int i = 0; i < 4; ++i) {
    uint32_t w;
    std::memcpy(&w, buf + 4 * i, 4);
    flags |= static_cast<unsigned char>((w & 1u) << i);
  }
  st->flags = static_cast<unsigned char>((st->flags & 0xF0) | flags);
  std::memcpy(&st->value, buf + 16, 4);
  return 0;
}

int dmiSetFSState(dm_sessid_t sid, const xdsm_handle_t& h, const fsmState* st) {
  if (st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  sid = effectiveSid(sid);
  unsigned char buf[dmiStatSize];
  if (readStat(sid, h, st, buf) != 0) return -1;
  putWords(buf, st->flags, st->value);
  return writeStat(sid, h, buf);
}

int dmiCreateFSState(dm_sessid_t sid, const char* fsName) {
  if (fsName == nullptr || *fsName != '/') {
    errno = EINVAL;
    return -1;
  }
  sid = effectiveSid(sid);
  std::string dir = std::string(fsName) + "/.SpaceMan";
  if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) return -1;
  std::string path = statePath(fsName);
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  close(fd);
  xdsm_handle_t h;
  if (handleSetWithPath(&h, path.c_str()) != 0) return -1;
  int has = hasStat(sid, h);
  int rc = 0;
  if (has == 0) {
    unsigned char buf[dmiStatSize] = {};
    putWords(buf, fsmRecallOn | fsmMigrateOn, 0);
    rc = writeStat(sid, h, buf);
  } else if (has < 0) {
    rc = -1;
  }
  int err = errno;
  handleFree(&h);
  errno = err;
  return rc;
}

int dmiRemoveFSState(dm_sessid_t /*sid*/, const char* fsName) {
  if (fsName == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (unlink(statePath(fsName).c_str()) != 0 && errno != ENOENT) return -1;
  return 0;
}

int DmiRecoverFSState(dm_sessid_t sid, const char* fsName) {
  if (fsName == nullptr) {
    errno = EINVAL;
    return -1;
  }
  sid = effectiveSid(sid);
  xdsm_handle_t h;
  if (dmiGetFSStateHandle(fsName, &h) == 0) {
    unsigned char buf[dmiStatSize];
    dm_attrname_t name = dmiAttrName(DMI_ATTR_STAT);
    size_t rlen = 0;
    int rc = XDSMAPI::getXDSMAPI()->getDmattr(sid, h, DM_NO_TOKEN, &name, sizeof buf, buf, &rlen);
    int err = errno;
    if (rc == 0 && rlen == dmiStatSize) {
      handleFree(&h);
      return 0;
    }
    if (rc != 0 && !absent(err) && err != E2BIG) {
      handleFree(&h);
      errno = err;
      return -1;
    }
    // Absent or of the wrong size: start again from the defaults.
    unsigned char fresh[dmiStatSize] = {};
    putWords(fresh, fsmRecallOn | fsmMigrateOn, 0);
    rc = writeStat(sid, h, fresh);
    err = errno;
    handleFree(&h);
    errno = err;
    return rc;
  }
  if (errno != ENOENT && errno != ENOTDIR) return -1;
  return dmiCreateFSState(sid, fsName);
}

// ---- Entries of the commands -----------------------------------------

int dmiEntryGetGlobalState(dm_sessid_t sid, fsmState* st) {
  if (dmiGetGlobalState(sid, st) == 0) return 0;
  int err = errno;
  if (TR_SM)
    trPrintf(__FILE__, __LINE__,
             "dmiEntryGetGlobalState: dmiGetGlobalState failed, errno (%d), reason (%s)\n", err,
             std::strerror(err));
  errno = err;
  return -1;
}

int dmiEntrySetGlobalState(dm_sessid_t sid, const fsmState* st) {
  return dmiSetGlobalState(sid, st);
}

int dmiEntryGetFSState(dm_sessid_t sid, fsmState* st) {
  if (st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  sid = effectiveSid(sid);
  xdsm_handle_t h;
  if (dmiGetFSStateHandle(st->fsName, &h) != 0) {
    int err = errno;
    if (TR_SM)
      trPrintf(__FILE__, __LINE__,
               "dmiEntryGetFSState: dmiGetFSStateHandle failed, errno (%d), reason (%s)\n", err,
               std::strerror(err));
    errno = err;
    return -1;
  }
  // The mode check uses the handle in hand: a managed file system's state
  // file carries "KVRStat".
  int mode = hasStat(sid, h);
  if (mode != 1) {
    int err = mode == 0 ? ENOENT : errno;
    if (TR_SM)
      trPrintf(__FILE__, __LINE__,
               "dmiEntryGetFSState: dmiGetFSMode failed, errno (%d), reason (%s)\n", err,
               std::strerror(err));
    handleFree(&h);
    errno = err;
    return -1;
  }
  int rc = dmiGetFSState(sid, h, st);
  int err = errno;
  if (rc != 0 && TR_SM)
    trPrintf(__FILE__, __LINE__,
             "dmiEntryGetFSState: dmiGetFSState failed, errno (%d), reason (%s)\n", err,
             std::strerror(err));
  handleFree(&h);
  errno = err;
  return rc;
}

int dmiEntrySetFSState(dm_sessid_t sid, const fsmState* st) {
  if (st == nullptr) {
    errno = EINVAL;
    return -1;
  }
  xdsm_handle_t h;
  if (dmiGetFSStateHandle(st->fsName, &h) != 0) return -1;
  int rc = dmiSetFSState(sid, h, st);
  int err = errno;
  handleFree(&h);
  errno = err;
  return rc;
}
