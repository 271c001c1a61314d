#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/dmi_recover.h"
#include "hsm/dmapi/dmi_sessinfo.h"

#include <errno.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "hsm/dmapi/testing/dmi_testing.h"
#include "hsm/provider/session_registry.h"
#include "testing/check.h"

namespace {

// A scripted provider for the session calls; everything else is the
// built-in provider's.
struct FakeDm {
  std::string version = "VEXA DMAPI 3.40";
  int initErrno = 0;
  int initCalls = 0;
  std::vector<std::pair<dm_sessid_t, std::string>> sessions;
  int getallCalls = 0;
  bool alwaysTooSmall = false;
  int createCalls = 0;
  int createErrno = 0;
  dm_sessid_t lastOld = 0;
  dm_sessid_t nextSid = 0x500;
  int destroyCalls = 0;
  // Events handed out by get_events: one batch, then EAGAIN.
  std::vector<unsigned char> events;
  bool eventsTaken = false;
  std::vector<std::pair<dm_token_t, dm_response_t>> responses;
};
FakeDm* fake = nullptr;

int fInit(char** v) {
  ++fake->initCalls;
  if (fake->initErrno != 0) {
    errno = fake->initErrno;
    return -1;
  }
  *v = fake->version.data();
  return 0;
}

int fCreate(dm_sessid_t old, char* info, dm_sessid_t* sid) {
  ++fake->createCalls;
  fake->lastOld = old;
  if (fake->createErrno != 0) {
    errno = fake->createErrno;
    return -1;
  }
  if (old != DM_NO_SESSION) {
    for (auto& s : fake->sessions)
      if (s.first == old) {
        s.second = info;
        *sid = old;
        return 0;
      }
    errno = EINVAL;
    return -1;
  }
  *sid = fake->nextSid++;
  fake->sessions.emplace_back(*sid, info);
  return 0;
}

int fDestroy(dm_sessid_t sid) {
  ++fake->destroyCalls;
  for (size_t i = 0; i < fake->sessions.size(); ++i)
    if (fake->sessions[i].first == sid) {
      fake->sessions.erase(fake->sessions.begin() + static_cast<long>(i));
      return 0;
    }
  errno = EINVAL;
  return -1;
}

int fGetall(unsigned int nelem, dm_sessid_t* buf, unsigned int* n) {
  ++fake->getallCalls;
  *n = static_cast<unsigned int>(fake->sessions.size());
  if (fake->alwaysTooSmall || fake->sessions.size() > nelem) {
    errno = E2BIG;
    return -1;
  }
  for (size_t i = 0; i < fake->sessions.size(); ++i) buf[i] = fake->sessions[i].first;
  return 0;
}

int fQuery(dm_sessid_t sid, size_t buflen, void* buf, size_t* rlen) {
  for (auto& s : fake->sessions)
    if (s.first == sid) {
      *rlen = s.second.size() + 1;
      if (buflen < *rlen) {
        errno = E2BIG;
        return -1;
      }
      std::memcpy(buf, s.second.c_str(), *rlen);
      return 0;
    }
  errno = EINVAL;
  return -1;
}

int fGetEvents(dm_sessid_t, unsigned int, unsigned int, size_t buflen, void* buf, size_t* rlen) {
  if (fake->eventsTaken || fake->events.empty()) {
    errno = EAGAIN;
    return -1;
  }
  *rlen = fake->events.size();
  if (buflen < fake->events.size()) {
    errno = E2BIG;
    return -1;
  }
  std::memcpy(buf, fake->events.data(), fake->events.size());
  fake->eventsTaken = true;
  return 0;
}

int fRespond(dm_sessid_t, dm_token_t token, dm_response_t r, int, size_t, void*) {
  fake->responses.emplace_back(token, r);
  return 0;
}

int fTokens(dm_sessid_t, unsigned int, dm_token_t*, unsigned int* n) {
  *n = 0;
  return 0;
}

// Appends an event of |type| with token (0, |tok|) and, for mounts, mode
// |mode| to |buf|, linking it to the previous one.
void addEvent(std::vector<unsigned char>* buf, dm_eventtype_t type, uint64_t tok, uint32_t mode,
              size_t* lastOff) {
  size_t off = buf->size();
  size_t dataOff = sizeof(dm_eventmsg_t);
  // Padded (batches are big) and 8-byte aligned, as providers lay them out.
  size_t size = (dataOff + sizeof(dm_mount_event_t) + 4000 + 7) / 8 * 8;
  buf->resize(off + size);
  dm_eventmsg_t ev{};
  ev.ev_type = type;
  ev.ev_token = dm_token_t{0, tok};
  ev.ev_data.vd_offset = static_cast<int32_t>(dataOff);
  ev.ev_data.vd_length = sizeof(dm_mount_event_t);
  dm_mount_event_t me{};
  me.me_mode = mode;
  std::memcpy(buf->data() + off, &ev, sizeof ev);
  std::memcpy(buf->data() + off + dataOff, &me, sizeof me);
  if (off != 0) {
    int32_t link = static_cast<int32_t>(off - *lastOff);
    std::memcpy(buf->data() + *lastOff, &link, sizeof link);
  }
  *lastOff = off;
}

class SessionTest : public dmitest::Sandbox {
 protected:
  SessionTest() : Sandbox(false) {}
  void SetUp() override {
    Sandbox::SetUp();
    if (IsSkipped()) return;
    state_ = FakeDm();
    fake = &state_;
    dmBindBuiltIn(&table_);
    table_.init_service = fInit;
    table_.create_session = fCreate;
    table_.destroy_session = fDestroy;
    table_.getall_sessions = fGetall;
    table_.query_session = fQuery;
    table_.get_events = fGetEvents;
    table_.respond_event = fRespond;
    table_.getall_tokens = fTokens;
    x_ = useRoot(&table_);
    manage(fs_, 3);
  }
  void TearDown() override {
    fake = nullptr;
    Sandbox::TearDown();
  }
  FakeDm state_;
  dmapiBinding_t table_{};
  XDSMAPI* x_ = nullptr;
};

TEST_F(SessionTest, VersionCheckAcceptsOnlyTheThreeLevels) {
  state_.version = "VEXA DMAPI 3.10";
  testing::internal::CaptureStderr();
  EXPECT_EQ(x_->initService(), 0);
  int err = errno;
  std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, EINVAL);
  EXPECT_EQ(x_->getLastErrno(), EINVAL);
  EXPECT_NE(shown.find("ANS2171E"), std::string::npos) << shown;
  EXPECT_NE(shown.find("VEXA DMAPI 3.10"), std::string::npos) << shown;
  EXPECT_EQ(x_->isInitialized(), 0);

