#include "hsm/dmapi/rxdsmapi.h"

#include <errno.h>

#include <string>

#include "hsm/dmapi/dmi_trace.h"

namespace {

// The provider takes non-const pointers for data it only reads.
dm_attrname_t* mut(const dm_attrname_t* p) {
  return const_cast<dm_attrname_t*>(p);
}
void* mut(const void* p) {
  return const_cast<void*>(p);
}

}  // namespace

#define RX_BOUND(failValue)       \
  const dmapiBinding_t* b = dm(); \
  if (b == nullptr) return (failValue)

RXDSMAPI::RXDSMAPI(dm_boolean_t remote, const dmapiBinding_t* dm) : XDSMAPI(remote), dm_(dm) {}

const dmapiBinding_t* RXDSMAPI::dm() {
  if (dm_ == nullptr) {
    std::string which, error;
    dm_ = dmBindProvider(&which, &error);
    if (dm_ == nullptr) {
      DMI_TRACE(DMI_TR_ON, "RXDSMAPI", "no DMAPI provider (%s): %s\n", which.c_str(),
                error.c_str());
      errno = ELIBACC;
    }
  }
  return dm_;
}

int RXDSMAPI::initService() {
  return initServiceWith([this](char** version) {
    RX_BOUND(-1);
    return b->init_service(version);
  });
}

dm_sessid_t RXDSMAPI::createSession(dm_sessid_t oldsid, const char* info, int force) {
  return createSessionWith(oldsid, info, force,
                           [this](dm_sessid_t old, char* buf, dm_sessid_t* sid) {
                             RX_BOUND(-1);
                             return b->create_session(old, buf, sid);
                           });
}

int RXDSMAPI::destroySession(dm_sessid_t sid, int /*flag*/) {
  return destroySessionWith(sid, [this](dm_sessid_t s) {
    RX_BOUND(-1);
    return b->destroy_session(s);
  });
}

int RXDSMAPI::getAllTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens,
                           unsigned int* nelemp) {
  RX_BOUND(-1);
  return b->getall_tokens(sid, nelem, tokens, nelemp);
}

int RXDSMAPI::setDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        const dm_attrname_t* name, int setdtime, size_t len, const void* buf) {
  RX_BOUND(-1);
  return b->set_dmattr(sid, h.hanp, h.hlen, token, mut(name), setdtime, len, mut(buf));
}

int RXDSMAPI::getDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp) {
  RX_BOUND(-1);
  return b->get_dmattr(sid, h.hanp, h.hlen, token, mut(name), buflen, buf, rlenp);
}

int RXDSMAPI::removeDmattr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, int setdtime,
                           const dm_attrname_t* name) {
  RX_BOUND(-1);
  return b->remove_dmattr(sid, h.hanp, h.hlen, token, setdtime, mut(name));
}

int RXDSMAPI::probeHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                        dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) {
  RX_BOUND(-1);
  return b->probe_hole(sid, h.hanp, h.hlen, token, off, len, roffp, rlenp);
}

int RXDSMAPI::punchHole(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dm_off_t off,
                        dm_size_t len) {
  RX_BOUND(-1);
  return b->punch_hole(sid, h.hanp, h.hlen, token, off, len);
}

int RXDSMAPI::requestRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                           unsigned int flags, dm_right_t right) {
  RX_BOUND(-1);
  return b->request_right(sid, h.hanp, h.hlen, token, flags, right);
}

int RXDSMAPI::releaseRight(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token) {
  RX_BOUND(-1);
  return b->release_right(sid, h.hanp, h.hlen, token);
}

int RXDSMAPI::getFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                          unsigned int mask, dm_stat_t* st) {
  RX_BOUND(-1);
  return b->get_fileattr(sid, h.hanp, h.hlen, token, mask, st);
}

int RXDSMAPI::setFileAttr(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                          unsigned int mask, const dm_fileattr_t* fa) {
  RX_BOUND(-1);
  return b->set_fileattr(sid, h.hanp, h.hlen, token, mask, const_cast<dm_fileattr_t*>(fa));
}

dm_ssize_t RXDSMAPI::readInvis(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                               dm_off_t off, dm_size_t len, void* buf) {
  RX_BOUND(-1);
  return b->read_invis(sid, h.hanp, h.hlen, token, off, len, buf);
}

int RXDSMAPI::setRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        unsigned int nelem, const dm_region_t* regions, dm_boolean_t* exactp,
                        int /*flag*/) {
  RX_BOUND(-1);
  return b->set_region(sid, h.hanp, h.hlen, token, nelem, const_cast<dm_region_t*>(regions),
                       exactp);
}

int RXDSMAPI::getEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen,
                        void* buf, size_t* rlenp) {
  RX_BOUND(-1);
  return b->get_events(sid, maxmsgs, flags, buflen, buf, rlenp);
}

int RXDSMAPI::respondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reason) {
  RX_BOUND(-1);
  return b->respond_event(sid, token, response, reason, 0, nullptr);
}

int RXDSMAPI::createUserEvent(dm_sessid_t sid, size_t len, const void* msg, dm_token_t* tokenp) {
  RX_BOUND(-1);
  return b->create_userevent(sid, len, mut(msg), tokenp);
}

int RXDSMAPI::getAllSessionsOp(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) {
  RX_BOUND(-1);
  return b->getall_sessions(nelem, sids, nelemp);
}

int RXDSMAPI::querySessionOp(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) {
  RX_BOUND(-1);
  return b->query_session(sid, buflen, buf, rlenp);
}

int RXDSMAPI::pathToHandle(const char* path, xdsm_handle_t* h) {
  RX_BOUND(-1);
  if (path == nullptr || h == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return b->path_to_handle(const_cast<char*>(path), &h->hanp, &h->hlen);
}

void RXDSMAPI::freeHandle(xdsm_handle_t* h) {
  if (h == nullptr || h->hanp == nullptr) return;
  if (const dmapiBinding_t* b = dm()) b->handle_free(h->hanp, h->hlen);
  h->hanp = nullptr;
  h->hlen = 0;
}

int RXDSMAPI::handleToPath(const xdsm_handle_t& h, char* buf, size_t size) {
  RX_BOUND(-1);
  if (b->handle_to_path == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  size_t rlen = 0;
  return b->handle_to_path(nullptr, 0, h.hanp, h.hlen, size, buf, &rlen);
}

int RXDSMAPI::getRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                        unsigned int nelem, dm_region_t* regions, unsigned int* nelemp) {
  RX_BOUND(-1);
  return b->get_region(sid, h.hanp, h.hlen, token, nelem, regions, nelemp);
}
