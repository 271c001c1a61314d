#include "hsm/cmd/hsm_file_list.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "diag/nl.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/cmd/testing/cmd_test_util.h"
#include "testing/temp_dir.h"

namespace {

class FileListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cmdtest::StartMessages();
    if (HasFatalFailure()) return;
    cb_ = HSMGlobalCB::GetHsmCB();
    std::free(cb_->operands);
    cb_->operands = nullptr;
    cb_->operandCount = 0;
    cb_->fileListName[0] = '\0';
  }
  void TearDown() override {
    nlterm();
    ASSERT_EQ(tmp_.remove(), "");
  }
  std::string Write(const std::string& name, const std::string& text) {
    return tmp_.write(name, text);
  }
  std::vector<std::string> Drain(HsmFileList& l) {
    std::vector<std::string> v;
    while (const char* i = l.getNextItem()) v.push_back(i);
    return v;
  }
  void Name(const std::string& list) {
    std::snprintf(cb_->fileListName, sizeof cb_->fileListName, "%s", list.c_str());
  }
  // The names the list |list| gives, and what it said on standard error.
  std::vector<std::string> Names(const std::string& list, std::string* err) {
    Name(list);
    HsmFileList l(cb_);
    EXPECT_EQ(l.init(), 0);
    testing::internal::CaptureStderr();
    std::vector<std::string> got = Drain(l);
    *err = testing::internal::GetCapturedStderr();
    return got;
  }
  // init() of the list |list| (read from |stdinFd| when it is "-"), with
  // what it said on standard error.
  int Init(const std::string& list, std::string* err, int stdinFd = STDIN_FILENO) {
    Name(list);
    HsmFileList l(cb_, stdinFd);
    testing::internal::CaptureStderr();
    int rc = l.init();
    *err = testing::internal::GetCapturedStderr();
    return rc;
  }

  qmxtest::TempDir tmp_{"qmxflist."};
  const std::string dir_ = tmp_.path();
  HSMGlobalCB* cb_ = nullptr;
};

TEST_F(FileListTest, OperandsComeBackInCommandLineOrder) {
  static char a[] = "a", b[] = "b";
  cb_->operands = static_cast<char**>(std::calloc(20, sizeof(char*)));
  cb_->operands[0] = a;
  cb_->operands[1] = b;
  cb_->operandCount = 2;
  HsmFileList l(cb_);
  ASSERT_EQ(l.init(), 0);
  EXPECT_FALSE(l.isEmpty());
  EXPECT_EQ(Drain(l), (std::vector<std::string>{"a", "b"}));
  cb_->operandCount = 0;
  EXPECT_TRUE(HsmFileList(cb_).isEmpty());
}

TEST_F(FileListTest, ListLinesGiveRegularFilesAndReportTheRest) {
  std::string f1 = Write("plain", "x");
  std::string f2 = Write("with blank", "y");
  ASSERT_EQ(mkdir((dir_ + "/sub").c_str(), 0755), 0);
  std::string list = Write("list", f1 + " trailing words\n" +
                                       "* a comment line\n"
                                       "\n\"" +
                                       f2 + "\"\n" + dir_ + "/sub\n" + dir_ + "/missing\n\"" +
                                       dir_ + "/unclosed\n");
  std::snprintf(cb_->fileListName, sizeof cb_->fileListName, "%s", list.c_str());
  // Operands are ignored once a file list is given.
  static char ignored[] = "ignored";
  cb_->operands = static_cast<char**>(std::calloc(20, sizeof(char*)));
  cb_->operands[0] = ignored;
  cb_->operandCount = 1;
  HsmFileList l(cb_);
  ASSERT_EQ(l.init(), 0);
  testing::internal::CaptureStderr();
  std::vector<std::string> got = Drain(l);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(got, (std::vector<std::string>{f1, f2}));
  EXPECT_NE(err.find("ANS5184E"), std::string::npos) << err;  // the directory
  EXPECT_NE(err.find(dir_ + "/sub"), std::string::npos) << err;
  EXPECT_NE(err.find("ANS4005E"), std::string::npos) << err;  // 14005, shown with four digits
  EXPECT_NE(err.find(dir_ + "/missing"), std::string::npos) << err;
  EXPECT_NE(err.find("unclosed"), std::string::npos) << err;
}

TEST_F(FileListTest, AQuotedNameRunsToTheLastQuoteOfItsKind) {
  std::string dq = Write("say \"hi\" now", "x");
  std::string sq = Write("it's", "x");
  std::string plain = Write("plain", "x");
  std::string err;
  std::string list = Write(
      "list", "\"" + dq + "\"\n'" + sq + "' and more\n\"" + plain + "\" then 'quoted words'\n");
  EXPECT_EQ(Names(list, &err), (std::vector<std::string>{dq, sq, plain})) << err;
  EXPECT_EQ(err, "");
}

TEST_F(FileListTest, BlanksAndTabsBeforeANameAndCommentsAreSkipped) {
  std::string a = Write("a", "x");
  std::string b = Write("b", "x");
  std::string err;
  std::string list = Write("list", "\t" + a + "\n \t * comment\n\t\n  \t" + b + "\tafter\r\n");
  EXPECT_EQ(Names(list, &err), (std::vector<std::string>{a, b}));
  EXPECT_EQ(err, "");
}

