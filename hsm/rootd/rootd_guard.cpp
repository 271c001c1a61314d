#include "hsm/rootd/rootd_guard.h"

#include <errno.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

int refuse(const rtdGuardContext_t& c, const char* function, const std::string& object, int err) {
  if (c.refused != nullptr) c.refused(c.refusedArg, *c.caller, function, object, err);
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

// A session a caller that is not root may use: none, or one of its
// process's.
bool mayUseSession(const rtdGuardContext_t& c, dm_sessid_t sid) {
  return sid == DM_NO_SESSION || c.sessions->owns(sid, c.caller->pid, c.caller->uid);
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

int admitNewSession(const rtdGuardContext_t& c, const char* function, dm_sessid_t oldsid,
                    const char* info) {
  // Only a session of this process may be taken over.
  if (oldsid != DM_NO_SESSION && !mayUseSession(c, oldsid))
    return refuse(c, function, sidText(oldsid), EPERM);
  // The HSM daemons find their sessions by name after a restart; a user's
  // session must not pass for one of theirs.
  if (isDaemonSessionName(info)) return refuse(c, function, rtdPrintable(info), EPERM);
  rtdReapSessions(c);
  // Each session is a registry file and a slot of the provider: one user
  // must not be able to take them all.
  size_t limit = c.maxUserSessions;
  if (oldsid == DM_NO_SESSION && limit != 0 && c.sessions->countOf(c.caller->uid) >= limit)
    return refuse(c, function, std::to_string(limit) + " sessions", EAGAIN);
  return 0;
}

// A gate that did not open: a refusal to report, or the file's own error.
int gateFailed(const rtdGuardContext_t& c, const char* function, const std::string& refusal) {
  if (refusal.empty()) return -1;
  return refuse(c, function, refusal, errno);
}

// The file of the target's handle, opened for the caller with |need|; with
// |substitute| the call is then made through the gate.
int admitHandle(const rtdGuardContext_t& c, const char* function, const rtdTarget_t& t,
                rtdNeed_t need, bool substitute, rtdFileGate* gate) {
  if (t.token != nullptr && !sameToken(*t.token, DM_NO_TOKEN))
    return refuse(c, function, "token", EPERM);
  if (!mayUseSession(c, t.sid)) return refuse(c, function, sidText(t.sid), EPERM);
  std::vector<unsigned char>& h = *t.handle;
  std::string refusal;
  if (gate->openHandle(*c.dm, *c.caller, h.empty() ? nullptr : h.data(), h.size(), need,
                       &refusal) != 0)
    return gateFailed(c, function, refusal);
  if (substitute && !gate->substitute().empty()) h = gate->substitute();
  return 0;
}

}  // namespace

bool rtdAdmission::answersPath(const void* hanp, size_t hlen) const {
  return !pathOpened_ || gate_.isFileOf(hanp, hlen);
}

int rtdApplyRule(const rtdGuardContext_t& c, const rtdRule_t& rule, const char* function,
                 const rtdTarget_t& t, rtdAdmission* adm) {
  if (c.caller->isRoot()) return 0;
  adm->scoped_ = true;
  if (rule.who == rtdRootOnly) return refuse(c, function, sidText(t.sid), EPERM);
  std::string refusal;
  switch (rule.object) {
    case rtdNoObject:
    case rtdOwnSessionList:  // the handler lists the caller's own
      return 0;
    case rtdOwnSession:
      return mayUseSession(c, t.sid) ? 0 : refuse(c, function, sidText(t.sid), EPERM);
    case rtdNewSession:
      return admitNewSession(c, function, t.sid, t.text);
    case rtdReachedHandle:
      if (c.dm->handle_to_path == nullptr) {
        errno = ENOSYS;
        return -1;
      }
      return admitHandle(c, function, t, rtdNeedReach, false, &adm->gate_);
    case rtdReadFile:
      return admitHandle(c, function, t, rtdNeedRead, true, &adm->gate_);
    case rtdOwnedFile:
      return admitHandle(c, function, t, rtdNeedOwn, true, &adm->gate_);
    case rtdReachedPath:
      if (adm->gate_.openPath(*c.dm, *c.caller, t.text, rtdNeedReach, &refusal) != 0)
        return gateFailed(c, function, refusal);
      adm->pathOpened_ = true;
      return 0;
    case rtdListedDir:
      if (t.text[0] != '/') {
        errno = EINVAL;  // the daemon's directory is not the caller's
        return -1;
      }
      return mayUseSession(c, t.sid) ? 0 : refuse(c, function, sidText(t.sid), EPERM);
  }
  return refuse(c, function, sidText(t.sid), EPERM);  // a rule this function does not know
}

void rtdNoteNewSession(const rtdGuardContext_t& c, dm_sessid_t oldsid, dm_sessid_t newsid) {
  const rtdCaller_t& who = *c.caller;
  if (oldsid != DM_NO_SESSION) c.sessions->forget(oldsid);
  c.sessions->record(newsid, {who.pid, who.uid, rtdProcessStartTime(who.pid)});
}

int rtdListOwnSessions(const rtdGuardContext_t& c, unsigned int nelem, dm_sessid_t* sids,
                       unsigned int* nelemp) {
  // The caller sees its own process's sessions that DMAPI still knows.
  std::vector<dm_sessid_t> all(64);
  unsigned int n = 0;
  for (;;) {
    if (c.dm->getall_sessions(static_cast<unsigned int>(all.size()), all.data(), &n) == 0) break;
    if (errno != E2BIG || n <= all.size()) return -1;
    all.resize(n + 16);
  }
  all.resize(n);
  std::vector<dm_sessid_t> mine = c.sessions->sessionsOf(c.caller->pid, c.caller->uid);
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

int64_t rtdAnswerDirAsCaller(const rtdGuardContext_t& c, const char* function,
                             const rdmDirQuery_t& q, rdmDirReply_t* out) {
  const char* dir = q.dir.c_str();
  int refused = 0;
  if (rtdAnswerDirAttrs(*c.caller, *c.dm, c.listing, q, out, &refused) != 0) {
    if (errno == EACCES || errno == EPERM)
      return refuse(c, "dm_path_to_handle", rtdPrintable(dir), errno);
    return -1;
  }
  if (refused > 0 && c.refused != nullptr)
    c.refused(c.refusedArg, *c.caller, function, rtdPrintable(dir), EACCES);
  return 0;
}

int rtdReapSessions(const rtdGuardContext_t& c) {
  int n = 0;
  for (dm_sessid_t sid : c.sessions->takeOrphans()) {
    c.dm->destroy_session(sid);
    ++n;
  }
  return n;
}
