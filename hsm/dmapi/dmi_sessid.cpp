#include "hsm/dmapi/dmi_sessid.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "hsm/dmapi/dmi_trace.h"
#include "hsm/dmapi/xdsmapi.h"

char* dmiSessionIDToString(dm_sessid_t sid, char* buf) {
  std::snprintf(buf, dmiTextBufSize, "%llX", static_cast<unsigned long long>(sid));
  return buf;
}

char* dmiTokenToString(dm_token_t token, char* buf) {
  std::snprintf(buf, dmiTextBufSize, "%llX-%llX", static_cast<unsigned long long>(token.high),
                static_cast<unsigned long long>(token.low));
  return buf;
}

int dmiSessionStringToID(const char* text, dm_sessid_t* out) {
  if (text == nullptr || out == nullptr) {
    errno = EINVAL;
    return -1;
  }
  *out = static_cast<dm_sessid_t>(std::strtoll(text, nullptr, 16));
  return 0;
}

int dmiGetSidByName(const char* name, dm_sessid_t* found, dm_sessid_t wanted) {
  static const char kFn[] = "dmiGetSidByName";
  TRACE_ENTER_EXIT(kFn);
  if (name == nullptr || found == nullptr) {
    errno = EINVAL;
    return -1;
  }
  *found = DM_NO_SESSION;
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  unsigned int room = 100;
  std::vector<dm_sessid_t> sids;
  unsigned int count = 0;
  bool listed = false;
  for (int attempt = 0; attempt < 5 && !listed; ++attempt) {
    if (!dmiAssign(&sids, room, DM_NO_SESSION)) {
      DMI_TRACE(DMI_TR_ON, kFn, "ERROR - client out of memory, errno: %d\n", ENOMEM);
      return -1;
    }
    if (x->getAllSessions(room, sids.data(), &count) == 0) {
      listed = true;
      break;
    }
    if (errno != E2BIG) return -1;
    room = count + 100;
    DMI_TRACE(DMI_TR_ON, kFn, "increase number of possible sessions to: %d\n", room);
  }
  if (!listed) {
    errno = E2BIG;
    return -1;
  }
  size_t nameLen = std::strlen(name);
  for (unsigned int i = 0; i < count; ++i) {
    char info[DM_SESSION_INFO_LEN] = {};
    size_t rlen = 0;
    if (x->querySession(sids[i], sizeof info, info, &rlen) != 0) {
      int err = errno;
      dmiLogMsg(9534, dmiProgName(), std::strerror(err));
      // A session that ended meanwhile is no error of the look-up.
      if (err == EINVAL) continue;
      errno = err;
      return -1;
    }
    // The returned length counts the terminating NUL: compare the text
    // that the session carries.  A stored name longer than |name| can't
    // match, since the NUL of |name| comes first.
    size_t cmpLen = rlen > sizeof info ? sizeof info : rlen;
    if (cmpLen > nameLen + 1) cmpLen = nameLen + 1;
    if (std::memcmp(info, name, cmpLen) != 0) continue;
    if (wanted != DM_NO_SESSION && sids[i] != wanted) continue;
    *found = sids[i];
    return 0;
  }
  char text[dmiTextBufSize];
  DMI_TRACE(DMI_TR_ON, kFn, "could not find a valid session for sessionName: %s, sessionId: %s\n",
            name, dmiSessionIDToString(wanted, text));
  return 0;
}

int dmiClearAllEvents(dm_sessid_t sid, int /*flag*/, unsigned int* count) {
  static const char kFn[] = "dmiClearAllEvents";
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  unsigned int cleared = 0;
  if (count != nullptr) *count = 0;
  // A session made through the root daemon holds neither events nor
  // tokens: the daemon serves those calls to root only, and would log each
  // asking as a refusal.
  if (getuid() != 0) return 0;
  int rc = 0;
  // Undelivered events first: take each and refuse it.
  std::vector<unsigned char> buf(64 * 1024);
  for (;;) {
    size_t rlen = 0;
    if (x->getEvents(sid, 64, 0, buf.size(), buf.data(), &rlen) != 0) {
      if (errno == E2BIG && rlen > buf.size()) {
        buf.resize(rlen);
        continue;
      }
      if (errno != EAGAIN) rc = -1;
      break;
    }
    // Links that leave the returned bytes end the batch.
    size_t off = 0;
    while (off + sizeof(dm_eventmsg_t) <= rlen && off + sizeof(dm_eventmsg_t) <= buf.size()) {
      const dm_eventmsg_t* ev = reinterpret_cast<const dm_eventmsg_t*>(buf.data() + off);
      if (!DM_TOKEN_EQ(ev->ev_token, DM_NO_TOKEN) &&
          x->respondEvent(sid, ev->ev_token, DM_RESP_ABORT, EINTR) == 0)
        ++cleared;
      if (ev->_link <= 0) break;
      off += static_cast<size_t>(ev->_link);
    }
  }
  // Then every token still outstanding on the session.
  std::vector<dm_token_t> tokens(64);
  unsigned int n = 0;
  while (x->getAllTokens(sid, static_cast<unsigned int>(tokens.size()), tokens.data(), &n) != 0) {
    if (errno != E2BIG || n <= tokens.size()) {
      rc = -1;
      n = 0;
      break;
    }
    tokens.resize(n);
  }
  for (unsigned int i = 0; i < n; ++i)
    if (x->respondEvent(sid, tokens[i], DM_RESP_ABORT, EINTR) == 0) ++cleared;
  if (count != nullptr) *count = cleared;
  if (rc != 0) DMI_TRACE(DMI_TR_ON, kFn, "clearing session events failed, errno: %d\n", errno);
  return rc;
}
