#include "hsm/rootd/rootd_dircall.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>

#include "hsm/provider/handle.h"
#include "hsm/rootd/rootd_dirread.h"

namespace {

// How many files are looked at under one switch of identity, and from how
// many on a chunk is worth sharing with a second thread.
constexpr size_t kDirChunk = 512;
constexpr size_t kDirShare = 64;

bool sameDirectory(const struct statx& a, const struct statx& b) {
  return a.stx_dev_major == b.stx_dev_major && a.stx_dev_minor == b.stx_dev_minor &&
         a.stx_ino == b.stx_ino && a.stx_mtime.tv_sec == b.stx_mtime.tv_sec &&
         a.stx_mtime.tv_nsec == b.stx_mtime.tv_nsec && a.stx_ctime.tv_sec == b.stx_ctime.tv_sec &&
         a.stx_ctime.tv_nsec == b.stx_ctime.tv_nsec;
}

// One file of a directory call, as the caller sees it.
struct DirProbe {
  DirProbe() = default;
  DirProbe(const DirProbe&) = delete;
  DirProbe& operator=(const DirProbe&) = delete;
  ~DirProbe() {
    if (fd >= 0) close(fd);
  }
  int fd = -1;
  int openErr = 0;    // could not be reached
  int readErr = 0;    // reached, but not to be opened for reading
  bool skip = false;  // no longer a regular file
  struct statx stx = {};
};

// What the answers of one call share.
struct DirCall {
  const rtdCaller_t& caller;
  const dmapiBinding_t& dm;
  const rdmDirQuery_t& q;
  bool builtIn;  // |dm| is our own provider
};

// The handle of the probed file |p| at |path| into |e|, as PathToHandle
// would give it for the file the caller reached, and the handle to read it
// with into |*sub| (null: the handle itself).  Returns 0, or the errno
// the entry is to carry.
int handleOf(const DirCall& call, const std::string& path, const DirProbe& p, rdmDirEntry_t* e,
             void** sub, size_t* sublen) {
  qdmIdentity_t id;
  qdmIdentityFromStatx(p.stx, &id);
  if (call.builtIn) {
    // Our provider's handle is the path and the file's identity, so the
    // one of the file the caller reached can be made without a look-up.
    void* h = nullptr;
    size_t hl = 0;
    if (qdmHandleMake(path.c_str(), path.size(), id, &h, &hl) != 0) return ENOMEM;
    e->handle.assign(static_cast<unsigned char*>(h), static_cast<unsigned char*>(h) + hl);
    std::free(h);
  } else {
    void* h = nullptr;
    size_t hl = 0;
    errno = 0;
    if (call.dm.path_to_handle(const_cast<char*>(path.c_str()), &h, &hl) != 0)
      return errno != 0 ? errno : EIO;
    e->handle.assign(static_cast<unsigned char*>(h), static_cast<unsigned char*>(h) + hl);
    call.dm.handle_free(h, hl);
    // The handle must be of the file the caller reached.
    qdmHandle_t dh;
    if (qdmHandleDecode(e->handle.data(), e->handle.size(), &dh) == 0) {
      if (!qdmSameFile(id, dh.id)) return ENOENT;
    } else {
      void* fh = nullptr;
      size_t fl = 0;
      int cmp = -1;
      if (call.dm.fd_to_handle(p.fd, &fh, &fl) == 0) {
        cmp = call.dm.handle_cmp(fh, fl, e->handle.data(), e->handle.size());
        call.dm.handle_free(fh, fl);
      }
      return cmp == 0 ? 0 : ENOENT;  // another provider reads by its own handle
    }
  }
  // Reads go through the caller's descriptor, as for a single call, so a
  // path swapped since the check leads nowhere else.
  char self[64];
  int n = std::snprintf(self, sizeof self, "/proc/self/fd/%d", p.fd);
  if (qdmHandleMake(self, static_cast<size_t>(n), id, sub, sublen) != 0) return ENOMEM;
  return 0;
}

// The handle and attributes of the probed file |p| at |path|, under the
// rules of the single calls.  Counts refusals in |*refused|.
void answerEntry(const DirCall& call, const std::string& path, const DirProbe& p, rdmDirEntry_t* e,
                 int* refused) {
  size_t nattrs = call.q.names.size();
  auto fail = [&](int err) {
    e->handleErr = err;
    e->handle.clear();
    e->attrs.assign(nattrs, rdmDirAttr_t{err, 0, {}});
  };
  auto denied = [&](int err) {
    bool d = err == EACCES || err == EPERM;
    if (d) ++*refused;
    return d ? EACCES : err;
  };
  if (p.openErr != 0) return fail(denied(p.openErr));
  void* sub = nullptr;
  size_t sublen = 0;
  int err = handleOf(call, path, p, e, &sub, &sublen);
  if (err == ENOMEM && !e->handle.empty()) {
    e->attrs.assign(nattrs, rdmDirAttr_t{ENOMEM, 0, {}});
  } else if (err != 0) {
    fail(err);
  } else if (p.readErr != 0) {
    e->attrs.assign(nattrs, rdmDirAttr_t{denied(p.readErr), 0, {}});
  } else if (sub != nullptr) {
    rtdReadDirAttrs(call.dm, call.q, sub, sublen, &e->attrs);
  } else {
    rtdReadDirAttrs(call.dm, call.q, e->handle.data(), e->handle.size(), &e->attrs);
  }
  std::free(sub);
}

// Files |begin|..|end| of |files| (in directory |dirFd|) into |entries|
// (index k - |base|; |keep| 0 for a file that is no longer a regular file):
// reached and judged with the caller's identity, read with root's.
// Returns 0, or -1 with errno EPERM when the identity could not be switched.
int answerRange(const DirCall& call, int dirFd, const std::vector<std::string>& files, size_t base,
                size_t begin, size_t end, std::vector<rdmDirEntry_t>* entries,
                std::vector<char>* keep, int* refused) {
  std::vector<DirProbe> probes(end - begin);
  {
    rtdCallerFs as(call.caller);
    if (!as.ok()) {
      errno = EPERM;
      return -1;
    }
    for (size_t k = begin; k < end; ++k) {
      DirProbe& p = probes[k - begin];
      p.fd = openat(dirFd, files[k].c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
      if (p.fd < 0)
        p.openErr = errno;
      else if (statx(p.fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &p.stx) != 0)
        p.openErr = errno;
      else if (!S_ISREG(p.stx.stx_mode))
        p.skip = true;
      else if (!rtdMayOpenForReading(p.fd))
        p.readErr = errno;
    }
  }
  std::string path;
  for (size_t k = begin; k < end; ++k) {
    const DirProbe& p = probes[k - begin];
    (*keep)[k - base] = p.skip ? 0 : 1;  // a file that changed is left to the single calls
    if (p.skip) continue;
    rdmDirEntry_t& e = (*entries)[k - base];
    e.name = files[k];
    path.assign(call.q.dir).append("/").append(e.name);
    answerEntry(call, path, p, &e, refused);
  }
  return 0;
}

}  // namespace

const std::vector<std::string>* rtdDirListing::names(int fd) {
  struct statx now;
  if (statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS, &now) != 0) return nullptr;
  if (valid_ && sameDirectory(now, key_)) return &names_;
  valid_ = false;
  // A description of its own, so that reading it moves no offset of |fd|.
  int own = openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (own < 0 || rtdListRegularFiles(own, "", &names_) != 0) return nullptr;
  key_ = now;
  valid_ = true;
  return &names_;
}

