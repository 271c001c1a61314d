#include <errno.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "hsm/provider/qmxdm.h"
#include "hsm/provider/testing/provider_sandbox.h"
#include "testing/check.h"

namespace {

class DmAttrTest : public ProviderSandbox {
 protected:
  void SetUp() override {
    ProviderSandbox::SetUp();
    if (IsSkipped()) return;
    char info[] = "dmattr-test";
    ASSERT_TRUE(QMX_SYSCALL_OK(qmxdm_create_session(DM_NO_SESSION, info, &sid_)));
    path_ = makeFile("stub");
    ASSERT_TRUE(QMX_SYSCALL_OK(qmxdm_path_to_handle(path_.data(), &hanp_, &hlen_)));
  }
  void TearDown() override {
    if (hanp_ != nullptr) qmxdm_handle_free(hanp_, hlen_);
    ProviderSandbox::TearDown();
  }

  int set(const char* name, const std::string& value) {
    dm_attrname_t n = attrName(name);
    return qmxdm_set_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, &n, 0, value.size(),
                            const_cast<char*>(value.data()));
  }
  // Reads attribute |name| into |out| with a buffer of |buflen| bytes.
  int get(const char* name, size_t buflen, std::string* out, size_t* rlen) {
    dm_attrname_t n = attrName(name);
    std::vector<char> buf(buflen);
    int rc = qmxdm_get_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, &n, buflen, buf.data(), rlen);
    if (rc == 0) out->assign(buf.data(), *rlen);
    return rc;
  }

  dm_sessid_t sid_ = DM_NO_SESSION;
  std::string path_;
  void* hanp_ = nullptr;
  size_t hlen_ = 0;
};

TEST_F(DmAttrTest, ValuesRoundTripExactlyAsExtendedAttributes) {
  std::string record(124, '\0');
  for (size_t i = 0; i < record.size(); ++i) record[i] = static_cast<char>(i * 7);
  ASSERT_TRUE(QMX_SYSCALL_OK(set("KVRObj", record)));
  std::string back;
  size_t rlen = 0;
  ASSERT_TRUE(QMX_SYSCALL_OK(get("KVRObj", 1024, &back, &rlen)));
  EXPECT_EQ(rlen, 124u);
  EXPECT_EQ(back, record);

  // The attribute is the file's extended attribute, byte for byte.
  char raw[256];
  ssize_t n = getxattr(path_.c_str(), "trusted.dmapi.KVRObj", raw, sizeof raw);
  ASSERT_EQ(n, 124);
  EXPECT_EQ(std::string(raw, 124), record);

  // Rewriting replaces the value, also by a shorter one.
  ASSERT_EQ(set("KVRObj", "xy"), 0);
  ASSERT_EQ(get("KVRObj", 1024, &back, &rlen), 0);
  EXPECT_EQ(back, "xy");
}

