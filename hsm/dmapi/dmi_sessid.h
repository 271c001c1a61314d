// Session ids and tokens: their text forms, finding a session by name, and
// answering what a session still holds.
#ifndef QMX_HSM_DMAPI_DMI_SESSID_H_
#define QMX_HSM_DMAPI_DMI_SESSID_H_

#include <cstddef>

#include "hsm/provider/dmapi_iface.h"

// Buffers for the text forms below must hold at least this many bytes.
constexpr size_t dmiTextBufSize = 64;

// Text forms: "%llX" for ids, "%llX-%llX" (high half first) for tokens,
// into |buf| (dmiTextBufSize bytes); return |buf|.
char* dmiSessionIDToString(dm_sessid_t sid, char* buf);
char* dmiTokenToString(dm_token_t token, char* buf);
// Parses hexadecimal |text| (strtoll base 16: the first non-hex character
// ends it, which is not an error).  Returns 0, or -1 for null arguments.
int dmiSessionStringToID(const char* text, dm_sessid_t* out);

// Looks up a session by its info string among all sessions of DMAPI.  The
// info string of a session matches when its first rlen bytes (the length
// that the query returned) equal |name|'s.  With |wanted| 0 the first match
// wins; otherwise only a match with that id counts.  Returns 0 with
// |*found| the id or 0 (no match), or -1 on error (message 9534 for a
// failed query, 9184 out of memory).
int dmiGetSidByName(const char* name, dm_sessid_t* found, dm_sessid_t wanted);

// Answers the undelivered events and outstanding tokens of |sid| (ABORT),
// counting them in |*count|.  Returns 0 or -1.
int dmiClearAllEvents(dm_sessid_t sid, int flag, unsigned int* count);

#endif  // QMX_HSM_DMAPI_DMI_SESSID_H_
