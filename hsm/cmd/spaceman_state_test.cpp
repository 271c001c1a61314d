#include "hsm/cmd/spaceman_state.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "hsm/dmapi/dmi_fsstate.h"
#include "hsm/dmapi/testing/dmi_testing.h"

namespace {

// A managed file system on our provider, with the client "installed" (the
// recall daemon's executable present under the system root).
class SpaceManStateTest : public dmitest::RootSessionSandbox {
 protected:
  SpaceManStateTest() : RootSessionSandbox("spaceman-test") {}
  void SetUp() override {
    RootSessionSandbox::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    x_->setSID(sid_);
    daemon_ = sysroot_ + "/opt/norvik/nqb/client/hsm/bin/qmxrecalld";
    qmxtest::writeFile(daemon_, "");
  }
  void setFs(bool recall, bool migrate) {
    fsmState st{};
    std::strncpy(st.fsName, fs_.c_str(), sizeof st.fsName - 1);
    st.flags =
        static_cast<unsigned char>((recall ? fsmRecallOn : 0) | (migrate ? fsmMigrateOn : 0));
    ASSERT_EQ(dmiEntrySetFSState(sid_, &st), 0);
  }
  void setGlobal(bool recall, bool migrate) {
    fsmState st{};
    st.flags =
        static_cast<unsigned char>((recall ? fsmRecallOn : 0) | (migrate ? fsmMigrateOn : 0));
    ASSERT_EQ(dmiEntrySetGlobalState(sid_, &st), 0);
  }

  std::string daemon_;
};

TEST_F(SpaceManStateTest, WithoutSpaceManDirectoryNothingIsManaged) {
  EXPECT_EQ(getSpaceManState(fs_.c_str()), SPACEMAN_NONE);
  EXPECT_EQ(qmxSpaceManIsInstalled(fs_.c_str()), -1);
  char dir[256];
  EXPECT_STREQ(qmxFSNameToSpaceManDir("/hsmfs/fs1", dir, sizeof dir), "/hsmfs/fs1/.SpaceMan");
}

TEST_F(SpaceManStateTest, StateFollowsTheFileSystemAndGlobalSwitches) {
  ASSERT_EQ(dmiCreateFSState(sid_, fs_.c_str()), 0);
  struct Case {
    bool recall, migrate;
    int state;
  } cases[] = {{true, true, SPACEMAN_ACTIVE},
               {false, false, SPACEMAN_INACTIVE},
               {true, false, SPACEMAN_RECALLONLY},
               {false, true, SPACEMAN_MIGONLY}};
  for (const Case& c : cases) {
    setFs(c.recall, c.migrate);
    EXPECT_EQ(getSpaceManState(fs_.c_str()), c.state) << c.recall << c.migrate;
  }
  // Globally deactivated overrides every file-system state, and still
  // counts as managed.
  setFs(true, true);
  setGlobal(false, false);
  EXPECT_EQ(getSpaceManState(fs_.c_str()), SPACEMAN_GLOBALDEACTIVATED);
  EXPECT_EQ(qmxSpaceManIsInstalled(fs_.c_str()), 0);
  setGlobal(true, false);
  EXPECT_EQ(getSpaceManState(fs_.c_str()), SPACEMAN_ACTIVE);
}

TEST_F(SpaceManStateTest, WithoutTheRecallDaemonNothingIsInstalled) {
  ASSERT_EQ(dmiCreateFSState(sid_, fs_.c_str()), 0);
  EXPECT_EQ(qmxSpaceManIsInstalled(nullptr), 0);
  EXPECT_EQ(qmxSpaceManIsInstalled(fs_.c_str()), 0);
  ASSERT_EQ(unlink(daemon_.c_str()), 0);
  EXPECT_EQ(qmxSpaceManIsInstalled(nullptr), -1);
  EXPECT_EQ(qmxSpaceManIsInstalled(fs_.c_str()), -1);
}

TEST_F(SpaceManStateTest, StoredSessionOfAllOnesIsReplacedAndErrnoKept) {
  ASSERT_EQ(dmiCreateFSState(sid_, fs_.c_str()), 0);
  opts_->dmapiSessionId = UINT64_MAX;
  errno = EMLINK;
  EXPECT_EQ(getSpaceManState(fs_.c_str()), SPACEMAN_ACTIVE);
  EXPECT_EQ(errno, EMLINK);
  EXPECT_EQ(opts_->dmapiSessionId, sid_);
  // Without any session the state is "no session", which still counts as
  // installed.
  x_->setSID(0);
  opts_->dmapiSessionId = 0;
  EXPECT_EQ(getSpaceManState(fs_.c_str()), SPACEMAN_NOSESSION);
  EXPECT_EQ(qmxSpaceManIsInstalled(fs_.c_str()), 0);
  x_->setSID(sid_);
}

}  // namespace
