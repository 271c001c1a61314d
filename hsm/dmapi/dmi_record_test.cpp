#include "hsm/dmapi/dmi_record.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

dmiInfo sample() {
  dmiInfo r{};
  for (size_t i = 0; i < dmiExtObjIdSize; ++i) r.extObjId.id[i] = static_cast<unsigned char>(i + 1);
  r.carried28 = 0x1122334455667788ULL;
  r.carried36 = 0x99AABBCCDDEEFF00ULL;
  r.dataSize = 123456;
  r.carried52 = 0xCAFEBABE;
  r.attr = dmiKnownUncompressed | dmiRecallStreaming;
  r.attr2 = 0x0BADF00D;
  r.migState = dmiStateMigrated;
  r.transition = 0;
  for (size_t i = 0; i < sizeof r.carried92; ++i)
    r.carried92[i] = static_cast<unsigned char>(0xF0 - i);
  return r;
}

uint32_t le32(const unsigned char* p) {
  return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
}

TEST(DmiRecord, FieldsSitAtTheirOffsetsLittleEndian) {
  unsigned char out[dmiObjSize];
  std::memset(out, 0xEE, sizeof out);
  dmiEncodeObj(sample(), out);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[27], 28);
  EXPECT_EQ(out[28], 0x88);  // low byte of the value at 28 first
  EXPECT_EQ(out[35], 0x11);
  EXPECT_EQ(le32(out + 44), 0u);
  EXPECT_EQ(le32(out + 48), 123456u);
  EXPECT_EQ(le32(out + 52), 0xCAFEBABEu);
  EXPECT_EQ(le32(out + 56), 0x204u);
  EXPECT_EQ(le32(out + 60), 0x0BADF00Du);
  EXPECT_EQ(le32(out + 72), 2u);
  EXPECT_EQ(le32(out + 76), 0u);
  EXPECT_EQ(le32(out + 88), 32u);
  EXPECT_EQ(out[92], 0xF0);
  EXPECT_EQ(out[123], 0xF0 - 31);
  for (size_t off : {64, 65, 70, 71, 80, 84, 87}) EXPECT_EQ(out[off], 0) << off;
}

TEST(DmiRecord, RoundTripKeepsEveryField) {
  dmiInfo in = sample();
  unsigned char buf[dmiObjSize];
  dmiEncodeObj(in, buf);
  dmiInfo out;
  ASSERT_EQ(dmiDecodeObj(buf, sizeof buf, &out), 0);
  EXPECT_EQ(std::memcmp(out.extObjId.id, in.extObjId.id, dmiExtObjIdSize), 0);
  EXPECT_EQ(out.carried28, in.carried28);
  EXPECT_EQ(out.carried36, in.carried36);
  EXPECT_EQ(out.dataSize, in.dataSize);
  EXPECT_EQ(out.carried52, in.carried52);
  EXPECT_EQ(out.attr, in.attr);
  EXPECT_EQ(out.attr2, in.attr2);
  EXPECT_EQ(out.migState, in.migState);
  EXPECT_EQ(out.transition, in.transition);
  EXPECT_EQ(std::memcmp(out.carried92, in.carried92, sizeof in.carried92), 0);

  EXPECT_EQ(dmiDecodeObj(buf, sizeof buf - 1, &out), -1);
  EXPECT_EQ(dmiDecodeObj(nullptr, sizeof buf, &out), -1);
}

TEST(DmiRecord, LargeSizeCountsItsHighHalfOnlyWithRecallModeEight) {
  const uint64_t fiveGiB = 5ULL << 30;
  dmiInfo in = sample();
  in.dataSize = fiveGiB;
  in.attr = dmiKnownUncompressed | dmiRecallPartial;
  unsigned char buf[dmiObjSize];
  dmiEncodeObj(in, buf);
  EXPECT_EQ(le32(buf + 44), 1u);
  dmiInfo out;
  ASSERT_EQ(dmiDecodeObj(buf, sizeof buf, &out), 0);
  EXPECT_EQ(out.dataSize, fiveGiB);

  // The same bytes with recall mode 0 read as the low half alone.
  in.attr = dmiKnownUncompressed | dmiRecallNormal;
  dmiEncodeObj(in, buf);
  EXPECT_EQ(le32(buf + 44), 1u);  // still written
  ASSERT_EQ(dmiDecodeObj(buf, sizeof buf, &out), 0);
  EXPECT_EQ(out.dataSize, fiveGiB & 0xFFFFFFFFULL);
  // Mode 8 needs the whole low byte: 0x108 is mode 8, 0x18 is not.
  in.attr = 0x18;
  dmiEncodeObj(in, buf);
  ASSERT_EQ(dmiDecodeObj(buf, sizeof buf, &out), 0);
  EXPECT_EQ(out.dataSize, fiveGiB & 0xFFFFFFFFULL);
}

TEST(DmiRecord, MigrationStateFollowsTheAttributes) {
  EXPECT_EQ(dmiMigState(nullptr, false), dmiStateResident);
  EXPECT_EQ(dmiMigState(nullptr, true), dmiStatePremigrated);
  dmiInfo r = sample();
  EXPECT_EQ(dmiMigState(&r, false), dmiStateMigrated);
  EXPECT_EQ(dmiMigState(&r, true), dmiStateMigrated);  // the record wins
  r.transition = 1;
  EXPECT_EQ(dmiMigState(&r, false), dmiStateInTransition);
  r.migState = 12;
  EXPECT_EQ(dmiMigState(&r, false), dmiStateTransition12);
  r.transition = 0;
  EXPECT_EQ(dmiMigState(&r, false), 12);
  r.migState = 7;
  EXPECT_EQ(dmiMigState(&r, false), 7);
}

TEST(DmiRecord, PartialRecallNeedsKnownUncompressedData) {
  EXPECT_TRUE(dmiPartialRecallAllowed(0x200));
  EXPECT_TRUE(dmiPartialRecallAllowed(0x204));
  EXPECT_FALSE(dmiPartialRecallAllowed(0x300));
  EXPECT_FALSE(dmiPartialRecallAllowed(0x100));
  EXPECT_FALSE(dmiPartialRecallAllowed(0x000));
}

}  // namespace
