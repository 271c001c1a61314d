#include "session/crc32.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

// The byte-at-a-time recurrence, straight from its definition.
uint32_t Reference(const unsigned char* p, size_t n) {
  uint32_t table[256];
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t r = i << 24;
    for (int b = 0; b < 8; ++b) r = (r & 0x80000000u) ? (r << 1) ^ 0x04C11DB7u : r << 1;
    table[i] = r;
  }
  uint32_t v = 0;
  for (size_t i = 0; i < n; ++i) v = (v << 8) ^ table[(v >> 24) ^ p[i]];
  return v;
}

TEST(Crc32, KnownValuesAndTable) {
  const unsigned char* digits = reinterpret_cast<const unsigned char*>("123456789");
  uint32_t v = 0;
  ASSERT_EQ(0, nqb_crc_32(digits, 9, &v));
  EXPECT_EQ(0x89A1897Fu, v);
  EXPECT_EQ(0u, crc32TableEntry(0));
  EXPECT_EQ(0x04C11DB7u, crc32TableEntry(1));
  EXPECT_EQ(0xB1F740B4u, crc32TableEntry(255));
  // Starting from 0 without inversion, zero bytes leave the value at 0.
  unsigned char zeros[16] = {};
  ASSERT_EQ(0, nqb_crc_32(zeros, 16, &v));
  EXPECT_EQ(0u, v);
}

TEST(Crc32, MatchesTheRecurrenceAtEveryLengthAndAlignment) {
  std::mt19937 rng(7);
  std::vector<unsigned char> data(4096 + 16);
  for (auto& b : data) b = static_cast<unsigned char>(rng());
  for (size_t off = 0; off < 8; ++off)
    for (size_t len : {1u, 2u, 7u, 8u, 9u, 15u, 16u, 17u, 63u, 64u, 65u, 1000u, 4096u}) {
      uint32_t v = 0;
      ASSERT_EQ(0, nqb_crc_32(data.data() + off, static_cast<int32_t>(len), &v));
      EXPECT_EQ(Reference(data.data() + off, len), v) << "offset " << off << " length " << len;
    }
  // Continuing a checksum equals checksumming the whole.
  uint32_t whole = crc32Update(0, data.data(), 3000);
  EXPECT_EQ(whole, crc32Update(crc32Update(0, data.data(), 1234), data.data() + 1234, 1766));
}

TEST(Crc32, BadArgumentsLeaveTheResultAlone) {
  const unsigned char buf[4] = {1, 2, 3, 4};
  uint32_t v = 0xDEADBEEF;
  EXPECT_EQ(CRC_RC_NULL_BUFFER, nqb_crc_32(nullptr, 4, &v));
  EXPECT_EQ(CRC_RC_BAD_LENGTH, nqb_crc_32(buf, 0, &v));
  EXPECT_EQ(CRC_RC_BAD_LENGTH, nqb_crc_32(buf, -5, &v));
  EXPECT_EQ(CRC_RC_NO_RESULT, nqb_crc_32(buf, 4, nullptr));
  EXPECT_EQ(0xDEADBEEFu, v);
}

}  // namespace
