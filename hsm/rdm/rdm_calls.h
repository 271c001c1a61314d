// Each call of the root daemon's service (rdmCall_t), its request arguments
// and reply values laid out once (rdm_codec.h), for both ends: the client
// (rdm_client.h) encodes Args and decodes Reply; the daemon (hsm/rootd)
// decodes Args and encodes Reply.  The layouts are those of the table in
// rdm_proto.h.
//
// Per call, a struct rdm<Call>Msg_t with
//   kCall                 the call number
//   Args, Reply           the payloads, fields in wire order
//   encodeArgs ... decodeReply   as rdm_codec.h says
// Requests that make no sense decode as false (the daemon answers EPROTO):
// a buffer or list larger than a reply can carry, a record of the wrong
// size, session information too long.  Replies that are not an answer to
// their request decode as false (the client gives EACCES): more bytes than
// the caller's buffer holds, more items than asked for, no handle on
// success, a directory answer out of order.
//
// Output values are sent whatever the result; where a field says "on
// success" it is sent only when the result is 0 (a count then still
// tells, with E2BIG, how many there are).
#ifndef QMX_HSM_RDM_RDM_CALLS_H_
#define QMX_HSM_RDM_RDM_CALLS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hsm/provider/dmapi_iface.h"
#include "hsm/rdm/rdm_codec.h"
#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rdm/rdm_proto.h"

// The largest buffer a request may ask to be filled: a reply's payload
// less room for the fields around it.
constexpr uint64_t rdmMaxBuffer = rdmMaxPayload - 64;

// Arguments that name a file: session, handle, token.
struct rdmFileArgs_t {
  dm_sessid_t sid = DM_NO_SESSION;
  std::vector<unsigned char> handle;
  dm_token_t token = DM_NO_TOKEN;
  static void fields(auto& f, auto& s) {
    f.u64(s.sid);
    f.bytes(s.handle);
    f.token(s.token);
  }
};

// A value of at most |limit| bytes, copied by the client into its buffer.
inline bool rdmFits(const std::vector<unsigned char>& v, uint64_t limit) {
  return v.size() <= limit;
}

// ---- Service and sessions -----------------------------------------------

struct rdmInitServiceReply_t {
  std::vector<unsigned char> version;
  static void fields(auto& f, auto& s, int64_t) { f.bytes(s.version); }
};
struct rdmInitServiceMsg_t : rdmFieldCodec<rdmNoArgs_t, rdmInitServiceReply_t> {
  static constexpr rdmCall_t kCall = rdmInitServiceCall;
};

struct rdmCreateSessionArgs_t {
  dm_sessid_t oldsid = DM_NO_SESSION;
  std::string info;
  static void fields(auto& f, auto& s) {
    f.u64(s.oldsid);
    f.text(s.info);
  }
  bool valid() const { return info.size() < DM_SESSION_INFO_LEN; }
};
struct rdmCreateSessionReply_t {
  dm_sessid_t sid = DM_NO_SESSION;
  static void fields(auto& f, auto& s, int64_t) { f.u64(s.sid); }
};
struct rdmCreateSessionMsg_t : rdmFieldCodec<rdmCreateSessionArgs_t, rdmCreateSessionReply_t> {
  static constexpr rdmCall_t kCall = rdmCreateSessionCall;
};

struct rdmSessionArgs_t {
  dm_sessid_t sid = DM_NO_SESSION;
  static void fields(auto& f, auto& s) { f.u64(s.sid); }
};
struct rdmDestroySessionMsg_t : rdmFieldCodec<rdmSessionArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmDestroySessionCall;
};

struct rdmGetAllSessionsArgs_t {
  uint32_t nelem = 0;
  static void fields(auto& f, auto& s) { f.u32(s.nelem); }
  bool valid() const { return nelem <= rdmMaxPayload / 8 - 8; }
};
struct rdmGetAllSessionsReply_t {
  uint32_t count = 0;             // sessions there are
  std::vector<dm_sessid_t> sids;  // on success: |count| of them
  static void fields(auto& f, auto& s, int64_t result) {
    f.u32(s.count);
    if (result == 0) f.list(s.sids, s.count, [](auto& g, auto& sid) { g.u64(sid); });
  }
  bool valid(const rdmGetAllSessionsArgs_t& a, int64_t result) const {
    return result != 0 || count <= a.nelem;
  }
};
struct rdmGetAllSessionsMsg_t : rdmFieldCodec<rdmGetAllSessionsArgs_t, rdmGetAllSessionsReply_t> {
  static constexpr rdmCall_t kCall = rdmGetAllSessionsCall;
};