  // dmiInit reports the failure with 9505 unless asked to be quiet.
  testing::internal::CaptureStderr();
  EXPECT_EQ(dmiInit(0), -1);
  shown = testing::internal::GetCapturedStderr();
  EXPECT_NE(shown.find("ANS9505E"), std::string::npos) << shown;
  testing::internal::CaptureStderr();
  EXPECT_EQ(dmiInit(1), -1);
  shown = testing::internal::GetCapturedStderr();
  EXPECT_EQ(shown.find("ANS9505E"), std::string::npos) << shown;

  // A supported level initialises once; later calls don't ask DMAPI again.
  state_.version = "VEXA DMAPI 3.30";
  EXPECT_EQ(dmiInit(0), 0);
  int calls = state_.initCalls;
  EXPECT_EQ(x_->initService(), 1);
  EXPECT_EQ(state_.initCalls, calls);
}

TEST_F(SessionTest, AccessDeniedIsReportedAsMissingPermission) {
  state_.initErrno = EACCES;
  testing::internal::CaptureStderr();
  EXPECT_EQ(x_->initService(), 0);
  int err = errno;
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, EPERM);
  EXPECT_EQ(x_->getLastErrno(), EPERM);
  // Other failures pass through unchanged.
  state_.initErrno = ENOSYS;
  EXPECT_EQ(x_->initService(), 0);
  EXPECT_EQ(errno, ENOSYS);
}

