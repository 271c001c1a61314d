// Option identifiers, one per row of the option table (opt_table.def).
#ifndef QMX_OPTIONS_OPT_IDS_H_
#define QMX_OPTIONS_OPT_IDS_H_

#include <cstdint>

enum optId_e : uint16_t {
#define OPT(tok, id, ...) OPT_##tok = id,
#define OPTS OPT
#define OPTN OPT
#include "options/opt_table.def"
#undef OPT
#undef OPTS
#undef OPTN
  OPT_END = 999,
};

// Largest identifier of an option row (the row array has one slot more).
constexpr uint16_t optMaxOptionId = OPT_INCLUDE_SPACEMGMT;

#endif  // QMX_OPTIONS_OPT_IDS_H_
