#include "session/testing/test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "session/crc32.h"
#include "session/signon_verbs.h"
#include "session/verb.h"

struct TestServer::Conn {
  int fd = -1;
  std::string node;
  authNonce_t serverNonce{};
  authNonce_t clientNonce{};
  bool authenticated = false;
};

namespace {

bool ReadN(int fd, unsigned char* p, size_t n) {
  while (n > 0) {
    ssize_t r = ::recv(fd, p, n, 0);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) return false;
    p += r;
    n -= static_cast<size_t>(r);
  }
  return true;
}

bool WriteN(int fd, const unsigned char* p, size_t n) {
  while (n > 0) {
    ssize_t w = ::send(fd, p, n, MSG_NOSIGNAL);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

// Reads one verb, header included.  False at the end of the connection or
// on a verb the server will not take.
bool ReadVerb(int fd, std::vector<unsigned char>* v) {
  v->assign(VERB_EXT_HDR_LEN, 0);
  if (!ReadN(fd, v->data(), VERB_SHORT_HDR_LEN) || (*v)[3] != VERB_MAGIC) return false;
  uint32_t hdr = VERB_SHORT_HDR_LEN;
  if ((*v)[2] == VERB_EXTENDED) {
    if (!ReadN(fd, v->data() + 4, 8)) return false;
    hdr = VERB_EXT_HDR_LEN;
  }
  uint32_t len = verbLength(v->data());
  if (len < hdr || len > 64u * 1024 * 1024) return false;
  v->resize(len);
  return ReadN(fd, v->data() + hdr, len - hdr);
}

}  // namespace

TestServer::TestServer() {
  listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = 0;
  socklen_t len = sizeof a;
  if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
      ::listen(listenFd_, 16) != 0 ||
      ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&a), &len) != 0 ||
      ::pipe(stopPipe_) != 0) {
    std::perror("test server");
    std::abort();
  }
  port_ = ntohs(a.sin_port);
  serverMap_ = MapOf({0, 1, 2, 4, 20, 23});
  acceptThread_ = std::thread([this] { AcceptLoop(); });
}

TestServer::~TestServer() {
  char b = 1;
  (void)!::write(stopPipe_[1], &b, 1);
  acceptThread_.join();
  {
    std::lock_guard<std::mutex> g(mu_);
    for (int fd : fds_) ::shutdown(fd, SHUT_RDWR);
  }
  for (auto& t : threads_) t.join();
  ::close(listenFd_);
  ::close(stopPipe_[0]);
  ::close(stopPipe_[1]);
}

std::vector<unsigned char> TestServer::MapOf(const std::vector<unsigned>& caps) {
  std::vector<unsigned char> m;
  for (unsigned n : caps) {
    if (m.size() <= n / 8) m.resize(n / 8 + 1, 0);
    m[n / 8] |= static_cast<unsigned char>(0x80u >> (n % 8));
  }
  return m;
}

void TestServer::AddNode(const std::string& node, const std::string& password, bool expired,
                         uint32_t iterations) {
  Node n;
  n.salt.resize(AUTH_SALT_LEN);
  authRandom(n.salt.data(), n.salt.size());
  n.iterations = iterations;
  authDeriveVerifier(password, n.salt.data(), n.salt.size(), iterations, &n.verifier);
  n.expired = expired;
  std::lock_guard<std::mutex> g(mu_);
  nodes_[node] = n;
}

void TestServer::SetExpired(const std::string& node, bool expired) {
  std::lock_guard<std::mutex> g(mu_);
  nodes_[node].expired = expired;
}

bool TestServer::PasswordIs(const std::string& node, const std::string& password) {
  std::lock_guard<std::mutex> g(mu_);
  auto it = nodes_.find(node);
  if (it == nodes_.end()) return false;
  authVerifier_t v;
  authDeriveVerifier(password, it->second.salt.data(), it->second.salt.size(),
                     it->second.iterations, &v);
  return v == it->second.verifier;
}

std::vector<unsigned char> TestServer::SaltOf(const std::string& node) {
  std::lock_guard<std::mutex> g(mu_);
  return nodes_[node].salt;
}

void TestServer::SetFault(Fault f) {
  std::lock_guard<std::mutex> g(mu_);
  fault_ = f;
}

