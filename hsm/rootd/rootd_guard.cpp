#include "hsm/rootd/rootd_guard.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "hsm/provider/handle.h"
#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rootd/rootd_dircall.h"
#include "hsm/rootd/rootd_dirread.h"
#include "hsm/rootd/rootd_dispatch.h"

namespace {

thread_local const rtdGuardContext_t* tCtx = nullptr;

const rtdGuardContext_t& ctx() {
  return *tCtx;
}
const dmapiBinding_t& real() {
  return *tCtx->dm;
}
bool callerIsRoot() {
  return tCtx->caller->isRoot();
}

int refuse(const char* call, const std::string& object, int err) {
  const rtdGuardContext_t& c = ctx();
  if (c.refused != nullptr) c.refused(c.refusedArg, *c.caller, call, object, err);
  errno = err;
  return -1;
}

std::string sidText(dm_sessid_t sid) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%" PRIX64, static_cast<uint64_t>(sid));
  return buf;
}

bool sameToken(const dm_token_t& a, const dm_token_t& b) {
  return a.high == b.high && a.low == b.low;
}

// A session a non-root caller may use: none, or one of its process's.
bool mayUseSession(dm_sessid_t sid) {
  const rtdCaller_t& c = *ctx().caller;
  return sid == DM_NO_SESSION || ctx().sessions->owns(sid, c.pid, c.uid);
}

enum Need { kReach, kRead, kOwn };

// The file of a handle, opened as the caller and checked to be that file;
// the handle to make the call with.
class FileGate {
 public:
  FileGate() = default;
  FileGate(const FileGate&) = delete;
  FileGate& operator=(const FileGate&) = delete;
  ~FileGate() {
    if (sub_ != nullptr) std::free(sub_);
    if (fd_ >= 0) close(fd_);
  }
  void* hanp() const { return hanp_; }
  size_t hlen() const { return hlen_; }

  // Returns 0, or -1 with errno (refusals reported).
  int open(const char* call, dm_sessid_t sid, void* hanp, size_t hlen, const dm_token_t* token,
           Need need) {
    hanp_ = hanp;
    hlen_ = hlen;
    if (token != nullptr && !sameToken(*token, DM_NO_TOKEN)) return refuse(call, "token", EPERM);
    if (!mayUseSession(sid)) return refuse(call, sidText(sid), EPERM);
    const dmapiBinding_t& dm = real();
    if (dm.handle_to_path == nullptr) return refuse(call, "handle", EPERM);
    char path[PATH_MAX + 1];
    size_t rlen = 0;
    if (hanp == nullptr) {
      errno = EBADF;
      return -1;
    }
    if (dm.handle_to_path(nullptr, 0, hanp, hlen, sizeof path, path, &rlen) != 0)
      return -1;  // not a handle, or one that names no file: the provider's answer
    path[sizeof path - 1] = '\0';
    if (path[0] != '/') return refuse(call, rtdPrintable(path), EACCES);
    return openAs(call, path, need);
  }

  // The same for a path given in a request.
  int openPath(const char* call, const char* path, Need need) {
    if (path[0] != '/') {
      errno = EINVAL;  // the daemon's directory is not the caller's
      return -1;
    }
    return openAs(call, path, need);
  }
  int fd() const { return fd_; }
  // The opened file's status (after a successful open).
  const struct statx& status() const { return stx_; }

 private:
  int openAs(const char* call, const char* path, Need need) {
    const rtdCaller_t& c = *ctx().caller;
    struct statx& stx = stx_;
    int err = 0;
    {
      // Everything that depends on the caller's rights under one switch.
      rtdCallerFs as(c);
      if (!as.ok()) return refuse(call, rtdPrintable(path), EPERM);
      fd_ = ::open(path, O_PATH | O_CLOEXEC);
      if (fd_ < 0) {
        err = errno;
      } else if (statx(fd_, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &stx) != 0) {
        err = errno;
      } else if (need == kRead && !rtdMayOpenForReading(fd_)) {
        err = errno;
      }
    }
    if (err != 0) {
      errno = err;
      return failOpen(call, path);
    }
    if (need == kOwn && stx.stx_uid != c.uid) return refuse(call, rtdPrintable(path), EPERM);
    if (hanp_ != nullptr && checkIdentity(stx) != 0) return -1;
    return 0;
  }

