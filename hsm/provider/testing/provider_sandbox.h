// Test support for the provider and the binding: a sandbox with its own
// system root (so the session registry is the test's own) and a scratch
// directory for files.  The trusted namespace needs root; tests that touch
// it skip themselves when run by anyone else.
#ifndef QMX_HSM_PROVIDER_TESTING_PROVIDER_SANDBOX_H_
#define QMX_HSM_PROVIDER_TESTING_PROVIDER_SANDBOX_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "hsm/provider/dmapi_iface.h"
#include "testing/sandbox_fixture.h"

// root_ is the sandbox's directory; the system root is root_/sysroot and
// the scratch directory root_/files.
class ProviderSandbox : public qmxtest::SandboxFixture {
 protected:
  ProviderSandbox()
      : SandboxFixture({.prefix = "qmxdm-test-"},
                       "DM attributes live in the trusted namespace: needs root") {}
  void SetUp() override {
    SandboxFixture::SetUp();
    if (IsSkipped()) return;
    root_ = box().path();
    box().makeDir("files");
  }

  // Creates (or rewrites) a file with |content| under the scratch
  // directory and returns its path.
  std::string makeFile(const std::string& name, const std::string& content = "data") {
    return box().write("files/" + name, content);
  }

  std::string root_;
};

inline dm_attrname_t attrName(const char* s) {
  dm_attrname_t n{};
  for (size_t i = 0; i < DM_ATTR_NAME_SIZE && s[i] != '\0'; ++i)
    n.an_chars[i] = static_cast<unsigned char>(s[i]);
  return n;
}

#endif  // QMX_HSM_PROVIDER_TESTING_PROVIDER_SANDBOX_H_
