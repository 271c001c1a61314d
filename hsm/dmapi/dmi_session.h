// The process's DMAPI session: initialising the service, naming, creating
// and closing the session.  Finding a session and the text forms of ids are
// in dmi_sessid.h, taking over an orphaned session in dmi_recover.h, the
// session-log marker in dmi_sessinfo.h.
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

#include "hsm/dmapi/dmi_sessid.h"
#include "hsm/provider/dmapi_iface.h"

// Initialises the DMAPI service of the access object.  Returns 0, or -1;
// unless |quiet|, message 9505 (program name, strerror) goes to stderr.
int dmiInit(int quiet);

// The saved session id of the access object (0 when none).
dm_sessid_t dmiGetSid();

// The session name of this process: "rec<N>" and so on for the five
// daemons once dmiOpenSession has filled their names, else the program name.
const char* qmxWhoAmI();

// Creates this process's session, or takes over the orphaned session of a
// daemon of the same name.  Returns the id (also stored in the options
// object's dmapiSessionId, and a marker file made), or 0 (message 9012 for
// missing permission, 9531 otherwise, rate-limited for the daemons).
dm_sessid_t dmiOpenSession(int force);

// Clears and destroys session |sid|, forgets it when it is the saved one
// and removes its marker file.  Returns 0 or -1 (destroy failed).
int dmiCloseSession(dm_sessid_t sid, int flag);

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
