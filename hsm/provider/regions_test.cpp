#include <errno.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <string>
#include <vector>

#include "hsm/provider/qmxdm.h"
#include "hsm/provider/testing/provider_sandbox.h"

namespace {

class RegionTest : public ProviderSandbox {
 protected:
  void SetUp() override {
    ProviderSandbox::SetUp();
    if (IsSkipped()) return;
    char info[] = "region-test";
    ASSERT_EQ(qmxdm_create_session(DM_NO_SESSION, info, &sid_), 0);
    path_ = makeFile("f", std::string(10000, 'x'));
    ASSERT_EQ(qmxdm_path_to_handle(path_.data(), &h_, &hl_), 0);
  }
  void TearDown() override {
    if (h_ != nullptr) qmxdm_handle_free(h_, hl_);
    ProviderSandbox::TearDown();
  }
  int setRegions(std::vector<dm_region_t> r, dm_boolean_t* exact) {
    return qmxdm_set_region(sid_, h_, hl_, DM_NO_TOKEN, static_cast<unsigned int>(r.size()),
                            r.data(), exact);
  }
  std::vector<dm_region_t> getRegions() {
    std::vector<dm_region_t> r(16);
    unsigned int n = 0;
    if (qmxdm_get_region(sid_, h_, hl_, DM_NO_TOKEN, 16, r.data(), &n) != 0) return {};
    r.resize(n);
    return r;
  }
  dm_sessid_t sid_ = DM_NO_SESSION;
  std::string path_;
  void* h_ = nullptr;
  size_t hl_ = 0;
};

bool same(const dm_region_t& a, const dm_region_t& b) {
  return a.rg_offset == b.rg_offset && a.rg_size == b.rg_size && a.rg_flags == b.rg_flags;
}

TEST_F(RegionTest, RegionsAreStoredExactlyAndReplacedAsAWhole) {
  EXPECT_TRUE(getRegions().empty());
  dm_boolean_t exact = DM_FALSE;
  std::vector<dm_region_t> two = {{0, 4096, DM_REGION_READ, 0},
                                  {8192, 0, DM_REGION_WRITE | DM_REGION_TRUNCATE, 0}};
  ASSERT_EQ(setRegions(two, &exact), 0);
  EXPECT_EQ(exact, DM_TRUE);
  std::vector<dm_region_t> back = getRegions();
  ASSERT_EQ(back.size(), 2u);
  EXPECT_TRUE(same(back[0], two[0]));
  EXPECT_TRUE(same(back[1], two[1]));

  // A short array learns the count.
  dm_region_t one;
  unsigned int n = 0;
  EXPECT_EQ(qmxdm_get_region(sid_, h_, hl_, DM_NO_TOKEN, 1, &one, &n), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(n, 2u);

  // The layer's reset: one region over the whole file, all three events.
  ASSERT_EQ(setRegions({{0, 0, 7, 0}}, &exact), 0);
  back = getRegions();
  ASSERT_EQ(back.size(), 1u);
  EXPECT_TRUE(same(back[0], dm_region_t{0, 0, 7, 0}));

  // No regions at all clears them.
  ASSERT_EQ(setRegions({}, &exact), 0);
  EXPECT_TRUE(getRegions().empty());
  EXPECT_EQ(getxattr(path_.c_str(), "trusted.qmxdm.regions", nullptr, 0), -1);
}

TEST_F(RegionTest, BadRegionsAreRefusedAndKeepTheOldOnes) {
  dm_boolean_t exact;
  ASSERT_EQ(setRegions({{0, 100, DM_REGION_READ, 0}}, &exact), 0);
  EXPECT_EQ(setRegions({{0, 100, 0x10, 0}}, &exact), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(setRegions({{0, 100, 1, 0}, {50, 10, 1, 0}}, &exact), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(setRegions({{4096, 0, 1, 0}, {0, 8192, 1, 0}}, &exact), -1);  // to-end overlaps
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(setRegions({{-1, 10, 1, 0}}, &exact), -1);
  EXPECT_EQ(errno, EINVAL);
  std::vector<dm_region_t> many(1000, dm_region_t{0, 1, 1, 0});
  EXPECT_EQ(setRegions(many, &exact), -1);
  EXPECT_EQ(errno, E2BIG);
  std::vector<dm_region_t> back = getRegions();
  ASSERT_EQ(back.size(), 1u);
  EXPECT_TRUE(same(back[0], dm_region_t{0, 100, DM_REGION_READ, 0}));

  // Only regular files have regions.
  std::string dir = root_ + "/files/d";
  ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
  void* dh;
  size_t dhl;
  ASSERT_EQ(qmxdm_path_to_handle(dir.data(), &dh, &dhl), 0);
  dm_region_t r{0, 0, 1, 0};
  EXPECT_EQ(qmxdm_set_region(sid_, dh, dhl, DM_NO_TOKEN, 1, &r, &exact), -1);
  EXPECT_EQ(errno, EINVAL);
  qmxdm_handle_free(dh, dhl);
}

TEST_F(RegionTest, RegionsAreNotDmAttributes) {
  dm_boolean_t exact;
  ASSERT_EQ(setRegions({{0, 0, 7, 0}}, &exact), 0);
  // The fullest DM attribute names can't reach the region store.
  for (const char* name : {"regions", "qmxdm.re", "..", "/"}) {
    dm_attrname_t an = attrName(name);
    char v[] = "x";
    EXPECT_EQ(qmxdm_set_dmattr(sid_, h_, hl_, DM_NO_TOKEN, &an, 0, 1, v), 0) << name;
    EXPECT_EQ(qmxdm_remove_dmattr(sid_, h_, hl_, DM_NO_TOKEN, 0, &an), 0) << name;
  }
  EXPECT_EQ(getRegions().size(), 1u);

  dm_stat_t st;
  ASSERT_EQ(qmxdm_get_fileattr(sid_, h_, hl_, DM_NO_TOKEN, DM_AT_PMANR, &st), 0);
  EXPECT_EQ(st.dt_pmanreg, DM_TRUE);
  EXPECT_NE(st.dt_emask & (1ULL << DM_EVENT_READ), 0u);
}

}  // namespace
