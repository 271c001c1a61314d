// Taking over the orphaned session of a daemon that ended without closing
// it: the session is found by name, handed to this process, and the events
// that waited on it are answered.
#include "hsm/dmapi/dmi_recover.h"

#include <errno.h>

#include <cstring>
#include <new>
#include <vector>

#include "hsm/dmapi/dmi_sessid.h"
#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/dmi_trace.h"
#include "hsm/dmapi/xdsmapi.h"
#include "options/optobj.h"

namespace {

constexpr const char kFn[] = "dmiRecoverObsoletedSession";

// Reads every pending event of |sid| into |events| (one byte buffer per
// dm_get_events batch), growing the buffer when DMAPI reports it too
// small.  Returns 0, or -1 with errno (EAGAIN is the normal end).
int readPending(XDSMAPI* x, dm_sessid_t sid, std::vector<std::vector<unsigned char>>* batches,
                bool traceLoop) {
  char text[dmiTextBufSize];
  size_t size = 4096;
  for (;;) {
    std::vector<unsigned char> buf;
    if (!dmiAssign(&buf, size, static_cast<unsigned char>(0))) return -1;
    size_t rlen = 0;
    if (x->getEvents(sid, 64, 0, buf.size(), buf.data(), &rlen) != 0) {
      int err = errno;
      if (err == E2BIG && rlen > size) {
        DMI_TRACE(DMI_TR_ON, kFn, "buffer was too small: %u, retry with %u\n",
                  static_cast<unsigned>(size), static_cast<unsigned>(rlen));
        size = rlen;
        continue;
      }
      if (traceLoop)
        DMI_TRACE(DMI_TR_ON, kFn, "IN getEvents() LOOP for sid: %s, errno: %d\n",
                  dmiSessionIDToString(sid, text), err);
      errno = err;
      return err == EAGAIN ? 0 : -1;
    }
    buf.resize(rlen);
    batches->push_back(std::move(buf));
  }
}

// Calls |fn|(event, bytes from the event to the end of its batch) for each
// event of every batch.  A link that leaves its batch ends the batch: a
// provider's bad link must not make us read past the buffer.
template <typename Fn>
void forEachEvent(std::vector<std::vector<unsigned char>>& batches, Fn fn) {
  for (std::vector<unsigned char>& b : batches) {
    size_t off = 0;
    while (off + sizeof(dm_eventmsg_t) <= b.size()) {
      dm_eventmsg_t* ev = reinterpret_cast<dm_eventmsg_t*>(b.data() + off);
      fn(ev, b.size() - off);
      if (ev->_link <= 0) break;
      off += static_cast<size_t>(ev->_link);
    }
  }
}

// Whether the mount event |ev| (|room| bytes to the end of its batch) comes
// from a remote node.
bool remoteMount(const dm_eventmsg_t* ev, size_t room) {
  if (ev->ev_data.vd_offset < 0 ||
      static_cast<size_t>(ev->ev_data.vd_offset) + sizeof(dm_mount_event_t) > room)
    return false;
  dm_mount_event_t me;
  std::memcpy(&me, reinterpret_cast<const char*>(ev) + ev->ev_data.vd_offset, sizeof me);
  return (me.me_mode & DM_MOUNT_REMOTE) != 0;
}

// Answers one event that is not a mount (or a mount in the classic
// strategy's single pass after the first answer).  Data events stay
// pending for the session's new owner.
void answerOther(XDSMAPI* x, dm_sessid_t sid, dm_eventmsg_t* ev, size_t room) {
  char text[dmiTextBufSize];
  switch (ev->ev_type) {
    case DM_EVENT_MOUNT:
      x->respondEvent(sid, ev->ev_token,
                      remoteMount(ev, room) ? DM_RESP_DONTCARE : DM_RESP_CONTINUE, 0);
      break;
    case DM_EVENT_READ:
    case DM_EVENT_WRITE:
    case DM_EVENT_TRUNCATE:
      DMI_TRACE(DMI_TR_ON, kFn, "RECEIVED EVENT (READ/WRITE/TRUNCATE) for sid: %s, errno: %d\n",
                dmiSessionIDToString(sid, text), errno);
      break;
    default:
      // Pre-unmount, no-space, user and unknown events: refuse them.
      if (!DM_TOKEN_EQ(ev->ev_token, DM_NO_TOKEN))
        x->respondEvent(sid, ev->ev_token, DM_RESP_ABORT, EACCES);
      break;
  }
}

// Clears the tokens of |sid| and destroys it.
void dropOldSession(XDSMAPI* x, dm_sessid_t sid) {
  char text[dmiTextBufSize];
  dmiSessionIDToString(sid, text);
  unsigned int count = 0;
  dmiClearAllEvents(sid, 0, &count);
  DMI_TRACE(DMI_TR_ON, kFn, "cleared %u tokens on session, sid: %s\n", count, text);
  if (x->destroySession(sid, 0) == DMI_XDSM_DONE) {
    DMI_TRACE(DMI_TR_ON, kFn, "destroy of session, sid: %s succeeded!\n", text);
  } else {
    int err = errno;
    DMI_TRACE(DMI_TR_ON, kFn, "failed to destroy session, sid: %s, errno(%d), reason(%s)\n", text,
              err, std::strerror(err));
  }
}

}  // namespace