  int failOpen(const char* call, const char* path) {
    int err = errno;
    if (err == EACCES || err == EPERM) return refuse(call, rtdPrintable(path), EACCES);
    // A path that no longer leads to a file: the handle is stale.
    errno = hanp_ != nullptr && (err == ENOENT || err == ENOTDIR || err == ELOOP) ? EBADF : err;
    return -1;
  }

  // The opened file (status |stx|) must be the handle's; then the call goes
  // through the descriptor when the handle is one of ours.
  int checkIdentity(const struct statx& stx) {
    qdmHandle_t h;
    if (qdmHandleDecode(hanp_, hlen_, &h) != 0) {
      // Another provider's handle: its own comparison decides.
      const dmapiBinding_t& dm = real();
      void* fh = nullptr;
      size_t fl = 0;
      if (dm.fd_to_handle(fd_, &fh, &fl) != 0) return -1;
      int cmp = dm.handle_cmp(fh, fl, hanp_, hlen_);
      dm.handle_free(fh, fl);
      if (cmp != 0) {
        errno = EBADF;  // the path now names another file
        return -1;
      }
      return 0;
    }
    qdmIdentity_t id;
    qdmIdentityFromStatx(stx, &id);
    if (!qdmSameFile(id, h.id)) {
      errno = EBADF;  // the path now names another file
      return -1;
    }
    char self[64];
    int n = std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd_);
    void* sub = nullptr;
    size_t sublen = 0;
    if (qdmHandleMake(self, static_cast<size_t>(n), h.id, &sub, &sublen) != 0) return -1;
    sub_ = sub;
    hanp_ = sub;
    hlen_ = sublen;
    return 0;
  }

  int fd_ = -1;
  struct statx stx_ = {};
  void* hanp_ = nullptr;
  size_t hlen_ = 0;
  void* sub_ = nullptr;
};

// ---- Service and sessions -------------------------------------------------

int gInitService(char** v) {
  return real().init_service(v);
}

// The names of the daemons' sessions: "rec", "mon", "sct", "roo" or "wat"
// and the instance number.
bool isDaemonSessionName(const char* info) {
  if (info == nullptr) return false;
  static const char* const kPrefixes[] = {"rec", "mon", "sct", "roo", "wat"};
  for (const char* p : kPrefixes) {
    if (std::strncmp(info, p, 3) != 0) continue;
    const char* d = info + 3;
    if (*d == '\0') return false;
    while (*d >= '0' && *d <= '9') ++d;
    if (*d == '\0') return true;
  }
  return false;
}

int gCreateSession(dm_sessid_t oldsid, char* info, dm_sessid_t* newsid) {
  if (callerIsRoot()) return real().create_session(oldsid, info, newsid);
  // Only a session of this process may be taken over.
  if (oldsid != DM_NO_SESSION && !mayUseSession(oldsid))
    return refuse("dm_create_session", sidText(oldsid), EPERM);
  // The HSM daemons find their sessions by name after a restart; a user's
  // session must not pass for one of theirs.
  if (isDaemonSessionName(info)) return refuse("dm_create_session", rtdPrintable(info), EPERM);
  rtdReapSessions(ctx());
  // Each session is a registry file and a slot of the provider: one user
  // must not be able to take them all.
  const rtdCaller_t& c = *ctx().caller;
  size_t limit = ctx().maxUserSessions;
  if (oldsid == DM_NO_SESSION && limit != 0 && ctx().sessions->countOf(c.uid) >= limit)
    return refuse("dm_create_session", std::to_string(limit) + " sessions", EAGAIN);
  int rc = real().create_session(oldsid, info, newsid);
  if (rc == 0) {
    if (oldsid != DM_NO_SESSION) ctx().sessions->forget(oldsid);
    ctx().sessions->record(*newsid, {c.pid, c.uid, rtdProcessStartTime(c.pid)});
  }
  return rc;
}

