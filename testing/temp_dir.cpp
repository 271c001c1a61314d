#include "testing/temp_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "testing/files.h"

namespace qmxtest {

TempDir::TempDir(const std::string& prefix, mode_t mode) : owner_(getpid()) {
  std::string tmpl = "/tmp/" + prefix + "XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr)
    throw std::runtime_error("cannot make a directory like " + tmpl + ": " + errnoText(errno));
  path_ = buf.data();
  // mkdtemp makes it 0700; chmod gives the mode asked for, untouched by
  // the umask.
  if (chmod(path_.c_str(), mode) != 0) {
    int e = errno;
    removeTree(path_);
    throw std::runtime_error("cannot set the mode of " + path_ + ": " + errnoText(e));
  }
}

TempDir::~TempDir() {
  std::string why = remove();
  if (!why.empty()) std::fprintf(stderr, "qmxtest: %s\n", why.c_str());
}

std::string TempDir::write(const std::string& rel, const std::string& content) const {
  std::string p = path(rel);
  writeFile(p, content);
  return p;
}

std::string TempDir::read(const std::string& rel) const {
  return readFile(path(rel));
}

std::string TempDir::makeDir(const std::string& rel) const {
  std::string p = path(rel);
  makeDirs(p);
  return p;
}

std::string TempDir::remove() {
  if (gone_ || getpid() != owner_) return "";
  if (std::getenv("QMX_KEEP_SANDBOX") != nullptr) {
    std::fprintf(stderr, "qmxtest: kept %s\n", path_.c_str());
    gone_ = true;
    return "";
  }
  std::string why = removeTree(path_);
  gone_ = why.empty();
  return why;
}

}  // namespace qmxtest
