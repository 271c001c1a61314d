#include "hsm/dmapi/dmi_attrs.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(DmiAttrs, NamesAreZeroFilledAndCutAtEightBytes) {
  dm_attrname_t obj = dmiAttrName(DMI_ATTR_OBJ);
  EXPECT_EQ(std::memcmp(obj.an_chars, "KVRObj\0\0", 8), 0);
  dm_attrname_t longer = dmiAttrName("ABCDEFGHIJ");
  EXPECT_EQ(std::memcmp(longer.an_chars, "ABCDEFGH", 8), 0);
}

TEST(DmiAttrs, ExternalIdHexFormRoundTrips) {
  s_midExtObjId id;
  for (size_t i = 0; i < dmiExtObjIdSize; ++i) id.id[i] = static_cast<unsigned char>(i * 9 + 10);
  char hex[dmiExtIdHexSize];
  dmiExtObjIdToHex(id, hex);
  EXPECT_EQ(std::strlen(hex), 56u);
  EXPECT_EQ(std::string(hex, 6), "0A131C");
  s_midExtObjId back;
  ASSERT_EQ(dmiExtObjIdFromHex(hex, sizeof hex, &back), 0);
  EXPECT_EQ(std::memcmp(back.id, id.id, dmiExtObjIdSize), 0);

  std::string lower(hex);
  for (char& c : lower) c = static_cast<char>(std::tolower(c));
  ASSERT_EQ(dmiExtObjIdFromHex(lower.c_str(), 56, &back), 0);
  EXPECT_EQ(std::memcmp(back.id, id.id, dmiExtObjIdSize), 0);

  std::string bad(hex);
  bad[10] = 'g';
  EXPECT_EQ(dmiExtObjIdFromHex(bad.c_str(), bad.size() + 1, &back), -1);
  EXPECT_EQ(dmiExtObjIdFromHex(hex, 55, &back), -1);
  std::string trailing = std::string(hex) + "0";
  EXPECT_EQ(dmiExtObjIdFromHex(trailing.c_str(), trailing.size(), &back), -1);
}

TEST(DmiAttrs, ServerNameOfSixtyFourCharactersFits) {
  char value[dmiServNameSize];
  std::string name(64, 's');
  ASSERT_EQ(dmiServerNameValue(name.c_str(), value), 0);
  EXPECT_EQ(std::string(value, 64), name);
  EXPECT_EQ(value[64], '\0');
  ASSERT_EQ(dmiServerNameValue("SRV1", value), 0);
  EXPECT_EQ(std::memcmp(value, "SRV1\0\0\0", 7), 0);
  EXPECT_EQ(dmiServerNameValue(std::string(65, 's').c_str(), value), -1);
  EXPECT_EQ(dmiServerNameValue(nullptr, value), -1);
}

}  // namespace
