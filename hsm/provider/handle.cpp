#include "hsm/provider/handle.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "hsm/provider/qmxdm.h"

namespace {

constexpr char kMagic[4] = {'Q', 'X', 'D', 'H'};
constexpr uint16_t kVersion = 1;
constexpr uint16_t kFlagBtime = 0x1;
constexpr size_t kHeadSize = 40;

template <typename T>
void put(unsigned char* p, size_t off, T v) {
  std::memcpy(p + off, &v, sizeof v);
}

template <typename T>
T get(const unsigned char* p, size_t off) {
  T v;
  std::memcpy(&v, p + off, sizeof v);
  return v;
}

int fail(int err) {
  errno = err;
  return -1;
}

}  // namespace

void qdmIdentityFromStatx(const struct statx& stx, qdmIdentity_t* id) {
  id->dev = makedev(stx.stx_dev_major, stx.stx_dev_minor);
  id->ino = stx.stx_ino;
  id->hasBtime = (stx.stx_mask & STATX_BTIME) != 0 ? 1 : 0;
  id->btimeSec = id->hasBtime ? stx.stx_btime.tv_sec : 0;
  id->btimeNsec = id->hasBtime ? stx.stx_btime.tv_nsec : 0;
}

int qdmStatPath(const char* path, struct statx* stx, qdmIdentity_t* id) {
  if (statx(AT_FDCWD, path, 0, STATX_BASIC_STATS | STATX_BTIME, stx) != 0) return -1;
  qdmIdentityFromStatx(*stx, id);
  return 0;
}

bool qdmSameFile(const qdmIdentity_t& a, const qdmIdentity_t& b) {
  if (a.dev != b.dev || a.ino != b.ino) return false;
  // Inode numbers are reused at once on most file systems; the birth time
  // tells a new file in an old inode from the old file.
  if (a.hasBtime && b.hasBtime) return a.btimeSec == b.btimeSec && a.btimeNsec == b.btimeNsec;
  return true;
}

int qdmStaleErrno(int err) {
  return (err == ENOENT || err == ENOTDIR || err == ELOOP) ? EBADF : err;
}

int qdmHandleVerify(const qdmHandle_t& h, struct statx* stx) {
  struct statx local;
  struct statx* s = stx != nullptr ? stx : &local;
  qdmIdentity_t now;
  if (qdmStatPath(h.path, s, &now) != 0) return fail(qdmStaleErrno(errno));
  if (!qdmSameFile(h.id, now)) return fail(EBADF);
  return 0;
}

int qdmHandleDecode(const void* hanp, size_t hlen, qdmHandle_t* out) {
  if (hanp == nullptr || hlen < kHeadSize + 2) return fail(EBADF);
  const unsigned char* p = static_cast<const unsigned char*>(hanp);
  if (std::memcmp(p, kMagic, sizeof kMagic) != 0) return fail(EBADF);
  if (get<uint16_t>(p, 4) != kVersion) return fail(EBADF);
  uint32_t pathLen = get<uint32_t>(p, 36);
  if (static_cast<size_t>(pathLen) + kHeadSize + 1 != hlen) return fail(EBADF);
  const char* path = reinterpret_cast<const char*>(p + kHeadSize);
  if (path[0] != '/' || path[pathLen] != '\0' || std::strlen(path) != pathLen) return fail(EBADF);
  out->id.dev = get<uint64_t>(p, 8);
  out->id.ino = get<uint64_t>(p, 16);
  out->id.hasBtime = (get<uint16_t>(p, 6) & kFlagBtime) != 0 ? 1 : 0;
  out->id.btimeSec = get<int64_t>(p, 24);
  out->id.btimeNsec = get<uint32_t>(p, 32);
  out->path = path;
  out->pathLen = pathLen;
  return 0;
}

int qdmHandleMake(const char* absPath, size_t pathLen, const qdmIdentity_t& id, void** hanpp,
                  size_t* hlenp) {
  if (pathLen > UINT32_MAX - kHeadSize - 1) return fail(ENAMETOOLONG);
  size_t hlen = kHeadSize + pathLen + 1;
  unsigned char* p = static_cast<unsigned char*>(std::malloc(hlen));
  if (p == nullptr) return fail(ENOMEM);
  std::memcpy(p, kMagic, sizeof kMagic);
  put<uint16_t>(p, 4, kVersion);
  put<uint16_t>(p, 6, id.hasBtime ? kFlagBtime : 0);
  put<uint64_t>(p, 8, id.dev);
  put<uint64_t>(p, 16, id.ino);
  put<int64_t>(p, 24, id.btimeSec);
  put<uint32_t>(p, 32, id.btimeNsec);
  put<uint32_t>(p, 36, static_cast<uint32_t>(pathLen));
  std::memcpy(p + kHeadSize, absPath, pathLen);
  p[kHeadSize + pathLen] = '\0';
  *hanpp = p;
  *hlenp = hlen;
  return 0;
}

