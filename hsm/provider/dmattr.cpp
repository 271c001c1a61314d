// DM attributes of our provider: DM attribute N is the extended attribute
// "trusted.dmapi.N".
//
// A read is one getxattr by the handle's path; only when it fails does the
// handle's identity get checked, to tell "no such attribute" (ENOENT) from
// "no such file" (EBADF).  Changes check the identity first.
#include <errno.h>
#include <sys/xattr.h>

#include <cstring>

#include "hsm/provider/handle.h"
#include "hsm/provider/qmxdm.h"
#include "hsm/provider/session_registry.h"

namespace {

constexpr char kPrefix[] = "trusted.dmapi.";

int fail(int err) {
  errno = err;
  return -1;
}

// "trusted.dmapi." plus the name up to its first NUL.  Returns false for
// an empty name.
bool xattrName(const dm_attrname_t* an, char (&out)[sizeof kPrefix + DM_ATTR_NAME_SIZE]) {
  std::memcpy(out, kPrefix, sizeof kPrefix - 1);
  size_t n = strnlen(reinterpret_cast<const char*>(an->an_chars), DM_ATTR_NAME_SIZE);
  if (n == 0) return false;
  std::memcpy(out + sizeof kPrefix - 1, an->an_chars, n);
  out[sizeof kPrefix - 1 + n] = '\0';
  return true;
}

// The checks every attribute call starts with.
int prepare(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
            const dm_attrname_t* attrnamep, qdmHandle_t* h,
            char (&name)[sizeof kPrefix + DM_ATTR_NAME_SIZE]) {
  if (qdmRegCheck(sid) != 0) return -1;
  if (qdmHandleDecode(hanp, hlen, h) != 0) return -1;
  if (qdmRegCheckToken(sid, token) != 0) return -1;
  if (attrnamep == nullptr) return fail(EFAULT);
  if (!xattrName(attrnamep, name)) return fail(EINVAL);
  return 0;
}

// errno for a failed xattr call on a handle's path: a missing attribute is
// ENOENT only while the path still names the handle's file.
int attrErrno(const qdmHandle_t& h, int err) {
  if (err == ENODATA) return qdmHandleVerify(h, nullptr) == 0 ? ENOENT : errno;
  return qdmStaleErrno(err);
}

}  // namespace

extern "C" {

int qmxdm_get_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                     dm_attrname_t* attrnamep, size_t buflen, void* bufp, size_t* rlenp) {
  qdmHandle_t h;
  char name[sizeof kPrefix + DM_ATTR_NAME_SIZE];
  if (prepare(sid, hanp, hlen, token, attrnamep, &h, name) != 0) return -1;
  if (rlenp == nullptr || (buflen > 0 && bufp == nullptr)) return fail(EFAULT);
  ssize_t n = getxattr(h.path, name, buflen > 0 ? bufp : nullptr, buflen);
  if (n >= 0 && (buflen > 0 || n == 0)) {
    *rlenp = static_cast<size_t>(n);
    return 0;
  }
  if (n < 0 && errno != ERANGE) return fail(attrErrno(h, errno));
  // Too small a buffer: tell the caller what it takes.
  if (n < 0) n = getxattr(h.path, name, nullptr, 0);
  if (n < 0) return fail(attrErrno(h, errno));
  *rlenp = static_cast<size_t>(n);
  return fail(E2BIG);
}

int qmxdm_set_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                     dm_attrname_t* attrnamep, int /*setdtime*/, size_t buflen, void* bufp) {
  qdmHandle_t h;
  char name[sizeof kPrefix + DM_ATTR_NAME_SIZE];
  if (prepare(sid, hanp, hlen, token, attrnamep, &h, name) != 0) return -1;
  if (buflen > 0 && bufp == nullptr) return fail(EFAULT);
  if (qdmHandleVerify(h, nullptr) != 0) return -1;
  // The change time of the file moves with every attribute change, so the
  // dtime asked for by setdtime is the ctime the kernel keeps anyway.
  if (setxattr(h.path, name, bufp, buflen, 0) != 0) return fail(qdmStaleErrno(errno));
  return 0;
}

int qmxdm_remove_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                        int /*setdtime*/, dm_attrname_t* attrnamep) {
  qdmHandle_t h;
  char name[sizeof kPrefix + DM_ATTR_NAME_SIZE];
  if (prepare(sid, hanp, hlen, token, attrnamep, &h, name) != 0) return -1;
  if (qdmHandleVerify(h, nullptr) != 0) return -1;
  if (removexattr(h.path, name) != 0) return fail(errno == ENODATA ? ENOENT : qdmStaleErrno(errno));
  return 0;
}

}  // extern "C"