int dmiRecoverObsoletedSession(dm_sessid_t /*sid*/, const char* name, int reuse) {
  TRACE_ENTER_EXIT(kFn);
  if (name == nullptr) {
    errno = EINVAL;
    return -1;
  }
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  char text[dmiTextBufSize];
  char text2[dmiTextBufSize];
  dm_sessid_t old = DM_NO_SESSION;
  int rc = dmiGetSidByName(name, &old, DM_NO_SESSION);
  if (rc != 0) {
    DMI_TRACE(DMI_TR_ON, kFn, "dmiGetSidByName(%s, %s) failed with rc (%d).\n", name,
              dmiSessionIDToString(old, text), rc);
    return -1;
  }
  if (old == DM_NO_SESSION) {
    DMI_TRACE(DMI_TR_ON, kFn, "nothing to recover, exiting...\n");
    return 0;
  }
  dm_sessid_t sid = x->createSession(old, name, 1);
  if (sid == DM_NO_SESSION) {
    int err = errno;
    dmiLogMsg(9531, name, dmiSessionIDToString(old, text), dmiProgName(), std::strerror(err));
    DMI_TRACE(DMI_TR_ON, kFn,
              "createSession() failed to reconstruct sid(%s), reason(%s), errno(%d)\n", text,
              std::strerror(err), err);
    errno = err;
    return -1;
  }
  DMI_TRACE(DMI_TR_ON, kFn, "createSession(%s, %s) reconstructed as sid(%s)\n",
            dmiSessionIDToString(old, text), name, dmiSessionIDToString(sid, text2));
  x->setSID(sid);

  clientOptions* o = optGetThreadOptionP();
  bool progressive = o != nullptr && o->hsmProgressiveDaemonStart != 0;
  std::vector<std::vector<unsigned char>> batches;
  if (!progressive) {
    // Classic: one pass; mounts are refused, the rest answered as usual,
    // then the session is given up.
    readPending(x, sid, &batches, true);
    forEachEvent(batches, [&](dm_eventmsg_t* ev, size_t room) {
      if (ev->ev_type == DM_EVENT_MOUNT)
        x->respondEvent(sid, ev->ev_token, DM_RESP_ABORT, EACCES);
      else
        answerOther(x, sid, ev, room);
    });
    dropOldSession(x, sid);
    return 0;
  }
  if (readPending(x, sid, &batches, false) != 0 && errno == ENOMEM) return -1;
  DMI_TRACE(DMI_TR_ON, kFn, "START 1. loop cycle - mount event only - on session %s\n",
            dmiSessionIDToString(sid, text));
  // The first pass answers the mounts of this node; a remote node's mount
  // is left to the second pass, which doesn't care about it.
  forEachEvent(batches, [&](dm_eventmsg_t* ev, size_t room) {
    if (ev->ev_type != DM_EVENT_MOUNT || remoteMount(ev, room)) return;
    if (reuse) {
      DMI_TRACE(DMI_TR_ON, kFn, "SESSION REUSE : Respond OK to MOUNT EVENT on session : %s\n",
                text);
      x->respondEvent(sid, ev->ev_token, DM_RESP_CONTINUE, 0);
    } else {
      DMI_TRACE(DMI_TR_ON, kFn, "SESSION CREATE : Respond ABORT to MOUNT EVENT on session : %s\n",
                text);
      x->respondEvent(sid, ev->ev_token, DM_RESP_ABORT, EACCES);
    }
  });
  DMI_TRACE(DMI_TR_ON, kFn, "START 2. loop cycle - all other events - on session %s\n", text);
  forEachEvent(batches, [&](dm_eventmsg_t* ev, size_t room) {
    if (ev->ev_type != DM_EVENT_MOUNT || remoteMount(ev, room)) answerOther(x, sid, ev, room);
  });
  if (!reuse) dropOldSession(x, sid);
  return 0;
}
