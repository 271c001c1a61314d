#include "platform/file_space.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

std::string Canon(const char* in) {
  std::string s(in);
  DoCanon(s.data(), '/');
  return std::string(s.c_str());
}

TEST(DoCanonTest, CollapsesSeparatorsDotsAndTrailingSlash) {
  EXPECT_EQ(Canon("/a//b///c/"), "/a/b/c");
  EXPECT_EQ(Canon("/a/./b/."), "/a/b");
  EXPECT_EQ(Canon("/a/b/../c"), "/a/c");
  EXPECT_EQ(Canon("/a/b/../../.."), "/");
  EXPECT_EQ(Canon("/.."), "/");
  EXPECT_EQ(Canon("//"), "/");
  EXPECT_EQ(Canon("/"), "/");
  EXPECT_EQ(Canon("a/../../b"), "../b");
  EXPECT_EQ(Canon("a/.."), ".");
  // A name that merely starts with dots is an ordinary name.
  EXPECT_EQ(Canon("/a/..b/.c"), "/a/..b/.c");
}

class ParseBackTest : public ::testing::Test {
 protected:
  void TearDown() override { psClearVirtualMountPoints(); }

  static std::string Parts(const char* path) {
    int rc = -1;
    fileSpec_t* fsp = parseBackOperand(path, &rc, 0);
    if (fsp == nullptr) return "rc=" + std::to_string(rc);
    std::string s = std::string(fsp->fsName) + "|" + fsp->hl + "|" + fsp->ll;
    char full[4096];
    EXPECT_STREQ(fsFullPath(fsp, full, sizeof full), path);
    freeFileSpec(fsp);
    return s;
  }
};

TEST_F(ParseBackTest, VirtualMountPointIsTheLongestPrefixAtABoundary) {
  ASSERT_EQ(psAddVirtualMountPoint("/qmxtest/fs1/"), 0);
  ASSERT_EQ(psAddVirtualMountPoint("/qmxtest/fs1/inner"), 0);
  EXPECT_EQ(Parts("/qmxtest/fs1/d1/d2/file"), "/qmxtest/fs1|/d1/d2|/file");
  EXPECT_EQ(Parts("/qmxtest/fs1/file"), "/qmxtest/fs1||/file");
  EXPECT_EQ(Parts("/qmxtest/fs1/inner/x"), "/qmxtest/fs1/inner||/x");
  EXPECT_EQ(Parts("/qmxtest/fs1"), "/qmxtest/fs1||");
  // "/qmxtest/fs10" shares the bytes of "/qmxtest/fs1" but not the boundary.
  EXPECT_EQ(psFileSpaceOf("/qmxtest/fs10/x").rfind("/qmxtest/fs1", 0), std::string::npos);
}

TEST_F(ParseBackTest, RootFileSpaceOwnsNoCharacter) {
  // The root is always a mount point; /proc is one too on Linux.
  std::string fs = psFileSpaceOf("/proc/self");
  EXPECT_EQ(fs, "/proc");
  int rc = 0;
  fileSpec_t* fsp = newFileSpec("/", "/a", "/b");
  ASSERT_NE(fsp, nullptr);
  char full[64];
  EXPECT_STREQ(fsFullPath(fsp, full, sizeof full), "/a/b");
  char tiny[4];
  EXPECT_EQ(fsFullPath(fsp, tiny, sizeof tiny), nullptr);
  freeFileSpec(fsp);
  EXPECT_EQ(parseBackOperand("relative/path", &rc, 0), nullptr);
  EXPECT_EQ(rc, 109);
  EXPECT_EQ(parseBackOperand("", &rc, 0), nullptr);
  EXPECT_EQ(psAddVirtualMountPoint("not/absolute"), 109);
}

}  // namespace
