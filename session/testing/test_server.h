// A small storage server for the session tests.
//
// It listens on 127.0.0.1 at an ephemeral port, serves every connection on a
// thread of its own, speaks the sign-on, authentication and verifier-update
// verbs, and echoes every other verb back unchanged (a client's sign-off
// ends the connection).  It checks the client's checksum verbs and can put
// its own in front of its answers.  It can be told to misbehave once, on its
// next answer: see Fault.
//
// Thread safety: the configuration and statistics calls may be made from the
// test's thread while connections are served.
#ifndef QMX_SESSION_TESTING_TEST_SERVER_H_
#define QMX_SESSION_TESTING_TEST_SERVER_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "session/auth.h"
#include "session/sess.h"

class TestServer {
 public:
  enum class Fault {
    None,
    BadMagic,        // the answer's magic byte is 0xA4
    OversizedVerb,   // the answer claims 32,769 bytes
    WrongChecksum,   // the answer is preceded by a checksum verb that does not fit
    DropConnection,  // the connection is closed instead of answering
    ShortRead,       // half the answer, then the connection is closed
    RejectAuth,      // the next authentication is refused whatever the password
    WrongProof,      // the next authentication is accepted with a false proof
    Malformed,       // the next sign-on answer is cut short inside its fields
  };

  TestServer();
  ~TestServer();
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  uint16_t port() const { return port_; }

  // Registers a node with |password| (stored only as its verifier).
  void AddNode(const std::string& node, const std::string& password, bool expired = false,
               uint32_t iterations = AUTH_ITERATIONS_MIN);
  void SetExpired(const std::string& node, bool expired);
  // Whether |password| is the node's password now.
  bool PasswordIs(const std::string& node, const std::string& password);
  // The node's salt and iteration count (to prepare stored records).
  std::vector<unsigned char> SaltOf(const std::string& node);

  void SetFault(Fault f);
  // Capabilities the server (and its storage agent) announces.
  void SetServerCaps(const std::vector<unsigned>& caps);
  void SetAgentCaps(const std::vector<unsigned>& caps);
  // Put a checksum verb in front of every echoed answer.
  void SetSendChecksums(bool on) { sendCrc_ = on; }
  // Answer sign-on with a result code instead (0 = normal).
  void SetSignOnResult(uint16_t rc) { signOnResult_ = rc; }

  // A connection the server opened, as the scheduler would hand it over: the
  // server side is served like an accepted one and first names the server.
  // Returns the client's socket, or -1.
  int OpenServerInitiated();

  // Statistics.
  int connections() const { return connections_; }
  int echoed() const { return echoed_; }
  int checksumsGood() const { return crcGood_; }
  int checksumsBad() const { return crcBad_; }
  int authOk() const { return authOk_; }
  int authRejected() const { return authRejected_; }
  int verifierUpdates() const { return updates_; }
  int signOns() const { return signOns_; }
  int enhancedSignOns() const { return enhancedSignOns_; }

 private:
  struct Node {
    std::vector<unsigned char> salt;
    uint32_t iterations = 0;
    authVerifier_t verifier{};
    bool expired = false;
  };
  struct Conn;

  void AcceptLoop();
  void Serve(int fd, bool identify);
  bool Handle(Conn& c, std::vector<unsigned char>& verb);
  bool Answer(Conn& c, const std::vector<unsigned char>& verb, bool echo);
  Fault TakeFault();
  // Takes the pending fault only when it is |f|.
  bool TakeFaultIf(Fault f);
  static std::vector<unsigned char> MapOf(const std::vector<unsigned>& caps);

  int listenFd_ = -1;
  int stopPipe_[2] = {-1, -1};
  uint16_t port_ = 0;
  std::thread acceptThread_;
  std::mutex mu_;
  std::vector<std::thread> threads_;
  std::vector<int> fds_;
  std::map<std::string, Node> nodes_;
  Fault fault_ = Fault::None;
  std::vector<unsigned char> serverMap_, agentMap_;
  std::atomic<bool> sendCrc_{false};
  std::atomic<uint16_t> signOnResult_{0};
  std::atomic<int> connections_{0}, echoed_{0}, crcGood_{0}, crcBad_{0}, authOk_{0},
      authRejected_{0}, updates_{0}, signOns_{0}, enhancedSignOns_{0};
};

// Session settings that reach |port| on the loopback address, with short
// time-outs so that a test never waits long, and no prompting.
sessSettings_t testSettings(uint16_t port, const std::string& node = "NODE1");

#endif  // QMX_SESSION_TESTING_TEST_SERVER_H_