TEST_F(SessionTest, LookUpGrowsPastOneHundredSessionsAndGivesUpAfterFiveTries) {
  ASSERT_EQ(x_->initService(), 1);
  for (int i = 0; i < 150; ++i)
    state_.sessions.emplace_back(0x1000 + i, "other" + std::to_string(i));
  state_.sessions.emplace_back(0x2000, "rec3");
  dm_sessid_t found = 99;
  EXPECT_EQ(dmiGetSidByName("rec3", &found, 0), 0);
  EXPECT_EQ(found, 0x2000u);
  EXPECT_EQ(state_.getallCalls, 2);

  state_.getallCalls = 0;
  EXPECT_EQ(dmiGetSidByName("missing", &found, 0), 0);
  EXPECT_EQ(found, 0u);

  state_.alwaysTooSmall = true;
  state_.getallCalls = 0;
  EXPECT_EQ(dmiGetSidByName("rec3", &found, 0), -1);
  EXPECT_EQ(state_.getallCalls, 5);
}

TEST_F(SessionTest, LookUpTakesTheFirstOfTwoNamesakesUnlessAnIdIsWanted) {
  ASSERT_EQ(x_->initService(), 1);
  state_.sessions = {{0x30, "mon1"}, {0x31, "rec1"}, {0x32, "rec1"}, {0x33, "rec10"}};
  dm_sessid_t found = 0;
  EXPECT_EQ(dmiGetSidByName("rec1", &found, 0), 0);
  EXPECT_EQ(found, 0x31u);
  EXPECT_EQ(dmiGetSidByName("rec1", &found, 0x32), 0);
  EXPECT_EQ(found, 0x32u);
  // A name is not a prefix of a longer one.
  EXPECT_EQ(dmiGetSidByName("rec10", &found, 0), 0);
  EXPECT_EQ(found, 0x33u);
  EXPECT_EQ(dmiGetSidByName("rec1", &found, 0x33), 0);
  EXPECT_EQ(found, 0u);
}

TEST_F(SessionTest, TextFormsOfIdsAndTokens) {
  dm_sessid_t sid = 0;
  EXPECT_EQ(dmiSessionStringToID("1A2Bxyz", &sid), 0);
  EXPECT_EQ(sid, 0x1A2Bu);
  EXPECT_EQ(dmiSessionStringToID("zz", &sid), 0);
  EXPECT_EQ(sid, 0u);
  char buf[dmiTextBufSize];
  EXPECT_STREQ(dmiSessionIDToString(0xABCDEF0123ULL, buf), "ABCDEF0123");
  EXPECT_STREQ(dmiTokenToString(dm_token_t{0x1F, 0x2E}, buf), "1F-2E");
}

TEST_F(SessionTest, SessionOperationsNeedTheServiceAndKeepTheSavedSession) {
  EXPECT_EQ(x_->createSession(0, "early", 0), 0u);
  EXPECT_EQ(state_.createCalls, 0);
  ASSERT_EQ(x_->initService(), 1);
  dm_sessid_t sid = x_->createSession(0, "first", 0);
  ASSERT_NE(sid, 0u);
  EXPECT_EQ(x_->getSID(), sid);
  // Without force the saved session is handed back.
  EXPECT_EQ(x_->createSession(0, "second", 0), sid);
  EXPECT_EQ(state_.createCalls, 1);
  // A long info string is cut to 255 characters; none at all is the pid.
  dm_sessid_t longer = x_->createSession(0, std::string(300, 'x').c_str(), 1);
  EXPECT_EQ(state_.sessions.back().second, std::string(255, 'x'));
  x_->createSession(0, nullptr, 1);
  EXPECT_EQ(state_.sessions.back().second, std::to_string(getpid()));
  EXPECT_EQ(x_->destroySession(longer, 0), 1);
  // Destroying no session is no error and asks nobody.
  int calls = state_.destroyCalls;
  EXPECT_EQ(x_->destroySession(0, 0), 1);
  EXPECT_EQ(state_.destroyCalls, calls);
  state_.createErrno = ENOMEM;
  EXPECT_EQ(x_->createSession(0, "x", 1), 0u);
  EXPECT_EQ(x_->getLastErrno(), ENOMEM);
}

