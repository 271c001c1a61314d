#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "hsm/provider/qmxdm.h"
#include "hsm/provider/testing/provider_sandbox.h"
#include "testing/check.h"

namespace {

class EventsTest : public ProviderSandbox {
 protected:
  void SetUp() override {
    ProviderSandbox::SetUp();
    if (IsSkipped()) return;
    char info[] = "events-test";
    ASSERT_EQ(qmxdm_create_session(DM_NO_SESSION, info, &sid_), 0);
  }
  unsigned int tokenCount() {
    dm_token_t toks[8];
    unsigned int n = 99;
    if (qmxdm_getall_tokens(sid_, 8, toks, &n) != 0) return 99;
    return n;
  }
  dm_sessid_t sid_ = DM_NO_SESSION;
};

TEST_F(EventsTest, ServiceReportsItsVersion) {
  char* version = nullptr;
  ASSERT_EQ(qmxdm_init_service(&version), 0);
  ASSERT_NE(version, nullptr);
  EXPECT_STREQ(version, "VEXA DMAPI 3.40");
}

TEST_F(EventsTest, ServiceIsRootsOnly) {
  // Other users reach DM attributes through the root daemon only.
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
    char* version = nullptr;
    _exit(qmxdm_init_service(&version) == -1 && errno == EPERM && version == nullptr ? 0 : 1);
  }
  EXPECT_TRUE(qmxtest::ChildExited(pid, 0));
}

TEST_F(EventsTest, NoEventIsEverPending) {
  char buf[512];
  size_t rlen = 1;
  EXPECT_EQ(qmxdm_get_events(sid_, 10, 0, sizeof buf, buf, &rlen), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(rlen, 0u);
  EXPECT_EQ(tokenCount(), 0u);
  EXPECT_EQ(qmxdm_get_events(DM_NO_SESSION, 10, 0, sizeof buf, buf, &rlen), -1);
  EXPECT_EQ(errno, EINVAL);
  unsigned int n = 0;
  EXPECT_EQ(qmxdm_getall_tokens(sid_ + 1, 0, nullptr, &n), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EventsTest, WaitingForEventsEndsWithASignal) {
  struct sigaction sa {};
  sa.sa_handler = [](int) {};
  struct sigaction old;
  ASSERT_EQ(sigaction(SIGALRM, &sa, &old), 0);
  alarm(1);
  char buf[512];
  size_t rlen = 0;
  int rc = qmxdm_get_events(sid_, 1, DM_EV_WAIT, sizeof buf, buf, &rlen);
  int err = errno;
  alarm(0);
  sigaction(SIGALRM, &old, nullptr);
  EXPECT_EQ(rc, -1);
  EXPECT_EQ(err, EINTR);
}

TEST_F(EventsTest, RespondingToAnUnknownTokenFails) {
  dm_token_t unknown{sid_, 7};
  EXPECT_EQ(qmxdm_respond_event(sid_, unknown, DM_RESP_CONTINUE, 0, 0, nullptr), -1);
  EXPECT_EQ(errno, ESRCH);
  EXPECT_EQ(qmxdm_respond_event(sid_, DM_NO_TOKEN, DM_RESP_CONTINUE, 0, 0, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EventsTest, UserEventTokensLiveUntilAnswered) {
  char msg[] = "hello";
  dm_token_t t1, t2;
  ASSERT_EQ(qmxdm_create_userevent(sid_, sizeof msg, msg, &t1), 0);
  ASSERT_EQ(qmxdm_create_userevent(sid_, sizeof msg, msg, &t2), 0);
  EXPECT_FALSE(DM_TOKEN_EQ(t1, t2));
  EXPECT_FALSE(DM_TOKEN_EQ(t1, DM_NO_TOKEN));

  dm_token_t toks[1];
  unsigned int n = 0;
  EXPECT_EQ(qmxdm_getall_tokens(sid_, 1, toks, &n), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(n, 2u);

  // A session holding tokens can't go away.
  EXPECT_EQ(qmxdm_destroy_session(sid_), -1);
  EXPECT_EQ(errno, EBUSY);

  // The token is good for rights on a file until it is answered.
  std::string p = makeFile("f");
  void* h;
  size_t hl;
  ASSERT_EQ(qmxdm_path_to_handle(p.data(), &h, &hl), 0);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl, t1, 0, DM_RIGHT_EXCL), 0);
  EXPECT_EQ(qmxdm_release_right(sid_, h, hl, t1), 0);

  EXPECT_EQ(qmxdm_respond_event(sid_, t1, DM_RESP_INVALID, 0, 0, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(qmxdm_respond_event(sid_, t1, DM_RESP_CONTINUE, 0, 0, nullptr), 0);
  EXPECT_EQ(qmxdm_respond_event(sid_, t1, DM_RESP_CONTINUE, 0, 0, nullptr), -1);
  EXPECT_EQ(errno, ESRCH);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl, t1, 0, DM_RIGHT_SHARED), -1);
  EXPECT_EQ(errno, ESRCH);
  EXPECT_EQ(qmxdm_respond_event(sid_, t2, DM_RESP_ABORT, EACCES, 0, nullptr), 0);
  EXPECT_EQ(tokenCount(), 0u);
  qmxdm_handle_free(h, hl);
  EXPECT_EQ(qmxdm_destroy_session(sid_), 0);
}

TEST_F(EventsTest, RightsWithoutATokenHoldNothing) {
  std::string p = makeFile("f");
  void* h;
  size_t hl;
  ASSERT_EQ(qmxdm_path_to_handle(p.data(), &h, &hl), 0);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl, DM_NO_TOKEN, 0, DM_RIGHT_EXCL), 0);
  EXPECT_EQ(qmxdm_release_right(sid_, h, hl, DM_NO_TOKEN), 0);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl, DM_NO_TOKEN, 0, static_cast<dm_right_t>(7)), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl, DM_NO_TOKEN, 0x10, DM_RIGHT_SHARED), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl - 1, DM_NO_TOKEN, 0, DM_RIGHT_SHARED), -1);
  EXPECT_EQ(errno, EBADF);

  // Under a token the file itself must still be there.
  char msg[] = "m";
  dm_token_t t;
  ASSERT_EQ(qmxdm_create_userevent(sid_, 1, msg, &t), 0);
  ASSERT_EQ(unlink(p.c_str()), 0);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl, DM_NO_TOKEN, 0, DM_RIGHT_SHARED), 0);
  EXPECT_EQ(qmxdm_request_right(sid_, h, hl, t, 0, DM_RIGHT_SHARED), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(qmxdm_respond_event(sid_, t, DM_RESP_CONTINUE, 0, 0, nullptr), 0);
  qmxdm_handle_free(h, hl);
}

}  // namespace
