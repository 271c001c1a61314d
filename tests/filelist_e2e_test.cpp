// File lists as users give them to qmxattr: files of names one a line, the
// NUL-separated output of "find -print0", standard input, and names that
// are no lists at all.
#include <fcntl.h>
#include <gtest/gtest.h>
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

// Long enough for any honest run; a list that blocks or never ends is
// killed then and shows as timed out.
constexpr int kHangLimitSec = 20;

RunOptions Bounded() {
  RunOptions o;
  o.timeoutSec = kHangLimitSec;
  return o;
}

// Names that a newline list would split, trim, unquote or skip.
const std::vector<std::string> kOddNames = {
    "plain",      "with blank", " leading blank", "\tleading tab", "trailing blank ",
    "\"quoted\"", "it's",       "* starred",      "x\ny",          "back\\slash",
    "#hash",      "'single'",   "end\r",
};

TEST_F(AttrTest, FindPrint0ListsAreReadAsNulSeparatedNamesVerbatim) {
  ASSERT_EQ(kOddNames.size(), 13u);
  qmxtest::makeDirs(fs_ + "/odd");
  for (const std::string& n : kOddNames) qmxtest::writeFile(fs_ + "/odd/" + n, "x");
  std::string list = sb_.root() + "/list0";
  RunResult f =
      sb_.run({"/bin/sh", "-c", "find \"$0\" -type f -print0 > \"$1\"", fs_ + "/odd", list});
  ASSERT_EQ(f.status, 0) << f.err;
  RunResult r = attr({"-FILELIST=" + list});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  std::vector<std::string> rows = Lines(r.out);
  for (const std::string& n : kOddNames) {
    if (n.find('\n') != std::string::npos) continue;  // shown on two lines
    EXPECT_GE(Find(rows, Row("-", n)), 0) << "'" << n << "' missing from\n" << r.out;
  }
  EXPECT_NE(r.out.find(Row("-", "x\ny")), std::string::npos) << r.out;

  // The same through a pipe on standard input.
  r = attrInShell("find \"$1\" -type f -print0 | \"$0\" -FILELIST=-", {fs_ + "/odd"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Count(r.out, "\n    -   "), 13u) << r.out;
}

TEST_F(AttrTest, StandardInputGivesTheListWhenTheNameIsADash) {
  std::string a = makeStub("a", {"--mode", "p"});
  std::string b = makeStub("b", {"--mode", "s"});
  RunOptions o;
  o.stdinText = a + "\n* a comment\n\n\"" + b + "\"\n";
  RunResult r = attr({"-FILELIST=-", fs_ + "/ignored-operand"}, o);
  EXPECT_EQ(r.status, 0) << r.err;
  std::vector<std::string> rows = Lines(r.out);
  EXPECT_GE(Find(rows, Row("p", "a")), 0) << r.out;
  EXPECT_GE(Find(rows, Row("s", "b")), 0) << r.out;
  EXPECT_EQ(r.err, "");
}

TEST_F(AttrTest, AListThatIsNoFileIsRefusedAtOnceWithWhatItIs) {
  std::string fifo = sb_.root() + "/nowriter.fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const struct {
    std::string name;
    const char* kind;
  } cases[] = {
      {sb_.root(), "it is a directory"},
      {fifo, "it is a FIFO"},
      {"/dev/zero", "it is a character device"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RunOptions o;
    o.timeoutSec = kHangLimitSec;
    RunResult r = attr({"-FILELIST=" + c.name}, o);
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 255) << r.out << r.err;
    EXPECT_NE(r.err.find("ANS4006E The file list '" + c.name + "' cannot be used: " + c.kind),
              std::string::npos)
        << r.err;
    EXPECT_EQ(r.out.find("File name"), std::string::npos) << r.out;  // nothing was listed
  }
  // Standard input may be a pipe or a terminal, not an endless device.
  RunResult r = attrInShell("exec \"$0\" \"$@\" < /dev/zero", {"-FILELIST=-"}, Bounded());
  EXPECT_FALSE(r.timedOut);
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("ANS4006E The file list '-' cannot be used: it is a character device"),
            std::string::npos)
      << r.err;
}

TEST_F(AttrTest, AListThatCannotBeReadEndsTheCommand) {
  // Standard input open for writing only: every read fails.
  std::string f = sb_.root() + "/writeonly";
  qmxtest::writeFile(f, "");
  RunOptions o;
  o.stdinFd = open(f.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(o.stdinFd, 0);
  RunResult r = attr({"-FILELIST=-"}, o);
  close(o.stdinFd);
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("ANS4007E The file list '-' could not be read: Bad file descriptor"),
            std::string::npos)
      << r.err;
}

TEST_F(AttrTest, ALinkToAListIsFollowed) {
  std::string a = makeStub("a", {"--mode", "p"});
  std::string list = sb_.root() + "/list";
  qmxtest::writeFile(list, a + "\n");
  ASSERT_EQ(symlink(list.c_str(), (sb_.root() + "/link").c_str()), 0);
  RunResult r = attr({"-FILELIST=" + sb_.root() + "/link"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_GE(Find(Lines(r.out), Row("p", "a")), 0) << r.out;
}

}  // namespace
