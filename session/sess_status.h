// Status codes of the server session: the session object and its verbs,
// the sign-on, the communication methods and the verb checksum.  Out of
// memory and bad arguments are PS_RC_NOMEM and PS_RC_BADARG of
// platform/platform_status.h.  A session operation passes the code of the
// layer below it (communication, checksum) up unchanged.
#ifndef QMX_SESSION_SESS_STATUS_H_
#define QMX_SESSION_SESS_STATUS_H_

#include <cstdint>

#include "platform/platform_status.h"

// ---- Session and sign-on -------------------------------------------------
enum : int {
  // The node's password has expired.  The sign-on returns it; Logon then
  // changes the password (GENERATE) or asks the user for a new one
  // (PROMPT).  A server-initiated main session hands it to its caller,
  // which can't change the password.
  SESS_RC_PSWD_EXPIRED = 52,

  // An operation the session's state does not allow (the session moves to
  // sTRANSERR), or a broken verb stream: a verb too long, a wrong checksum,
  // an answer of the wrong kind or shape (a broken stream on receipt also
  // closes the session).  The caller gives up its server work.
  SESS_RC_PROTOCOL = 136,

  // The server refused the node or its password, or asked for a verifier
  // too cheap to be trusted.  Logon deletes a stored verifier and, when
  // the user can be asked, tries once more with the password he types.
  SESS_RC_AUTH_FAILED = 137,
};

// What the sign-on verb readers (signon_verbs.h) answer for a verb whose
// fields run past its end or its limits: a broken verb stream.
constexpr int SO_RC_MALFORMED = SESS_RC_PROTOCOL;

// ---- Communication methods (commObj_t's function table) -----------------
// The session passes them up as they are; sessOpen first logs message 9020
// with the code and closes the session.
enum : int {
  COMM_RC_LOST = -50,     // the peer closed the connection
  COMM_RC_TIMEOUT = -51,  // no answer within the time-out
  COMM_RC_CONNECT = -52,  // no connection could be made
  COMM_RC_ADDRESS = -53,  // the server address could not be resolved
  COMM_RC_METHOD = -54,   // method unknown or not loaded, or not open
  COMM_RC_IO = -55,       // a socket call failed; see commObj_t::lastErrno
};

// ---- Verb checksum (nqb_crc_32, verbBuildCRC) ---------------------------
// Programming faults of the caller: no checksum was computed.
enum : int {
  CRC_RC_NULL_BUFFER = 1,  // |buf| is null
  CRC_RC_BAD_LENGTH = 2,   // |len| is 0 or less, or too long for a verb
  CRC_RC_NO_RESULT = 3,    // |result| is null
};

// ---- Capability test (attribute sessCapTestResult) ----------------------
// How the last sessTestFuncMap came out.  Without a storage agent (and for
// the capabilities only the server has) only the server's map counts.
enum : uint8_t {
  SESS_CAPTEST_SERVER = 0,     // the server has it; no agent was asked
  SESS_CAPTEST_BOTH = 1,       // the server and the storage agent have it
  SESS_CAPTEST_NO_SERVER = 2,  // the server lacks it (the agent has it or
                               // was not asked)
  SESS_CAPTEST_NO_AGENT = 3,   // the server has it, the storage agent not
  SESS_CAPTEST_NEITHER = 4,    // neither has it
};

#endif  // QMX_SESSION_SESS_STATUS_H_
