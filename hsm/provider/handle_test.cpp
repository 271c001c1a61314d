#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "hsm/provider/handle.h"
#include "hsm/provider/qmxdm.h"
#include "hsm/provider/testing/provider_sandbox.h"
#include "testing/check.h"

namespace {

class HandleTest : public ProviderSandbox {
 protected:
  struct Owned {
    void* p = nullptr;
    size_t len = 0;
    ~Owned() {
      if (p != nullptr) qmxdm_handle_free(p, len);
    }
  };
  std::string pathOf(const Owned& h) {
    char buf[4096];
    size_t rlen = 0;
    if (qmxdm_handle_to_path(nullptr, 0, h.p, h.len, sizeof buf, buf, &rlen) != 0) return "?";
    return std::string(buf);
  }
};

TEST_F(HandleTest, PathHandleResolvesBackToTheSameFile) {
  std::string p = makeFile("a");
  Owned h;
  ASSERT_EQ(qmxdm_path_to_handle(p.data(), &h.p, &h.len), 0);
  EXPECT_EQ(pathOf(h), p);
  EXPECT_EQ(qmxdm_handle_is_valid(h.p, h.len), DM_TRUE);

  // A relative path is anchored where it was given.
  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  ASSERT_EQ(chdir((root_ + "/files").c_str()), 0);
  Owned rel;
  char name[] = "a";
  int rc = qmxdm_path_to_handle(name, &rel.p, &rel.len);
  ASSERT_EQ(chdir(cwd), 0);
  ASSERT_EQ(rc, 0);
  EXPECT_EQ(pathOf(rel), p);
  EXPECT_EQ(qmxdm_handle_cmp(h.p, h.len, rel.p, rel.len), 0);

  char missing[] = "/nonexistent/qmxdm/file";
  Owned none;
  EXPECT_EQ(qmxdm_path_to_handle(missing, &none.p, &none.len), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(HandleTest, HandlesCompareByFileNotByPath) {
  std::string a = makeFile("a");
  std::string b = makeFile("b");
  std::string link = root_ + "/files/a-link";
  ASSERT_EQ(::link(a.c_str(), link.c_str()), 0);
  Owned ha, hb, hl, hf;
  ASSERT_EQ(qmxdm_path_to_handle(a.data(), &ha.p, &ha.len), 0);
  ASSERT_EQ(qmxdm_path_to_handle(b.data(), &hb.p, &hb.len), 0);
  ASSERT_EQ(qmxdm_path_to_handle(link.data(), &hl.p, &hl.len), 0);
  EXPECT_EQ(qmxdm_handle_cmp(ha.p, ha.len, hl.p, hl.len), 0);
  EXPECT_EQ(qmxdm_handle_hash(ha.p, ha.len), qmxdm_handle_hash(hl.p, hl.len));
  int ab = qmxdm_handle_cmp(ha.p, ha.len, hb.p, hb.len);
  EXPECT_NE(ab, 0);
  EXPECT_EQ(qmxdm_handle_cmp(hb.p, hb.len, ha.p, ha.len), -ab);

  // A descriptor's handle is the handle of its file, with its path.
  int fd = open(b.c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  int rc = qmxdm_fd_to_handle(fd, &hf.p, &hf.len);
  int err = errno;
  close(fd);
  ASSERT_TRUE(qmxtest::SyscallOk(rc, err, "qmxdm_fd_to_handle"));
  EXPECT_EQ(qmxdm_handle_cmp(hf.p, hf.len, hb.p, hb.len), 0);
  EXPECT_EQ(pathOf(hf), b);
}

TEST_F(HandleTest, DecodingRejectsAnythingButOurHandles) {
  std::string p = makeFile("a");
  Owned h;
  ASSERT_EQ(qmxdm_path_to_handle(p.data(), &h.p, &h.len), 0);
  std::vector<unsigned char> bytes(static_cast<unsigned char*>(h.p),
                                   static_cast<unsigned char*>(h.p) + h.len);
  qdmHandle_t d;
  ASSERT_EQ(qdmHandleDecode(bytes.data(), bytes.size(), &d), 0);
  EXPECT_STREQ(d.path, p.c_str());

  auto rejected = [&](std::vector<unsigned char> b) {
    return qdmHandleDecode(b.data(), b.size(), &d) == -1 && errno == EBADF &&
           qmxdm_handle_is_valid(b.data(), b.size()) == DM_FALSE;
  };
  std::vector<unsigned char> shorter(bytes.begin(), bytes.end() - 1);
  EXPECT_TRUE(rejected(shorter));
  std::vector<unsigned char> badMagic = bytes;
  badMagic[0] ^= 1;
  EXPECT_TRUE(rejected(badMagic));
  std::vector<unsigned char> inner = bytes;
  inner[inner.size() - 3] = '\0';  // a NUL inside the path
  EXPECT_TRUE(rejected(inner));
  std::vector<unsigned char> longer = bytes;
  longer.push_back(0);
  EXPECT_TRUE(rejected(longer));

  size_t rlen = 0;
  char small[4];
  EXPECT_EQ(qmxdm_handle_to_path(nullptr, 0, h.p, h.len, sizeof small, small, &rlen), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(rlen, p.size() + 1);
}

}  // namespace
