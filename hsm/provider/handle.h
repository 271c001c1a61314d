// Handles of our provider: what identifies a file, and how to get back to
// it.
//
// A handle is the bytes
//   0  "QXDH"            magic
//   4  u16 version (1), u16 flags (bit 0: birth time known)
//   8  u64 device, 16 u64 inode, 24 i64 birth seconds, 32 u32 birth nanos
//   36 u32 path length L, 40 the absolute path (L bytes) and a NUL
// in host byte order.  The path is how the provider reaches the file (one
// system call per attribute read); device, inode and birth time are how it
// knows that the path still names the same file.  Reads trust the path and
// check the identity only when they fail; everything that changes a file
// checks it first, so that a write never reaches a file that replaced the
// one the handle was made for.
#ifndef QMX_HSM_PROVIDER_HANDLE_H_
#define QMX_HSM_PROVIDER_HANDLE_H_

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

// What makes a file the same file.
struct qdmIdentity_t {
  uint64_t dev;
  uint64_t ino;
  int64_t btimeSec;
  uint32_t btimeNsec;
  int hasBtime;  // 1 when the file system reports birth times
};

// A decoded handle; |path| points into the handle's own bytes.
struct qdmHandle_t {
  qdmIdentity_t id;
  const char* path;
  size_t pathLen;
};

// Decodes |hlen| bytes at |hanp|.  Returns 0, or -1 with errno EBADF when
// they are not a handle of this provider.
int qdmHandleDecode(const void* hanp, size_t hlen, qdmHandle_t* out);

// Builds a handle (allocated with malloc) for |absPath| of |pathLen| bytes
// and identity |id|.  Returns 0, or -1 with errno ENOMEM.
int qdmHandleMake(const char* absPath, size_t pathLen, const qdmIdentity_t& id, void** hanpp,
                  size_t* hlenp);

// statx of |path| (following symbolic links) into |stx| and |id|.  Returns
// 0 or -1 with errno of the call.
int qdmStatPath(const char* path, struct statx* stx, qdmIdentity_t* id);
void qdmIdentityFromStatx(const struct statx& stx, qdmIdentity_t* id);
bool qdmSameFile(const qdmIdentity_t& a, const qdmIdentity_t& b);

// Checks that the handle's path still names its file; |stx| (may be null)
// receives the file's status.  Returns 0, or -1 with errno EBADF when the
// file is gone or replaced, or the errno of a failing look-up.
int qdmHandleVerify(const qdmHandle_t& h, struct statx* stx);

// errno after a path-based call failed with |err|: a vanished path means a
// stale handle (EBADF); anything else stands.
int qdmStaleErrno(int err);

#endif  // QMX_HSM_PROVIDER_HANDLE_H_
