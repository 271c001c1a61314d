#include "hsm/dmapi/space_reserve.h"

#include <dirent.h>
#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

std::string dmiSpaceReserveDir(const char* fsName) {
  return std::string(fsName != nullptr ? fsName : "") + "/.SpaceMan/reserve";
}

int dmiFreeSpaceReserved(const char* fsName, int count) {
  if (fsName == nullptr || count < 0) {
    errno = EINVAL;
    return -1;
  }
  std::string dir = dmiSpaceReserveDir(fsName);
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return errno == ENOENT ? 0 : -1;
  std::vector<std::string> names;
  errno = 0;
  while (struct dirent* e = readdir(d)) {
    if (e->d_type == DT_REG || e->d_type == DT_UNKNOWN) names.emplace_back(e->d_name);
  }
  int err = errno;
  closedir(d);
  if (err != 0) {
    errno = err;
    return -1;
  }
  std::sort(names.begin(), names.end());
  int freed = 0;
  for (const std::string& n : names) {
    if (freed == count) break;
    // A directory in there is not a reserve file (unlink refuses it); a
    // file gone meanwhile was released by another process.
    if (unlink((dir + "/" + n).c_str()) == 0) {
      ++freed;
    } else if (errno != EISDIR && errno != ENOENT) {
      return freed > 0 ? freed : -1;
    }
  }
  return freed;
}
