#include "session/tcp_comm.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "diag/trace.h"

namespace {

struct TcpState {
  int fd = -1;
  std::vector<unsigned char> out;  // staged output, capacity bufferSize
  size_t outLen = 0;
  std::vector<unsigned char> in;  // read-ahead
  size_t inPos = 0, inLen = 0;
};

TcpState* StateOf(commObj_t* obj) {
  return static_cast<TcpState*>(obj->methodState);
}

using Clock = std::chrono::steady_clock;

int64_t MsLeft(Clock::time_point deadline) {
  auto d = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return d.count() < 0 ? 0 : d.count();
}

// Waits until |fd| is ready for |events|.  |timeoutMs| 0 means no limit.
int WaitFd(int fd, short events, uint32_t timeoutMs) {
  Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    pollfd p{fd, events, 0};
    int wait = timeoutMs == 0 ? -1 : static_cast<int>(MsLeft(deadline));
    int n = ::poll(&p, 1, wait);
    if (n > 0) return 0;
    if (n == 0) return COMM_RC_TIMEOUT;
    if (errno != EINTR) return COMM_RC_IO;
  }
}

void ApplySocketOptions(int fd, const commInfo_t& info) {
  // The window must be set before connecting for the peers to agree on its
  // scaling; failures only cost throughput, so they are not fatal.
  if (info.windowSize > 0) {
    int w = static_cast<int>(info.windowSize);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &w, sizeof w);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &w, sizeof w);
  }
  int one = info.noDelay ? 1 : 0;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

// One connection attempt to one address.  Returns the socket or -1 with
// |*rc| and |*err| set.
int ConnectOne(const addrinfo* ai, const commInfo_t& info, int* rc, int* err) {
  int fd = ::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, ai->ai_protocol);
  if (fd < 0) {
    *err = errno;
    *rc = COMM_RC_IO;
    return -1;
  }
  ApplySocketOptions(fd, info);
  int flags = ::fcntl(fd, F_GETFL);
  ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  int r = ::connect(fd, ai->ai_addr, ai->ai_addrlen);
  if (r != 0 && errno != EINPROGRESS && errno != EINTR) {
    *err = errno;
    *rc = COMM_RC_CONNECT;
    ::close(fd);
    return -1;
  }
  if (r != 0) {
    int w = WaitFd(fd, POLLOUT, info.connectTimeoutMs);
    int soerr = 0;
    socklen_t len = sizeof soerr;
    if (w == 0) ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &soerr, &len);
    if (w != 0 || soerr != 0) {
      *err = w == COMM_RC_TIMEOUT ? ETIMEDOUT : (w != 0 ? errno : soerr);
      *rc = w == COMM_RC_TIMEOUT ? COMM_RC_TIMEOUT : COMM_RC_CONNECT;
      ::close(fd);
      return -1;
    }
  }
  ::fcntl(fd, F_SETFL, flags);
  return fd;
}

// One round over every address of the server.
int ConnectRound(commObj_t* obj, int* fdOut) {
  const commInfo_t& info = obj->info;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_ADDRCONFIG;
  addrinfo* list = nullptr;
  std::string port = std::to_string(info.port);
  int g = ::getaddrinfo(info.address.c_str(), port.c_str(), &hints, &list);
  if (g != 0) {
    TRACE_Fkt(__FILE__, __LINE__)(TR_COMM, "TcpOpen: cannot resolve '%s': %s\n",
                                  info.address.c_str(), ::gai_strerror(g));
    obj->lastErrno = g == EAI_SYSTEM ? errno : 0;
    // A name server that is not answering yet may answer later.
    return g == EAI_AGAIN ? COMM_RC_CONNECT : COMM_RC_ADDRESS;
  }
  int rc = COMM_RC_CONNECT;
  for (addrinfo* ai = list; ai != nullptr; ai = ai->ai_next) {
    ++obj->openAttempts;
    int err = 0;
    int fd = ConnectOne(ai, info, &rc, &err);
    if (fd >= 0) {
      TRACE_Fkt(__FILE__, __LINE__)(TR_COMM, "TcpOpen: connected to %s port %u (%s)\n",
                                    info.address.c_str(), static_cast<unsigned>(info.port),
                                    ai->ai_family == AF_INET6 ? "IPv6" : "IPv4");
      *fdOut = fd;
      rc = 0;
      break;
    }
    TRACE_Fkt(__FILE__, __LINE__)(TR_COMM, "TcpOpen: %s port %u (%s): %s\n", info.address.c_str(),
                                  static_cast<unsigned>(info.port),
                                  ai->ai_family == AF_INET6 ? "IPv6" : "IPv4", std::strerror(err));
    obj->lastErrno = err;
  }
  ::freeaddrinfo(list);
  return rc;
}

