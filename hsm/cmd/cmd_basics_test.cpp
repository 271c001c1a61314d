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

#include <pthread.h>

#include <string>

#include "hsm/cmd/hsm_global_cb.h"

namespace {

TEST(HsmGlobalCbTest, OneInstanceWithItsInitialValues) {
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  ASSERT_EQ(cb, HSMGlobalCB::GetHsmCB());
  EXPECT_EQ(cb->commandKind, 8);
  EXPECT_EQ(cb->operandCapacity, 20);
  EXPECT_EQ(cb->operands, nullptr);
  EXPECT_EQ(cb->fileListName[0], '\0');
  EXPECT_EQ(cb->threadSession(), nullptr);
  // A thread's session is found by its own thread id only.
  Sess_o* fake = reinterpret_cast<Sess_o*>(cb);
  cb->sessionMap[static_cast<unsigned long>(pthread_self())] = fake;
  EXPECT_EQ(cb->threadSession(), fake);
  cb->sessionMap.clear();
}

TEST(WhoAmITest, KeepsTheNameAndStoresUnknownForNull) {
  hsmSetWhoAmI("qmxattr");
  EXPECT_STREQ(hsmWhoAmI(), "qmxattr");
  hsmSetWhoAmI(nullptr);
  EXPECT_STREQ(hsmWhoAmI(), "unknown");
  std::string longName(400, 'a');
  hsmSetWhoAmI(longName.c_str());
  EXPECT_EQ(std::string(hsmWhoAmI()).size(), 254u);
}

TEST(StatsTest, ClearStatsZeroesEveryWord) {
  for (uint32_t& w : hsmStatVar) w = 7;
  ClearStats();
  for (uint32_t w : hsmStatVar) EXPECT_EQ(w, 0u);
}

}  // namespace
