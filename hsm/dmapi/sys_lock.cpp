#include "hsm/dmapi/sys_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <mutex>

#include "diag/logfile.h"
#include "platform/sysroot.h"

namespace {

// The locks this process holds: lock file -> its open descriptor.
std::mutex gMutex;
std::map<std::string, int>& held() {
  static std::map<std::string, int> m;
  return m;
}

struct flock wholeFile(short type) {
  struct flock fl {};
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = 0;
  fl.l_len = 0;
  fl.l_pid = 0;  // required for open-file-description locks
  return fl;
}

}  // namespace

std::string serSysLockPath(const char* dir, const char* file) {
  return psSysPath(dir != nullptr ? dir : "") + (file != nullptr ? file : "");
}

int serQuerySysLock(const char* dir, const char* file, int kind) {
  std::string path = serSysLockPath(dir, file);
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return 0;
    errno = ECONNABORTED;
    return -1;
  }
  struct flock fl = wholeFile(kind == serLockShared ? F_RDLCK : F_WRLCK);
  int rc = fcntl(fd, F_OFD_GETLK, &fl);
  close(fd);
  if (rc != 0) {
    errno = ECONNABORTED;
    return -1;
  }
  if (fl.l_type == F_UNLCK) return 0;
  errno = EBUSY;
  return 1;
}

int serAcquireSysLock(const char* dir, const char* file) {
  std::string path = serSysLockPath(dir, file);
  std::lock_guard<std::mutex> guard(gMutex);
  if (held().count(path) != 0) {
    errno = EDEADLK;
    return -1;
  }
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0 && errno == ENOENT) {
    int rc = utBuildPath(path.c_str());
    if (rc != 0) {
      errno = rc;
      return -1;
    }
    fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  }
  if (fd < 0) return -1;
  struct flock fl = wholeFile(F_WRLCK);
  if (fcntl(fd, F_OFD_SETLK, &fl) != 0) {
    int err = errno;
    close(fd);
    errno = err;
    return -1;
  }
  // The holder's process id, for administrators who find the lock taken.
  char pid[32];
  int n = std::snprintf(pid, sizeof pid, "%d\n", static_cast<int>(getpid()));
  if (ftruncate(fd, 0) != 0 || pwrite(fd, pid, static_cast<size_t>(n), 0) != n) {
    // The lock holds even when its note can't be written.
  }
  held()[path] = fd;
  return 0;
}

int serReleaseSysLock(const char* dir, const char* file) {
  std::string path = serSysLockPath(dir, file);
  std::lock_guard<std::mutex> guard(gMutex);
  auto it = held().find(path);
  if (it == held().end()) {
    errno = ENOLCK;
    return -1;
  }
  int fd = it->second;
  held().erase(it);
  if (ftruncate(fd, 0) != 0) {
    // A stale process id in a free lock file misleads nobody: the lock is
    // what counts.
  }
  close(fd);  // releases the lock
  return 0;
}