int gDestroySession(dm_sessid_t sid) {
  if (!callerIsRoot() && !mayUseSession(sid))
    return refuse("dm_destroy_session", sidText(sid), EPERM);
  int rc = real().destroy_session(sid);
  if (rc == 0) ctx().sessions->forget(sid);
  return rc;
}

int gGetAllSessions(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) {
  if (callerIsRoot()) return real().getall_sessions(nelem, sids, nelemp);
  // The caller sees its own process's sessions that DMAPI still knows.
  std::vector<dm_sessid_t> all(64);
  unsigned int n = 0;
  for (;;) {
    if (real().getall_sessions(static_cast<unsigned int>(all.size()), all.data(), &n) == 0) break;
    if (errno != E2BIG || n <= all.size()) return -1;
    all.resize(n + 16);
  }
  all.resize(n);
  const rtdCaller_t& c = *ctx().caller;
  std::vector<dm_sessid_t> mine = ctx().sessions->sessionsOf(c.pid, c.uid);
  std::vector<dm_sessid_t> out;
  for (dm_sessid_t s : all)
    if (std::binary_search(mine.begin(), mine.end(), s)) out.push_back(s);
  *nelemp = static_cast<unsigned int>(out.size());
  if (out.size() > nelem) {
    errno = E2BIG;
    return -1;
  }
  std::copy(out.begin(), out.end(), sids);
  return 0;
}

int gQuerySession(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) {
  if (!callerIsRoot() && !mayUseSession(sid))
    return refuse("dm_query_session", sidText(sid), EPERM);
  return real().query_session(sid, buflen, buf, rlenp);
}

// ---- Handles ------------------------------------------------------------------

int gPathToHandle(char* path, void** hanpp, size_t* hlenp) {
  if (callerIsRoot()) return real().path_to_handle(path, hanpp, hlenp);
  FileGate g;
  if (g.openPath("dm_path_to_handle", path, kReach) != 0) return -1;
  if (real().path_to_handle(path, hanpp, hlenp) != 0) return -1;
  // The handle must be of the file the caller reached, not of one swapped
  // in after the check.
  int cmp = -1;
  qdmHandle_t h;
  if (qdmHandleDecode(*hanpp, *hlenp, &h) == 0) {
    qdmIdentity_t id;
    qdmIdentityFromStatx(g.status(), &id);
    cmp = qdmSameFile(id, h.id) ? 0 : 1;
  } else {
    void* fh = nullptr;
    size_t fl = 0;
    if (real().fd_to_handle(g.fd(), &fh, &fl) == 0) {
      cmp = real().handle_cmp(fh, fl, *hanpp, *hlenp);
      real().handle_free(fh, fl);
    }
  }
  if (cmp != 0) {
    real().handle_free(*hanpp, *hlenp);
    *hanpp = nullptr;
    *hlenp = 0;
    errno = ENOENT;
    return -1;
  }
  return 0;
}

int gFdToHandle(int fd, void** hanpp, size_t* hlenp) {
  // Descriptors are the daemon's own, never a caller's.
  if (!callerIsRoot()) return refuse("dm_fd_to_handle", std::to_string(fd), EPERM);
  return real().fd_to_handle(fd, hanpp, hlenp);
}

int gHandleToPath(void* dirh, size_t dirl, void* targh, size_t targl, size_t buflen, char* buf,
                  size_t* rlenp) {
  if (real().handle_to_path == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  if (!callerIsRoot()) {
    FileGate g;
    if (g.open("dm_handle_to_path", DM_NO_SESSION, targh, targl, nullptr, kReach) != 0) return -1;
  }
  return real().handle_to_path(dirh, dirl, targh, targl, buflen, buf, rlenp);
}

void gHandleFree(void* h, size_t l) {
  real().handle_free(h, l);
}
unsigned int gHandleHash(void* h, size_t l) {
  return real().handle_hash(h, l);
}
int gHandleCmp(void* a, size_t al, void* b, size_t bl) {
  return real().handle_cmp(a, al, b, bl);
}
dm_boolean_t gHandleIsValid(void* h, size_t l) {
  return real().handle_is_valid(h, l);
}

// ---- Files ----------------------------------------------------------------------

// Opens the gate for a file call of a non-root caller; root passes as is.
#define QMX_GATE(call, need)                                            \
  FileGate gate;                                                        \
  if (!callerIsRoot()) {                                                \
    if (gate.open(call, sid, hanp, hlen, &token, need) != 0) return -1; \
    hanp = gate.hanp();                                                 \
    hlen = gate.hlen();                                                 \
  }

int gSetDmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_attrname_t* name,
               int setdtime, size_t buflen, void* bufp) {
  QMX_GATE("dm_set_dmattr", kOwn);
  return real().set_dmattr(sid, hanp, hlen, token, name, setdtime, buflen, bufp);
}

int gGetDmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_attrname_t* name,
               size_t buflen, void* bufp, size_t* rlenp) {
  QMX_GATE("dm_get_dmattr", kRead);
  return real().get_dmattr(sid, hanp, hlen, token, name, buflen, bufp, rlenp);
}

int gRemoveDmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, int setdtime,
                  dm_attrname_t* name) {
  QMX_GATE("dm_remove_dmattr", kOwn);
  return real().remove_dmattr(sid, hanp, hlen, token, setdtime, name);
}

int gProbeHole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
               dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) {
  QMX_GATE("dm_probe_hole", kRead);
  return real().probe_hole(sid, hanp, hlen, token, off, len, roffp, rlenp);
}

dm_ssize_t gReadInvis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                      dm_size_t len, void* bufp) {
  QMX_GATE("dm_read_invis", kRead);
  return real().read_invis(sid, hanp, hlen, token, off, len, bufp);
}

int gGetFileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int mask,
                 dm_stat_t* statp) {
  QMX_GATE("dm_get_fileattr", kRead);
  return real().get_fileattr(sid, hanp, hlen, token, mask, statp);
}

int gSetRegion(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int nelem,
               dm_region_t* regs, dm_boolean_t* exactp) {
  QMX_GATE("dm_set_region", kOwn);
  return real().set_region(sid, hanp, hlen, token, nelem, regs, exactp);
}

int gGetRegion(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int nelem,
               dm_region_t* regs, unsigned int* nelemp) {
  QMX_GATE("dm_get_region", kRead);
  return real().get_region(sid, hanp, hlen, token, nelem, regs, nelemp);
}
#undef QMX_GATE

// ---- Root only ------------------------------------------------------------------

#define QMX_ROOT_ONLY(call, object) \
  if (!callerIsRoot()) return refuse(call, object, EPERM)

int gPunchHole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
               dm_size_t len) {
  QMX_ROOT_ONLY("dm_punch_hole", sidText(sid));
  return real().punch_hole(sid, hanp, hlen, token, off, len);
}

dm_ssize_t gWriteInvis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, int flags,
                       dm_off_t off, dm_size_t len, void* bufp) {
  QMX_ROOT_ONLY("dm_write_invis", sidText(sid));
  return real().write_invis(sid, hanp, hlen, token, flags, off, len, bufp);
}

int gSetFileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int mask,
                 dm_fileattr_t* attrp) {
  // Owner, mode and times through DMAPI would bypass the kernel's own
  // rules (a file given to root with its set-user-id bit, say).
  QMX_ROOT_ONLY("dm_set_fileattr", sidText(sid));
  return real().set_fileattr(sid, hanp, hlen, token, mask, attrp);
}

int gRequestRight(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int flags,
                  dm_right_t right) {
  QMX_ROOT_ONLY("dm_request_right", sidText(sid));
  return real().request_right(sid, hanp, hlen, token, flags, right);
}

int gReleaseRight(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token) {
  QMX_ROOT_ONLY("dm_release_right", sidText(sid));
  return real().release_right(sid, hanp, hlen, token);
}

int gGetEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen, void* bufp,
               size_t* rlenp) {
  QMX_ROOT_ONLY("dm_get_events", sidText(sid));
  return real().get_events(sid, maxmsgs, flags, buflen, bufp, rlenp);
}

int gRespondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reterror,
                  size_t buflen, void* respbufp) {
  QMX_ROOT_ONLY("dm_respond_event", sidText(sid));
  return real().respond_event(sid, token, response, reterror, buflen, respbufp);
}

int gCreateUserevent(dm_sessid_t sid, size_t msglen, void* msg, dm_token_t* tokenp) {
  QMX_ROOT_ONLY("dm_create_userevent", sidText(sid));
  return real().create_userevent(sid, msglen, msg, tokenp);
}

int gGetallTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens, unsigned int* nelemp) {
  QMX_ROOT_ONLY("dm_getall_tokens", sidText(sid));
  return real().getall_tokens(sid, nelem, tokens, nelemp);
}
#undef QMX_ROOT_ONLY

const dmapiBinding_t kGuard = {
    .init_service = gInitService,
    .create_session = gCreateSession,
    .destroy_session = gDestroySession,
    .getall_sessions = gGetAllSessions,
    .query_session = gQuerySession,
    .path_to_handle = gPathToHandle,
    .fd_to_handle = gFdToHandle,
    .handle_to_path = gHandleToPath,
    .handle_free = gHandleFree,
    .handle_hash = gHandleHash,
    .handle_cmp = gHandleCmp,
    .handle_is_valid = gHandleIsValid,
    .set_dmattr = gSetDmattr,
    .get_dmattr = gGetDmattr,
    .remove_dmattr = gRemoveDmattr,
    .probe_hole = gProbeHole,
    .punch_hole = gPunchHole,
    .read_invis = gReadInvis,
    .write_invis = gWriteInvis,
    .get_fileattr = gGetFileattr,
    .set_fileattr = gSetFileattr,
    .set_region = gSetRegion,
    .get_region = gGetRegion,
    .request_right = gRequestRight,
    .release_right = gReleaseRight,
    .get_events = gGetEvents,
    .respond_event = gRespondEvent,
    .create_userevent = gCreateUserevent,
    .getall_tokens = gGetallTokens,
};

// Sets the thread's context for one call.
class ContextScope {
 public:
  explicit ContextScope(const rtdGuardContext_t& c) : prev_(tCtx) { tCtx = &c; }
  ~ContextScope() { tCtx = prev_; }

 private:
  const rtdGuardContext_t* prev_;
};

// ---- Directory calls ----------------------------------------------------------

// A directory call: root's is made as it comes; any other caller's lists
// only a directory it could list itself, with its own session, and each
// file is judged as the single calls would judge it (rootd_dircall.h).
// Refused files are reported in one line per call.
int64_t gDirAttrs(void* /*arg*/, const rdmDirQuery_t& q, rdmWriter* out) {
  if (callerIsRoot()) return rtdAnswerDirAttrsAsRoot(real(), q, out);
  const char* dir = q.dir.c_str();
  if (dir[0] != '/') {
    errno = EINVAL;  // the daemon's directory is not the caller's
    return -1;
  }
  if (!mayUseSession(q.sid)) return refuse("dm_get_dmattr", sidText(q.sid), EPERM);
  const rtdCaller_t& c = *ctx().caller;
  int refused = 0;
  if (rtdAnswerDirAttrs(c, real(), ctx().listing, q, out, &refused) != 0) {
    if (errno == EACCES || errno == EPERM)
      return refuse("dm_path_to_handle", rtdPrintable(dir), errno);
    return -1;
  }
  if (refused > 0 && ctx().refused != nullptr)
    ctx().refused(ctx().refusedArg, c, "dm_get_dmattr", rtdPrintable(dir), EACCES);
  return 0;
}

}  // namespace

void rtdDispatch(const rtdGuardContext_t& c, const rdmRequest_t& req, rdmReply_t* rep) {
  ContextScope scope(c);
  rtdProviderDispatch(kGuard, req, rep, gDirAttrs, nullptr);
}

int rtdReapSessions(const rtdGuardContext_t& c) {
  int n = 0;
  for (dm_sessid_t sid : c.sessions->takeOrphans()) {
    c.dm->destroy_session(sid);
    ++n;
  }
  return n;
}
