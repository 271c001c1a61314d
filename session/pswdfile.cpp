#include "session/pswdfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <sstream>

#include "platform/platform_status.h"
#include "platform/sysroot.h"

namespace {

constexpr const char* kFileName = "qmx.pwd";
constexpr const char* kDefaultDir = "/etc/qmx";
constexpr size_t kGeneratedLength = 24;

std::mutex gDirMutex;
std::string gDir;

std::string Hex(const unsigned char* p, size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s.push_back(kDigits[p[i] >> 4]);
    s.push_back(kDigits[p[i] & 15]);
  }
  return s;
}

bool Unhex(const std::string& s, std::vector<unsigned char>* out) {
  if (s.size() % 2 != 0) return false;
  out->clear();
  for (size_t i = 0; i < s.size(); i += 2) {
    unsigned v = 0;
    if (std::sscanf(s.c_str() + i, "%2x", &v) != 1) return false;
    out->push_back(static_cast<unsigned char>(v));
  }
  return true;
}

bool ParseLine(const std::string& line, pswdRecord_t* rec) {
  std::istringstream in(line);
  std::string tag, salt, verifier;
  if (!(in >> tag >> rec->server >> rec->node >> rec->iterations >> salt >> verifier)) return false;
  std::vector<unsigned char> v;
  if (tag != "V1" || !Unhex(salt, &rec->salt) || rec->salt.empty() || !Unhex(verifier, &v) ||
      v.size() != rec->verifier.size())
    return false;
  std::memcpy(rec->verifier.data(), v.data(), v.size());
  authWipe(v.data(), v.size());
  return true;
}

std::string FormatLine(const pswdRecord_t& r) {
  return "V1 " + r.server + " " + r.node + " " + std::to_string(r.iterations) + " " +
         Hex(r.salt.data(), r.salt.size()) + " " + Hex(r.verifier.data(), r.verifier.size());
}

// Reads every line of the file.  ENOENT when there is none.
int ReadLines(const std::string& path, std::vector<std::string>* lines) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || (st.st_mode & 077) != 0) {
    ::close(fd);
    return EACCES;
  }
  std::string data;
  char buf[4096];
  ssize_t n;
  while ((n = ::read(fd, buf, sizeof buf)) != 0) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      int err = errno;
      ::close(fd);
      return err;
    }
    data.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  std::istringstream in(data);
  std::string line;
  while (std::getline(in, line))
    if (!line.empty()) lines->push_back(line);
  authWipe(data.data(), data.size());
  return 0;
}

int WriteAll(int fd, const std::string& s) {
  const char* p = s.data();
  size_t left = s.size();
  while (left > 0) {
    ssize_t w = ::write(fd, p, left);
    if (w < 0 && errno == EINTR) continue;
    if (w < 0) return errno;
    p += w;
    left -= static_cast<size_t>(w);
  }
  return 0;
}

// Rewrites the file with |lines|: a private temporary file, synced and
// renamed over the old one, so a crash leaves either file whole.
int WriteLines(const std::string& path, const std::vector<std::string>& lines) {
  std::string tmp = path + ".tmp." + std::to_string(::getpid());
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return errno;
  ::fchmod(fd, 0600);
  std::string data;
  for (const auto& l : lines) data += l + "\n";
  int rc = WriteAll(fd, data);
  authWipe(data.data(), data.size());
  if (rc == 0 && ::fsync(fd) != 0) rc = errno;
  if (::close(fd) != 0 && rc == 0) rc = errno;
  if (rc == 0 && ::rename(tmp.c_str(), path.c_str()) != 0) rc = errno;
  if (rc != 0) ::unlink(tmp.c_str());
  return rc;
}

// Holds an exclusive lock on "<file>.lock" while the file is rewritten.
class FileLock {
 public:
  explicit FileLock(const std::string& path) {
    fd_ = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ >= 0)
      while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
      }
  }
  ~FileLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  int Error() const { return fd_ >= 0 ? 0 : errno; }

 private:
  int fd_;
};

bool SameKey(const std::string& line, const std::string& server, const std::string& node) {
  pswdRecord_t r;
  return ParseLine(line, &r) && r.server == server && r.node == node;
}

int Update(const std::string& server, const std::string& node, const std::string* newLine) {
  std::string path = pswdFilePath();
  std::string dir = path.substr(0, path.rfind('/'));
  if (!dir.empty() && ::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return errno;
  FileLock lock(path);
  if (lock.Error() != 0) return lock.Error();
  std::vector<std::string> lines, kept;
  int rc = ReadLines(path, &lines);
  if (rc == ENOENT && newLine == nullptr) return 0;
  if (rc != 0 && rc != ENOENT) return rc;
  bool changed = false;
  for (auto& l : lines) {
    if (SameKey(l, server, node)) {
      changed = true;
    } else {
      kept.push_back(l);
    }
    authWipe(l.data(), l.size());
  }
  if (newLine != nullptr) kept.push_back(*newLine);
  if (!changed && newLine == nullptr) return 0;
  rc = WriteLines(path, kept);
  for (auto& l : kept) authWipe(l.data(), l.size());
  return rc;
}

}  // namespace

int psSetPswdFileOption(const char* dir) {
  if (dir != nullptr && dir[0] != '\0' && dir[0] != '/') return PS_RC_BADARG;
  std::lock_guard<std::mutex> g(gDirMutex);
  gDir = dir == nullptr ? "" : dir;
  while (gDir.size() > 1 && gDir.back() == '/') gDir.pop_back();
  return 0;
}

std::string pswdFilePath() {
  std::lock_guard<std::mutex> g(gDirMutex);
  std::string dir = gDir.empty() ? psSysPath(kDefaultDir) : gDir;
  return dir + "/" + kFileName;
}

int pswdFRead(const std::string& server, const std::string& node, pswdRecord_t* out) {
  std::vector<std::string> lines;
  int rc = ReadLines(pswdFilePath(), &lines);
  if (rc != 0) return rc;
  rc = ENOENT;
  for (auto& l : lines) {
    pswdRecord_t r;
    if (rc == ENOENT && ParseLine(l, &r) && r.server == server && r.node == node) {
      *out = r;
      rc = 0;
    }
    authWipe(r.verifier.data(), r.verifier.size());
    authWipe(l.data(), l.size());
  }
  return rc;
}

int pswdFWrite(const pswdRecord_t& rec) {
  auto plain = [](const std::string& s) {
    return !s.empty() && s.find_first_of(" \t\r\n") == std::string::npos;
  };
  if (!plain(rec.server) || !plain(rec.node) || rec.salt.empty()) return EINVAL;
  std::string line = FormatLine(rec);
  int rc = Update(rec.server, rec.node, &line);
  authWipe(line.data(), line.size());
  return rc;
}

int dsDeletePasswordRecord(const std::string& server, const std::string& node) {
  return Update(server, node, nullptr);
}

int pswdFGeneratePswd(std::string* out) {
  *out = authGeneratePassword(kGeneratedLength);
  return out->empty() ? EIO : 0;
}
