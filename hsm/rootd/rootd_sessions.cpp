#include "hsm/rootd/rootd_sessions.h"

#include "hsm/rootd/rootd_caller.h"

void rtdSessionTable::record(dm_sessid_t sid, const rtdSessionOwner_t& owner) {
  std::lock_guard<std::mutex> lock(mu_);
  owners_[sid] = owner;
}

void rtdSessionTable::forget(dm_sessid_t sid) {
  std::lock_guard<std::mutex> lock(mu_);
  owners_.erase(sid);
}

bool rtdSessionTable::owns(dm_sessid_t sid, pid_t pid, uid_t uid) const {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = owners_.find(sid);
  return it != owners_.end() && it->second.pid == pid && it->second.uid == uid;
}

std::vector<dm_sessid_t> rtdSessionTable::sessionsOf(pid_t pid, uid_t uid) const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<dm_sessid_t> out;
  for (const auto& [sid, o] : owners_)
    if (o.pid == pid && o.uid == uid) out.push_back(sid);
  return out;
}

std::vector<dm_sessid_t> rtdSessionTable::takeOrphans() {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<dm_sessid_t> out;
  for (auto it = owners_.begin(); it != owners_.end();) {
    if (rtdProcessStartTime(it->second.pid) != it->second.start) {
      out.push_back(it->first);
      it = owners_.erase(it);
    } else {
      ++it;
    }
  }
  return out;
}

size_t rtdSessionTable::countOf(uid_t uid) const {
  std::lock_guard<std::mutex> lock(mu_);
  size_t n = 0;
  for (const auto& entry : owners_)
    if (entry.second.uid == uid) ++n;
  return n;
}

size_t rtdSessionTable::size() const {
  std::lock_guard<std::mutex> lock(mu_);
  return owners_.size();
}
