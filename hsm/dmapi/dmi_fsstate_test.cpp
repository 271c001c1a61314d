#include "hsm/dmapi/dmi_fsstate.h"

#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/sys_lock.h"
#include "hsm/dmapi/testing/dmi_testing.h"
#include "testing/check.h"

namespace {

// The global state file and its lock need no DMAPI.
class GlobalStateTest : public dmitest::Sandbox {
 protected:
  GlobalStateTest() : Sandbox(false) {}
  void SetUp() override {
    Sandbox::SetUp();
    if (IsSkipped()) return;
    sleeps = 0;
    onSleep = nullptr;
    previousSleep_ = dmiSetStateSleep(countSleep);
  }
  void TearDown() override {
    dmiSetStateSleep(previousSleep_);
    Sandbox::TearDown();
  }

  static void countSleep(unsigned seconds) {
    EXPECT_EQ(seconds, 5u);
    ++sleeps;
    if (onSleep != nullptr) onSleep();
  }

  void writeWord(uint32_t w, size_t bytes = 4) {
    qmxtest::writeFile(dmiGlobalStatePath(), std::string(reinterpret_cast<char*>(&w), bytes));
  }

  // A child process that holds the global lock until it reads a byte from
  // |release_|, and says so on |held_|.
  pid_t holdLockInChild() {
    EXPECT_EQ(pipe(release_), 0);
    EXPECT_EQ(pipe(held_), 0);
    pid_t child = fork();
    if (child == 0) {
      char c = serAcquireSysLock(dmiGlobalLockDir, dmiGlobalLockFile) == 0 ? 'L' : 'E';
      if (write(held_[1], &c, 1) != 1) _exit(2);
      if (read(release_[0], &c, 1) != 1) _exit(3);
      serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile);
      c = 'R';
      if (write(held_[1], &c, 1) != 1) _exit(4);
      _exit(0);
    }
    char c = 0;
    EXPECT_EQ(read(held_[0], &c, 1), 1);
    EXPECT_EQ(c, 'L');
    return child;
  }

  static void releaseChild() {
    char c = 'r';
    EXPECT_EQ(write(release_[1], &c, 1), 1);
    EXPECT_EQ(read(held_[0], &c, 1), 1);
    EXPECT_EQ(c, 'R');
  }

  void reap(pid_t child) {
    EXPECT_TRUE(qmxtest::ChildExited(child, 0));
    for (int fd : {release_[0], release_[1], held_[0], held_[1]}) close(fd);
  }

  static int sleeps;
  static void (*onSleep)();
  static int release_[2];
  static int held_[2];
  dmiStateSleep_t previousSleep_ = nullptr;
};
int GlobalStateTest::sleeps = 0;
void (*GlobalStateTest::onSleep)() = nullptr;
int GlobalStateTest::release_[2];
int GlobalStateTest::held_[2];

TEST_F(GlobalStateTest, MissingFileIsCreatedWithBothOnAndWritesRoundTrip) {
  fsmState st{};
  st.flags = fsmFlag2;
  ASSERT_EQ(dmiEntryGetGlobalState(0, &st), 0);
  EXPECT_EQ(st.flags, fsmRecallOn | fsmMigrateOn | fsmFlag2);
  EXPECT_EQ(qmxtest::readFile(dmiGlobalStatePath()).size(), 4u);

  st.flags = fsmRecallOn | fsmFlag3;
  ASSERT_EQ(dmiSetGlobalState(0, &st), 0);
  fsmState back{};
  ASSERT_EQ(dmiGetGlobalState(0, &back), 0);
  EXPECT_EQ(back.flags, fsmRecallOn);
  // Only the two flags are ever written.
  uint32_t word = 0;
  std::memcpy(&word, qmxtest::readFile(dmiGlobalStatePath()).data(), 4);
  EXPECT_EQ(word, 1u);
  EXPECT_EQ(sleeps, 0);
}

TEST_F(GlobalStateTest, BitsAboveTheTwoFlagsNeverReachThem) {
  writeWord(0xFFFFFFFC | fsmMigrateOn);
  fsmState st{};
  ASSERT_EQ(dmiGetGlobalState(0, &st), 0);
  EXPECT_EQ(st.flags, fsmMigrateOn);
}

