// Rights, events and tokens of our provider.
//
// No file system raises events to this provider, so no event is ever
// pending.  Tokens exist only as the user-event tokens that
// dm_create_userevent hands out: they stay on their session until
// dm_respond_event answers them, and dm_getall_tokens lists them.  Rights
// are granted at once and kept nowhere: nothing else takes them.
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <vector>

#include "hsm/provider/handle.h"
#include "hsm/provider/qmxdm.h"
#include "hsm/provider/session_registry.h"

namespace {

int fail(int err) {
  errno = err;
  return -1;
}

// Largest message dm_create_userevent accepts.
constexpr size_t kMaxUserEvent = 4096;

// Without a token there is nothing to hold a right for, so the call costs
// no look-up of the file; with one, the file must still be there.
int rightCall(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token) {
  qdmHandle_t h;
  if (qdmRegCheck(sid) != 0) return -1;
  if (qdmHandleDecode(hanp, hlen, &h) != 0) return -1;
  if (qdmRegCheckToken(sid, token) != 0) return -1;
  if (DM_TOKEN_EQ(token, DM_NO_TOKEN)) return 0;
  return qdmHandleVerify(h, nullptr);
}

}  // namespace

extern "C" {

int qmxdm_request_right(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                        unsigned int flags, dm_right_t right) {
  if ((flags & ~DM_RR_WAIT) != 0) return fail(EINVAL);
  if (right != DM_RIGHT_NULL && right != DM_RIGHT_SHARED && right != DM_RIGHT_EXCL)
    return fail(EINVAL);
  return rightCall(sid, hanp, hlen, token);
}

int qmxdm_release_right(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token) {
  return rightCall(sid, hanp, hlen, token);
}

int qmxdm_get_events(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t /*buflen*/,
                     void* /*bufp*/, size_t* rlenp) {
  if (qdmRegCheck(sid) != 0) return -1;
  if ((flags & ~DM_EV_WAIT) != 0 || maxmsgs == 0) return fail(EINVAL);
  if (rlenp == nullptr) return fail(EFAULT);
  *rlenp = 0;
  if ((flags & DM_EV_WAIT) == 0) return fail(EAGAIN);
  // A waiting caller waits as for real events: until a signal interrupts
  // it, or until its session is destroyed under it.  Signals stay blocked
  // outside the sleep itself, so that one arriving while the session is
  // looked at still ends the wait.
  sigset_t all, caller;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &caller);
  int err;
  for (;;) {
    struct timespec second = {1, 0};
    if (ppoll(nullptr, 0, &second, &caller) < 0 && errno == EINTR) {
      err = EINTR;
      break;
    }
    qdmSession_t s;
    if (qdmRegRead(sid, &s) != 0) {
      err = EINVAL;
      break;
    }
  }
  pthread_sigmask(SIG_SETMASK, &caller, nullptr);
  return fail(err);
}

int qmxdm_respond_event(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reterror,
                        size_t /*buflen*/, void* /*respbufp*/) {
  if (qdmRegCheck(sid) != 0) return -1;
  if (DM_TOKEN_EQ(token, DM_NO_TOKEN) || DM_TOKEN_EQ(token, DM_INVALID_TOKEN)) return fail(EINVAL);
  if (response != DM_RESP_CONTINUE && response != DM_RESP_ABORT && response != DM_RESP_DONTCARE)
    return fail(EINVAL);
  if (response == DM_RESP_ABORT && reterror < 0) return fail(EINVAL);
  return qdmRegRemoveToken(sid, token);
}

int qmxdm_create_userevent(dm_sessid_t sid, size_t msglen, void* msgdatap, dm_token_t* tokenp) {
  if (qdmRegCheck(sid) != 0) return -1;
  if (tokenp == nullptr || (msglen > 0 && msgdatap == nullptr)) return fail(EFAULT);
  if (msglen > kMaxUserEvent) return fail(E2BIG);
  return qdmRegAddToken(sid, tokenp);
}

int qmxdm_getall_tokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokenbufp,
                        unsigned int* nelemp) {
  if (nelemp == nullptr) return fail(EFAULT);
  qdmSession_t s;
  if (qdmRegRead(sid, &s) != 0) return -1;
  *nelemp = static_cast<unsigned int>(s.tokens.size());
  if (s.tokens.size() > nelem) return fail(E2BIG);
  if (!s.tokens.empty() && tokenbufp == nullptr) return fail(EFAULT);
  for (size_t i = 0; i < s.tokens.size(); ++i) tokenbufp[i] = s.tokens[i];
  return 0;
}

}  // extern "C"
