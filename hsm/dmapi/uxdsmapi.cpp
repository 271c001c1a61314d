#include "hsm/dmapi/uxdsmapi.h"

#include <errno.h>

#include <cstdlib>

#include "hsm/dmapi/rdm_client.h"

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
  return rdmSetDmattr(sid, h.hanp, h.hlen, token, name, setdtime, len, buf);
}

int UXDSMAPI::getDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp) {
  return rdmGetDmattr(sid, h.hanp, h.hlen, token, name, buflen, buf, rlenp);
}

int UXDSMAPI::removeDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, int setdtime,
                           const dm_attrname_t* name) {
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
