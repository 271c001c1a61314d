// The DMAPI sessions that the root daemon created for callers that are not
// root, and which process each belongs to.  A caller may act only on the
// sessions that its own process created; the sessions of processes that
// are gone are destroyed on the next creation (reaped), so a client that
// dies without destroying its session does not leave it behind for good.
//
// Thread-safe: every member takes the table's lock.
#ifndef QMX_HSM_ROOTD_ROOTD_SESSIONS_H_
#define QMX_HSM_ROOTD_ROOTD_SESSIONS_H_

#include <sys/types.h>

#include <map>
#include <mutex>
#include <vector>

#include "hsm/provider/dmapi_iface.h"

struct rtdSessionOwner_t {
  pid_t pid;
  uid_t uid;
  unsigned long long start;  // rtdProcessStartTime of pid at creation
};

class rtdSessionTable {
 public:
  // Records |sid| as created by |owner|.
  void record(dm_sessid_t sid, const rtdSessionOwner_t& owner);
  void forget(dm_sessid_t sid);
  // True when |sid| was created by process |pid| of user |uid|.  A pid
  // reused by another user's process does not match (the uid differs).
  bool owns(dm_sessid_t sid, pid_t pid, uid_t uid) const;
  // The sessions of process |pid| of user |uid|, in ascending order.
  std::vector<dm_sessid_t> sessionsOf(pid_t pid, uid_t uid) const;
  // Takes the sessions whose process has ended (its start time no longer
  // matches) out of the table and returns them for destruction.
  std::vector<dm_sessid_t> takeOrphans();
  size_t size() const;
  // How many sessions user |uid| has (reaped ones not counted).
  size_t countOf(uid_t uid) const;

 private:
  mutable std::mutex mu_;
  std::map<dm_sessid_t, rtdSessionOwner_t> owners_;
};

#endif  // QMX_HSM_ROOTD_ROOTD_SESSIONS_H_