TEST_F(FileListTest, NulSeparatedNamesAreTakenVerbatim) {
  // Each would be split, trimmed, unquoted or skipped in a newline list.
  const std::vector<std::string> odd = {"\tlead", " blank ",   "*star", "\"q\"",
                                        "a'b",    "new\nline", "cr\r"};
  std::string text;
  std::vector<std::string> want;
  for (const std::string& n : odd) {
    want.push_back(Write(n, "x"));
    text += want.back() + std::string(1, '\0');
  }
  text += std::string(1, '\0');  // an empty name: nothing
  want.push_back(Write("last", "x"));
  text += want.back();  // the last name needs no NUL
  std::string err;
  EXPECT_EQ(Names(Write("list0", text), &err), want);
  EXPECT_EQ(err, "");
}

TEST_F(FileListTest, NulSeparatedNamesTooLongOrMissingAreReported) {
  std::string good = Write("good", "x");
  std::string tooLong = dir_ + "/" + std::string(kFileListItemSize, 'z');
  std::string text = tooLong + std::string(1, '\0') + dir_ + "/missing" + std::string(1, '\0') +
                     good + std::string(1, '\0');
  std::string err;
  EXPECT_EQ(Names(Write("list0", text), &err), (std::vector<std::string>{good}));
  EXPECT_NE(err.find("ANS5184E The file list entry '" + dir_ + "/zzz"), std::string::npos) << err;
  EXPECT_NE(err.find("ANS4005E The file '" + dir_ + "/missing'"), std::string::npos) << err;
}

TEST_F(FileListTest, ALineWithANulInANewlineListIsRefused) {
  // The NUL comes after the first block, which decides the form.
  std::string a = Write("a", "x");
  std::string b = Write("b", "x");
  std::string text(kListBlock, '*');
  text += "\n" + a + std::string(1, '\0') + "tail\n" + b + "\n";
  std::string err;
  EXPECT_EQ(Names(Write("list", text), &err), (std::vector<std::string>{b}));
  EXPECT_NE(err.find("ANS5184E The file list entry '" + a + "'"), std::string::npos) << err;
}

TEST_F(FileListTest, ADashReadsStandardInput) {
  std::string a = Write("a", "x");
  int p[2];
  ASSERT_EQ(pipe2(p, O_CLOEXEC), 0);
  std::string text = a + "\n";
  ASSERT_EQ(write(p[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(p[1]);
  Name("-");
  HsmFileList l(cb_, p[0]);
  ASSERT_EQ(l.init(), 0);
  EXPECT_EQ(Drain(l), (std::vector<std::string>{a}));
  EXPECT_FALSE(l.failed());
  // The descriptor is the caller's: still open.
  EXPECT_EQ(fcntl(p[0], F_GETFD), FD_CLOEXEC);
  close(p[0]);
}

TEST_F(FileListTest, WhatIsNoListIsRefusedWithWhatItIs) {
  ASSERT_EQ(mkdir((dir_ + "/sub").c_str(), 0755), 0);
  ASSERT_EQ(mkfifo((dir_ + "/fifo").c_str(), 0600), 0);
  const struct {
    std::string name;
    const char* says;
  } cases[] = {
      {dir_ + "/sub", "it is a directory"},
      {dir_ + "/fifo", "it is a FIFO"},  // nobody writes it: must not wait
      {"/dev/null", "it is a character device"},
  };
  std::string err;
  for (const auto& c : cases) {
    EXPECT_EQ(Init(c.name, &err), 104) << c.name;
    EXPECT_NE(err.find("ANS4006E The file list '" + c.name + "' cannot be used: " + c.says),
              std::string::npos)
        << err;
  }
  // Standard input may be a pipe or a terminal, not a directory.
  int d = open(dir_.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(d, 0);
  EXPECT_EQ(Init("-", &err, d), 104);
  close(d);
  EXPECT_NE(err.find("ANS4006E The file list '-' cannot be used: it is a directory"),
            std::string::npos)
      << err;
}

TEST_F(FileListTest, AListThatCannotBeReadIsAnErrorNotAnEmptyList) {
  int w = open(Write("wo", "x\n").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(w, 0);
  std::string err;
  EXPECT_EQ(Init("-", &err, w), 104);
  close(w);
  EXPECT_NE(err.find("ANS4007E The file list '-' could not be read: Bad file descriptor"),
            std::string::npos)
      << err;
}

TEST_F(FileListTest, MissingOrWideListsAreRefusedWith104) {
  std::snprintf(cb_->fileListName, sizeof cb_->fileListName, "%s/none", dir_.c_str());
  EXPECT_EQ(HsmFileList(cb_).init(), 104);
  std::string wide = Write("wide", std::string("\xFF\xFE/\0t\0", 6));
  std::snprintf(cb_->fileListName, sizeof cb_->fileListName, "%s", wide.c_str());
  HsmFileList l(cb_);
  testing::internal::CaptureStderr();
  EXPECT_EQ(l.init(), 104);
  std::string said = testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find("ANS4005E The file '" + wide + "'"), std::string::npos) << said;
  // Nothing of a refused list is read.
  testing::internal::CaptureStderr();
  EXPECT_EQ(l.getNextItem(), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
