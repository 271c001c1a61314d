#include "hsm/rdm/rdm_client.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <random>

#include "diag/trace.h"

namespace {

constexpr int kDefaultPoolSize = 32;
constexpr long kDefaultPoolTimeUs = 200000;

// Confirmation keys: a random start, then a mixing counter, so that no two
// requests of the process carry the same key and none is guessable from
// outside.
uint64_t nextKey() {
  static std::atomic<uint64_t> counter{std::random_device{}() |
                                       static_cast<uint64_t>(std::random_device{}()) << 32};
  uint64_t z = counter.fetch_add(0x9E3779B97F4A7C15ULL) + 0x9E3779B97F4A7C15ULL;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

int connectDaemon() {
  std::string path = rdmSocketPath();
  struct sockaddr_un addr {};
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) != 0) {
    int err = errno;
    close(fd);
    errno = err;
    return -1;
  }
  // Only root's daemon may answer DMAPI calls (or a process of our own
  // user, who can fool nobody but himself).
  struct ucred peer {};
  socklen_t len = sizeof peer;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) != 0 ||
      (peer.uid != 0 && peer.uid != getuid())) {
    close(fd);
    errno = EACCES;
    return -1;
  }
  return fd;
}

// Each thread keeps its connection for its next calls: the daemon answers
// any number of requests on one connection, and a call then costs one
// round trip instead of a connection.  A connection belongs to the process
// that opened it, because the daemon knows its caller by that process: a
// forked child opens its own.
class Connection {
 public:
  ~Connection() { drop(); }
  // The descriptor (-1 with errno when the daemon can't be reached);
  // |*reused| tells whether it served an earlier call.
  int get(bool* reused) {
    pid_t self = getpid();
    if (fd_ >= 0 && pid_ == self) {
      *reused = true;
      return fd_;
    }
    drop();
    *reused = false;
    fd_ = connectDaemon();
    pid_ = self;
    return fd_;
  }
  // The descriptor of a connection this process holds, or -1.
  int held() const { return fd_ >= 0 && pid_ == getpid() ? fd_ : -1; }
  void drop() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
  pid_t pid_ = 0;
};

thread_local Connection tConnection;

// A directory call sent ahead (rdmDirAttrsSend) and not yet received.
struct Pending {
  bool active = false;
  bool received = false;  // |rep| holds its reply (read early by another call)
  bool failed = false;    // its request or reply was lost; ask again
  rdmRequest_t req;
  rdmDirQuery_t q;
  rdmReply_t rep;
};

thread_local Pending tPending;

// Reads the reply of the pending request off the connection, so that the
// connection is free for another call.
void collectPending() {
  Pending& p = tPending;
  if (!p.active || p.received || p.failed) return;
  int fd = tConnection.held();
  if (fd < 0 || rdmReadReply(fd, &p.rep) != 0) {
    tConnection.drop();
    p.failed = true;
    return;
  }
  p.received = true;
}

// One exchange.  Returns 0 with |*rep|, or -1 (errno EACCES) when it
// failed or the reply is not the answer to this request.
int exchange(uint16_t call, const rdmWriter& args, rdmReply_t* rep) {
  collectPending();
  rdmRequest_t req;
  req.call = call;
  req.key = nextKey();
  req.payload = args.data();
  int rc = -1;
  int err = 0;
  // A kept connection may have been closed by the daemon meanwhile (it
  // drops idle ones): the request then fails before the daemon has read
  // it, and goes once more on a new connection.
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool reused = false;
    int fd = tConnection.get(&reused);
    if (fd < 0) {
      if (TR_DMI)
        trPrintf(__FILE__, __LINE__, "rdm: cannot reach the root daemon at %s, errno %d\n",
                 rdmSocketPath().c_str(), errno);
      errno = EACCES;
      return -1;
    }
    rc = rdmWriteRequest(fd, req);
    if (rc == 0) rc = rdmReadReply(fd, rep);
    err = errno;
    if (rc == 0) break;
    tConnection.drop();
    if (!reused || (err != EPIPE && err != ECONNRESET)) break;
  }
  if (rc != 0) {
    if (TR_DMI) trPrintf(__FILE__, __LINE__, "rdm: call %u failed, errno %d\n", call, err);
    errno = EACCES;
    return -1;
  }
  if (rep->key != req.key || rep->call != call) {
    tConnection.drop();  // out of step with the daemon
    if (TR_DMI)
      trPrintf(__FILE__, __LINE__, "rdm: reply to call %u rejected: key or call mismatch\n", call);
    errno = EACCES;
    return -1;
  }
  return 0;
}

