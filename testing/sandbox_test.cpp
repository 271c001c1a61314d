#include "testing/sandbox.h"

#include <glob.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "testing/sandbox_fixture.h"
#include "testing/scoped_env.h"

namespace {

std::optional<std::string> env(const char* name) {
  const char* v = std::getenv(name);
  return v != nullptr ? std::optional<std::string>(v) : std::nullopt;
}

bool isDir(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

TEST(ScopedEnv, PutsBackTheEarlierValueOrItsAbsenceOnce) {
  qmxtest::ScopedEnv none("QMX_TESTING_VAR", nullptr);
  {
    qmxtest::ScopedEnv set("QMX_TESTING_VAR", "one");
    EXPECT_EQ(env("QMX_TESTING_VAR"), "one");
    {
      qmxtest::ScopedEnv cleared("QMX_TESTING_VAR", nullptr);
      EXPECT_EQ(env("QMX_TESTING_VAR"), std::nullopt);
    }
    EXPECT_EQ(env("QMX_TESTING_VAR"), "one");
    qmxtest::ScopedEnv changed("QMX_TESTING_VAR", "two");
    changed.restore();
    EXPECT_EQ(env("QMX_TESTING_VAR"), "one");
    // Once restored, the object leaves later changes alone.
    setenv("QMX_TESTING_VAR", "three", 1);
  }
  EXPECT_EQ(env("QMX_TESTING_VAR"), std::nullopt);
}

TEST(Sandbox, SystemRootIsInForceWhileItLivesAndNests) {
  qmxtest::ScopedEnv outside("QMX_SYSROOT", "/elsewhere");
  std::string dir, inner;
  {
    qmxtest::Sandbox box;
    dir = box.path();
    EXPECT_EQ(box.sysRoot(), dir + "/sysroot");
    EXPECT_TRUE(isDir(box.sysRoot()));
    EXPECT_EQ(env("QMX_SYSROOT"), box.sysRoot());
    EXPECT_EQ(box.sys("/etc/zpln"), dir + "/sysroot/etc/zpln");
    {
      qmxtest::Sandbox::Options o;
      o.sysRoot = "";
      o.prefix = "qmxinner.";
      o.mode = 0755;
      qmxtest::Sandbox in(o);
      inner = in.path();
      EXPECT_EQ(in.sysRoot(), in.path());
      EXPECT_EQ(env("QMX_SYSROOT"), in.path());
    }
    EXPECT_EQ(env("QMX_SYSROOT"), box.sysRoot());
    EXPECT_FALSE(isDir(inner));
  }
  EXPECT_EQ(env("QMX_SYSROOT"), "/elsewhere");
  EXPECT_FALSE(isDir(dir));
}

TEST(Sandbox, RootThatCannotBeMadeLeavesNothingBehind) {
  qmxtest::ScopedEnv outside("QMX_SYSROOT", nullptr);
  qmxtest::Sandbox::Options o;
  o.prefix = "qmxrootless.";
  o.sysRoot = std::string(300, 'r');  // longer than a file name may be
  EXPECT_THROW(qmxtest::Sandbox box(o), std::runtime_error);
  EXPECT_EQ(env("QMX_SYSROOT"), std::nullopt);
  glob_t g{};
  EXPECT_EQ(glob("/tmp/qmxrootless.*", 0, nullptr, &g), GLOB_NOMATCH) << g.gl_pathv[0];
  globfree(&g);
}

// The fixture's sandbox exists for the test only: TearDown takes it, and
// puts the system root back.
class FixtureLifetime : public qmxtest::SandboxFixture {
 protected:
  FixtureLifetime() : outside_("QMX_SYSROOT", "/before") {}
  void TearDown() override {
    SandboxFixture::TearDown();
    EXPECT_FALSE(isDir(seen_));
    EXPECT_EQ(env("QMX_SYSROOT"), "/before");
  }
  qmxtest::ScopedEnv outside_;
  std::string seen_;
};

TEST_F(FixtureLifetime, SandboxDuringTheTestOnly) {
  seen_ = box().path();
  EXPECT_TRUE(isDir(seen_));
  EXPECT_EQ(env("QMX_SYSROOT"), box().sysRoot());
}

}  // namespace
