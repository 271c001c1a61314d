// What a caller of the root daemon may do, and the one function that
// applies a rule.
//
// How an ordinary user's request reaches root: the client (hsm/rdm,
// rdm_client.h) encodes the call (rdm_calls.h) and sends it over the
// daemon's socket; the daemon (rootd_server.h) learns the caller from the
// socket and hands each request to rtdDispatch (rootd_requests.h), whose
// table has one row per request kind: its decoder, its rule and its
// handler.  rtdDispatch decodes the request, applies the row's rule here
// (rtdApplyRule) and, when the rule lets the request pass, makes the call
// through the real provider and encodes its output values.  A refused
// request is answered as the provider would answer it: -1 with errno, and
// its output values empty.
//
// Root (uid 0) passes every rule unchecked.  For every other caller a rule
// is who may ask (rtdAnyone, rtdRootOnly) and what the request names
// (rtdObject_t):
//  - service: anyone may start it;
//  - sessions: anyone may create sessions, but none named like the HSM
//    daemons' sessions ("rec3", "roo1"...), and no more than the
//    context's limit at once (beyond it: EAGAIN, which the client's retry
//    loop waits out while other sessions end); its sessions are recorded
//    with its process (rtdSessionTable), and it may take over, destroy,
//    query or list only the sessions its own process created (others are
//    left out of the list);
//  - a file named by path or handle only when the caller can reach it
//    itself (search permission on the way, checked by opening it as the
//    caller: rootd_filegate.h);
//  - DM attributes, file attributes, managed regions and holes read, or
//    data read invisibly, only on a file it could open for reading;
//  - DM attributes set or removed and managed regions set only on a file
//    it owns;
//  - a directory's files at once (rdm_dirattrs.h) only when it could list
//    the directory itself; each file is then judged as the single calls
//    would judge it (PathToHandle needs reach, GetDmattr read permission:
//    an unreadable file's attributes come back EACCES), and the refused
//    files of one call are reported once;
//  - events, tokens, rights, setting file attributes, punching holes:
//    root only; a file call carrying a token other than DM_NO_TOKEN, or
//    another process's session, is refused.
// Refusals: EPERM where a privilege is missing (root-only calls, another
// owner, another process's session), EACCES where the file's permissions
// forbid reading or reaching it.  Each is reported through the context's
// refusal function with the DMAPI function of the request's row.
#ifndef QMX_HSM_ROOTD_ROOTD_GUARD_H_
#define QMX_HSM_ROOTD_ROOTD_GUARD_H_

#include <cstddef>
#include <string>
#include <vector>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rootd/rootd_caller.h"
#include "hsm/rootd/rootd_dircall.h"
#include "hsm/rootd/rootd_filegate.h"
#include "hsm/rootd/rootd_sessions.h"

// Called for every refused call: the caller, the DMAPI function
// ("dm_set_dmattr"), what it named (a path made printable, or a session
// id in hexadecimal) and the errno of the refusal.
typedef void (*rtdRefusalFn_t)(void* arg, const rtdCaller_t& caller, const char* call,
                               const std::string& object, int err);

// One connection's caller and what its requests are answered with.
struct rtdGuardContext_t {
  const dmapiBinding_t* dm = nullptr;  // the real provider
  rtdSessionTable* sessions = nullptr;
  const rtdCaller_t* caller = nullptr;
  rtdRefusalFn_t refused = nullptr;  // may be null
  void* refusedArg = nullptr;
  rtdDirListing* listing = nullptr;  // the connection's, kept between calls; may be null
  size_t maxUserSessions = 0;        // sessions a user may hold at once; 0: no limit
};

enum rtdWho_t {
  rtdAnyone,    // any caller, under the object's rule
  rtdRootOnly,  // root; others are refused EPERM, naming the session
};

// What a request names, and what the caller must be able to do with it.
enum rtdObject_t {
  rtdNoObject,        // nothing
  rtdOwnSession,      // a session of the caller's process (or none)
  rtdNewSession,      // a session to create (the special rule above)
  rtdOwnSessionList,  // the list of sessions: the caller's process's only
  rtdReachedHandle,   // a file by handle the caller can reach (no session
                      // or token; the call gets the handle as given)
  rtdReadFile,        // a file by handle (with session and token) the
                      // caller could open for reading
  rtdOwnedFile,       // the same, a file the caller owns
  rtdReachedPath,     // a file by path the caller can reach; the handle
                      // answered must be of that file
  rtdListedDir,       // a directory the caller could list, with its own
                      // session; each file judged as the single calls
};

struct rtdRule_t {
  rtdWho_t who;
  rtdObject_t object;
};

// What a request names, as its rule looks at it (rtdDispatch fills it from
// the decoded arguments).  |handle| points into the arguments: a file rule
// may replace it by the handle to make the call with.
struct rtdTarget_t {
  dm_sessid_t sid = DM_NO_SESSION;
  std::vector<unsigned char>* handle = nullptr;
  const dm_token_t* token = nullptr;
  const char* text = nullptr;  // a path, a directory, or a new session's info
};

// What a rule that let a request pass leaves for its handler.  Lives until
// the call is made: it keeps the caller's file open for a substituted
// handle.
class rtdAdmission {
 public:
  // True when the answer itself is the caller's (a caller that is not
  // root): its process's sessions only, the directory as it sees it, a new
  // session recorded as its own.
  bool scoped() const { return scoped_; }
  // For rtdReachedPath: true when the handle the provider answered is of
  // the file the caller reached (always true for root).
  bool answersPath(const void* hanp, size_t hlen) const;

 private:
  friend int rtdApplyRule(const rtdGuardContext_t& ctx, const rtdRule_t& rule, const char* function,
                          const rtdTarget_t& target, rtdAdmission* adm);
  bool scoped_ = false;
  bool pathOpened_ = false;
  rtdFileGate gate_;
};

// Applies |rule| to |target| for |ctx|'s caller; |function| is the DMAPI
// function reported with a refusal.  Returns 0 when the request may be
// made (|*adm| then holds what the handler needs), or -1 with errno, the
// refusal reported.  Thread-safe (the context is the calling thread's).
int rtdApplyRule(const rtdGuardContext_t& ctx, const rtdRule_t& rule, const char* function,
                 const rtdTarget_t& target, rtdAdmission* adm);

// ---- Answers that are the caller's (rtdAdmission::scoped) -------------

// Records |newsid|, created by the caller (taking over |oldsid| when that
// is a session), as its process's.
void rtdNoteNewSession(const rtdGuardContext_t& ctx, dm_sessid_t oldsid, dm_sessid_t newsid);

// The caller's process's sessions that the provider still knows, as
// getall_sessions gives them (E2BIG with the count when more than |nelem|).
int rtdListOwnSessions(const rtdGuardContext_t& ctx, unsigned int nelem, dm_sessid_t* sids,
                       unsigned int* nelemp);

// The directory call as the caller may see it (rootd_dircall.h); a
// directory it may not list is refused as "dm_path_to_handle", files it
// may not read are reported once as |function|.  Returns 0 with |*out|, or
// -1 with errno.
int64_t rtdAnswerDirAsCaller(const rtdGuardContext_t& ctx, const char* function,
                             const rdmDirQuery_t& q, rdmDirReply_t* out);

// Destroys, through |ctx.dm|, the recorded sessions whose process is gone.
// Returns how many were reaped.
int rtdReapSessions(const rtdGuardContext_t& ctx);

#endif  // QMX_HSM_ROOTD_ROOTD_GUARD_H_
