// The migration record "KVRObj" of a stub, and the migration state a file's
// attributes add up to.
//
// The attribute is 124 bytes, little-endian:
//    0  28  external object id of the server copy (as in "KVRPMig")
//   28   8  carried unchanged          36   8  carried unchanged
//   44   4  high half of the migrated data size (see dataSize below)
//   48   4  low half of the migrated data size
//   52   4  carried unchanged
//   56   4  attribute word: bits 0-7 recall mode, bits 8-9 compression
//   60   4  second word, returned with the attribute word by a query
//   64   8  zero
//   72   4  stored migration state      76   4  transition flag (1 = busy)
//   80   8  zero
//   88   4  length of the next field, always 32
//   92  32  carried unchanged
#ifndef QMX_HSM_DMAPI_DMI_RECORD_H_
#define QMX_HSM_DMAPI_DMI_RECORD_H_

#include <cstddef>
#include <cstdint>

#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/dmapi/dmi_status.h"

// Recall modes in the low byte of the attribute word.
enum : uint32_t {
  dmiRecallNormal = 0,
  dmiRecallStreaming = 4,
  dmiRecallPartial = 8,
  dmiRecallInvalid = 255,
};
constexpr uint32_t dmiRecallModeMask = 0xFF;
constexpr uint32_t dmiCompressionMask = 0x300;
// The only compression state that allows partial recall: data known to be
// stored uncompressed.
constexpr uint32_t dmiKnownUncompressed = 0x200;

// The record in memory.
struct dmiInfo {
  s_midExtObjId extObjId;
  uint64_t carried28;
  uint64_t carried36;
  uint64_t dataSize;  // migrated data size (see dmiDecodeObj for its high half)
  uint32_t carried52;
  uint32_t attr;   // the attribute word ("ma_attr")
  uint32_t attr2;  // the word at offset 60
  uint32_t migState;
  uint32_t transition;
  unsigned char carried92[32];
};

// Reads a record from the |len| bytes of an attribute value.  The data
// size's high half counts only while the recall mode (low byte of the
// attribute word) is exactly 8; otherwise the size is the low half alone,
// also for records written by other nodes.  Returns 0, or -1 when |len| is
// not 124.
int dmiDecodeObj(const void* buf, size_t len, dmiInfo* out);

// Writes |in| as the 124-byte value: the size's high half at 44 (0 when it
// fits in 32 bits), its low half at 48, zeros at 64 and 80, 32 at 88.
void dmiEncodeObj(const dmiInfo& in, unsigned char (&out)[dmiObjSize]);

// The migration state of a file whose "KVRObj" decodes to |obj| (null: no
// "KVRObj") and which does or does not carry "KVRPMig".
int dmiMigState(const dmiInfo* obj, bool hasPMig);

// Whether partial recall may be set on a file with attribute word |attr|.
inline bool dmiPartialRecallAllowed(uint32_t attr) {
  return (attr & dmiCompressionMask) == dmiKnownUncompressed;
}

#endif  // QMX_HSM_DMAPI_DMI_RECORD_H_
