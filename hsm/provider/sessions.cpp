// Service and session calls of our provider.
#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "hsm/provider/qmxdm.h"
#include "hsm/provider/session_registry.h"

namespace {

int fail(int err) {
  errno = err;
  return -1;
}

}  // namespace

extern "C" {

int qmxdm_init_service(char** versionstrpp) {
  if (versionstrpp == nullptr) return fail(EFAULT);
  // DM attributes live in the trusted namespace, which only root may touch.
  if (geteuid() != 0) return fail(EPERM);
  static char version[] = QMXDM_VERSION;
  *versionstrpp = version;
  return 0;
}

int qmxdm_create_session(dm_sessid_t oldsid, char* sessinfop, dm_sessid_t* newsidp) {
  if (sessinfop == nullptr || newsidp == nullptr) return fail(EFAULT);
  size_t len = strnlen(sessinfop, DM_SESSION_INFO_LEN);
  if (len >= DM_SESSION_INFO_LEN) return fail(E2BIG);
  if (oldsid == DM_INVALID_SESSION) return fail(EINVAL);
  return qdmRegCreate(oldsid, std::string(sessinfop, len), newsidp);
}

int qmxdm_destroy_session(dm_sessid_t sid) {
  return qdmRegDestroy(sid);
}

int qmxdm_getall_sessions(unsigned int nelem, dm_sessid_t* sidbufp, unsigned int* nelemp) {
  if (nelemp == nullptr) return fail(EFAULT);
  std::vector<dm_sessid_t> all;
  if (qdmRegList(&all) != 0) return -1;
  *nelemp = static_cast<unsigned int>(all.size());
  if (all.size() > nelem) return fail(E2BIG);
  if (!all.empty() && sidbufp == nullptr) return fail(EFAULT);
  for (size_t i = 0; i < all.size(); ++i) sidbufp[i] = all[i];
  return 0;
}

int qmxdm_query_session(dm_sessid_t sid, size_t buflen, void* bufp, size_t* rlenp) {
  if (rlenp == nullptr) return fail(EFAULT);
  qdmSession_t s;
  if (qdmRegRead(sid, &s) != 0) return -1;
  // The returned length counts the terminating NUL.
  *rlenp = s.info.size() + 1;
  if (buflen < s.info.size() + 1) return fail(E2BIG);
  if (bufp == nullptr) return fail(EFAULT);
  std::memcpy(bufp, s.info.c_str(), s.info.size() + 1);
  return 0;
}

}  // extern "C"
