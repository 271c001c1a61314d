#include "hsm/dmapi/fs_mode.h"

#include <errno.h>

#include <cstring>

std::string dmiFSStatePath(const char* fsName) {
  return std::string(fsName != nullptr ? fsName : "") + "/.SpaceMan/dmiFSState";
}

int dmiGetFSMode(const dmapiBinding_t& dm, dm_sessid_t sid, const char* fsName, int* mode) {
  if (fsName == nullptr || mode == nullptr) {
    errno = EINVAL;
    return -1;
  }
  *mode = 0;
  std::string state = dmiFSStatePath(fsName);
  void* h = nullptr;
  size_t hl = 0;
  if (dm.path_to_handle(state.data(), &h, &hl) != 0)
    return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
  dm_attrname_t name{};
  std::memcpy(name.an_chars, "KVRStat", 7);
  // Presence is all that counts: a zero-length read answers E2BIG for any
  // value but an empty one.
  size_t rlen = 0;
  int rc = dm.get_dmattr(sid, h, hl, DM_NO_TOKEN, &name, 0, nullptr, &rlen);
  int err = errno;
  dm.handle_free(h, hl);
  if (rc == 0 || err == E2BIG) {
    *mode = 1;
    return 0;
  }
  if (err == ENOENT || err == ENODATA) return 0;
  errno = err;
  return -1;
}
