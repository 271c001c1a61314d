#include "hsm/cmd/corr_table.h"

#include <new>

CorrSTable::CorrSTable(const char* serverName) : serverName_(serverName ? serverName : "") {}

void CorrSTable::add(const char* fsName, const char* server) {
  if (fsName == nullptr) return;
  for (auto& e : entries_) {
    if (e.first == fsName) {
      e.second = server ? server : "";
      return;
    }
  }
  entries_.emplace_back(fsName, server ? server : "");
}

const char* CorrSTable::serverOf(const char* fsName) const {
  if (fsName != nullptr) {
    for (const auto& e : entries_) {
      if (e.first == fsName) return e.second.c_str();
    }
  }
  return serverName_.c_str();
}

CorrSTable* new_CorrSTable(const char* serverName, const char* fsName, int flags) {
  (void)flags;
  auto* t = new (std::nothrow) CorrSTable(serverName);
  if (t != nullptr && fsName != nullptr) t->add(fsName, serverName);
  return t;
}

void delete_CorrSTable(CorrSTable*& table) {
  delete table;
  table = nullptr;
}