TEST_F(SessionTest, ForkedChildNeverDestroysItsParentsSession) {
  ASSERT_EQ(x_->initService(), 1);
  dm_sessid_t sid = x_->createSession(0, "parent", 0);
  ASSERT_NE(sid, 0u);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int rc = x_->destroySession(sid, 0);
    int closed = dmiCloseSession(sid, 0);
    _exit(rc == 1 && closed == 0 && state_.destroyCalls == 0 && state_.responses.empty() ? 0 : 1);
  }
  EXPECT_TRUE(qmxtest::ChildExited(child, 0));
  EXPECT_EQ(x_->getSID(), sid);
  EXPECT_EQ(x_->destroySession(sid, 0), 1);
  EXPECT_EQ(state_.destroyCalls, 1);
  EXPECT_EQ(x_->getSID(), 0u);
}

TEST_F(SessionTest, InstanceZeroOpensNothing) {
  qmxtest::writeFile(sysroot_ + "/etc/zpln/SpaceMan/config/dmiInstanceNo", "0");
  ASSERT_EQ(x_->initService(), 1);
  EXPECT_EQ(dmiOpenSession(0), 0u);
  EXPECT_EQ(state_.createCalls, 0);
  EXPECT_EQ(state_.getallCalls, 0);
}

TEST_F(SessionTest, OpenNamesDaemonsByInstanceAndRecordsTheSession) {
  ASSERT_EQ(x_->initService(), 1);
  dmiSetProgName("qmxmonitord");
  dm_sessid_t sid = dmiOpenSession(0);
  ASSERT_NE(sid, 0u);
  EXPECT_STREQ(QMXDMMONITORD, "mon3");
  EXPECT_STREQ(QMXDMRECALLD, "rec3");
  EXPECT_STREQ(QMXDMWATCHD, "wat3");
  EXPECT_STREQ(qmxWhoAmI(), "mon3");
  EXPECT_EQ(state_.sessions.back().second, "mon3");
  EXPECT_EQ(opts_->dmapiSessionId, sid);
  char marker[4096];
  ASSERT_EQ(dmiSessionInfoPath(sid, 0, marker, sizeof marker), 0);
  EXPECT_EQ(std::string(marker), fs_ + "/.SpaceMan/logdir/sessionlog3/500.sess");
  EXPECT_EQ(access(marker, F_OK), 0);

  EXPECT_EQ(dmiCloseSession(sid, 0), 0);
  EXPECT_EQ(x_->getSID(), 0u);
  EXPECT_NE(access(marker, F_OK), 0);
  EXPECT_TRUE(state_.sessions.empty());
  EXPECT_EQ(dmiCloseSession(0, 0), -1);
}

TEST_F(SessionTest, OpenFailuresAreReportedByKind) {
  ASSERT_EQ(x_->initService(), 1);
  // No permission: 9012 on the terminal.
  state_.createErrno = EPERM;
  testing::internal::CaptureStderr();
  EXPECT_EQ(dmiOpenSession(0), 0u);
  std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_NE(shown.find("ANS9012E"), std::string::npos) << shown;

  // Another failure of a command: 9531 in the log at once.
  state_.createErrno = EIO;
  EXPECT_EQ(dmiOpenSession(0), 0u);
  EXPECT_NE(logged().find("ANS9531E"), std::string::npos);

  // A daemon logs it only once its failures add up to an hour.
  dmiSetProgName("qmxscoutd");
  std::string before = logged();
  dmiSessionFailSeconds() = 0;
  EXPECT_EQ(dmiOpenSession(0), 0u);
  EXPECT_EQ(dmiSessionFailSeconds(), 5);
  EXPECT_EQ(logged(), before);
  dmiSessionFailSeconds() = 3600;
  EXPECT_EQ(dmiOpenSession(0), 0u);
  EXPECT_EQ(dmiSessionFailSeconds(), 0);
  EXPECT_NE(logged().size(), before.size());
}

