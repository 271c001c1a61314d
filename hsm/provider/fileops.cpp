// File data and status calls of our provider.  They work on a descriptor
// opened from the handle's path and checked against the handle's identity,
// and they leave the file's access and modification times as they were:
// a data manager's reads and writes are invisible to the file's users.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "hsm/provider/handle.h"
#include "hsm/provider/qmxdm.h"
#include "hsm/provider/regions.h"
#include "hsm/provider/session_registry.h"

namespace {

int fail(int err) {
  errno = err;
  return -1;
}

int prepare(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, qdmHandle_t* h) {
  if (qdmRegCheck(sid) != 0) return -1;
  if (qdmHandleDecode(hanp, hlen, h) != 0) return -1;
  return qdmRegCheckToken(sid, token);
}

// An open regular file of a handle, closed with the object.
class HandleFile {
 public:
  // Opens |h| with |flags|; ok() tells whether it worked (errno otherwise).
  HandleFile(const qdmHandle_t& h, int flags) {
    fd_ = open(h.path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd_ < 0 && (flags & O_NOATIME) != 0 && errno == EPERM)
      fd_ = open(h.path, (flags & ~O_NOATIME) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd_ < 0) {
      errno = qdmStaleErrno(errno);
      return;
    }
    qdmIdentity_t id;
    int err = 0;
    if (statx(fd_, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &stx_) != 0)
      err = errno;
    else if (qdmIdentityFromStatx(stx_, &id), !qdmSameFile(h.id, id))
      err = EBADF;
    else if (!S_ISREG(stx_.stx_mode))
      err = EINVAL;
    if (err != 0) {
      close(fd_);
      fd_ = -1;
      errno = err;
    }
  }
  ~HandleFile() {
    if (fd_ >= 0) close(fd_);
  }
  HandleFile(const HandleFile&) = delete;
  HandleFile& operator=(const HandleFile&) = delete;

  bool ok() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  const struct statx& stx() const { return stx_; }

  // Puts the access and modification times back as they were at open.
  void restoreTimes() {
    struct timespec ts[2];
    ts[0].tv_sec = stx_.stx_atime.tv_sec;
    ts[0].tv_nsec = stx_.stx_atime.tv_nsec;
    ts[1].tv_sec = stx_.stx_mtime.tv_sec;
    ts[1].tv_nsec = stx_.stx_mtime.tv_nsec;
    int saved = errno;
    futimens(fd_, ts);
    errno = saved;
  }

 private:
  int fd_ = -1;
  struct statx stx_ {};
};

uint64_t blockSize(const struct statx& stx) {
  return stx.stx_blksize > 0 ? stx.stx_blksize : 4096;
}

// The part of [off, off+len) that whole blocks cover, len 0 meaning to the
// end of the file; a range that reaches the end of the file keeps going to
// it.  *toEnd tells that case.
int holeRange(const struct statx& stx, dm_off_t off, dm_size_t len, dm_off_t* roff, dm_size_t* rlen,
              bool* toEnd) {
  uint64_t size = stx.stx_size;
  uint64_t blk = blockSize(stx);
  if (off < 0 || static_cast<uint64_t>(off) > size) return fail(EINVAL);
  uint64_t start = (static_cast<uint64_t>(off) + blk - 1) / blk * blk;
  *toEnd = len == 0 || len >= size - static_cast<uint64_t>(off);
  uint64_t end = *toEnd ? size : (static_cast<uint64_t>(off) + len) / blk * blk;
  if (*toEnd && start > size) start = size;
  if (!*toEnd && end <= start) return fail(EINVAL);
  *roff = static_cast<dm_off_t>(start);
  *rlen = *toEnd ? 0 : end - start;
  return 0;
}

}  // namespace

extern "C" {

int qmxdm_get_fileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                       unsigned int mask, dm_stat_t* statp) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  if (statp == nullptr) return fail(EFAULT);
  struct statx stx;
  if (qdmHandleVerify(h, &stx) != 0) return -1;
  dm_stat_t st;
  std::memset(&st, 0, sizeof st);
  st.dt_dev = h.id.dev;
  st.dt_ino = stx.stx_ino;
  st.dt_mode = stx.stx_mode;
  st.dt_nlink = stx.stx_nlink;
  st.dt_uid = stx.stx_uid;
  st.dt_gid = stx.stx_gid;
  st.dt_rdev = (static_cast<uint64_t>(stx.stx_rdev_major) << 32) | stx.stx_rdev_minor;
  st.dt_size = static_cast<dm_off_t>(stx.stx_size);
  st.dt_atime = stx.stx_atime.tv_sec;
  st.dt_mtime = stx.stx_mtime.tv_sec;
  st.dt_ctime = stx.stx_ctime.tv_sec;
  st.dt_blksize = stx.stx_blksize;
  st.dt_blocks = stx.stx_blocks;
  st.dt_dtime = stx.stx_ctime.tv_sec;
  st.dt_nevents = DM_EVENT_MAX;
  st.dt_pers = DM_TRUE;  // extended attributes are stored with the file
  st.dt_change =
      static_cast<uint32_t>(stx.stx_ctime.tv_sec * 1000000000ULL + stx.stx_ctime.tv_nsec);
  if ((mask & DM_AT_PMANR) != 0 && S_ISREG(stx.stx_mode)) {
    std::vector<dm_region_t> regs;
    if (qdmReadRegions(h.path, &regs) != 0) return fail(qdmStaleErrno(errno));
    st.dt_pmanreg = regs.empty() ? DM_FALSE : DM_TRUE;
    for (const dm_region_t& r : regs) {
      if (r.rg_flags & DM_REGION_READ) st.dt_emask |= 1ULL << DM_EVENT_READ;
      if (r.rg_flags & DM_REGION_WRITE) st.dt_emask |= 1ULL << DM_EVENT_WRITE;
      if (r.rg_flags & DM_REGION_TRUNCATE) st.dt_emask |= 1ULL << DM_EVENT_TRUNCATE;
    }
  }
  *statp = st;
  return 0;
}

