// A fresh directory for one test, removed with everything in it when the
// object goes: at the end of the test, also when the test failed.
//
// Setting QMX_KEEP_SANDBOX in the environment keeps every such directory
// for a look afterwards; its path is then written to standard error.
//
// Only the process that made the directory removes it: a forked child that
// leaves through destructors never takes its parent's directory along.
//
// Not thread-safe; a test makes and drops it on its own thread.
#ifndef QMX_TESTING_TEMP_DIR_H_
#define QMX_TESTING_TEMP_DIR_H_

#include <sys/types.h>

#include <string>

namespace qmxtest {

class TempDir {
 public:
  // Makes /tmp/<prefix>XXXXXX with |mode| (0755 where programs run as other
  // users must reach files inside).  Throws std::runtime_error, with the
  // reason, when it can't.
  explicit TempDir(const std::string& prefix = "qmxtest.", mode_t mode = 0700);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The directory, and |rel| inside it.
  const std::string& path() const { return path_; }
  std::string path(const std::string& rel) const { return path_ + "/" + rel; }

  // Writes |content| to |rel| (making missing directories) and returns its
  // path.  Throws on failure.
  std::string write(const std::string& rel, const std::string& content) const;
  // The content of |rel|, or "" when it can't be read.
  std::string read(const std::string& rel) const;
  // Makes the directory |rel| (and those above it) and returns its path.
  // Throws on failure.
  std::string makeDir(const std::string& rel) const;

  // Removes the directory now (the destructor then has nothing left to
  // do).  Returns "" on success, else the reason, for a test that checks
  // its own clean-up.
  std::string remove();

 private:
  std::string path_;
  pid_t owner_;
  bool gone_ = false;
};

}  // namespace qmxtest

#endif  // QMX_TESTING_TEMP_DIR_H_
