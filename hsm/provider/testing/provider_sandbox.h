// Test support for the provider and the binding: a sandbox with its own
// system root (so the session registry is the test's own) and a scratch
// directory for files.  The trusted namespace needs root; tests that touch
// it skip themselves when run by anyone else.
#ifndef QMX_HSM_PROVIDER_TESTING_PROVIDER_SANDBOX_H_
#define QMX_HSM_PROVIDER_TESTING_PROVIDER_SANDBOX_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "hsm/provider/dmapi_iface.h"

class ProviderSandbox : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "DM attributes live in the trusted namespace: needs root";
    char tmpl[] = "/tmp/qmxdm-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    ASSERT_EQ(setenv("QMX_SYSROOT", (root_ + "/sysroot").c_str(), 1), 0);
    ASSERT_EQ(mkdir((root_ + "/files").c_str(), 0755), 0);
  }
  void TearDown() override {
    unsetenv("QMX_SYSROOT");
    if (!root_.empty()) std::filesystem::remove_all(root_);
  }

  // Creates (or rewrites) a file with |content| under the scratch
  // directory and returns its path.
  std::string makeFile(const std::string& name, const std::string& content = "data") {
    std::string p = root_ + "/files/" + name;
    std::ofstream(p, std::ios::binary | std::ios::trunc) << content;
    return p;
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
