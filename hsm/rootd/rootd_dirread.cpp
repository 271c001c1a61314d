#include "hsm/rootd/rootd_dirread.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// Most attribute values are small; a first read this large avoids a second.
constexpr size_t kFirstRead = 1024;

}  // namespace

int rtdListRegularFiles(int fd, const std::string& cursor, std::vector<std::string>* names) {
  DIR* d = fdopendir(fd);
  if (d == nullptr) {
    int err = errno;
    close(fd);
    errno = err;
    return -1;
  }
  names->clear();
  errno = 0;
  while (struct dirent* de = readdir(d)) {
    unsigned char type = de->d_type;
    if (type == DT_UNKNOWN) {
      struct stat st;
      if (fstatat(dirfd(d), de->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
      type = S_ISREG(st.st_mode) ? DT_REG : DT_UNKNOWN;
    }
    if (type != DT_REG) continue;
    if (!cursor.empty() && std::strcmp(de->d_name, cursor.c_str()) <= 0) continue;
    names->emplace_back(de->d_name);
    errno = 0;
  }
  int err = errno;
  closedir(d);
  if (err != 0) {
    errno = err;
    return -1;
  }
  std::sort(names->begin(), names->end());
  return 0;
}

namespace {

void readDirAttr(const dmapiBinding_t& dm, dm_sessid_t sid, void* hanp, size_t hlen,
                 const dm_attrname_t& name, rdmDirAttr_t* a) {
  dm_attrname_t n = name;
  size_t size = kFirstRead;
  for (;;) {
    a->value.resize(size);
    size_t rlen = 0;
    errno = 0;
    int rc = dm.get_dmattr(sid, hanp, hlen, DM_NO_TOKEN, &n, size, a->value.data(), &rlen);
    a->rlen = rlen;
    if (rc == 0) {
      a->err = 0;
      a->value.resize(std::min(rlen, size));
      return;
    }
    a->err = errno != 0 ? errno : EIO;
    a->value.clear();
    if (a->err != E2BIG || rlen <= size || rlen > rdmDirValueMax) return;
    size = rlen;  // grown meanwhile or just large: once more with room for it
  }
}

}  // namespace

void rtdReadDirAttrs(const dmapiBinding_t& dm, const rdmDirQuery_t& q, void* hanp, size_t hlen,
                     std::vector<rdmDirAttr_t>* attrs) {
  attrs->resize(q.names.size());
  bool found = false;
  for (size_t i = 0; i < q.names.size(); ++i) {
    rdmDirAttr_t& a = (*attrs)[i];
    if (found && (q.flags & rdmDirIfAbsent) != 0) {
      a.err = rdmDirNotRead;
      a.rlen = 0;
      a.value.clear();
      continue;
    }
    readDirAttr(dm, q.sid, hanp, hlen, q.names[i], &a);
    found = found || (a.err != ENOENT && a.err != ENODATA);
  }
}

int64_t rtdAnswerDirAttrsAsRoot(const dmapiBinding_t& dm, const rdmDirQuery_t& q,
                                rdmDirReply_t* out) {
  if (q.dir[0] != '/') {
    errno = EINVAL;  // the daemon's directory is not the caller's
    return -1;
  }
  int fd = open(q.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::vector<std::string> files;
  if (fd < 0 || rtdListRegularFiles(fd, q.cursor, &files) != 0) return -1;
  rdmDirReplyBuilder reply(q.limit);
  std::string path;
  for (const std::string& name : files) {
    if (reply.room() == 0) {
      reply.cut();
      break;
    }
    rdmDirEntry_t e;
    e.name = name;
    path.assign(q.dir).append("/").append(name);
    void* h = nullptr;
    size_t hl = 0;
    errno = 0;
    if (dm.path_to_handle(path.data(), &h, &hl) == 0) {
      e.handle.assign(static_cast<unsigned char*>(h), static_cast<unsigned char*>(h) + hl);
      dm.handle_free(h, hl);
    } else {
      e.handleErr = errno != 0 ? errno : EIO;
    }
    if (e.handleErr != 0)
      e.attrs.assign(q.names.size(), rdmDirAttr_t{e.handleErr, 0, {}});
    else
      rtdReadDirAttrs(dm, q, e.handle.data(), e.handle.size(), &e.attrs);
    if (!reply.add(std::move(e))) break;
  }
  reply.finish(out);
  return 0;
}
