#include "hsm/dmapi/dmi_attrs.h"

#include <cstring>

dm_attrname_t dmiAttrName(const char* name) {
  dm_attrname_t an{};
  if (name != nullptr) std::memcpy(an.an_chars, name, strnlen(name, DM_ATTR_NAME_SIZE));
  return an;
}

void dmiExtObjIdToHex(const s_midExtObjId& id, char (&out)[dmiExtIdHexSize]) {
  static const char kDigits[] = "0123456789ABCDEF";
  for (size_t i = 0; i < dmiExtObjIdSize; ++i) {
    out[2 * i] = kDigits[id.id[i] >> 4];
    out[2 * i + 1] = kDigits[id.id[i] & 0xF];
  }
  out[dmiExtIdHexSize - 1] = '\0';
}

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

int dmiExtObjIdFromHex(const char* text, size_t len, s_midExtObjId* id) {
  const size_t digits = dmiExtIdHexSize - 1;
  if (text == nullptr || len < digits) return -1;
  if (len > digits && text[digits] != '\0') return -1;
  s_midExtObjId parsed;
  for (size_t i = 0; i < dmiExtObjIdSize; ++i) {
    int hi = hexValue(text[2 * i]);
    int lo = hexValue(text[2 * i + 1]);
    if (hi < 0 || lo < 0) return -1;
    parsed.id[i] = static_cast<unsigned char>(hi << 4 | lo);
  }
  *id = parsed;
  return 0;
}

int dmiServerNameValue(const char* name, char (&out)[dmiServNameSize]) {
  if (name == nullptr) return -1;
  size_t n = strnlen(name, dmiServNameSize);
  if (n >= dmiServNameSize) return -1;
  std::memset(out, 0, sizeof out);
  std::memcpy(out, name, n);
  return 0;
}
