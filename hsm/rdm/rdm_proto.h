// The root daemon's DMAPI service: how a process that is not root has its
// DMAPI calls made by the root daemon, over the Unix-domain stream socket
// psSysPath("/run/qmxrootd.sock").
//
// A connection carries one call after another: the client writes a
// request and reads its reply, as often as it likes, and closes.  The
// daemon may close a connection that sits idle.  All integers are
// little-endian.  The client believes only a daemon whose socket peer is
// root (or its own user); the daemon in turn learns its caller from the
// socket (SO_PEERCRED) and is the one to decide what that user may do
// (hsm/rootd); nothing in this protocol authorises a call.
//
// Request:  u32 magic "QRDM" (rdmMagic)   u16 version (1)   u16 call
//           u64 confirmation key          u32 payload length   payload
// Reply:    u32 magic   u16 version   u16 call (echoed)
//           u64 confirmation key (echoed: the client drops a reply whose key
//               is not the one it sent)
//           i32 status (rdm_status.h): 0 the call was made; EAGAIN (11) the
//               daemon is busy, ask again later; any other errno: the daemon
//               refused the call
//           i64 result of the call (0, -1, a byte count)
//           i32 errno of the call (0 when it succeeded)
//           u32 payload length   payload (output values)
// Payloads are at most rdmMaxPayload bytes; a reply must be exactly as long
// as its call's output values (a reply of the wrong size is rejected).
//
// Payload fields: u32, u64, i64 as above; "bytes" is a u32 length and the
// bytes; "token" is u64 high, u64 low; "name" is the 8 bytes of a DM
// attribute name; "handle" is bytes.  Records (dm_stat_t, dm_fileattr_t,
// dm_region_t, event buffers) travel as bytes in the host's layout: client
// and daemon run on one host from one build.
//
//   call              request payload                              reply payload
//   InitService       -                                            bytes version
//   CreateSession     u64 oldsid, bytes info                       u64 newsid
//   DestroySession    u64 sid                                      -
//   GetAllTokens      u64 sid, u32 nelem                           u32 n, n tokens
//   SetDmattr         u64 sid, handle, token, name, u32 setdtime,  -
//                     bytes value
//   GetDmattr         u64 sid, handle, token, name, u64 buflen     u64 rlen, bytes value
//   RemoveDmattr      u64 sid, handle, token, u32 setdtime, name   -
//   ProbeHole         u64 sid, handle, token, i64 off, u64 len     i64 roff, u64 rlen
//   PunchHole         u64 sid, handle, token, i64 off, u64 len     -
//   RequestRight      u64 sid, handle, token, u32 flags, u32 right -
//   ReleaseRight      u64 sid, handle, token                       -
//   GetFileAttr       u64 sid, handle, token, u32 mask             bytes dm_stat_t
//   SetFileAttr       u64 sid, handle, token, u32 mask,            -
//                     bytes dm_fileattr_t
//   ReadInvis         u64 sid, handle, token, i64 off, u64 len     bytes data
//   SetRegion         u64 sid, handle, token, bytes dm_region_t[]  u32 exact
//   GetEvents         u64 sid, u32 maxmsgs, u32 flags, u64 buflen  u64 rlen, bytes events
//   RespondEvent      u64 sid, token, u32 response, i32 reason     -
//   CreateUserEvent   u64 sid, bytes message                       token
//   GetAllSessions    u32 nelem                                    u32 n, n x u64 sid
//   QuerySession      u64 sid, u64 buflen                          u64 rlen, bytes info
//   PathToHandle      bytes path (with its NUL)                    handle
//   HandleToPath      handle, u64 buflen                           bytes path (with NUL)
//   GetRegion         u64 sid, handle, token, u32 nelem            u32 n, bytes dm_region_t[]
//   DirAttrs          u64 sid, bytes directory (with its NUL),     u32 count, u32 more, entries
//                     bytes cursor, u32 n, n names                 (see rdm_dirattrs.h)
// Output values are sent whatever the result, so that E2BIG can report the
// length needed.
//
// Both sides use the functions below for frames and fields; each call's
// payloads are laid out once, in rdm_calls.h, for the client (rdm_client.h)
// that encodes requests and decodes replies and for the daemon (hsm/rootd)
// that decodes requests and encodes replies.
#ifndef QMX_HSM_RDM_RDM_PROTO_H_
#define QMX_HSM_RDM_RDM_PROTO_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hsm/provider/dmapi_iface.h"
#include "hsm/rdm/rdm_status.h"

