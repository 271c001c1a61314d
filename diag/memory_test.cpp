// Tracked allocation: layout, guards, damage reports.
#include "diag/memory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "diag/testing/trace_test_util.h"

namespace {

using ::testing::HasSubstr;

uint32_t word(const void* p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}

class TrackedMemory : public TraceFixture {
 protected:
  void SetUp() override {
    TraceFixture::SetUp();
    ASSERT_EQ(0, trBegin(path("m.trc").c_str(), 0));
    trEnable("", 1);
    allClassesOff();
    TR_MEMORY = 1;
    header_ = qmxtest::readFile(path("m.trc")).size();
  }
  std::string traced() { return qmxtest::readFile(path("m.trc")).substr(header_); }
  size_t header_ = 0;
};

TEST_F(TrackedMemory, BlockIsFramedByGuardsAndTotalSize) {
  unsigned char* p = static_cast<unsigned char*>(qmxMalloc(5));
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(qmxGuardWord, word(p - 8));
  EXPECT_EQ(5u + 12u, word(p - 4));
  EXPECT_EQ(qmxGuardWord, word(p + 5));
  EXPECT_EQ(5u, qmxBlockSize(p));
  memset(p, 0xEE, 5);  // the caller's bytes are all usable
  EXPECT_EQ(0, qmxFree(p));
  EXPECT_EQ("", traced());
}

TEST_F(TrackedMemory, CallocZeroesAndRefusesOverflow) {
  unsigned char* p = static_cast<unsigned char*>(qmxCalloc(3, 7));
  ASSERT_NE(nullptr, p);
  for (int i = 0; i < 21; ++i) EXPECT_EQ(0, p[i]);
  EXPECT_EQ(qmxGuardWord, word(p + 21));
  qmxFree(p);
  EXPECT_EQ(nullptr, qmxCalloc(SIZE_MAX / 2, 3));
  EXPECT_EQ(nullptr, qmxMalloc(static_cast<size_t>(UINT32_MAX)));
}

TEST_F(TrackedMemory, ReallocKeepsContentsAndMovesTheTrailer) {
  char* p = static_cast<char*>(qmxMalloc(4));
  memcpy(p, "abcd", 4);
  p = static_cast<char*>(qmxRealloc(p, 100));
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0, memcmp(p, "abcd", 4));
  EXPECT_EQ(112u, word(p - 4));
  EXPECT_EQ(qmxGuardWord, word(p + 100));
  p = static_cast<char*>(qmxRealloc(p, 2));
  EXPECT_EQ(0, memcmp(p, "ab", 2));
  EXPECT_EQ(qmxGuardWord, word(p + 2));
  EXPECT_EQ(nullptr, qmxRealloc(p, 0));  // frees
  char* fresh = static_cast<char*>(qmxRealloc(nullptr, 3));
  ASSERT_NE(nullptr, fresh);
  EXPECT_EQ(0, qmxFree(fresh));
  EXPECT_EQ("", traced());
}

TEST_F(TrackedMemory, FreeingNullIsTraced) {
  EXPECT_EQ(-1, qmxFreeFL(nullptr, "caller.cpp", 42));
  EXPECT_THAT(traced(), testing::Eq("Attempt to free NULL pointer. File caller.cpp Line 42\n"));
}

TEST_F(TrackedMemory, DamagedHeaderIsReportedAndTheBlockKept) {
  unsigned char* p = static_cast<unsigned char*>(qmxMalloc(8));
  p[-8] ^= 0xFF;  // an underrun
  EXPECT_EQ(-1, qmxFreeFL(p, "caller.cpp", 7));
  char expect[160];
  snprintf(expect, sizeof(expect),
           "Block header invalid, possible memory overwrite. Addr %p, File caller.cpp, Line 7\n",
           static_cast<void*>(p));
  EXPECT_EQ(expect, traced());
  // The block was not freed: repaired, it frees normally.
  p[-8] ^= 0xFF;
  EXPECT_EQ(0, qmxFree(p));
}

TEST_F(TrackedMemory, DamagedTrailerIsReportedAndTheBlockKept) {
  char* p = static_cast<char*>(qmxMalloc(8));
  p[8] = 'X';  // one byte too many
  EXPECT_EQ(-1, qmxFreeFL(p, "caller.cpp", 9));
  char expect[160];
  snprintf(expect, sizeof(expect),
           "Block trailer invalid, possible memory overwrite. Addr %p, File caller.cpp, Line 9\n",
           static_cast<void*>(p));
  EXPECT_EQ(expect, traced());
  // A damaged block can't be resized either.
  EXPECT_EQ(nullptr, qmxReallocFL(p, 16, "caller.cpp", 10));
  p[8] = static_cast<char>(qmxGuardWord & 0xFF);
  EXPECT_EQ(0, qmxFree(p));
}

TEST_F(TrackedMemory, DamageIsSilentWithMemoryTracingOff) {
  TR_MEMORY = 0;
  char* p = static_cast<char*>(qmxMalloc(1));
  p[1] = 0;
  EXPECT_EQ(-1, qmxFree(p));
  EXPECT_EQ("", traced());
  p[1] = static_cast<char>(qmxGuardWord & 0xFF);
  EXPECT_EQ(0, qmxFree(p));
}

TEST_F(TrackedMemory, MemoryListFreesEveryNode) {
  struct Node {
    Node* next;
    int value;
  };
  Node* head = nullptr;
  for (int i = 0; i < 5; ++i) {
    Node* n = static_cast<Node*>(qmxMalloc(sizeof(Node)));
    n->next = head;
    n->value = i;
    head = n;
  }
  qmxFreeMemoryList(head);  // the leak checker of the sanitised build notices a missed node
  qmxFreeMemoryList(nullptr);
  EXPECT_EQ("", traced());
}

}  // namespace
