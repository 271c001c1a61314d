// A test with a sandbox of its own (testing/sandbox.h): made in SetUp,
// gone in TearDown, also when the test failed.  Fixtures that need more
// (a scratch directory, a managed file system, the message system) derive
// from it and call its SetUp and TearDown first and last.
#ifndef QMX_TESTING_SANDBOX_FIXTURE_H_
#define QMX_TESTING_SANDBOX_FIXTURE_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "testing/sandbox.h"

namespace qmxtest {

class SandboxFixture : public ::testing::Test {
 protected:
  // With |needsRoot| (the reason, shown in the skip), the tests skip
  // themselves for users other than root, before anything is made.
  explicit SandboxFixture(Sandbox::Options options = {}, const char* needsRoot = nullptr)
      : options_(std::move(options)), needsRoot_(needsRoot) {}

  void SetUp() override {
    if (needsRoot_ != nullptr && geteuid() != 0) GTEST_SKIP() << needsRoot_;
    box_ = std::make_unique<Sandbox>(options_);
  }
  void TearDown() override { box_.reset(); }

  // The sandbox; only between SetUp and TearDown of a test not skipped.
  Sandbox& box() { return *box_; }

 private:
  Sandbox::Options options_;
  const char* needsRoot_;
  std::unique_ptr<Sandbox> box_;
};

}  // namespace qmxtest

#endif  // QMX_TESTING_SANDBOX_FIXTURE_H_
