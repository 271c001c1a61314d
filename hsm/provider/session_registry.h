// The session registry of our provider: one file per session in the
// directory "/run/qmxdmapi" under the system root.
//
// A session outlives the process that created it, as DMAPI sessions do, so
// that a successor can take it over.  The file "<id in hex>" holds
//   "qmxdm session 1\n" "pid <creator>\n" ("token <high>-<low>\n")* "info "
// followed by the info string's bytes up to the end of the file.  Writers
// hold an exclusive lock on "<dir>/.lock" and replace files by rename, so
// readers never lock and never see half a record; concurrent processes can't
// corrupt the registry.  Session ids come from the counter "<dir>/.nextid",
// seeded from the clock, so that they rise in creation order and don't come
// back after the directory was cleared at boot.
#ifndef QMX_HSM_PROVIDER_SESSION_REGISTRY_H_
#define QMX_HSM_PROVIDER_SESSION_REGISTRY_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "hsm/provider/dmapi_iface.h"

struct qdmSession_t {
  dm_sessid_t sid = DM_NO_SESSION;
  pid_t pid = 0;
  std::vector<dm_token_t> tokens;  // outstanding user-event tokens
  std::string info;
};

// The registry directory in force (follows QMX_SYSROOT).
std::string qdmRegistryDir();

// Creates a session with |info| for the calling process, or, when |oldsid|
// is not DM_NO_SESSION, takes that session over: same id, new info and
// creator, tokens kept.  Returns 0 with *newsid, or -1 with errno (EINVAL:
// no such old session).
int qdmRegCreate(dm_sessid_t oldsid, const std::string& info, dm_sessid_t* newsid);

// Removes a session.  -1 with EINVAL when there is none, EBUSY while it
// holds tokens.
int qdmRegDestroy(dm_sessid_t sid);

// All sessions in creation order.  Returns 0 or -1 with errno.
int qdmRegList(std::vector<dm_sessid_t>* out);

// Reads one session.  -1 with EINVAL when there is none.
int qdmRegRead(dm_sessid_t sid, qdmSession_t* out);

// Adds a new token to |sid| (*token receives it) or removes |token| from it
// (-1 with ESRCH when the session has no such token).
int qdmRegAddToken(dm_sessid_t sid, dm_token_t* token);
int qdmRegRemoveToken(dm_sessid_t sid, dm_token_t token);

// 0 when |sid| is a session, else -1 with EINVAL.  A session this process
// has already seen is remembered, so that the calls of a busy process cost
// no look-up.
int qdmRegCheck(dm_sessid_t sid);

// Checks |token| for an operation of |sid|: DM_NO_TOKEN always passes; any
// other token must be outstanding on the session (ESRCH otherwise,
// EINVAL for DM_INVALID_TOKEN).
int qdmRegCheckToken(dm_sessid_t sid, dm_token_t token);

#endif  // QMX_HSM_PROVIDER_SESSION_REGISTRY_H_