int SendAll(commObj_t* obj, int fd, const unsigned char* buf, size_t n) {
  while (n > 0) {
    ssize_t w = ::send(fd, buf, n, MSG_NOSIGNAL);
    if (w > 0) {
      buf += w;
      n -= static_cast<size_t>(w);
      continue;
    }
    if (w < 0 && errno == EINTR) continue;
    if (w < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      int rc = WaitFd(fd, POLLOUT, 0);
      if (rc != 0) return rc;
      continue;
    }
    obj->lastErrno = errno;
    return (errno == EPIPE || errno == ECONNRESET) ? COMM_RC_LOST : COMM_RC_IO;
  }
  return 0;
}

// Receives at least one byte into |buf| (at most |max|).
int RecvSome(commObj_t* obj, int fd, unsigned char* buf, size_t max, size_t* got) {
  for (;;) {
    if (obj->info.readTimeoutMs > 0) {
      int rc = WaitFd(fd, POLLIN, obj->info.readTimeoutMs);
      if (rc != 0) return rc;
    }
    ssize_t r = ::recv(fd, buf, max, 0);
    if (r > 0) {
      *got = static_cast<size_t>(r);
      return 0;
    }
    if (r == 0) return COMM_RC_LOST;
    if (errno == EINTR) continue;
    obj->lastErrno = errno;
    return errno == ECONNRESET ? COMM_RC_LOST : COMM_RC_IO;
  }
}

int TcpFlush(commObj_t* obj) {
  TcpState* st = StateOf(obj);
  if (st == nullptr || st->fd < 0) return COMM_RC_METHOD;
  if (st->outLen == 0) return 0;
  int rc = SendAll(obj, st->fd, st->out.data(), st->outLen);
  st->outLen = 0;
  return rc;
}

int TcpLoad(commObj_t* obj, int method) {
  if (method != COMM_TCPIP) return COMM_RC_METHOD;
  if (obj->methodState == nullptr) obj->methodState = new TcpState;
  return 0;
}

int TcpClose(commObj_t* obj) {
  TcpState* st = StateOf(obj);
  if (st == nullptr || st->fd < 0) return 0;
  ::close(st->fd);
  st->fd = -1;
  st->outLen = st->inPos = st->inLen = 0;
  return 0;
}

int TcpUnload(commObj_t* obj) {
  TcpClose(obj);
  delete StateOf(obj);
  obj->methodState = nullptr;
  return 0;
}

void Attach(commObj_t* obj, TcpState* st, int fd) {
  size_t size = obj->info.bufferSize < 1024 ? 1024 : obj->info.bufferSize;
  st->fd = fd;
  st->out.assign(size, 0);
  st->in.assign(size, 0);
  st->outLen = st->inPos = st->inLen = 0;
}

int TcpOpen(commObj_t* obj) {
  TcpState* st = StateOf(obj);
  if (st == nullptr) return COMM_RC_METHOD;
  if (st->fd >= 0) {
    ::close(st->fd);
    st->fd = -1;
  }
  obj->openAttempts = 0;
  Clock::time_point giveUp = Clock::now() + std::chrono::milliseconds(obj->info.restartDurationMs);
  for (;;) {
    int fd = -1;
    int rc = ConnectRound(obj, &fd);
    if (rc == 0) {
      Attach(obj, st, fd);
      return 0;
    }
    if (rc == COMM_RC_ADDRESS) return rc;  // retrying cannot help
    if (MsLeft(giveUp) <= 0) return rc;
    int64_t pause = obj->info.restartIntervalMs;
    if (pause > MsLeft(giveUp)) pause = MsLeft(giveUp);
    TRACE_Fkt(__FILE__, __LINE__)(TR_COMM, "TcpOpen: trying again in %lld ms\n",
                                  static_cast<long long>(pause));
    std::this_thread::sleep_for(std::chrono::milliseconds(pause));
  }
}