int qmxdm_set_fileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                       unsigned int mask, dm_fileattr_t* attrp) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  if (attrp == nullptr) return fail(EFAULT);
  constexpr unsigned int kSettable = DM_AT_MODE | DM_AT_UID | DM_AT_GID | DM_AT_ATIME |
                                     DM_AT_MTIME | DM_AT_CTIME | DM_AT_DTIME | DM_AT_SIZE;
  if ((mask & ~kSettable) != 0) return fail(EINVAL);
  if (qdmHandleVerify(h, nullptr) != 0) return -1;
  // The kernel owns the change time (and with it our dtime): DM_AT_CTIME and
  // DM_AT_DTIME are accepted and left to it, as every change moves them.
  if ((mask & DM_AT_MODE) != 0 && chmod(h.path, attrp->fa_mode & 07777) != 0)
    return fail(qdmStaleErrno(errno));
  if ((mask & (DM_AT_UID | DM_AT_GID)) != 0) {
    uid_t u = (mask & DM_AT_UID) != 0 ? attrp->fa_uid : static_cast<uid_t>(-1);
    gid_t g = (mask & DM_AT_GID) != 0 ? attrp->fa_gid : static_cast<gid_t>(-1);
    if (chown(h.path, u, g) != 0) return fail(qdmStaleErrno(errno));
  }
  if ((mask & DM_AT_SIZE) != 0 && truncate(h.path, attrp->fa_size) != 0)
    return fail(qdmStaleErrno(errno));
  if ((mask & (DM_AT_ATIME | DM_AT_MTIME)) != 0) {
    struct timespec ts[2];
    ts[0].tv_sec = attrp->fa_atime;
    ts[0].tv_nsec = (mask & DM_AT_ATIME) != 0 ? 0 : UTIME_OMIT;
    ts[1].tv_sec = attrp->fa_mtime;
    ts[1].tv_nsec = (mask & DM_AT_MTIME) != 0 ? 0 : UTIME_OMIT;
    if (utimensat(AT_FDCWD, h.path, ts, 0) != 0) return fail(qdmStaleErrno(errno));
  }
  return 0;
}

dm_ssize_t qmxdm_read_invis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                            dm_off_t off, dm_size_t len, void* bufp) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  if (off < 0) return fail(EINVAL);
  if (len > 0 && bufp == nullptr) return fail(EFAULT);
  HandleFile f(h, O_RDONLY | O_NOATIME);
  if (!f.ok()) return -1;
  char* p = static_cast<char*>(bufp);
  dm_size_t done = 0;
  while (done < len) {
    ssize_t n = pread(f.fd(), p + done, len - done, off + static_cast<dm_off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<dm_size_t>(n);
  }
  return static_cast<dm_ssize_t>(done);
}

dm_ssize_t qmxdm_write_invis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, int flags,
                             dm_off_t off, dm_size_t len, void* bufp) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  if (off < 0 || (flags & ~DM_WRITE_SYNC) != 0) return fail(EINVAL);
  if (len > 0 && bufp == nullptr) return fail(EFAULT);
  HandleFile f(h, O_WRONLY | O_NOATIME);
  if (!f.ok()) return -1;
  const char* p = static_cast<const char*>(bufp);
  dm_size_t done = 0;
  while (done < len) {
    ssize_t n = pwrite(f.fd(), p + done, len - done, off + static_cast<dm_off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      f.restoreTimes();
      return done > 0 ? static_cast<dm_ssize_t>(done) : -1;
    }
    done += static_cast<dm_size_t>(n);
  }
  if ((flags & DM_WRITE_SYNC) != 0 && fdatasync(f.fd()) != 0) return -1;
  f.restoreTimes();
  return static_cast<dm_ssize_t>(done);
}

int qmxdm_probe_hole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                     dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  if (roffp == nullptr || rlenp == nullptr) return fail(EFAULT);
  struct statx stx;
  if (qdmHandleVerify(h, &stx) != 0) return -1;
  if (!S_ISREG(stx.stx_mode)) return fail(EINVAL);
  bool toEnd;
  return holeRange(stx, off, len, roffp, rlenp, &toEnd);
}

int qmxdm_punch_hole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                     dm_size_t len) {
  qdmHandle_t h;
  if (prepare(sid, hanp, hlen, token, &h) != 0) return -1;
  HandleFile f(h, O_WRONLY | O_NOATIME);
  if (!f.ok()) return -1;
  dm_off_t roff;
  dm_size_t rlen;
  bool toEnd;
  if (holeRange(f.stx(), off, len, &roff, &rlen, &toEnd) != 0) return -1;
  // Only what dm_probe_hole would answer can be punched exactly.
  if (roff != off || (!toEnd && rlen != len)) return fail(EINVAL);
  dm_size_t span = toEnd ? f.stx().stx_size - static_cast<uint64_t>(roff) : rlen;
  if (span > 0 && fallocate(f.fd(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, roff,
                            static_cast<off_t>(span)) != 0)
    return -1;
  f.restoreTimes();
  return 0;
}

}  // extern "C"
