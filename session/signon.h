// Sign-on of a server session.
//
// Logon is the entry: it finds a password (the session's, the stored
// verifier of PASSWORDACCESS GENERATE, or one the user types through the
// login callback), opens the session, signs on and authenticates, and deals
// with an expired password (52, SESS_RC_PSWD_EXPIRED) and a rejected one
// (137, SESS_RC_AUTH_FAILED; session/sess_status.h):
//   52  GENERATE: a new password is made, the session re-opened only to
//       change it, authenticated with the old one and the new verifier sent
//       (and stored); PROMPT: the user is asked for the new password; a
//       server-initiated main session returns 52; otherwise message 1831.
//   137 a stored verifier is deleted from the password file; when the user
//       can be asked, the error is reported and the sign-on tried once more
//       with the password the user enters.
// Any final failure is reported to the login callback (request 6) and the
// session is logged off; success is reported with request 7.
//
// The verbs and the challenge response are described in signon_verbs.h and
// auth.h.  These functions run on the session's own thread.
#ifndef QMX_SESSION_SIGNON_H_
#define QMX_SESSION_SIGNON_H_

#include <cstddef>
#include <string>

#include "session/sess.h"
#include "session/signon_verbs.h"

// Requests to the login callback.
enum : int {
  LOGIN_GET_PASSWORD = 1,      // the node's password into buf
  LOGIN_GET_NEW_PASSWORD = 2,  // a new password into buf
  LOGIN_REPORT_ERROR = 6,      // sign-on failed with rc
  LOGIN_SIGNED_ON = 7,         // the session is signed on
};

constexpr size_t LOGIN_PASSWORD_MAX = 64;

// The interactive front end's callback.  For requests 1 and 2 it fills |buf|
// (|size| bytes, terminated) and returns 0, or non-zero when the user gave
// no password.  |rc| is the error of request 6.  Owned by the caller; stored
// in the session attribute sessLoginHandler.
struct sessLoginHandler_t {
  int (*gsLoginCallback)(void* ctx, int request, Sess_o* sess, char* buf, size_t size,
                         int rc) = nullptr;
  void* ctx = nullptr;
};

int Logon(Sess_o* sess);
// Opens the session (initialising it first when needed) and signs on.
// sitNormal also authenticates and ends in sSignedOn; sitChangePassword
// leaves the session open for scAuthenticateTheSession and cuUpdVerifier.
int OpenSess(Sess_o* sess, uint8_t initType);
int scSignOnTheSession(Sess_o* sess, uint8_t initType);
int scAuthenticateTheSession(Sess_o* sess);
// Computes the answer to the server's challenge (picking the verifier).
// 0, or SESS_RC_AUTH_FAILED when no usable password is at hand.
int Authenticate(Sess_o* sess, soAuthenticate_t* out);
// Sends the verifier of |newPassword| on an authenticated session; on
// success the session knows the new password and verifier.
int cuUpdVerifier(Sess_o* sess, const std::string& newPassword);
// The prompting path of an expired password (request 2).
int NewPassword(Sess_o* sess);
int PasswordExpiredGenerate(Sess_o* sess);
// Chooses how an expired password is handled (see above).
int PasswordExpired(Sess_o* sess);
// Signs |sess| on with the server, node and credentials of |from|.
int LogonNewSession(Sess_o* sess, Sess_o* from);
// Closes and signs on again with the credentials at hand.
int ReopenSess(Sess_o* sess);
// 0 when the session is signed on and connected, else ReopenSess.
int CheckSession(Sess_o* sess);

int Disconnect(Sess_o* sess);
// Signs off (when signed on) and closes the session.  Returns 0.
int Logoff(Sess_o* sess);
bool IsConnected(const Sess_o* sess);

#endif  // QMX_SESSION_SIGNON_H_
