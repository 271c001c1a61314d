// Verb framing: the records that the client and the server exchange.
//
// Every verb starts with a header that gives its total length (header
// included), its type and the magic byte 0xA5.  The short header is 4 bytes:
//   0  2  total length
//   2  1  verb type (VERB_EXTENDED marks an extended verb)
//   3  1  magic 0xA5
// The extended header is 12 bytes:
//   0  2  0
//   2  1  VERB_EXTENDED
//   3  1  magic 0xA5
//   4  4  extended verb type
//   8  4  total length
// All multi-byte integers in verbs are big-endian.
//
// Thread safety: everything here is pure or reads constant tables.
#ifndef QMX_SESSION_VERB_H_
#define QMX_SESSION_VERB_H_

#include <cstddef>
#include <cstdint>

constexpr uint8_t VERB_MAGIC = 0xA5;
constexpr uint8_t VERB_EXTENDED = 8;
constexpr uint32_t VERB_SHORT_HDR_LEN = 4;
constexpr uint32_t VERB_EXT_HDR_LEN = 12;

// Longest verb accepted, by buffer size of the session.
constexpr uint32_t VERB_MAX_LEN = 32768;
constexpr uint32_t VERB_MAX_LEN_LARGE = 1048576;

// Verb types.  Short types are below 0x100, extended types from 0x100 up,
// so that one name table serves both.
enum : uint32_t {
  VB_Identify = 0x01,           // server-initiated session: server names itself
  VB_SignOff = 0x05,            // client ends the conversation
  VB_Data = 0x07,               // object data
  VB_SignOn = 0x12,             // older sign-on request
  VB_SignOnResp = 0x13,         // its answer
  VB_Echo = 0x20,               // answered by the server with the same body
  VB_EchoResp = 0x21,           // answer to VB_Echo
  VB_Ping = 0x22,               // keep-alive, answered by VB_PingResp
  VB_PingResp = 0x23,           //
  VB_DataExt = 0x100,           // object data, extended form
  VB_BulkData = 0x1B00,         // bulk transfer; exempt from the length limit
  VB_SignOnEnhanced = 0x10000,  // enhanced sign-on request
  VB_SignOnEResp = 0x10001,     // its answer
  VB_Authenticate = 0x10002,    // challenge response
  VB_AuthResult = 0x10003,      // outcome of the authentication
  VB_UpdVerifier = 0x10004,     // new password verifier
  VB_UpdVerifierResp = 0x10005,
  VB_ObjectData = 0x21000,  // object data with object id
  VB_CRC = 0x30000,         // checksum of the verb that follows
};

// Length of the checksum verb and the offsets of its fields.
constexpr uint32_t VERB_CRC_LEN = 21;
constexpr uint32_t VERB_CRC_OFF_VALUE = 13;
constexpr uint32_t VERB_CRC_OFF_TYPE = 17;

inline uint16_t GetTwo(const unsigned char* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline uint32_t GetFour(const unsigned char* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
inline void SetTwo(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}
inline void SetFour(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}

// Writes a short header for a verb of |type| (< 0x100, not VERB_EXTENDED)
// and |totalLen| bytes (4..65535) at |v|.
void verbSetShortHdr(unsigned char* v, uint8_t type, uint16_t totalLen);
// Writes an extended header for a verb of |extType| and |totalLen| bytes.
void verbSetExtHdr(unsigned char* v, uint32_t extType, uint32_t totalLen);
// Writes the header that fits: short when |type| < 0x100 and |totalLen| fits
// 16 bits, else extended.  Returns the header length (4 or 12).
uint32_t verbSetHdr(unsigned char* v, uint32_t type, uint32_t totalLen);

// Reading a header whose magic has been checked.  For an extended verb all
// 12 header bytes must be present.
inline bool verbIsExtended(const unsigned char* v) {
  return v[2] == VERB_EXTENDED;
}
inline uint32_t verbType(const unsigned char* v) {
  return verbIsExtended(v) ? GetFour(v + 4) : v[2];
}
inline uint32_t verbLength(const unsigned char* v) {
  return verbIsExtended(v) ? GetFour(v + 8) : GetTwo(v);
}
inline uint32_t verbHdrLength(const unsigned char* v) {
  return verbIsExtended(v) ? VERB_EXT_HDR_LEN : VERB_SHORT_HDR_LEN;
}

// The name of a verb type for trace lines; "Unknown" for types not in the
// table.  The pointer is to constant storage.
const char* trVerbType(uint32_t type);

// Builds the 21-byte checksum verb that protects |verb| into |out|.  Returns
// 0, or the checksum's error code when |verb| has no usable length.
int verbBuildCRC(const unsigned char* verb, unsigned char out[VERB_CRC_LEN]);

#endif  // QMX_SESSION_VERB_H_
