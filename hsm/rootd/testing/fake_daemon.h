// Test support: a stand-in for the root daemon that serves one request per
// connection, on the sandbox's socket, and misbehaves on request.
#ifndef QMX_HSM_ROOTD_TESTING_FAKE_DAEMON_H_
#define QMX_HSM_ROOTD_TESTING_FAKE_DAEMON_H_

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rootd/rootd_requests.h"

class FakeDaemon {
 public:
  enum Mode { kServe, kWrongKey, kWrongSize, kHangUp, kRefuse };

  explicit FakeDaemon(const dmapiBinding_t* dm) : dm_(dm) {
    std::string path = rdmSocketPath();
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    unlink(path.c_str());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    ok_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
          listen(fd_, 8) == 0;
    if (ok_) thread_ = std::thread([this] { run(); });
  }
  ~FakeDaemon() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return ok_; }

  std::atomic<Mode> mode{kServe};
  std::atomic<int> busyReplies{0};  // answer "busy" this many times first
  std::atomic<int> requests{0};
  std::atomic<int> dirRequests{0};  // directory calls among them
  std::atomic<int> hangUps{0};      // leave this many requests unanswered first
  // Serve a connection's requests until the client closes it, as the real
  // daemon does (by default each connection gets one answer).
  std::atomic<bool> keepConnections{false};

 private:
  void run() {
    while (!stop_) {
      struct pollfd p = {fd_, POLLIN, 0};
      if (poll(&p, 1, 20) <= 0) continue;
      int c = accept(fd_, nullptr, nullptr);
      if (c < 0) continue;
      while (serve(c) && keepConnections && waitFor(c)) {
      }
      close(c);
    }
  }
  // Waits for the next request on |c|; false when the daemon stops first.
  bool waitFor(int c) {
    while (!stop_) {
      struct pollfd p = {c, POLLIN, 0};
      if (poll(&p, 1, 20) > 0) return true;
    }
    return false;
  }
  // False when the connection is done with.
  bool serve(int c) {
    rdmRequest_t req;
    if (rdmReadRequest(c, &req) != 0) return false;
    ++requests;
    if (req.call == rdmDirAttrsCall) ++dirRequests;
    if (hangUps > 0) {
      --hangUps;
      return false;
    }
    rdmReply_t rep;
    if (busyReplies > 0) {
      --busyReplies;
      rep.call = req.call;
      rep.key = req.key;
      rep.status = EAGAIN;
      return rdmWriteReply(c, rep) == 0;
    }
    rtdDispatchAsRoot(*dm_, req, &rep);
    switch (mode.load()) {
      case kServe:
        break;
      case kWrongKey:
        rep.key ^= 1;
        break;
      case kWrongSize:
        rep.payload.push_back(0);
        break;
      case kHangUp:
        return false;
      case kRefuse:
        rep.status = EPERM;
        break;
    }
    return rdmWriteReply(c, rep) == 0;
  }

  const dmapiBinding_t* dm_;
  int fd_ = -1;
  bool ok_ = false;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

#endif  // QMX_HSM_ROOTD_TESTING_FAKE_DAEMON_H_
