#include "platform/careful_file.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "testing/temp_dir.h"

namespace {

class CarefulFileTest : public ::testing::Test {
 protected:
  qmxtest::TempDir dir_{"qmxcareful."};
};

// Every kind of object a name can lead to, opened for reading: only a
// regular file is opened, and nothing blocks on the way.
TEST_F(CarefulFileTest, ReadingRefusesWhatIsNotARegularFileAndSaysWhatItIs) {
  std::string reg = dir_.write("plain", "abc");
  std::string sub = dir_.makeDir("sub");
  std::string fifo = dir_.path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::string sock = dir_.path("sock");
  int s = socket(AF_UNIX, SOCK_STREAM, 0);
  struct sockaddr_un sa {};
  sa.sun_family = AF_UNIX;
  std::snprintf(sa.sun_path, sizeof sa.sun_path, "%s", sock.c_str());
  ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&sa), sizeof sa), 0);
  std::string link = dir_.path("link");
  ASSERT_EQ(symlink(reg.c_str(), link.c_str()), 0);

  struct Case {
    std::string path;
    psLinkRule_t links;
    int err;  // 0: opens
    psFileKind_t kind;
  } cases[] = {
      {reg, psNoLinks, 0, psFileRegular},
      {sub, psFollowLinks, EINVAL, psFileDirectory},
      {fifo, psFollowLinks, EINVAL, psFileFifo},
      {sock, psFollowLinks, ENXIO, psFileSocket},
      {"/dev/zero", psFollowLinks, EINVAL, psFileCharDevice},
      {link, psFollowLinks, 0, psFileRegular},
      {link, psNoLinks, ELOOP, psFileSymlink},
      {dir_.path("absent"), psFollowLinks, ENOENT, psFileMissing},
  };
  for (const Case& c : cases) {
    psFileKind_t kind = psFileOther;
    errno = 0;
    int fd = psOpenForReading(c.path.c_str(), c.links, &kind);
    EXPECT_EQ(kind, c.kind) << c.path << ": " << psFileKindName(kind);
    if (c.err == 0) {
      ASSERT_GE(fd, 0) << c.path << ": " << std::strerror(errno);
      // The descriptor blocks again as usual.
      EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
      close(fd);
    } else {
      EXPECT_EQ(fd, -1) << c.path;
      EXPECT_EQ(errno, c.err) << c.path << ": " << std::strerror(errno);
    }
  }
  close(s);
}

TEST_F(CarefulFileTest, WholeFileReadsStopAtTheirBound) {
  std::string p = dir_.write("ten", "0123456789");
  std::string out;
  EXPECT_EQ(psReadWholeFile(p.c_str(), psNoLinks, 10, &out, nullptr), 0);
  EXPECT_EQ(out, "0123456789");
  errno = 0;
  EXPECT_EQ(psReadWholeFile(p.c_str(), psNoLinks, 9, &out, nullptr), -1);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(out.size(), 9u);
  // A device that never ends is refused before anything is read.
  psFileKind_t kind = psFileRegular;
  EXPECT_EQ(psReadWholeFile("/dev/zero", psFollowLinks, 1 << 20, &out, &kind), -1);
  EXPECT_EQ(kind, psFileCharDevice);
  EXPECT_TRUE(out.empty());
}

// The system's own files are never written through a link and never to
// anything but a regular file.
TEST_F(CarefulFileTest, OwnFilesAreNotWrittenThroughLinksOrIntoSpecialFiles) {
  std::string target = dir_.path("elsewhere");
  std::string dangling = dir_.path("state");
  ASSERT_EQ(symlink(target.c_str(), dangling.c_str()), 0);
  psFileKind_t kind = psFileRegular;
  errno = 0;
  EXPECT_EQ(psOpenOwnFile(dangling.c_str(), O_WRONLY | O_APPEND, 0600, &kind), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(kind, psFileSymlink);
  EXPECT_NE(access(target.c_str(), F_OK), 0) << "the link's target was created";

  std::string fifo = dir_.path("log.fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  errno = 0;
  // No reader: a plain open would fail or wait; refused as a FIFO either way.
  EXPECT_EQ(psOpenOwnFile(fifo.c_str(), O_WRONLY | O_APPEND, 0600, &kind), -1);
  EXPECT_EQ(kind, psFileFifo);

  int fd = psOpenOwnFile(dir_.path("log").c_str(), O_WRONLY | O_APPEND, 0640, &kind);
  ASSERT_GE(fd, 0) << std::strerror(errno);
  EXPECT_EQ(psWriteAll(fd, "line\n", 5), 0);
  close(fd);
  EXPECT_EQ(dir_.read("log"), "line\n");
  struct stat st;
  ASSERT_EQ(stat(dir_.path("log").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u & ~static_cast<unsigned>(umask(umask(0))));
}

TEST_F(CarefulFileTest, WritesToAFullDeviceFail) {
  int fd = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  errno = 0;
  EXPECT_EQ(psWriteAll(fd, "x", 1), -1);
  EXPECT_EQ(errno, ENOSPC);
  close(fd);
}

TEST_F(CarefulFileTest, ReplacingALinkReplacesTheLinkAndKeepsTheTargetUntouched) {
  std::string target = dir_.path("outside");
  std::string p = dir_.path("global");
  ASSERT_EQ(symlink(target.c_str(), p.c_str()), 0);
  ASSERT_EQ(psReplaceFile(p.c_str(), "\x03\0\0\0", 4, 0644), 0);
  struct stat st;
  ASSERT_EQ(lstat(p.c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  EXPECT_EQ(st.st_size, 4);
  EXPECT_NE(access(target.c_str(), F_OK), 0);

  // A directory in its place is not the system's to replace; a failed
  // replacement leaves nothing behind.
  std::string d = dir_.makeDir("adir");
  errno = 0;
  EXPECT_EQ(psReplaceFile(d.c_str(), "x", 1, 0644), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(psReplaceFile(dir_.path("nodir/file").c_str(), "x", 1, 0644), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(dir_.read("global"), std::string("\x03\0\0\0", 4));
}

// A reader beside a writer that keeps replacing the file sees one whole
// version or the other, never an empty or partial file.
TEST_F(CarefulFileTest, ReadersNeverSeeAPartialReplacement) {
  const std::string a(3000, 'a');
  const std::string b(5000, 'b');
  std::string p = dir_.write("state", a);
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    for (int i = 0; !stop; ++i) {
      const std::string& v = i % 2 == 0 ? b : a;
      if (psReplaceFile(p.c_str(), v.data(), v.size(), 0644) != 0) break;
    }
  });
  int bad = 0;
  std::string out;
  for (int i = 0; i < 2000; ++i) {
    ASSERT_EQ(psReadWholeFile(p.c_str(), psNoLinks, 1 << 16, &out, nullptr), 0)
        << std::strerror(errno);
    if (out != a && out != b) ++bad;
  }
  stop = true;
  writer.join();
  EXPECT_EQ(bad, 0);
}

}  // namespace
