#include "platform/sysroot.h"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

class SysRootTest : public ::testing::Test {
 protected:
  void TearDown() override { unsetenv("QMX_SYSROOT"); }
};

TEST_F(SysRootTest, UnsetOrEmptyLeavesPathsAsTheyAre) {
  unsetenv("QMX_SYSROOT");
  EXPECT_EQ(psSysPath("/etc/zpln/SpaceMan"), "/etc/zpln/SpaceMan");
  setenv("QMX_SYSROOT", "", 1);
  EXPECT_EQ(psSysPath("/opt/norvik/nqb/client/ba/bin"), "/opt/norvik/nqb/client/ba/bin");
  setenv("QMX_SYSROOT", "/", 1);
  EXPECT_EQ(psSysPath("/run/x"), "/run/x");
}

TEST_F(SysRootTest, RootIsPrefixedWithoutDoubledSlashes) {
  setenv("QMX_SYSROOT", "/tmp/sandbox//", 1);
  EXPECT_EQ(psSysRoot(), "/tmp/sandbox");
  EXPECT_EQ(psSysPath("/opt/norvik/nqb/client/hsm/bin/qmxrecalld"),
            "/tmp/sandbox/opt/norvik/nqb/client/hsm/bin/qmxrecalld");
  // Relative paths are not fixed paths of the system.
  EXPECT_EQ(psSysPath("qmx.opt"), "qmx.opt");
}

TEST_F(SysRootTest, BufferFormRefusesWhatDoesNotFit) {
  setenv("QMX_SYSROOT", "/r", 1);
  char buf[8];
  EXPECT_STREQ(psSysPath("/a/b", buf, sizeof buf), "/r/a/b");
  EXPECT_EQ(psSysPath("/abcdef", buf, sizeof buf), nullptr);
  EXPECT_STREQ(buf, "");
}

}  // namespace