struct rdmQuerySessionArgs_t {
  dm_sessid_t sid = DM_NO_SESSION;
  uint64_t buflen = 0;
  static void fields(auto& f, auto& s) {
    f.u64(s.sid);
    f.u64(s.buflen);
  }
  bool valid() const { return buflen <= rdmMaxBuffer; }
};
// A length (what the whole value needs) and the value (on success, as much
// as the buffer holds; empty otherwise).
struct rdmSizedReply_t {
  uint64_t rlen = 0;
  std::vector<unsigned char> value;
  static void fields(auto& f, auto& s, int64_t) {
    f.u64(s.rlen);
    f.bytes(s.value);
  }
  template <class A>
  bool valid(const A& a, int64_t) const {
    return rdmFits(value, a.buflen);
  }
};
struct rdmQuerySessionMsg_t : rdmFieldCodec<rdmQuerySessionArgs_t, rdmSizedReply_t> {
  static constexpr rdmCall_t kCall = rdmQuerySessionCall;
};

// ---- Handles --------------------------------------------------------------

struct rdmPathToHandleArgs_t {
  std::string path;
  static void fields(auto& f, auto& s) { f.cstring(s.path); }
};
struct rdmPathToHandleReply_t {
  std::vector<unsigned char> handle;  // on success never empty
  static void fields(auto& f, auto& s, int64_t) { f.bytes(s.handle); }
  bool valid(const rdmPathToHandleArgs_t&, int64_t result) const {
    return result != 0 || !handle.empty();
  }
};
struct rdmPathToHandleMsg_t : rdmFieldCodec<rdmPathToHandleArgs_t, rdmPathToHandleReply_t> {
  static constexpr rdmCall_t kCall = rdmPathToHandleCall;
};

struct rdmHandleToPathArgs_t {
  std::vector<unsigned char> handle;
  uint64_t buflen = 0;
  static void fields(auto& f, auto& s) {
    f.bytes(s.handle);
    f.u64(s.buflen);
  }
  bool valid() const { return buflen <= rdmMaxBuffer; }
};
struct rdmHandleToPathReply_t {
  std::vector<unsigned char> path;  // with its NUL, at most buflen bytes
  static void fields(auto& f, auto& s, int64_t) { f.bytes(s.path); }
  bool valid(const rdmHandleToPathArgs_t& a, int64_t) const { return rdmFits(path, a.buflen); }
};
struct rdmHandleToPathMsg_t : rdmFieldCodec<rdmHandleToPathArgs_t, rdmHandleToPathReply_t> {
  static constexpr rdmCall_t kCall = rdmHandleToPathCall;
};

// ---- DM attributes ------------------------------------------------------

struct rdmSetDmattrArgs_t {
  rdmFileArgs_t file;
  dm_attrname_t name{};
  uint32_t setdtime = 0;
  std::vector<unsigned char> value;
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.name(s.name);
    f.u32(s.setdtime);
    f.bytes(s.value);
  }
};
struct rdmSetDmattrMsg_t : rdmFieldCodec<rdmSetDmattrArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmSetDmattrCall;
};

struct rdmGetDmattrArgs_t {
  rdmFileArgs_t file;
  dm_attrname_t name{};
  uint64_t buflen = 0;
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.name(s.name);
    f.u64(s.buflen);
  }
  bool valid() const { return buflen <= rdmMaxBuffer; }
};
struct rdmGetDmattrMsg_t : rdmFieldCodec<rdmGetDmattrArgs_t, rdmSizedReply_t> {
  static constexpr rdmCall_t kCall = rdmGetDmattrCall;
};

struct rdmRemoveDmattrArgs_t {
  rdmFileArgs_t file;
  uint32_t setdtime = 0;
  dm_attrname_t name{};
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.u32(s.setdtime);
    f.name(s.name);
  }
};
struct rdmRemoveDmattrMsg_t : rdmFieldCodec<rdmRemoveDmattrArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmRemoveDmattrCall;
};

// ---- Data and holes -----------------------------------------------------

