#include "session/tcp_comm.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>
#include <vector>

namespace {

// A loopback listener of one family; port 0 picks a free port.
struct Listener {
  int fd = -1;
  uint16_t port = 0;
  explicit Listener(int family, bool listenNow = true) {
    fd = ::socket(family, SOCK_STREAM, 0);
    sockaddr_storage ss{};
    socklen_t len;
    if (family == AF_INET6) {
      auto* a = reinterpret_cast<sockaddr_in6*>(&ss);
      a->sin6_family = AF_INET6;
      a->sin6_addr = in6addr_loopback;
      len = sizeof *a;
    } else {
      auto* a = reinterpret_cast<sockaddr_in*>(&ss);
      a->sin_family = AF_INET;
      a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      len = sizeof *a;
    }
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&ss), len) != 0) {
      if (fd >= 0) ::close(fd);
      fd = -1;
      return;
    }
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len);
    port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&ss)->sin6_port
                                    : reinterpret_cast<sockaddr_in*>(&ss)->sin_port);
    if (listenNow) ::listen(fd, 4);
  }
  ~Listener() {
    if (fd >= 0) ::close(fd);
  }
};

commObj_t Client(const char* addr, uint16_t port) {
  commObj_t c;
  c.info.address = addr;
  c.info.port = port;
  c.info.connectTimeoutMs = 2000;
  c.info.readTimeoutMs = 5000;
  c.info.bufferSize = 1024;
  EXPECT_EQ(0, commSelectMethod(&c, COMM_TCPIP));
  EXPECT_EQ(0, c.commFunc.commLoad(&c, COMM_TCPIP));
  return c;
}

TEST(TcpComm, ShortTransfersAreCompletedBothWays) {
  Listener l(AF_INET);
  ASSERT_GE(l.fd, 0);
  commObj_t c = Client("127.0.0.1", l.port);
  ASSERT_EQ(0, c.commFunc.commOpen(&c));
  int peer = ::accept(l.fd, nullptr, nullptr);
  ASSERT_GE(peer, 0);
  // Tiny receive buffer on the peer side forces partial sends.
  std::vector<unsigned char> big(4 << 20);
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 31);
  std::vector<unsigned char> got(big.size());
  std::thread reader([&] {
    size_t off = 0;
    while (off < got.size()) {
      ssize_t r = ::recv(peer, got.data() + off, std::min<size_t>(777, got.size() - off), 0);
      if (r <= 0) break;
      off += static_cast<size_t>(r);
    }
  });
  ASSERT_EQ(0, c.commFunc.commWrite(&c, big.data(), static_cast<uint32_t>(big.size())));
  ASSERT_EQ(0, c.commFunc.commFlush(&c));
  reader.join();
  EXPECT_EQ(big, got);

  // The peer dribbles a message out a byte at a time.
  std::thread writer([&] {
    for (size_t i = 0; i < 3000; ++i) ::send(peer, &big[i], 1, MSG_NOSIGNAL);
  });
  std::vector<unsigned char> in(3000);
  ASSERT_EQ(0, c.commFunc.commRead(&c, in.data(), 1000));
  ASSERT_EQ(0, c.commFunc.commRead(&c, in.data() + 1000, 2000));
  writer.join();
  EXPECT_TRUE(std::equal(in.begin(), in.end(), big.begin()));

  ::close(peer);
  EXPECT_EQ(COMM_RC_LOST, c.commFunc.commRead(&c, in.data(), 1));
  c.commFunc.commUnload(&c);
  EXPECT_EQ(nullptr, c.methodState);
}

void OnUsr1(int) {}

