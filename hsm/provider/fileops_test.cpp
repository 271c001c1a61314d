#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "hsm/provider/qmxdm.h"
#include "hsm/provider/testing/provider_sandbox.h"

namespace {

class FileOpsTest : public ProviderSandbox {
 protected:
  void SetUp() override {
    ProviderSandbox::SetUp();
    if (IsSkipped()) return;
    char info[] = "fileops-test";
    ASSERT_EQ(qmxdm_create_session(DM_NO_SESSION, info, &sid_), 0);
    content_.resize(3 * 4096 + 100);
    for (size_t i = 0; i < content_.size(); ++i) content_[i] = static_cast<char>('a' + i % 26);
    path_ = makeFile("data", content_);
    // Old, distinct times, so that a change to them can't hide.
    struct timespec ts[2] = {{1000000, 0}, {2000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path_.c_str(), ts, 0), 0);
    ASSERT_EQ(qmxdm_path_to_handle(path_.data(), &h_, &hl_), 0);
  }
  void TearDown() override {
    if (h_ != nullptr) qmxdm_handle_free(h_, hl_);
    ProviderSandbox::TearDown();
  }
  struct stat now() {
    struct stat st {};
    stat(path_.c_str(), &st);
    return st;
  }
  dm_sessid_t sid_ = DM_NO_SESSION;
  std::string content_;
  std::string path_;
  void* h_ = nullptr;
  size_t hl_ = 0;
};

TEST_F(FileOpsTest, InvisibleReadsAndWritesLeaveTheTimes) {
  char buf[64];
  dm_ssize_t n = qmxdm_read_invis(sid_, h_, hl_, DM_NO_TOKEN, 26, sizeof buf, buf);
  ASSERT_EQ(n, 64);
  EXPECT_EQ(std::string(buf, 64), content_.substr(26, 64));
  // Reading past the end gives what there is.
  n = qmxdm_read_invis(sid_, h_, hl_, DM_NO_TOKEN, content_.size() - 10, sizeof buf, buf);
  EXPECT_EQ(n, 10);

  char data[] = "WRITTEN";
  ASSERT_EQ(qmxdm_write_invis(sid_, h_, hl_, DM_NO_TOKEN, DM_WRITE_SYNC, 5, 7, data), 7);
  n = qmxdm_read_invis(sid_, h_, hl_, DM_NO_TOKEN, 5, 7, buf);
  EXPECT_EQ(std::string(buf, 7), "WRITTEN");
  struct stat st = now();
  EXPECT_EQ(st.st_atime, 1000000);
  EXPECT_EQ(st.st_mtime, 2000000);

  EXPECT_EQ(qmxdm_write_invis(sid_, h_, hl_, DM_NO_TOKEN, 0x80, 0, 1, data), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileOpsTest, HolesCoverWholeBlocksAndKeepTheSize) {
  dm_stat_t st;
  ASSERT_EQ(qmxdm_get_fileattr(sid_, h_, hl_, DM_NO_TOKEN, DM_AT_STAT, &st), 0);
  const dm_off_t blk = st.dt_blksize;
  ASSERT_GT(blk, 0);

  dm_off_t roff;
  dm_size_t rlen;
  // An unaligned range shrinks to the whole blocks inside it.
  ASSERT_EQ(qmxdm_probe_hole(sid_, h_, hl_, DM_NO_TOKEN, 1, 2 * blk + 10, &roff, &rlen), 0);
  EXPECT_EQ(roff, blk);
  EXPECT_EQ(rlen, static_cast<dm_size_t>(blk));
  // Up to the end: the whole tail, reported as length 0.
  ASSERT_EQ(qmxdm_probe_hole(sid_, h_, hl_, DM_NO_TOKEN, 0, 0, &roff, &rlen), 0);
  EXPECT_EQ(roff, 0);
  EXPECT_EQ(rlen, 0u);
  EXPECT_EQ(qmxdm_probe_hole(sid_, h_, hl_, DM_NO_TOKEN, 1, 10, &roff, &rlen), -1);
  EXPECT_EQ(errno, EINVAL);

  EXPECT_EQ(qmxdm_punch_hole(sid_, h_, hl_, DM_NO_TOKEN, 1, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  ASSERT_EQ(qmxdm_punch_hole(sid_, h_, hl_, DM_NO_TOKEN, 0, 0), 0);
  struct stat after = now();
  EXPECT_EQ(after.st_size, static_cast<off_t>(content_.size()));
  EXPECT_EQ(after.st_mtime, 2000000);
  char buf[16];
  ASSERT_EQ(qmxdm_read_invis(sid_, h_, hl_, DM_NO_TOKEN, 100, sizeof buf, buf), 16);
  EXPECT_EQ(std::string(buf, 16), std::string(16, '\0'));
}

TEST_F(FileOpsTest, FileAttributesAreReadAndSetThroughTheHandle) {
  dm_stat_t st;
  ASSERT_EQ(qmxdm_get_fileattr(sid_, h_, hl_, DM_NO_TOKEN, DM_AT_STAT, &st), 0);
  EXPECT_EQ(st.dt_size, static_cast<dm_off_t>(content_.size()));
  EXPECT_TRUE(S_ISREG(st.dt_mode));
  EXPECT_EQ(st.dt_mtime, 2000000);
  EXPECT_EQ(st.dt_pmanreg, DM_FALSE);

  dm_fileattr_t fa{};
  fa.fa_mode = 0600;
  fa.fa_mtime = 3000000;
  fa.fa_size = 10;
  ASSERT_EQ(
      qmxdm_set_fileattr(sid_, h_, hl_, DM_NO_TOKEN, DM_AT_MODE | DM_AT_MTIME | DM_AT_SIZE, &fa),
      0);
  struct stat after = now();
  EXPECT_EQ(after.st_mode & 07777, 0600u);
  EXPECT_EQ(after.st_mtime, 3000000);
  EXPECT_EQ(after.st_atime, 1000000);  // not in the mask: untouched
  EXPECT_EQ(after.st_size, 10);

  EXPECT_EQ(qmxdm_set_fileattr(sid_, h_, hl_, DM_NO_TOKEN, DM_AT_HANDLE, &fa), -1);
  EXPECT_EQ(errno, EINVAL);
  ASSERT_EQ(unlink(path_.c_str()), 0);
  EXPECT_EQ(qmxdm_get_fileattr(sid_, h_, hl_, DM_NO_TOKEN, DM_AT_STAT, &st), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(qmxdm_read_invis(sid_, h_, hl_, DM_NO_TOKEN, 0, sizeof fa, &fa), -1);
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
