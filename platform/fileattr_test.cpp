#include "platform/fileattr.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/textfile.h"
#include "testing/temp_dir.h"

namespace {

class TempDir : public ::testing::Test {
 protected:
  std::string Path(const char* n) const { return tmp_.path(n); }
  void Write(const char* n, const std::string& data) const { tmp_.write(n, data); }
  qmxtest::TempDir tmp_{"qmxfio."};
};

void* HeapAlloc(void* ctx, size_t n) {
  auto* blocks = static_cast<std::vector<void*>*>(ctx);
  blocks->push_back(std::malloc(n));
  return blocks->back();
}

void* FailAlloc(void*, size_t) {
  return nullptr;
}

TEST_F(TempDir, KindsAndLinkMarkFollowTheObjectNotItsTarget) {
  Write("file", "x");
  ASSERT_EQ(mkdir(Path("dir").c_str(), 0755), 0);
  ASSERT_EQ(symlink(Path("file").c_str(), Path("link").c_str()), 0);
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  Attrib a;
  ASSERT_EQ(fioStatPath(Path("file").c_str(), &a), 0);
  EXPECT_TRUE(attrIsPlainFile(a));
  EXPECT_EQ(a.uid, getuid());
  ASSERT_EQ(fioStatPath(Path("dir").c_str(), &a), 0);
  EXPECT_TRUE(attrIsDir(a));
  ASSERT_EQ(fioStatPath(Path("link").c_str(), &a), 0);
  EXPECT_EQ(a.type & ATTR_KIND_MASK, ATTR_KIND_FILE);
  EXPECT_EQ(a.type & ATTR_LINK_MASK, ATTR_LINK_SYMLINK);
  EXPECT_FALSE(attrIsPlainFile(a));
  ASSERT_EQ(fioStatPath(Path("fifo").c_str(), &a), 0);
  EXPECT_EQ(a.type, ATTR_KIND_FIFO);
  errno = 0;
  EXPECT_EQ(fioStatPath(Path("missing").c_str(), &a), -1);
  EXPECT_EQ(errno, ENOENT);

  fileSpec_t* fsp = newFileSpec("/", tmp_.path().c_str(), "/file");
  ASSERT_NE(fsp, nullptr);
  ASSERT_EQ(fioGetAttrib(fsp, &a, 0), 0);
  EXPECT_EQ(a.size, 1u);
  freeFileSpec(fsp);
}

TEST_F(TempDir, ListingIsSortedByByteOrderWithoutDotEntries) {
  for (const char* n : {"b", "a", "B", "_z", ".hidden"}) Write(n, "");
  ASSERT_EQ(mkdir(Path("sub").c_str(), 0755), 0);
  std::vector<void*> blocks;
  dirEntry_t* head = nullptr;
  ASSERT_EQ(fioGetDirEntries2(tmp_.path().c_str(), HeapAlloc, &blocks, &head), 0);
  std::vector<std::string> names;
  for (dirEntry_t* e = head; e != nullptr; e = e->next) {
    names.push_back(e->name);
    if (names.back() == "/sub") {
      EXPECT_TRUE(attrIsDir(e->attr));
    }
  }
  EXPECT_EQ(names, (std::vector<std::string>{"/.hidden", "/B", "/_z", "/a", "/b", "/sub"}));
  for (void* b : blocks) std::free(b);

  ASSERT_EQ(fioGetDirEntries2(Path("sub").c_str(), HeapAlloc, &blocks, &head), 0);
  EXPECT_EQ(head, nullptr);
  errno = 0;
  EXPECT_EQ(fioGetDirEntries2(tmp_.path().c_str(), FailAlloc, nullptr, &head), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(fioGetDirEntries2(Path("a").c_str(), HeapAlloc, &blocks, &head), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(TempDir, TextFileOpenerReportsWideFilesAndSkipsUtf8Mark) {
  Write("utf16", std::string("\xFF\xFE"
                             "a\0",
                             4));
  Write("utf16be", std::string("\xFE\xFF\0a", 4));
  Write("utf8", "\xEF\xBB\xBFline\n");
  Write("plain", "p\n");
  int wide = -1;
  FILE* f = utOpenTextFile(Path("utf16").c_str(), &wide);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(wide, 1);
  std::fclose(f);
  f = utOpenTextFile(Path("utf16be").c_str(), &wide);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(wide, 1);
  std::fclose(f);
  f = utOpenTextFile(Path("utf8").c_str(), &wide);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(wide, 0);
  char buf[32];
  ASSERT_NE(std::fgets(buf, sizeof buf, f), nullptr);
  EXPECT_STREQ(buf, "line\n");
  std::fclose(f);
  f = utOpenTextFile(Path("plain").c_str(), &wide);
  ASSERT_NE(f, nullptr);
  ASSERT_NE(std::fgets(buf, sizeof buf, f), nullptr);
  EXPECT_STREQ(buf, "p\n");
  std::fclose(f);
  EXPECT_EQ(utOpenTextFile(Path("none").c_str(), &wide), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(TempDir, TextFileOpenerReadsPipesFromTheirFirstByte) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const char text[] = "/a/list/entry\nsecond\n";
  ASSERT_EQ(write(fds[1], text, sizeof text - 1), static_cast<ssize_t>(sizeof text - 1));
  close(fds[1]);
  int wide = -1;
  FILE* f = utOpenTextFile(("/proc/self/fd/" + std::to_string(fds[0])).c_str(), &wide);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(wide, 0);
  char buf[64];
  ASSERT_NE(std::fgets(buf, sizeof buf, f), nullptr);
  EXPECT_STREQ(buf, "/a/list/entry\n");
  ASSERT_NE(std::fgets(buf, sizeof buf, f), nullptr);
  EXPECT_STREQ(buf, "second\n");
  std::fclose(f);
  close(fds[0]);
}

TEST(GetQuotedTokenTest, QuotesBlanksAndLimits) {
  const char* line = "  \"/a b/c\" rest 'x y'";
  char tok[16];
  ASSERT_EQ(GetQuotedToken(&line, tok, sizeof tok), 0);
  EXPECT_STREQ(tok, "/a b/c");
  ASSERT_EQ(GetQuotedToken(&line, tok, sizeof tok), 0);
  EXPECT_STREQ(tok, "rest");
  ASSERT_EQ(GetQuotedToken(&line, tok, sizeof tok), 0);
  EXPECT_STREQ(tok, "x y");
  ASSERT_EQ(GetQuotedToken(&line, tok, sizeof tok), 0);
  EXPECT_STREQ(tok, "");

  const char* open = "\"unclosed";
  EXPECT_EQ(GetQuotedToken(&open, tok, sizeof tok), 402);
  const char* longer = "0123456789abcdef";  // 16 characters need 17 bytes
  EXPECT_EQ(GetQuotedToken(&longer, tok, sizeof tok), 400);
  EXPECT_EQ(GetQuotedToken(nullptr, tok, sizeof tok), 109);
}

}  // namespace