// A file and a range of it.
struct rdmRangeArgs_t {
  rdmFileArgs_t file;
  dm_off_t off = 0;
  dm_size_t len = 0;
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.i64(s.off);
    f.u64(s.len);
  }
};
struct rdmProbeHoleReply_t {
  dm_off_t roff = 0;
  dm_size_t rlen = 0;
  static void fields(auto& f, auto& s, int64_t) {
    f.i64(s.roff);
    f.u64(s.rlen);
  }
};
struct rdmProbeHoleMsg_t : rdmFieldCodec<rdmRangeArgs_t, rdmProbeHoleReply_t> {
  static constexpr rdmCall_t kCall = rdmProbeHoleCall;
};
struct rdmPunchHoleMsg_t : rdmFieldCodec<rdmRangeArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmPunchHoleCall;
};

struct rdmReadInvisArgs_t : rdmRangeArgs_t {
  bool valid() const { return len <= rdmMaxBuffer; }
};
struct rdmReadInvisReply_t {
  std::vector<unsigned char> data;  // as many bytes as the result counts
  static void fields(auto& f, auto& s, int64_t) { f.bytes(s.data); }
  bool valid(const rdmReadInvisArgs_t& a, int64_t result) const {
    return rdmFits(data, a.len) && (result < 0 || data.size() == static_cast<uint64_t>(result));
  }
};
struct rdmReadInvisMsg_t : rdmFieldCodec<rdmReadInvisArgs_t, rdmReadInvisReply_t> {
  static constexpr rdmCall_t kCall = rdmReadInvisCall;
};

// ---- Rights ---------------------------------------------------------------

struct rdmRequestRightArgs_t {
  rdmFileArgs_t file;
  uint32_t flags = 0;
  dm_right_t right = DM_RIGHT_NULL;
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.u32(s.flags);
    f.u32(s.right);
  }
};
struct rdmRequestRightMsg_t : rdmFieldCodec<rdmRequestRightArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmRequestRightCall;
};

struct rdmReleaseRightArgs_t {
  rdmFileArgs_t file;
  static void fields(auto& f, auto& s) { rdmFileArgs_t::fields(f, s.file); }
};
struct rdmReleaseRightMsg_t : rdmFieldCodec<rdmReleaseRightArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmReleaseRightCall;
};

// ---- File attributes and regions ----------------------------------------

struct rdmGetFileAttrArgs_t {
  rdmFileArgs_t file;
  uint32_t mask = 0;
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.u32(s.mask);
  }
};
struct rdmGetFileAttrReply_t {
  dm_stat_t stat{};
  static void fields(auto& f, auto& s, int64_t) { f.record(s.stat); }
};
struct rdmGetFileAttrMsg_t : rdmFieldCodec<rdmGetFileAttrArgs_t, rdmGetFileAttrReply_t> {
  static constexpr rdmCall_t kCall = rdmGetFileAttrCall;
};

struct rdmSetFileAttrArgs_t {
  rdmFileArgs_t file;
  uint32_t mask = 0;
  dm_fileattr_t attr{};
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.u32(s.mask);
    f.record(s.attr);
  }
};
struct rdmSetFileAttrMsg_t : rdmFieldCodec<rdmSetFileAttrArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmSetFileAttrCall;
};

struct rdmSetRegionArgs_t {
  rdmFileArgs_t file;
  std::vector<dm_region_t> regions;
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.records(s.regions);
  }
};
struct rdmSetRegionReply_t {
  uint32_t exact = 0;
  static void fields(auto& f, auto& s, int64_t) { f.u32(s.exact); }
};
struct rdmSetRegionMsg_t : rdmFieldCodec<rdmSetRegionArgs_t, rdmSetRegionReply_t> {
  static constexpr rdmCall_t kCall = rdmSetRegionCall;
};

struct rdmGetRegionArgs_t {
  rdmFileArgs_t file;
  uint32_t nelem = 0;
  static void fields(auto& f, auto& s) {
    rdmFileArgs_t::fields(f, s.file);
    f.u32(s.nelem);
  }
  bool valid() const { return nelem <= rdmMaxPayload / sizeof(dm_region_t) - 8; }
};
struct rdmGetRegionReply_t {
  uint32_t count = 0;                  // regions there are
  std::vector<unsigned char> regions;  // on success: dm_region_t[count]
  static void fields(auto& f, auto& s, int64_t) {
    f.u32(s.count);
    f.bytes(s.regions);
  }
  bool valid(const rdmGetRegionArgs_t& a, int64_t) const {
    return rdmFits(regions, static_cast<uint64_t>(a.nelem) * sizeof(dm_region_t));
  }
};
struct rdmGetRegionMsg_t : rdmFieldCodec<rdmGetRegionArgs_t, rdmGetRegionReply_t> {
  static constexpr rdmCall_t kCall = rdmGetRegionCall;
};

