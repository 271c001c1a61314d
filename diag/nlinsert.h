// The body of a catalogue message: insert table and template.
//
// Every catalogue text starts with its identifier ("ANS1107E ") and then
// the body.  The catalogue compiler stores C strings, so the body holds no
// zero byte; the byte 0x10 stands in for a zero wherever the layout needs
// one, and the reader turns it back into a string end.
//
// Body without inserts:
//
//   0x01 <template>
//
// Body with N inserts (1 <= N <= 15):
//
//   byte 0      0x02, "ordered inserts follow"
//   byte 1      N in bits 0-3; bits 4, 5 and 6 say that body bytes 2, 3
//               and 4 (the first order entries) are 0x10 placeholders for
//               a zero.  Bit 7 is never set: the byte stays below 0x80.
//   bytes 2..   the order list, N bytes: entry k is the 0-based number of
//               the caller's argument whose text goes into slot k of the
//               template.  A zero entry is written 0x10 (values are below
//               16, so 0x10 is never a real entry).
//   per insert, in the caller's argument order:
//               star count  (0, 1 or 2 width/precision arguments before
//                            the value; 0 written 0x10)
//               value type  (0 pointer or string, 1 int, 2 64-bit integer,
//                            3 double; 0 written 0x10)
//               the printf format, e.g. "%s", "%-8d", "%ls", ended by 0x10
//   <template>  the text, with one 0x10 byte per slot, N slots in all.
//
// The template is UTF-8 in the catalogue; the insert table is plain ASCII
// apart from the placeholder bytes, so code-page conversion of the template
// never touches it.
//
// Thread safety: the functions are pure and may be called from any thread.
#ifndef QMX_DIAG_NLINSERT_H_
#define QMX_DIAG_NLINSERT_H_

#include <cstdarg>
#include <cstddef>
#include <string>
#include <vector>

#include "platform/platform_status.h"

inline constexpr unsigned char kNlNoInserts = 0x01;
inline constexpr unsigned char kNlOrderedInserts = 0x02;
inline constexpr unsigned char kNlPlaceholder = 0x10;
inline constexpr unsigned kNlMaxInserts = 15;

// Value types of an insert.
enum nlInsertType_t : unsigned char {
  nlitPointer = 0,  // %s, %ls, %p
  nlitInt = 1,      // %d, %u, %x, %c ... without length modifier (or h, hh)
  nlitInt64 = 2,    // %ld, %lld, %zu, %jd ...
  nlitDouble = 3,   // %f, %e, %g, %a
};

struct nlInsert_t {
  unsigned char stars = 0;  // width/precision arguments before the value
  nlInsertType_t type = nlitPointer;
  bool wide = false;   // %ls: a wide-character string
  std::string format;  // the printf format of this one insert
};

// A decoded body.
struct nlBody_t {
  std::vector<nlInsert_t> inserts;   // in argument order
  std::vector<unsigned char> order;  // slot k takes insert order[k]
  std::vector<std::string> pieces;   // template split at the slots:
                                     // pieces.size() == slots + 1
};

// Classifies one printf conversion ("%-8.3s", "%*d", "%llu").  Returns 0
// and fills |out|, or PS_RC_BADARG when |fmt| is not exactly one conversion
// that takes an argument (no "%%", no "%n", no positional "%1$s").
int nlParseInsertFormat(const std::string& fmt, nlInsert_t* out);

// Builds the body from the inserts (argument order) and the template
// pieces with their slot order.  Returns 0, or PS_RC_BADARG when the counts
// do not fit together (slots != inserts, more than 15 inserts, an order
// entry out of range or a template containing bytes 0x01, 0x02 or 0x10).
int nlEncodeBody(const std::vector<nlInsert_t>& inserts, const std::vector<unsigned char>& order,
                 const std::vector<std::string>& pieces, std::string* body);

// Decodes |body| (without the identifier).  Returns 0, or PS_RC_BADARG when
// it is damaged (unknown leading byte, truncated table, slot count mismatch).
int nlDecodeBody(const char* body, nlBody_t* out);

// Length of the insert table at the start of |body| (1 for a body without
// inserts), or 0 when the body is damaged.  The template starts there.
size_t nlInsertTableLength(const char* body);

// Composes a decoded body with the caller's arguments, appending to |out|.
// Wide-string inserts are cleaned of characters that cannot be shown.
// Returns 0, or PS_RC_NOMEM when memory runs out.
int nlComposeBody(const nlBody_t& body, va_list args, std::string* out);

#endif  // QMX_DIAG_NLINSERT_H_
