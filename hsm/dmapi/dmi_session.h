// The process's DMAPI session: initialising the service, naming, creating,
// finding, taking over and closing the session, its marker file, and the
// text forms of session ids and tokens.
//
// Every function returns 0 (or a session id) on success and -1 (or 0) on
// failure with errno set, unless said otherwise.  Trace lines begin
// "(<program>:<function>): ".
//
// The command uses:
//   dmiInit(quiet)                 - 0 when the DMAPI service is usable
//   dmiGetSid()                    - the process's session id, 0 for none
//   qmxCreateSession(&sid, 0, 0)   - initialise and open the session
//   qmxDestroySession(sid)         - close it (0: the current one)
#ifndef QMX_HSM_DMAPI_DMI_SESSION_H_
#define QMX_HSM_DMAPI_DMI_SESSION_H_

#include <cstddef>
#include <cstdint>

#include "hsm/dmapi/dmapi_iface.h"

// Buffers for the text forms below must hold at least this many bytes.
constexpr size_t dmiTextBufSize = 64;

// Initialises the DMAPI service of the access object.  Returns 0, or -1;
// unless |quiet|, message 9505 (program name, strerror) goes to stderr.
int dmiInit(int quiet);

// The saved session id of the access object (0 when none).
dm_sessid_t dmiGetSid();

// Looks up a session by its info string among all sessions of DMAPI.  The
// info string of a session matches when its first rlen bytes (the length
// that the query returned) equal |name|'s.  With |wanted| 0 the first match
// wins; otherwise only a match with that id counts.  Returns 0 with
// |*found| the id or 0 (no match), or -1 on error (message 9534 for a
// failed query, 9184 out of memory).
int dmiGetSidByName(const char* name, dm_sessid_t* found, dm_sessid_t wanted);

// The session name of this process: "rec<N>" and so on for the five
// daemons once dmiOpenSession has filled their names, else the program name.
const char* qmxWhoAmI();

// Creates this process's session, or takes over the orphaned session of a
// daemon of the same name.  Returns the id (also stored in the options
// object's dmapiSessionId, and a marker file made), or 0 (message 9012 for
// missing permission, 9531 otherwise, rate-limited for the daemons).
dm_sessid_t dmiOpenSession(int force);

// Takes over the orphaned session called |name| (|sid| unused: the session
// is found by name).  |reuse| 1 keeps the old session for this process,
// else its events are answered and it is destroyed after the takeover.
// Returns 0 (also when there was nothing to recover) or -1.
int dmiRecoverObsoletedSession(dm_sessid_t sid, const char* name, int reuse);

// Answers the undelivered events and outstanding tokens of |sid| (ABORT),
// counting them in |*count|.  Returns 0 or -1.
int dmiClearAllEvents(dm_sessid_t sid, int flag, unsigned int* count);

// Clears and destroys session |sid|, forgets it when it is the saved one
// and removes its marker file.  Returns 0 or -1 (destroy failed).
int dmiCloseSession(dm_sessid_t sid, int flag);

// Text forms: "%llX" for ids, "%llX-%llX" (high half first) for tokens,
// into |buf| (dmiTextBufSize bytes); return |buf|.
char* dmiSessionIDToString(dm_sessid_t sid, char* buf);
char* dmiTokenToString(dm_token_t token, char* buf);
// Parses hexadecimal |text| (strtoll base 16: the first non-hex character
// ends it, which is not an error).  Returns 0, or -1 for null arguments.
int dmiSessionStringToID(const char* text, dm_sessid_t* out);

// The session-log marker "<fs>/.SpaceMan/logdir/sessionlog<N>/<sid>.sess"
// in the first managed file system; |instance| below 1 means this node's.
// Return 0 or -1 with errno.  The program "qmxmigrate" writes none.
int dmiSessionCreateInfo(dm_sessid_t sid);
int dmiSessionRemoveInfo(dm_sessid_t sid, int flag, int instance);
// The marker's path (empty when the file-system table has no entry).
int dmiSessionInfoPath(dm_sessid_t sid, int instance, char* buf, size_t size);

// The command's DMAPI session: initialises the service when needed and
// opens a session (dmiOpenSession); *sid receives it.  Returns 0 or -1.
// |flags1| and |flags2| are reserved (0).
int qmxCreateSession(uint64_t* sid, int flags1, int flags2);
// Closes session |sid|, or the current one when |sid| is 0.  Returns 0 or
// -1.
int qmxDestroySession(uint64_t sid);

// The five daemon session names (256 bytes each, empty until
// dmiOpenSession): recall, monitor, scout, root daemon, watch daemon.
extern char QMXDMRECALLD[256];
extern char QMXDMMONITORD[256];
extern char QMXDMSCOUTD[256];
extern char QMXDMROOTD[256];
extern char QMXDMWATCHD[256];

// For tests: the seconds counter of the rate limit of message 9531.
int& dmiSessionFailSeconds();

#endif  // QMX_HSM_DMAPI_DMI_SESSION_H_
