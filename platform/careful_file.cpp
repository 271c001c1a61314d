#include "platform/careful_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

psFileKind_t kindOf(mode_t mode) {
  if (S_ISREG(mode)) return psFileRegular;
  if (S_ISDIR(mode)) return psFileDirectory;
  if (S_ISFIFO(mode)) return psFileFifo;
  if (S_ISSOCK(mode)) return psFileSocket;
  if (S_ISCHR(mode)) return psFileCharDevice;
  if (S_ISBLK(mode)) return psFileBlockDevice;
  if (S_ISLNK(mode)) return psFileSymlink;
  return psFileOther;
}

void setKind(psFileKind_t* out, psFileKind_t k) {
  if (out != nullptr) *out = k;
}

// After an open that failed with |err|: what stands at |path| (without
// following a last link), so that "is a directory" and "is a link" can be
// told from "is missing".
void explainFailure(const char* path, int err, psFileKind_t* kind) {
  if (kind == nullptr) return;
  if (err == ENOENT) {
    *kind = psFileMissing;
    return;
  }
  struct stat st;
  *kind = lstat(path, &st) == 0 ? kindOf(st.st_mode) : psFileOther;
}

// Checks that |fd| is a regular file and makes it block again; closes it
// and fails with EINVAL otherwise.
int keepRegular(int fd, psFileKind_t* kind) {
  struct stat st;
  if (fstat(fd, &st) != 0) {
    int err = errno;
    close(fd);
    errno = err;
    return -1;
  }
  psFileKind_t k = kindOf(st.st_mode);
  setKind(kind, k);
  if (k != psFileRegular) {
    close(fd);
    errno = EINVAL;
    return -1;
  }
  // Non-blocking only kept the open from waiting; a regular file never
  // blocks, but its readers and writers expect the usual descriptor.
  int fl = fcntl(fd, F_GETFL);
  if (fl >= 0) fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
  return fd;
}

std::atomic<unsigned> gTempCounter{0};

}  // namespace

const char* psFileKindName(psFileKind_t kind) {
  switch (kind) {
    case psFileRegular:
      return "regular file";
    case psFileDirectory:
      return "directory";
    case psFileFifo:
      return "FIFO";
    case psFileSocket:
      return "socket";
    case psFileCharDevice:
      return "character device";
    case psFileBlockDevice:
      return "block device";
    case psFileSymlink:
      return "symbolic link";
    case psFileMissing:
      return "missing file";
    case psFileOther:
      break;
  }
  return "special file";
}

int psOpenForReading(const char* path, psLinkRule_t links, psFileKind_t* kind) {
  if (path == nullptr || path[0] == '\0') {
    setKind(kind, psFileMissing);
    errno = ENOENT;
    return -1;
  }
  int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  if (links == psNoLinks) flags |= O_NOFOLLOW;
  int fd = open(path, flags);
  if (fd < 0) {
    int err = errno;
    explainFailure(path, err, kind);
    errno = err;
    return -1;
  }
  return keepRegular(fd, kind);
}

int psReadAllFd(int fd, size_t maxBytes, std::string* out) {
  out->clear();
  char buf[16384];
  for (;;) {
    // One byte past the bound tells a file of exactly |maxBytes| from a
    // longer one.
    size_t room = maxBytes - out->size() + 1;
    ssize_t n = read(fd, buf, room < sizeof buf ? room : sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) return 0;
    out->append(buf, static_cast<size_t>(n));
    if (out->size() > maxBytes) {
      out->resize(maxBytes);
      errno = EFBIG;
      return -1;
    }
  }
}

int psReadWholeFile(const char* path, psLinkRule_t links, size_t maxBytes, std::string* out,
                    psFileKind_t* kind) {
  out->clear();
  int fd = psOpenForReading(path, links, kind);
  if (fd < 0) return -1;
  int rc = psReadAllFd(fd, maxBytes, out);
  int err = errno;
  close(fd);
  errno = err;
  return rc;
}

int psWriteAll(int fd, const void* p, size_t n) {
  const char* c = static_cast<const char*>(p);
  while (n > 0) {
    ssize_t w = write(fd, c, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (w == 0) {
      errno = EIO;  // a device that takes nothing would loop for ever
      return -1;
    }
    c += w;
    n -= static_cast<size_t>(w);
  }
  return 0;
}

int psOpenOwnFile(const char* path, int flags, mode_t mode, psFileKind_t* kind) {
  int fd = open(path, flags | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, mode);
  if (fd < 0) {
    int err = errno;
    explainFailure(path, err, kind);
    errno = err;
    return -1;
  }
  return keepRegular(fd, kind);
}

int psReplaceFile(const char* path, const void* p, size_t n, mode_t mode) {
  // What stands there must be a regular file, a link (replaced, never
  // followed) or nothing; a directory or a device is not ours to replace.
  struct stat st;
  if (lstat(path, &st) == 0 && !S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  char tmp[4096];
  int len = std::snprintf(tmp, sizeof tmp, "%s.new.%ld.%u", path, static_cast<long>(getpid()),
                          gTempCounter.fetch_add(1));
  if (len < 0 || static_cast<size_t>(len) >= sizeof tmp) {
    errno = ENAMETOOLONG;
    return -1;
  }
  int fd = open(tmp, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, mode);
  if (fd < 0) return -1;
  int rc = psWriteAll(fd, p, n);
  // The mode asked for, whatever the umask made of it.
  if (rc == 0) rc = fchmod(fd, mode);
  if (rc == 0) rc = fsync(fd);
  int err = errno;
  if (close(fd) != 0 && rc == 0) {
    rc = -1;
    err = errno;
  }
  if (rc == 0 && rename(tmp, path) != 0) {
    rc = -1;
    err = errno;
  }
  if (rc != 0) {
    unlink(tmp);
    errno = err;
    return -1;
  }
  return 0;
}