int TcpRead(commObj_t* obj, unsigned char* buf, uint32_t n) {
  TcpState* st = StateOf(obj);
  if (st == nullptr || st->fd < 0) return COMM_RC_METHOD;
  int rc = TcpFlush(obj);
  if (rc != 0) return rc;
  while (n > 0) {
    if (st->inPos < st->inLen) {
      size_t take = std::min<size_t>(n, st->inLen - st->inPos);
      std::memcpy(buf, st->in.data() + st->inPos, take);
      st->inPos += take;
      buf += take;
      n -= static_cast<uint32_t>(take);
      continue;
    }
    size_t got = 0;
    if (n >= st->in.size()) {  // large remainder: straight into the caller's buffer
      rc = RecvSome(obj, st->fd, buf, n, &got);
      if (rc != 0) return rc;
      buf += got;
      n -= static_cast<uint32_t>(got);
      continue;
    }
    rc = RecvSome(obj, st->fd, st->in.data(), st->in.size(), &got);
    if (rc != 0) return rc;
    st->inPos = 0;
    st->inLen = got;
  }
  return 0;
}

int TcpRecvBuff(commObj_t* obj, unsigned char* buf, uint32_t max, uint32_t* got) {
  TcpState* st = StateOf(obj);
  *got = 0;
  if (st == nullptr || st->fd < 0) return COMM_RC_METHOD;
  if (max == 0) return 0;
  int rc = TcpFlush(obj);
  if (rc != 0) return rc;
  if (st->inPos < st->inLen) {
    size_t take = std::min<size_t>(max, st->inLen - st->inPos);
    std::memcpy(buf, st->in.data() + st->inPos, take);
    st->inPos += take;
    *got = static_cast<uint32_t>(take);
    return 0;
  }
  size_t n = 0;
  rc = RecvSome(obj, st->fd, buf, max, &n);
  *got = static_cast<uint32_t>(n);
  return rc;
}

int TcpWrite(commObj_t* obj, const unsigned char* buf, uint32_t n) {
  TcpState* st = StateOf(obj);
  if (st == nullptr || st->fd < 0) return COMM_RC_METHOD;
  if (st->outLen + n <= st->out.size()) {
    std::memcpy(st->out.data() + st->outLen, buf, n);
    st->outLen += n;
    return 0;
  }
  int rc = TcpFlush(obj);
  if (rc != 0) return rc;
  if (n >= st->out.size()) return SendAll(obj, st->fd, buf, n);
  std::memcpy(st->out.data(), buf, n);
  st->outLen = n;
  return 0;
}

}  // namespace

void tcpFillFuncTable(commFunc_t* fn) {
  fn->commLoad = TcpLoad;
  fn->commOpen = TcpOpen;
  fn->commRead = TcpRead;
  fn->commWrite = TcpWrite;
  fn->commFlush = TcpFlush;
  fn->commRecvBuff = TcpRecvBuff;
  fn->commClose = TcpClose;
  fn->commUnload = TcpUnload;
}

int tcpSocketOf(const commObj_t* obj) {
  const auto* st = static_cast<const TcpState*>(obj->methodState);
  return st == nullptr ? -1 : st->fd;
}

int tcpAdoptSocket(commObj_t* obj, int fd) {
  TcpState* st = StateOf(obj);
  if (st == nullptr || fd < 0) return COMM_RC_METHOD;
  if (st->fd >= 0) ::close(st->fd);
  ApplySocketOptions(fd, obj->info);
  Attach(obj, st, fd);
  return 0;
}
