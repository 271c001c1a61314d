// The correlation table of a space-management command: which server holds
// the data of which file system, taken from the server session at start-up.
//
// The attribute command only creates and deletes it; the daemons that move
// data fill it.  Owned by HSMGlobalCB::corrTable.
#ifndef QMX_HSM_CMD_CORR_TABLE_H_
#define QMX_HSM_CMD_CORR_TABLE_H_

#include <string>
#include <utility>
#include <vector>

class CorrSTable {
 public:
  // |serverName| is the server the session talks to ("" when unknown).
  explicit CorrSTable(const char* serverName);

  const std::string& serverName() const { return serverName_; }

  // Records that |fsName| is served by |server|; a later entry for the same
  // file system replaces the earlier one.
  void add(const char* fsName, const char* server);
  // The server of |fsName|, or the table's own server when none is recorded.
  const char* serverOf(const char* fsName) const;
  size_t size() const { return entries_.size(); }

 private:
  std::string serverName_;
  std::vector<std::pair<std::string, std::string>> entries_;
};

// Creates a table for |serverName| with the file system |fsName| (null for
// none) served by it.  |flags| is reserved (0).  Null when out of memory.
CorrSTable* new_CorrSTable(const char* serverName, const char* fsName, int flags);
void delete_CorrSTable(CorrSTable*& table);

#endif  // QMX_HSM_CMD_CORR_TABLE_H_