// Ends a call: the decoded reply must have been read exactly.
int finish(const rdmReply_t& rep, const rdmReader& r) {
  if (!r.done()) {
    if (TR_DMI)
      trPrintf(__FILE__, __LINE__, "rdm: reply to call %u has the wrong size (%zu bytes)\n",
               rep.call, rep.payload.size());
    errno = EACCES;
    return -1;
  }
  errno = rep.err;
  return static_cast<int>(rep.result);
}

void fileArgs(rdmWriter& w, dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token) {
  w.u64(sid);
  w.bytes(hanp, hlen);
  w.token(token);
}

// Copies a bytes field of at most |cap| bytes into |dst|.  False when it
// does not fit (a daemon never sends more than asked for).
bool copyOut(rdmReader& r, void* dst, size_t cap, size_t* got) {
  size_t n = 0;
  const unsigned char* p = r.bytes(&n);
  if (got != nullptr) *got = n;
  if (n > cap) return false;
  if (n > 0 && dst != nullptr) std::memcpy(dst, p, n);
  return r.ok();
}

int wrongSize() {
  errno = EACCES;
  return -1;
}

// A counted list of a reply: the count goes to *|nelemp| whatever the
// result (so that E2BIG can say how many there are); after success the
// items, read one by one with |get|, go to |out|, which holds |room|.
template <typename T, typename Get>
int readList(const rdmReply_t& rep, rdmReader& r, unsigned int room, T* out, unsigned int* nelemp,
             Get get) {
  uint32_t n = r.u32();
  if (nelemp != nullptr) *nelemp = n;
  if (rep.result == 0) {
    if (n > room) return wrongSize();
    for (uint32_t i = 0; i < n; ++i) {
      T item = get(r);
      if (out != nullptr) out[i] = item;
    }
  }
  return finish(rep, r);
}

}  // namespace

int rdmPoolSize() {
  if (TEST_DMISESSIONPOOLSIZE.set && static_cast<int>(TEST_DMISESSIONPOOLSIZE.value) >= 0)
    return static_cast<int>(TEST_DMISESSIONPOOLSIZE.value);
  return kDefaultPoolSize;
}

long rdmPoolTimeUs() {
  if (TEST_DMISESSIONPOOLTIME.set && static_cast<int>(TEST_DMISESSIONPOOLTIME.value) >= 0)
    return static_cast<long>(TEST_DMISESSIONPOOLTIME.value);
  return kDefaultPoolTimeUs;
}

int rdmTransact(uint16_t call, const rdmWriter& args, rdmReply_t* rep) {
  int attempts = std::max(1, rdmPoolSize());
  for (int i = 0; i < attempts; ++i) {
    if (exchange(call, args, rep) != 0) return -1;
    if (rep->status == 0) return 0;
    if (rep->status != EAGAIN) {
      if (TR_DMI)
        trPrintf(__FILE__, __LINE__, "rdm: the root daemon refused call %u, status %d\n", call,
                 rep->status);
      errno = EACCES;
      return -1;
    }
    if (TR_DMI)
      trPrintf(__FILE__, __LINE__, "rdm: root daemon busy, attempt %d of %d\n", i + 1, attempts);
    if (i + 1 < attempts) usleep(static_cast<useconds_t>(rdmPoolTimeUs()));
  }
  errno = EAGAIN;
  return -1;
}

