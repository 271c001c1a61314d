#include "session/verb.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "session/crc32.h"

namespace {

struct VerbName {
  uint32_t type;
  const char* name;
};

// Sorted by type: looked up by binary search.
constexpr VerbName kVerbNames[] = {
    {VB_Identify, "Identify"},
    {VB_SignOff, "SignOff"},
    {VB_Data, "Data"},
    {VERB_EXTENDED, "Extended"},
    {VB_SignOn, "SignOn"},
    {VB_SignOnResp, "SignOnResp"},
    {VB_Echo, "Echo"},
    {VB_EchoResp, "EchoResp"},
    {VB_Ping, "Ping"},
    {VB_PingResp, "PingResp"},
    {VB_DataExt, "DataExt"},
    {VB_BulkData, "BulkData"},
    {VB_SignOnEnhanced, "SignOnEnhanced"},
    {VB_SignOnEResp, "SignOnEResp"},
    {VB_Authenticate, "Authenticate"},
    {VB_AuthResult, "AuthResult"},
    {VB_UpdVerifier, "UpdVerifier"},
    {VB_UpdVerifierResp, "UpdVerifierResp"},
    {VB_ObjectData, "ObjectData"},
    {VB_CRC, "CRC"},
};

constexpr bool SortedByType() {
  for (size_t i = 1; i < std::size(kVerbNames); ++i)
    if (kVerbNames[i - 1].type >= kVerbNames[i].type) return false;
  return true;
}
static_assert(SortedByType(), "verb name table must be sorted by type");

}  // namespace

void verbSetShortHdr(unsigned char* v, uint8_t type, uint16_t totalLen) {
  SetTwo(v, totalLen);
  v[2] = type;
  v[3] = VERB_MAGIC;
}

void verbSetExtHdr(unsigned char* v, uint32_t extType, uint32_t totalLen) {
  SetTwo(v, 0);
  v[2] = VERB_EXTENDED;
  v[3] = VERB_MAGIC;
  SetFour(v + 4, extType);
  SetFour(v + 8, totalLen);
}

uint32_t verbSetHdr(unsigned char* v, uint32_t type, uint32_t totalLen) {
  if (type < 0x100 && type != VERB_EXTENDED && totalLen <= 0xFFFF) {
    verbSetShortHdr(v, static_cast<uint8_t>(type), static_cast<uint16_t>(totalLen));
    return VERB_SHORT_HDR_LEN;
  }
  verbSetExtHdr(v, type, totalLen);
  return VERB_EXT_HDR_LEN;
}

const char* trVerbType(uint32_t type) {
  const auto* end = std::end(kVerbNames);
  const auto* it = std::lower_bound(std::begin(kVerbNames), end, type,
                                    [](const VerbName& n, uint32_t t) { return n.type < t; });
  return (it != end && it->type == type) ? it->name : "Unknown";
}

int verbBuildCRC(const unsigned char* verb, unsigned char out[VERB_CRC_LEN]) {
  uint32_t len = verbLength(verb);
  if (len > 0x7FFFFFFFu) return CRC_RC_BAD_LENGTH;
  uint32_t crc = 0;
  int rc = nqb_crc_32(verb, static_cast<int32_t>(len), &crc);
  if (rc != 0) return rc;
  verbSetExtHdr(out, VB_CRC, VERB_CRC_LEN);
  out[12] = 0;
  SetFour(out + VERB_CRC_OFF_VALUE, crc);
  SetFour(out + VERB_CRC_OFF_TYPE, verbType(verb));
  return 0;
}
