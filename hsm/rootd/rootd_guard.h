// What a caller of the root daemon may do: a provider binding whose every
// function checks the calling connection's user before it forwards the
// call to the real provider.  rtdProviderDispatch decodes a request and calls
// through this binding, so each rule sits where the call's arguments are
// already decoded, and a refused call is answered as the provider would
// answer it: -1 with errno.
//
// Root (uid 0) may do everything.  Every other caller:
//  - may start the service and create sessions, but none named like the
//    HSM daemons' sessions ("rec3", "roo1"...), and no more than the
//    context's limit at once (beyond it: EAGAIN, which the client's retry
//    loop waits out while other sessions end); its sessions are recorded
//    with its process (rtdSessionTable), and it may take over, destroy,
//    query or list only the sessions its own process created (others are
//    left out of the list);
//  - may name a file by path or handle only when it can reach it itself
//    (search permission on the way, checked by opening it as the caller);
//  - may read DM attributes, file attributes, managed regions and holes,
//    or read data invisibly, only on a file it could open for reading;
//  - may set or remove DM attributes and set managed regions only on a
//    file it owns;
//  - may ask for a directory's files at once (rdm_dirattrs.h) only when it
//    could list the directory itself; each file is then judged as the
//    single calls would judge it (PathToHandle needs reach, GetDmattr
//    read permission: an unreadable file's attributes come back EACCES),
//    and the refused files of one call are reported once;
//  - may not use events, tokens or rights, set file attributes, punch
//    holes or write invisibly; a file call carrying a token other than
//    DM_NO_TOKEN, or another process's session, is refused.
// Refusals: EPERM where a privilege is missing (root-only calls, another
// owner, another process's session), EACCES where the file's permissions
// forbid reading or reaching it.  Each is reported through the context's
// refusal function.
//
// A file named by a handle is opened as the caller and the descriptor is
// checked to be the handle's file (device and inode, by the provider's
// handle comparison); a handle of our own provider is then replaced, for
// the call, by one that reaches the file through that descriptor
// (/proc/self/fd/N), so that a path swapped after the check cannot send
// the call to another file.  With another provider's handles the call
// uses the handle as given.
#ifndef QMX_HSM_ROOTD_ROOTD_GUARD_H_
#define QMX_HSM_ROOTD_ROOTD_GUARD_H_

#include <string>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rootd/rootd_caller.h"
#include "hsm/rootd/rootd_dircall.h"
#include "hsm/rootd/rootd_sessions.h"

// Called for every refused call: the caller, the DMAPI function
// ("dm_set_dmattr"), what it named (a path made printable, or a session
// id in hexadecimal) and the errno of the refusal.
typedef void (*rtdRefusalFn_t)(void* arg, const rtdCaller_t& caller, const char* call,
                               const std::string& object, int err);

struct rtdGuardContext_t {
  const dmapiBinding_t* dm = nullptr;  // the real provider
  rtdSessionTable* sessions = nullptr;
  const rtdCaller_t* caller = nullptr;
  rtdRefusalFn_t refused = nullptr;  // may be null
  void* refusedArg = nullptr;
  rtdDirListing* listing = nullptr;  // the connection's, kept between calls; may be null
  size_t maxUserSessions = 0;        // sessions a user may hold at once; 0: no limit
};

// Answers |req| for |ctx|'s caller: rtdProviderDispatch through the authorising
// binding.  Thread-safe (the context is the calling thread's for the call).
void rtdDispatch(const rtdGuardContext_t& ctx, const rdmRequest_t& req, rdmReply_t* rep);

// Destroys, through |ctx.dm|, the recorded sessions whose process is gone.
// Returns how many were reaped.
int rtdReapSessions(const rtdGuardContext_t& ctx);

#endif  // QMX_HSM_ROOTD_ROOTD_GUARD_H_
