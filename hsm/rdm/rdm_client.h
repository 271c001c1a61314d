// The client side of the root daemon's DMAPI service (rdm_proto.h): one
// function per DMAPI call, each behaving as the dm_ function of the same
// name made by the daemon.
//
// Every call returns what the daemon's call returned (0, -1, a count) with
// errno set from it; and -1 with errno EACCES when the daemon can't be
// reached, is not run by root (or by the caller's own user), answers with
// a wrong confirmation key, a wrong call, a malformed
// or wrongly sized reply, or refuses the request.  While the daemon answers
// "busy" (status EAGAIN) the call is repeated up to the pool size (32, or
// the test setting DMISESSIONPOOLSIZE) with the pool time (200000 us, or
// DMISESSIONPOOLTIME) between attempts; after the last one errno is EAGAIN.
//
// Each call encodes its arguments and decodes its reply through its call's
// codec (rdm_calls.h).
//
// Thread safety: any thread may call; each thread keeps a connection of
// its own for its calls (a forked child opens a new one).
#ifndef QMX_HSM_RDM_RDM_CLIENT_H_
#define QMX_HSM_RDM_RDM_CLIENT_H_

#include <cstddef>
#include <string>
#include <vector>

#include "hsm/provider/dmapi_iface.h"
#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rdm/rdm_transport.h"

// The exchange under every call, rdmTransact, and the pool settings
// rdmPoolSize and rdmPoolTimeUs come with this header from rdm_transport.h.

int rdmInitService(char* version, size_t size);
int rdmCreateSession(dm_sessid_t oldsid, const char* info, dm_sessid_t* newsid);
int rdmDestroySession(dm_sessid_t sid);
int rdmGetAllTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens, unsigned int* nelemp);
int rdmSetDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 const dm_attrname_t* name, int setdtime, size_t len, const void* buf);
int rdmGetDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp);
int rdmRemoveDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, int setdtime,
                    const dm_attrname_t* name);
int rdmProbeHole(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                 dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp);
int rdmPunchHole(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                 dm_size_t len);
int rdmRequestRight(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                    unsigned int flags, dm_right_t right);
int rdmReleaseRight(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token);
int rdmGetFileAttr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                   unsigned int mask, dm_stat_t* st);
int rdmSetFileAttr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                   unsigned int mask, const dm_fileattr_t* fa);
dm_ssize_t rdmReadInvis(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                        dm_off_t off, dm_size_t len, void* buf);
int rdmSetRegion(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 unsigned int nelem, const dm_region_t* regions, dm_boolean_t* exactp);
int rdmGetEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen,
                 void* buf, size_t* rlenp);
int rdmRespondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reason);
int rdmCreateUserEvent(dm_sessid_t sid, size_t len, const void* msg, dm_token_t* tokenp);
int rdmGetAllSessions(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp);
int rdmQuerySession(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp);
// The handle is allocated with malloc; free it with free().
int rdmPathToHandle(const char* path, void** hanpp, size_t* hlenp);
int rdmHandleToPath(const void* hanp, size_t hlen, char* buf, size_t size);
int rdmGetRegion(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 unsigned int nelem, dm_region_t* regions, unsigned int* nelemp);
// One directory call (rdm_dirattrs.h): the answer to |q| into |*entries|;
// |*more| tells that the answer was cut short and goes on after the last
// entry.  Returns 0, or -1 with errno (the directory's, EINVAL for a query
// that makes no sense, or EACCES as above).
int rdmDirAttrs(const rdmDirQuery_t& q, std::vector<rdmDirEntry_t>* entries, bool* more);

// The same call in two halves, so that the daemon answers while the caller
// works: rdmDirAttrsSend writes the request and returns at once;
// rdmDirAttrsReceive gives its answer as rdmDirAttrs would.  A thread has
// at most one call sent ahead: sending another abandons the first.  Other
// calls of the thread may come between the halves (the first of them reads
// the pending reply and keeps it).  A request or reply lost on the way, or
// answered "busy", is asked again by rdmDirAttrsReceive as an ordinary
// call, so the daemon may drop a connection that is slow to read.
// rdmDirAttrsSend returns 0, or -1 with EINVAL for a query that makes no
// sense; rdmDirAttrsReceive returns -1 with EINVAL when nothing was sent.
int rdmDirAttrsSend(const rdmDirQuery_t& q);
int rdmDirAttrsReceive(std::vector<rdmDirEntry_t>* entries, bool* more);
// Forgets the call sent ahead, if any (its connection is closed unless the
// reply was already read).
void rdmDirAttrsAbandon();

#endif  // QMX_HSM_RDM_RDM_CLIENT_H_
