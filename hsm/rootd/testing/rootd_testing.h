// Test helpers of the root daemon: a sandbox directory, a daemon served on
// a thread, a client that sends forged requests, and running code as
// another user in a forked child.
#ifndef QMX_HSM_ROOTD_TESTING_ROOTD_TESTING_H_
#define QMX_HSM_ROOTD_TESTING_ROOTD_TESTING_H_

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rootd/rootd_server.h"
#include "testing/process.h"
#include "testing/sandbox.h"

namespace rtdtest {

constexpr uid_t kNobody = 65534;

#define RTD_NEED_ROOT() \
  if (geteuid() != 0) GTEST_SKIP() << "the root daemon's tests switch users and need root"

// A fresh directory (mode 0755, so that other users reach files inside)
// that is also the system root; removed at the end.
class Sandbox : public qmxtest::Sandbox {
 public:
  Sandbox() : qmxtest::Sandbox({.prefix = "qmxrootd_test_", .mode = 0755, .sysRoot = ""}) {}
  const std::string& dir() const { return path(); }
  using qmxtest::Sandbox::path;
  // Creates a file with |text|, owner |uid| and |mode|.
  std::string file(const std::string& rel, uid_t uid, mode_t mode, const char* text = "data") {
    std::string p = write(rel, text);
    (void)!chown(p.c_str(), uid, uid);
    chmod(p.c_str(), mode);
    return p;
  }
};

// A server on a thread; stopped and joined by the destructor.
class ServerThread {
 public:
  explicit ServerThread(rtdServerConfig_t cfg) {
    cfg.report.arg = this;
    cfg.report.refused = onRefused;
    cfg.report.badRequest = onBad;
    server_ = std::make_unique<rtdServer>(cfg);
    listenRc_ = server_->listen();
    if (listenRc_ == 0) thread_ = std::thread([this] { server_->run(); });
  }
  ~ServerThread() { stop(); }
  void stop() {
    if (thread_.joinable()) {
      server_->stop();
      thread_.join();
    }
  }
  int listenRc() const { return listenRc_; }
  rtdServer& server() { return *server_; }
  // The refusals reported so far, one line each: "call uid pid object err".
  std::vector<std::string> refusals() {
    std::lock_guard<std::mutex> lock(mu_);
    return refusals_;
  }
  std::vector<int> badRequests() {
    std::lock_guard<std::mutex> lock(mu_);
    return bad_;
  }

