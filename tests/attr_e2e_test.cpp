// qmxattr run as a separate process against a sandboxed client: a system
// root with the installed client, option files, the recall daemon's
// executable and a managed file system made with qmxstub on real files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "testing/files.h"
#include "testing/process.h"
#include "tests/sandbox.h"
#include "tests/testing/attr_fixture.h"

namespace {

using attrtest::AttrTest;
using attrtest::Find;
using attrtest::Lines;
using attrtest::Row;

TEST_F(AttrTest, OnlyTheProgramNameListsTheCurrentDirectory) {
  makeStub("a", {"--mode", "p"});
  makeStub("b", {"--mode", "s"});
  qmxtest::writeFile(fs_ + "/resident", "x");
  qmxtest::makeDirs(fs_ + "/sub");
  RunResult r = attr({});
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> l = Lines(r.out);
  EXPECT_GE(Find(l, Row("p", "a")), 0) << r.out;
  EXPECT_GE(Find(l, Row("s", "b")), 0) << r.out;
  EXPECT_GE(Find(l, Row("-", "resident")), 0) << r.out;
  EXPECT_GE(Find(l, Row("<dir>", "sub/")), 0) << r.out;
  // The current directory itself gets no "<dir>" line, only its header.
  EXPECT_EQ(Find(l, Row("<dir>", "hsmfs/")), -1) << r.out;
  EXPECT_NE(r.out.find(fs_), std::string::npos);
}

// The reading end of |fifo| as a blocking descriptor, to be a program's
// standard input; -1 when it can't be opened.
int ReaderOf(const std::string& fifo) {
  int r = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (r >= 0 && fcntl(r, F_SETFL, 0) != 0) {
    close(r);
    return -1;
  }
  return r;
}

TEST_F(AttrTest, ARunLeavesNoSessionBehind) {
  // While a run waits on its list, read from a pipe on its standard input,
  // its session is in the registry; after the run it is gone.
  std::string f = makeStub("f");
  std::string fifo = sb_.root() + "/wait.fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  // The command must not inherit the writing end, or the pipe never ends.
  int w = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(w, 0);
  RunOptions o;
  o.stdinFd = ReaderOf(fifo);
  ASSERT_GE(o.stdinFd, 0);
  std::string seen;
  std::thread peek([&] {
    // Until the run has made its session (or the wait's end).
    qmxtest::waitUntil([&] { return !(seen = sessions()).empty(); }, qmxtest::kWaitLimit,
                       std::chrono::milliseconds(20));
    std::string line = f + "\n";
    if (write(w, line.data(), line.size()) < 0) return;
    close(w);
  });
  RunResult r = attr({"-FILELIST=-"}, o);
  peek.join();
  close(o.stdinFd);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_GE(Find(Lines(r.out), Row("n", "f")), 0) << r.out;
  EXPECT_NE(seen, "");
  EXPECT_EQ(sessions(), "");
}

TEST_F(AttrTest, LongGrammarKeywordsAndValues) {
  std::string f = makeStub("f", {"--mode", "n", "--compression", "none"});
  RunResult r = attr({"-RECA=p", f});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("ANS9033I"), std::string::npos) << r.out;
  r = attr({f});
  EXPECT_GE(Find(Lines(r.out), Row("p", "f")), 0) << r.out;

  r = attr({"-recallmode=streaming", f});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_GE(Find(Lines(attr({f}).out), Row("s", "f")), 0);

  r = attr({"-REC=p", f});
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("ANS1107E"), std::string::npos) << r.err;
  r = attr({"-RECALLMODE", f});
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("ANS9117E"), std::string::npos) << r.err;
  // Nothing was changed by the refused command lines.
  EXPECT_GE(Find(Lines(attr({f}).out), Row("s", "f")), 0);
}

