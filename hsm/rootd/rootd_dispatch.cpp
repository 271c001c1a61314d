#include "hsm/rootd/rootd_dispatch.h"

#include <errno.h>

#include <cstring>
#include <vector>

#include "hsm/rootd/rootd_dirread.h"

namespace {

// Arguments that name a file: session, handle, token.
struct FileArgs {
  dm_sessid_t sid;
  std::vector<unsigned char> handle;
  dm_token_t token;
};

FileArgs fileArgs(rdmReader& r) {
  FileArgs a;
  a.sid = r.u64();
  size_t n = 0;
  const unsigned char* h = r.bytes(&n);
  if (h != nullptr) a.handle.assign(h, h + n);
  a.token = r.token();
  return a;
}

void* hp(FileArgs& a) {
  return a.handle.empty() ? nullptr : a.handle.data();
}

}  // namespace

void rtdProviderDispatch(const dmapiBinding_t& dm, const rdmRequest_t& req, rdmReply_t* rep,
                         rtdDirFn_t dirFn, void* dirArg) {
  rep->call = req.call;
  rep->key = req.key;
  rep->status = 0;
  rep->result = 0;
  rep->err = 0;
  rep->payload.clear();
  rdmReader in(req.payload.data(), req.payload.size());
  rdmWriter out;
  int64_t rc = -1;
  // Each case reads its arguments, checks that they decoded exactly, makes
  // the call and writes the output values.
  auto bad = [&] { return !in.done(); };
  bool refused = false;
  errno = 0;
  switch (req.call) {
    case rdmInitServiceCall: {
      if (bad()) {
        refused = true;
        break;
      }
      char* v = nullptr;
      rc = dm.init_service(&v);
      out.bytes(v, v != nullptr && rc == 0 ? std::strlen(v) : 0);
      break;
    }
    case rdmCreateSessionCall: {
      dm_sessid_t old = in.u64();
      size_t n = 0;
      const unsigned char* info = in.bytes(&n);
      if (bad() || n >= DM_SESSION_INFO_LEN) {
        refused = true;
        break;
      }
      char buf[DM_SESSION_INFO_LEN] = {};
      if (n > 0) std::memcpy(buf, info, n);
      dm_sessid_t sid = DM_NO_SESSION;
      rc = dm.create_session(old, buf, &sid);
      out.u64(sid);
      break;
    }
    case rdmDestroySessionCall: {
      dm_sessid_t sid = in.u64();
      if (bad()) {
        refused = true;
        break;
      }
      rc = dm.destroy_session(sid);
      break;
    }
    case rdmGetAllTokensCall: {
      dm_sessid_t sid = in.u64();
      uint32_t nelem = in.u32();
      if (bad() || nelem > rdmMaxPayload / 16) {
        refused = true;
        break;
      }
      std::vector<dm_token_t> t(nelem);
      unsigned int got = 0;
      rc = dm.getall_tokens(sid, nelem, t.data(), &got);
      unsigned int send = rc == 0 ? got : 0;
      out.u32(send);
      for (unsigned int i = 0; i < send; ++i) out.token(t[i]);
      if (rc != 0) {
        // Only the count: E2BIG tells the caller how many to ask for.
        out.clear();
        out.u32(got);
      }
      break;
    }
    case rdmSetDmattrCall: {
      FileArgs a = fileArgs(in);
      dm_attrname_t name = in.name();
      uint32_t setd = in.u32();
      size_t n = 0;
      const unsigned char* v = in.bytes(&n);
      if (bad()) {
        refused = true;
        break;
      }
      rc = dm.set_dmattr(a.sid, hp(a), a.handle.size(), a.token, &name, static_cast<int>(setd), n,
                         const_cast<unsigned char*>(v));
      break;
    }
    case rdmGetDmattrCall: {
      FileArgs a = fileArgs(in);
      dm_attrname_t name = in.name();
      uint64_t buflen = in.u64();
      if (bad() || buflen > rdmMaxPayload - 64) {
        refused = true;
        break;
      }
      std::vector<unsigned char> v(buflen);
      size_t rlen = 0;
      rc = dm.get_dmattr(a.sid, hp(a), a.handle.size(), a.token, &name, buflen, v.data(), &rlen);
      out.u64(rlen);
      out.bytes(v.data(), rc == 0 ? std::min<size_t>(rlen, buflen) : 0);
      break;
    }
    case rdmRemoveDmattrCall: {
      FileArgs a = fileArgs(in);
      uint32_t setd = in.u32();
      dm_attrname_t name = in.name();
      if (bad()) {
        refused = true;
        break;
      }
      rc = dm.remove_dmattr(a.sid, hp(a), a.handle.size(), a.token, static_cast<int>(setd), &name);
      break;
    }
    case rdmProbeHoleCall: {
      FileArgs a = fileArgs(in);
      dm_off_t off = in.i64();
      dm_size_t len = in.u64();
      if (bad()) {
        refused = true;
        break;
      }
      dm_off_t roff = 0;
      dm_size_t rlen = 0;
      rc = dm.probe_hole(a.sid, hp(a), a.handle.size(), a.token, off, len, &roff, &rlen);
      out.i64(roff);
      out.u64(rlen);
      break;
    }
    case rdmPunchHoleCall: {
      FileArgs a = fileArgs(in);
      dm_off_t off = in.i64();
      dm_size_t len = in.u64();
      if (bad()) {
        refused = true;
        break;
      }
      rc = dm.punch_hole(a.sid, hp(a), a.handle.size(), a.token, off, len);
      break;
    }
    case rdmRequestRightCall: {
      FileArgs a = fileArgs(in);
      uint32_t flags = in.u32();
      uint32_t right = in.u32();
      if (bad()) {
        refused = true;
        break;
      }
      rc = dm.request_right(a.sid, hp(a), a.handle.size(), a.token, flags,
                            static_cast<dm_right_t>(right));
      break;
    }
    case rdmReleaseRightCall: {
      FileArgs a = fileArgs(in);
      if (bad()) {
        refused = true;
        break;
      }
      rc = dm.release_right(a.sid, hp(a), a.handle.size(), a.token);
      break;
    }
    case rdmGetFileAttrCall: {
      FileArgs a = fileArgs(in);
      uint32_t mask = in.u32();
      if (bad()) {
        refused = true;
        break;
      }
      dm_stat_t st{};
      rc = dm.get_fileattr(a.sid, hp(a), a.handle.size(), a.token, mask, &st);
      out.bytes(&st, sizeof st);
      break;
    }
    case rdmSetFileAttrCall: {
      FileArgs a = fileArgs(in);
      uint32_t mask = in.u32();
      size_t n = 0;
      const unsigned char* p = in.bytes(&n);
      if (bad() || n != sizeof(dm_fileattr_t)) {
        refused = true;
        break;
      }
      dm_fileattr_t fa;
      std::memcpy(&fa, p, sizeof fa);
      rc = dm.set_fileattr(a.sid, hp(a), a.handle.size(), a.token, mask, &fa);
      break;
    }
    case rdmReadInvisCall: {
      FileArgs a = fileArgs(in);
      dm_off_t off = in.i64();
      dm_size_t len = in.u64();
      if (bad() || len > rdmMaxPayload - 64) {
        refused = true;
        break;
      }
      std::vector<unsigned char> data(len);
      rc = dm.read_invis(a.sid, hp(a), a.handle.size(), a.token, off, len, data.data());
      out.bytes(data.data(), rc > 0 ? static_cast<size_t>(rc) : 0);
      break;
    }
    case rdmSetRegionCall: {
      FileArgs a = fileArgs(in);
      size_t n = 0;
      const unsigned char* p = in.bytes(&n);
      if (bad() || n % sizeof(dm_region_t) != 0) {
        refused = true;
        break;
      }
      std::vector<dm_region_t> regs(n / sizeof(dm_region_t));
      if (n > 0) std::memcpy(regs.data(), p, n);
      dm_boolean_t exact = DM_FALSE;
      rc = dm.set_region(a.sid, hp(a), a.handle.size(), a.token,
                         static_cast<unsigned int>(regs.size()), regs.data(), &exact);
      out.u32(static_cast<uint32_t>(exact));
      break;
    }
    case rdmGetEventsCall: {
      dm_sessid_t sid = in.u64();
      uint32_t maxmsgs = in.u32();
      uint32_t flags = in.u32();
      uint64_t buflen = in.u64();
      if (bad() || buflen > rdmMaxPayload - 64) {
        refused = true;
        break;
      }
      std::vector<unsigned char> buf(buflen);
      size_t rlen = 0;
      rc = dm.get_events(sid, maxmsgs, flags, buflen, buf.data(), &rlen);
      out.u64(rlen);
      out.bytes(buf.data(), rc == 0 ? std::min<size_t>(rlen, buflen) : 0);
      break;
    }
    case rdmRespondEventCall: {
      dm_sessid_t sid = in.u64();
      dm_token_t token = in.token();
      uint32_t resp = in.u32();
      int32_t reason = in.i32();
      if (bad()) {
        refused = true;
        break;
      }
      rc = dm.respond_event(sid, token, static_cast<dm_response_t>(resp), reason, 0, nullptr);
      break;
    }
    case rdmCreateUserEventCall: {
      dm_sessid_t sid = in.u64();
      size_t n = 0;
      const unsigned char* msg = in.bytes(&n);
      if (bad()) {
        refused = true;
        break;
      }
      dm_token_t t = DM_NO_TOKEN;
      rc = dm.create_userevent(sid, n, const_cast<unsigned char*>(msg), &t);
      out.token(t);
      break;
    }
    case rdmGetAllSessionsCall: {
      uint32_t nelem = in.u32();
      if (bad() || nelem > rdmMaxPayload / 8 - 8) {
        refused = true;
        break;
      }
      std::vector<dm_sessid_t> s(nelem);
      unsigned int got = 0;
      rc = dm.getall_sessions(nelem, s.data(), &got);
      out.u32(got);
      for (unsigned int i = 0; rc == 0 && i < got; ++i) out.u64(s[i]);
      break;
    }
    case rdmQuerySessionCall: {
      dm_sessid_t sid = in.u64();
      uint64_t buflen = in.u64();
      if (bad() || buflen > rdmMaxPayload - 64) {
        refused = true;
        break;
      }
      std::vector<unsigned char> buf(buflen);
      size_t rlen = 0;
      rc = dm.query_session(sid, buflen, buf.data(), &rlen);
      out.u64(rlen);
      out.bytes(buf.data(), rc == 0 ? std::min<size_t>(rlen, buflen) : 0);
      break;
    }
    case rdmPathToHandleCall: {
      size_t n = 0;
      const unsigned char* p = in.bytes(&n);
      if (bad() || n == 0 || p[n - 1] != '\0') {
        refused = true;
        break;
      }
      std::string path(reinterpret_cast<const char*>(p));
      void* h = nullptr;
      size_t hl = 0;
      rc = dm.path_to_handle(path.data(), &h, &hl);
      out.bytes(h, rc == 0 ? hl : 0);
      if (rc == 0) dm.handle_free(h, hl);
      break;
    }
    case rdmHandleToPathCall: {
      size_t n = 0;
      const unsigned char* p = in.bytes(&n);
      std::vector<unsigned char> h(p, p + n);
      uint64_t buflen = in.u64();
      if (bad() || buflen > rdmMaxPayload - 64) {
        refused = true;
        break;
      }
      if (dm.handle_to_path == nullptr) {
        rc = -1;
        errno = ENOSYS;
        out.bytes(nullptr, 0);
        break;
      }
      std::vector<char> buf(buflen);
      size_t rlen = 0;
      rc = dm.handle_to_path(nullptr, 0, h.empty() ? nullptr : h.data(), h.size(), buflen,
                             buf.data(), &rlen);
      out.bytes(buf.data(), rc == 0 ? std::min<size_t>(rlen, buflen) : 0);
      break;
    }
    case rdmGetRegionCall: {
      FileArgs a = fileArgs(in);
      uint32_t nelem = in.u32();
      if (bad() || nelem > rdmMaxPayload / sizeof(dm_region_t) - 8) {
        refused = true;
        break;
      }
      std::vector<dm_region_t> regs(nelem);
      unsigned int got = 0;
      rc = dm.get_region(a.sid, hp(a), a.handle.size(), a.token, nelem, regs.data(), &got);
      out.u32(got);
      out.bytes(regs.data(), rc == 0 ? got * sizeof(dm_region_t) : 0);
      break;
    }
    case rdmDirAttrsCall: {
      rdmDirQuery_t q;
      if (!rdmDecodeDirQuery(in, &q)) {
        refused = true;
        break;
      }
      rc = dirFn != nullptr ? dirFn(dirArg, q, &out) : rtdAnswerDirAttrsAsRoot(dm, q, &out);
      if (rc != 0) {
        int err = errno;
        out.clear();
        rdmPutDirEntries({}, false, &out);
        errno = err;
      }
      break;
    }
    default:
      rep->status = EOPNOTSUPP;
      return;
  }
  if (refused || !in.done()) {
    rep->status = EPROTO;
    return;
  }
  rep->result = rc;
  rep->err = rc < 0 ? errno : 0;
  rep->payload = out.data();
}

int rtdServeConnection(int fd, const dmapiBinding_t& dm) {
  rdmRequest_t req;
  if (rdmReadRequest(fd, &req) != 0) return -1;
  rdmReply_t rep;
  rtdProviderDispatch(dm, req, &rep);
  return rdmWriteReply(fd, rep);
}