TEST_F(GlobalStateTest, ShortFileIsReportedDeletedAndRecreated) {
  writeWord(3, 2);
  fsmState st{};
  st.flags = fsmRecallOn | fsmMigrateOn;
  EXPECT_EQ(dmiGetGlobalState(0, &st), -1);
  EXPECT_EQ(st.flags, 0);
  EXPECT_NE(logged().find("ANS9528E"), std::string::npos);
  EXPECT_NE(access(dmiGlobalStatePath().c_str(), F_OK), 0);
  EXPECT_EQ(dmiEntryGetGlobalState(0, &st), 0);
  EXPECT_EQ(st.flags, fsmRecallOn | fsmMigrateOn);
}

TEST_F(GlobalStateTest, WriterGivesUpAfterFiveTriesWhileAnotherProcessHoldsTheLock) {
  writeWord(3);
  pid_t child = holdLockInChild();
  EXPECT_EQ(serQuerySysLock(dmiGlobalLockDir, dmiGlobalLockFile, serLockExclusive), 1);
  // The lock file names its holder.
  EXPECT_EQ(qmxtest::readFile(serSysLockPath(dmiGlobalLockDir, dmiGlobalLockFile)),
            std::to_string(child) + "\n");
  fsmState st{};
  EXPECT_EQ(dmiSetGlobalState(0, &st), -1);
  EXPECT_EQ(sleeps, 4);  // between the five tries
  EXPECT_NE(logged().find("ANS9545E"), std::string::npos);
  uint32_t word = 0;
  std::memcpy(&word, qmxtest::readFile(dmiGlobalStatePath()).data(), 4);
  EXPECT_EQ(word, 3u) << "the refused writer changed nothing";
  releaseChild();
  reap(child);
  EXPECT_EQ(dmiSetGlobalState(0, &st), 0);
}

TEST_F(GlobalStateTest, ReaderWaitsWhileTheLockIsHeld) {
  writeWord(fsmMigrateOn);
  pid_t child = holdLockInChild();
  // The writer lets go during the reader's third wait.
  onSleep = [] {
    if (sleeps == 3) releaseChild();
  };
  fsmState st{};
  ASSERT_EQ(dmiGetGlobalState(0, &st), 0);
  EXPECT_EQ(sleeps, 3);
  EXPECT_EQ(st.flags, fsmMigrateOn);
  reap(child);
}

TEST_F(GlobalStateTest, LockOfADeadHolderIsFree) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(serAcquireSysLock(dmiGlobalLockDir, dmiGlobalLockFile) == 0 ? 0 : 1);
  ASSERT_TRUE(qmxtest::ChildExited(child, 0));
  EXPECT_EQ(serQuerySysLock(dmiGlobalLockDir, dmiGlobalLockFile, serLockExclusive), 0);
  ASSERT_EQ(serAcquireSysLock(dmiGlobalLockDir, dmiGlobalLockFile), 0);
  // Held by this process: a second take and a query from another
  // descriptor both see it.
  EXPECT_EQ(serAcquireSysLock(dmiGlobalLockDir, dmiGlobalLockFile), -1);
  EXPECT_EQ(errno, EDEADLK);
  EXPECT_EQ(serQuerySysLock(dmiGlobalLockDir, dmiGlobalLockFile, serLockExclusive), 1);
  EXPECT_EQ(serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile), 0);
  EXPECT_EQ(serReleaseSysLock(dmiGlobalLockDir, dmiGlobalLockFile), -1);
  EXPECT_EQ(errno, ENOLCK);
}

// The per-file-system state lives in a DM attribute: root only.
class FSStateTest : public dmitest::RootSessionSandbox {
 protected:
  FSStateTest() : RootSessionSandbox("fsstate-test") {}
  fsmState stateOf(const std::string& fs) {
    fsmState st{};
    std::strncpy(st.fsName, fs.c_str(), sizeof st.fsName - 1);
    return st;
  }
};

