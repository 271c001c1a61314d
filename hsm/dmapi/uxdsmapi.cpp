#include "hsm/dmapi/uxdsmapi.h"

#include <errno.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/dmapi/rdm_client.h"

namespace {

// What one directory call told about one file; each answer is given once.
struct CachedFile {
  bool handleLive = true;
  int handleErr = 0;
  std::vector<unsigned char> handle;
  bool attrLive[2] = {true, true};
  rdmDirAttr_t attrs[2];
};

struct DirCache {
  dm_sessid_t sid = DM_NO_SESSION;
  std::unordered_map<std::string, CachedFile> byPath;
  std::unordered_map<std::string, CachedFile*> byHandle;  // handle bytes
  void clear() {
    byHandle.clear();
    byPath.clear();
  }
};

thread_local DirCache tCache;

const dm_attrname_t kCachedNames[2] = {dmiAttrName(DMI_ATTR_OBJ), dmiAttrName(DMI_ATTR_PMIG)};

// The cached answer to getDmattr, or null.
rdmDirAttr_t* cachedAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                         const dm_attrname_t* name) {
  if (tCache.byHandle.empty() || sid != tCache.sid || !DM_TOKEN_EQ(token, DM_NO_TOKEN) ||
      h.hanp == nullptr || name == nullptr)
    return nullptr;
  auto it = tCache.byHandle.find(std::string(static_cast<const char*>(h.hanp), h.hlen));
  if (it == tCache.byHandle.end()) return nullptr;
  CachedFile* f = it->second;
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
  if (path != nullptr && !tCache.byPath.empty()) {
    auto it = tCache.byPath.find(path);
    if (it != tCache.byPath.end() && it->second.handleLive) {
      CachedFile& f = it->second;
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
  DirCache fresh;
  fresh.sid = getSID();
  std::string cursor;
  std::vector<rdmDirEntry_t> entries;
  std::string prefix = std::string(dir) + "/";
  bool more = true;
  while (more) {
    if (rdmDirAttrs(fresh.sid, dir, cursor, kCachedNames, 2, &entries, &more) != 0) return -1;
    for (rdmDirEntry_t& e : entries) {
      // An empty handle of a successful look-up would be no handle at all:
      // that file is left to the single calls.
      if (e.handleErr == 0 && e.handle.empty()) continue;
      CachedFile& f = fresh.byPath[prefix + e.name];
      f.handleErr = e.handleErr;
      f.handle = std::move(e.handle);
      for (int i = 0; i < 2; ++i) f.attrs[i] = std::move(e.attrs[static_cast<size_t>(i)]);
      if (f.handleErr == 0)
        fresh.byHandle[std::string(reinterpret_cast<const char*>(f.handle.data()),
                                   f.handle.size())] = &f;
    }
    if (!entries.empty()) cursor = entries.back().name;
  }
  tCache = std::move(fresh);
  return 0;
}
