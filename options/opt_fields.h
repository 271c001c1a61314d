// The value fields of the options object, one per option row that declares
// one (opt_table.def), named in lower camel case after the option
// (TCPPORT -> tcpPort, VIRTUALMOUNTPOINT -> virtualMountPoints).  The table
// reaches them by offset, so this stays a plain standard-layout record.
//
// Types follow the storage column: 0 uint8_t, 1 int16_t, 2 uint16_t,
// 3 int32_t, 4 uint32_t, 5 uint64_t, 6 int32_t (0/1), 7 char[size],
// 8 char*, 9 unsigned char[7], 10 optStringList*, 11 unsigned char[size],
// 12 int32_t.
#ifndef QMX_OPTIONS_OPT_FIELDS_H_
#define QMX_OPTIONS_OPT_FIELDS_H_

#include <cstdint>

#include "options/opt_strlist.h"
#include "options/opt_types.h"

template <int S, uint32_t N>
struct optFieldType;
template <uint32_t N>
struct optFieldType<ST_BYTE, N> {
  using type = uint8_t;
};
template <uint32_t N>
struct optFieldType<ST_I16, N> {
  using type = int16_t;
};
template <uint32_t N>
struct optFieldType<ST_U16, N> {
  using type = uint16_t;
};
template <uint32_t N>
struct optFieldType<ST_I32, N> {
  using type = int32_t;
};
template <uint32_t N>
struct optFieldType<ST_U32, N> {
  using type = uint32_t;
};
template <uint32_t N>
struct optFieldType<ST_U64, N> {
  using type = uint64_t;
};
template <uint32_t N>
struct optFieldType<ST_YESNO, N> {
  using type = int32_t;
};
template <uint32_t N>
struct optFieldType<ST_TEXT, N> {
  using type = char[N];
};
template <uint32_t N>
struct optFieldType<ST_HEAP, N> {
  using type = char*;
};
template <uint32_t N>
struct optFieldType<ST_DATE, N> {
  using type = unsigned char[7];
};
template <uint32_t N>
struct optFieldType<ST_LIST, N> {
  using type = optStringList*;
};
template <uint32_t N>
struct optFieldType<ST_RAW, N> {
  using type = unsigned char[N];
};
template <uint32_t N>
struct optFieldType<ST_OTHER, N> {
  using type = int32_t;
};

struct optFields_t {
#define OPT(tok, id, field, st, size, ...) optFieldType<st, size>::type field;
#define OPTS(...)
#define OPTN(...)
#include "options/opt_table.def"
#undef OPT
#undef OPTS
#undef OPTN
};

#endif  // QMX_OPTIONS_OPT_FIELDS_H_
