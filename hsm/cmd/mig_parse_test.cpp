#include "hsm/cmd/mig_parse.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "diag/nl.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/cmd/testing/cmd_test_util.h"
#include "options/optobj.h"

namespace {

// Each test parses a fresh command line into a fresh control block and
// options object; the message system reads the catalogues of the build tree.
class ParseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cmdtest::StartMessages();
    if (HasFatalFailure()) return;
    opts_ = new clientOptions(ctCLSpaceMGT);
    optionsP = opts_;
    opts_->subdir = 2;
    cb_ = HSMGlobalCB::GetHsmCB();
    std::free(cb_->operands);
    cb_->operands = nullptr;
    cb_->operandCount = 0;
    cb_->operandCapacity = 20;
    cb_->queryMode = 0;
    cb_->recallMode = 0;
    cb_->helpRequested = 0;
    cb_->fileListName[0] = '\0';
    cb_->commandKind = kCmdKindAttr;
  }
  void TearDown() override {
    optionsP = nullptr;
    delete opts_;
    nlterm();
  }

  // argv storage that outlives the parse (operands point into it).
  char** Argv(std::vector<std::string> args) {
    args.insert(args.begin(), "qmxattr");
    store_ = args;
    ptrs_.clear();
    for (std::string& s : store_) ptrs_.push_back(s.data());
    ptrs_.push_back(nullptr);
    return ptrs_.data();
  }
  int Argc() const { return static_cast<int>(store_.size()); }

  std::vector<std::string> Operands() const {
    std::vector<std::string> v;
    for (int i = 0; i < cb_->operandCount; ++i) v.push_back(cb_->operands[i]);
    return v;
  }

  clientOptions* opts_ = nullptr;
  HSMGlobalCB* cb_ = nullptr;
  std::vector<std::string> store_;
  std::vector<char*> ptrs_;
};

TEST_F(ParseTest, LongRecallModeAbbreviationsAndValues) {
  char** argv = Argv({"-RECA=p", "f1"});
  ASSERT_EQ(ParseMigOptLong(Argc(), argv), 0);
  EXPECT_EQ(cb_->queryMode, 0);
  EXPECT_EQ(cb_->recallMode, kParseRecallPartial);
  EXPECT_EQ(Operands(), std::vector<std::string>{"f1"});

  argv = Argv({"-recallmode=streaming", "-recursive"});
  ASSERT_EQ(ParseMigOptLong(Argc(), argv), 0);
  EXPECT_EQ(cb_->recallMode, kParseRecallStreaming);
  EXPECT_EQ(opts_->subdir, 1);
}

TEST_F(ParseTest, LongGrammarRefusesTooShortKeywordsAndBadValues) {
  char** argv = Argv({"-REC=p"});
  EXPECT_EXIT(ParseMigOptLong(Argc(), argv), ::testing::ExitedWithCode(255), "ANS1107E.*-REC=p");
  argv = Argv({"-RECALLMODE"});
  EXPECT_EXIT(ParseMigOptLong(Argc(), argv), ::testing::ExitedWithCode(255), "ANS9117E.*''");
  argv = Argv({"-RECA=partial-ish"});
  EXPECT_EXIT(ParseMigOptLong(Argc(), argv), ::testing::ExitedWithCode(255), "PARTIAL-ISH");
  // TESTFLAGS was handled at start-up, yet the long grammar refuses it.
  argv = Argv({"-TESTFLAGS=HSMLF"});
  EXPECT_EXIT(ParseMigOptLong(Argc(), argv), ::testing::ExitedWithCode(255), "ANS1107E");
}

TEST_F(ParseTest, LongGrammarSkipsStartUpOptionsAndKeepsOperandOrder) {
  char** argv = Argv({"a", "-TRACEFILE=/tmp/t", "-FI=/tmp/list", "b", "-TRACEM=5", "-H", "c"});
  ASSERT_EQ(ParseMigOptLong(Argc(), argv), 0);
  EXPECT_EQ(Operands(), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_STREQ(cb_->fileListName, "/tmp/list");
  EXPECT_EQ(cb_->helpRequested, 1);
  EXPECT_EQ(cb_->queryMode, 1);
}

TEST_F(ParseTest, MoreThanTwentyOperandsGrowTheArray) {
  std::vector<std::string> args;
  for (int i = 0; i < 45; ++i) args.push_back("f" + std::to_string(i));
  char** argv = Argv(args);
  ASSERT_EQ(ParseMigOptLong(Argc(), argv), 0);
  ASSERT_EQ(cb_->operandCount, 45);
  EXPECT_EQ(cb_->operandCapacity, 60);
  EXPECT_STREQ(cb_->operands[44], "f44");
}

TEST_F(ParseTest, LongGrammarHandsNumberedVariantsToTheShortOne) {
  char** argv = Argv({"-1", "-r", "n", "x"});
  ASSERT_EQ(ParseMigOptLong(Argc(), argv), 0);
  EXPECT_EQ(cb_->recallMode, kParseRecallNormal);
  EXPECT_EQ(Operands(), std::vector<std::string>{"x"});
}

TEST_F(ParseTest, ShortGrammarAcceptsOnlyTheLowerCaseLetters) {
  char** argv = Argv({"-r", "n", "-R", "f"});
  ASSERT_EQ(ParseMigOptShort(Argc(), argv), 0);
  EXPECT_EQ(cb_->recallMode, kParseRecallNormal);
  EXPECT_EQ(opts_->subdir, 1);
  EXPECT_EQ(Operands(), std::vector<std::string>{"f"});
  for (const char* bad : {"N", "normal"}) {
    argv = Argv({"-r", bad});
    EXPECT_EXIT(ParseMigOptShort(Argc(), argv), ::testing::ExitedWithCode(255),
                std::string("ANS9117E.*") + bad);
  }
}

TEST_F(ParseTest, ShortGrammarHelpSetsAFlagWhileUnknownLettersPrintUsage) {
  char** argv = Argv({"-h"});
  ASSERT_EQ(ParseMigOptShort(Argc(), argv), 0);
  EXPECT_EQ(cb_->helpRequested, 1);
  argv = Argv({"-x"});
  EXPECT_EXIT(
      {
        ParseMigOptShort(Argc(), argv);
        std::exit(99);
      },
      ::testing::ExitedWithCode(0), "invalid option");
  // -l takes no value in the short grammar, so the name stays unset.
  argv = Argv({"-l", "list"});
  ASSERT_EQ(ParseMigOptShort(Argc(), argv), 0);
  EXPECT_STREQ(cb_->fileListName, "");
  EXPECT_EQ(Operands().back(), "list");
}

TEST_F(ParseTest, NumberedVariantsAreTakenOutOfTheArgumentsOfTheirCommands) {
  cb_->commandKind = 16;
  cb_->commandVariant = 8;
  char** argv = Argv({"-2", "-c", "x"});
  ASSERT_EQ(ParseMigOptShort(Argc(), argv), 0);
  EXPECT_EQ(cb_->commandVariant, 2);
  EXPECT_EQ(Operands(), std::vector<std::string>{"x"});
  cb_->commandVariant = 8;
}

TEST(ShortOptionTableTest, KindsHaveTheirOptionStrings) {
  EXPECT_STREQ(migShortOptions(kCmdKindAttr, false), "r:Rlh?");
  EXPECT_STREQ(migShortOptions(14, true), "Rvpflxhs:?");
  EXPECT_STREQ(migShortOptions(14, false), "Rvpflxh?");
  EXPECT_STREQ(migShortOptions(17, false), "");
}

}  // namespace