int64_t rtdAnswerDirAttrs(const rtdCaller_t& caller, const dmapiBinding_t& dm,
                          rtdDirListing* listing, const rdmDirQuery_t& q, rdmDirReply_t* out,
                          int* refused) {
  *refused = 0;
  int dirFd = rtdOpenAsCaller(caller, q.dir.c_str(), O_RDONLY | O_DIRECTORY);
  if (dirFd < 0) {
    if (errno == EPERM) errno = EACCES;
    return -1;
  }
  rtdDirListing once;
  const std::vector<std::string>* listed = (listing != nullptr ? listing : &once)->names(dirFd);
  if (listed == nullptr) {
    int err = errno;
    close(dirFd);
    errno = err;
    return -1;
  }
  const std::vector<std::string>& files = *listed;
  DirCall call{caller, dm, q, dmIsBuiltIn(dm)};
  size_t start = q.cursor.empty()
                     ? 0
                     : static_cast<size_t>(std::upper_bound(files.begin(), files.end(), q.cursor) -
                                           files.begin());
  rdmDirReplyBuilder reply(q.limit);
  int helperRefused = 0;
  for (size_t first = start, end = start; first < files.size() && !reply.more(); first = end) {
    if (reply.room() == 0) {
      reply.cut();
      break;
    }
    // Files beyond the reply's limit would be looked at for nothing.
    end = std::min(files.size(), first + std::min(kDirChunk, reply.room()));
    std::vector<rdmDirEntry_t> entries(end - first);
    std::vector<char> keep(end - first, 0);
    // The caller waits for the whole answer, so a chunk is shared with a
    // second thread.
    size_t mid = end - first >= kDirShare ? first + (end - first) / 2 : end;
    int helperRc = 0;
    std::thread helper;
    if (mid < end) {
      try {
        helper = std::thread([&] {
          helperRc =
              answerRange(call, dirFd, files, first, mid, end, &entries, &keep, &helperRefused);
        });
      } catch (const std::system_error&) {
        mid = end;  // no thread to be had: all on this one
      }
    }
    int rc = answerRange(call, dirFd, files, first, first, mid, &entries, &keep, refused);
    if (helper.joinable()) helper.join();
    if (rc != 0 || helperRc != 0) {
      close(dirFd);
      errno = EPERM;
      return -1;
    }
    for (size_t k = 0; k < end - first; ++k)
      if (keep[k] && !reply.add(std::move(entries[k]))) break;
  }
  close(dirFd);
  *refused += helperRefused;
  reply.finish(out);
  return 0;
}
