#include "hsm/cmd/hsm_file_list.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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

TEST_F(FileListTest, MissingOrWideListsAreRefusedWith104) {
  std::snprintf(cb_->fileListName, sizeof cb_->fileListName, "%s/none", dir_.c_str());
  EXPECT_EQ(HsmFileList(cb_).init(), 104);
  std::string wide = Write("wide", std::string("\xFF\xFE/\0t\0", 6));
  std::snprintf(cb_->fileListName, sizeof cb_->fileListName, "%s", wide.c_str());
  HsmFileList l(cb_);
  EXPECT_EQ(l.init(), 104);
  EXPECT_EQ(l.getNextItem(), nullptr);
}

}  // namespace
