#include "hsm/dmapi/xdsm_handle.h"

std::string dmiHandleToHex(const xdsm_handle_t& h) {
  if (h.hanp == nullptr || h.hlen == 0) return "<NULL>";
  static const char kDigits[] = "0123456789abcdef";
  const unsigned char* p = static_cast<const unsigned char*>(h.hanp);
  std::string s;
  s.reserve(2 * h.hlen);
  for (size_t i = 0; i < h.hlen; ++i) {
    s += kDigits[p[i] >> 4];
    s += kDigits[p[i] & 0xF];
  }
  return s;
}