extern "C" {

int qmxdm_path_to_handle(char* path, void** hanpp, size_t* hlenp) {
  if (path == nullptr || hanpp == nullptr || hlenp == nullptr) return fail(EFAULT);
  if (path[0] == '\0') return fail(ENOENT);
  struct statx stx;
  qdmIdentity_t id;
  if (qdmStatPath(path, &stx, &id) != 0) return -1;
  if (path[0] == '/') return qdmHandleMake(path, std::strlen(path), id, hanpp, hlenp);
  // A handle must outlive a change of directory: anchor a relative path.
  char cwd[PATH_MAX];
  if (getcwd(cwd, sizeof cwd) == nullptr) return -1;
  std::string abs(cwd);
  if (abs.back() != '/') abs += '/';
  abs += path;
  return qdmHandleMake(abs.c_str(), abs.size(), id, hanpp, hlenp);
}

int qmxdm_fd_to_handle(int fd, void** hanpp, size_t* hlenp) {
  if (hanpp == nullptr || hlenp == nullptr) return fail(EFAULT);
  struct statx stx;
  if (statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &stx) != 0) return -1;
  qdmIdentity_t id;
  qdmIdentityFromStatx(stx, &id);
  // The kernel knows the descriptor's current path; a file that is no
  // longer reachable by any path can't have a handle that lives on.
  char link[64];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  char path[PATH_MAX];
  ssize_t n = readlink(link, path, sizeof path);
  if (n < 0) return -1;
  if (static_cast<size_t>(n) >= sizeof path) return fail(ENAMETOOLONG);
  path[n] = '\0';
  if (path[0] != '/' || (stx.stx_nlink == 0 && S_ISREG(stx.stx_mode))) return fail(EBADF);
  return qdmHandleMake(path, static_cast<size_t>(n), id, hanpp, hlenp);
}

int qmxdm_handle_to_path(void* dirhanp, size_t dirhlen, void* targhanp, size_t targhlen,
                         size_t buflen, char* pathbufp, size_t* rlenp) {
  qdmHandle_t dir, targ;
  if (dirhanp != nullptr && qdmHandleDecode(dirhanp, dirhlen, &dir) != 0) return -1;
  if (qdmHandleDecode(targhanp, targhlen, &targ) != 0) return -1;
  if (rlenp == nullptr) return fail(EFAULT);
  *rlenp = targ.pathLen + 1;
  if (buflen < targ.pathLen + 1) return fail(E2BIG);
  if (pathbufp == nullptr) return fail(EFAULT);
  std::memcpy(pathbufp, targ.path, targ.pathLen + 1);
  return 0;
}

void qmxdm_handle_free(void* hanp, size_t /*hlen*/) {
  std::free(hanp);
}

unsigned int qmxdm_handle_hash(void* hanp, size_t hlen) {
  // Hash what qmxdm_handle_cmp compares, so that equal handles hash alike
  // whatever path they were made from.
  qdmHandle_t h;
  if (qdmHandleDecode(hanp, hlen, &h) != 0) return 0;
  uint64_t x = h.id.dev * 0x9E3779B97F4A7C15ULL ^ h.id.ino;
  x ^= x >> 33;
  x *= 0xFF51AFD7ED558CCDULL;
  x ^= x >> 33;
  return static_cast<unsigned int>(x);
}

int qmxdm_handle_cmp(void* hanp1, size_t hlen1, void* hanp2, size_t hlen2) {
  // Handles name files: two paths of one file (hard links, "a/./b") give
  // equal handles.  Invalid handles order before valid ones.
  qdmHandle_t a, b;
  int va = qdmHandleDecode(hanp1, hlen1, &a) == 0;
  int vb = qdmHandleDecode(hanp2, hlen2, &b) == 0;
  if (!va || !vb) return va - vb;
  if (a.id.dev != b.id.dev) return a.id.dev < b.id.dev ? -1 : 1;
  if (a.id.ino != b.id.ino) return a.id.ino < b.id.ino ? -1 : 1;
  if (a.id.hasBtime && b.id.hasBtime) {
    if (a.id.btimeSec != b.id.btimeSec) return a.id.btimeSec < b.id.btimeSec ? -1 : 1;
    if (a.id.btimeNsec != b.id.btimeNsec) return a.id.btimeNsec < b.id.btimeNsec ? -1 : 1;
  }
  return 0;
}

dm_boolean_t qmxdm_handle_is_valid(void* hanp, size_t hlen) {
  qdmHandle_t h;
  int saved = errno;
  dm_boolean_t ok = qdmHandleDecode(hanp, hlen, &h) == 0 ? DM_TRUE : DM_FALSE;
  errno = saved;
  return ok;
}

}  // extern "C"
