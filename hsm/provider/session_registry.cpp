#include "hsm/provider/session_registry.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

#include "platform/sysroot.h"

namespace {

constexpr const char kHeader[] = "qmxdm session 1\n";

int fail(int err) {
  errno = err;
  return -1;
}

std::string sidName(dm_sessid_t sid) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "%" PRIX64, sid);
  return buf;
}

// A session file's name is its id in upper-case hexadecimal, nothing else;
// the lock, the counter and the scratch file all start with a dot.
bool parseSidName(const char* name, dm_sessid_t* sid) {
  size_t n = std::strlen(name);
  if (n == 0 || n > 16) return false;
  dm_sessid_t v = 0;
  for (size_t i = 0; i < n; ++i) {
    char c = name[i];
    int d;
    if (c >= '0' && c <= '9')
      d = c - '0';
    else if (c >= 'A' && c <= 'F')
      d = c - 'A' + 10;
    else
      return false;
    v = (v << 4) | static_cast<dm_sessid_t>(d);
  }
  if (v == DM_NO_SESSION || sidName(v) != name) return false;
  *sid = v;
  return true;
}

// mkdir -p: missing parents are made open to all, the registry itself is
// root's alone.
int ensureDir(const std::string& dir, mode_t mode = 0700) {
  if (mkdir(dir.c_str(), mode) == 0 || errno == EEXIST) return 0;
  if (errno != ENOENT) return -1;
  size_t slash = dir.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return -1;
  if (ensureDir(dir.substr(0, slash), 0755) != 0) return -1;
  if (mkdir(dir.c_str(), mode) == 0 || errno == EEXIST) return 0;
  return -1;
}

int readWhole(const std::string& path, std::string* out) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  out->clear();
  char buf[4096];
  for (;;) {
    ssize_t n = read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      int e = errno;
      close(fd);
      return fail(e);
    }
    if (n == 0) break;
    out->append(buf, static_cast<size_t>(n));
  }
  close(fd);
  return 0;
}

// Replaces |dir|/|name| by |data| in one step.  Only under the lock: the
// scratch file is shared by all writers.
int writeWhole(const std::string& dir, const std::string& name, const std::string& data) {
  std::string tmp = dir + "/.tmp";
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return -1;
  size_t done = 0;
  while (done < data.size()) {
    ssize_t n = write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      int e = errno;
      close(fd);
      unlink(tmp.c_str());
      return fail(e);
    }
    done += static_cast<size_t>(n);
  }
  if (close(fd) != 0) return -1;
  return rename(tmp.c_str(), (dir + "/" + name).c_str());
}

std::string encode(const qdmSession_t& s, uint64_t seq) {
  std::string out = kHeader;
  char line[96];
  std::snprintf(line, sizeof line, "pid %ld\nseq %" PRIu64 "\n", static_cast<long>(s.pid), seq);
  out += line;
  for (const dm_token_t& t : s.tokens) {
    std::snprintf(line, sizeof line, "token %" PRIX64 "-%" PRIX64 "\n", t.high, t.low);
    out += line;
  }
  out += "info ";
  out += s.info;
  return out;
}

int decode(dm_sessid_t sid, const std::string& data, qdmSession_t* s, uint64_t* seq) {
  if (data.compare(0, sizeof kHeader - 1, kHeader) != 0) return fail(EIO);
  s->sid = sid;
  s->pid = 0;
  s->tokens.clear();
  *seq = 0;
  size_t pos = sizeof kHeader - 1;
  while (pos < data.size()) {
    if (data.compare(pos, 5, "info ") == 0) {
      s->info = data.substr(pos + 5);
      return 0;
    }
    size_t end = data.find('\n', pos);
    if (end == std::string::npos) break;
    std::string line = data.substr(pos, end - pos);
    pos = end + 1;
    long pid;
    uint64_t a, b;
    if (std::sscanf(line.c_str(), "pid %ld", &pid) == 1) {
      s->pid = static_cast<pid_t>(pid);
    } else if (std::sscanf(line.c_str(), "seq %" SCNu64, &a) == 1) {
      *seq = a;
    } else if (std::sscanf(line.c_str(), "token %" SCNx64 "-%" SCNx64, &a, &b) == 2) {
      s->tokens.push_back(dm_token_t{a, b});
    } else {
      return fail(EIO);
    }
  }
  return fail(EIO);  // no info line: not a record we wrote
}

