#include "platform/sysroot.h"

#include <cstdlib>
#include <cstring>

std::string psSysRoot() {
  // Read on every call: the lookup is cheap next to the file operation that
  // follows, and tests switch roots within one process.
  const char* r = std::getenv("QMX_SYSROOT");
  if (r == nullptr || *r == '\0') return std::string();
  std::string root(r);
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  if (root == "/") return std::string();
  return root;
}

std::string psSysPath(const char* path) {
  if (path == nullptr) return std::string();
  if (path[0] != '/') return std::string(path);
  return psSysRoot() + path;
}

char* psSysPath(const char* path, char* buf, size_t size) {
  if (buf == nullptr || size == 0) return nullptr;
  buf[0] = '\0';
  std::string mapped = psSysPath(path);
  if (mapped.size() + 1 > size) return nullptr;
  std::memcpy(buf, mapped.c_str(), mapped.size() + 1);
  return buf;
}
