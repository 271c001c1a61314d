// The server session: the client's one conversation with the storage server.
//
// A Sess_o owns the communication object of its method, the buffer pool, the
// capability maps of the server, the storage agent and the client, and the
// typed attributes (sess_attr.h).  It moves through a small state machine:
//
//   sUninit --sessInit--> sInit --sessOpen--> sOpened --sign-on--> sSignedOn
//   sSignedOn/sOpened/sInit --sessClose--> sInit --sessTerminate--> sUninit
//
// Every state-changing operation looks its new state up in one table
// (sessTransition).  An illegal operation changes nothing but the state,
// which becomes sTRANSERR, answers SESS_RC_PROTOCOL and logs a message
// naming the state it found; only sessInit leaves sTRANSERR.  Verb traffic
// is allowed in sInit and sOpened too, because the sign-on verbs travel
// before the session is signed on.
//
// Thread safety: one thread uses a session at a time.  Threads that share
// one (a storage-agent or server-initiated connection handed over) serialise
// with sessLock.
#ifndef QMX_SESSION_SESS_H_
#define QMX_SESSION_SESS_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "session/auth.h"
#include "session/comm.h"
#include "session/sess_attr.h"
#include "session/sess_status.h"

class clientOptions;

enum sessStateType { sUninit = 0, sInit = 1, sOpened = 2, sSignedOn = 3, sTRANSERR = 4 };

// Rows of the transition table.
enum sessOpType { sopInit = 0, sopOpen, sopSignOn, sopVerb, sopClose, sopTerminate, sopCount };

// The new state for |op| from |from| (sTRANSERR when illegal).
sessStateType sessTransition(sessOpType op, sessStateType from);
// "sUninit" ... "sTRANSERR"; "sUnknown" for other values.
const char* sessStateName(int state);

// Why a session is opened (attribute sessInitType).
enum sessInitType_t : uint8_t {
  sitNormal = 0,          // sign on and authenticate
  sitChangePassword = 1,  // sign on only to change an expired password
};

// Connection modes of sessOpen (attribute sessConnMode).
enum sessConnMode_t : uint8_t {
  connOrdinary = 0,
  connLanFree = 1,         // VS_LANFreeMode: through the storage agent
  connObjectSet = 2,       // VS_ObjectSetMode
  connStorageAgent = 3,    // storage agent address and port
  connFM = 4,              // VS_FMMode
  connServerInitiated = 5  // the scheduler hands over a connection
};

enum sessLockType_t { sessLockAcquire = 0, sessLockRelease = 1, sessLockTry = 2 };

// PASSWORDACCESS values (attribute sessPswdAccess).
enum : uint8_t { PSWD_PROMPT = 0, PSWD_GENERATE = 1 };

// Capability numbers the session itself uses.
enum : unsigned {
  CAP_ENHANCED_SIGNON = 0,
  CAP_LARGE_BUFFERS = 1,
  CAP_SERVER_INITIATED = 11,
  CAP_VERIFIER_UPDATE = 20,
  CAP_VERB_CRC = 23,
  CAP_SERVER_FREE = 31,
};
constexpr unsigned SESS_FUNCMAP_BYTES = 32;  // 256 capabilities
// The name printed for capability |n|.
const char* sessFuncName(unsigned n);

// What the server-initiated mode needs from the scheduler: a connected
// socket.  Owned by the caller; stored in attribute sessSchedHandler.
struct sessSchedHandler_t {
  int (*getConnection)(void* ctx, int* fd) = nullptr;
  void* ctx = nullptr;
};

// Settings taken from the options object: the narrow view of the options
// that a session needs.  sessSettingsFromOptions fills it.
struct sessSettings_t {
  commInfo_t comm;
  std::string serverName;
  std::string nodeName;
  std::string owner;
  std::string passwordDir;
  uint8_t passwordAccess = PSWD_PROMPT;
  bool largeBuffers = false;
  bool canPrompt = true;     // the client type lets a user be asked
  uint8_t checksumMode = 0;  // 0 none, 1 data verbs, 2 every verb
  uint8_t clientType = 5;
  bool lanFree = false;
  std::string saAddress;
  uint16_t saPort = 0;
};

// Fills |commObj->info| from |settings| (address, port, buffer sizes,
// time-outs, restart policy).
void setCommInfo(commObj_t* commObj, const sessSettings_t& settings);

// Secrets and nonces of the current sign-on.  Wiped when the session closes.
struct sessAuth_t {
  std::vector<unsigned char> salt;
  uint32_t iterations = 0;
  authNonce_t serverNonce{};
  authNonce_t clientNonce{};
  authVerifier_t verifier{};
  bool haveVerifier = false;
  void Wipe();
};

class Sess_o {
 public:
  Sess_o(clientOptions* options, int mainSession);
  Sess_o(const sessSettings_t& settings, int mainSession);
  ~Sess_o();
  Sess_o(const Sess_o&) = delete;
  Sess_o& operator=(const Sess_o&) = delete;

  // --- lifecycle (0 or a code; SESS_RC_PROTOCOL for an illegal state) ---
  int sessInit();
  int sessOpen();
  int sessClose();
  int sessTerminate();
  // Records a completed sign-on (the sign-on row of the table).
  int sessSignOn();
  sessStateType sessGetState() const { return state_; }

