#include "hsm/rootd/rootd_requests.h"

#include <errno.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "hsm/rdm/rdm_calls.h"
#include "hsm/rdm/rdm_status.h"
#include "hsm/rootd/rootd_dirread.h"

namespace {

// What a handler is given besides its arguments and reply: the caller's
// context, what its rule left (a caller-shaped answer, a gate) and the
// DMAPI function of its row.
struct Call {
  const rtdGuardContext_t& ctx;
  const rtdAdmission& adm;
  const char* function;
  const dmapiBinding_t& dm() const { return *ctx.dm; }
};

// A handle for the provider: none when empty.
void* hp(std::vector<unsigned char>& h) {
  return h.empty() ? nullptr : h.data();
}

// A decoded buffer for the provider, never null: the request's own bytes
// were handed over as they lay in the payload, and a provider may take a
// null buffer for a fault even when it is empty.
unsigned char* bp(std::vector<unsigned char>& v) {
  static unsigned char none;
  return v.empty() ? &none : v.data();
}

// The object of a request as its rule looks at it, by the names of the
// decoded arguments (rootd_requests.h).
template <class A>
rtdTarget_t targetOf(A& a) {
  rtdTarget_t t;
  if constexpr (requires { a.file; }) {
    t.sid = a.file.sid;
    t.handle = &a.file.handle;
    t.token = &a.file.token;
  }
  if constexpr (requires { a.sid; }) t.sid = a.sid;
  if constexpr (requires { a.oldsid; }) t.sid = a.oldsid;
  if constexpr (requires { a.handle; }) t.handle = &a.handle;
  if constexpr (requires { a.token; }) t.token = &a.token;
  if constexpr (requires { a.path; }) t.text = a.path.c_str();
  if constexpr (requires { a.dir; }) t.text = a.dir.c_str();
  if constexpr (requires { a.info; }) t.text = a.info.c_str();
  return t;
}

// The four steps of rootd_requests.h for a request of codec M with
// |Handler|, which makes the call and fills the reply's values; the reply
// of a refused call keeps them as they start.
template <class M, auto Handler>
void serve(const rtdRequestRow_t& row, const rtdGuardContext_t& ctx, const rdmRequest_t& req,
           rdmReply_t* rep) {
  typename M::Args a{};
  if (!M::decodeArgs(req.payload.data(), req.payload.size(), &a)) {
    rep->status = EPROTO;
    return;
  }
  typename M::Reply v{};
  rtdAdmission adm;
  errno = 0;
  int64_t rc = rtdApplyRule(ctx, row.rule, row.function, targetOf(a), &adm);
  if (rc == 0) rc = Handler(Call{ctx, adm, row.function}, a, &v);
  rep->result = rc;
  rep->err = rc < 0 ? errno : 0;
  rdmWriter out;
  M::encodeReply(v, rc, &out);
  rep->payload = out.data();
}

// ---- Handlers: the provider call and the output values ----------------

int64_t initService(const Call& c, rdmNoArgs_t&, rdmInitServiceReply_t* v) {
  char* s = nullptr;
  int rc = c.dm().init_service(&s);
  if (rc == 0 && s != nullptr) v->version.assign(s, s + std::strlen(s));
  return rc;
}

int64_t createSession(const Call& c, rdmCreateSessionArgs_t& a, rdmCreateSessionReply_t* v) {
  char buf[DM_SESSION_INFO_LEN] = {};
  std::memcpy(buf, a.info.data(), a.info.size());  // shorter than the buffer: decoded so
  int rc = c.dm().create_session(a.oldsid, buf, &v->sid);
  if (rc == 0 && c.adm.scoped()) rtdNoteNewSession(c.ctx, a.oldsid, v->sid);
  return rc;
}

int64_t destroySession(const Call& c, rdmSessionArgs_t& a, rdmNoReply_t*) {
  int rc = c.dm().destroy_session(a.sid);
  if (rc == 0) c.ctx.sessions->forget(a.sid);
  return rc;
}

int64_t getAllSessions(const Call& c, rdmGetAllSessionsArgs_t& a, rdmGetAllSessionsReply_t* v) {
  std::vector<dm_sessid_t> s(a.nelem);
  unsigned int got = 0;
  int rc = c.adm.scoped() ? rtdListOwnSessions(c.ctx, a.nelem, s.data(), &got)
                          : c.dm().getall_sessions(a.nelem, s.data(), &got);
  v->count = got;
  s.resize(got);
  v->sids = std::move(s);
  return rc;
}

int64_t querySession(const Call& c, rdmQuerySessionArgs_t& a, rdmSizedReply_t* v) {
  std::vector<unsigned char> buf(a.buflen);
  size_t rlen = 0;
  int rc = c.dm().query_session(a.sid, a.buflen, buf.data(), &rlen);
  v->rlen = rlen;
  if (rc == 0) v->value.assign(buf.begin(), buf.begin() + std::min<size_t>(rlen, a.buflen));
  return rc;
}

int64_t pathToHandle(const Call& c, rdmPathToHandleArgs_t& a, rdmPathToHandleReply_t* v) {
  void* h = nullptr;
  size_t hl = 0;
  int rc = c.dm().path_to_handle(a.path.data(), &h, &hl);
  if (rc != 0) return rc;
  // The handle must be of the file the caller reached, not of one swapped
  // in after the check.
  if (!c.adm.answersPath(h, hl)) {
    c.dm().handle_free(h, hl);
    errno = ENOENT;
    return -1;
  }
  v->handle.assign(static_cast<unsigned char*>(h), static_cast<unsigned char*>(h) + hl);
  c.dm().handle_free(h, hl);
  return 0;
}

int64_t handleToPath(const Call& c, rdmHandleToPathArgs_t& a, rdmHandleToPathReply_t* v) {
  if (c.dm().handle_to_path == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  std::vector<char> buf(a.buflen);
  size_t rlen = 0;
  int rc =
      c.dm().handle_to_path(nullptr, 0, hp(a.handle), a.handle.size(), a.buflen, buf.data(), &rlen);
  if (rc == 0) v->path.assign(buf.begin(), buf.begin() + std::min<size_t>(rlen, a.buflen));
  return rc;
}

int64_t setDmattr(const Call& c, rdmSetDmattrArgs_t& a, rdmNoReply_t*) {
  rdmFileArgs_t& f = a.file;
  return c.dm().set_dmattr(f.sid, hp(f.handle), f.handle.size(), f.token, &a.name,
                           static_cast<int>(a.setdtime), a.value.size(), bp(a.value));
}

int64_t getDmattr(const Call& c, rdmGetDmattrArgs_t& a, rdmSizedReply_t* v) {
  rdmFileArgs_t& f = a.file;
  std::vector<unsigned char> buf(a.buflen);
  size_t rlen = 0;
  int rc = c.dm().get_dmattr(f.sid, hp(f.handle), f.handle.size(), f.token, &a.name, a.buflen,
                             buf.data(), &rlen);
  v->rlen = rlen;
  if (rc == 0) v->value.assign(buf.begin(), buf.begin() + std::min<size_t>(rlen, a.buflen));
  return rc;
}

int64_t removeDmattr(const Call& c, rdmRemoveDmattrArgs_t& a, rdmNoReply_t*) {
  rdmFileArgs_t& f = a.file;
  return c.dm().remove_dmattr(f.sid, hp(f.handle), f.handle.size(), f.token,
                              static_cast<int>(a.setdtime), &a.name);
}

int64_t probeHole(const Call& c, rdmRangeArgs_t& a, rdmProbeHoleReply_t* v) {
  rdmFileArgs_t& f = a.file;
  return c.dm().probe_hole(f.sid, hp(f.handle), f.handle.size(), f.token, a.off, a.len, &v->roff,
                           &v->rlen);
}

int64_t punchHole(const Call& c, rdmRangeArgs_t& a, rdmNoReply_t*) {
  rdmFileArgs_t& f = a.file;
  return c.dm().punch_hole(f.sid, hp(f.handle), f.handle.size(), f.token, a.off, a.len);
}

int64_t readInvis(const Call& c, rdmReadInvisArgs_t& a, rdmReadInvisReply_t* v) {
  rdmFileArgs_t& f = a.file;
  std::vector<unsigned char> data(a.len);
  dm_ssize_t rc =
      c.dm().read_invis(f.sid, hp(f.handle), f.handle.size(), f.token, a.off, a.len, data.data());
  if (rc > 0) v->data.assign(data.begin(), data.begin() + rc);
  return rc;
}

int64_t requestRight(const Call& c, rdmRequestRightArgs_t& a, rdmNoReply_t*) {
  rdmFileArgs_t& f = a.file;
  return c.dm().request_right(f.sid, hp(f.handle), f.handle.size(), f.token, a.flags, a.right);
}

int64_t releaseRight(const Call& c, rdmReleaseRightArgs_t& a, rdmNoReply_t*) {
  rdmFileArgs_t& f = a.file;
  return c.dm().release_right(f.sid, hp(f.handle), f.handle.size(), f.token);
}

int64_t getFileAttr(const Call& c, rdmGetFileAttrArgs_t& a, rdmGetFileAttrReply_t* v) {
  rdmFileArgs_t& f = a.file;
  return c.dm().get_fileattr(f.sid, hp(f.handle), f.handle.size(), f.token, a.mask, &v->stat);
}

int64_t setFileAttr(const Call& c, rdmSetFileAttrArgs_t& a, rdmNoReply_t*) {
  rdmFileArgs_t& f = a.file;
  return c.dm().set_fileattr(f.sid, hp(f.handle), f.handle.size(), f.token, a.mask, &a.attr);
}

int64_t setRegion(const Call& c, rdmSetRegionArgs_t& a, rdmSetRegionReply_t* v) {
  rdmFileArgs_t& f = a.file;
  dm_boolean_t exact = DM_FALSE;
  int rc = c.dm().set_region(f.sid, hp(f.handle), f.handle.size(), f.token,
                             static_cast<unsigned int>(a.regions.size()), a.regions.data(), &exact);
  v->exact = static_cast<uint32_t>(exact);
  return rc;
}

int64_t getRegion(const Call& c, rdmGetRegionArgs_t& a, rdmGetRegionReply_t* v) {
  rdmFileArgs_t& f = a.file;
  std::vector<dm_region_t> regs(a.nelem);
  unsigned int got = 0;
  int rc =
      c.dm().get_region(f.sid, hp(f.handle), f.handle.size(), f.token, a.nelem, regs.data(), &got);
  v->count = got;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(regs.data());
  if (rc == 0) v->regions.assign(p, p + std::min<size_t>(got, regs.size()) * sizeof(dm_region_t));
  return rc;
}

int64_t getEvents(const Call& c, rdmGetEventsArgs_t& a, rdmSizedReply_t* v) {
  std::vector<unsigned char> buf(a.buflen);
  size_t rlen = 0;
  int rc = c.dm().get_events(a.sid, a.maxmsgs, a.flags, a.buflen, buf.data(), &rlen);
  v->rlen = rlen;
  if (rc == 0) v->value.assign(buf.begin(), buf.begin() + std::min<size_t>(rlen, a.buflen));
  return rc;
}

int64_t respondEvent(const Call& c, rdmRespondEventArgs_t& a, rdmNoReply_t*) {
  return c.dm().respond_event(a.sid, a.token, a.response, a.reason, 0, nullptr);
}

int64_t createUserEvent(const Call& c, rdmCreateUserEventArgs_t& a, rdmCreateUserEventReply_t* v) {
  return c.dm().create_userevent(a.sid, a.message.size(), bp(a.message), &v->token);
}

int64_t getAllTokens(const Call& c, rdmGetAllTokensArgs_t& a, rdmGetAllTokensReply_t* v) {
  std::vector<dm_token_t> t(a.nelem);
  unsigned int got = 0;
  int rc = c.dm().getall_tokens(a.sid, a.nelem, t.data(), &got);
  v->count = got;
  t.resize(got);
  v->tokens = std::move(t);
  return rc;
}

int64_t dirAttrs(const Call& c, rdmDirQuery_t& q, rdmDirReply_t* v) {
  int64_t rc = c.adm.scoped() ? rtdAnswerDirAsCaller(c.ctx, c.function, q, v)
                              : rtdAnswerDirAttrsAsRoot(c.dm(), q, v);
  if (rc != 0) {
    int err = errno;
    *v = rdmDirReply_t();  // a failed call answers no entries
    errno = err;
  }
  return rc;
}

// ---- The table ------------------------------------------------------------

template <class M, auto Handler>
constexpr rtdRequestRow_t row(const char* function, rtdWho_t who, rtdObject_t object) {
  return {M::kCall, function, {who, object}, &serve<M, Handler>};
}

constexpr rtdRequestRow_t kRequests[] = {
    // clang-format off
    // codec                     handler          DMAPI function         who          what
    row<rdmInitServiceMsg_t,     initService>    ("dm_init_service",     rtdAnyone,   rtdNoObject),
    row<rdmCreateSessionMsg_t,   createSession>  ("dm_create_session",   rtdAnyone,   rtdNewSession),
    row<rdmDestroySessionMsg_t,  destroySession> ("dm_destroy_session",  rtdAnyone,   rtdOwnSession),
    row<rdmGetAllSessionsMsg_t,  getAllSessions> ("dm_getall_sessions",  rtdAnyone,   rtdOwnSessionList),
    row<rdmQuerySessionMsg_t,    querySession>   ("dm_query_session",    rtdAnyone,   rtdOwnSession),
    row<rdmPathToHandleMsg_t,    pathToHandle>   ("dm_path_to_handle",   rtdAnyone,   rtdReachedPath),
    row<rdmHandleToPathMsg_t,    handleToPath>   ("dm_handle_to_path",   rtdAnyone,   rtdReachedHandle),
    row<rdmGetDmattrMsg_t,       getDmattr>      ("dm_get_dmattr",       rtdAnyone,   rtdReadFile),
    row<rdmSetDmattrMsg_t,       setDmattr>      ("dm_set_dmattr",       rtdAnyone,   rtdOwnedFile),
    row<rdmRemoveDmattrMsg_t,    removeDmattr>   ("dm_remove_dmattr",    rtdAnyone,   rtdOwnedFile),
    row<rdmDirAttrsMsg_t,        dirAttrs>       ("dm_get_dmattr",       rtdAnyone,   rtdListedDir),
    row<rdmProbeHoleMsg_t,       probeHole>      ("dm_probe_hole",       rtdAnyone,   rtdReadFile),
    row<rdmReadInvisMsg_t,       readInvis>      ("dm_read_invis",       rtdAnyone,   rtdReadFile),
    row<rdmGetFileAttrMsg_t,     getFileAttr>    ("dm_get_fileattr",     rtdAnyone,   rtdReadFile),
    row<rdmGetRegionMsg_t,       getRegion>      ("dm_get_region",       rtdAnyone,   rtdReadFile),
    row<rdmSetRegionMsg_t,       setRegion>      ("dm_set_region",       rtdAnyone,   rtdOwnedFile),
    // Owner, mode and times through DMAPI would bypass the kernel's own
    // rules (a file given to root with its set-user-id bit, say).
    row<rdmSetFileAttrMsg_t,     setFileAttr>    ("dm_set_fileattr",     rtdRootOnly, rtdNoObject),
    row<rdmPunchHoleMsg_t,       punchHole>      ("dm_punch_hole",       rtdRootOnly, rtdNoObject),
    row<rdmRequestRightMsg_t,    requestRight>   ("dm_request_right",    rtdRootOnly, rtdNoObject),
    row<rdmReleaseRightMsg_t,    releaseRight>   ("dm_release_right",    rtdRootOnly, rtdNoObject),
    row<rdmGetEventsMsg_t,       getEvents>      ("dm_get_events",       rtdRootOnly, rtdNoObject),
    row<rdmRespondEventMsg_t,    respondEvent>   ("dm_respond_event",    rtdRootOnly, rtdNoObject),
    row<rdmCreateUserEventMsg_t, createUserEvent>("dm_create_userevent", rtdRootOnly, rtdNoObject),
    row<rdmGetAllTokensMsg_t,    getAllTokens>   ("dm_getall_tokens",    rtdRootOnly, rtdNoObject),
    // clang-format on
};

}  // namespace

const rtdRequestRow_t* rtdFindRequest(uint16_t call) {
  for (const rtdRequestRow_t& r : kRequests)
    if (r.call == call) return &r;
  return nullptr;
}

void rtdDispatch(const rtdGuardContext_t& ctx, const rdmRequest_t& req, rdmReply_t* rep) {
  rep->call = req.call;
  rep->key = req.key;
  rep->status = rdmStatusMade;
  rep->result = 0;
  rep->err = 0;
  rep->payload.clear();
  const rtdRequestRow_t* r = rtdFindRequest(req.call);
  if (r == nullptr) {
    rep->status = EOPNOTSUPP;
    return;
  }
  r->serve(*r, ctx, req, rep);
}

void rtdDispatchAsRoot(const dmapiBinding_t& dm, const rdmRequest_t& req, rdmReply_t* rep) {
  rtdCaller_t root;  // uid 0
  rtdSessionTable sessions;
  rtdGuardContext_t ctx;
  ctx.dm = &dm;
  ctx.sessions = &sessions;
  ctx.caller = &root;
  rtdDispatch(ctx, req, rep);
}

int rtdServeConnection(int fd, const dmapiBinding_t& dm) {
  rdmRequest_t req;
  if (rdmReadRequest(fd, &req) != 0) return -1;
  rdmReply_t rep;
  rtdDispatchAsRoot(dm, req, &rep);
  return rdmWriteReply(fd, rep);
}
