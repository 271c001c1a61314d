#include "hsm/rdm/rdm_transport.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>

#include "diag/trace.h"
#include "hsm/rdm/rdm_status.h"

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

// A request sent ahead (rdmSendAhead) whose reply is not taken yet.
struct Ahead {
  bool active = false;
  bool received = false;  // |rep| holds its reply (read early by another call)
  bool failed = false;    // its request or reply was lost
  rdmRequest_t req;
  rdmReply_t rep;
};

thread_local Ahead tAhead;

// Reads the reply of the request sent ahead off the connection, so that
// the connection is free for another call.
void collectAhead() {
  Ahead& a = tAhead;
  if (!a.active || a.received || a.failed) return;
  int fd = tConnection.held();
  if (fd < 0 || rdmReadReply(fd, &a.rep) != 0) {
    tConnection.drop();
    a.failed = true;
    return;
  }
  a.received = true;
}

// Writes |req| on the thread's connection.  A kept connection may have been
// closed by the daemon meanwhile (it drops idle ones): the request then
// fails before the daemon has read it, and goes once more on a new
// connection.  With |reply|, the reply is read too.  Returns 0, or -1 with
// errno (|*unreachable| true when no connection could be had).
int sendOnConnection(const rdmRequest_t& req, rdmReply_t* reply, bool* unreachable) {
  int rc = -1;
  int err = 0;
  *unreachable = false;
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool reused = false;
    int fd = tConnection.get(&reused);
    if (fd < 0) {
      *unreachable = true;
      return -1;
    }
    rc = rdmWriteRequest(fd, req);
    if (rc == 0 && reply != nullptr) rc = rdmReadReply(fd, reply);
    err = errno;
    if (rc == 0) return 0;
    tConnection.drop();
    if (!reused || (err != EPIPE && err != ECONNRESET)) break;
  }
  errno = err;
  return -1;
}

// One exchange.  Returns 0 with |*rep|, or -1 (errno EACCES) when it
// failed or the reply is not the answer to this request.
int exchange(uint16_t call, const rdmWriter& args, rdmReply_t* rep) {
  collectAhead();
  rdmRequest_t req;
  req.call = call;
  req.key = nextKey();
  req.payload = args.data();
  bool unreachable = false;
  if (sendOnConnection(req, rep, &unreachable) != 0) {
    if (TR_DMI && unreachable)
      trPrintf(__FILE__, __LINE__, "rdm: cannot reach the root daemon at %s, errno %d\n",
               rdmSocketPath().c_str(), errno);
    else if (TR_DMI)
      trPrintf(__FILE__, __LINE__, "rdm: call %u failed, errno %d\n", call, errno);
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
    if (rep->status == rdmStatusMade) return 0;
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

void rdmSendAhead(uint16_t call, const std::vector<unsigned char>& payload) {
  rdmAbandonAhead();
  Ahead& a = tAhead;
  a.active = true;
  a.req.call = call;
  a.req.key = nextKey();
  a.req.payload = payload;
  // The caller asks again as an ordinary call, which reports the failure.
  bool unreachable = false;
  if (sendOnConnection(a.req, nullptr, &unreachable) != 0) a.failed = true;
}

int rdmReceiveAhead(rdmReply_t* rep, bool* lost) {
  collectAhead();
  Ahead done = std::move(tAhead);
  tAhead = Ahead();
  *lost = !done.active || done.failed;
  if (*lost) return -1;
  if (done.rep.key != done.req.key || done.rep.call != done.req.call) {
    tConnection.drop();  // out of step with the daemon
    return -1;
  }
  *rep = std::move(done.rep);
  return 0;
}

void rdmAbandonAhead() {
  Ahead& a = tAhead;
  if (!a.active) return;
  // Its reply would come before that of the next call: the connection goes.
  if (!a.received && !a.failed) tConnection.drop();
  a = Ahead();
}