TEST_F(DmAttrTest, NamesStopAtEightBytesOrTheFirstNul) {
  // A full 8-byte name has no terminator inside the name.
  dm_attrname_t full;
  std::memcpy(full.an_chars, "ABCDEFGH", 8);
  std::string v = "eight";
  ASSERT_EQ(qmxdm_set_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, &full, 0, v.size(), v.data()), 0);
  char raw[16];
  EXPECT_EQ(getxattr(path_.c_str(), "trusted.dmapi.ABCDEFGH", raw, sizeof raw), 5);

  // Bytes after the first NUL are not part of the name.
  dm_attrname_t padded{};
  std::memcpy(padded.an_chars, "KVR\0junk", 8);
  ASSERT_EQ(qmxdm_set_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, &padded, 0, v.size(), v.data()), 0);
  EXPECT_EQ(getxattr(path_.c_str(), "trusted.dmapi.KVR", raw, sizeof raw), 5);

  dm_attrname_t empty{};
  EXPECT_EQ(qmxdm_set_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, &empty, 0, v.size(), v.data()), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(DmAttrTest, SmallBufferGivesE2bigWithTheSizeNeeded) {
  ASSERT_EQ(set("KVRServ", std::string(65, 's')), 0);
  std::string back;
  size_t rlen = 0;
  EXPECT_EQ(get("KVRServ", 10, &back, &rlen), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(rlen, 65u);
  // A zero-length buffer asks for the size alone.
  rlen = 0;
  dm_attrname_t n = attrName("KVRServ");
  EXPECT_EQ(qmxdm_get_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, &n, 0, nullptr, &rlen), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(rlen, 65u);
  // An empty value reads back as empty, not as absent.
  ASSERT_EQ(set("KVRempty", ""), 0);
  EXPECT_EQ(get("KVRempty", 0, &back, &rlen), 0);
  EXPECT_EQ(rlen, 0u);
}

TEST_F(DmAttrTest, AbsentAttributeIsEnoentAndRemoveTakesItAway) {
  std::string back;
  size_t rlen;
  EXPECT_EQ(get("KVRPMig", 64, &back, &rlen), -1);
  EXPECT_EQ(errno, ENOENT);

  ASSERT_EQ(set("KVRPMig", std::string(28, 'p')), 0);
  dm_attrname_t n = attrName("KVRPMig");
  ASSERT_EQ(qmxdm_remove_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, 0, &n), 0);
  EXPECT_EQ(get("KVRPMig", 64, &back, &rlen), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(qmxdm_remove_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, 0, &n), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(DmAttrTest, HandleOfADeletedOrReplacedFileFails) {
  ASSERT_EQ(set("KVRObj", "old"), 0);
  // Replaced: another file renamed over the path.  Changes must not reach
  // the newcomer, and a missing attribute there is a stale handle, not an
  // absent attribute of our file.
  std::string other = makeFile("other", "new");
  ASSERT_EQ(rename(other.c_str(), path_.c_str()), 0);
  EXPECT_EQ(set("KVRObj", "lost"), -1);
  EXPECT_EQ(errno, EBADF);
  char raw[16];
  EXPECT_EQ(getxattr(path_.c_str(), "trusted.dmapi.KVRObj", raw, sizeof raw), -1);
  std::string back;
  size_t rlen;
  EXPECT_EQ(get("KVRObj", 64, &back, &rlen), -1);
  EXPECT_EQ(errno, EBADF);
  dm_attrname_t n = attrName("KVRObj");
  EXPECT_EQ(qmxdm_remove_dmattr(sid_, hanp_, hlen_, DM_NO_TOKEN, 0, &n), -1);
  EXPECT_EQ(errno, EBADF);

  // Deleted, and a new file made in its place (often in the same inode).
  ASSERT_EQ(unlink(path_.c_str()), 0);
  EXPECT_EQ(get("KVRObj", 64, &back, &rlen), -1);
  EXPECT_EQ(errno, EBADF);
  makeFile("stub", "reborn");
  EXPECT_EQ(set("KVRObj", "lost"), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(DmAttrTest, BadSessionTokenOrHandleIsRefused) {
  std::string v = "v";
  dm_attrname_t n = attrName("KVRObj");
  EXPECT_EQ(qmxdm_set_dmattr(DM_NO_SESSION, hanp_, hlen_, DM_NO_TOKEN, &n, 0, 1, v.data()), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(qmxdm_set_dmattr(sid_ + 12345, hanp_, hlen_, DM_NO_TOKEN, &n, 0, 1, v.data()), -1);
  EXPECT_EQ(errno, EINVAL);
  dm_token_t unknown{sid_, 99};
  EXPECT_EQ(qmxdm_set_dmattr(sid_, hanp_, hlen_, unknown, &n, 0, 1, v.data()), -1);
  EXPECT_EQ(errno, ESRCH);
  std::vector<char> garbage(hlen_, 'x');
  EXPECT_EQ(qmxdm_set_dmattr(sid_, garbage.data(), hlen_, DM_NO_TOKEN, &n, 0, 1, v.data()), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(qmxdm_set_dmattr(sid_, hanp_, hlen_ - 1, DM_NO_TOKEN, &n, 0, 1, v.data()), -1);
  EXPECT_EQ(errno, EBADF);
  // Nothing was written by any of them.
  char raw[4];
  EXPECT_EQ(getxattr(path_.c_str(), "trusted.dmapi.KVRObj", raw, sizeof raw), -1);
}

}  // namespace