TEST_F(FSStateTest, CreatedStateIsManagedWithRecallAndMigrationOn) {
  fsmState st = stateOf(fs_);
  EXPECT_EQ(dmiEntryGetFSState(sid_, &st), -1) << "no .SpaceMan yet";
  int mode = 1;
  EXPECT_EQ(dmiGetFSMode(sid_, fs_.c_str(), &mode), 0);
  EXPECT_EQ(mode, 0);

  ASSERT_EQ(dmiCreateFSState(sid_, fs_.c_str()), 0);
  EXPECT_EQ(dmiGetFSMode(sid_, fs_.c_str(), &mode), 0);
  EXPECT_EQ(mode, 1);
  ASSERT_EQ(dmiEntryGetFSState(DM_INVALID_SESSION, &st), 0);
  EXPECT_EQ(st.flags, fsmRecallOn | fsmMigrateOn);
  EXPECT_EQ(st.value, 0u);

  // A state file without "KVRStat" is not managed.
  ASSERT_EQ(dmiRemoveFSState(sid_, fs_.c_str()), 0);
  qmxtest::writeFile(fs_ + "/.SpaceMan/dmiFSState", "");
  EXPECT_EQ(dmiEntryGetFSState(sid_, &st), -1);
  EXPECT_EQ(errno, ENOENT);
  // Recovery makes it readable again.
  ASSERT_EQ(DmiRecoverFSState(sid_, fs_.c_str()), 0);
  ASSERT_EQ(dmiEntryGetFSState(sid_, &st), 0);
  EXPECT_EQ(st.flags, fsmRecallOn | fsmMigrateOn);
  ASSERT_EQ(dmiRemoveFSState(sid_, fs_.c_str()), 0);
  ASSERT_EQ(DmiRecoverFSState(sid_, fs_.c_str()), 0);
  EXPECT_EQ(dmiEntryGetFSState(sid_, &st), 0);
  EXPECT_EQ(dmiRemoveFSState(sid_, fs_.c_str()), 0);
  EXPECT_EQ(dmiRemoveFSState(sid_, fs_.c_str()), 0);
}

TEST_F(FSStateTest, SetKeepsTheBytesAfterTheFifthWord) {
  ASSERT_EQ(dmiCreateFSState(sid_, fs_.c_str()), 0);
  xdsm_handle_t h;
  ASSERT_EQ(dmiGetFSStateHandle(fs_.c_str(), &h), 0);
  unsigned char raw[dmiStatSize];
  for (size_t i = 0; i < sizeof raw; ++i) raw[i] = static_cast<unsigned char>(i * 7);
  dm_attrname_t an = dmiAttrName(DMI_ATTR_STAT);
  ASSERT_EQ(x_->setDmattr(sid_, h, DM_NO_TOKEN, &an, 0, sizeof raw, raw), 0);

  fsmState st = stateOf(fs_);
  st.flags = fsmMigrateOn | fsmFlag3;
  st.value = 0xC0FFEE;
  ASSERT_EQ(dmiSetFSState(sid_, h, &st), 0);
  unsigned char back[dmiStatSize];
  size_t rlen = 0;
  ASSERT_EQ(x_->getDmattr(sid_, h, DM_NO_TOKEN, &an, sizeof back, back, &rlen), 0);
  ASSERT_EQ(rlen, dmiStatSize);
  EXPECT_EQ(std::memcmp(back + 20, raw + 20, dmiStatSize - 20), 0);
  uint32_t words[5];
  std::memcpy(words, back, sizeof words);
  EXPECT_EQ(words[0], 0u);
  EXPECT_EQ(words[1], 1u);
  EXPECT_EQ(words[2], 0u);
  EXPECT_EQ(words[3], 1u);
  EXPECT_EQ(words[4], 0xC0FFEEu);

  fsmState got = stateOf(fs_);
  ASSERT_EQ(dmiGetFSState(sid_, h, &got), 0);
  EXPECT_EQ(got.flags, fsmMigrateOn | fsmFlag3);
  EXPECT_EQ(got.value, 0xC0FFEEu);
  handleFree(&h);
}

TEST_F(FSStateTest, UnreadableStateIsReportedWithItsFileSystem) {
  ASSERT_EQ(dmiCreateFSState(sid_, fs_.c_str()), 0);
  xdsm_handle_t h;
  ASSERT_EQ(dmiGetFSStateHandle(fs_.c_str(), &h), 0);
  dm_attrname_t an = dmiAttrName(DMI_ATTR_STAT);
  ASSERT_EQ(x_->removeDmattr(sid_, h, DM_NO_TOKEN, 0, &an), 0);
  fsmState st = stateOf(fs_);
  EXPECT_EQ(dmiGetFSState(sid_, h, &st), -1);
  std::string log = logged();
  EXPECT_NE(log.find("ANS9511E"), std::string::npos);
  EXPECT_NE(log.find(fs_), std::string::npos);
  EXPECT_EQ(dmiSetFSState(sid_, h, &st), -1);
  handleFree(&h);
}

}  // namespace
