#include "session/verb.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "session/crc32.h"

namespace {

TEST(VerbFields, BigEndianRoundTrip) {
  unsigned char b[4] = {};
  SetTwo(b, 0xA1B2);
  EXPECT_EQ(0xA1, b[0]);
  EXPECT_EQ(0xB2, b[1]);
  EXPECT_EQ(0xA1B2, GetTwo(b));
  SetFour(b, 0x01020304);
  EXPECT_EQ(0x01, b[0]);
  EXPECT_EQ(0x04, b[3]);
  EXPECT_EQ(0x01020304u, GetFour(b));
  SetFour(b, 0xFFFFFFFEu);
  EXPECT_EQ(0xFFFFFFFEu, GetFour(b));
}

TEST(VerbHeaders, ShortAndExtendedLayouts) {
  unsigned char v[12];
  EXPECT_EQ(4u, verbSetHdr(v, VB_Echo, 300));
  EXPECT_EQ(0x01, v[0]);
  EXPECT_EQ(0x2C, v[1]);
  EXPECT_EQ(VB_Echo, v[2]);
  EXPECT_EQ(0xA5, v[3]);
  EXPECT_FALSE(verbIsExtended(v));
  EXPECT_EQ(300u, verbLength(v));
  EXPECT_EQ(uint32_t{VB_Echo}, verbType(v));

  EXPECT_EQ(12u, verbSetHdr(v, VB_BulkData, 70000));
  const unsigned char expect[12] = {0, 0, 8, 0xA5, 0, 0, 0x1B, 0, 0, 0x01, 0x11, 0x70};
  EXPECT_EQ(0, std::memcmp(expect, v, 12));
  EXPECT_EQ(70000u, verbLength(v));
  EXPECT_EQ(uint32_t{VB_BulkData}, verbType(v));
  EXPECT_EQ(12u, verbHdrLength(v));

  // A short type too long for 16 bits goes into an extended header.
  EXPECT_EQ(12u, verbSetHdr(v, VB_Data, 70000));
  EXPECT_EQ(uint32_t{VB_Data}, verbType(v));
}

TEST(VerbNames, EveryTypeHasItsOwnName) {
  std::set<std::string> names;
  for (uint32_t t :
       {VB_Identify, VB_SignOff, VB_Data, VB_SignOn, VB_SignOnResp, VB_Echo, VB_EchoResp,
        VB_DataExt, VB_BulkData, VB_SignOnEnhanced, VB_SignOnEResp, VB_Authenticate, VB_AuthResult,
        VB_UpdVerifier, VB_UpdVerifierResp, VB_ObjectData, VB_CRC}) {
    std::string n = trVerbType(t);
    EXPECT_NE("Unknown", n) << t;
    EXPECT_TRUE(names.insert(n).second) << n;
  }
  EXPECT_STREQ("CRC", trVerbType(0x30000));
  EXPECT_STREQ("Unknown", trVerbType(0x99));
  EXPECT_STREQ("Unknown", trVerbType(0xFFFFFFFF));
}

TEST(VerbChecksum, ProtectsTheWholeVerbAndNamesItsType) {
  unsigned char verb[40];
  for (unsigned i = 0; i < sizeof verb; ++i) verb[i] = static_cast<unsigned char>(i * 7);
  verbSetExtHdr(verb, VB_ObjectData, sizeof verb);
  unsigned char crc[VERB_CRC_LEN];
  ASSERT_EQ(0, verbBuildCRC(verb, crc));
  EXPECT_EQ(uint32_t{VB_CRC}, verbType(crc));
  EXPECT_EQ(VERB_CRC_LEN, verbLength(crc));
  EXPECT_EQ(0, crc[12]);
  uint32_t expect = 0;
  ASSERT_EQ(0, nqb_crc_32(verb, sizeof verb, &expect));
  EXPECT_EQ(expect, GetFour(crc + VERB_CRC_OFF_VALUE));
  EXPECT_EQ(uint32_t{VB_ObjectData}, GetFour(crc + VERB_CRC_OFF_TYPE));

  verbSetShortHdr(verb, VB_Data, 10);
  ASSERT_EQ(0, verbBuildCRC(verb, crc));
  EXPECT_EQ(uint32_t{VB_Data}, GetFour(crc + VERB_CRC_OFF_TYPE));
  ASSERT_EQ(0, nqb_crc_32(verb, 10, &expect));
  EXPECT_EQ(expect, GetFour(crc + VERB_CRC_OFF_VALUE));

  verbSetShortHdr(verb, VB_Data, 0);  // a verb claiming no length cannot be protected
  EXPECT_EQ(CRC_RC_BAD_LENGTH, verbBuildCRC(verb, crc));
}

}  // namespace
