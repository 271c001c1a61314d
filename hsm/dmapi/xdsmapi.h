// The process-wide DMAPI access object.
//
// Every DMAPI call of the client goes through the one XDSMAPI of the
// process.  Root gets an RXDSMAPI, which calls the bound provider
// (dmapi_binding.h) directly; any other user gets a UXDSMAPI, which asks the
// root daemon to make the same call (rdm_client.h), because only root may
// use DMAPI.
//
//   XDSMAPI* x = XDSMAPI::getXDSMAPI();
//   if (x->initService() != DMI_XDSM_DONE) ...;  // sticky once it worked
//   dm_sessid_t sid = x->createSession(0, "name", 0);
//   x->getDmattr(sid, handle, DM_NO_TOKEN, &name, len, buf, &rlen);
//
// Results: initService and destroySession DMI_XDSM_DONE or DMI_XDSM_FAILED
// (hsm/dmapi/dmi_status.h); createSession the new session id or 0; every
// other operation 0 (or a byte count
// for readInvis) and -1 with errno set, as the provider's dm_ function of
// the same name.  Failures of the three session operations also leave
// errno in getLastErrno().
//
// Lifetime and threads: the object is created on the first getXDSMAPI and
// never destroyed.  Creation takes no lock (the start-up thread makes it);
// afterwards any thread may call operations.  The saved session id is read
// without a lock and written only at open, recovery and close.
#ifndef QMX_HSM_DMAPI_XDSMAPI_H_
#define QMX_HSM_DMAPI_XDSMAPI_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>

#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/xdsm_handle.h"
#include "hsm/provider/dmapi_iface.h"

// The versions of the DMAPI service this client works with.
extern const char* const dmiSupportedVersions[3];
// The version the client was built against (traced with the runtime one).
extern const char* const dmiBuildVersion;

// The state block of the access object (zero-filled by init).
struct xdsmState_t {
  int32_t initialised;  // 1 once the DMAPI service is initialised
  dm_boolean_t remote;  // the constructor's flag
  int32_t lastErrno;
  unsigned char reserved[240];
  int32_t reserved2[2];
  dm_sessid_t sid;  // the saved session id
  pid_t creator;    // the process that created the saved session
};

class XDSMAPI {
 public:
  explicit XDSMAPI(dm_boolean_t remote);
  virtual ~XDSMAPI();
  XDSMAPI(const XDSMAPI&) = delete;
  XDSMAPI& operator=(const XDSMAPI&) = delete;

  // The process's instance, created on the first call: an RXDSMAPI when
  // the real user id is 0, else a UXDSMAPI.  Never null.
  static XDSMAPI* getXDSMAPI();  // in xdsmapi_factory.cpp
  // Installs |x| as the process's instance (tests and tools that bring
  // their own provider); null makes the next getXDSMAPI create the usual
  // one.  Returns the previous instance, which the caller then owns.
  static XDSMAPI* setXDSMAPI(XDSMAPI* x);

  // Allocates the zero-filled state block (again, when called twice).  The
  // root daemon ("qmxrootd") starts initialised.  Returns 0, or -1 with
  // ENOMEM.
  int init();
  // The saved session id (0 without a state block) and its setter.
  dm_sessid_t getSID() const;
  void setSID(dm_sessid_t sid);
  // The process that created the saved session (0 when none).
  pid_t getCreator() const;
  int isInitialized() const;
  // 1 when the service is initialised; else traces
  // "XDSMAPI::haveService: ERROR service not initd" and returns 0.
  int haveService(const char* caller) const;
  // dm_getall_sessions and dm_query_session through this object.
  int getAllSessions(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp);
  int querySession(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp);
  int getLastErrno() const;
  void setLastErrno(int err);

  // ---- Operations, in slot order -----------------------------------
  virtual int initService() = 0;
  // |info| null: the decimal process id; longer than 255: cut.  |force| 1
  // creates even when a session is saved already.
  virtual dm_sessid_t createSession(dm_sessid_t oldsid, const char* info, int force) = 0;
  virtual int destroySession(dm_sessid_t sid, int flag) = 0;
  virtual int getAllTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens,
                           unsigned int* nelemp) = 0;
  virtual int setDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        const dm_attrname_t* name, int setdtime, size_t len, const void* buf) = 0;
  virtual int getDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp) = 0;
  virtual int removeDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, int setdtime,
                           const dm_attrname_t* name) = 0;
  virtual int probeHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                        dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) = 0;
  virtual int punchHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                        dm_size_t len) = 0;
  virtual int requestRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                           unsigned int flags, dm_right_t right) = 0;
  virtual int releaseRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token) = 0;
  virtual int getFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                          unsigned int mask, dm_stat_t* st) = 0;
  virtual int setFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                          unsigned int mask, const dm_fileattr_t* fa) = 0;
  virtual dm_ssize_t readInvis(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                               dm_off_t off, dm_size_t len, void* buf) = 0;
  // |flag| is not used by the providers of this platform; kept for callers.
  virtual int setRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        unsigned int nelem, const dm_region_t* regions, dm_boolean_t* exactp,
                        int flag) = 0;
  virtual int getEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen,
                        void* buf, size_t* rlenp) = 0;
  virtual int respondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response,
                           int reason) = 0;
  virtual int createUserEvent(dm_sessid_t sid, size_t len, const void* msg, dm_token_t* tokenp) = 0;

  // ---- Further operations ------------------------------------------
  virtual int getAllSessionsOp(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) = 0;
  virtual int querySessionOp(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) = 0;
  // A handle for |path| into |*h|; release it with freeHandle.
  virtual int pathToHandle(const char* path, xdsm_handle_t* h) = 0;
  // Releases a handle of pathToHandle and clears |*h|; null bytes are fine.
  virtual void freeHandle(xdsm_handle_t* h) = 0;
  // The path of the file of |h| into |buf| (|size| bytes); ENOSYS when the
  // provider can't tell.
  virtual int handleToPath(const xdsm_handle_t& h, char* buf, size_t size) = 0;
  virtual int getRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        unsigned int nelem, dm_region_t* regions, unsigned int* nelemp) = 0;
  // Tells the object that the regular files of directory |dir| are about
  // to be queried (their handles and "KVRObj"/"KVRPMig" with DM_NO_TOKEN),
  // so that it may fetch them all at once.  Answers must stay exactly what
  // the single calls give; nothing needs to be done (the default).  Returns
  // 0, or -1 with errno when fetching failed (the single calls then serve).
  virtual int prefetchDirAttributes(const char* dir);

 protected:
  // The shared steps of the three session operations; |call| makes the
  // provider's (or the daemon's) call and returns 0 or -1 with errno.
  int initServiceWith(const std::function<int(char**)>& call);
  dm_sessid_t createSessionWith(dm_sessid_t oldsid, const char* info, int force,
                                const std::function<int(dm_sessid_t, char*, dm_sessid_t*)>& call);
  int destroySessionWith(dm_sessid_t sid, const std::function<int(dm_sessid_t)>& call);

 private:
  xdsmState_t* state_ = nullptr;
  dm_boolean_t remoteArg_;
};

#endif  // QMX_HSM_DMAPI_XDSMAPI_H_
