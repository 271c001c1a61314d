#include "hsm/rootd/rootd_server.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <thread>

#include "diag/logfile.h"
#include "diag/trace.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rdm/rdm_status.h"
#include "hsm/rootd/rootd_requests.h"

namespace {

int64_t nowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

int socketAddress(const std::string& path, struct sockaddr_un* sa) {
  std::memset(sa, 0, sizeof *sa);
  sa->sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof sa->sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(sa->sun_path, path.c_str(), path.size() + 1);
  return 0;
}

// True when a daemon accepts connections on |path|.
bool someoneAnswers(const struct sockaddr_un& sa) {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  int rc = connect(fd, reinterpret_cast<const struct sockaddr*>(&sa), sizeof sa);
  // A full backlog (EAGAIN) is a daemon too, only a busy one.
  bool answers = rc == 0 || errno == EAGAIN;
  close(fd);
  return answers;
}

}  // namespace

rtdServer::rtdServer(const rtdServerConfig_t& config) : cfg_(config) {
  if (cfg_.maxClients < 1) cfg_.maxClients = 1;
  if (cfg_.timeoutMs < 1) cfg_.timeoutMs = 1;
}

rtdServer::~rtdServer() {
  if (listenFd_ >= 0) {
    close(listenFd_);
    unlink(cfg_.socketPath.c_str());
  }
  for (int fd : wake_)
    if (fd >= 0) close(fd);
}