// ---- Events and tokens --------------------------------------------------

struct rdmGetEventsArgs_t {
  dm_sessid_t sid = DM_NO_SESSION;
  uint32_t maxmsgs = 0;
  uint32_t flags = 0;
  uint64_t buflen = 0;
  static void fields(auto& f, auto& s) {
    f.u64(s.sid);
    f.u32(s.maxmsgs);
    f.u32(s.flags);
    f.u64(s.buflen);
  }
  bool valid() const { return buflen <= rdmMaxBuffer; }
};
struct rdmGetEventsMsg_t : rdmFieldCodec<rdmGetEventsArgs_t, rdmSizedReply_t> {
  static constexpr rdmCall_t kCall = rdmGetEventsCall;
};

struct rdmRespondEventArgs_t {
  dm_sessid_t sid = DM_NO_SESSION;
  dm_token_t token = DM_NO_TOKEN;
  dm_response_t response{};
  int32_t reason = 0;
  static void fields(auto& f, auto& s) {
    f.u64(s.sid);
    f.token(s.token);
    f.u32(s.response);
    f.i32(s.reason);
  }
};
struct rdmRespondEventMsg_t : rdmFieldCodec<rdmRespondEventArgs_t, rdmNoReply_t> {
  static constexpr rdmCall_t kCall = rdmRespondEventCall;
};

struct rdmCreateUserEventArgs_t {
  dm_sessid_t sid = DM_NO_SESSION;
  std::vector<unsigned char> message;
  static void fields(auto& f, auto& s) {
    f.u64(s.sid);
    f.bytes(s.message);
  }
};
struct rdmCreateUserEventReply_t {
  dm_token_t token = DM_NO_TOKEN;
  static void fields(auto& f, auto& s, int64_t) { f.token(s.token); }
};
struct rdmCreateUserEventMsg_t
    : rdmFieldCodec<rdmCreateUserEventArgs_t, rdmCreateUserEventReply_t> {
  static constexpr rdmCall_t kCall = rdmCreateUserEventCall;
};

struct rdmGetAllTokensArgs_t {
  dm_sessid_t sid = DM_NO_SESSION;
  uint32_t nelem = 0;
  static void fields(auto& f, auto& s) {
    f.u64(s.sid);
    f.u32(s.nelem);
  }
  bool valid() const { return nelem <= rdmMaxPayload / 16; }
};
struct rdmGetAllTokensReply_t {
  uint32_t count = 0;              // tokens there are
  std::vector<dm_token_t> tokens;  // on success: |count| of them
  static void fields(auto& f, auto& s, int64_t result) {
    f.u32(s.count);
    if (result == 0) f.list(s.tokens, s.count, [](auto& g, auto& t) { g.token(t); });
  }
  bool valid(const rdmGetAllTokensArgs_t& a, int64_t result) const {
    return result != 0 || count <= a.nelem;
  }
};
struct rdmGetAllTokensMsg_t : rdmFieldCodec<rdmGetAllTokensArgs_t, rdmGetAllTokensReply_t> {
  static constexpr rdmCall_t kCall = rdmGetAllTokensCall;
};

// ---- The directory call (rdm_dirattrs.h) --------------------------------

// Its own layout: the query's checks and the entries' nested lists are
// rdm_dirattrs.h's.  A reply must answer its query: names sorted and after
// the cursor, no more than its limit, none (and no "more") on failure, and
// "more" only after some progress.
struct rdmDirAttrsMsg_t {
  static constexpr rdmCall_t kCall = rdmDirAttrsCall;
  using Args = rdmDirQuery_t;
  using Reply = rdmDirReply_t;
  static void encodeArgs(const Args& a, rdmWriter* out) { rdmEncodeDirQuery(a, out); }
  static bool decodeArgs(const void* p, size_t n, Args* a);
  static void encodeReply(const Reply& v, int64_t result, rdmWriter* out);
  static bool decodeReply(const Args& a, const void* p, size_t n, int64_t result, Reply* v);
};

#endif  // QMX_HSM_RDM_RDM_CALLS_H_
