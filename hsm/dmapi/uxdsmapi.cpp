#include "hsm/dmapi/uxdsmapi.h"

#include <errno.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <unordered_map>
#include <vector>

#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/rdm/rdm_client.h"

namespace {

// What one directory call told about one file; each answer is given once.
struct CachedFile {
  bool handleLive = true;
  int handleErr = 0;
  std::vector<unsigned char> handle;
  bool attrLive[2] = {true, true};
  rdmDirAttr_t attrs[2];
};

// The first reply is kept small so that the daemon's answer arrives while
// the command still reads the directory itself; later ones grow, so that a
// large directory costs the daemon few listings of it.
constexpr uint32_t kFirstLimit = 256;
constexpr uint32_t kMaxLimit = 4096;

const dm_attrname_t kCachedNames[2] = {dmiAttrName(DMI_ATTR_OBJ), dmiAttrName(DMI_ATTR_PMIG)};

// The answers for one directory, filled reply by reply as its names are
// asked for (in byte order, as commands list them): while one reply is
// read from the cache, the daemon prepares the next.
class DirCache {
 public:
  // (No destructor of its own: at a thread's end the pending request goes
  // with the thread's connection.)
  void clear() {
    if (pending_) rdmDirAttrsAbandon();
    pending_ = false;
    byHandle_.clear();
    byPath_.clear();
    prefix_.clear();
  }

  // Sends the first request for |dir|.
  void start(dm_sessid_t sid, const char* dir) {
    clear();
    q_ = rdmDirQuery_t();
    q_.sid = sid;
    q_.dir = dir;
    q_.flags = rdmDirIfAbsent;
    q_.limit = kFirstLimit;
    q_.names.assign(std::begin(kCachedNames), std::end(kCachedNames));
    prefix_ = q_.dir + "/";
    pending_ = rdmDirAttrsSend(q_) == 0;
  }

  // The cached file at |path|, or null.
  CachedFile* byPath(const char* path) {
    if (prefix_.empty() || std::strncmp(path, prefix_.c_str(), prefix_.size()) != 0) return nullptr;
    const char* name = path + prefix_.size();
    if (std::strchr(name, '/') != nullptr) return nullptr;
    // Names up to the cursor have been answered; a later one waits for
    // the reply that covers it.
    while (pending_ && (q_.cursor.empty() || q_.cursor < name)) pull();
    auto it = byPath_.find(path);
    return it == byPath_.end() ? nullptr : &it->second;
  }

  CachedFile* byHandle(dm_sessid_t sid, const xdsm_handle_t& h) {
    if (byHandle_.empty() || sid != q_.sid) return nullptr;
    auto it = byHandle_.find(std::string(static_cast<const char*>(h.hanp), h.hlen));
    return it == byHandle_.end() ? nullptr : it->second;
  }

 private:
  // Takes the pending reply into the cache and asks for the next one.  A
  // failed reply ends the prefetch: what it did not bring goes to the
  // daemon call by call.
  void pull() {
    pending_ = false;
    std::vector<rdmDirEntry_t> entries;
    bool more = false;
    if (rdmDirAttrsReceive(&entries, &more) != 0) return;
    if (more) {
      q_.cursor = entries.back().name;
      q_.limit = std::min(q_.limit * 4, kMaxLimit);
      pending_ = rdmDirAttrsSend(q_) == 0;
    }
    for (rdmDirEntry_t& e : entries) {
      // An empty handle of a successful look-up would be no handle at all:
      // that file is left to the single calls.
      if (e.handleErr == 0 && e.handle.empty()) continue;
      CachedFile& f = byPath_[prefix_ + e.name];
      f.handleErr = e.handleErr;
      f.handle = std::move(e.handle);
      for (int i = 0; i < 2; ++i) {
        f.attrs[i] = std::move(e.attrs[static_cast<size_t>(i)]);
        f.attrLive[i] = f.attrs[i].err != rdmDirNotRead;
      }
      if (f.handleErr == 0)
        byHandle_[std::string(reinterpret_cast<const char*>(f.handle.data()), f.handle.size())] =
            &f;
    }
    // Without more to come every name is covered.
    if (!more) q_.cursor.clear();
  }

  rdmDirQuery_t q_;
  std::string prefix_;  // the directory and "/"; empty: nothing cached
  bool pending_ = false;
  std::unordered_map<std::string, CachedFile> byPath_;
  std::unordered_map<std::string, CachedFile*> byHandle_;  // handle bytes
};

thread_local DirCache tCache;

// The cached answer to getDmattr, or null.
rdmDirAttr_t* cachedAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                         const dm_attrname_t* name) {
  if (!DM_TOKEN_EQ(token, DM_NO_TOKEN) || h.hanp == nullptr || name == nullptr) return nullptr;
  CachedFile* f = tCache.byHandle(sid, h);
  if (f == nullptr) return nullptr;
  for (int i = 0; i < 2; ++i) {
    if (!f->attrLive[i]) continue;
    if (std::memcmp(name->an_chars, kCachedNames[i].an_chars, sizeof name->an_chars) != 0) continue;
    f->attrLive[i] = false;
    return &f->attrs[i];
  }
  return nullptr;
}

}  // namespace

UXDSMAPI::UXDSMAPI(dm_boolean_t remote) : XDSMAPI(remote) {}

int UXDSMAPI::initService() {
  return initServiceWith([](char** version) {
    // The version text must outlive the call for the check and the trace.
    static thread_local char text[256];
    int rc = rdmInitService(text, sizeof text);
    *version = rc == 0 ? text : nullptr;
    return rc;
  });
}

