#include "hsm/dmapi/xdsmapi.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "diag/nl.h"
#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/dmi_trace.h"

const char* const dmiSupportedVersions[3] = {"VEXA DMAPI 3.20", "VEXA DMAPI 3.30",
                                             "VEXA DMAPI 3.40"};
const char* const dmiBuildVersion = "VEXA DMAPI 3.20";

XDSMAPI::XDSMAPI(dm_boolean_t remote) : remoteArg_(remote) {}

int XDSMAPI::prefetchDirAttributes(const char* /*dir*/) {
  return 0;
}

XDSMAPI::~XDSMAPI() {
  std::free(state_);
}

int XDSMAPI::init() {
  xdsmState_t* s = static_cast<xdsmState_t*>(std::calloc(1, sizeof(xdsmState_t)));
  if (s == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  std::free(state_);
  state_ = s;
  state_->remote = remoteArg_;
  // The root daemon serves DMAPI itself: for it the service is there.
  state_->initialised = std::strcmp(dmiProgName(), "qmxrootd") == 0 ? 1 : 0;
  return 0;
}

dm_sessid_t XDSMAPI::getSID() const {
  return state_ != nullptr ? state_->sid : DM_NO_SESSION;
}

void XDSMAPI::setSID(dm_sessid_t sid) {
  if (state_ != nullptr) state_->sid = sid;
}

pid_t XDSMAPI::getCreator() const {
  return state_ != nullptr ? state_->creator : 0;
}

int XDSMAPI::isInitialized() const {
  return state_ != nullptr && state_->initialised == 1 ? 1 : 0;
}

int XDSMAPI::haveService(const char* caller) const {
  if (isInitialized()) return 1;
  if (DMI_TR_ON) trPrintf(__FILE__, __LINE__, "XDSMAPI::haveService: ERROR service not initd\n");
  (void)caller;
  return 0;
}

int XDSMAPI::getAllSessions(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) {
  return getAllSessionsOp(nelem, sids, nelemp);
}

int XDSMAPI::querySession(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) {
  return querySessionOp(sid, buflen, buf, rlenp);
}

int XDSMAPI::getLastErrno() const {
  return state_ != nullptr ? state_->lastErrno : 0;
}

void XDSMAPI::setLastErrno(int err) {
  if (state_ != nullptr) state_->lastErrno = err;
}

int XDSMAPI::initServiceWith(const std::function<int(char**)>& call) {
  static const char kFn[] = "initService";
  if (state_ == nullptr && init() != 0) return DMI_XDSM_FAILED;
  if (state_->initialised == 1) {
    DMI_TRACE(DMI_TR_ON, kFn, "DMAPI service already initialized\n");
    return DMI_XDSM_DONE;
  }
  char* version = nullptr;
  if (call(&version) != 0) {
    int err = errno;
    // Without the right to use DMAPI the caller lacks a permission; saying
    // "access denied" would send users looking at file modes.
    if (err == EACCES) err = EPERM;
    state_->lastErrno = err;
    DMI_TRACE(DMI_TR_ON, kFn, "ERROR dm_init_service failed rc: %d errno: %d\n", -1, err);
    errno = err;
    return DMI_XDSM_FAILED;
  }
  if (TR_DMI) {
    DMI_TRACE(1, kFn, "runtime    : %s\n", version != nullptr ? version : "NULL");
    DMI_TRACE(1, kFn, "build on   : %s\n", dmiBuildVersion);
    for (const char* v : dmiSupportedVersions) DMI_TRACE(1, kFn, "supported  : %s\n", v);
  }
  bool supported = false;
  if (version != nullptr)
    for (const char* v : dmiSupportedVersions)
      if (std::strcmp(version, v) == 0) supported = true;
  if (!supported) {
    DMI_TRACE(DMI_TR_ON, kFn, "DMAPI VERSION CHECK FAILED\n");
    state_->lastErrno = EINVAL;
    nlfprintf(stderr, 2171, version != nullptr ? version : "NULL");
    errno = EINVAL;
    return DMI_XDSM_FAILED;
  }
  state_->initialised = 1;
  return DMI_XDSM_DONE;
}

dm_sessid_t XDSMAPI::createSessionWith(
    dm_sessid_t oldsid, const char* info, int force,
    const std::function<int(dm_sessid_t, char*, dm_sessid_t*)>& call) {
  static const char kFn[] = "XDSMAPI::createSession";
  if (!haveService("createSession")) return DM_NO_SESSION;
  if (state_->sid != DM_NO_SESSION && force != 1) {
    if (DMI_TR_ON) trPrintf(__FILE__, __LINE__, "%s: WARNING session already exists\n", kFn);
    return state_->sid;
  }
  char buf[DM_SESSION_INFO_LEN] = {};
  if (info == nullptr) {
    if (DMI_TR_ON) trPrintf(__FILE__, __LINE__, "%s: WARNING sess info NULL, using pid\n", kFn);
    std::snprintf(buf, sizeof buf, "%d", static_cast<int>(getpid()));
  } else {
    if (std::strlen(info) > sizeof buf - 1 && DMI_TR_ON)
      trPrintf(__FILE__, __LINE__, "%s: WARNING sessionInfo too long truncating\n", kFn);
    std::strncpy(buf, info, sizeof buf - 1);
  }
  dm_sessid_t sid = DM_NO_SESSION;
  if (call(oldsid, buf, &sid) != 0) {
    int err = errno;
    state_->lastErrno = err;
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__, "%s: ERROR dm_create_session failed errno: %d\n", kFn, err);
    errno = err;
    return DM_NO_SESSION;
  }
  state_->sid = sid;
  state_->creator = getpid();
  return sid;
}

int XDSMAPI::destroySessionWith(dm_sessid_t sid, const std::function<int(dm_sessid_t)>& call) {
  static const char kFn[] = "XDSMAPI::destroySession";
  // A forked child inherits the saved session but must never end it: the
  // parent still works with it.
  if (state_ != nullptr && state_->creator != 0 && state_->creator != getpid())
    return DMI_XDSM_DONE;
  if (!haveService("destroySession")) return DMI_XDSM_FAILED;
  if (sid == DM_NO_SESSION) {
    if (DMI_TR_ON) trPrintf(__FILE__, __LINE__, "%s: WARNING sessionId = DM_NO_SESSION\n", kFn);
    return DMI_XDSM_DONE;
  }
  if (call(sid) == -1) {
    int err = errno;
    state_->lastErrno = err;
    if (DMI_TR_ON)
      trPrintf(__FILE__, __LINE__, "%s: ERROR dm_destroy_session() failed, errno: %d\n", kFn, err);
    errno = err;
    return DMI_XDSM_FAILED;
  }
  if (sid == state_->sid) {
    state_->sid = DM_NO_SESSION;
    state_->creator = 0;
  }
  return DMI_XDSM_DONE;
}
