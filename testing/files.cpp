#include "testing/files.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace qmxtest {

namespace {

// Gives the owner full access to |path| and, for a directory, to every
// directory below it, so that removing the tree is no longer refused.
void openUp(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return;
  chmod(path.c_str(), (st.st_mode & 07777) | S_IRWXU);
  DIR* d = opendir(path.c_str());
  if (d == nullptr) return;
  while (struct dirent* e = readdir(d)) {
    if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
      openUp(path + "/" + e->d_name);
  }
  closedir(d);
}

}  // namespace

std::string errnoText(int err) {
  const char* name = strerrorname_np(err);
  return (name != nullptr ? std::string(name) : "errno " + std::to_string(err)) + " (" +
         std::strerror(err) + ")";
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void makeDirs(const std::string& path, mode_t mode) {
  // Each prefix ending before a '/', then the whole path.
  for (size_t at = path.find('/', 1);; at = path.find('/', at + 1)) {
    std::string cur = path.substr(0, at);
    if (!cur.empty() && mkdir(cur.c_str(), mode) != 0) {
      int e = errno;
      struct stat st;
      if (e != EEXIST || stat(cur.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        throw std::runtime_error("cannot make the directory " + cur + ": " +
                                 errnoText(e == EEXIST ? ENOTDIR : e));
    }
    if (at == std::string::npos) return;
  }
}

void writeFile(const std::string& path, const std::string& content) {
  size_t slash = path.rfind('/');
  try {
    if (slash != std::string::npos && slash > 0) makeDirs(path.substr(0, slash));
  } catch (const std::runtime_error& e) {
    throw std::runtime_error("cannot write " + path + ": " + e.what());
  }
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (out) out << content;
  out.close();
  if (!out)
    throw std::runtime_error("cannot write " + path + ": " + errnoText(errno ? errno : EIO));
}

std::string removeTree(const std::string& path) {
  std::error_code ec;
  std::filesystem::remove_all(path, ec);
  if (!ec) return "";
  openUp(path);
  ec.clear();
  std::filesystem::remove_all(path, ec);
  return ec ? "cannot remove " + path + ": " + ec.message() : "";
}

}  // namespace qmxtest
