#include "session/signon.h"

#include <cctype>
#include <cstring>
#include <ctime>

#include "platform/clock.h"
#include "platform/services.h"
#include "session/pswdfile.h"
#include "session/sess_diag.h"
#include "session/verb.h"

namespace {

sessLoginHandler_t* Handler(Sess_o* sess) {
  return static_cast<sessLoginHandler_t*>(sess->sessGetVoid(sessLoginHandler));
}

bool CanPrompt(Sess_o* sess) {
  sessLoginHandler_t* h = Handler(sess);
  return sess->sessGetBool(sessCanPrompt) && h != nullptr && h->gsLoginCallback != nullptr;
}

void Tell(Sess_o* sess, int request, int rc) {
  sessLoginHandler_t* h = Handler(sess);
  if (h != nullptr && h->gsLoginCallback != nullptr)
    h->gsLoginCallback(h->ctx, request, sess, nullptr, 0, rc);
}

// Asks the user for a password (request 1 or 2).  Empty when none was given.
std::string Ask(Sess_o* sess, int request) {
  sessLoginHandler_t* h = Handler(sess);
  char buf[LOGIN_PASSWORD_MAX + 1] = {};
  std::string pw;
  if (h->gsLoginCallback(h->ctx, request, sess, buf, sizeof buf, 0) == 0) {
    buf[LOGIN_PASSWORD_MAX] = '\0';
    pw = buf;
  }
  authWipe(buf, sizeof buf);
  return pw;
}

// The password file keys records by the server stanza, or the address when
// the session has no stanza name.
std::string ServerKey(Sess_o* sess) {
  std::string s = sess->sessGetString(sessServerName);
  if (s.empty()) s = sess->sessGetString(sessCommAddress);
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

nDate Now() {
  time_t t = 0;
  psGetTimeMs(&t, nullptr);
  struct tm tmv {};
  psLocalTime(t, &tmv);
  nDate d;
  d.year = static_cast<uint16_t>(tmv.tm_year + 1900);
  d.month = static_cast<uint8_t>(tmv.tm_mon + 1);
  d.day = static_cast<uint8_t>(tmv.tm_mday);
  d.hour = static_cast<uint8_t>(tmv.tm_hour);
  d.minute = static_cast<uint8_t>(tmv.tm_min);
  d.second = static_cast<uint8_t>(tmv.tm_sec);
  return d;
}

// Sends |verb| and receives the answer into the session's receive buffer.
int Exchange(Sess_o* sess, const soBytes_t& verb, unsigned char** answer) {
  int rc = sess->sessSendVerb(verb.data());
  if (rc != 0) return rc;
  *answer = nullptr;
  return sess->sessRecvVerb(answer);
}

int StoreVerifier(Sess_o* sess) {
  const sessAuth_t& a = sess->sessAuth();
  pswdRecord_t rec;
  rec.server = ServerKey(sess);
  rec.node = sess->sessGetString(sessNodeName);
  rec.salt = a.salt;
  rec.iterations = a.iterations;
  rec.verifier = a.verifier;
  int rc = pswdFWrite(rec);
  authWipe(rec.verifier.data(), rec.verifier.size());
  if (rc != 0) SESS_DIAG("Logon: the password file could not be written, errno(%d)\n", rc);
  return rc;
}

// Authenticates the change-password session and sends the new verifier.
int ChangeOnOpenSession(Sess_o* sess, const std::string& newPassword, const char* who) {
  int rc = scAuthenticateTheSession(sess);
  if (rc != 0) {
    SESS_TRACE(TR_SESSION, "%s: scAuthenticateTheSession() returned rc(%d)\n", who, rc);
    return rc;
  }
  rc = cuUpdVerifier(sess, newPassword);
  if (rc != 0) {
    SESS_TRACE(TR_SESSION, "%s: cuUpdVerifier() failed, rc(%d)\n", who, rc);
    return rc;
  }
  return sess->sessSignOn();
}

}  // namespace

int scSignOnTheSession(Sess_o* sess, uint8_t initType) {
  TRACE_ENTER_EXIT("scSignOnTheSession");
  soSignOn_t req;
  req.enhanced = sess->sessGetBool(sessEnhancedSignOn);
  req.version = 3;
  req.release = 1;
  req.level = 0;
  if (sess->sessGetBool(sessLargeBuffers)) req.flags |= SO_REQ_LARGE_BUFFERS;
  if (sess->sessGetUint8(sessCrcMode) != 0) req.flags |= SO_REQ_CHECKSUMS;
  req.node = sess->sessGetString(sessNodeName);
  req.platform = sess->sessGetString(sessPlatform);
  req.clientMap = sess->sessClientFuncMap();
  SESS_TRACE(TR_SESSION, "scSignOnTheSession: sending %s for node %s\n",
             req.enhanced ? "cuSignOnEnhanced" : "cuSignOn", req.node.c_str());

  unsigned char* answer = nullptr;
  int rc = Exchange(sess, soBuildSignOn(req), &answer);
  if (rc != 0) return rc;
  soSignOnResp_t resp;
  if (soParseSignOnResp(answer, &resp) != 0 || resp.enhanced != req.enhanced) {
    SESS_DIAG("scSignOnTheSession: unexpected answer %s to the sign-on\n",
              trVerbType(verbType(answer)));
    return SESS_RC_PROTOCOL;
  }
  sess->sessSetUint16(sessLastSignOnRc, resp.result);
  if (resp.result != 0) {
    SESS_TRACE(TR_SESSION, "scSignOnTheSession: the server refused the sign-on, rc(%u)\n",
               static_cast<unsigned>(resp.result));
    return resp.result;
  }
  if (resp.iterations < AUTH_ITERATIONS_MIN || resp.iterations > AUTH_ITERATIONS_MAX) {
    // A server asking for a cheap verifier is not trusted with one.
    SESS_DIAG("scSignOnTheSession: the server asks for %u verifier iterations\n", resp.iterations);
    return SESS_RC_AUTH_FAILED;
  }
  sessAuth_t& a = sess->sessAuth();
  a.salt = resp.salt;
  a.iterations = resp.iterations;
  a.serverNonce = resp.nonce;
  sess->sessSetUint32(sessServerIter, resp.iterations);
  std::snprintf(sess->sessGetCharP(sessServerNameRecv), SESS_CHAR_LEN, "%s",
                resp.serverName.c_str());
  sess->sessSetUint16(sessServerVersion, resp.version);
  sess->sessSetUint16(sessServerRelease, resp.release);
  sess->sessSetUint16(sessServerLevel, resp.level);
  sess->sessCopyFuncMap(resp.serverMap.data(), resp.serverMap.size());
  sess->sessCopySAFuncMap(resp.agentMap.data(), resp.agentMap.size());
  sess->sessSetBool(sessHaveSAMap, !resp.agentMap.empty());
  sess->sessSetBool(sessLargeGranted, (resp.flags & SO_RESP_LARGE_BUFFERS) != 0);

  bool expired = (resp.flags & SO_RESP_PSWD_EXPIRED) != 0;
  sess->sessSetBool(sessPswdExpired, expired);
  if (!expired) return 0;
  if (initType == sitChangePassword || sess->sessGetBool(sessKeepOnExpiry)) {
    SESS_TRACE(TR_SESSION,
               "scSignOnTheSession: sessInitType(%d), the password has expired, let's keep the "
               "session open...\n",
               initType);
    return 0;
  }
  return SESS_RC_PSWD_EXPIRED;
}

int Authenticate(Sess_o* sess, soAuthenticate_t* out) {
  sessAuth_t& a = sess->sessAuth();
  const std::string& pw = sess->sessGetPassword();
  sess->sessSetBool(sessPswdFromFile, false);
  if (!pw.empty()) {
    if (!authDeriveVerifier(pw, a.salt.data(), a.salt.size(), a.iterations, &a.verifier))
      return SESS_RC_AUTH_FAILED;
  } else if (sess->sessGetUint8(sessPswdAccess) == PSWD_GENERATE) {
    pswdRecord_t rec;
    int rc = pswdFRead(ServerKey(sess), sess->sessGetString(sessNodeName), &rec);
    if (rc != 0 || rec.salt != a.salt || rec.iterations != a.iterations) {
      SESS_TRACE(TR_SESSION, "Authenticate: no stored password that fits, rc(%d)\n", rc);
      // A stored record made for other salt is as useless as a wrong one.
      if (rc == 0) sess->sessSetBool(sessPswdFromFile, true);
      authWipe(rec.verifier.data(), rec.verifier.size());
      return SESS_RC_AUTH_FAILED;
    }
    a.verifier = rec.verifier;
    authWipe(rec.verifier.data(), rec.verifier.size());
    sess->sessSetBool(sessPswdFromFile, true);
  } else {
    SESS_TRACE(TR_SESSION, "Authenticate: no password at hand\n");
    return SESS_RC_AUTH_FAILED;
  }
  a.haveVerifier = true;
  if (!authRandom(a.clientNonce.data(), a.clientNonce.size())) return SESS_RC_AUTH_FAILED;
  out->clientNonce = a.clientNonce;
  if (!authClientResponse(a.verifier, a.serverNonce, a.clientNonce,
                          sess->sessGetString(sessNodeName), &out->response))
    return SESS_RC_AUTH_FAILED;
  return 0;
}

int scAuthenticateTheSession(Sess_o* sess) {
  TRACE_ENTER_EXIT("scAuthenticateTheSession");
  soAuthenticate_t req;
  int rc = Authenticate(sess, &req);
  if (rc != 0) return rc;
  unsigned char* answer = nullptr;
  rc = Exchange(sess, soBuildAuthenticate(req), &answer);
  if (rc != 0) return rc;
  soAuthResult_t res;
  if (soParseAuthResult(answer, &res) != 0) {
    SESS_DIAG("scAuthenticateTheSession: unexpected answer %s\n", trVerbType(verbType(answer)));
    return SESS_RC_PROTOCOL;
  }
  if (res.result != 0) {
    SESS_TRACE(TR_SESSION, "scAuthenticateTheSession: the server rejected the node, rc(%u)\n",
               static_cast<unsigned>(res.result));
    return res.result;
  }
  const sessAuth_t& a = sess->sessAuth();
  authMac_t expect;
  if (!authServerProof(a.verifier, a.serverNonce, a.clientNonce, sess->sessGetString(sessNodeName),
                       &expect) ||
      !authMacEqual(expect, res.proof)) {
    SESS_DIAG("scAuthenticateTheSession: the server could not prove that it knows the node\n");
    return SESS_RC_AUTH_FAILED;
  }
  sess->sessSetBool(sessAuthenticated, true);
  sess->sessSetBool(sessServerProven, true);
  return 0;
}

int cuUpdVerifier(Sess_o* sess, const std::string& newPassword) {
  TRACE_ENTER_EXIT("cuUpdVerifier");
  sessAuth_t& a = sess->sessAuth();
  if (!a.haveVerifier || !sess->sessGetBool(sessAuthenticated) || newPassword.empty())
    return PS_RC_BADARG;
  soUpdVerifier_t req;
  req.salt.resize(AUTH_SALT_LEN);
  req.iterations = sess->sessGetUint32(sessVerifierIter);
  authVerifier_t newVerifier;
  std::string node = sess->sessGetString(sessNodeName);
  if (!authRandom(req.salt.data(), req.salt.size()) ||
      !authDeriveVerifier(newPassword, req.salt.data(), req.salt.size(), req.iterations,
                          &newVerifier) ||
      !authSealVerifier(a.verifier, a.serverNonce, a.clientNonce, node, newVerifier, req.iv,
                        req.cipher, req.tag))
    return SESS_RC_AUTH_FAILED;
  unsigned char* answer = nullptr;
  int rc = Exchange(sess, soBuildUpdVerifier(req), &answer);
  if (rc == 0) {
    uint16_t result = 0;
    rc = soParseUpdVerifierResp(answer, &result) != 0 ? int{SESS_RC_PROTOCOL} : int{result};
  }
  if (rc == 0) {
    a.verifier = newVerifier;
    a.salt = req.salt;
    a.iterations = req.iterations;
    sess->sessSetPassword(newPassword.c_str());
    sess->sessSetBool(sessPswdExpired, false);
    sess->sessSetBool(sessPswdUpdated, true);
    sess->sessSetDate(sessPswdSetDate, Now());
  }
  authWipe(newVerifier.data(), newVerifier.size());
  return rc;
}

int OpenSess(Sess_o* sess, uint8_t initType) {
  TRACE_ENTER_EXIT("OpenSess");
  sess->sessSetUint8(sessInitType, initType);
  int rc = 0;
  if (sess->sessGetState() == sUninit || sess->sessGetState() == sTRANSERR) {
    if ((rc = sess->sessInit()) != 0) return rc;
  }
  if ((rc = sess->sessOpen()) != 0) return rc;
  rc = scSignOnTheSession(sess, initType);
  if (rc == 0 && initType == sitChangePassword) return 0;
  if (rc == 0) rc = scAuthenticateTheSession(sess);
  if (rc == 0) rc = sess->sessSignOn();
  if (rc != 0) {
    SESS_TRACE(TR_SESSION, "OpenSess: sign-on failed, rc(%d)\n", rc);
    if (sess->sessGetState() != sTRANSERR) sess->sessClose();
    return rc;
  }
  sess->sessSetBool(sessSignedOnOnce, true);
  sess->sessSetDate(sessSignOnDate, Now());
  return 0;
}

int PasswordExpiredGenerate(Sess_o* sess) {
  TRACE_ENTER_EXIT("PasswordExpiredGenerate");
  SESS_TRACE(TR_SESSION, "PasswordExpiredGenerate: sessInitType(%d)\n",
             sess->sessGetUint8(sessInitType));
  std::string newPassword;
  int rc = pswdFGeneratePswd(&newPassword);
  if (rc != 0) {
    SESS_TRACE(TR_SESSION, "PasswordExpiredGenerate: pswdFGeneratePswd() failed, rc(%d)\n", rc);
    return rc;
  }
  rc = OpenSess(sess, sitChangePassword);
  if (rc != 0) {
    SESS_TRACE(TR_SESSION, "PasswordExpiredGenerate: OpenSess() returned rc(%d)\n", rc);
  } else {
    rc = ChangeOnOpenSession(sess, newPassword, "PasswordExpiredGenerate");
    // The new verifier is the node's password from now on: keep it, and
    // forget the generated text itself.
    if (rc == 0) {
      StoreVerifier(sess);
      sess->sessSetPassword("");
    }
  }
  authWipe(newPassword.data(), newPassword.size());
  if (rc != 0 && sess->sessGetState() == sOpened) sess->sessClose();
  return rc;
}

int NewPassword(Sess_o* sess) {
  TRACE_ENTER_EXIT("NewPassword");
  std::string newPassword = Ask(sess, LOGIN_GET_NEW_PASSWORD);
  if (newPassword.empty()) return SESS_RC_PSWD_EXPIRED;
  int rc = OpenSess(sess, sitChangePassword);
  if (rc != 0) {
    SESS_TRACE(TR_SESSION, "NewPassword: OpenSess() returned rc(%d)\n", rc);
  } else {
    rc = ChangeOnOpenSession(sess, newPassword, "NewPassword");
  }
  authWipe(newPassword.data(), newPassword.size());
  if (rc != 0 && sess->sessGetState() == sOpened) sess->sessClose();
  return rc;
}

int PasswordExpired(Sess_o* sess) {
  if (sess->sessGetBool(sessServerInitiated) && sess->sessGetBool(sessMainSession)) {
    SESS_TRACE(TR_SESSION,
               "PasswordExpired: it is a server-initiated session and the main one! Let's return "
               "rc(%d)\n",
               SESS_RC_PSWD_EXPIRED);
    return SESS_RC_PSWD_EXPIRED;
  }
  if (sess->sessGetUint8(sessPswdAccess) == PSWD_GENERATE) return PasswordExpiredGenerate(sess);
  if (CanPrompt(sess)) return NewPassword(sess);
  nlfprintf(stderr, 1831);
  return SESS_RC_PSWD_EXPIRED;
}

int Logon(Sess_o* sess) {
  TRACE_ENTER_EXIT("Logon");
  int rc = psSetPswdFileOption(sess->sessGetString(sessPswdDir));
  if (rc != 0) {
    SESS_DIAG("Logon: the password directory '%s' is not absolute\n",
              sess->sessGetString(sessPswdDir));
    Tell(sess, LOGIN_REPORT_ERROR, rc);
    return rc;
  }
  if (sess->sessGetString(sessNodeName)[0] == '\0') {
    std::string node = psHostName();
    for (char& c : node) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    sess->sessSetString(sessNodeName, node.c_str());
  }
  bool generate = sess->sessGetUint8(sessPswdAccess) == PSWD_GENERATE;
  bool prompt = CanPrompt(sess);

  if (sess->sessGetPassword().empty() && prompt) {
    pswdRecord_t rec;
    bool stored =
        generate && pswdFRead(ServerKey(sess), sess->sessGetString(sessNodeName), &rec) == 0;
    authWipe(rec.verifier.data(), rec.verifier.size());
    if (!stored) {
      std::string pw = Ask(sess, LOGIN_GET_PASSWORD);
      sess->sessSetPassword(pw.c_str());
      sess->sessSetBool(sessPswdPrompted, !pw.empty());
      authWipe(pw.data(), pw.size());
    }
  }

  bool retried = false;
  for (;;) {
    rc = OpenSess(sess, sitNormal);
    if (rc == SESS_RC_PSWD_EXPIRED) rc = PasswordExpired(sess);
    if (rc != SESS_RC_AUTH_FAILED || retried) break;
    if (sess->sessGetBool(sessPswdFromFile)) {
      SESS_TRACE(TR_SESSION, "Logon: the stored password was rejected; deleting it\n");
      dsDeletePasswordRecord(ServerKey(sess), sess->sessGetString(sessNodeName));
      sess->sessSetBool(sessPswdFromFile, false);
    }
    if (!prompt) break;
    Tell(sess, LOGIN_REPORT_ERROR, rc);
    std::string pw = Ask(sess, LOGIN_GET_PASSWORD);
    if (pw.empty()) break;
    sess->sessSetPassword(pw.c_str());
    sess->sessSetBool(sessPswdPrompted, true);
    authWipe(pw.data(), pw.size());
    retried = true;
  }

  if (rc != 0) {
    SESS_TRACE(TR_SESSION, "Logon: sign-on failed, rc(%d)\n", rc);
    Tell(sess, LOGIN_REPORT_ERROR, rc);
    Logoff(sess);
    return rc;
  }
  // A password typed for a GENERATE node becomes its stored verifier.
  if (generate && !sess->sessGetBool(sessPswdFromFile) && !sess->sessGetBool(sessPswdUpdated)) {
    StoreVerifier(sess);
    sess->sessSetPassword("");
  }
  Tell(sess, LOGIN_SIGNED_ON, 0);
  return 0;
}

int LogonNewSession(Sess_o* sess, Sess_o* from) {
  TRACE_ENTER_EXIT("LogonNewSession");
  sess->sessSetString(sessNodeName, from->sessGetString(sessNodeName));
  sess->sessSetString(sessServerName, from->sessGetString(sessServerName));
  sess->sessSetString(sessCommAddress, from->sessGetString(sessCommAddress));
  sess->sessSetUint16(sessCommPort, from->sessGetUint16(sessCommPort));
  sess->sessSetUint8(sessPswdAccess, from->sessGetUint8(sessPswdAccess));
  sess->sessSetString(sessPswdDir, from->sessGetString(sessPswdDir));
  sess->sessSetPassword(from->sessGetPassword().c_str());
  int rc = OpenSess(sess, sitNormal);
  if (rc != 0) Logoff(sess);
  return rc;
}

int ReopenSess(Sess_o* sess) {
  TRACE_ENTER_EXIT("ReopenSess");
  if (sess->sessGetState() == sSignedOn || sess->sessGetState() == sOpened) {
    sess->sessFlushVerb();
    sess->sessClose();
  }
  int rc = OpenSess(sess, sitNormal);
  if (rc != 0) Logoff(sess);
  return rc;
}

int CheckSession(Sess_o* sess) {
  if (sess->sessGetState() == sSignedOn && IsConnected(sess)) return 0;
  return ReopenSess(sess);
}

int Disconnect(Sess_o* sess) {
  sessStateType s = sess->sessGetState();
  return (s == sOpened || s == sSignedOn) ? sess->sessClose() : 0;
}

int Logoff(Sess_o* sess) {
  TRACE_ENTER_EXIT("Logoff");
  if (sess->sessGetState() == sSignedOn && !sess->sessGetBool(sessBroken)) {
    unsigned char signOff[VERB_SHORT_HDR_LEN];
    verbSetShortHdr(signOff, VB_SignOff, VERB_SHORT_HDR_LEN);
    if (sess->sessSendVerb(signOff) == 0) {
      sess->sessSetBool(sessSignOffSent, true);
      sess->sessFlushVerb();
    }
  }
  Disconnect(sess);
  return 0;
}

bool IsConnected(const Sess_o* sess) {
  sessStateType s = sess->sessGetState();
  return (s == sOpened || s == sSignedOn) && !sess->sessGetBool(sessBroken);
}
