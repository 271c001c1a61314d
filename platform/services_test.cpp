#include "platform/services.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/fsinfo.h"
#include "platform/mutex.h"

namespace {

std::vector<int> g_order;
void First() {
  g_order.push_back(1);
}
void Second() {
  g_order.push_back(2);
}

TEST(CleanUpTest, RunsNewestFirstAndOnlyOnce) {
  g_order.clear();
  ASSERT_EQ(psRegisterCleanUp(First), 0);
  ASSERT_EQ(psRegisterCleanUp(Second), 0);
  psCleanUpatExit();
  psCleanUpatExit();
  EXPECT_EQ(g_order, (std::vector<int>{2, 1}));
  EXPECT_NE(psRegisterCleanUp(nullptr), 0);
}

TEST(MutexTest, RecursiveMutexNestsPlainOneDoesNot) {
  psMutex_t rec{};
  ASSERT_EQ(psMutexInit(&rec, 1), 0);
  EXPECT_EQ(psMutexLock(&rec), 0);
  EXPECT_EQ(psMutexLock(&rec), 0);
  EXPECT_EQ(psMutexUnlock(&rec), 0);
  EXPECT_EQ(psMutexUnlock(&rec), 0);
  EXPECT_EQ(psMutexDestroy(&rec), 0);
  // A destroyed mutex is refused rather than used.
  EXPECT_NE(psMutexLock(&rec), 0);

  psMutex_t plain{};
  ASSERT_EQ(psMutexInit(&plain, 0), 0);
  ASSERT_EQ(psMutexLock(&plain), 0);
  bool taken = true;
  std::thread t([&] { taken = pthread_mutex_trylock(&plain.m) == 0; });
  t.join();
  EXPECT_FALSE(taken);
  EXPECT_EQ(psMutexUnlock(&plain), 0);
  EXPECT_EQ(psMutexDestroy(&plain), 0);
}

TEST(TsdTest, EachThreadSeesItsOwnValue) {
  ASSERT_EQ(pkTSDinit(), 0);
  int mine = 1, theirs = 2;
  ASSERT_EQ(pkTSDset(&mine), 0);
  void* seen = &mine;
  std::thread t([&] {
    EXPECT_EQ(pkTSDget(), nullptr);
    pkTSDset(&theirs);
    seen = pkTSDget();
  });
  t.join();
  EXPECT_EQ(seen, &theirs);
  EXPECT_EQ(pkTSDget(), &mine);
  pkTSDset(nullptr);
}

TEST(EnvironmentTest, SnapshotIsTakenOnceUntilRefreshed) {
  setenv("QMX_DIR", "/first", 1);
  unsetenv("QMX_LOG");
  const euEnvironment_t* env = euGetEnvironment(1);
  EXPECT_STREQ(env->qmxDir, "/first");
  EXPECT_EQ(env->qmxLog, nullptr);
  setenv("QMX_DIR", "/second", 1);
  EXPECT_STREQ(euGetEnvironment(0)->qmxDir, "/first");
  EXPECT_STREQ(euGetEnvironment(1)->qmxDir, "/second");
  unsetenv("QMX_DIR");
  euGetEnvironment(1);
}

TEST(ThreadModeTest, ReturnsPreviousMode) {
  psSetThreadMode(0);
  EXPECT_EQ(psSetThreadMode(1), 0);
  EXPECT_EQ(psSetThreadMode(1), 1);
  EXPECT_EQ(psGetThreadMode(), 1);
}

TEST(SignalTest, InstalledHandlerRunsAndIgnoreIsHonoured) {
  static volatile sig_atomic_t got = 0;
  ASSERT_EQ(pkInstallSignalHandler(SIGUSR1, [](int s) { got = s; }), 0);
  raise(SIGUSR1);
  EXPECT_EQ(got, SIGUSR1);
  ASSERT_EQ(pkInstallSignalHandler(SIGUSR1, SIG_IGN), 0);
  raise(SIGUSR1);  // would end the test program if not ignored
  EXPECT_NE(pkInstallSignalHandler(SIGKILL, SIG_IGN), 0);
}

TEST(ConsoleTest, ScreenSizeFallsBackToEnvironmentThenDefaults) {
  if (!clUtIsStdoutRedirected()) GTEST_SKIP() << "stdout is a terminal";
  setenv("LINES", "50", 1);
  setenv("COLUMNS", "132", 1);
  int r = 0, c = 0;
  clUtGetScreenSize(&r, &c);
  EXPECT_EQ(r, 50);
  EXPECT_EQ(c, 132);
  setenv("LINES", "junk", 1);
  unsetenv("COLUMNS");
  clUtGetScreenSize(&r, &c);
  EXPECT_EQ(r, 24);
  EXPECT_EQ(c, 80);
  unsetenv("LINES");
}

TEST(FsInfoTest, ReportsAvailableBlocksOrTheError) {
  uint64_t avail = 0;
  EXPECT_EQ(psFsAvailBlocks("/", &avail), 0);
  EXPECT_EQ(psFsAvailBlocks("/no/such/dir", &avail), ENOENT);
  EXPECT_EQ(psFsAvailBlocks(nullptr, &avail), EINVAL);
}

TEST(ClockTest, MillisecondsStayWithinTheSecond) {
  time_t s = 0;
  unsigned long ms = 1000;
  psGetTimeMs(&s, &ms);
  EXPECT_LT(ms, 1000u);
  EXPECT_LE(static_cast<uint32_t>(s), GetTod());
  struct tm tmv;
  ASSERT_NE(psLocalTime(s, &tmv), nullptr);
  EXPECT_GE(tmv.tm_year, 100);
}

}  // namespace
