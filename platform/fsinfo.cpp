#include "platform/fsinfo.h"

#include <sys/statvfs.h>

#include <cerrno>

int psFsAvailBlocks(const char* path, uint64_t* avail) {
  if (path == nullptr || avail == nullptr) return EINVAL;
  struct statvfs64 st;
  if (statvfs64(path, &st) != 0) return errno;
  *avail = static_cast<uint64_t>(st.f_bavail);
  return 0;
}
