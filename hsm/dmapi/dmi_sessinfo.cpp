// The session-log marker: an empty file per live session in the first
// managed file system, so that the daemons of every node can see which
// sessions an instance holds.
#include "hsm/dmapi/dmi_sessinfo.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "diag/logfile.h"
#include "hsm/dmapi/dmi_sessid.h"
#include "hsm/dmapi/dmi_trace.h"
#include "hsm/dmapi/fs_config.h"
#include "hsm/dmapi/space_reserve.h"

namespace {

// The migration program's sessions are short and many: no markers.
bool noMarkers(const char* fn) {
  if (std::strcmp(dmiProgName(), "qmxmigrate") != 0) return false;
  DMI_TRACE(DMI_TR_ON, fn, "My name is <%s>. Session logging not needed.\n", dmiProgName());
  return true;
}

// The marker directory into |dir| and its file system into |fs|.
int markerDir(int instance, std::string* fs, std::string* dir) {
  std::string error;
  if (dmiFirstManagedFS(fs, &error) != 0) {
    errno = ENOENT;
    return -1;
  }
  if (instance < 1) instance = getInstanceNo();
  char buf[4096];
  int n = std::snprintf(buf, sizeof buf, "%s%c%s%c%s%d", fs->c_str(), '/', ".SpaceMan/logdir", '/',
                        "sessionlog", instance);
  if (n < 0 || n >= static_cast<int>(sizeof buf)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  *dir = buf;
  return 0;
}

std::string markerFile(const std::string& dir, dm_sessid_t sid) {
  char text[dmiTextBufSize];
  return dir + '/' + dmiSessionIDToString(sid, text) + "." + "sess";
}

}  // namespace

int dmiSessionInfoPath(dm_sessid_t sid, int instance, char* buf, size_t size) {
  std::string fs, dir;
  if (markerDir(instance, &fs, &dir) != 0) return -1;
  std::string file = markerFile(dir, sid);
  if (file.size() + 1 > size) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(buf, file.c_str(), file.size() + 1);
  return 0;
}

int dmiSessionCreateInfo(dm_sessid_t sid) {
  static const char kFn[] = "dmiSessionCreateInfo";
  if (noMarkers(kFn)) return 0;
  std::string fs, dir;
  if (markerDir(0, &fs, &dir) != 0) return -1;
  struct stat st;
  if (stat(dir.c_str(), &st) != 0) {
    int rc = utBuildPath((dir + "/").c_str());
    if (rc != 0) {
      errno = rc;
      return -1;
    }
    DMI_TRACE(DMI_TR_ON, kFn, "created directory for session logging: %s\n", dir.c_str());
  }
  std::string file = markerFile(dir, sid);
  for (int attempt = 0; attempt < 2; ++attempt) {
    int fd = open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    if (fd >= 0) {
      close(fd);
      return 0;
    }
    if (errno != ENOSPC) return -1;
    DMI_TRACE(DMI_TR_ON, kFn, "ENOSPC : failed to open file for session logging: %s, rc: %d\n",
              file.c_str(), -1);
    // Give the file system one reserve file back so the daemon can go on.
    if (dmiFreeSpaceReserved(fs.c_str(), 1) != 1) {
      errno = ENOSPC;
      return -1;
    }
  }
  errno = ENOSPC;
  return -1;
}

int dmiSessionRemoveInfo(dm_sessid_t sid, int /*flag*/, int instance) {
  static const char kFn[] = "dmiSessionRemoveInfo";
  if (noMarkers(kFn)) return 0;
  std::string fs, dir;
  if (markerDir(instance, &fs, &dir) != 0) return -1;
  std::string file = markerFile(dir, sid);
  if (unlink(file.c_str()) != 0) {
    int err = errno;
    DMI_TRACE(DMI_TR_ON, kFn, "unlink of session log file failed: %s, rc: %d, errno: %d\n",
              file.c_str(), -1, err);
    errno = err;
    return -1;
  }
  DMI_TRACE(DMI_TR_ON, kFn, "unlinked session log file: %s\n", file.c_str());
  return 0;
}