int rtdServer::listen() {
  signal(SIGPIPE, SIG_IGN);
  struct sockaddr_un sa;
  if (socketAddress(cfg_.socketPath, &sa) != 0) return -1;
  if (pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
  struct stat st;
  if (lstat(cfg_.socketPath.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      errno = EEXIST;  // not ours to remove
      return -1;
    }
    if (someoneAnswers(sa)) {
      errno = EADDRINUSE;
      return -1;
    }
    if (TR_SM) trPrintf(__FILE__, __LINE__, "removing stale socket %s\n", cfg_.socketPath.c_str());
    unlink(cfg_.socketPath.c_str());
  }
  int err = utBuildPath(cfg_.socketPath.c_str());
  if (err != 0) {
    errno = err;
    return -1;
  }
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (bind(fd, reinterpret_cast<struct sockaddr*>(&sa), sizeof sa) != 0 ||
      chmod(cfg_.socketPath.c_str(), 0666) != 0 || ::listen(fd, 64) != 0) {
    err = errno;
    close(fd);
    errno = err;
    return -1;
  }
  listenFd_ = fd;
  return 0;
}

void rtdServer::stop() {
  char c = 1;
  if (wake_[1] >= 0) (void)!write(wake_[1], &c, 1);
}

int rtdServer::run() {
  if (listenFd_ < 0) {
    errno = EBADF;
    return -1;
  }
  const int tick = cfg_.timeoutMs < 500 ? cfg_.timeoutMs : 500;
  for (;;) {
    struct pollfd p[2] = {{listenFd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
    int n = poll(p, 2, tick);
    cutExpired();
    if (n < 0 && errno != EINTR) break;
    if (n <= 0) continue;
    if (p[1].revents != 0) break;
    if ((p[0].revents & POLLIN) == 0) continue;
    int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      // Out of descriptors: the waiting connection stays ready, so take a
      // breath instead of spinning until one is closed.
      if (errno == EMFILE || errno == ENFILE) {
        if (TR_SM) trPrintf(__FILE__, __LINE__, "accept: out of descriptors\n");
        poll(nullptr, 0, 50);
      }
      continue;  // or the client gave up already
    }
    bool busy;
    if (active_.load() < cfg_.maxClients) {
      busy = false;
      ++active_;
    } else if (busy_.load() < cfg_.maxClients) {
      busy = true;
      ++busy_;
    } else {
      close(fd);
      continue;
    }
    arm(fd);
    try {
      std::thread(&rtdServer::serve, this, fd, busy).detach();
    } catch (const std::system_error&) {
      finish(fd, busy);
    }
  }
  // Shut down: no new connections, cut the open ones, wait for them.
  close(listenFd_);
  listenFd_ = -1;
  unlink(cfg_.socketPath.c_str());
  std::unique_lock<std::mutex> lock(mu_);
  stopping_ = true;
  for (const auto& c : conns_) shutdown(c.first, SHUT_RDWR);
  done_.wait(lock, [this] { return conns_.empty(); });
  return 0;
}

// Gives the connection |fd| the time for one request from now on.
void rtdServer::arm(int fd) {
  std::lock_guard<std::mutex> lock(mu_);
  conns_[fd] = nowMs() + cfg_.timeoutMs;
}

void rtdServer::cutExpired() {
  int64_t now = nowMs();
  std::lock_guard<std::mutex> lock(mu_);
  for (auto& c : conns_) {
    if (c.second <= now) {
      if (TR_SM) trPrintf(__FILE__, __LINE__, "connection %d timed out\n", c.first);
      // The thread's read or write returns; the thread closes the socket.
      shutdown(c.first, SHUT_RDWR);
      c.second = INT64_MAX;
    }
  }
}

void rtdServer::finish(int fd, bool busy) {
  std::lock_guard<std::mutex> lock(mu_);
  conns_.erase(fd);
  close(fd);
  --(busy ? busy_ : active_);
  done_.notify_all();
}

void rtdServer::serve(int fd, bool busy) {
  // The kernel's timeouts are the first guard; cutExpired the one that
  // bounds a whole request.
  struct timeval tv = {cfg_.timeoutMs / 1000, (cfg_.timeoutMs % 1000) * 1000};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
  if (busy) {
    serveBusy(fd);
  } else {
    rtdCaller_t caller;
    if (rtdPeerCaller(fd, &caller) == 0) serveCalls(fd, caller);
  }
  finish(fd, busy);
}

void rtdServer::serveBusy(int fd) {
  rdmRequest_t req;
  if (rdmReadRequest(fd, &req) != 0) return;
  rdmReply_t rep;
  rep.call = req.call;
  rep.key = req.key;
  rep.status = EAGAIN;
  if (TR_SM) trPrintf(__FILE__, __LINE__, "busy: call %u answered EAGAIN\n", req.call);
  rdmWriteReply(fd, rep);
}

void rtdServer::serveCalls(int fd, const rtdCaller_t& caller) {
  rtdGuardContext_t ctx;
  ctx.dm = cfg_.dm;
  ctx.sessions = &sessions_;
  ctx.maxUserSessions = static_cast<size_t>(std::max(0, cfg_.maxUserSessions));
  ctx.caller = &caller;
  ctx.refused = cfg_.report.refused;
  ctx.refusedArg = cfg_.report.arg;
  rtdDirListing listing;
  ctx.listing = &listing;
  for (;;) {
    rdmRequest_t req;
    if (rdmReadRequest(fd, &req) != 0) {
      int err = errno;
      // The end of the conversation, a time-out or a cut: nothing to say.
      if (err == ECONNRESET || err == EAGAIN || err == EWOULDBLOCK || err == EPIPE) return;
      if (TR_SM)
        trPrintf(__FILE__, __LINE__, "unreadable request from pid %d uid %u: errno %d\n",
                 static_cast<int>(caller.pid), static_cast<unsigned>(caller.uid), err);
      if (cfg_.report.badRequest != nullptr) cfg_.report.badRequest(cfg_.report.arg, caller, err);
      return;
    }
    rdmReply_t rep;
    rtdDispatch(ctx, req, &rep);
    if (rep.status != rdmStatusMade && cfg_.report.badRequest != nullptr)
      cfg_.report.badRequest(cfg_.report.arg, caller, rep.status);
    if (TR_SM)
      trPrintf(__FILE__, __LINE__, "pid %d uid %u call %u: status %d result %lld errno %d\n",
               static_cast<int>(caller.pid), static_cast<unsigned>(caller.uid), req.call,
               rep.status, static_cast<long long>(rep.result), rep.err);
    if (rdmWriteReply(fd, rep) != 0) return;  // the client left mid-reply
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (stopping_) return;
    }
    arm(fd);
  }
}
