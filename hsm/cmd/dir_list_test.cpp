#include "hsm/cmd/dir_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<const void*> Nodes(const DirList& l) {
  std::vector<const void*> v;
  for (const dirListNode_t* n = l.head(); n != nullptr; n = n->next) v.push_back(n);
  return v;
}

std::vector<std::string> Paths(const DirList& l) {
  std::vector<std::string> v;
  for (const dirListNode_t* n = l.head(); n != nullptr; n = n->next) v.push_back(n->path);
  return v;
}

TEST(DirListTest, AscendingByteOrderWithEqualPathsNewestFirst) {
  mpHandle_t pool = qmxpCreate(4);
  ASSERT_NE(pool, 0);
  DirList list(pool);
  for (const char* p : {"/fs/b", "/fs/a", "/fs/B", "/fs/a/x", "/fs/b"}) {
    ASSERT_EQ(list.insert(p), 0);
  }
  EXPECT_EQ(Paths(list), (std::vector<std::string>{"/fs/B", "/fs/a", "/fs/a/x", "/fs/b", "/fs/b"}));
  // The second "/fs/b" went in front of the first one.
  std::vector<const void*> before = Nodes(list);
  ASSERT_EQ(list.insert("/fs/b"), 0);
  std::vector<const void*> after = Nodes(list);
  ASSERT_EQ(after.size(), 6u);
  EXPECT_NE(after[3], before[3]);
  EXPECT_EQ(after[4], before[3]);
  EXPECT_EQ(qmxpDestroy(pool), 0);
}

TEST(DirListTest, DeadPoolRefusesWithOutOfMemory) {
  mpHandle_t pool = qmxpCreate(4);
  ASSERT_EQ(qmxpDestroy(pool), 0);
  DirList list(pool);
  EXPECT_EQ(list.insert("/x"), 102);
  EXPECT_EQ(list.head(), nullptr);
}

}  // namespace