int readSession(const std::string& dir, dm_sessid_t sid, qdmSession_t* s, uint64_t* seq) {
  std::string data;
  if (readWhole(dir + "/" + sidName(sid), &data) != 0)
    return fail(errno == ENOENT ? EINVAL : errno);
  return decode(sid, data, s, seq);
}

// The registry's write lock, held for the guard's lifetime.
class RegLock {
 public:
  explicit RegLock(const std::string& dir) {
    if (ensureDir(dir) != 0) return;
    fd_ = open((dir + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) return;
    while (flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) {
        int e = errno;
        close(fd_);
        fd_ = -1;
        errno = e;
        return;
      }
    }
  }
  ~RegLock() {
    if (fd_ >= 0) close(fd_);  // closing drops the lock
  }
  RegLock(const RegLock&) = delete;
  RegLock& operator=(const RegLock&) = delete;
  bool held() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Sessions known to exist, per registry directory, so that the data calls
// of a process look a session up once.
std::mutex gKnownMx;
std::vector<std::pair<std::string, dm_sessid_t>> gKnown;

void remember(const std::string& dir, dm_sessid_t sid) {
  std::lock_guard<std::mutex> g(gKnownMx);
  for (const auto& k : gKnown)
    if (k.second == sid && k.first == dir) return;
  gKnown.emplace_back(dir, sid);
}

void forget(const std::string& dir, dm_sessid_t sid) {
  std::lock_guard<std::mutex> g(gKnownMx);
  std::erase_if(gKnown, [&](const auto& k) { return k.second == sid && k.first == dir; });
}

bool known(const std::string& dir, dm_sessid_t sid) {
  std::lock_guard<std::mutex> g(gKnownMx);
  for (const auto& k : gKnown)
    if (k.second == sid && k.first == dir) return true;
  return false;
}

int nextSid(const std::string& dir, dm_sessid_t* sid) {
  std::string data;
  uint64_t next = 0;
  if (readWhole(dir + "/.nextid", &data) == 0) next = std::strtoull(data.c_str(), nullptr, 16);
  if (next == 0 || next == DM_INVALID_SESSION)
    next = (static_cast<uint64_t>(std::time(nullptr)) << 20) | 1;
  // Never hand out an id that a file still carries (a counter lost or
  // rewound by hand).
  while (next == DM_INVALID_SESSION || access((dir + "/" + sidName(next)).c_str(), F_OK) == 0)
    ++next;
  *sid = next;
  return writeWhole(dir, ".nextid", sidName(next + 1) + "\n");
}

}  // namespace

std::string qdmRegistryDir() {
  return psSysPath("/run/qmxdmapi");
}

int qdmRegCreate(dm_sessid_t oldsid, const std::string& info, dm_sessid_t* newsid) {
  std::string dir = qdmRegistryDir();
  RegLock lock(dir);
  if (!lock.held()) return -1;
  qdmSession_t s;
  uint64_t seq = 0;
  if (oldsid != DM_NO_SESSION) {
    if (readSession(dir, oldsid, &s, &seq) != 0) return -1;
  } else {
    if (nextSid(dir, &s.sid) != 0) return -1;
  }
  s.pid = getpid();
  s.info = info;
  if (writeWhole(dir, sidName(s.sid), encode(s, seq)) != 0) return -1;
  remember(dir, s.sid);
  *newsid = s.sid;
  return 0;
}

