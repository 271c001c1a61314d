// The root daemon's service: a Unix-domain stream socket on which callers
// that are not root have their DMAPI calls made (rdm_proto.h), each call
// answered through the table of requests (rootd_requests.h) and authorised
// there for the connection's user (rootd_guard.h).
//
// Connections: each is served by a thread of its own, which answers
// requests one after another until the client closes.  At most
// |maxClients| connections are served at once; up to as many more are
// told "busy" (status EAGAIN, which the client retries), any beyond those
// are closed at once.  Every request, from its first byte to the end of
// its reply, must be done within |timeoutMs| (also the longest a
// connection may sit idle); a client that stalls is cut off, so no client
// can hold the daemon.  A request that can't be read (bad magic, version,
// length) ends its connection and is reported.
//
// Thread safety: listen() and run() belong to one thread; stop() may be
// called from any thread or a signal handler.
#ifndef QMX_HSM_ROOTD_ROOTD_SERVER_H_
#define QMX_HSM_ROOTD_ROOTD_SERVER_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rootd/rootd_guard.h"
#include "hsm/rootd/rootd_sessions.h"

// What the daemon reports; every member may be null.
struct rtdReporter_t {
  void* arg = nullptr;
  rtdRefusalFn_t refused = nullptr;
  // A request that could not be read; |err| says why (EPROTO, E2BIG...).
  void (*badRequest)(void* arg, const rtdCaller_t& caller, int err) = nullptr;
};

struct rtdServerConfig_t {
  std::string socketPath;
  const dmapiBinding_t* dm = nullptr;  // the provider; must outlive the server
  int maxClients = 16;
  int timeoutMs = 5000;
  int maxUserSessions = 128;  // sessions one user may hold at once (0: no limit)
  rtdReporter_t report;
};

class rtdServer {
 public:
  explicit rtdServer(const rtdServerConfig_t& config);
  ~rtdServer();
  rtdServer(const rtdServer&) = delete;
  rtdServer& operator=(const rtdServer&) = delete;

  // Creates the socket (mode 0666).  A socket file already there is
  // removed only when no daemon answers on it.  SIGPIPE is ignored from
  // here on (a client that leaves mid-reply must not end the daemon).
  // Returns 0, or -1 with errno: EADDRINUSE when a daemon answers,
  // anything else from the system.
  int listen();
  // Serves until stop(); then closes and removes the socket, cuts every
  // open connection and waits for their threads.  Returns 0.
  int run();
  // Makes run() return.  Async-signal-safe.
  void stop();

  // Connections being served now (tests and trace).
  int activeClients() const { return active_.load(); }
  // Connections being told "busy" now.
  int busyClients() const { return busy_.load(); }
  const rtdSessionTable& sessions() const { return sessions_; }

 private:
  void serve(int fd, bool busy);
  void serveBusy(int fd);
  void serveCalls(int fd, const rtdCaller_t& caller);
  void arm(int fd);
  void cutExpired();
  void finish(int fd, bool busy);

  rtdServerConfig_t cfg_;
  int listenFd_ = -1;
  int wake_[2] = {-1, -1};
  std::atomic<int> active_{0};
  std::atomic<int> busy_{0};
  rtdSessionTable sessions_;
  std::mutex mu_;
  std::condition_variable done_;
  std::map<int, int64_t> conns_;  // descriptor -> deadline
  bool stopping_ = false;
};

#endif  // QMX_HSM_ROOTD_ROOTD_SERVER_H_