int rdmInitService(char* version, size_t size) {
  rdmWriter w;
  rdmReply_t rep;
  if (rdmTransact(rdmInitServiceCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  size_t n = 0;
  const unsigned char* v = r.bytes(&n);
  if (!r.done()) return wrongSize();
  if (version != nullptr && size > 0) {
    size_t k = std::min(n, size - 1);
    if (k > 0) std::memcpy(version, v, k);
    version[k] = '\0';
  }
  errno = rep.err;
  return static_cast<int>(rep.result);
}

int rdmCreateSession(dm_sessid_t oldsid, const char* info, dm_sessid_t* newsid) {
  rdmWriter w;
  w.u64(oldsid);
  w.bytes(info, info != nullptr ? std::strlen(info) : 0);
  rdmReply_t rep;
  if (rdmTransact(rdmCreateSessionCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  dm_sessid_t sid = r.u64();
  if (rep.result == 0 && r.done() && newsid != nullptr) *newsid = sid;
  return finish(rep, r);
}

int rdmDestroySession(dm_sessid_t sid) {
  rdmWriter w;
  w.u64(sid);
  rdmReply_t rep;
  if (rdmTransact(rdmDestroySessionCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

int rdmGetAllTokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokens, unsigned int* nelemp) {
  rdmWriter w;
  w.u64(sid);
  w.u32(nelem);
  rdmReply_t rep;
  if (rdmTransact(rdmGetAllTokensCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return readList(rep, r, nelem, tokens, nelemp, [](rdmReader& in) { return in.token(); });
}

int rdmSetDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 const dm_attrname_t* name, int setdtime, size_t len, const void* buf) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.name(*name);
  w.u32(static_cast<uint32_t>(setdtime));
  w.bytes(buf, len);
  rdmReply_t rep;
  if (rdmTransact(rdmSetDmattrCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

int rdmGetDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 const dm_attrname_t* name, size_t buflen, void* buf, size_t* rlenp) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.name(*name);
  w.u64(buflen);
  rdmReply_t rep;
  if (rdmTransact(rdmGetDmattrCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  uint64_t rlen = r.u64();
  if (rlenp != nullptr) *rlenp = rlen;
  if (!copyOut(r, buf, buflen, nullptr)) return wrongSize();
  return finish(rep, r);
}

int rdmRemoveDmattr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, int setdtime,
                    const dm_attrname_t* name) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.u32(static_cast<uint32_t>(setdtime));
  w.name(*name);
  rdmReply_t rep;
  if (rdmTransact(rdmRemoveDmattrCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

int rdmProbeHole(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                 dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.i64(off);
  w.u64(len);
  rdmReply_t rep;
  if (rdmTransact(rdmProbeHoleCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  dm_off_t roff = r.i64();
  dm_size_t rlen = r.u64();
  if (roffp != nullptr) *roffp = roff;
  if (rlenp != nullptr) *rlenp = rlen;
  return finish(rep, r);
}

int rdmPunchHole(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                 dm_size_t len) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.i64(off);
  w.u64(len);
  rdmReply_t rep;
  if (rdmTransact(rdmPunchHoleCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

int rdmRequestRight(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                    unsigned int flags, dm_right_t right) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.u32(flags);
  w.u32(static_cast<uint32_t>(right));
  rdmReply_t rep;
  if (rdmTransact(rdmRequestRightCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

int rdmReleaseRight(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  rdmReply_t rep;
  if (rdmTransact(rdmReleaseRightCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

int rdmGetFileAttr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                   unsigned int mask, dm_stat_t* st) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.u32(mask);
  rdmReply_t rep;
  if (rdmTransact(rdmGetFileAttrCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  size_t n = 0;
  dm_stat_t tmp{};
  if (!copyOut(r, &tmp, sizeof tmp, &n) || n != sizeof tmp) return wrongSize();
  if (st != nullptr && rep.result == 0) *st = tmp;
  return finish(rep, r);
}

int rdmSetFileAttr(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                   unsigned int mask, const dm_fileattr_t* fa) {
  if (fa == nullptr) {
    errno = EFAULT;
    return -1;
  }
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.u32(mask);
  w.bytes(fa, sizeof *fa);
  rdmReply_t rep;
  if (rdmTransact(rdmSetFileAttrCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

dm_ssize_t rdmReadInvis(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                        dm_off_t off, dm_size_t len, void* buf) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.i64(off);
  w.u64(len);
  rdmReply_t rep;
  if (rdmTransact(rdmReadInvisCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  size_t n = 0;
  if (!copyOut(r, buf, len, &n)) return wrongSize();
  if (!r.done() || (rep.result >= 0 && static_cast<size_t>(rep.result) != n)) return wrongSize();
  errno = rep.err;
  return rep.result;
}

int rdmSetRegion(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 unsigned int nelem, const dm_region_t* regions, dm_boolean_t* exactp) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.bytes(regions, nelem * sizeof(dm_region_t));
  rdmReply_t rep;
  if (rdmTransact(rdmSetRegionCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  uint32_t exact = r.u32();
  if (exactp != nullptr) *exactp = static_cast<dm_boolean_t>(exact);
  return finish(rep, r);
}

int rdmGetEvents(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen,
                 void* buf, size_t* rlenp) {
  rdmWriter w;
  w.u64(sid);
  w.u32(maxmsgs);
  w.u32(flags);
  w.u64(buflen);
  rdmReply_t rep;
  if (rdmTransact(rdmGetEventsCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  uint64_t rlen = r.u64();
  if (rlenp != nullptr) *rlenp = rlen;
  if (!copyOut(r, buf, buflen, nullptr)) return wrongSize();
  return finish(rep, r);
}

int rdmRespondEvent(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reason) {
  rdmWriter w;
  w.u64(sid);
  w.token(token);
  w.u32(static_cast<uint32_t>(response));
  w.i32(reason);
  rdmReply_t rep;
  if (rdmTransact(rdmRespondEventCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return finish(rep, r);
}

int rdmCreateUserEvent(dm_sessid_t sid, size_t len, const void* msg, dm_token_t* tokenp) {
  rdmWriter w;
  w.u64(sid);
  w.bytes(msg, len);
  rdmReply_t rep;
  if (rdmTransact(rdmCreateUserEventCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  dm_token_t t = r.token();
  if (tokenp != nullptr && rep.result == 0) *tokenp = t;
  return finish(rep, r);
}

int rdmGetAllSessions(unsigned int nelem, dm_sessid_t* sids, unsigned int* nelemp) {
  rdmWriter w;
  w.u32(nelem);
  rdmReply_t rep;
  if (rdmTransact(rdmGetAllSessionsCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  return readList(rep, r, nelem, sids, nelemp,
                  [](rdmReader& in) { return static_cast<dm_sessid_t>(in.u64()); });
}

int rdmQuerySession(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlenp) {
  rdmWriter w;
  w.u64(sid);
  w.u64(buflen);
  rdmReply_t rep;
  if (rdmTransact(rdmQuerySessionCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  uint64_t rlen = r.u64();
  if (rlenp != nullptr) *rlenp = rlen;
  if (!copyOut(r, buf, buflen, nullptr)) return wrongSize();
  return finish(rep, r);
}

int rdmPathToHandle(const char* path, void** hanpp, size_t* hlenp) {
  if (path == nullptr || hanpp == nullptr || hlenp == nullptr) {
    errno = EFAULT;
    return -1;
  }
  rdmWriter w;
  w.bytes(path, std::strlen(path) + 1);
  rdmReply_t rep;
  if (rdmTransact(rdmPathToHandleCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  size_t n = 0;
  const unsigned char* h = r.bytes(&n);
  if (!r.done()) return wrongSize();
  if (rep.result == 0) {
    if (n == 0) return wrongSize();
    void* copy = std::malloc(n);
    if (copy == nullptr) {
      errno = ENOMEM;
      return -1;
    }
    std::memcpy(copy, h, n);
    *hanpp = copy;
    *hlenp = n;
  }
  errno = rep.err;
  return static_cast<int>(rep.result);
}

int rdmHandleToPath(const void* hanp, size_t hlen, char* buf, size_t size) {
  rdmWriter w;
  w.bytes(hanp, hlen);
  w.u64(size);
  rdmReply_t rep;
  if (rdmTransact(rdmHandleToPathCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  if (!copyOut(r, buf, size, nullptr)) return wrongSize();
  return finish(rep, r);
}

int rdmGetRegion(dm_sessid_t sid, const void* hanp, size_t hlen, dm_token_t token,
                 unsigned int nelem, dm_region_t* regions, unsigned int* nelemp) {
  rdmWriter w;
  fileArgs(w, sid, hanp, hlen, token);
  w.u32(nelem);
  rdmReply_t rep;
  if (rdmTransact(rdmGetRegionCall, w, &rep) != 0) return -1;
  rdmReader r(rep.payload.data(), rep.payload.size());
  uint32_t n = r.u32();
  if (nelemp != nullptr) *nelemp = n;
  if (!copyOut(r, regions, nelem * sizeof(dm_region_t), nullptr)) return wrongSize();
  return finish(rep, r);
}

namespace {

// Decodes a reply to the directory query |q|.
int dirReply(const rdmDirQuery_t& q, const rdmReply_t& rep, std::vector<rdmDirEntry_t>* entries,
             bool* more) {
  rdmReader r(rep.payload.data(), rep.payload.size());
  if (!rdmGetDirEntries(r, q.names.size(), entries, more)) return wrongSize();
  // Names come sorted and after the cursor; anything else is not an answer
  // to this request.
  const std::string* prev = &q.cursor;
  for (const rdmDirEntry_t& e : *entries) {
    if (!prev->empty() && e.name <= *prev) return wrongSize();
    prev = &e.name;
  }
  if (rep.result != 0 && (!entries->empty() || *more)) return wrongSize();
  if (*more && entries->empty()) return wrongSize();  // no progress
  if (q.limit != 0 && entries->size() > q.limit) return wrongSize();
  errno = rep.err;
  return static_cast<int>(rep.result);
}

bool validQuery(const rdmDirQuery_t& q) {
  return !q.dir.empty() && !q.names.empty() && q.names.size() <= rdmDirMaxNames &&
         q.dir.find('\0') == std::string::npos;
}

}  // namespace

int rdmDirAttrs(const rdmDirQuery_t& q, std::vector<rdmDirEntry_t>* entries, bool* more) {
  if (!validQuery(q) || entries == nullptr || more == nullptr) {
    errno = EINVAL;
    return -1;
  }
  rdmWriter w;
  rdmEncodeDirQuery(q, &w);
  rdmReply_t rep;
  if (rdmTransact(rdmDirAttrsCall, w, &rep) != 0) return -1;
  return dirReply(q, rep, entries, more);
}

int rdmDirAttrsSend(const rdmDirQuery_t& q) {
  rdmDirAttrsAbandon();
  if (!validQuery(q)) {
    errno = EINVAL;
    return -1;
  }
  Pending& p = tPending;
  p = Pending();
  p.active = true;
  p.q = q;
  p.req.call = rdmDirAttrsCall;
  p.req.key = nextKey();
  rdmWriter w;
  rdmEncodeDirQuery(q, &w);
  p.req.payload = w.data();
  // As in exchange: a kept connection the daemon closed meanwhile fails at
  // once, and the request goes once more on a new one.
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool reused = false;
    int fd = tConnection.get(&reused);
    if (fd >= 0 && rdmWriteRequest(fd, p.req) == 0) return 0;
    int err = errno;
    tConnection.drop();
    if (fd < 0 || !reused || (err != EPIPE && err != ECONNRESET)) break;
  }
  p.failed = true;  // rdmDirAttrsReceive asks again and reports the failure
  return 0;
}

int rdmDirAttrsReceive(std::vector<rdmDirEntry_t>* entries, bool* more) {
  Pending& p = tPending;
  if (!p.active || entries == nullptr || more == nullptr) {
    errno = EINVAL;
    return -1;
  }
  collectPending();
  Pending done = std::move(p);
  p = Pending();
  const rdmReply_t& rep = done.rep;
  bool answered = !done.failed && rep.key == done.req.key && rep.call == rdmDirAttrsCall;
  if (!done.failed && !answered) tConnection.drop();  // out of step with the daemon
  if (answered && rep.status == 0) return dirReply(done.q, rep, entries, more);
  // Lost, busy or refused: the ordinary call retries, reconnects and
  // reports as for any other call.
  if (TR_DMI && !done.failed)
    trPrintf(__FILE__, __LINE__, "rdm: directory call sent ahead not answered, status %d\n",
             answered ? rep.status : -1);
  return rdmDirAttrs(done.q, entries, more);
}

void rdmDirAttrsAbandon() {
  Pending& p = tPending;
  if (!p.active) return;
  // Its reply would come before that of the next call: the connection goes.
  if (!p.received && !p.failed) tConnection.drop();
  p = Pending();
}
