// Password verifiers and the challenge-response of authentication.
//
// The password never leaves the client.  The server keeps, per node, a salt,
// an iteration count and a verifier:
//   verifier = PBKDF2-HMAC-SHA-256(password, salt, iterations), 32 bytes.
// At sign-on the server sends the salt, the iteration count and a fresh
// 32-byte nonce.  The client answers with its own nonce and
//   response = HMAC-SHA-256(verifier, "QAU1" | serverNonce | clientNonce | node)
// and the server proves that it knows the verifier too with
//   proof = HMAC-SHA-256(verifier, "QSV1" | clientNonce | serverNonce | node).
// A listener sees only values bound to this one pair of nonces, which it
// cannot replay on another connection.
//
// A new verifier (password change) travels sealed with AES-256-GCM under
//   key = HMAC-SHA-256(oldVerifier, "QUP1" | serverNonce | clientNonce)
// with the node name as additional data, so it is neither readable nor
// alterable on the wire, and useless on any other connection.
//
// All cryptography comes from libcrypto.  Thread safety: the functions keep
// no state.
#ifndef QMX_SESSION_AUTH_H_
#define QMX_SESSION_AUTH_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

constexpr size_t AUTH_VERIFIER_LEN = 32;
constexpr size_t AUTH_NONCE_LEN = 32;
constexpr size_t AUTH_MAC_LEN = 32;
constexpr size_t AUTH_SALT_LEN = 16;
constexpr size_t AUTH_SALT_MAX = 64;
constexpr size_t AUTH_IV_LEN = 12;
constexpr size_t AUTH_TAG_LEN = 16;

// Iteration counts: what the client uses for new verifiers, and the least it
// accepts from a server (a lower count would make a stolen verifier cheap to
// attack, so a server asking for one is refused).
constexpr uint32_t AUTH_ITERATIONS_DEFAULT = 100000;
constexpr uint32_t AUTH_ITERATIONS_MIN = 1000;
constexpr uint32_t AUTH_ITERATIONS_MAX = 10000000;

using authVerifier_t = std::array<unsigned char, AUTH_VERIFIER_LEN>;
using authNonce_t = std::array<unsigned char, AUTH_NONCE_LEN>;
using authMac_t = std::array<unsigned char, AUTH_MAC_LEN>;

// Each returns true on success; false only when libcrypto fails.
bool authDeriveVerifier(const std::string& password, const unsigned char* salt, size_t saltLen,
                        uint32_t iterations, authVerifier_t* out);
bool authRandom(unsigned char* buf, size_t len);

bool authClientResponse(const authVerifier_t& v, const authNonce_t& serverNonce,
                        const authNonce_t& clientNonce, const std::string& node, authMac_t* out);
bool authServerProof(const authVerifier_t& v, const authNonce_t& serverNonce,
                     const authNonce_t& clientNonce, const std::string& node, authMac_t* out);

// Compares two MACs in constant time.
bool authMacEqual(const authMac_t& a, const authMac_t& b);

// Seals |newVerifier| for the server (iv, ciphertext and tag out).
bool authSealVerifier(const authVerifier_t& oldVerifier, const authNonce_t& serverNonce,
                      const authNonce_t& clientNonce, const std::string& node,
                      const authVerifier_t& newVerifier, unsigned char iv[AUTH_IV_LEN],
                      unsigned char cipher[AUTH_VERIFIER_LEN], unsigned char tag[AUTH_TAG_LEN]);
// Opens a sealed verifier; false when it was altered or sealed under another
// key.
bool authOpenVerifier(const authVerifier_t& oldVerifier, const authNonce_t& serverNonce,
                      const authNonce_t& clientNonce, const std::string& node,
                      const unsigned char iv[AUTH_IV_LEN],
                      const unsigned char cipher[AUTH_VERIFIER_LEN],
                      const unsigned char tag[AUTH_TAG_LEN], authVerifier_t* newVerifier);

// Wipes secrets so that they do not linger in freed memory.
void authWipe(void* p, size_t len);

// A new random password of |len| printable characters (for passwords the
// client generates itself).  Empty when the random source fails.
std::string authGeneratePassword(size_t len);

#endif  // QMX_SESSION_AUTH_H_