int qdmRegDestroy(dm_sessid_t sid) {
  if (sid == DM_NO_SESSION) return fail(EINVAL);
  std::string dir = qdmRegistryDir();
  RegLock lock(dir);
  if (!lock.held()) return -1;
  qdmSession_t s;
  uint64_t seq;
  if (readSession(dir, sid, &s, &seq) != 0) return -1;
  if (!s.tokens.empty()) return fail(EBUSY);
  if (unlink((dir + "/" + sidName(sid)).c_str()) != 0) return -1;
  forget(dir, sid);
  return 0;
}

int qdmRegList(std::vector<dm_sessid_t>* out) {
  out->clear();
  DIR* d = opendir(qdmRegistryDir().c_str());
  if (d == nullptr) return errno == ENOENT ? 0 : -1;  // no session was ever made
  errno = 0;
  while (struct dirent* e = readdir(d)) {
    dm_sessid_t sid;
    if (parseSidName(e->d_name, &sid)) out->push_back(sid);
  }
  int e = errno;
  closedir(d);
  if (e != 0) return fail(e);
  std::sort(out->begin(), out->end());
  return 0;
}

int qdmRegRead(dm_sessid_t sid, qdmSession_t* out) {
  if (sid == DM_NO_SESSION) return fail(EINVAL);
  std::string dir = qdmRegistryDir();
  uint64_t seq;
  if (readSession(dir, sid, out, &seq) != 0) return -1;
  remember(dir, sid);
  return 0;
}

int qdmRegAddToken(dm_sessid_t sid, dm_token_t* token) {
  if (sid == DM_NO_SESSION) return fail(EINVAL);
  std::string dir = qdmRegistryDir();
  RegLock lock(dir);
  if (!lock.held()) return -1;
  qdmSession_t s;
  uint64_t seq;
  if (readSession(dir, sid, &s, &seq) != 0) return -1;
  // High half the session, low half its own counter: unique for the life
  // of the registry, and never DM_NO_TOKEN or DM_INVALID_TOKEN.
  dm_token_t t{sid, seq + 1};
  s.tokens.push_back(t);
  if (writeWhole(dir, sidName(sid), encode(s, seq + 1)) != 0) return -1;
  *token = t;
  return 0;
}

int qdmRegRemoveToken(dm_sessid_t sid, dm_token_t token) {
  if (sid == DM_NO_SESSION) return fail(EINVAL);
  std::string dir = qdmRegistryDir();
  RegLock lock(dir);
  if (!lock.held()) return -1;
  qdmSession_t s;
  uint64_t seq;
  if (readSession(dir, sid, &s, &seq) != 0) return -1;
  auto it = std::find_if(s.tokens.begin(), s.tokens.end(),
                         [&](const dm_token_t& t) { return DM_TOKEN_EQ(t, token); });
  if (it == s.tokens.end()) return fail(ESRCH);
  s.tokens.erase(it);
  return writeWhole(dir, sidName(sid), encode(s, seq));
}

int qdmRegCheck(dm_sessid_t sid) {
  if (sid == DM_NO_SESSION) return fail(EINVAL);
  std::string dir = qdmRegistryDir();
  if (known(dir, sid)) return 0;
  if (access((dir + "/" + sidName(sid)).c_str(), F_OK) != 0)
    return fail(errno == ENOENT ? EINVAL : errno);
  remember(dir, sid);
  return 0;
}

int qdmRegCheckToken(dm_sessid_t sid, dm_token_t token) {
  if (DM_TOKEN_EQ(token, DM_NO_TOKEN)) return 0;
  if (DM_TOKEN_EQ(token, DM_INVALID_TOKEN)) return fail(EINVAL);
  qdmSession_t s;
  if (qdmRegRead(sid, &s) != 0) return -1;
  for (const dm_token_t& t : s.tokens)
    if (DM_TOKEN_EQ(t, token)) return 0;
  return fail(ESRCH);
}
