#include "hsm/rdm/rdm_dirattrs.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// Room kept in a reply for the count and the flag.
constexpr size_t kReplyMargin = 64;

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

// What putEntry writes for |e|, without writing it.
size_t entrySize(const rdmDirEntry_t& e) {
  size_t n = 4 + e.name.size() + 4 + 4 + e.handle.size();
  for (const rdmDirAttr_t& a : e.attrs) n += 4 + 8 + 4 + a.value.size();
  return n;
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

bool rdmDirReplyBuilder::add(rdmDirEntry_t e) {
  if (more_) return false;
  if (limit_ != 0 && reply_.entries.size() >= limit_) {
    more_ = true;
    return false;
  }
  size_t size = entrySize(e);
  if (bodySize_ + size > rdmMaxPayload - kReplyMargin) {
    more_ = true;
    return false;
  }
  bodySize_ += size;
  reply_.entries.push_back(std::move(e));
  return true;
}

void rdmDirReplyBuilder::finish(rdmDirReply_t* out) {
  out->entries = std::move(reply_.entries);
  out->more = more_;
  reply_.entries.clear();
  bodySize_ = 0;
}
