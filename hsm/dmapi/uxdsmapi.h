// The variant of the access object for users other than root: every
// operation is made by the root daemon (rdm_client.h).  Handles are the
// daemon's bytes, copied into memory of this process.
//
// prefetchDirAttributes asks the daemon for a whole directory and keeps
// the answers in a cache of the calling thread: pathToHandle of a file of
// that directory and getDmattr of "KVRObj" or "KVRPMig" with DM_NO_TOKEN
// in the prefetching session are then answered from it, each answer once.
// The answers come in replies that the daemon prepares while the command
// works through the ones before (names are best asked for in byte order);
// a name past the replies so far waits for the next.  The next prefetch,
// and any setDmattr or removeDmattr, empty the cache; whatever it does not
// hold goes to the daemon as usual, and so does everything when the
// daemon's answer fails.
#ifndef QMX_HSM_DMAPI_UXDSMAPI_H_
#define QMX_HSM_DMAPI_UXDSMAPI_H_

#include "hsm/dmapi/xdsmapi.h"

class UXDSMAPI : public XDSMAPI {
 public:
  explicit UXDSMAPI(dm_boolean_t remote);

  int initService() override;
  dm_sessid_t createSession(dm_sessid_t oldsid, const char* info, int force) override;
  int destroySession(dm_sessid_t sid, int flag) override;
  int getAllTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens,
                   unsigned int* nelemp) override;
  int setDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                const dm_attrname_t* name, int setdtime, size_t len, const void* buf) override;
  int getDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp) override;
  int removeDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, int setdtime,
                   const dm_attrname_t* name) override;
  int probeHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) override;
  int punchHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                dm_size_t len) override;
  int requestRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, unsigned int flags,
                   dm_right_t right) override;
  int releaseRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token) override;
  int getFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, unsigned int mask,
                  dm_stat_t* st) override;
  int setFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, unsigned int mask,
                  const dm_fileattr_t* fa) override;
  dm_ssize_t readInvis(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                       dm_size_t len, void* buf) override;
  int setRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, unsigned int nelem,
                const dm_region_t* regions, dm_boolean_t* exactp, int flag) override;
  int getEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen, void* buf,
                size_t* rlenp) override;
  int respondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reason) override;
  int createUserEvent(dm_sessid_t sid, size_t len, const void* msg, dm_token_t* tokenp) override;

  int getAllSessionsOp(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) override;
  int querySessionOp(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) override;
  int pathToHandle(const char* path, xdsm_handle_t* h) override;
  void freeHandle(xdsm_handle_t* h) override;
  int handleToPath(const xdsm_handle_t& h, char* buf, size_t size) override;
  int getRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, unsigned int nelem,
                dm_region_t* regions, unsigned int* nelemp) override;
  int prefetchDirAttributes(const char* dir) override;
};

#endif  // QMX_HSM_DMAPI_UXDSMAPI_H_
