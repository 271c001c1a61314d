// A sandbox for a test: a fresh directory (a TempDir) that is also, or
// holds, the system root.  While the sandbox lives QMX_SYSROOT names its
// system root, so every fixed absolute path of the client (configuration,
// run-time directories, sockets, the installed client) lands inside it;
// afterwards QMX_SYSROOT is as it was before and the directory is gone.
//
// Sandboxes nest (the inner one's root is in force until it goes) and are
// not thread-safe, like the environment they change.  A managed file
// system comes from the layer that can make one (hsm/dmapi/testing/, or
// the installed qmxstub for the tests that run the real programs).
#ifndef QMX_TESTING_SANDBOX_H_
#define QMX_TESTING_SANDBOX_H_

#include <sys/types.h>

#include <string>

#include "testing/scoped_env.h"
#include "testing/temp_dir.h"

namespace qmxtest {

class Sandbox : public TempDir {
 public:
  struct Options {
    std::string prefix = "qmxsandbox.";  // /tmp/<prefix>XXXXXX
    mode_t mode = 0700;                  // 0755 when other users run programs inside
    // The system root, relative to the directory; "" makes the directory
    // itself the system root.  It is made at once.
    std::string sysRoot = "sysroot";
  };

  Sandbox() : Sandbox(Options()) {}
  // Throws std::runtime_error, with the reason, when the directory or the
  // system root can't be made.
  explicit Sandbox(const Options& options);

  // The system root (QMX_SYSROOT's value while the sandbox lives).
  const std::string& sysRoot() const { return sysRoot_; }
  // The absolute path |abs| of the sandboxed system, under the system root.
  std::string sys(const std::string& abs) const { return sysRoot_ + abs; }

 private:
  std::string sysRoot_;
  ScopedEnv env_;
};

}  // namespace qmxtest

#endif  // QMX_TESTING_SANDBOX_H_