constexpr uint32_t rdmMagic = 0x4D445251;  // "QRDM" in memory order
constexpr uint16_t rdmVersion = 1;
constexpr uint32_t rdmMaxPayload = 1u << 20;
constexpr size_t rdmRequestHeaderSize = 20;
constexpr size_t rdmReplyHeaderSize = 36;

enum rdmCall_t : uint16_t {
  rdmInitServiceCall = 1,
  rdmCreateSessionCall,
  rdmDestroySessionCall,
  rdmGetAllTokensCall,
  rdmSetDmattrCall,
  rdmGetDmattrCall,
  rdmRemoveDmattrCall,
  rdmProbeHoleCall,
  rdmPunchHoleCall,
  rdmRequestRightCall,
  rdmReleaseRightCall,
  rdmGetFileAttrCall,
  rdmSetFileAttrCall,
  rdmReadInvisCall,
  rdmSetRegionCall,
  rdmGetEventsCall,
  rdmRespondEventCall,
  rdmCreateUserEventCall,
  rdmGetAllSessionsCall,
  rdmQuerySessionCall,
  rdmPathToHandleCall,
  rdmHandleToPathCall,
  rdmGetRegionCall,
  rdmDirAttrsCall,
  rdmCallLimit  // one past the last call
};

// The socket the daemon listens on (under the system root).
std::string rdmSocketPath();

// ---- Payload encoding -------------------------------------------------

class rdmWriter {
 public:
  void u32(uint32_t v);
  void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
  void u64(uint64_t v);
  void i64(int64_t v) { u64(static_cast<uint64_t>(v)); }
  void token(const dm_token_t& t) {
    u64(t.high);
    u64(t.low);
  }
  void name(const dm_attrname_t& n) { raw(n.an_chars, sizeof n.an_chars); }
  // u32 length and the bytes (|p| may be null when |n| is 0).
  void bytes(const void* p, size_t n);
  void raw(const void* p, size_t n);
  const std::vector<unsigned char>& data() const { return buf_; }
  void clear() { buf_.clear(); }

 private:
  std::vector<unsigned char> buf_;
};

// Reads fields in order; any read past the end (or a length past the
// payload limit) makes ok() false and the rest read as zero.
class rdmReader {
 public:
  rdmReader(const void* p, size_t n) : p_(static_cast<const unsigned char*>(p)), n_(n) {}
  uint32_t u32();
  int32_t i32() { return static_cast<int32_t>(u32()); }
  uint64_t u64();
  int64_t i64() { return static_cast<int64_t>(u64()); }
  dm_token_t token() {
    dm_token_t t;
    t.high = u64();
    t.low = u64();
    return t;
  }
  dm_attrname_t name();
  // A bytes field: points into the payload; *n its length.
  const unsigned char* bytes(size_t* n);
  bool ok() const { return ok_; }
  // True when every byte was read and nothing went wrong.
  bool done() const { return ok_ && pos_ == n_; }
  // Bytes not read yet.
  size_t left() const { return n_ - pos_; }
  // Makes ok() false: a field read well but makes no sense.
  void fail() { ok_ = false; }

 private:
  const unsigned char* take(size_t n);
  const unsigned char* p_;
  size_t n_;
  size_t pos_ = 0;
  bool ok_ = true;
};

// ---- Frames -------------------------------------------------------------

struct rdmRequest_t {
  uint16_t call = 0;
  uint64_t key = 0;
  std::vector<unsigned char> payload;
};

struct rdmReply_t {
  uint16_t call = 0;
  uint64_t key = 0;
  int32_t status = rdmStatusMade;
  int64_t result = 0;
  int32_t err = 0;
  std::vector<unsigned char> payload;
};

// Whole frames to and from a connected socket.  Return 0, or -1 with errno
// (EPROTO: a bad magic, version or length; ECONNRESET: the peer closed
// early).
int rdmWriteRequest(int fd, const rdmRequest_t& req);
int rdmReadRequest(int fd, rdmRequest_t* req);
int rdmWriteReply(int fd, const rdmReply_t& rep);
int rdmReadReply(int fd, rdmReply_t* rep);

#endif  // QMX_HSM_RDM_RDM_PROTO_H_
