#include "platform/fileattr.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

void FromStat(const struct stat& st, Attrib* a) {
  std::memset(a, 0, sizeof *a);
  switch (st.st_mode & S_IFMT) {
    case S_IFREG:
      a->type = ATTR_KIND_FILE;
      break;
    case S_IFDIR:
      a->type = ATTR_KIND_DIR;
      break;
    case S_IFLNK:
      a->type = ATTR_KIND_FILE | ATTR_LINK_SYMLINK;
      break;
    case S_IFCHR:
      a->type = ATTR_KIND_CHAR;
      break;
    case S_IFBLK:
      a->type = ATTR_KIND_BLOCK;
      break;
    case S_IFIFO:
      a->type = ATTR_KIND_FIFO;
      break;
    case S_IFSOCK:
      a->type = ATTR_KIND_SOCKET;
      break;
    default:
      a->type = ATTR_KIND_OTHER;
      break;
  }
  a->mode = st.st_mode;
  a->uid = st.st_uid;
  a->gid = st.st_gid;
  a->size = static_cast<uint64_t>(st.st_size);
  a->mtime = st.st_mtime;
  a->atime = st.st_atime;
  a->ctime = st.st_ctime;
  a->dev = st.st_dev;
  a->ino = st.st_ino;
  a->nlink = st.st_nlink;
}

}  // namespace

int fioStatPath(const char* path, Attrib* attr) {
  if (path == nullptr || attr == nullptr) {
    errno = EINVAL;
    return -1;
  }
  struct stat st;
  if (lstat(path, &st) != 0) return -1;
  FromStat(st, attr);
  return 0;
}

int fioGetAttrib(const fileSpec_t* fsp, Attrib* attr, int flags) {
  if (fsp == nullptr || attr == nullptr || flags != 0) {
    errno = EINVAL;
    return -1;
  }
  char path[4096];
  if (fsFullPath(fsp, path, sizeof path) == nullptr) {
    errno = ENAMETOOLONG;
    return -1;
  }
  return fioStatPath(path, attr);
}

int fioGetDirEntries2(const char* dir, fioAlloc_t alloc, void* ctx, dirEntry_t** head) {
  if (dir == nullptr || alloc == nullptr || head == nullptr) {
    errno = EINVAL;
    return -1;
  }
  *head = nullptr;
  int dfd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd < 0) return -1;
  DIR* d = fdopendir(dfd);
  if (d == nullptr) {
    int e = errno;
    close(dfd);
    errno = e;
    return -1;
  }
  std::vector<std::string> names;
  errno = 0;
  while (struct dirent* de = readdir(d)) {
    const char* n = de->d_name;
    if (n[0] == '.' && (n[1] == '\0' || (n[1] == '.' && n[2] == '\0'))) continue;
    names.emplace_back(n);
  }
  if (errno != 0) {
    int e = errno;
    closedir(d);
    errno = e;
    return -1;
  }
  // Byte order of name, so that every run lists a directory the same way.
  std::sort(names.begin(), names.end());
  dirEntry_t** tail = head;
  for (const std::string& n : names) {
    struct stat st;
    if (fstatat(dfd, n.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    auto* e = static_cast<dirEntry_t*>(alloc(ctx, sizeof(dirEntry_t) + n.size() + 1));
    if (e == nullptr) {
      closedir(d);
      errno = ENOMEM;
      return -1;
    }
    e->next = nullptr;
    FromStat(st, &e->attr);
    e->name[0] = '/';
    std::memcpy(e->name + 1, n.c_str(), n.size() + 1);
    *tail = e;
    tail = &e->next;
  }
  closedir(d);
  return 0;
}

void HPsFileAttributes::setFileAttributes(const Attrib* attr, const char* path,
                                          const char* fsName) {
  if (attr != nullptr) attr_ = *attr;
  path_ = path != nullptr ? path : "";
  fsName_ = fsName != nullptr ? fsName : "";
}
