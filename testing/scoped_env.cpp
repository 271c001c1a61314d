#include "testing/scoped_env.h"

#include <cstdlib>

namespace qmxtest {

ScopedEnv::ScopedEnv(const std::string& name, const char* value) : name_(name) {
  const char* old = std::getenv(name.c_str());
  had_ = old != nullptr;
  if (had_) old_ = old;
  if (value != nullptr)
    setenv(name.c_str(), value, 1);
  else
    unsetenv(name.c_str());
}

void ScopedEnv::restore() {
  if (restored_) return;
  restored_ = true;
  if (had_)
    setenv(name_.c_str(), old_.c_str(), 1);
  else
    unsetenv(name_.c_str());
}

}  // namespace qmxtest
