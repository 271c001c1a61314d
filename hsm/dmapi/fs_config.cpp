#include "hsm/dmapi/fs_config.h"

#include <errno.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/sysroot.h"

namespace {

// Reads |path| whole.  Returns 1 with |*text|, 0 when the file does not
// exist, -1 with |*error| otherwise.
int readText(const std::string& path, std::string* text, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    int e = errno;
    if (e == ENOENT) return 0;
    if (error != nullptr) *error = "cannot read " + path + ": " + std::strerror(e);
    return -1;
  }
  std::ostringstream ss;
  ss << in.rdbuf();
  *text = ss.str();
  return 1;
}

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return std::string();
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

}  // namespace

std::string dmiFSTablePath() {
  return psSysPath("/etc/zpln/SpaceMan/config/dmiFSTable");
}

std::string dmiInstanceNoPath() {
  return psSysPath("/etc/zpln/SpaceMan/config/dmiInstanceNo");
}

int dmiReadFSTable(std::vector<std::string>* out, std::string* error) {
  out->clear();
  std::string path = dmiFSTablePath();
  std::string text;
  int rc = readText(path, &text, error);
  if (rc <= 0) return rc;
  std::istringstream lines(text);
  std::string line;
  for (int n = 1; std::getline(lines, line); ++n) {
    std::string entry = trim(line);
    if (entry.empty() || entry[0] == '#') continue;
    if (entry[0] != '/') {
      if (error != nullptr)
        *error =
            path + " line " + std::to_string(n) + ": \"" + entry + "\" is not an absolute path";
      out->clear();
      return -1;
    }
    while (entry.size() > 1 && entry.back() == '/') entry.pop_back();
    out->push_back(entry);
  }
  return 0;
}

int dmiFirstManagedFS(std::string* out, std::string* error) {
  std::vector<std::string> table;
  if (dmiReadFSTable(&table, error) != 0) return -1;
  if (table.empty()) {
    if (error != nullptr) *error = "no managed file system is listed in " + dmiFSTablePath();
    return -1;
  }
  *out = table.front();
  return 0;
}

int dmiGetFSName(const std::string& path, std::string* out, std::string* error) {
  std::vector<std::string> table;
  if (dmiReadFSTable(&table, error) != 0) return -1;
  const std::string* best = nullptr;
  for (const std::string& fs : table) {
    bool holds = path == fs ||
                 (path.compare(0, fs.size(), fs) == 0 && (fs == "/" || path[fs.size()] == '/'));
    if (holds && (best == nullptr || fs.size() > best->size())) best = &fs;
  }
  if (best == nullptr) {
    if (error != nullptr) *error = path + " is in no managed file system";
    return -1;
  }
  *out = *best;
  return 0;
}

int dmiReadInstanceNo(short* out, std::string* error) {
  *out = 0;
  std::string path = dmiInstanceNoPath();
  std::string text;
  int rc = readText(path, &text, error);
  if (rc < 0) return -1;
  if (rc == 0) {
    *out = 1;
    return 0;
  }
  std::string value = trim(text);
  char* end = nullptr;
  errno = 0;
  long n = value.empty() ? 0 : std::strtol(value.c_str(), &end, 10);
  if (value.empty() || errno != 0 || *end != '\0' || n < 1 || n > 32767) {
    if (error != nullptr)
      *error = path + ": \"" + value + "\" is not an instance number (1 to 32767)";
    return -1;
  }
  *out = static_cast<short>(n);
  return 0;
}

short getInstanceNo() {
  short n = 0;
  dmiReadInstanceNo(&n, nullptr);
  return n;
}
