// Who is on the other end of a connection to the root daemon, and how the
// daemon looks at a file with that caller's eyes.
//
// The caller is taken from the kernel (SO_PEERCRED, SO_PEERGROUPS: the
// credentials the client had when it connected), never from a request.
//
// rtdOpenAsCaller switches only the calling thread's file-system identity
// (fsuid, fsgid, supplementary groups, by raw system calls that act on one
// thread) for the one open() and switches back before it returns; other
// threads of the daemon keep root's identity throughout.
#ifndef QMX_HSM_ROOTD_ROOTD_CALLER_H_
#define QMX_HSM_ROOTD_ROOTD_CALLER_H_

#include <sys/types.h>

#include <string>
#include <vector>

struct rtdCaller_t {
  pid_t pid = 0;
  uid_t uid = 0;
  gid_t gid = 0;
  std::vector<gid_t> groups;  // supplementary groups
  bool isRoot() const { return uid == 0; }
};

// Fills |out| from the peer of the connected Unix-domain socket |fd|.
// Returns 0, or -1 with errno.
int rtdPeerCaller(int fd, rtdCaller_t* out);

// While it lives, the calling thread looks at files as |caller| (its
// fsuid, fsgid and supplementary groups); the destructor gives the thread
// the daemon's own identity back.  ok() is false when the kernel did not
// take the switch (nothing should be opened then).
class rtdCallerFs {
 public:
  explicit rtdCallerFs(const rtdCaller_t& caller);
  ~rtdCallerFs();
  rtdCallerFs(const rtdCallerFs&) = delete;
  rtdCallerFs& operator=(const rtdCallerFs&) = delete;
  bool ok() const { return ok_; }

 private:
  bool ok_;
};

// Opens |path| (absolute) as |caller| would, with |flags| (O_CLOEXEC,
// O_NOCTTY and O_NONBLOCK are added).  Returns the descriptor, or -1 with
// the errno of the open (EACCES when the caller may not).  Thread-safe; a
// failure to switch identity gives -1 with EPERM and opens nothing.
int rtdOpenAsCaller(const rtdCaller_t& caller, const char* path, int flags);

// Whether the calling thread's file-system identity (an rtdCallerFs in
// force) could open the file of the O_PATH descriptor |fd| for reading,
// ACLs included, without opening it: opening a device or a pipe can act on
// it.  False with errno (EACCES) when not.
bool rtdMayOpenForReading(int fd);

// The start time of process |pid| in clock ticks since boot (field 22 of
// /proc/<pid>/stat); 0 when the process does not exist.  Together with the
// pid it names one process, whatever pids are reused later.
unsigned long long rtdProcessStartTime(pid_t pid);

// |text| with every control character and backslash written as \xNN, so
// that a name taken from a request can't start a new log line.
std::string rtdPrintable(const char* text);

#endif  // QMX_HSM_ROOTD_ROOTD_CALLER_H_