 private:
  static void onRefused(void* arg, const rtdCaller_t& c, const char* call,
                        const std::string& object, int err) {
    auto* self = static_cast<ServerThread*>(arg);
    std::lock_guard<std::mutex> lock(self->mu_);
    self->refusals_.push_back(std::string(call) + " " + std::to_string(c.uid) + " " +
                              std::to_string(c.pid) + " " + object + " " + std::to_string(err));
  }
  static void onBad(void* arg, const rtdCaller_t&, int err) {
    auto* self = static_cast<ServerThread*>(arg);
    std::lock_guard<std::mutex> lock(self->mu_);
    self->bad_.push_back(err);
  }
  std::unique_ptr<rtdServer> server_;
  std::thread thread_;
  int listenRc_ = -1;
  std::mutex mu_;
  std::vector<std::string> refusals_;
  std::vector<int> bad_;
};

inline int connectTo(const std::string& path) {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sun_family = AF_UNIX;
  std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s", path.c_str());
  if (connect(fd, reinterpret_cast<struct sockaddr*>(&sa), sizeof sa) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// One request on a connection of its own.  Returns 0 with |*rep|, or -1
// when the daemon could not be reached or did not answer.
inline int call(const std::string& sock, uint16_t callNo, const rdmWriter& args, rdmReply_t* rep,
                uint64_t key = 0x5EED) {
  int fd = connectTo(sock);
  if (fd < 0) return -1;
  rdmRequest_t req;
  req.call = callNo;
  req.key = key;
  req.payload = args.data();
  int rc = rdmWriteRequest(fd, req) == 0 && rdmReadReply(fd, rep) == 0 ? 0 : -1;
  close(fd);
  return rc;
}

// The outcome of a call as "result/errno" ("0/0", "-1/13"), or "status N"
// when the daemon refused to decode it, or "no answer".
inline std::string outcome(const std::string& sock, uint16_t callNo, const rdmWriter& args,
                           rdmReply_t* repOut = nullptr) {
  rdmReply_t rep;
  if (call(sock, callNo, args, &rep) != 0) return "no answer";
  if (repOut != nullptr) *repOut = rep;
  if (rep.status != 0) return "status " + std::to_string(rep.status);
  return std::to_string(rep.result) + "/" + std::to_string(rep.err);
}

// A session created through the daemon for the calling process; 0 when
// that failed.
inline dm_sessid_t newSession(const std::string& sock, const char* info = "test") {
  rdmWriter w;
  w.u64(0);
  w.bytes(info, std::strlen(info));
  rdmReply_t rep;
  if (outcome(sock, rdmCreateSessionCall, w, &rep) != "0/0") return 0;
  rdmReader in(rep.payload.data(), rep.payload.size());
  return static_cast<dm_sessid_t>(in.u64());
}

// Under the address sanitizer a child forked while the in-process daemon's
// threads run can block for ever inside the sanitizer's allocator (another
// thread may hold its lock at the moment of the fork).  Tests that act as
// another user in such a child skip there; the normal build runs them.
#if defined(__SANITIZE_ADDRESS__)
#define ROOTD_SKIP_FORK_UNDER_SANITIZER() \
  GTEST_SKIP() << "forks beside the daemon's threads: run in the normal build"
#else
#define ROOTD_SKIP_FORK_UNDER_SANITIZER() (void)0
#endif

// Runs |fn| in a child as |uid| (group |uid|, no supplementary groups) and
// returns what it returned; "child failed" when it could not run.
inline std::string runAs(uid_t uid, const std::function<std::string()>& fn) {
  int p[2];
  if (pipe(p) != 0) return "child failed";
  pid_t pid = qmxtest::forkChild([&] {
    close(p[0]);
    if (setgroups(0, nullptr) != 0 || setgid(uid) != 0 || setuid(uid) != 0) return 3;
    std::string out = fn();
    (void)!write(p[1], out.data(), out.size());
    return 0;
  });
  close(p[1]);
  if (pid < 0) {
    close(p[0]);
    return "child failed";
  }
  // The child's answer ends when it ends; a child that hangs is killed at
  // the deadline, which also ends the read.
  std::string out;
  std::thread reader([&] {
    char buf[4096];
    ssize_t n;
    while ((n = read(p[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
  });
  qmxtest::ChildEnd end = qmxtest::waitChild(pid);
  reader.join();
  close(p[0]);
  return end.ended && WIFEXITED(end.status) && WEXITSTATUS(end.status) == 0 ? out : "child failed";
}

// Arguments of the calls that name a file.
inline void fileArgs(rdmWriter& w, const std::vector<unsigned char>& h, dm_sessid_t sid = 0,
                     dm_token_t token = DM_NO_TOKEN) {
  w.u64(sid);
  w.bytes(h.data(), h.size());
  w.token(token);
}

inline dm_attrname_t attrName(const char* n) {
  dm_attrname_t a{};
  std::strncpy(reinterpret_cast<char*>(a.an_chars), n, sizeof a.an_chars);
  return a;
}

// A handle of |path| made directly through the provider.
inline std::vector<unsigned char> handleOf(const dmapiBinding_t& dm, const std::string& path) {
  void* h = nullptr;
  size_t l = 0;
  std::vector<unsigned char> out;
  if (dm.path_to_handle(const_cast<char*>(path.c_str()), &h, &l) != 0) return out;
  out.assign(static_cast<unsigned char*>(h), static_cast<unsigned char*>(h) + l);
  dm.handle_free(h, l);
  return out;
}

// A daemon thread serving the built-in provider in a sandbox with three
// stubs, each carrying "KVRObj" = "old": own.stub (nobody's), other.stub
// (root's, readable by all) and secret (root's, readable by root only).
// Subclasses add files before the daemon starts through prepare().
class StubDaemonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ROOTD_SKIP_FORK_UNDER_SANITIZER();
    RTD_NEED_ROOT();
    bindProvider(&dm_);
    if (HasFatalFailure()) return;
    char* v = nullptr;
    ASSERT_EQ(dm_.init_service(&v), 0);
    ASSERT_EQ(dm_.create_session(0, const_cast<char*>("rootsess"), &rootSid_), 0);
    own_ = box_.file("own.stub", kNobody, 0644);
    other_ = box_.file("other.stub", 0, 0644);
    secret_ = box_.file("secret", 0, 0600);
    // An attribute on every file, set by root directly.
    for (const std::string* p : {&own_, &other_, &secret_}) {
      auto h = handleOf(dm_, *p);
      ASSERT_FALSE(h.empty());
      dm_attrname_t n = attrName("KVRObj");
      ASSERT_EQ(dm_.set_dmattr(rootSid_, h.data(), h.size(), DM_NO_TOKEN, &n, 0, 3,
                               const_cast<char*>("old")),
                0);
    }
    prepare();
    if (HasFatalFailure()) return;
    rtdServerConfig_t cfg;
    cfg.socketPath = box_.path("run/qmxrootd.sock");
    cfg.dm = &dm_;
    cfg.maxUserSessions = maxUserSessions_;
    server_ = std::make_unique<ServerThread>(cfg);
    ASSERT_EQ(server_->listenRc(), 0);
    sock_ = cfg.socketPath;
  }
  void TearDown() override {
    server_.reset();
    if (rootSid_ != 0) dm_.destroy_session(rootSid_);
  }
  virtual void prepare() {}
  virtual void bindProvider(dmapiBinding_t* dm) { dmBindBuiltIn(dm); }

  Sandbox box_;
  dmapiBinding_t dm_{};
  std::unique_ptr<ServerThread> server_;
  dm_sessid_t rootSid_ = 0;
  int maxUserSessions_ = 128;  // prepare() may change it
  std::string sock_, own_, other_, secret_;
};

}  // namespace rtdtest

#endif  // QMX_HSM_ROOTD_TESTING_ROOTD_TESTING_H_