TEST_F(AttrTest, StartUpOptionsAreCheckedEarly) {
  // Six letters are too short for TRACEFILE and TRACEFLAGS alike.
  RunResult r = attr({"-TRACEF=/tmp/x"});
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("ANS1107E"), std::string::npos) << r.err;
  r = attr({std::string(1279, 'a')});
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("ANS1246E"), std::string::npos) << r.err;
  // A trace file named on the command line is written.
  std::string trace = sb_.root() + "/trace.out";
  r = attr({"-TRACEFILE=" + trace, "-TRACEFLAGS=SM"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(qmxtest::readFile(trace).find("qmxSpaceManIsInstalled"), std::string::npos);
}

TEST_F(AttrTest, ErrorLogNameSlashMeansTheDefaultLog) {
  RunResult r = attr({"-ERRORLOGNAME=/", fs_ + "/missing"});
  EXPECT_NE(r.err.find("ANS9126E"), std::string::npos) << r.err;
  std::string log = qmxtest::readFile(sb_.clientDir() + "/ba/bin/qmxerror.log");
  EXPECT_NE(log.find("ANS9126E"), std::string::npos) << log;
  // The last operand's outcome (its attributes could not be read) is the
  // command's result.
  EXPECT_EQ(r.status, 255);
}

TEST_F(AttrTest, ShortGrammar) {
  writeOptions("OPTIONFORMAT SHORT\nLOGO NO\n");
  std::string f = makeStub("f", {"--compression", "none"});
  RunResult r = attr({"-r", "n", f});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_GE(Find(Lines(attr({f}).out), Row("n", "f")), 0);
  for (const char* bad : {"N", "normal"}) {
    r = attr({"-r", bad, f});
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.err.find("ANS9117E"), std::string::npos) << r.err;
  }
  r = attr({"-h"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Usage: qmxattr [-r n|p|s]"), std::string::npos) << r.out;
  r = attr({"-x"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Usage: qmxattr [-r n|p|s]"), std::string::npos) << r.out;
}

TEST_F(AttrTest, OperandsInOrderDirectoriesAfterwardsAscending) {
  std::vector<std::string> args;
  for (int i = 0; i < 25; ++i) args.push_back(makeStub("f" + std::to_string(10 + i)));
  qmxtest::makeDirs(fs_ + "/zdir");
  qmxtest::makeDirs(fs_ + "/adir");
  makeStub("zdir/inner");
  makeStub("adir/inner2");
  args.insert(args.begin() + 3, fs_ + "/zdir");
  args.insert(args.begin() + 5, "-RECU");  // options and operands mixed
  args.push_back("adir");                  // relative to the current directory
  RunResult r = attr(args);
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> l = Lines(r.out);
  int zdir = Find(l, Row("<dir>", "zdir/"));
  int last = Find(l, Row("n", "f34"));
  int adirHeader = -1, zdirHeader = -1;
  for (size_t i = 0; i < l.size(); ++i) {
    if (l[i].find(fs_ + "/adir") != std::string::npos) adirHeader = static_cast<int>(i);
    if (l[i].find(fs_ + "/zdir") != std::string::npos) zdirHeader = static_cast<int>(i);
  }
  ASSERT_GE(zdir, 0) << r.out;
  EXPECT_LT(zdir, last);
  // Directory contents come after every operand, in ascending path order.
  EXPECT_GT(adirHeader, last) << r.out;
  EXPECT_GT(zdirHeader, adirHeader) << r.out;
  EXPECT_GT(Find(l, Row("n", "inner")), zdirHeader);
}

TEST_F(AttrTest, RecursionListsFilesBeforeSubdirectoriesEachUnderItsHeader) {
  qmxtest::makeDirs(fs_ + "/top/b/deep");
  qmxtest::makeDirs(fs_ + "/top/a");
  makeStub("top/zz");
  makeStub("top/a/x");
  makeStub("top/b/deep/y");
  RunResult r = attr({"-RECURSIVE", fs_ + "/top"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> l = Lines(r.out);
  int top = -1, a = -1, b = -1, deep = -1;
  for (size_t i = 0; i < l.size(); ++i) {
    if (l[i].find("Directory: ") == std::string::npos) continue;
    std::string d = l[i].substr(l[i].find(": ") + 2);
    if (d == fs_ + "/top") top = static_cast<int>(i);
    if (d == fs_ + "/top/a") a = static_cast<int>(i);
    if (d == fs_ + "/top/b") b = static_cast<int>(i);
    if (d == fs_ + "/top/b/deep") deep = static_cast<int>(i);
  }
  ASSERT_GE(top, 0) << r.out;
  int zz = Find(l, Row("n", "zz"));
  EXPECT_GT(zz, top);
  EXPECT_GT(a, zz);  // the directory's own files first
  EXPECT_GT(b, a);
  EXPECT_GT(deep, b);
  // Each header is preceded by the separator line.
  EXPECT_EQ(l[static_cast<size_t>(a) - 1].find_first_not_of('-'), std::string::npos);
  // Without the recursive option only one level is listed.
  r = attr({fs_ + "/top"});
  EXPECT_EQ(r.out.find(fs_ + "/top/a"), std::string::npos) << r.out;
}

TEST_F(AttrTest, SymbolicLinksAreShownNeverFollowed) {
  std::string f = makeStub("target", {"--mode", "p"});
  ASSERT_EQ(symlink(f.c_str(), (fs_ + "/link").c_str()), 0);
  RunResult r = attr({fs_ + "/link"});
  EXPECT_GE(Find(Lines(r.out), Row("-", "link")), 0) << r.out;
  r = attr({"-RECA=n", fs_ + "/link"});
  EXPECT_EQ(r.out.find("ANS9033I"), std::string::npos);
  EXPECT_GE(Find(Lines(attr({f}).out), Row("p", "target")), 0);
}

TEST_F(AttrTest, FileListIgnoresOperandsAndRefusesDirectories) {
  std::string a = makeStub("a", {"--mode", "s"});
  std::string b = makeStub("b");
  qmxtest::makeDirs(fs_ + "/dir");
  std::string list = sb_.root() + "/list";
  qmxtest::writeFile(list, a + "\n" + fs_ + "/dir\n" + fs_ + "/nothere\n");
  RunResult r = attr({"-FILELIST=" + list, b});
  std::vector<std::string> l = Lines(r.out);
  EXPECT_GE(Find(l, Row("s", "a")), 0) << r.out;
  EXPECT_EQ(Find(l, Row("n", "b")), -1) << r.out;
  EXPECT_NE(r.err.find("ANS5184E"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("ANS4005E"), std::string::npos) << r.err;
  // The missing name is a "skipped" message: return code 4.
  EXPECT_EQ(r.status, 12);
  r = attr({"-FILELIST=" + sb_.root() + "/nolist"});
  EXPECT_EQ(r.status, 255);
}

TEST_F(AttrTest, SetModeNeedsOperandsAndRefusesCompressedPartialRecall) {
  RunResult r = attr({"-RECA=p"});
  EXPECT_EQ(r.status, 253);
  EXPECT_NE(r.out.find("ANS1079E"), std::string::npos) << r.out;
  std::string c = makeStub("packed", {"--compression", "yes"});
  r = attr({"-RECA=p", c});
  EXPECT_NE(r.err.find("Can't set recall mode of " + c + " to partial"), std::string::npos)
      << r.err;
  EXPECT_GE(Find(Lines(attr({c}).out), Row("n", "packed")), 0);
  // Streaming needs no known-uncompressed data.
  r = attr({"-RECA=s", c});
  EXPECT_EQ(r.status, 0) << r.err;
}

TEST_F(AttrTest, OverlongOperandsAreRefused) {
  // A current directory that still fits its buffer (1024 characters), with
  // an operand that makes the joined path pass the limit.
  std::string deep = fs_;
  while (deep.size() < 900) {
    deep += "/" + std::string(100, 'd');
    qmxtest::makeDirs(deep);
  }
  RunOptions inDeep;
  inDeep.cwd = deep;
  RunResult r = attr({std::string(1279 - deep.size(), 'x')}, inDeep);
  EXPECT_NE(r.err.find("ANS4031E"), std::string::npos) << r.err;
  // A name of exactly 1279 characters from a file list.
  std::string longDir = deep;
  while (longDir.size() < 1100) {
    longDir += "/" + std::string(100, 'e');
    qmxtest::makeDirs(longDir);
  }
  std::string name = longDir + "/";
  name += std::string(1279 - name.size(), 'f');
  ASSERT_EQ(name.size(), 1279u);
  qmxtest::writeFile(name, "x");
  qmxtest::writeFile(sb_.root() + "/list", name + "\n");
  r = attr({"-FILELIST=" + sb_.root() + "/list"});
  EXPECT_NE(r.err.find("ANS4031E"), std::string::npos) << r.err;
}

TEST_F(AttrTest, UnmanagedFileSystems) {
  std::string f = makeStub("f");
  ASSERT_EQ(unlink((sb_.clientDir() + "/hsm/bin/qmxrecalld").c_str()), 0);
  RunResult r = attr({f});
  EXPECT_NE(r.err.find("ANS9085E"), std::string::npos) << r.err;
  qmxtest::writeFile(sb_.clientDir() + "/hsm/bin/qmxrecalld", "");
  ASSERT_EQ(qmxtest::removeTree(fs_ + "/.SpaceMan"), "");
  r = attr({f});
  EXPECT_NE(r.err.find("ANS9085E"), std::string::npos) << r.err;
}

TEST_F(AttrTest, GloballyDeactivatedStillCountsAsManaged) {
  std::string f = makeStub("f", {"--mode", "p"});
  stub({"global", "--recall", "off", "--migrate", "off"});
  RunResult r = attr({f});
  EXPECT_EQ(r.err.find("ANS9085E"), std::string::npos) << r.err;
  EXPECT_GE(Find(Lines(r.out), Row("p", "f")), 0) << r.out;
}

TEST_F(AttrTest, FullTmpStopsTheCommandAfterTheBanner) {
  std::string f = makeStub("f");
  // The free-space query looks at /tmp under the system root: a tiny file
  // system there, filled to the last block, is a full /tmp.
  std::string tmp = sb_.sys("/tmp");
  qmxtest::makeDirs(tmp);
  if (mount("qmxtmp", tmp.c_str(), "tmpfs", 0, "size=64k") != 0) {
    GTEST_SKIP() << "cannot mount a small file system here";
  }
  int fd = open((tmp + "/fill").c_str(), O_WRONLY | O_CREAT, 0600);
  std::string block(4096, 'x');
  while (fd >= 0 && write(fd, block.data(), block.size()) > 0) {
  }
  if (fd >= 0) close(fd);
  RunResult r = attr({f});
  umount2(tmp.c_str(), MNT_DETACH);
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("ANS9313E"), std::string::npos) << r.err;
  EXPECT_NE(r.out.find("Copyright"), std::string::npos) << r.out;  // the banner came first
  EXPECT_EQ(r.out.find("File name"), std::string::npos) << r.out;  // nothing was listed
  // No DMAPI session was made.
  EXPECT_EQ(sessions(), "");
}

TEST_F(AttrTest, SigtermEndsTheRunWith255AndLeavesNoSession) {
  // A file list read from a pipe keeps the command waiting in the middle of
  // its work, with its DMAPI session open, until the signal comes.
  std::string f = makeStub("f");
  std::string fifo = sb_.root() + "/list.fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  int w = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(w, 0);
  std::string line = f + "\n";
  ASSERT_EQ(write(w, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  RunOptions o;
  o.stdinFd = ReaderOf(fifo);
  ASSERT_GE(o.stdinFd, 0);
  o.signal = SIGTERM;
  // Once the command has taken the listed name and waits for the next.
  o.signalWhen = [&](pid_t pid) { return qmxtest::waitsReading(pid, fifo); };
  RunResult r = attr({"-FILELIST=-"}, o);
  close(o.stdinFd);
  close(w);
  EXPECT_FALSE(r.timedOut);
  EXPECT_EQ(r.status, 255) << r.err;
  EXPECT_GE(Find(Lines(r.out), Row("n", "f")), 0) << r.out;
  // The session of the run is gone from the registry, and so is its
  // session-log marker.
  EXPECT_EQ(sessions(), "");
  RunResult marks = sb_.run({"/bin/sh", "-c", "ls '" + fs_ + "/.SpaceMan/logdir/'* 2>/dev/null"});
  EXPECT_EQ(marks.out.find(".sess"), std::string::npos) << marks.out;
}

}  // namespace