TEST(TcpComm, ReadsSurviveSignals) {
  struct sigaction sa {};
  sa.sa_handler = OnUsr1;  // no SA_RESTART: blocking calls see EINTR
  struct sigaction old {};
  ::sigaction(SIGUSR1, &sa, &old);
  Listener l(AF_INET);
  commObj_t c = Client("127.0.0.1", l.port);
  c.info.readTimeoutMs = 0;  // block in recv itself
  ASSERT_EQ(0, c.commFunc.commOpen(&c));
  int peer = ::accept(l.fd, nullptr, nullptr);
  std::atomic<bool> started{false};
  unsigned char buf[8] = {};
  int rc = -1;
  pthread_t self{};
  std::thread reader([&] {
    self = pthread_self();
    started = true;
    rc = c.commFunc.commRead(&c, buf, sizeof buf);
  });
  while (!started) std::this_thread::yield();
  for (int i = 0; i < 5; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    pthread_kill(self, SIGUSR1);
  }
  ::send(peer, "abcdefgh", 8, MSG_NOSIGNAL);
  reader.join();
  EXPECT_EQ(0, rc);
  EXPECT_EQ(0, std::memcmp(buf, "abcdefgh", 8));
  ::close(peer);
  c.commFunc.commUnload(&c);
  ::sigaction(SIGUSR1, &old, nullptr);
}

TEST(TcpComm, RestartPolicyKeepsTrying) {
  // Bound but not yet listening: connections are refused until it listens.
  Listener l(AF_INET, false);
  ASSERT_GE(l.fd, 0);
  commObj_t once = Client("127.0.0.1", l.port);
  EXPECT_EQ(COMM_RC_CONNECT, once.commFunc.commOpen(&once));
  EXPECT_EQ(1, once.openAttempts);
  EXPECT_EQ(ECONNREFUSED, once.lastErrno);
  once.commFunc.commUnload(&once);

  commObj_t c = Client("127.0.0.1", l.port);
  c.info.restartDurationMs = 20000;
  c.info.restartIntervalMs = 20;
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    ::listen(l.fd, 4);
  });
  EXPECT_EQ(0, c.commFunc.commOpen(&c));
  later.join();
  EXPECT_GT(c.openAttempts, 1);
  c.commFunc.commUnload(&c);
}

// "localhost" may resolve to ::1 before 127.0.0.1: every address is tried
// in turn until one answers.
TEST(TcpComm, EveryAddressOfANameIsTried) {
  Listener l(AF_INET);
  commObj_t c = Client("localhost", l.port);
  ASSERT_EQ(0, c.commFunc.commOpen(&c));
  EXPECT_GE(c.openAttempts, 1);
  c.commFunc.commUnload(&c);
}

TEST(TcpComm, IPv6Loopback) {
  Listener l6(AF_INET6);
  if (l6.fd < 0) GTEST_SKIP() << "no IPv6 loopback here";
  commObj_t c = Client("::1", l6.port);
  ASSERT_EQ(0, c.commFunc.commOpen(&c));
  int peer = ::accept(l6.fd, nullptr, nullptr);
  EXPECT_GE(peer, 0);
  sockaddr_storage ss{};
  socklen_t len = sizeof ss;
  ::getsockname(tcpSocketOf(&c), reinterpret_cast<sockaddr*>(&ss), &len);
  EXPECT_EQ(AF_INET6, ss.ss_family);
  ::close(peer);
  c.commFunc.commUnload(&c);
}

TEST(TcpComm, UnusableSettingsAreCleanFailures) {
  commObj_t c;
  EXPECT_EQ(COMM_RC_METHOD, commSelectMethod(&c, COMM_SHAREDMEM));
  EXPECT_EQ(nullptr, c.commFunc.commOpen);
  ASSERT_EQ(0, commSelectMethod(&c, COMM_TCPIP));
  unsigned char b[1];
  EXPECT_EQ(COMM_RC_METHOD, c.commFunc.commRead(&c, b, 1));  // not loaded
  EXPECT_EQ(COMM_RC_METHOD, c.commFunc.commLoad(&c, COMM_SHAREDMEM));
  commObj_t bad = Client("", 1500);  // no address at all
  EXPECT_EQ(COMM_RC_ADDRESS, bad.commFunc.commOpen(&bad));
  bad.commFunc.commUnload(&bad);
  EXPECT_STREQ("TCPIP", commMethodName(COMM_TCPIP));
}

}  // namespace
