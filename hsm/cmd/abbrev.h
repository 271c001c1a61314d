// The abbreviation rule of every keyword match on the command line.
#ifndef QMX_HSM_CMD_ABBREV_H_
#define QMX_HSM_CMD_ABBREV_H_

// True when |text| is not empty, is no longer than |keyword|, is at least
// |shortest| characters long and equals the first characters of |keyword|.
// Case-sensitive: callers upper-case first where case is to be ignored.
bool Abbrev(const char* text, const char* keyword, int shortest);

#endif  // QMX_HSM_CMD_ABBREV_H_
