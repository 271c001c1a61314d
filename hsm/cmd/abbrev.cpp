#include "hsm/cmd/abbrev.h"

#include <cstring>

bool Abbrev(const char* text, const char* keyword, int shortest) {
  if (text == nullptr || keyword == nullptr) return false;
  size_t n = std::strlen(text);
  if (n == 0 || n > std::strlen(keyword)) return false;
  if (shortest > 0 && n < static_cast<size_t>(shortest)) return false;
  return std::strncmp(text, keyword, n) == 0;
}
