#include "hsm/rootd/rootd_caller.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

int rtdPeerCaller(int fd, rtdCaller_t* out) {
  struct ucred cred;
  socklen_t len = sizeof cred;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) return -1;
  out->pid = cred.pid;
  out->uid = cred.uid;
  out->gid = cred.gid;
  out->groups.assign(16, 0);
  for (;;) {
    socklen_t glen = static_cast<socklen_t>(out->groups.size() * sizeof(gid_t));
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, out->groups.data(), &glen) == 0) {
      out->groups.resize(glen / sizeof(gid_t));
      return 0;
    }
    // ERANGE tells the size needed; anything else leaves the caller with
    // its primary group only, which can only narrow what it may reach.
    if (errno != ERANGE || glen / sizeof(gid_t) <= out->groups.size()) {
      out->groups.clear();
      return 0;
    }
    out->groups.resize(glen / sizeof(gid_t));
  }
}

namespace {

// The raw system calls: the C library's wrappers of setgroups would switch
// every thread of the process.
long setFsUid(uid_t u) {
  return syscall(SYS_setfsuid, u);
}
long setFsGid(gid_t g) {
  return syscall(SYS_setfsgid, g);
}
long setGroups(const std::vector<gid_t>& g) {
  return syscall(SYS_setgroups, g.size(), g.empty() ? nullptr : g.data());
}

// The daemon's own file-system identity, taken once: no thread keeps
// another one for longer than an rtdCallerFs lives.
struct OwnIdentity {
  uid_t uid;
  gid_t gid;
  std::vector<gid_t> groups;
};

const OwnIdentity& own() {
  static const OwnIdentity id = [] {
    OwnIdentity o;
    int n = getgroups(0, nullptr);
    if (n > 0) {
      o.groups.resize(static_cast<size_t>(n));
      n = getgroups(n, o.groups.data());
      o.groups.resize(n > 0 ? static_cast<size_t>(n) : 0);
    }
    o.uid = static_cast<uid_t>(setFsUid(static_cast<uid_t>(-1)));
    o.gid = static_cast<gid_t>(setFsGid(static_cast<gid_t>(-1)));
    return o;
  }();
  return id;
}

}  // namespace

rtdCallerFs::rtdCallerFs(const rtdCaller_t& c) {
  own();
  ok_ = setGroups(c.groups) == 0;
  if (!ok_) return;
  setFsGid(c.gid);
  setFsUid(c.uid);
  // setfsuid answers with the previous value: asking again confirms.
  ok_ = static_cast<uid_t>(setFsUid(static_cast<uid_t>(-1))) == c.uid &&
        static_cast<gid_t>(setFsGid(static_cast<gid_t>(-1))) == c.gid;
}

rtdCallerFs::~rtdCallerFs() {
  const OwnIdentity& o = own();
  setFsUid(o.uid);
  setFsGid(o.gid);
  setGroups(o.groups);
}

int rtdOpenAsCaller(const rtdCaller_t& caller, const char* path, int flags) {
  int fd = -1;
  int err = EPERM;
  {
    rtdCallerFs as(caller);
    if (as.ok()) {
      fd = open(path, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
      err = errno;
    }
  }
  errno = err;
  return fd;
}

// Without faccessat2 the C library would check with the effective ids,
// so on such kernels the file is reopened through its descriptor instead,
// plain files and directories only.
bool rtdMayOpenForReading(int fd) {
  if (syscall(SYS_faccessat2, fd, "", R_OK, AT_EACCESS | AT_EMPTY_PATH) == 0) return true;
  if (errno != ENOSYS) return false;
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
    errno = EACCES;
    return false;
  }
  char self[64];
  std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd);
  int rd = ::open(self, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (rd < 0) return false;
  close(rd);
  return true;
}

unsigned long long rtdProcessStartTime(pid_t pid) {
  char name[64];
  std::snprintf(name, sizeof name, "/proc/%d/stat", static_cast<int>(pid));
  int fd = open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  char buf[1024];
  ssize_t n = read(fd, buf, sizeof buf - 1);
  close(fd);
  if (n <= 0) return 0;
  buf[n] = '\0';
  // The command name in parentheses may hold blanks and ')'; the fields
  // count from the last ')'.  Field 3 (state) follows it; 22 is the start.
  char* p = std::strrchr(buf, ')');
  if (p == nullptr) return 0;
  ++p;
  for (int field = 3; field < 22; ++field) {
    p = std::strchr(p + 1, ' ');
    if (p == nullptr) return 0;
  }
  return std::strtoull(p + 1, nullptr, 10);
}

std::string rtdPrintable(const char* text) {
  std::string out;
  if (text == nullptr) return out;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p) {
    if (*p < 0x20 || *p == 0x7F || *p == '\\') {
      char esc[8];
      std::snprintf(esc, sizeof esc, "\\x%02X", *p);
      out += esc;
    } else {
      out += static_cast<char>(*p);
    }
  }
  return out;
}
