// The 32-bit checksum that protects verbs on the wire.
//
// A cyclic redundancy check with the generator polynomial 0x04C11DB7,
// computed most-significant bit first, starting from 0, with no bit
// reflection and no final inversion.  The reference recurrence is
//   value = (value << 8) ^ table[(value >> 24) ^ byte]
// over a 256-entry table whose entry i is the remainder of i shifted into
// the top byte.  Both ends of a connection must agree on this exact variant:
// "123456789" gives 0x89A1897F.
//
// Thread safety: the functions are pure; the tables are constant.
#ifndef QMX_SESSION_CRC32_H_
#define QMX_SESSION_CRC32_H_

#include <cstdint>

#include "session/sess_status.h"

// Computes the checksum of |len| bytes at |buf| into |*result|.  Returns 0,
// or a CRC_RC_* code of session/sess_status.h, in which case |*result| is
// left unchanged.
int nqb_crc_32(const unsigned char* buf, int32_t len, uint32_t* result);

// Continues a checksum over further bytes: the checksum of A followed by B is
// crc32Update(crc32Update(0, A), B).  |buf| may be null only when |len| is 0.
uint32_t crc32Update(uint32_t value, const unsigned char* buf, uint64_t len);

// The table entry i (exposed for tests of the reference recurrence).
uint32_t crc32TableEntry(unsigned i);

#endif  // QMX_SESSION_CRC32_H_
