// Where qmxattr's words go and what its exit status says when they can't
// get there: standard output that fails or is closed, error logs that are
// no plain files or fill up, the error-log options of the system option
// file, and operands the command can't work on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "testing/files.h"
#include "tests/sandbox.h"
#include "tests/testing/attr_fixture.h"

namespace {

using attrtest::AttrTest;
using attrtest::Count;
using attrtest::Find;
using attrtest::Lines;
using attrtest::Row;

constexpr int kHangLimitSec = 20;

RunOptions Bounded() {
  RunOptions o;
  o.timeoutSec = kHangLimitSec;
  return o;
}

TEST_F(AttrTest, AFullStandardOutputIsAnErrorWithAMessage) {
  std::string f = makeStub("f");
  RunResult r = attrInShell("exec \"$0\" \"$@\" > /dev/full", {f});
  EXPECT_EQ(r.status, 12) << r.err;
  EXPECT_NE(r.err.find("ANS4020E Standard output could not be written: No space left on device"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(sessions(), "");
}

TEST_F(AttrTest, AClosedPipeEndsTheRunQuietlyAsSigpipeWould) {
  // Far more lines than a pipe holds, so that the reader is gone while the
  // command still has lines to write.
  qmxtest::makeDirs(fs_ + "/many");
  for (int i = 0; i < 1500; ++i) {
    qmxtest::writeFile(fs_ + "/many/" + std::string(100, 'n') + std::to_string(i), "x");
  }
  std::string status = sb_.root() + "/status";
  RunOptions o;
  o.env["STATUS"] = status;
  RunResult r =
      attrInShell("{ \"$0\" \"$@\"; echo $? > \"$STATUS\"; } | head -1", {fs_ + "/many"}, o);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(qmxtest::readFile(status), "141\n");  // 128 + SIGPIPE
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(Lines(r.out).size(), 1u) << r.out;
  EXPECT_EQ(sessions(), "");
  EXPECT_EQ(qmxtest::readFile(defaultLog()), "");
}

TEST_F(AttrTest, AnErrorLogThatIsALinkIsNeverWrittenThrough) {
  std::string f = makeStub("f");
  std::string other = sb_.root() + "/other";
  qmxtest::writeFile(other, "keep\n");
  std::string link = sb_.root() + "/link.log";
  ASSERT_EQ(symlink(other.c_str(), link.c_str()), 0);
  // The missing file's message would be logged.
  RunResult r = attr({"-ERRORLOGNAME=" + link, fs_ + "/missing", f});
  EXPECT_EQ(r.status, 12) << r.err;
  EXPECT_NE(r.err.find("ANS1398W The error log '" + link +
                       "' could not be opened (errno 40: it is a symbolic link)"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("ANS9126E"), std::string::npos) << r.err;
  EXPECT_EQ(qmxtest::readFile(other), "keep\n");
  EXPECT_GE(Find(Lines(r.out), Row("n", "f")), 0) << r.out;
}

TEST_F(AttrTest, AnErrorLogThatIsAFifoOrADeviceIsRefusedWithoutWaiting) {
  std::string f = makeStub("f");
  std::string fifo = sb_.root() + "/log.fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const struct {
    std::string log;
    RunOptions opts;
    const char* kind;
  } cases[] = {
      {fifo, Bounded(), "it is a FIFO"},
      {"/dev/zero", Bounded(), "it is a character device"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.log);
    RunResult r = attr({"-ERRORLOGNAME=" + c.log, f}, c.opts);
    EXPECT_FALSE(r.timedOut);
    // The refused log is a warning; the file is still shown.
    EXPECT_EQ(r.status, 8) << r.err;
    EXPECT_NE(r.err.find("ANS1398W The error log '" + c.log +
                         "' could not be opened (errno 22: " + c.kind + ")"),
              std::string::npos)
        << r.err;
    EXPECT_GE(Find(Lines(r.out), Row("n", "f")), 0) << r.out;
  }
  // QMX_LOG names the directory of the default log; a FIFO in its place is
  // refused the same way.
  std::string dir = sb_.root() + "/logs";
  qmxtest::makeDirs(dir);
  ASSERT_EQ(mkfifo((dir + "/qmxerror.log").c_str(), 0600), 0);
  RunOptions o;
  o.env["QMX_LOG"] = dir;
  o.timeoutSec = kHangLimitSec;
  RunResult r = attr({f}, o);
  EXPECT_FALSE(r.timedOut);
  EXPECT_EQ(r.status, 8) << r.err;
  EXPECT_NE(r.err.find("ANS1398W"), std::string::npos) << r.err;
}

TEST_F(AttrTest, AFullErrorLogIsReportedOnceAndRaisesTheStatusToAWarning) {
  std::string f = makeStub("f");
  std::string logfs = sb_.root() + "/logfs";
  qmxtest::makeDirs(logfs);
  if (mount("qmxlog", logfs.c_str(), "tmpfs", 0, "size=64k") != 0) {
    GTEST_SKIP() << "cannot mount a small file system here";
  }
  std::string log = logfs + "/qmxerror.log";
  qmxtest::writeFile(log, "");
  int fd = open((logfs + "/fill").c_str(), O_WRONLY | O_CREAT, 0600);
  std::string block(4096, 'x');
  while (fd >= 0 && write(fd, block.data(), block.size()) > 0) {
  }
  if (fd >= 0) close(fd);
  // Two missing names: two messages for the log, each a "skipped" one
  // (return code 4) when the log takes them.
  std::string list = sb_.root() + "/list";
  qmxtest::writeFile(list, fs_ + "/gone1\n" + fs_ + "/gone2\n" + f + "\n");
  RunResult r = attr({"-ERRORLOGNAME=" + log, "-FILELIST=" + list});
  std::string written = qmxtest::readFile(log);
  umount2(logfs.c_str(), MNT_DETACH);
  EXPECT_EQ(Count(r.err, "ANS4005E"), 2u) << r.err;
  EXPECT_EQ(Count(r.err, "ANS1399W"), 1u) << r.err;
  EXPECT_NE(r.err.find("ANS1399W The log file '" + log +
                       "' could not be written (errno 28: No space left on device)"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(r.status, 8) << r.err;
  EXPECT_EQ(written, "");
  EXPECT_GE(Find(Lines(r.out), Row("n", "f")), 0) << r.out;

  // The same list with a log that takes the lines ends with the skipped
  // files' code.
  r = attr({"-FILELIST=" + list});
  EXPECT_EQ(r.status, 4) << r.err;
  EXPECT_EQ(r.err.find("ANS1399W"), std::string::npos) << r.err;
}

TEST_F(AttrTest, ErrorLogOptionsOfTheSystemFileTakeEffect) {
  std::string f = makeStub("f");
  std::string log = sb_.root() + "/var/sys.log";
  writeSystemOptions("  ERRORLOGNAME " + log + "\n  ERRORLOGMAX 20000\n");
  RunResult r = attr({fs_ + "/missing", f});
  EXPECT_EQ(r.status, 12) << r.err;
  std::string text = qmxtest::readFile(log);
  // A wrapping log of the size asked for, with the one line of the run.
  EXPECT_EQ(text.rfind("LOGHEADERREC ", 0), 0u) << text;
  EXPECT_NE(text.find("20000"), std::string::npos) << text;
  EXPECT_EQ(Count(text, "ANS9126E"), 1u) << text;
  EXPECT_EQ(qmxtest::readFile(defaultLog()).find("ANS9126E"), std::string::npos);

  // The command line's name still wins over the system file's.
  std::string mine = sb_.root() + "/mine.log";
  r = attr({"-ERRORLOGNAME=" + mine, fs_ + "/missing", f});
  EXPECT_EQ(Count(qmxtest::readFile(mine), "ANS9126E"), 1u);
  EXPECT_EQ(Count(qmxtest::readFile(log), "ANS9126E"), 1u);

  // A retention period in the system file prunes the log it names.
  writeSystemOptions("  ERRORLOGNAME " + mine + "\n  ERRORLOGRETENTION 3\n");
  qmxtest::writeFile(mine, "01/01/2001 10:00:00 ANS9126E very old line\n");
  r = attr({fs_ + "/missing", f});
  text = qmxtest::readFile(mine);
  EXPECT_EQ(text.find("very old line"), std::string::npos) << text;
  EXPECT_EQ(Count(text, "ANS9126E"), 1u) << text;
}

TEST_F(AttrTest, AnOperandInBracesIsSkippedLikeAnyBadName) {
  std::string f = makeStub("f");
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"{", f}, std::vector<std::string>{f, "{"},
        std::vector<std::string>{f, "{fs}/a"}}) {
    SCOPED_TRACE(args[0] + " " + args[1]);
    RunResult r = attr(args);
    EXPECT_EQ(r.status, 12) << r.err;  // the error message's code
    EXPECT_NE(r.err.find("ANS1081E '{"), std::string::npos) << r.err;
    EXPECT_GE(Find(Lines(r.out), Row("n", "f")), 0) << r.out;
  }
}

}  // namespace
