// Wire layouts of the sign-on, authentication and verifier-update verbs.
//
// Offsets are from the start of the body, which follows the verb header
// (4 bytes for short verbs, 12 for extended ones).  "str" is a 1-byte length
// followed by that many bytes (no terminator); "bytes" likewise.  Integers
// are big-endian.  A verb whose fields run past its end, or past the limits
// below, is malformed: the reader answers SO_RC_MALFORMED
// (session/sess_status.h).
//
// SignOn (short 0x12), client to server, older sign-on:
//   0  1   layout version (1)
//   1  str node name (1..64)
//   .  str platform (0..64)
// SignOnResp (short 0x13):
//   0  2   result: 0 accepted, 137 node unknown or locked, else refused
//   2  1   flags: 0x01 password expired
//   3  bytes salt (1..64)
//   .  4   verifier iteration count
//   .  32  server nonce
//   .  str server name (0..64)
//   .  bytes server capability map (0..32)
//
// SignOnEnhanced (extended 0x10000), client to server:
//   0  1   layout version (1)
//   1  2,2,2 client version, release, level
//   7  1   flags: 0x01 large buffers wanted, 0x02 checksums wanted
//   8  str node name (1..64)
//   .  str platform (0..64)
//   .  bytes client capability map (0..32)
// SignOnEResp (extended 0x10001):
//   0  2   result, as in SignOnResp
//   2  1   flags: 0x01 password expired, 0x02 large buffers granted
//   3  2,2,2 server version, release, level
//   9  bytes salt (1..64)
//   .  4   verifier iteration count
//   .  32  server nonce
//   .  str server name (0..64)
//   .  bytes server capability map (0..32)
//   .  bytes storage agent capability map (0..32; empty without an agent)
//
// Authenticate (extended 0x10002), client to server:
//   0  32  client nonce
//   32 32  response (see auth.h)
// AuthResult (extended 0x10003):
//   0  2   result: 0 authenticated, 137 rejected
//   2  32  server proof (see auth.h); zeros when rejected
//
// UpdVerifier (extended 0x10004), client to server, after Authenticate:
//   0  bytes new salt (1..64)
//   .  4   new iteration count
//   .  12  nonce of the seal
//   .  32  sealed new verifier
//   .  16  seal tag
// UpdVerifierResp (extended 0x10005):
//   0  2   result: 0 stored, 137 refused
//
// Thread safety: pure functions.
#ifndef QMX_SESSION_SIGNON_VERBS_H_
#define QMX_SESSION_SIGNON_VERBS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "session/auth.h"
#include "session/sess_status.h"

constexpr size_t SO_NAME_MAX = 64;
constexpr size_t SO_MAP_MAX = 32;

enum : uint8_t {
  SO_REQ_LARGE_BUFFERS = 0x01,
  SO_REQ_CHECKSUMS = 0x02,
  SO_RESP_PSWD_EXPIRED = 0x01,
  SO_RESP_LARGE_BUFFERS = 0x02,
};

using soBytes_t = std::vector<unsigned char>;

struct soSignOn_t {
  bool enhanced = true;
  uint16_t version = 0, release = 0, level = 0;  // enhanced only
  uint8_t flags = 0;                             // enhanced only
  std::string node;
  std::string platform;
  soBytes_t clientMap;  // enhanced only
};

struct soSignOnResp_t {
  bool enhanced = true;
  uint16_t result = 0;
  uint8_t flags = 0;
  uint16_t version = 0, release = 0, level = 0;  // enhanced only
  soBytes_t salt;
  uint32_t iterations = 0;
  authNonce_t nonce{};
  std::string serverName;
  soBytes_t serverMap;
  soBytes_t agentMap;  // enhanced only
};

struct soAuthenticate_t {
  authNonce_t clientNonce{};
  authMac_t response{};
};

struct soAuthResult_t {
  uint16_t result = 0;
  authMac_t proof{};
};

struct soUpdVerifier_t {
  soBytes_t salt;
  uint32_t iterations = 0;
  unsigned char iv[AUTH_IV_LEN] = {};
  unsigned char cipher[AUTH_VERIFIER_LEN] = {};
  unsigned char tag[AUTH_TAG_LEN] = {};
};

// Builders return the whole verb, header included.  Over-long names and maps
// are the caller's error: they are cut to the limits above.
soBytes_t soBuildSignOn(const soSignOn_t& in);
soBytes_t soBuildSignOnResp(const soSignOnResp_t& in);
soBytes_t soBuildAuthenticate(const soAuthenticate_t& in);
soBytes_t soBuildAuthResult(const soAuthResult_t& in);
soBytes_t soBuildUpdVerifier(const soUpdVerifier_t& in);
soBytes_t soBuildUpdVerifierResp(uint16_t result);

// Parsers take a whole verb (header included) and check its type.  They
// return 0 or SO_RC_MALFORMED.
int soParseSignOn(const unsigned char* verb, soSignOn_t* out);
int soParseSignOnResp(const unsigned char* verb, soSignOnResp_t* out);
int soParseAuthenticate(const unsigned char* verb, soAuthenticate_t* out);
int soParseAuthResult(const unsigned char* verb, soAuthResult_t* out);
int soParseUpdVerifier(const unsigned char* verb, soUpdVerifier_t* out);
int soParseUpdVerifierResp(const unsigned char* verb, uint16_t* result);

#endif  // QMX_SESSION_SIGNON_VERBS_H_