TEST_F(SessionTest, RecoveryAnswersPendingEventsByMode) {
  ASSERT_EQ(x_->initService(), 1);
  size_t last = 0;
  addEvent(&state_.events, DM_EVENT_MOUNT, 1, DM_MOUNT_LOCAL, &last);
  addEvent(&state_.events, DM_EVENT_READ, 2, 0, &last);
  addEvent(&state_.events, DM_EVENT_PREUNMOUNT, 3, 0, &last);
  addEvent(&state_.events, DM_EVENT_USER, 4, 0, &last);
  addEvent(&state_.events, DM_EVENT_MOUNT, 5, DM_MOUNT_REMOTE, &last);
  // A last link that leaves the batch ends it.
  int32_t stray = 1 << 20;
  std::memcpy(state_.events.data() + last, &stray, sizeof stray);

  // Classic strategy: mounts refused, the rest as usual, old session gone.
  state_.sessions = {{0x77, "rec3"}};
  ASSERT_EQ(dmiRecoverObsoletedSession(0, "rec3", 0), 0);
  std::vector<std::pair<uint64_t, dm_response_t>> got;
  for (auto& r : state_.responses) got.emplace_back(r.first.low, r.second);
  std::vector<std::pair<uint64_t, dm_response_t>> want = {
      {1, DM_RESP_ABORT}, {3, DM_RESP_ABORT}, {4, DM_RESP_ABORT}, {5, DM_RESP_ABORT}};
  EXPECT_EQ(got, want);
  EXPECT_EQ(state_.lastOld, 0x77u);
  EXPECT_TRUE(state_.sessions.empty());

  // Reuse-capable strategy in reuse mode: local mounts accepted, remote
  // ones of no concern, data events left pending, the session kept as this
  // process's.
  opts_->hsmProgressiveDaemonStart = 1;
  state_.sessions = {{0x78, "rec3"}};
  state_.eventsTaken = false;
  state_.responses.clear();
  ASSERT_EQ(dmiRecoverObsoletedSession(0, "rec3", 1), 0);
  got.clear();
  for (auto& r : state_.responses) got.emplace_back(r.first.low, r.second);
  want = {{1, DM_RESP_CONTINUE}, {3, DM_RESP_ABORT}, {4, DM_RESP_ABORT}, {5, DM_RESP_DONTCARE}};
  EXPECT_EQ(got, want);
  EXPECT_EQ(x_->getSID(), 0x78u);
  EXPECT_EQ(state_.sessions.size(), 1u);

  // Without reuse the mount is refused and the old session destroyed.
  x_->setSID(0);
  state_.eventsTaken = false;
  state_.responses.clear();
  ASSERT_EQ(dmiRecoverObsoletedSession(0, "rec3", 0), 0);
  EXPECT_EQ(state_.responses.front().second, DM_RESP_ABORT);
  EXPECT_TRUE(state_.sessions.empty());

  // Nothing to recover is success.
  EXPECT_EQ(dmiRecoverObsoletedSession(0, "rec3", 0), 0);
}

