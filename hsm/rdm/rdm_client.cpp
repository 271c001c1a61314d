// The client's calls: each encodes its arguments and decodes its reply
// through its call's codec (rdm_calls.h) and gives back what the daemon's
// call gave.  The wire below is rdm_transport.cpp's; the directory call is
// rdm_client_dir.cpp's.
#include "hsm/rdm/rdm_client.h"

#include <errno.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "hsm/rdm/rdm_calls.h"
#include "hsm/rdm/rdm_make_call.h"

namespace {

std::vector<unsigned char> bytesOf(const void* p, size_t n) {
  const unsigned char* b = static_cast<const unsigned char*>(p);
  return b != nullptr ? std::vector<unsigned char>(b, b + n) : std::vector<unsigned char>();
}

rdmFileArgs_t fileArgs(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token) {
  return rdmFileArgs_t{sid, bytesOf(hanp, hlen), token};
}

// The decoder checked that |v| fits the caller's buffer.
void copyOut(const std::vector<unsigned char>& v, void* dst) {
  if (!v.empty() && dst != nullptr) std::memcpy(dst, v.data(), v.size());
}

template <class T>
void copyItems(const std::vector<T>& items, T* out) {
  if (out != nullptr) std::copy(items.begin(), items.end(), out);
}

}  // namespace

int rdmInitService(char* version, size_t size) {
  rdmInitServiceMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmInitServiceMsg_t>({}, &v, &rep) != 0) return -1;
  if (version != nullptr && size > 0) {
    size_t k = std::min(v.version.size(), size - 1);
    if (k > 0) std::memcpy(version, v.version.data(), k);
    version[k] = '\0';
  }
  return rdmOutcome(rep);
}

int rdmCreateSession(dm_sessid_t oldsid, const char* info, dm_sessid_t* newsid) {
  rdmCreateSessionMsg_t::Args a{oldsid, info != nullptr ? info : ""};
  rdmCreateSessionMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmCreateSessionMsg_t>(a, &v, &rep) != 0) return -1;
  if (rep.result == 0 && newsid != nullptr) *newsid = v.sid;
  return rdmOutcome(rep);
}

int rdmDestroySession(dm_sessid_t sid) {
  rdmDestroySessionMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmDestroySessionMsg_t>({sid}, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

int rdmGetAllTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens, unsigned int* nelemp) {
  rdmGetAllTokensMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmGetAllTokensMsg_t>({sid, nelem}, &v, &rep) != 0) return -1;
  // The count whatever the result, so that E2BIG can say how many there are.
  if (nelemp != nullptr) *nelemp = v.count;
  copyItems(v.tokens, tokens);
  return rdmOutcome(rep);
}

int rdmSetDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 const dm_attrname_t* name, int setdtime, size_t len, const void* buf) {
  rdmSetDmattrMsg_t::Args a{fileArgs(sid, hanp, hlen, token), *name,
                            static_cast<uint32_t>(setdtime), bytesOf(buf, len)};
  rdmSetDmattrMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmSetDmattrMsg_t>(a, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

int rdmGetDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp) {
  rdmGetDmattrMsg_t::Args a{fileArgs(sid, hanp, hlen, token), *name, buflen};
  rdmGetDmattrMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmGetDmattrMsg_t>(a, &v, &rep) != 0) return -1;
  if (rlenp != nullptr) *rlenp = v.rlen;
  copyOut(v.value, buf);
  return rdmOutcome(rep);
}

int rdmRemoveDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, int setdtime,
                    const dm_attrname_t* name) {
  rdmRemoveDmattrMsg_t::Args a{fileArgs(sid, hanp, hlen, token), static_cast<uint32_t>(setdtime),
                               *name};
  rdmRemoveDmattrMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmRemoveDmattrMsg_t>(a, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

int rdmProbeHole(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                 dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) {
  rdmProbeHoleMsg_t::Args a{fileArgs(sid, hanp, hlen, token), off, len};
  rdmProbeHoleMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmProbeHoleMsg_t>(a, &v, &rep) != 0) return -1;
  if (roffp != nullptr) *roffp = v.roff;
  if (rlenp != nullptr) *rlenp = v.rlen;
  return rdmOutcome(rep);
}

int rdmPunchHole(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                 dm_size_t len) {
  rdmPunchHoleMsg_t::Args a{fileArgs(sid, hanp, hlen, token), off, len};
  rdmPunchHoleMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmPunchHoleMsg_t>(a, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

int rdmRequestRight(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                    unsigned int flags, dm_right_t right) {
  rdmRequestRightMsg_t::Args a{fileArgs(sid, hanp, hlen, token), flags, right};
  rdmRequestRightMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmRequestRightMsg_t>(a, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

int rdmReleaseRight(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token) {
  rdmReleaseRightMsg_t::Args a{fileArgs(sid, hanp, hlen, token)};
  rdmReleaseRightMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmReleaseRightMsg_t>(a, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

int rdmGetFileAttr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                   unsigned int mask, dm_stat_t* st) {
  rdmGetFileAttrMsg_t::Args a{fileArgs(sid, hanp, hlen, token), mask};
  rdmGetFileAttrMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmGetFileAttrMsg_t>(a, &v, &rep) != 0) return -1;
  if (st != nullptr && rep.result == 0) *st = v.stat;
  return rdmOutcome(rep);
}

int rdmSetFileAttr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                   unsigned int mask, const dm_fileattr_t* fa) {
  if (fa == nullptr) {
    errno = EFAULT;
    return -1;
  }
  rdmSetFileAttrMsg_t::Args a{fileArgs(sid, hanp, hlen, token), mask, *fa};
  rdmSetFileAttrMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmSetFileAttrMsg_t>(a, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

dm_ssize_t rdmReadInvis(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                        dm_off_t off, dm_size_t len, void* buf) {
  rdmReadInvisMsg_t::Args a{{fileArgs(sid, hanp, hlen, token), off, len}};
  rdmReadInvisMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmReadInvisMsg_t>(a, &v, &rep) != 0) return -1;
  copyOut(v.data, buf);
  errno = rep.err;
  return rep.result;
}

int rdmSetRegion(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 unsigned int nelem, const dm_region_t* regions, dm_boolean_t* exactp) {
  rdmSetRegionMsg_t::Args a{fileArgs(sid, hanp, hlen, token), {}};
  if (regions != nullptr) a.regions.assign(regions, regions + nelem);
  rdmSetRegionMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmSetRegionMsg_t>(a, &v, &rep) != 0) return -1;
  if (exactp != nullptr) *exactp = static_cast<dm_boolean_t>(v.exact);
  return rdmOutcome(rep);
}

int rdmGetEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen,
                 void* buf, size_t* rlenp) {
  rdmGetEventsMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmGetEventsMsg_t>({sid, maxmsgs, flags, buflen}, &v, &rep) != 0) return -1;
  if (rlenp != nullptr) *rlenp = v.rlen;
  copyOut(v.value, buf);
  return rdmOutcome(rep);
}

int rdmRespondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reason) {
  rdmRespondEventMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmRespondEventMsg_t>({sid, token, response, reason}, &v, &rep) != 0) return -1;
  return rdmOutcome(rep);
}

int rdmCreateUserEvent(dm_sessid_t sid, size_t len, const void* msg, dm_token_t* tokenp) {
  rdmCreateUserEventMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmCreateUserEventMsg_t>({sid, bytesOf(msg, len)}, &v, &rep) != 0) return -1;
  if (tokenp != nullptr && rep.result == 0) *tokenp = v.token;
  return rdmOutcome(rep);
}

int rdmGetAllSessions(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) {
  rdmGetAllSessionsMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmGetAllSessionsMsg_t>({nelem}, &v, &rep) != 0) return -1;
  if (nelemp != nullptr) *nelemp = v.count;
  copyItems(v.sids, sids);
  return rdmOutcome(rep);
}

int rdmQuerySession(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) {
  rdmQuerySessionMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmQuerySessionMsg_t>({sid, buflen}, &v, &rep) != 0) return -1;
  if (rlenp != nullptr) *rlenp = v.rlen;
  copyOut(v.value, buf);
  return rdmOutcome(rep);
}

int rdmPathToHandle(const char* path, void** hanpp, size_t* hlenp) {
  if (path == nullptr || hanpp == nullptr || hlenp == nullptr) {
    errno = EFAULT;
    return -1;
  }
  rdmPathToHandleMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmPathToHandleMsg_t>({path}, &v, &rep) != 0) return -1;
  if (rep.result == 0) {
    void* copy = std::malloc(v.handle.size());
    if (copy == nullptr) {
      errno = ENOMEM;
      return -1;
    }
    std::memcpy(copy, v.handle.data(), v.handle.size());
    *hanpp = copy;
    *hlenp = v.handle.size();
  }
  return rdmOutcome(rep);
}

int rdmHandleToPath(const void* hanp, size_t hlen, char* buf, size_t size) {
  rdmHandleToPathMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmHandleToPathMsg_t>({bytesOf(hanp, hlen), size}, &v, &rep) != 0) return -1;
  copyOut(v.path, buf);
  return rdmOutcome(rep);
}

int rdmGetRegion(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 unsigned int nelem, dm_region_t* regions, unsigned int* nelemp) {
  rdmGetRegionMsg_t::Args a{fileArgs(sid, hanp, hlen, token), nelem};
  rdmGetRegionMsg_t::Reply v;
  rdmReply_t rep;
  if (rdmMakeCall<rdmGetRegionMsg_t>(a, &v, &rep) != 0) return -1;
  if (nelemp != nullptr) *nelemp = v.count;
  copyOut(v.regions, regions);
  return rdmOutcome(rep);
}
