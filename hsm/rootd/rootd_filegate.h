// A file named in a caller's request, opened with the caller's eyes and
// checked to be the file named: the mechanism behind the file rules of
// rootd_guard.h (which decides and reports; the gate only finds out).
//
// A file named by a handle is found through the provider's path of the
// handle, opened as the caller (O_PATH: nothing is read or started) and
// checked to be the handle's file (device and inode, by our handle's
// identity or another provider's handle comparison).  A handle of our own
// provider is then replaced, for the call, by one that reaches the file
// through the gate's descriptor (/proc/self/fd/N), so that a path swapped
// after the check cannot send the call to another file; another
// provider's handle is used as given.
//
// Not thread-safe: one gate per call; it keeps the descriptor open until
// it is destroyed, so the substituted handle is valid while it lives.
#ifndef QMX_HSM_ROOTD_ROOTD_FILEGATE_H_
#define QMX_HSM_ROOTD_ROOTD_FILEGATE_H_

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <vector>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rootd/rootd_caller.h"

// What the caller must be able to do with the file.
enum rtdNeed_t {
  rtdNeedReach,  // reach it (search permission on the way)
  rtdNeedRead,   // open it for reading
  rtdNeedOwn,    // own it
};

class rtdFileGate {
 public:
  rtdFileGate() = default;
  rtdFileGate(const rtdFileGate&) = delete;
  rtdFileGate& operator=(const rtdFileGate&) = delete;
  ~rtdFileGate();

  // Opens the file of the handle |hanp|/|hlen| for |caller| through |dm|
  // (which must outlive the gate).  Returns 0, or -1 with errno; when the
  // caller is refused rather than the file missing, |*refusal| is the
  // object to report (the path made printable, or "handle" when |dm| can't
  // tell a handle's path) and errno EPERM or EACCES.  EBADF: no handle, or
  // one whose path now names another file or none.
  int openHandle(const dmapiBinding_t& dm, const rtdCaller_t& caller, const void* hanp, size_t hlen,
                 rtdNeed_t need, std::string* refusal);
  // The same for an absolute |path| (EINVAL for a relative one).
  int openPath(const dmapiBinding_t& dm, const rtdCaller_t& caller, const char* path,
               rtdNeed_t need, std::string* refusal);

  // After openHandle: our provider's handle that reaches the file through
  // the gate, to make the call with; empty for another provider's handle
  // (the call uses the handle as given).
  const std::vector<unsigned char>& substitute() const { return sub_; }
  // After openPath: whether |hanp|/|hlen| (a handle the provider gave for
  // the path) is of the file the gate opened.
  bool isFileOf(const void* hanp, size_t hlen) const;

 private:
  int openAs(const char* path, rtdNeed_t need, std::string* refusal);
  int failOpen(const char* path, std::string* refusal);
  int checkIdentity();
  // The provider's comparison of the gate's file with another provider's
  // handle into |*cmp| (0: the same).  Returns 0, or -1 with errno.
  int compareOther(const void* hanp, size_t hlen, int* cmp) const;

  const dmapiBinding_t* dm_ = nullptr;
  const rtdCaller_t* caller_ = nullptr;
  int fd_ = -1;
  struct statx stx_ = {};
  const void* hanp_ = nullptr;  // the handle given
  size_t hlen_ = 0;
  std::vector<unsigned char> sub_;  // our handle through the descriptor, or empty
};

#endif  // QMX_HSM_ROOTD_ROOTD_FILEGATE_H_
