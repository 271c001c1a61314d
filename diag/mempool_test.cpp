// Memory pools.
#include "diag/mempool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

namespace {

TEST(MemPool, PiecesAreAlignedDistinctAndWritable) {
  mpHandle_t pool = qmxpCreate(4);
  ASSERT_NE(0, pool);
  std::set<uintptr_t> seen;
  for (size_t size : {1u, 3u, 17u, 100u, 1000u, 4000u, 9000u, 2u}) {
    unsigned char* p = static_cast<unsigned char*>(qmxpAlloc(pool, size));
    ASSERT_NE(nullptr, p) << size;
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(p) % alignof(std::max_align_t)) << size;
    memset(p, 0xAB, size);  // the sanitised build catches overlap or overrun
    EXPECT_TRUE(seen.insert(reinterpret_cast<uintptr_t>(p)).second);
  }
  EXPECT_GE(qmxpBytesUsed(pool), 1u + 3 + 17 + 100 + 1000 + 4000 + 9000 + 2);
  EXPECT_EQ(0, qmxpDestroy(pool));
}

TEST(MemPool, StrDupAndCallocCopyAndZero) {
  mpHandle_t pool = qmxpCreate(1);
  char* a = qmxpStrDup(pool, "/fs/dir/one");
  char* b = qmxpStrDup(pool, "");
  ASSERT_NE(nullptr, a);
  ASSERT_NE(nullptr, b);
  EXPECT_STREQ("/fs/dir/one", a);
  EXPECT_STREQ("", b);
  EXPECT_EQ(nullptr, qmxpStrDup(pool, nullptr));
  unsigned char* z = static_cast<unsigned char*>(qmxpCalloc(pool, 2000));
  ASSERT_NE(nullptr, z);
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(0, z[i]);
  EXPECT_STREQ("/fs/dir/one", a);  // earlier pieces are untouched
  qmxpDestroy(pool);
}

TEST(MemPool, DeadHandlesAreRefused) {
  mpHandle_t pool = qmxpCreate(4);
  EXPECT_EQ(0, qmxpDestroy(pool));
  EXPECT_EQ(-1, qmxpDestroy(pool));
  EXPECT_EQ(nullptr, qmxpAlloc(pool, 8));
  EXPECT_EQ(nullptr, qmxpAlloc(0, 8));
  EXPECT_EQ(0u, qmxpBytesUsed(pool));
}

TEST(MemPool, DestroyAllEndsEveryPool) {
  mpHandle_t a = qmxpCreate(4);
  mpHandle_t b = qmxpCreate(0);
  ASSERT_NE(a, b);
  ASSERT_NE(nullptr, qmxpAlloc(a, 10));
  ASSERT_NE(nullptr, qmxpAlloc(b, 5000));
  mpDestroyAll();
  EXPECT_EQ(nullptr, qmxpAlloc(a, 1));
  EXPECT_EQ(-1, qmxpDestroy(b));
  mpHandle_t c = qmxpCreate(4);  // pools can be made again afterwards
  EXPECT_NE(nullptr, qmxpAlloc(c, 1));
  qmxpDestroy(c);
}

}  // namespace
