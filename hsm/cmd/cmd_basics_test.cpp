#include <gtest/gtest.h>

#include <cstdlib>

#include "hsm/cmd/abbrev.h"
#include "hsm/cmd/parsing_space.h"

namespace {

TEST(AbbrevTest, PrefixRulesOfTheCommandLine) {
  EXPECT_TRUE(Abbrev("RECA", "RECALLMODE", 4));
  EXPECT_FALSE(Abbrev("REC", "RECALLMODE", 4));  // too short
  EXPECT_FALSE(Abbrev("REC", "RECURSIVE", 4));
  EXPECT_TRUE(Abbrev("RECALLMODE", "RECALLMODE", 4));
  EXPECT_FALSE(Abbrev("RECALLMODES", "RECALLMODE", 4));  // longer than the keyword
  EXPECT_FALSE(Abbrev("", "HELP", 0));                   // empty never matches
  EXPECT_FALSE(Abbrev("reca", "RECALLMODE", 4));         // case matters
  EXPECT_TRUE(Abbrev("n", "n", 1));
  EXPECT_FALSE(Abbrev("N", "n", 1));
  EXPECT_FALSE(Abbrev("normal", "n", 1));
  EXPECT_FALSE(Abbrev("RECX", "RECALLMODE", 4));  // a differing character
}

TEST(ParsingSpaceTest, GrowsInStepsOfTwentyWithZeroedSlots) {
  char** ops = nullptr;
  int count = 0, cap = 0;
  static char word[] = "x";
  for (int i = 0; i < 45; ++i) {
    ASSERT_EQ(getParsingSpace(&ops, &count, &cap), 0);
    ASSERT_LT(count, cap);
    // Fresh slots are zeroed, so the one about to be used is empty.
    EXPECT_EQ(ops[count], nullptr);
    ops[count++] = word;
  }
  EXPECT_EQ(cap, 60);
  EXPECT_EQ(ops[44], word);
  EXPECT_EQ(ops[45], nullptr);
  std::free(ops);
}

}  // namespace
