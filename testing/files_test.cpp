#include "testing/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "testing/temp_dir.h"

namespace {

TEST(Files, WriteMakesMissingDirectoriesAndReplacesContent) {
  qmxtest::TempDir t;
  std::string p = t.path("a/b/c.txt");
  qmxtest::writeFile(p, std::string("one\0two", 7));
  EXPECT_EQ(qmxtest::readFile(p), std::string("one\0two", 7));
  qmxtest::writeFile(p, "x");
  EXPECT_EQ(qmxtest::readFile(p), "x");
  qmxtest::makeDirs(t.path("a/b"));  // existing: nothing to do
  qmxtest::makeDirs(t.path("rel/"), 0700);
  struct stat st {};
  ASSERT_EQ(stat(t.path("rel").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST(Files, FailuresNameThePathAndTheReason) {
  qmxtest::TempDir t;
  t.write("file", "x");
  try {
    qmxtest::writeFile(t.path("file/under"), "y");
    FAIL() << "wrote below a file";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find(t.path("file/under")), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("ENOTDIR"), std::string::npos) << e.what();
  }
  try {
    qmxtest::makeDirs(t.path("file/sub"));
    FAIL() << "made a directory below a file";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find(t.path("file") + ": ENOTDIR"), std::string::npos)
        << e.what();
  }
  EXPECT_THROW(qmxtest::makeDirs(t.path("file")), std::runtime_error);
}

TEST(Files, RemovingWhatIsNotThereIsNoFailure) {
  qmxtest::TempDir t;
  EXPECT_EQ(qmxtest::removeTree(t.path("never")), "");
}

TEST(Files, ErrnoInWords) {
  EXPECT_EQ(qmxtest::errnoText(ENOENT), "ENOENT (No such file or directory)");
  EXPECT_EQ(qmxtest::errnoText(99999).rfind("errno 99999 (", 0), 0u);
}

}  // namespace