TEST_F(SessionTest, TraceLinesNameTheProgramAndTheFunction) {
  delete_TraceObject();
  new_TraceObject(ctCLSpaceMGT, 0, nullptr);
  std::string file = root_ + "/trace.out";
  ASSERT_EQ(trEnable("DMI", 1), 0);
  ASSERT_EQ(trBegin(file.c_str(), 0), 0);
  EXPECT_EQ(x_->createSession(0, "early", 0), 0u);
  state_.version = "VEXA DMAPI 3.10";
  testing::internal::CaptureStderr();
  EXPECT_EQ(x_->initService(), 0);
  testing::internal::GetCapturedStderr();
  state_.version = "VEXA DMAPI 3.20";
  ASSERT_EQ(x_->initService(), 1);
  EXPECT_EQ(x_->initService(), 1);
  dm_sessid_t found = 0;
  EXPECT_EQ(dmiGetSidByName("nobody", &found, 0), 0);
  trClose(1);
  delete_TraceObject();
  std::string trace = qmxtest::readFile(file);
  for (const char* line : {
           "XDSMAPI::haveService: ERROR service not initd\n",
           "(dmitest:initService): runtime    : VEXA DMAPI 3.10\n",
           "(dmitest:initService): build on   : VEXA DMAPI 3.20\n",
           "(dmitest:initService): supported  : VEXA DMAPI 3.40\n",
           "(dmitest:initService): DMAPI VERSION CHECK FAILED\n",
           "(dmitest:initService): DMAPI service already initialized\n",
           "(dmitest:dmiGetSidByName): could not find a valid session for sessionName: nobody, "
           "sessionId: 0\n",
       })
    EXPECT_NE(trace.find(line), std::string::npos) << line << "in:\n" << trace;
}

// With our real provider: a daemon that died leaves its session, and the
// next process of the same name takes it over.
class SessionTakeoverTest : public dmitest::Sandbox {};

TEST_F(SessionTakeoverTest, SecondProcessTakesOverTheOrphanedSessionByName) {
  manage(fs_, 2);
  useRoot();
  dmiSetProgName("qmxrecalld");
  opts_->hsmProgressiveDaemonStart = 1;
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The first daemon opens its session and dies without closing it.
    _exit(dmiInit(1) == 0 && dmiOpenSession(0) != 0 ? 0 : 1);
  }
  ASSERT_TRUE(qmxtest::ChildExited(child, 0));
  dm_sessid_t orphan = 0;
  ASSERT_EQ(dmiInit(1), 0);
  ASSERT_EQ(dmiGetSidByName("rec2", &orphan, 0), 0);
  ASSERT_NE(orphan, 0u);
  qdmSession_t before;
  ASSERT_EQ(qdmRegRead(orphan, &before), 0);
  EXPECT_EQ(before.pid, child);

  dm_sessid_t sid = dmiOpenSession(0);
  EXPECT_EQ(sid, orphan);
  qdmSession_t after;
  ASSERT_EQ(qdmRegRead(sid, &after), 0);
  EXPECT_EQ(after.pid, getpid());
  std::vector<dm_sessid_t> all;
  ASSERT_EQ(qdmRegList(&all), 0);
  EXPECT_EQ(all.size(), 1u);
  EXPECT_EQ(dmiCloseSession(sid, 0), 0);
  EXPECT_NE(qdmRegRead(sid, &after), 0);
}

TEST_F(SessionTakeoverTest, CommandSessionOpensAndClosesThroughTheEntryPoints) {
  manage(fs_, 1);
  useRoot();
  dmiSetProgName("qmxattr");
  uint64_t sid = 0;
  ASSERT_EQ(qmxCreateSession(&sid, 0, 0), 0);
  EXPECT_NE(sid, 0u);
  EXPECT_EQ(dmiGetSid(), sid);
  EXPECT_EQ(opts_->dmapiSessionId, sid);
  dm_sessid_t found = 0;
  EXPECT_EQ(dmiGetSidByName("qmxattr", &found, 0), 0);
  EXPECT_EQ(found, sid);
  EXPECT_EQ(qmxDestroySession(0), 0);
  EXPECT_EQ(dmiGetSid(), 0u);
  EXPECT_EQ(opts_->dmapiSessionId, 0u);
  EXPECT_EQ(dmiGetSidByName("qmxattr", &found, 0), 0);
  EXPECT_EQ(found, 0u);
}

}  // namespace
