#include "options/opt_tables.h"

#include <strings.h>

#include <cctype>
#include <cstddef>
#include <cstring>

#include "options/opt_callbacks.h"
#include "options/opt_fields.h"
#include "options/opt_keywords.h"

const optSharedOptionTableEntry_t optSharedOptionTable[] = {
#define OPTNAME(name, minLen, id, kind) {name, minLen, static_cast<uint16_t>(id), kind},
#include "options/opt_names.def"
#undef OPTNAME
};
const int optOptTableEntries =
    static_cast<int>(sizeof(optSharedOptionTable) / sizeof(optSharedOptionTable[0]));

// Short names for the table's masks.
namespace {
constexpr uint32_t F_ALL = optFeatAll & ~optFeatForeign;
constexpr uint32_t F_FOREIGN = optFeatForeign;
constexpr uint32_t F_IMAGE = optFeatImage;
constexpr uint32_t F_SNAPSHOT = optFeatSnapshot;
constexpr uint32_t F_NAS = optFeatNas;
constexpr uint32_t F_VM = optFeatVm;
constexpr uint16_t CT_ALL = 0xFFFF;
constexpr uint8_t S_SYS0 = optSrcStore0 | optSrcSystem;
constexpr uint8_t S_USR0 = optSrcStore0 | optSrcUser;
constexpr uint8_t S_SYSUSR = optSrcSystem | optSrcUser;
constexpr uint8_t S_SYS = optSrcSystem;
constexpr uint8_t S_USR = optSrcUser;
constexpr uint8_t S_ANY = optSrcAny;
constexpr uint8_t S_SRVSET = optSrcServerSet;
constexpr uint8_t S_IE = optSrcStore0 | optSrcSystem | optSrcIEFile | optSrcServerSet;
}  // namespace

const optionEntry optionTable[] = {
#define OPT(tok, id, field, st, size, feat, cli, src, pk, lo, hi, vf, cb, late, kw, dflt, dtext) \
  {id,                                                                                           \
   static_cast<int32_t>(offsetof(optFields_t, field)),                                           \
   st,                                                                                           \
   size,                                                                                         \
   feat,                                                                                         \
   cli,                                                                                          \
   static_cast<uint8_t>(src),                                                                    \
   pk,                                                                                           \
   lo,                                                                                           \
   hi,                                                                                           \
   vf,                                                                                           \
   cb,                                                                                           \
   late != 0,                                                                                    \
   kw,                                                                                           \
   dflt,                                                                                         \
   dtext},
#define OPTS OPT
#define OPTN(tok, id, field, st, size, feat, cli, src, pk, lo, hi, vf, cb, late, kw, dflt, dtext) \
  {id, -1, st,        size, feat, cli,  static_cast<uint8_t>(src), pk, lo, hi,                    \
   vf, cb, late != 0, kw,   dflt, dtext},
#include "options/opt_table.def"
#undef OPT
#undef OPTS
#undef OPTN
    {OPT_END_ID, -1, ST_NONE, 0, 0, 0, 0, 0, 0, 0, VF_NONE, nullptr, false, nullptr, 0, ""},
};
const int optionTableEntries = static_cast<int>(sizeof(optionTable) / sizeof(optionTable[0]));

bool optIsAbbrev(const char* word, const char* keyword, unsigned minLen) {
  if (word == nullptr || keyword == nullptr) return false;
  size_t len = strlen(word);
  return len > 0 && len <= strlen(keyword) && len >= minLen && strncasecmp(word, keyword, len) == 0;
}

optSharedTable::optSharedTable(const optSharedOptionTableEntry_t* table) : table_(table) {
  // A counting sort by first letter (upper-cased) keeps table order within
  // each letter, and that order is the tie-break.
  size_t n = 0;
  while (table_[n].id != OPT_END_ID) ++n;
  uint16_t count[256] = {};
  auto key = [](const char* name) {
    return static_cast<unsigned char>(toupper(static_cast<unsigned char>(name[0])));
  };
  for (size_t i = 0; i < n; ++i) ++count[key(table_[i].name)];
  for (int c = 0; c < 256; ++c) start_[c + 1] = static_cast<uint16_t>(start_[c] + count[c]);
  order_.resize(n);
  uint16_t fill[256];
  memcpy(fill, start_, sizeof(fill));
  for (size_t i = 0; i < n; ++i) order_[fill[key(table_[i].name)]++] = static_cast<uint16_t>(i);
}

int optSharedTable::optSTStringToId(const char* word) const {
  if (word == nullptr || *word == '\0') return OPT_END_ID;
  unsigned c = static_cast<unsigned char>(toupper(static_cast<unsigned char>(word[0])));
  for (uint16_t k = start_[c]; k < start_[c + 1]; ++k) {
    const optSharedOptionTableEntry_t& r = table_[order_[k]];
    if (optIsAbbrev(word, r.name, r.minLen)) return r.kind == 2 ? -static_cast<int>(r.id) : r.id;
  }
  return OPT_END_ID;
}

bool optSharedTable::optSTAbbrev(const char* word, int id) const {
  if (id < 0 || id >= OPT_END_ID || word == nullptr || *word == '\0') return false;
  unsigned c = static_cast<unsigned char>(toupper(static_cast<unsigned char>(word[0])));
  for (uint16_t k = start_[c]; k < start_[c + 1]; ++k) {
    const optSharedOptionTableEntry_t& r = table_[order_[k]];
    if (r.id == id && r.kind != 2 && optIsAbbrev(word, r.name, r.minLen)) return true;
  }
  return false;
}

const char* optSharedTable::optSTIdToName(int id) const {
  for (const optSharedOptionTableEntry_t* r = table_; r->id != OPT_END_ID; ++r) {
    if (r->id == id && r->kind != 2) return r->name;
  }
  return "";
}
