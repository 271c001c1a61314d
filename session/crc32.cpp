#include "session/crc32.h"

#include <array>
#include <cstring>

namespace {

constexpr uint32_t kPoly = 0x04C11DB7u;

// Slicing tables: kTables[0] is the reference table; kTables[k][i] is the
// remainder of byte i followed by k zero bytes.  Eight bytes are folded per
// step with eight independent look-ups, which gives the same result as the
// byte-at-a-time recurrence at several times its speed.
struct Tables {
  uint32_t t[8][256];
};

constexpr Tables MakeTables() {
  Tables tb{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t r = i << 24;
    for (int b = 0; b < 8; ++b) r = (r & 0x80000000u) ? (r << 1) ^ kPoly : (r << 1);
    tb.t[0][i] = r;
  }
  for (int k = 1; k < 8; ++k)
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t prev = tb.t[k - 1][i];
      tb.t[k][i] = (prev << 8) ^ tb.t[0][prev >> 24];
    }
  return tb;
}

constexpr Tables kTables = MakeTables();

inline uint32_t LoadBE32(const unsigned char* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

}  // namespace

uint32_t crc32TableEntry(unsigned i) {
  return kTables.t[0][i & 0xFF];
}

uint32_t crc32Update(uint32_t value, const unsigned char* buf, uint64_t len) {
  const auto& t = kTables.t;
  while (len >= 8) {
    uint32_t hi = value ^ LoadBE32(buf);
    uint32_t lo = LoadBE32(buf + 4);
    value = t[7][hi >> 24] ^ t[6][(hi >> 16) & 0xFF] ^ t[5][(hi >> 8) & 0xFF] ^ t[4][hi & 0xFF] ^
            t[3][lo >> 24] ^ t[2][(lo >> 16) & 0xFF] ^ t[1][(lo >> 8) & 0xFF] ^ t[0][lo & 0xFF];
    buf += 8;
    len -= 8;
  }
  while (len-- > 0) value = (value << 8) ^ t[0][(value >> 24) ^ *buf++];
  return value;
}

int nqb_crc_32(const unsigned char* buf, int32_t len, uint32_t* result) {
  if (buf == nullptr) return CRC_RC_NULL_BUFFER;
  if (len <= 0) return CRC_RC_BAD_LENGTH;
  if (result == nullptr) return CRC_RC_NO_RESULT;
  *result = crc32Update(0, buf, static_cast<uint64_t>(len));
  return 0;
}
