#include "hsm/dmapi/dmi_record.h"

#include <cstring>

namespace {

uint32_t get32(const unsigned char* p, size_t off) {
  return static_cast<uint32_t>(p[off]) | static_cast<uint32_t>(p[off + 1]) << 8 |
         static_cast<uint32_t>(p[off + 2]) << 16 | static_cast<uint32_t>(p[off + 3]) << 24;
}

uint64_t get64(const unsigned char* p, size_t off) {
  return static_cast<uint64_t>(get32(p, off)) | static_cast<uint64_t>(get32(p, off + 4)) << 32;
}

void put32(unsigned char* p, size_t off, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[off + i] = static_cast<unsigned char>(v >> (8 * i));
}

void put64(unsigned char* p, size_t off, uint64_t v) {
  put32(p, off, static_cast<uint32_t>(v));
  put32(p, off + 4, static_cast<uint32_t>(v >> 32));
}

}  // namespace

int dmiDecodeObj(const void* buf, size_t len, dmiInfo* out) {
  if (buf == nullptr || len != dmiObjSize) return -1;
  const unsigned char* p = static_cast<const unsigned char*>(buf);
  dmiInfo r;
  std::memcpy(r.extObjId.id, p, dmiExtObjIdSize);
  r.carried28 = get64(p, 28);
  r.carried36 = get64(p, 36);
  r.carried52 = get32(p, 52);
  r.attr = get32(p, 56);
  r.attr2 = get32(p, 60);
  r.migState = get32(p, 72);
  r.transition = get32(p, 76);
  std::memcpy(r.carried92, p + 92, sizeof r.carried92);
  // Records whose size has a high half always carry recall mode 8 in the
  // same word; with any other mode the high word is not a size.
  uint64_t high = (r.attr & dmiRecallModeMask) == dmiRecallPartial ? get32(p, 44) : 0;
  r.dataSize = high << 32 | get32(p, 48);
  *out = r;
  return 0;
}

void dmiEncodeObj(const dmiInfo& in, unsigned char (&out)[dmiObjSize]) {
  std::memset(out, 0, sizeof out);
  std::memcpy(out, in.extObjId.id, dmiExtObjIdSize);
  put64(out, 28, in.carried28);
  put64(out, 36, in.carried36);
  put32(out, 44, static_cast<uint32_t>(in.dataSize >> 32));
  put32(out, 48, static_cast<uint32_t>(in.dataSize));
  put32(out, 52, in.carried52);
  put32(out, 56, in.attr);
  put32(out, 60, in.attr2);
  put32(out, 72, in.migState);
  put32(out, 76, in.transition);
  put32(out, 88, sizeof in.carried92);
  std::memcpy(out + 92, in.carried92, sizeof in.carried92);
}

int dmiMigState(const dmiInfo* obj, bool hasPMig) {
  if (obj == nullptr) return hasPMig ? dmiStatePremigrated : dmiStateResident;
  if (obj->transition == 1)
    return obj->migState == dmiStateTransition12 ? dmiStateTransition12 : dmiStateInTransition;
  return static_cast<int>(obj->migState);
}