dm_sessid_t UXDSMAPI::createSession(dm_sessid_t oldsid, const char* info, int force) {
  return createSessionWith(oldsid, info, force, [](dm_sessid_t old, char* buf, dm_sessid_t* sid) {
    return rdmCreateSession(old, buf, sid);
  });
}

int UXDSMAPI::destroySession(dm_sessid_t sid, int /*flag*/) {
  return destroySessionWith(sid, [](dm_sessid_t s) { return rdmDestroySession(s); });
}

int UXDSMAPI::getAllTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens,
                           unsigned int* nelemp) {
  return rdmGetAllTokens(sid, nelem, tokens, nelemp);
}

int UXDSMAPI::setDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        const dm_attrname_t* name, int setdtime, size_t len, const void* buf) {
  tCache.clear();
  return rdmSetDmattr(sid, h.hanp, h.hlen, token, name, setdtime, len, buf);
}

int UXDSMAPI::getDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp) {
  if (const rdmDirAttr_t* a = cachedAttr(sid, h, token, name)) {
    // A value that does not fit, or one too large for the directory call,
    // is left to the single call and its own way of saying so.
    bool fits = a->err == 0 && a->value.size() <= buflen && (buf != nullptr || a->value.empty());
    if (a->err != 0 && a->err != E2BIG) {
      if (rlenp != nullptr) *rlenp = a->rlen;
      errno = a->err;
      return -1;
    }
    if (fits) {
      if (!a->value.empty()) std::memcpy(buf, a->value.data(), a->value.size());
      if (rlenp != nullptr) *rlenp = a->rlen;
      return 0;
    }
  }
  return rdmGetDmattr(sid, h.hanp, h.hlen, token, name, buflen, buf, rlenp);
}

int UXDSMAPI::removeDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, int setdtime,
                           const dm_attrname_t* name) {
  tCache.clear();
  return rdmRemoveDmattr(sid, h.hanp, h.hlen, token, setdtime, name);
}

int UXDSMAPI::probeHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                        dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) {
  return rdmProbeHole(sid, h.hanp, h.hlen, token, off, len, roffp, rlenp);
}

int UXDSMAPI::punchHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                        dm_size_t len) {
  return rdmPunchHole(sid, h.hanp, h.hlen, token, off, len);
}

int UXDSMAPI::requestRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                           unsigned int flags, dm_right_t right) {
  return rdmRequestRight(sid, h.hanp, h.hlen, token, flags, right);
}

int UXDSMAPI::releaseRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token) {
  return rdmReleaseRight(sid, h.hanp, h.hlen, token);
}

int UXDSMAPI::getFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                          unsigned int mask, dm_stat_t* st) {
  return rdmGetFileAttr(sid, h.hanp, h.hlen, token, mask, st);
}

int UXDSMAPI::setFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                          unsigned int mask, const dm_fileattr_t* fa) {
  return rdmSetFileAttr(sid, h.hanp, h.hlen, token, mask, fa);
}

dm_ssize_t UXDSMAPI::readInvis(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                               dm_off_t off, dm_size_t len, void* buf) {
  return rdmReadInvis(sid, h.hanp, h.hlen, token, off, len, buf);
}

int UXDSMAPI::setRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        unsigned int nelem, const dm_region_t* regions, dm_boolean_t* exactp,
                        int /*flag*/) {
  return rdmSetRegion(sid, h.hanp, h.hlen, token, nelem, regions, exactp);
}

int UXDSMAPI::getEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen,
                        void* buf, size_t* rlenp) {
  return rdmGetEvents(sid, maxmsgs, flags, buflen, buf, rlenp);
}

int UXDSMAPI::respondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reason) {
  return rdmRespondEvent(sid, token, response, reason);
}

int UXDSMAPI::createUserEvent(dm_sessid_t sid, size_t len, const void* msg, dm_token_t* tokenp) {
  return rdmCreateUserEvent(sid, len, msg, tokenp);
}

int UXDSMAPI::getAllSessionsOp(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) {
  return rdmGetAllSessions(nelem, sids, nelemp);
}

int UXDSMAPI::querySessionOp(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) {
  return rdmQuerySession(sid, buflen, buf, rlenp);
}

int UXDSMAPI::pathToHandle(const char* path, xdsm_handle_t* h) {
  if (h == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (path != nullptr) {
    CachedFile* cached = tCache.byPath(path);
    if (cached != nullptr && cached->handleLive) {
      CachedFile& f = *cached;
      f.handleLive = false;
      if (f.handleErr != 0) {
        errno = f.handleErr;
        return -1;
      }
      void* copy = std::malloc(f.handle.size());
      if (copy == nullptr) {
        errno = ENOMEM;
        return -1;
      }
      std::memcpy(copy, f.handle.data(), f.handle.size());
      h->hanp = copy;
      h->hlen = f.handle.size();
      return 0;
    }
  }
  return rdmPathToHandle(path, &h->hanp, &h->hlen);
}

void UXDSMAPI::freeHandle(xdsm_handle_t* h) {
  if (h == nullptr) return;
  std::free(h->hanp);
  h->hanp = nullptr;
  h->hlen = 0;
}

int UXDSMAPI::handleToPath(const xdsm_handle_t& h, char* buf, size_t size) {
  return rdmHandleToPath(h.hanp, h.hlen, buf, size);
}

int UXDSMAPI::getRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        unsigned int nelem, dm_region_t* regions, unsigned int* nelemp) {
  return rdmGetRegion(sid, h.hanp, h.hlen, token, nelem, regions, nelemp);
}

int UXDSMAPI::prefetchDirAttributes(const char* dir) {
  tCache.clear();
  if (dir == nullptr) {
    errno = EINVAL;
    return -1;
  }
  tCache.start(getSID(), dir);
  return 0;
}
