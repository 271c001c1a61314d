#include "testing/sandbox.h"

#include "testing/files.h"

namespace qmxtest {

namespace {

std::string makeRoot(const TempDir& dir, const std::string& rel) {
  if (rel.empty()) return dir.path();
  return dir.makeDir(rel);
}

}  // namespace

Sandbox::Sandbox(const Options& options)
    : TempDir(options.prefix, options.mode),
      sysRoot_(makeRoot(*this, options.sysRoot)),
      env_("QMX_SYSROOT", sysRoot_.c_str()) {}

}  // namespace qmxtest
