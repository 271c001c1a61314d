// Test support for option processing: an environment variable set (or,
// with null, removed) for one test.  Option processing reads the client's
// snapshot of the environment, not the environment itself, so the snapshot
// is refreshed after the change and again after the old state is back.
#ifndef QMX_OPTIONS_TESTING_ENV_VAR_H_
#define QMX_OPTIONS_TESTING_ENV_VAR_H_

#include "platform/services.h"
#include "testing/scoped_env.h"

namespace opttest {

class EnvVar {
 public:
  EnvVar(const char* name, const char* value) : env_(name, value) { euGetEnvironment(1); }
  ~EnvVar() {
    env_.restore();
    euGetEnvironment(1);
  }
  EnvVar(const EnvVar&) = delete;
  EnvVar& operator=(const EnvVar&) = delete;

 private:
  qmxtest::ScopedEnv env_;
};

}  // namespace opttest

#endif  // QMX_OPTIONS_TESTING_ENV_VAR_H_
