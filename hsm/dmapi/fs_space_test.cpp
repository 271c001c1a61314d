// The file-system services on top of our provider: mode and reserve files.
#include <errno.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/dmapi/fs_mode.h"
#include "hsm/dmapi/space_reserve.h"
#include "hsm/provider/testing/provider_sandbox.h"

namespace {

class FSSpaceTest : public ProviderSandbox {
 protected:
  void SetUp() override {
    ProviderSandbox::SetUp();
    if (IsSkipped()) return;
    dmBindBuiltIn(&dm_);
    char info[] = "fs-space-test";
    ASSERT_EQ(dm_.create_session(DM_NO_SESSION, info, &sid_), 0);
    fs_ = root_ + "/files/fs";
    ASSERT_EQ(mkdir(fs_.c_str(), 0755), 0);
  }
  int mode() {
    int m = -1;
    if (dmiGetFSMode(dm_, sid_, fs_.c_str(), &m) != 0) return -2;
    return m;
  }
  dmapiBinding_t dm_{};
  dm_sessid_t sid_ = DM_NO_SESSION;
  std::string fs_;
};

TEST_F(FSSpaceTest, FileSystemIsManagedWhenItsStateFileCarriesKvrStat) {
  EXPECT_EQ(mode(), 0);  // no .SpaceMan at all
  ASSERT_EQ(mkdir((fs_ + "/.SpaceMan").c_str(), 0755), 0);
  EXPECT_EQ(mode(), 0);
  std::string state = makeFile("fs/.SpaceMan/dmiFSState", "");
  EXPECT_EQ(mode(), 0);  // state file without its attribute

  void* h;
  size_t hl;
  ASSERT_EQ(dm_.path_to_handle(state.data(), &h, &hl), 0);
  dm_attrname_t an = attrName("KVRStat");
  std::string value(1020, '\0');
  ASSERT_EQ(dm_.set_dmattr(sid_, h, hl, DM_NO_TOKEN, &an, 0, value.size(), value.data()), 0);
  EXPECT_EQ(mode(), 1);
  ASSERT_EQ(dm_.remove_dmattr(sid_, h, hl, DM_NO_TOKEN, 0, &an), 0);
  EXPECT_EQ(mode(), 0);
  dm_.handle_free(h, hl);

  // A broken session is a failure, not "unmanaged".
  int m = 7;
  EXPECT_EQ(dmiGetFSMode(dm_, sid_ + 1, fs_.c_str(), &m), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FSSpaceTest, ReserveFilesAreReleasedOneAtATime) {
  EXPECT_EQ(dmiFreeSpaceReserved(fs_.c_str(), 1), 0);  // no reserve directory
  std::filesystem::create_directories(dmiSpaceReserveDir(fs_.c_str()) + "/not-a-file");
  makeFile("fs/.SpaceMan/reserve/r2", std::string(4096, 'r'));
  makeFile("fs/.SpaceMan/reserve/r1", std::string(4096, 'r'));
  EXPECT_EQ(dmiFreeSpaceReserved(fs_.c_str(), 1), 1);
  EXPECT_FALSE(std::filesystem::exists(fs_ + "/.SpaceMan/reserve/r1"));
  EXPECT_TRUE(std::filesystem::exists(fs_ + "/.SpaceMan/reserve/r2"));
  EXPECT_EQ(dmiFreeSpaceReserved(fs_.c_str(), 1), 1);
  EXPECT_EQ(dmiFreeSpaceReserved(fs_.c_str(), 1), 0);
  EXPECT_TRUE(std::filesystem::is_directory(fs_ + "/.SpaceMan/reserve/not-a-file"));
  EXPECT_EQ(dmiFreeSpaceReserved(fs_.c_str(), -1), -1);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
