#include "testing/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "testing/check.h"
#include "testing/files.h"
#include "testing/process.h"
#include "testing/scoped_env.h"

namespace {

bool exists(const std::string& p) {
  struct stat st;
  return lstat(p.c_str(), &st) == 0;
}

mode_t modeOf(const std::string& p) {
  struct stat st {};
  stat(p.c_str(), &st);
  return st.st_mode & 07777;
}

TEST(TempDir, FreshDirectoryWithTheModeAskedForGoesWithEverythingInIt) {
  qmxtest::ScopedEnv keep("QMX_KEEP_SANDBOX", nullptr);
  std::string path;
  {
    qmxtest::TempDir a("qmxtest-a.", 0755), b;
    path = a.path();
    EXPECT_EQ(path.rfind("/tmp/qmxtest-a.", 0), 0u) << path;
    EXPECT_NE(a.path(), b.path());
    EXPECT_EQ(modeOf(a.path()), 0755u);
    EXPECT_EQ(modeOf(b.path()), 0700u);
    EXPECT_EQ(a.path("x/y"), path + "/x/y");
    std::string f = a.write("deep/er/file", "text");
    EXPECT_EQ(f, path + "/deep/er/file");
    EXPECT_EQ(a.read("deep/er/file"), "text");
    EXPECT_EQ(a.read("missing"), "");
    EXPECT_EQ(a.makeDir("d1/d2"), path + "/d1/d2");
    ASSERT_EQ(symlink("/etc", a.path("link").c_str()), 0);
    ASSERT_EQ(chmod(a.path("d1").c_str(), 0500), 0);
  }
  EXPECT_FALSE(exists(path));
  EXPECT_TRUE(exists("/etc/passwd")) << "a link inside was removed, not followed";
}

TEST(TempDir, RemoveNowReportsAndLeavesNothingForTheDestructor) {
  qmxtest::ScopedEnv keep("QMX_KEEP_SANDBOX", nullptr);
  auto t = std::make_unique<qmxtest::TempDir>();
  std::string p = t->path();
  t->write("f", "x");
  EXPECT_EQ(t->remove(), "");
  EXPECT_FALSE(exists(p));
  EXPECT_EQ(t->path(), p) << "the path stays known for messages";
  // Someone else takes the name: the destructor must not remove it.
  qmxtest::makeDirs(p);
  t.reset();
  EXPECT_TRUE(exists(p));
  EXPECT_EQ(qmxtest::removeTree(p), "");
}

TEST(TempDir, KeptOnRequest) {
  std::string p;
  {
    qmxtest::ScopedEnv keep("QMX_KEEP_SANDBOX", "1");
    qmxtest::TempDir t;
    p = t.path();
    testing::internal::CaptureStderr();
    EXPECT_EQ(t.remove(), "");
    EXPECT_NE(testing::internal::GetCapturedStderr().find(p), std::string::npos);
  }
  EXPECT_TRUE(exists(p));
  EXPECT_EQ(qmxtest::removeTree(p), "");
}

TEST(TempDir, ForkedChildNeverRemovesItsParentsDirectory) {
  qmxtest::ScopedEnv keep("QMX_KEEP_SANDBOX", nullptr);
  auto t = std::make_unique<qmxtest::TempDir>();
  pid_t child = qmxtest::forkChild([&] {
    bool gone = t->remove().empty();
    t.reset();
    return gone ? 0 : 1;
  });
  ASSERT_TRUE(qmxtest::ChildExited(child, 0));
  EXPECT_TRUE(exists(t->path()));
}

TEST(TempDir, ImpossibleDirectoryIsAnExceptionWithTheReason) {
  try {
    qmxtest::TempDir t("no-such-dir/x");
    FAIL() << "made " << t.path();
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("/tmp/no-such-dir/xXXXXXX"), std::string::npos)
        << e.what();
    EXPECT_NE(std::string(e.what()).find("ENOENT"), std::string::npos) << e.what();
  }
}

// Another user's test leaves directories it can't write to; root removes
// anything, so the clean-up is tried as somebody else.
TEST(TempDir, ReadOnlyDirectoriesOfTheTestAreRemovedToo) {
  qmxtest::ScopedEnv keep("QMX_KEEP_SANDBOX", nullptr);
  pid_t child = qmxtest::forkChild([] {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 2;
    qmxtest::TempDir t;
    t.write("ro/inner/f", "x");
    if (chmod(t.path("ro/inner").c_str(), 0500) != 0 || chmod(t.path("ro").c_str(), 0) != 0)
      return 3;
    std::string p = t.path();
    if (!t.remove().empty()) return 4;
    return exists(p) ? 5 : 0;
  });
  EXPECT_TRUE(qmxtest::ChildExited(child, 0));
}

}  // namespace
