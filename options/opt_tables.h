// The two static tables of the option layer and the name-table object.
//
// optSharedOptionTable maps every spelling (with its shortest abbreviation)
// to an option identifier; optionTable describes each option.  Both end with
// the row of identifier 999.  Read-only; safe from any thread.
#ifndef QMX_OPTIONS_OPT_TABLES_H_
#define QMX_OPTIONS_OPT_TABLES_H_

#include <vector>

#include "options/opt_ids.h"
#include "options/opt_types.h"

extern const optSharedOptionTableEntry_t optSharedOptionTable[];
extern const int optOptTableEntries;  // 353, the end row included
extern const optionEntry optionTable[];
extern const int optionTableEntries;  // 277, the end row included

// Lookups over a name table.
class optSharedTable {
 public:
  // |table| runs up to and including its row of identifier 999.
  explicit optSharedTable(const optSharedOptionTableEntry_t* table = optSharedOptionTable);

  // The identifier of the first row, in table order, whose name |word|
  // abbreviates (a case-insensitive prefix at least the row's minimum long).
  // A command operand keyword (kind 2) yields its identifier negated; no
  // match (or an empty word) yields 999.
  int optSTStringToId(const char* word) const;
  // Whether |word| abbreviates the name of identifier |id| (any of its
  // rows).  Identifiers above 998 always answer false.
  bool optSTAbbrev(const char* word, int id) const;
  // The full name of |id| ("" when unknown).
  const char* optSTIdToName(int id) const;
  const optSharedOptionTableEntry_t* rows() const { return table_; }

 private:
  // Row numbers grouped by the name's first letter, each group in table
  // order, so a lookup visits only the rows that can match.
  const optSharedOptionTableEntry_t* table_;
  std::vector<uint16_t> order_;
  uint16_t start_[257] = {};
};

// The abbreviation rule of every keyword match: |word| is non-empty, no
// longer than |keyword|, at least |minLen| long and equal to the keyword's
// first characters, ignoring case.
bool optIsAbbrev(const char* word, const char* keyword, unsigned minLen);

#endif  // QMX_OPTIONS_OPT_TABLES_H_