TestServer::Fault TestServer::TakeFault() {
  std::lock_guard<std::mutex> g(mu_);
  Fault f = fault_;
  fault_ = Fault::None;
  return f;
}

bool TestServer::TakeFaultIf(Fault f) {
  std::lock_guard<std::mutex> g(mu_);
  if (fault_ != f) return false;
  fault_ = Fault::None;
  return true;
}

void TestServer::SetServerCaps(const std::vector<unsigned>& caps) {
  std::lock_guard<std::mutex> g(mu_);
  serverMap_ = MapOf(caps);
}

void TestServer::SetAgentCaps(const std::vector<unsigned>& caps) {
  std::lock_guard<std::mutex> g(mu_);
  agentMap_ = MapOf(caps);
}

int TestServer::OpenServerInitiated() {
  int sv[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0) return -1;
  std::lock_guard<std::mutex> g(mu_);
  fds_.push_back(sv[1]);
  threads_.emplace_back([this, fd = sv[1]] { Serve(fd, true); });
  return sv[0];
}

void TestServer::AcceptLoop() {
  for (;;) {
    pollfd p[2] = {{listenFd_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
    if (::poll(p, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (p[1].revents != 0) return;
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    ++connections_;
    std::lock_guard<std::mutex> g(mu_);
    fds_.push_back(fd);
    threads_.emplace_back([this, fd] { Serve(fd, false); });
  }
}

void TestServer::Serve(int fd, bool identify) {
  Conn c;
  c.fd = fd;
  if (identify) {
    const std::string name = "TESTSRV";
    std::vector<unsigned char> v(VERB_SHORT_HDR_LEN + 1 + name.size());
    v[VERB_SHORT_HDR_LEN] = static_cast<unsigned char>(name.size());
    std::memcpy(v.data() + VERB_SHORT_HDR_LEN + 1, name.data(), name.size());
    verbSetShortHdr(v.data(), VB_Identify, static_cast<uint16_t>(v.size()));
    WriteN(fd, v.data(), v.size());
  }
  std::vector<unsigned char> verb;
  while (ReadVerb(fd, &verb)) {
    if (verbType(verb.data()) == VB_CRC) {
      if (verb.size() != VERB_CRC_LEN) break;
      uint32_t want = GetFour(verb.data() + VERB_CRC_OFF_VALUE);
      uint32_t wantType = GetFour(verb.data() + VERB_CRC_OFF_TYPE);
      if (!ReadVerb(fd, &verb)) break;
      uint32_t got = crc32Update(0, verb.data(), verb.size());
      if (got == want && wantType == verbType(verb.data())) {
        ++crcGood_;
      } else {
        ++crcBad_;
      }
    }
    if (!Handle(c, verb)) break;
  }
  ::shutdown(fd, SHUT_RDWR);
  std::lock_guard<std::mutex> g(mu_);
  for (auto& f : fds_)
    if (f == fd) f = -1;
  ::close(fd);
}

bool TestServer::Answer(Conn& c, const std::vector<unsigned char>& verb, bool echo) {
  Fault f = echo ? TakeFault() : Fault::None;
  std::vector<unsigned char> out = verb;
  switch (f) {
    case Fault::BadMagic:
      out[3] = 0xA4;
      break;
    case Fault::OversizedVerb:
      out.assign(32769, 0x5A);
      verbSetShortHdr(out.data(), VB_Echo, 32769);
      break;
    case Fault::DropConnection:
      return false;
    case Fault::ShortRead:
      WriteN(c.fd, out.data(), out.size() / 2);
      return false;
    default:
      break;
  }
  if (echo && (sendCrc_ || f == Fault::WrongChecksum)) {
    // One write for both verbs, as a real server would send them.
    unsigned char crc[VERB_CRC_LEN];
    verbBuildCRC(out.data(), crc);
    if (f == Fault::WrongChecksum) crc[VERB_CRC_OFF_VALUE] ^= 0x01;
    out.insert(out.begin(), crc, crc + VERB_CRC_LEN);
  }
  return WriteN(c.fd, out.data(), out.size());
}

bool TestServer::Handle(Conn& c, std::vector<unsigned char>& verb) {
  uint32_t type = verbType(verb.data());
  switch (type) {
    case VB_SignOn:
    case VB_SignOnEnhanced: {
      soSignOn_t req;
      if (soParseSignOn(verb.data(), &req) != 0) return false;
      ++signOns_;
      if (req.enhanced) ++enhancedSignOns_;
      soSignOnResp_t resp;
      resp.enhanced = req.enhanced;
      resp.version = 8;
      resp.release = 1;
      resp.level = 2;
      resp.serverName = "TESTSRV";
      authRandom(c.serverNonce.data(), c.serverNonce.size());
      resp.nonce = c.serverNonce;
      {
        std::lock_guard<std::mutex> g(mu_);
        auto it = nodes_.find(req.node);
        resp.result = signOnResult_ != 0 ? signOnResult_.load() : (it == nodes_.end() ? 137 : 0);
        if (it != nodes_.end()) {
          resp.salt = it->second.salt;
          resp.iterations = it->second.iterations;
          if (it->second.expired) resp.flags |= SO_RESP_PSWD_EXPIRED;
        } else {
          resp.salt.assign(AUTH_SALT_LEN, 0);
          resp.iterations = AUTH_ITERATIONS_MIN;
        }
        resp.serverMap = serverMap_;
        resp.agentMap = agentMap_;
      }
      if (req.flags & SO_REQ_LARGE_BUFFERS) resp.flags |= SO_RESP_LARGE_BUFFERS;
      c.node = req.node;
      soBytes_t answer = soBuildSignOnResp(resp);
      if (TakeFaultIf(Fault::Malformed)) {
        // A consistent header around fields that end too early.
        answer.resize(answer.size() - 20);
        verbSetHdr(answer.data(), verbType(answer.data()), static_cast<uint32_t>(answer.size()));
      }
      return Answer(c, answer, false);
    }
    case VB_Authenticate: {
      soAuthenticate_t req;
      if (soParseAuthenticate(verb.data(), &req) != 0) return false;
      soAuthResult_t res;
      authVerifier_t v{};
      bool known = false;
      {
        std::lock_guard<std::mutex> g(mu_);
        auto it = nodes_.find(c.node);
        if (it != nodes_.end()) {
          v = it->second.verifier;
          known = true;
        }
      }
      authMac_t expect;
      c.clientNonce = req.clientNonce;
      bool ok = known && authClientResponse(v, c.serverNonce, req.clientNonce, c.node, &expect) &&
                authMacEqual(expect, req.response) && !TakeFaultIf(Fault::RejectAuth);
      if (ok) {
        ++authOk_;
        c.authenticated = true;
        authServerProof(v, c.serverNonce, req.clientNonce, c.node, &res.proof);
        if (TakeFaultIf(Fault::WrongProof)) res.proof[0] ^= 0x80;
      } else {
        ++authRejected_;
        res.result = 137;
      }
      return Answer(c, soBuildAuthResult(res), false);
    }
    case VB_UpdVerifier: {
      soUpdVerifier_t req;
      if (soParseUpdVerifier(verb.data(), &req) != 0) return false;
      uint16_t result = 137;
      if (c.authenticated) {
        std::lock_guard<std::mutex> g(mu_);
        Node& n = nodes_[c.node];
        authVerifier_t nv;
        if (authOpenVerifier(n.verifier, c.serverNonce, c.clientNonce, c.node, req.iv, req.cipher,
                             req.tag, &nv)) {
          n.verifier = nv;
          n.salt = req.salt;
          n.iterations = req.iterations;
          n.expired = false;
          result = 0;
          ++updates_;
        }
      }
      return Answer(c, soBuildUpdVerifierResp(result), false);
    }
    case VB_SignOff:
      return false;
    default:
      ++echoed_;
      return Answer(c, verb, true);
  }
}

sessSettings_t testSettings(uint16_t port, const std::string& node) {
  sessSettings_t s;
  s.comm.address = "127.0.0.1";
  s.comm.port = port;
  s.comm.connectTimeoutMs = 3000;
  s.comm.readTimeoutMs = 5000;
  s.comm.restartDurationMs = 0;
  s.serverName = "TESTSRV";
  s.nodeName = node;
  s.canPrompt = false;
  return s;
}
