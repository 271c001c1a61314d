// One environment variable set (or removed) for a while: the value it had
// before, or its absence, comes back when the object goes or at restore().
//
// Not thread-safe: the environment is the process's; change it only while
// no other thread reads it.
#ifndef QMX_TESTING_SCOPED_ENV_H_
#define QMX_TESTING_SCOPED_ENV_H_

#include <string>

namespace qmxtest {

class ScopedEnv {
 public:
  // Sets |name| to |value|, or removes it when |value| is null.
  ScopedEnv(const std::string& name, const char* value);
  ~ScopedEnv() { restore(); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

  // Puts the earlier state back now (once; later calls do nothing), for a
  // caller that must act on the restored environment before the object
  // goes.
  void restore();

 private:
  std::string name_, old_;
  bool had_ = false;
  bool restored_ = false;
};

}  // namespace qmxtest

#endif  // QMX_TESTING_SCOPED_ENV_H_
