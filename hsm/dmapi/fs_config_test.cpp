#include "hsm/dmapi/fs_config.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/files.h"
#include "testing/sandbox_fixture.h"

namespace {

// The sandbox's directory is the system root.
class FSConfigTest : public qmxtest::SandboxFixture {
 protected:
  FSConfigTest() : SandboxFixture({.prefix = "qmxfscfg-", .sysRoot = ""}) {}
  void SetUp() override {
    SandboxFixture::SetUp();
    root_ = box().sysRoot();
    box().makeDir("etc/zpln/SpaceMan/config");
  }
  void write(const std::string& path, const std::string& text) { qmxtest::writeFile(path, text); }
  std::string root_;
};

TEST_F(FSConfigTest, TableListsManagedFileSystemsInOrder) {
  EXPECT_EQ(dmiFSTablePath(), root_ + "/etc/zpln/SpaceMan/config/dmiFSTable");
  std::vector<std::string> table{"leftover"};
  std::string error;
  // No table: nothing managed, which is not an error, but there is no first.
  ASSERT_EQ(dmiReadFSTable(&table, &error), 0);
  EXPECT_TRUE(table.empty());
  std::string first;
  EXPECT_EQ(dmiFirstManagedFS(&first, &error), -1);
  EXPECT_NE(error.find("no managed file system"), std::string::npos);

  write(dmiFSTablePath(), "# managed here\n/hsmfs/fs1/\n\n  /hsmfs/fs1/sub \r\n/vmp\n");
  ASSERT_EQ(dmiReadFSTable(&table, &error), 0) << error;
  EXPECT_EQ(table, (std::vector<std::string>{"/hsmfs/fs1", "/hsmfs/fs1/sub", "/vmp"}));
  ASSERT_EQ(dmiFirstManagedFS(&first, &error), 0);
  EXPECT_EQ(first, "/hsmfs/fs1");

  // The deepest entry holding a path names its file system.
  std::string fs;
  ASSERT_EQ(dmiGetFSName("/hsmfs/fs1/sub/a/b", &fs, &error), 0);
  EXPECT_EQ(fs, "/hsmfs/fs1/sub");
  ASSERT_EQ(dmiGetFSName("/hsmfs/fs1/subway/x", &fs, &error), 0);
  EXPECT_EQ(fs, "/hsmfs/fs1");
  ASSERT_EQ(dmiGetFSName("/vmp", &fs, &error), 0);
  EXPECT_EQ(fs, "/vmp");
  EXPECT_EQ(dmiGetFSName("/vmpx/file", &fs, &error), -1);
  EXPECT_NE(error.find("/vmpx/file is in no managed file system"), std::string::npos);
}

TEST_F(FSConfigTest, RelativeEntryIsRejectedWithItsLine) {
  write(dmiFSTablePath(), "/hsmfs/fs1\nrelative/fs\n");
  std::vector<std::string> table;
  std::string error;
  EXPECT_EQ(dmiReadFSTable(&table, &error), -1);
  EXPECT_TRUE(table.empty());
  EXPECT_NE(error.find("dmiFSTable line 2: \"relative/fs\" is not an absolute path"),
            std::string::npos)
      << error;
}

TEST_F(FSConfigTest, InstanceNumberDefaultsToOneAndRejectsNonsense) {
  short n = -1;
  std::string error;
  ASSERT_EQ(dmiReadInstanceNo(&n, &error), 0);
  EXPECT_EQ(n, 1);
  write(dmiInstanceNoPath(), " 3\n");
  ASSERT_EQ(dmiReadInstanceNo(&n, &error), 0);
  EXPECT_EQ(n, 3);
  EXPECT_EQ(getInstanceNo(), 3);
  for (const char* bad : {"0", "-2", "3x", "", "40000"}) {
    write(dmiInstanceNoPath(), bad);
    error.clear();
    EXPECT_EQ(dmiReadInstanceNo(&n, &error), -1) << bad;
    EXPECT_EQ(n, 0);
    EXPECT_NE(error.find("is not an instance number"), std::string::npos) << bad;
    EXPECT_EQ(getInstanceNo(), 0) << bad;
  }
}

}  // namespace