  // --- verb traffic ---
  // Sends the verb at |verb| (its length from its own header), preceded by a
  // checksum verb when the checksum mode asks for one.
  int sessSendVerb(const unsigned char* verb);
  // Receives one verb.  |*verbP| null: into the session's receive buffer,
  // valid until the next receive; else into the caller's buffer of at least
  // sessGetBufferSize() bytes.  A bulk verb longer than that is received into
  // the session's buffer and |*verbP| is pointed there.  A checksum verb is
  // checked against the verb that follows it, which is then returned.
  int sessRecvVerb(unsigned char** verbP);
  // Reads whatever has arrived, at least one byte and at most |max|.
  int sessRecvBuff(unsigned char* buf, uint32_t max, uint32_t* got);
  int sessFlushVerb();
  // The session's send buffer (sessGetBufferSize() bytes); null before
  // sessInit.
  unsigned char* sessGetBufferP();
  uint32_t sessGetBufferSize() const;
  // Pushes out whatever the session still holds for the server, so that
  // nothing is lost when it closes.  Any state; 0 or the flush's code.
  int sessFlushEvent();
  // 0, or for sessLockTry 16 (EBUSY) when another thread holds the lock.
  int sessLock(sessLockType_t type);

  // --- attributes (wrong index: assertion) ---
  bool sessGetBool(uint8_t idx) const;
  void sessSetBool(uint8_t idx, bool v);
  uint8_t sessGetUint8(uint8_t idx) const;
  void sessSetUint8(uint8_t idx, uint8_t v);
  uint16_t sessGetUint16(uint8_t idx) const;
  void sessSetUint16(uint8_t idx, uint16_t v);
  uint32_t sessGetUint32(uint8_t idx) const;
  void sessSetUint32(uint8_t idx, uint32_t v);
  uint64_t sessGetUint64(uint8_t idx) const;
  void sessSetUint64(uint8_t idx, uint64_t v);
  const char* sessGetString(uint8_t idx) const;
  void sessSetString(uint8_t idx, const char* v);
  // Character buffers: a copy into |out| (|size| bytes, terminated), or the
  // session's own buffer of SESS_CHAR_LEN bytes.
  void sessGetChar(uint8_t idx, char* out, size_t size);
  char* sessGetCharP(uint8_t idx);
  void sessSetDate(uint8_t idx, const nDate& d);
  nDate sessGetDate(uint8_t idx) const;
  void sessSetVoid(uint8_t idx, void* p);
  void* sessGetVoid(uint8_t idx) const;
  // The password is kept only for the sign-on in progress and wiped with
  // the session; an empty text clears it.
  void sessSetPassword(const char* pw);
  const std::string& sessGetPassword() const;

  // --- capability maps ---
  // Whether capability |n| may be used: the server has it and, with a
  // storage agent (unless only the server takes part in |n|), the agent
  // too.  The outcome goes to sessCapTestResult (SESS_CAPTEST_*).
  bool sessTestFuncMap(unsigned n);
  void sessCopyFuncMap(const unsigned char* map, size_t len);
  void sessCopySAFuncMap(const unsigned char* map, size_t len);
  bool sessTestSAFuncMap(unsigned n) const;
  bool sessTestClientFuncMap(unsigned n) const;
  void sessSetClientFuncMap(unsigned n);
  void sessResetClientFuncMap(unsigned n);
  // The client map as sent at sign-on (trailing zero bytes dropped).
  std::vector<unsigned char> sessClientFuncMap() const;
  void sessShowSess(FILE* out) const;

  commObj_t* sessCommObj() { return &commObj_; }
  sessAuth_t& sessAuth() { return auth_; }
  const sessSettings_t& sessSettings() const { return settings_; }
  clientOptions* sessOptions() const { return options_; }

 private:
  void Setup(int mainSession);
  // Checks |op| against the table; on an illegal transition logs |msgNum|,
  // goes to sTRANSERR and answers SESS_RC_PROTOCOL.
  int Enter(sessOpType op, const char* opName, int msgNum, sessStateType* next);
  void Commit(const char* opName, sessStateType next);
  bool PoolReady() const { return !sendBuf_.empty(); }
  int CreatePool();
  void ReleasePool();
  void BreakAndClose();
  void CloseConnection();
  int RecvOne(unsigned char** bufP, bool callerBuf);
  int RecvRaw(unsigned char* buf, uint32_t n);
  int CheckCRC(const unsigned char* crcVerb, unsigned char** bufP, bool callerBuf);
  int SendCRC(const unsigned char* verb);
  int WriteRaw(const unsigned char* buf, uint32_t n);
  bool TestServerFuncBit(unsigned n) const;
  int GetConnection();
  int cuGetNewClientSession();

  clientOptions* options_ = nullptr;
  sessSettings_t settings_;
  sessStateType state_ = sUninit;
  sessAttrStore attrs_;
  commObj_t commObj_;
  bool connected_ = false;
  std::vector<unsigned char> sendBuf_, recvBuf_;
  unsigned char serverMap_[SESS_FUNCMAP_BYTES] = {};
  unsigned char saMap_[SESS_FUNCMAP_BYTES] = {};
  unsigned char clientMap_[SESS_FUNCMAP_BYTES] = {};
  sessAuth_t auth_;
  psMutex_t lock_;
};

// Creates a session from the options object (null: none available, the
// defaults are used).  |mainSession| 1 for the thread's main session.
// Returns null only when memory runs out.
Sess_o* new_SessionObject(clientOptions* options, int mainSession);
// Destroys |sess| (closing and terminating it as needed) and nulls it.
void delete_SessionObject(Sess_o*& sess);

// The session's view of the options object.  Without an options object
// the defaults of sessSettings_t stand.
void sessSettingsFromOptions(const clientOptions* options, sessSettings_t* out);

#endif  // QMX_SESSION_SESS_H_
