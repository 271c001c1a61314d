#include "hsm/dmapi/rdm_dirattrs.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

// Room kept in a reply for the count and the flag.
constexpr size_t kReplyMargin = 64;
// Most attribute values are small; a first read this large avoids a second.
constexpr size_t kFirstRead = 1024;

void putEntry(const rdmDirEntry_t& e, rdmWriter* w) {
  w->bytes(e.name.data(), e.name.size());
  w->i32(e.handleErr);
  w->bytes(e.handle.data(), e.handle.size());
  for (const rdmDirAttr_t& a : e.attrs) {
    w->i32(a.err);
    w->u64(a.rlen);
    w->bytes(a.value.data(), a.value.size());
  }
}

bool isFileName(const unsigned char* p, size_t n) {
  return n > 0 && n <= NAME_MAX && std::memchr(p, '/', n) == nullptr &&
         std::memchr(p, '\0', n) == nullptr;
}

}  // namespace

void rdmEncodeDirQuery(const rdmDirQuery_t& q, rdmWriter* out) {
  out->u64(q.sid);
  out->bytes(q.dir.c_str(), q.dir.size() + 1);
  out->bytes(q.cursor.data(), q.cursor.size());
  out->u32(q.flags);
  out->u32(q.limit);
  out->u32(static_cast<uint32_t>(q.names.size()));
  for (const dm_attrname_t& n : q.names) out->name(n);
}

bool rdmDecodeDirQuery(rdmReader& in, rdmDirQuery_t* q) {
  q->sid = in.u64();
  size_t n = 0;
  const unsigned char* p = in.bytes(&n);
  if (p == nullptr || n < 2 || p[n - 1] != '\0' || std::memchr(p, '\0', n - 1) != nullptr)
    return false;
  q->dir.assign(reinterpret_cast<const char*>(p), n - 1);
  p = in.bytes(&n);
  if (!in.ok() || (n > 0 && !isFileName(p, n))) return false;
  q->cursor.assign(reinterpret_cast<const char*>(p), n);
  q->flags = in.u32();
  q->limit = in.u32();
  if ((q->flags & ~rdmDirIfAbsent) != 0) return false;
  uint32_t count = in.u32();
  if (!in.ok() || count < 1 || count > rdmDirMaxNames) return false;
  q->names.clear();
  for (uint32_t i = 0; i < count; ++i) q->names.push_back(in.name());
  return in.done();
}

void rdmPutDirEntries(const std::vector<rdmDirEntry_t>& entries, bool more, rdmWriter* out) {
  out->u32(static_cast<uint32_t>(entries.size()));
  out->u32(more ? 1 : 0);
  for (const rdmDirEntry_t& e : entries) putEntry(e, out);
}

bool rdmGetDirEntries(rdmReader& in, size_t nattrs, std::vector<rdmDirEntry_t>* entries,
                      bool* more) {
  uint32_t count = in.u32();
  uint32_t flag = in.u32();
  if (!in.ok() || flag > 1 || count > rdmMaxPayload / 16) return false;
  *more = flag == 1;
  entries->clear();
  entries->reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    rdmDirEntry_t e;
    size_t n = 0;
    const unsigned char* p = in.bytes(&n);
    if (!isFileName(p, n)) return false;
    e.name.assign(reinterpret_cast<const char*>(p), n);
    e.handleErr = in.i32();
    p = in.bytes(&n);
    if (p != nullptr) e.handle.assign(p, p + n);
    e.attrs.resize(nattrs);
    for (rdmDirAttr_t& a : e.attrs) {
      a.err = in.i32();
      a.rlen = in.u64();
      p = in.bytes(&n);
      if (n > rdmDirValueMax) return false;
      if (p != nullptr) a.value.assign(p, p + n);
    }
    if (!in.ok()) return false;
    entries->push_back(std::move(e));
  }
  return in.done();
}

bool rdmDirReplyBuilder::add(const rdmDirEntry_t& e) {
  if (more_) return false;
  if (limit_ != 0 && count_ >= limit_) {
    more_ = true;
    return false;
  }
  size_t before = body_.data().size();
  rdmWriter one;
  putEntry(e, &one);
  if (before + one.data().size() > rdmMaxPayload - kReplyMargin) {
    more_ = true;
    return false;
  }
  body_.raw(one.data().data(), one.data().size());
  ++count_;
  return true;
}

void rdmDirReplyBuilder::finish(rdmWriter* out) const {
  out->u32(count_);
  out->u32(more_ ? 1 : 0);
  out->raw(body_.data().data(), body_.data().size());
}

int rdmListRegularFiles(int fd, const std::string& cursor, std::vector<std::string>* names) {
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

void rdmReadDirAttrs(const dmapiBinding_t& dm, const rdmDirQuery_t& q, void* hanp, size_t hlen,
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

int64_t rdmAnswerDirAttrs(const dmapiBinding_t& dm, const rdmDirQuery_t& q, rdmWriter* out) {
  if (q.dir[0] != '/') {
    errno = EINVAL;  // the daemon's directory is not the caller's
    return -1;
  }
  int fd = open(q.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::vector<std::string> files;
  if (fd < 0 || rdmListRegularFiles(fd, q.cursor, &files) != 0) return -1;
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
      rdmReadDirAttrs(dm, q, e.handle.data(), e.handle.size(), &e.attrs);
    if (!reply.add(e)) break;
  }
  reply.finish(out);
  return 0;
}
