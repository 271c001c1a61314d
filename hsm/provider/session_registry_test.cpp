#include "hsm/provider/session_registry.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "hsm/provider/qmxdm.h"
#include "hsm/provider/testing/provider_sandbox.h"
#include "testing/check.h"

namespace {

class SessionTest : public ProviderSandbox {
 protected:
  dm_sessid_t create(const char* info, dm_sessid_t old = DM_NO_SESSION) {
    std::string copy = info;
    dm_sessid_t sid = DM_NO_SESSION;
    if (qmxdm_create_session(old, copy.data(), &sid) != 0) return DM_NO_SESSION;
    return sid;
  }
  std::string query(dm_sessid_t sid) {
    char buf[DM_SESSION_INFO_LEN];
    size_t rlen = 0;
    if (qmxdm_query_session(sid, sizeof buf, buf, &rlen) != 0) return "<error>";
    return std::string(buf, rlen - 1);
  }
  std::vector<dm_sessid_t> all() {
    std::vector<dm_sessid_t> ids(1000);
    unsigned int n = 0;
    if (qmxdm_getall_sessions(static_cast<unsigned int>(ids.size()), ids.data(), &n) != 0)
      return {};
    ids.resize(n);
    return ids;
  }
};

TEST_F(SessionTest, CreateQueryListAndDestroy) {
  EXPECT_TRUE(all().empty());  // no registry yet: no sessions, no error
  dm_sessid_t a = create("qmxattr");
  dm_sessid_t b = create("rec1");
  ASSERT_NE(a, DM_NO_SESSION);
  ASSERT_NE(b, DM_NO_SESSION);
  EXPECT_NE(a, b);
  EXPECT_EQ(query(a), "qmxattr");
  EXPECT_EQ(query(b), "rec1");
  // Listed in creation order.
  EXPECT_EQ(all(), (std::vector<dm_sessid_t>{a, b}));

  // The returned length counts the NUL; a short buffer learns the length.
  char small[4];
  size_t rlen = 0;
  EXPECT_EQ(qmxdm_query_session(a, sizeof small, small, &rlen), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(rlen, 8u);

  ASSERT_EQ(qmxdm_destroy_session(a), 0);
  EXPECT_EQ(all(), (std::vector<dm_sessid_t>{b}));
  EXPECT_EQ(qmxdm_destroy_session(a), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(qmxdm_query_session(a, sizeof small, small, &rlen), -1);
  EXPECT_EQ(errno, EINVAL);
  // A new session never gets an old id back.
  dm_sessid_t c = create("again");
  EXPECT_NE(c, a);
  EXPECT_GT(c, b);
}

TEST_F(SessionTest, GetAllReportsTheCountWhenTheArrayIsTooSmall) {
  std::vector<dm_sessid_t> made;
  for (int i = 0; i < 5; ++i) made.push_back(create(("s" + std::to_string(i)).c_str()));
  dm_sessid_t ids[3];
  unsigned int n = 0;
  EXPECT_EQ(qmxdm_getall_sessions(3, ids, &n), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(n, 5u);
  std::vector<dm_sessid_t> exact(5);
  ASSERT_EQ(qmxdm_getall_sessions(5, exact.data(), &n), 0);
  EXPECT_EQ(exact, made);
}

TEST_F(SessionTest, InfoStringLimitsAreKept) {
  std::string longest(DM_SESSION_INFO_LEN - 1, 'i');
  dm_sessid_t sid = create(longest.c_str());
  ASSERT_NE(sid, DM_NO_SESSION);
  EXPECT_EQ(query(sid), longest);
  std::string tooLong(DM_SESSION_INFO_LEN, 'i');
  dm_sessid_t none = DM_NO_SESSION;
  EXPECT_EQ(qmxdm_create_session(DM_NO_SESSION, tooLong.data(), &none), -1);
  EXPECT_EQ(errno, E2BIG);
  // Info strings are bytes: a line break is kept as it is.
  dm_sessid_t odd = create("two\nlines token 1-2");
  EXPECT_EQ(query(odd), "two\nlines token 1-2");
  EXPECT_EQ(all().size(), 2u);
}

TEST_F(SessionTest, AnotherProcessTakesOverAnOrphanedSession) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    // The crashed daemon: creates its session and dies without destroying it.
    char info[] = "rec1";
    dm_sessid_t sid = DM_NO_SESSION;
    int rc = qmxdm_create_session(DM_NO_SESSION, info, &sid);
    ssize_t w = write(fds[1], &sid, sizeof sid);
    _exit(rc == 0 && w == sizeof sid ? 0 : 1);
  }
  close(fds[1]);
  // The id fits the pipe: the child is gone before it is read.
  ASSERT_TRUE(qmxtest::ChildExited(pid, 0));
  dm_sessid_t orphan = DM_NO_SESSION;
  ASSERT_EQ(read(fds[0], &orphan, sizeof orphan), static_cast<ssize_t>(sizeof orphan));
  close(fds[0]);
  ASSERT_NE(orphan, DM_NO_SESSION);

  qdmSession_t before;
  ASSERT_EQ(qdmRegRead(orphan, &before), 0);
  EXPECT_EQ(before.pid, pid);

  dm_sessid_t taken = create("rec1-restarted", orphan);
  EXPECT_EQ(taken, orphan);
  EXPECT_EQ(query(orphan), "rec1-restarted");
  qdmSession_t after;
  ASSERT_EQ(qdmRegRead(orphan, &after), 0);
  EXPECT_EQ(after.pid, getpid());
  EXPECT_EQ(all(), (std::vector<dm_sessid_t>{orphan}));

  // An id nobody has is not taken over, and nothing is created instead.
  dm_sessid_t none = DM_NO_SESSION;
  char info[] = "ghost";
  EXPECT_EQ(qmxdm_create_session(orphan + 1, info, &none), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(all().size(), 1u);
}

TEST_F(SessionTest, ConcurrentProcessesNeverCorruptTheRegistry) {
  constexpr int kProcs = 4;
  constexpr int kEach = 30;
  std::vector<pid_t> kids;
  for (int p = 0; p < kProcs; ++p) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      // Create kEach sessions, destroy every other one, and check each
      // survivor reads back as written while the others keep writing.
      std::vector<dm_sessid_t> mine;
      for (int i = 0; i < kEach; ++i) {
        char info[64];
        std::snprintf(info, sizeof info, "p%d-s%d", p, i);
        dm_sessid_t sid;
        if (qmxdm_create_session(DM_NO_SESSION, info, &sid) != 0) _exit(2);
        mine.push_back(sid);
        if (i % 2 == 1 && qmxdm_destroy_session(mine[i - 1]) != 0) _exit(3);
      }
      for (int i = 1; i < kEach; i += 2) {
        char buf[64], want[64];
        size_t rlen;
        std::snprintf(want, sizeof want, "p%d-s%d", p, i);
        if (qmxdm_query_session(mine[i], sizeof buf, buf, &rlen) != 0) _exit(4);
        if (std::strcmp(buf, want) != 0) _exit(5);
      }
      _exit(0);
    }
    kids.push_back(pid);
  }
  for (pid_t k : kids) EXPECT_TRUE(qmxtest::ChildExited(k, 0));

  std::vector<dm_sessid_t> ids = all();
  ASSERT_EQ(ids.size(), static_cast<size_t>(kProcs * kEach / 2));
  std::set<std::string> infos;
  for (dm_sessid_t sid : ids) infos.insert(query(sid));
  for (int p = 0; p < kProcs; ++p)
    for (int i = 1; i < kEach; i += 2)
      EXPECT_EQ(infos.count("p" + std::to_string(p) + "-s" + std::to_string(i)), 1u);
}

}  // namespace
