#include "platform/file_space.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/platform_status.h"

namespace {

std::vector<std::string> g_virtual;
std::vector<std::string> g_mounts;
bool g_mountsRead = false;

// Mount points in mountinfo escape blanks, tabs, newlines and backslashes as
// a backslash and three octal digits.
bool IsOctal(char c) {
  return c >= '0' && c <= '7';
}

std::string Unescape(const char* s, size_t n) {
  std::string out;
  out.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    if (s[i] == '\\' && i + 3 < n && IsOctal(s[i + 1]) && IsOctal(s[i + 2]) && IsOctal(s[i + 3])) {
      out.push_back(
          static_cast<char>((s[i + 1] - '0') * 64 + (s[i + 2] - '0') * 8 + (s[i + 3] - '0')));
      i += 3;
    } else {
      out.push_back(s[i]);
    }
  }
  return out;
}

void ReadMounts() {
  g_mounts.clear();
  FILE* f = std::fopen("/proc/self/mountinfo", "re");
  if (f != nullptr) {
    char* line = nullptr;
    size_t cap = 0;
    while (getline(&line, &cap, f) > 0) {
      // Fields: id parent major:minor root mountpoint ...
      const char* p = line;
      for (int field = 0; field < 4 && p != nullptr; ++field) {
        p = std::strchr(p, ' ');
        if (p != nullptr) ++p;
      }
      if (p == nullptr) continue;
      const char* end = std::strchr(p, ' ');
      if (end == nullptr) continue;
      g_mounts.push_back(Unescape(p, static_cast<size_t>(end - p)));
    }
    std::free(line);
    std::fclose(f);
  }
  g_mountsRead = true;
}

// True when |prefix| is |path| or a leading part of it ending at a "/".
bool IsPrefixAtBoundary(const std::string& prefix, const char* path, size_t pathLen) {
  if (prefix == "/") return path[0] == '/';
  if (prefix.size() > pathLen) return false;
  if (std::memcmp(prefix.data(), path, prefix.size()) != 0) return false;
  return pathLen == prefix.size() || path[prefix.size()] == '/';
}

char* Dup(const char* s, size_t n) {
  char* d = static_cast<char*>(std::malloc(n + 1));
  if (d == nullptr) return nullptr;
  std::memcpy(d, s, n);
  d[n] = '\0';
  return d;
}

}  // namespace

char* DoCanon(char* path, char sep) {
  if (path == nullptr || *path == '\0') return path;
  const bool absolute = path[0] == sep;
  const std::string src(path);
  std::vector<std::string_view> parts;
  size_t i = 0;
  while (i < src.size()) {
    while (i < src.size() && src[i] == sep) ++i;
    size_t j = i;
    while (j < src.size() && src[j] != sep) ++j;
    if (j > i) {
      std::string_view c(src.data() + i, j - i);
      if (c == "..") {
        // Lexical: ".." never climbs above the root; a relative path keeps
        // the ".." it cannot resolve.
        if (!parts.empty() && parts.back() != "..") {
          parts.pop_back();
        } else if (!absolute) {
          parts.push_back(c);
        }
      } else if (c != ".") {
        parts.push_back(c);
      }
    }
    i = j;
  }
  std::string out(absolute ? 1 : 0, sep);
  for (size_t k = 0; k < parts.size(); ++k) {
    if (k > 0) out.push_back(sep);
    out.append(parts[k]);
  }
  if (out.empty()) out.push_back('.');
  // Never longer than the input: every kept byte came from it.
  std::memcpy(path, out.c_str(), out.size() + 1);
  return path;
}

std::string psFileSpaceOf(const char* path) {
  if (!g_mountsRead) ReadMounts();
  size_t len = std::strlen(path);
  const std::string* best = nullptr;
  for (const std::vector<std::string>* list : {&g_mounts, &g_virtual}) {
    for (const std::string& m : *list) {
      if (IsPrefixAtBoundary(m, path, len) && (best == nullptr || m.size() > best->size())) {
        best = &m;
      }
    }
  }
  return best != nullptr ? *best : std::string("/");
}

fileSpec_t* newFileSpec(const char* fsName, const char* hl, const char* ll) {
  fileSpec_t* fsp = static_cast<fileSpec_t*>(std::calloc(1, sizeof(fileSpec_t)));
  if (fsp == nullptr) return nullptr;
  fsp->fsName = Dup(fsName, std::strlen(fsName));
  fsp->hl = Dup(hl, std::strlen(hl));
  fsp->ll = Dup(ll, std::strlen(ll));
  if (fsp->fsName == nullptr || fsp->hl == nullptr || fsp->ll == nullptr) {
    freeFileSpec(fsp);
    return nullptr;
  }
  return fsp;
}

void freeFileSpec(fileSpec_t* fsp) {
  if (fsp == nullptr) return;
  std::free(fsp->fsName);
  std::free(fsp->hl);
  std::free(fsp->ll);
  std::free(fsp);
}

fileSpec_t* parseBackOperand(const char* path, int* rc, int flags) {
  int dummy = 0;
  if (rc == nullptr) rc = &dummy;
  if (path == nullptr || path[0] != '/' || flags != 0) {
    *rc = PS_RC_BADARG;
    return nullptr;
  }
  std::string fs = psFileSpaceOf(path);
  size_t len = std::strlen(path);
  // The part below the file space; a file space of "/" owns no character.
  const char* rest = path + (fs == "/" ? 0 : fs.size());
  size_t restLen = len - static_cast<size_t>(rest - path);
  const char* slash = restLen > 0 ? static_cast<const char*>(memrchr(rest, '/', restLen)) : nullptr;
  fileSpec_t* fsp = nullptr;
  if (slash == nullptr) {
    fsp = newFileSpec(fs.c_str(), "", "");
  } else {
    std::string hl(rest, static_cast<size_t>(slash - rest));
    std::string ll(slash, static_cast<size_t>(rest + restLen - slash));
    if (ll == "/") ll.clear();  // the root itself
    fsp = newFileSpec(fs.c_str(), hl.c_str(), ll.c_str());
  }
  *rc = fsp == nullptr ? PS_RC_NOMEM : PS_RC_OK;
  return fsp;
}

char* fsFullPath(const fileSpec_t* fsp, char* buf, size_t size) {
  if (fsp == nullptr || buf == nullptr || size == 0) return nullptr;
  const char* fs = std::strcmp(fsp->fsName, "/") == 0 ? "" : fsp->fsName;
  int n = std::snprintf(buf, size, "%s%s%s", fs, fsp->hl, fsp->ll);
  if (n < 0 || static_cast<size_t>(n) >= size) {
    buf[0] = '\0';
    return nullptr;
  }
  if (n == 0) std::snprintf(buf, size, "/");
  return buf;
}

int psAddVirtualMountPoint(const char* dir) {
  if (dir == nullptr || dir[0] != '/') return PS_RC_BADARG;
  std::string d(dir);
  DoCanon(d.data(), '/');
  d.resize(std::strlen(d.c_str()));
  for (const std::string& v : g_virtual) {
    if (v == d) return 0;
  }
  g_virtual.push_back(d);
  return 0;
}

void psClearVirtualMountPoints() {
  g_virtual.clear();
}

void psFsReloadMounts() {
  ReadMounts();
}
