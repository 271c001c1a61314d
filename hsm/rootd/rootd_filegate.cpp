#include "hsm/rootd/rootd_filegate.h"

#include <errno.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "hsm/provider/handle.h"

namespace {

int refusal(const char* path, int err, std::string* out) {
  *out = rtdPrintable(path);
  errno = err;
  return -1;
}

}  // namespace

rtdFileGate::~rtdFileGate() {
  if (fd_ >= 0) close(fd_);
}

int rtdFileGate::openHandle(const dmapiBinding_t& dm, const rtdCaller_t& caller, const void* hanp,
                            size_t hlen, rtdNeed_t need, std::string* refused) {
  dm_ = &dm;
  caller_ = &caller;
  hanp_ = hanp;
  hlen_ = hlen;
  if (dm.handle_to_path == nullptr) {
    *refused = "handle";
    errno = EPERM;
    return -1;
  }
  if (hanp == nullptr) {
    errno = EBADF;
    return -1;
  }
  char path[PATH_MAX + 1];
  size_t rlen = 0;
  if (dm.handle_to_path(nullptr, 0, const_cast<void*>(hanp), hlen, sizeof path, path, &rlen) != 0)
    return -1;  // not a handle, or one that names no file: the provider's answer
  path[sizeof path - 1] = '\0';
  if (path[0] != '/') return refusal(path, EACCES, refused);
  return openAs(path, need, refused);
}

int rtdFileGate::openPath(const dmapiBinding_t& dm, const rtdCaller_t& caller, const char* path,
                          rtdNeed_t need, std::string* refused) {
  dm_ = &dm;
  caller_ = &caller;
  if (path[0] != '/') {
    errno = EINVAL;  // the daemon's directory is not the caller's
    return -1;
  }
  return openAs(path, need, refused);
}

int rtdFileGate::openAs(const char* path, rtdNeed_t need, std::string* refused) {
  int err = 0;
  {
    // Everything that depends on the caller's rights under one switch.
    rtdCallerFs as(*caller_);
    if (!as.ok()) return refusal(path, EPERM, refused);
    fd_ = ::open(path, O_PATH | O_CLOEXEC);
    if (fd_ < 0) {
      err = errno;
    } else if (statx(fd_, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &stx_) != 0) {
      err = errno;
    } else if (need == rtdNeedRead && !rtdMayOpenForReading(fd_)) {
      err = errno;
    }
  }
  if (err != 0) {
    errno = err;
    return failOpen(path, refused);
  }
  if (need == rtdNeedOwn && stx_.stx_uid != caller_->uid) return refusal(path, EPERM, refused);
  if (hanp_ != nullptr && checkIdentity() != 0) return -1;
  return 0;
}

int rtdFileGate::failOpen(const char* path, std::string* refused) {
  int err = errno;
  if (err == EACCES || err == EPERM) return refusal(path, EACCES, refused);
  // A path that no longer leads to a file: the handle is stale.
  errno = hanp_ != nullptr && (err == ENOENT || err == ENOTDIR || err == ELOOP) ? EBADF : err;
  return -1;
}

// The opened file must be the handle's; then the call goes through the
// descriptor when the handle is one of ours.
int rtdFileGate::checkIdentity() {
  qdmHandle_t h;
  if (qdmHandleDecode(hanp_, hlen_, &h) != 0) {
    // Another provider's handle: its own comparison decides.
    int cmp = 0;
    if (compareOther(hanp_, hlen_, &cmp) != 0) return -1;
    if (cmp != 0) {
      errno = EBADF;  // the path now names another file
      return -1;
    }
    return 0;
  }
  qdmIdentity_t id;
  qdmIdentityFromStatx(stx_, &id);
  if (!qdmSameFile(id, h.id)) {
    errno = EBADF;  // the path now names another file
    return -1;
  }
  char self[64];
  int n = std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd_);
  void* sub = nullptr;
  size_t sublen = 0;
  if (qdmHandleMake(self, static_cast<size_t>(n), h.id, &sub, &sublen) != 0) return -1;
  sub_.assign(static_cast<unsigned char*>(sub), static_cast<unsigned char*>(sub) + sublen);
  std::free(sub);
  return 0;
}

bool rtdFileGate::isFileOf(const void* hanp, size_t hlen) const {
  qdmHandle_t h;
  if (qdmHandleDecode(hanp, hlen, &h) == 0) {
    qdmIdentity_t id;
    qdmIdentityFromStatx(stx_, &id);
    return qdmSameFile(id, h.id);
  }
  int cmp = -1;
  return compareOther(hanp, hlen, &cmp) == 0 && cmp == 0;
}

int rtdFileGate::compareOther(const void* hanp, size_t hlen, int* cmp) const {
  void* fh = nullptr;
  size_t fl = 0;
  if (dm_->fd_to_handle(fd_, &fh, &fl) != 0) return -1;
  *cmp = dm_->handle_cmp(fh, fl, const_cast<void*>(hanp), hlen);
  dm_->handle_free(fh, fl);
  return 0;
}
