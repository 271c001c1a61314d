#include "session/sess.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "session/sess_assert.h"
#include "session/sess_diag.h"
#include "session/tcp_comm.h"
#include "session/verb.h"

namespace {

// New state by operation (rows) and current state (columns).
constexpr sessStateType kTransitions[sopCount][5] = {
    // from:  sUninit    sInit      sOpened    sSignedOn  sTRANSERR
    /*init*/ {sInit, sTRANSERR, sTRANSERR, sTRANSERR, sInit},
    /*open*/ {sTRANSERR, sOpened, sTRANSERR, sTRANSERR, sTRANSERR},
    /*sign-on*/ {sTRANSERR, sTRANSERR, sSignedOn, sTRANSERR, sTRANSERR},
    /*verb*/ {sTRANSERR, sInit, sOpened, sSignedOn, sTRANSERR},
    /*close*/ {sUninit, sInit, sInit, sInit, sTRANSERR},
    /*terminate*/ {sUninit, sUninit, sTRANSERR, sTRANSERR, sTRANSERR},
};

const char* const kCapNames[] = {
    "Enhanced sign-on",  // 0
    "Large communication buffers",
    "Backup",
    "Archive",
    "Space management",
    "Partial object restore",  // 5
    "Streaming recall",
    "Object sets",
    "LAN-free data movement",
    "File-manager mode",
    "Deduplication",  // 10
    "Server-initiated sessions",
    "Compression",
    "Encryption",
    "Unicode file names",
    "Extended attributes",  // 15
    "Access control lists",
    "Group backup",
    "Snapshot backup",
    "Retention sets",
    "Password verifier update",  // 20
    "Client-side cache",
    "Restartable restore",
    "Verb checksums",
    "Policy binding",
    "Node replication",  // 25
    "Virtual server",
    "Storage pools",
    "Transaction grouping",
    "Event logging",
    "Proxy nodes",  // 30
    "Server-free data movement",
};

bool TestBit(const unsigned char* map, unsigned n) {
  return n < SESS_FUNCMAP_BYTES * 8 && (map[n / 8] & (0x80u >> (n % 8))) != 0;
}

void CopyMap(unsigned char* dst, const unsigned char* src, size_t len) {
  std::memset(dst, 0, SESS_FUNCMAP_BYTES);
  if (src != nullptr) std::memcpy(dst, src, len < SESS_FUNCMAP_BYTES ? len : SESS_FUNCMAP_BYTES);
}

// Stands in for the load routine of a method this platform does not offer,
// so that choosing one is a clean failure of sessInit.
int LoadUnsupported(commObj_t*, int) {
  return COMM_RC_METHOD;
}

}  // namespace

sessStateType sessTransition(sessOpType op, sessStateType from) {
  if (op < 0 || op >= sopCount || from < sUninit || from > sTRANSERR) return sTRANSERR;
  return kTransitions[op][from];
}

const char* sessStateName(int state) {
  static const char* const kNames[] = {"sUninit", "sInit", "sOpened", "sSignedOn", "sTRANSERR"};
  return (state >= 0 && state <= 4) ? kNames[state] : "sUnknown";
}

const char* sessFuncName(unsigned n) {
  return n < std::size(kCapNames) ? kCapNames[n] : "Unknown capability";
}

void sessAuth_t::Wipe() {
  authWipe(verifier.data(), verifier.size());
  authWipe(clientNonce.data(), clientNonce.size());
  haveVerifier = false;
}

void setCommInfo(commObj_t* commObj, const sessSettings_t& settings) {
  commObj->info = settings.comm;
}

// ---------------------------------------------------------------- objects

Sess_o::Sess_o(clientOptions* options, int mainSession) : options_(options) {
  sessSettingsFromOptions(options, &settings_);
  Setup(mainSession);
}

Sess_o::Sess_o(const sessSettings_t& settings, int mainSession) : settings_(settings) {
  Setup(mainSession);
}

void Sess_o::Setup(int mainSession) {
  psMutexInit(&lock_, 1);
  const sessSettings_t& s = settings_;
  attrs_.SetStr(sessServerName, atString, s.serverName.c_str(), "Sess_o");
  attrs_.SetStr(sessCommAddress, atString, s.comm.address.c_str(), "Sess_o");
  attrs_.SetStr(sessCommMethodName, atString, commMethodName(s.comm.method), "Sess_o");
  attrs_.SetStr(sessPswdDir, atString, s.passwordDir.c_str(), "Sess_o");
  attrs_.SetStr(sessNodeName, atString, s.nodeName.c_str(), "Sess_o");
  attrs_.SetStr(sessOwner, atString, s.owner.c_str(), "Sess_o");
  attrs_.SetStr(sessSAAddress, atString, s.saAddress.c_str(), "Sess_o");
  attrs_.SetStr(sessPlatform, atString, "Linux", "Sess_o");
  attrs_.SetStr(sessClientVersionStr, atString, "3.1.0", "Sess_o");
  attrs_.SetNum(sessLargeBuffers, atBool, s.largeBuffers, "Sess_o");
  attrs_.SetNum(sessTcpNoDelay, atBool, s.comm.noDelay, "Sess_o");
  attrs_.SetNum(sessMainSession, atBool, mainSession != 0, "Sess_o");
  attrs_.SetNum(sessCanPrompt, atBool, s.canPrompt, "Sess_o");
  attrs_.SetNum(sessLanFreeMode, atBool, s.lanFree, "Sess_o");
  attrs_.SetNum(sessPswdAccess, atUint8, s.passwordAccess, "Sess_o");
  attrs_.SetNum(sessCrcMode, atUint8, s.checksumMode, "Sess_o");
  attrs_.SetNum(sessClientType, atUint8, s.clientType, "Sess_o");
  attrs_.SetNum(sessCommMethod, atUint8, static_cast<uint8_t>(s.comm.method), "Sess_o");
  attrs_.SetNum(sessCommPort, atUint16, s.comm.port, "Sess_o");
  attrs_.SetNum(sessSAPort, atUint16, s.saPort, "Sess_o");
  attrs_.SetNum(sessBufferSize, atUint32, s.comm.bufferSize, "Sess_o");
  attrs_.SetNum(sessWindowSize, atUint32, s.comm.windowSize, "Sess_o");
  attrs_.SetNum(sessRestartDuration, atUint32, s.comm.restartDurationMs, "Sess_o");
  attrs_.SetNum(sessRestartInterval, atUint32, s.comm.restartIntervalMs, "Sess_o");
  attrs_.SetNum(sessConnectTimeout, atUint32, s.comm.connectTimeoutMs, "Sess_o");
  attrs_.SetNum(sessReadTimeout, atUint32, s.comm.readTimeoutMs, "Sess_o");
  // What this client offers the server.
  for (unsigned cap : {unsigned{CAP_ENHANCED_SIGNON}, 2u, 4u, 5u, 6u, unsigned{CAP_VERIFIER_UPDATE},
                       unsigned{CAP_VERB_CRC}})
    sessSetClientFuncMap(cap);
  if (s.largeBuffers) sessSetClientFuncMap(CAP_LARGE_BUFFERS);

  setCommInfo(&commObj_, settings_);
  if (commSelectMethod(&commObj_, s.comm.method) != 0) commObj_.commFunc.commLoad = LoadUnsupported;
}

Sess_o::~Sess_o() {
  CloseConnection();
  if (commObj_.commFunc.commUnload != nullptr) commObj_.commFunc.commUnload(&commObj_);
  auth_.Wipe();
  psMutexDestroy(&lock_);
}

Sess_o* new_SessionObject(clientOptions* options, int mainSession) {
  TRACE_ENTER_EXIT("new_SessionObject");
  return new (std::nothrow) Sess_o(options, mainSession);
}

void delete_SessionObject(Sess_o*& sess) {
  TRACE_ENTER_EXIT("delete_SessionObject");
  if (sess == nullptr) return;
  if (sess->sessGetState() == sSignedOn || sess->sessGetState() == sOpened) sess->sessClose();
  if (sess->sessGetState() == sInit) sess->sessTerminate();
  delete sess;
  sess = nullptr;
}

// ------------------------------------------------------------ transitions

int Sess_o::Enter(sessOpType op, const char* opName, int msgNum, sessStateType* next) {
  *next = sessTransition(op, state_);
  if (*next != sTRANSERR) return 0;
  nlprintf(msgNum, sessStateName(state_));
  SESS_TRACE(TR_SESSION, "%s: illegal transition from %s to %s\n", opName, sessStateName(state_),
             sessStateName(sTRANSERR));
  state_ = sTRANSERR;
  return SESS_RC_PROTOCOL;
}

void Sess_o::Commit(const char* opName, sessStateType next) {
  SESS_TRACE_MSG(TR_SESSION, 20051, opName, sessStateName(state_), sessStateName(next));
  state_ = next;
}

int Sess_o::CreatePool() {
  uint32_t size = sessGetBufferSize();
  try {
    sendBuf_.assign(size, 0);
    recvBuf_.assign(size, 0);
  } catch (const std::bad_alloc&) {
    ReleasePool();
    return PS_RC_NOMEM;
  }
  return 0;
}

void Sess_o::ReleasePool() {
  std::vector<unsigned char>().swap(sendBuf_);
  std::vector<unsigned char>().swap(recvBuf_);
}

uint32_t Sess_o::sessGetBufferSize() const {
  return sessGetBool(sessLargeBuffers) ? VERB_MAX_LEN_LARGE : VERB_MAX_LEN;
}

unsigned char* Sess_o::sessGetBufferP() {
  return PoolReady() ? sendBuf_.data() : nullptr;
}

int Sess_o::sessInit() {
  TRACE_ENTER_EXIT("Sess_o::sessInit");
  sessStateType next;
  if (int rc = Enter(sopInit, "sessInit", 20052, &next)) return rc;
  CloseConnection();  // a session re-initialised from sTRANSERR may still hold one
  commObj_t* commObj = &commObj_;
  setCommInfo(commObj, settings_);
  commObj->info.address = sessGetString(sessCommAddress);
  commObj->info.port = sessGetUint16(sessCommPort);
  SESS_ASSERT(commObj->commFunc.commLoad != NULL);
  int rc = commObj->commFunc.commLoad(commObj, commObj->info.method);
  if (rc != 0) {
    SESS_DIAG("sessInit(): commLoad returned %d.\n", rc);
    return rc;
  }
  if (!PoolReady() && (rc = CreatePool()) != 0) return rc;
  sessSetBool(sessBroken, false);
  Commit("sessInit", next);
  return 0;
}

int Sess_o::sessOpen() {
  TRACE_ENTER_EXIT("Sess_o::sessOpen");
  sessStateType next;
  if (int rc = Enter(sopOpen, "sessOpen", 20007, &next)) return rc;
  commObj_t* commObj = &commObj_;
  setCommInfo(commObj, settings_);
  commObj->info.address = sessGetString(sessCommAddress);
  commObj->info.port = sessGetUint16(sessCommPort);
  commObj->info.bufferSize = sessGetUint32(sessBufferSize);
  commObj->info.windowSize = sessGetUint32(sessWindowSize);
  commObj->info.noDelay = sessGetBool(sessTcpNoDelay);
  // The restart settings govern reconnection: a session that was signed on
  // and lost its connection keeps trying, a first open reports at once.
  commObj->info.restartDurationMs =
      sessGetBool(sessSignedOnOnce) ? sessGetUint32(sessRestartDuration) : 0;
  commObj->info.restartIntervalMs = sessGetUint32(sessRestartInterval);
  commObj->info.connectTimeoutMs = sessGetUint32(sessConnectTimeout);
  commObj->info.readTimeoutMs = sessGetUint32(sessReadTimeout);

  sessConnMode_t mode = connOrdinary;
  if (sessGetBool(sessServerInitiated)) {
    mode = connServerInitiated;
  } else if (sessGetBool(sessLanFreeMode)) {
    mode = connLanFree;
    SESS_TRACE(TR_SESSION, "sessOpen(): connection mode %s\n", "VS_LANFreeMode");
  } else if (sessGetBool(sessObjectSetMode)) {
    mode = connObjectSet;
    SESS_TRACE(TR_SESSION, "sessOpen(): connection mode %s\n", "VS_ObjectSetMode");
  } else if (sessGetBool(sessSAMode)) {
    mode = connStorageAgent;
  } else if (sessGetBool(sessFMMode)) {
    mode = connFM;
    SESS_TRACE(TR_SESSION, "sessOpen(): connection mode %s\n", "VS_FMMode");
  }
  if (mode == connLanFree || mode == connStorageAgent) {
    // Data goes through the storage agent, which passes the conversation on.
    commObj->info.address = sessGetString(sessSAAddress);
    commObj->info.port = sessGetUint16(sessSAPort);
    SESS_TRACE(TR_SESSION, "sessOpen(): storage agent at %s port %u\n",
               commObj->info.address.c_str(), static_cast<unsigned>(commObj->info.port));
  }
  sessSetUint8(sessConnMode, mode);
  SESS_ASSERT(commObj->commFunc.commOpen != NULL);

  int rc = 0;
  if (mode == connServerInitiated) {
    SESS_TRACE(TR_SESSION, "sessOpen(): requesting a server-initiated connection\n");
    rc = GetConnection();
    if (rc != 0) {
      SESS_TRACE(TR_SESSION, "sessOpen(): getConnection() failed with rc(%d)\n", rc);
    } else if ((rc = cuGetNewClientSession()) != 0) {
      SESS_TRACE(TR_SESSION, "sessOpen(): cuGetNewClientSession() failed with rc(%d)\n", rc);
    }
  } else {
    SESS_TRACE(TR_SESSION, "sessOpen(): calling the communication specific open routine\n");
    rc = commObj->commFunc.commOpen(commObj);
    if (rc == 0) connected_ = true;
  }
  if (rc != 0) {
    nlprintf(9020, rc);
    CloseConnection();
    sessClose();
    return rc;
  }
  sessSetBool(sessBroken, false);
  sessSetUint32(sessMaxVerbLen, sessGetBufferSize());
  Commit("sessOpen", next);
  return 0;
}

int Sess_o::GetConnection() {
  auto* sched = static_cast<sessSchedHandler_t*>(sessGetVoid(sessSchedHandler));
  if (sched == nullptr || sched->getConnection == nullptr) return COMM_RC_METHOD;
  int fd = -1;
  int rc = sched->getConnection(sched->ctx, &fd);
  if (rc != 0) return rc;
  rc = tcpAdoptSocket(&commObj_, fd);
  if (rc == 0) connected_ = true;
  return rc;
}

// The server that opened the connection names itself first.
int Sess_o::cuGetNewClientSession() {
  unsigned char* verb = nullptr;
  int rc = sessRecvVerb(&verb);
  if (rc != 0) return rc;
  if (verbType(verb) != VB_Identify || verbLength(verb) < VERB_SHORT_HDR_LEN + 1) {
    SESS_DIAG("cuGetNewClientSession(): unexpected verb %s\n", trVerbType(verbType(verb)));
    return SESS_RC_PROTOCOL;
  }
  uint32_t n = verb[4];
  if (n >= SESS_CHAR_LEN || VERB_SHORT_HDR_LEN + 1 + n > verbLength(verb)) return SESS_RC_PROTOCOL;
  char* name = sessGetCharP(sessServerNameRecv);
  std::memcpy(name, verb + 5, n);
  name[n] = '\0';
  return 0;
}

void Sess_o::CloseConnection() {
  if (!connected_) return;
  if (commObj_.commFunc.commFlush != nullptr) commObj_.commFunc.commFlush(&commObj_);
  if (commObj_.commFunc.commClose != nullptr) commObj_.commFunc.commClose(&commObj_);
  connected_ = false;
}

int Sess_o::sessClose() {
  TRACE_ENTER_EXIT("Sess_o::sessClose");
  sessStateType next;
  if (int rc = Enter(sopClose, "sessClose", 20038, &next)) return rc;
  CloseConnection();
  auth_.Wipe();
  sessSetBool(sessAuthenticated, false);
  Commit("sessClose", next);
  return 0;
}

int Sess_o::sessTerminate() {
  TRACE_ENTER_EXIT("Sess_o::sessTerminate");
  sessStateType next;
  if (int rc = Enter(sopTerminate, "sessTerminate", 20037, &next)) return rc;
  CloseConnection();
  if (commObj_.commFunc.commUnload != nullptr) commObj_.commFunc.commUnload(&commObj_);
  ReleasePool();
  Commit("sessTerminate", next);
  return 0;
}

int Sess_o::sessSignOn() {
  sessStateType next;
  if (int rc = Enter(sopSignOn, "sessSignOn", 20008, &next)) return rc;
  Commit("sessSignOn", next);
  return 0;
}

int Sess_o::sessFlushEvent() {
  if (!connected_ || commObj_.commFunc.commFlush == nullptr) return 0;
  return commObj_.commFunc.commFlush(&commObj_);
}

int Sess_o::sessLock(sessLockType_t type) {
  switch (type) {
    case sessLockAcquire:
      return psMutexLock(&lock_);
    case sessLockRelease:
      return psMutexUnlock(&lock_);
    case sessLockTry: {
      int rc = pthread_mutex_trylock(&lock_.m);
      return rc == 0 ? 0 : EBUSY;
    }
  }
  return PS_RC_BADARG;
}

// ------------------------------------------------------------- attributes

bool Sess_o::sessGetBool(uint8_t idx) const {
  return attrs_.GetNum(idx, atBool, "sessGetBool");
}
void Sess_o::sessSetBool(uint8_t idx, bool v) {
  attrs_.SetNum(idx, atBool, v, "sessSetBool");
}
uint8_t Sess_o::sessGetUint8(uint8_t idx) const {
  return static_cast<uint8_t>(attrs_.GetNum(idx, atUint8, "sessGetUint8"));
}
void Sess_o::sessSetUint8(uint8_t idx, uint8_t v) {
  attrs_.SetNum(idx, atUint8, v, "sessSetUint8");
}
uint16_t Sess_o::sessGetUint16(uint8_t idx) const {
  return static_cast<uint16_t>(attrs_.GetNum(idx, atUint16, "sessGetUint16"));
}
void Sess_o::sessSetUint16(uint8_t idx, uint16_t v) {
  attrs_.SetNum(idx, atUint16, v, "sessSetUint16");
}
uint32_t Sess_o::sessGetUint32(uint8_t idx) const {
  return static_cast<uint32_t>(attrs_.GetNum(idx, atUint32, "sessGetUint32"));
}
void Sess_o::sessSetUint32(uint8_t idx, uint32_t v) {
  attrs_.SetNum(idx, atUint32, v, "sessSetUint32");
}
uint64_t Sess_o::sessGetUint64(uint8_t idx) const {
  return attrs_.GetNum(idx, atUint64, "sessGetUint64");
}
void Sess_o::sessSetUint64(uint8_t idx, uint64_t v) {
  attrs_.SetNum(idx, atUint64, v, "sessSetUint64");
}
const char* Sess_o::sessGetString(uint8_t idx) const {
  return attrs_.GetStr(idx, atString, "sessGetString").c_str();
}
void Sess_o::sessSetString(uint8_t idx, const char* v) {
  attrs_.SetStr(idx, atString, v, "sessSetString");
}
void Sess_o::sessGetChar(uint8_t idx, char* out, size_t size) {
  const char* p = attrs_.GetCharP(idx, "sessGetChar");
  if (out == nullptr || size == 0) return;
  std::snprintf(out, size, "%s", p);
}
char* Sess_o::sessGetCharP(uint8_t idx) {
  return attrs_.GetCharP(idx, "sessGetCharP");
}
void Sess_o::sessSetDate(uint8_t idx, const nDate& d) {
  attrs_.SetDate(idx, d, "sessSetDate");
}
nDate Sess_o::sessGetDate(uint8_t idx) const {
  return attrs_.GetDate(idx, "sessGetDate");
}
void Sess_o::sessSetVoid(uint8_t idx, void* p) {
  attrs_.SetVoid(idx, p, "sessSetVoid");
}
void* Sess_o::sessGetVoid(uint8_t idx) const {
  return attrs_.GetVoid(idx, "sessGetVoid");
}
void Sess_o::sessSetPassword(const char* pw) {
  attrs_.SetStr(sessPassword, atPassword, pw, "sessSetPassword");
}
const std::string& Sess_o::sessGetPassword() const {
  return attrs_.GetStr(sessPassword, atPassword, "sessGetPassword");
}

// --------------------------------------------------------- capability maps

bool Sess_o::TestServerFuncBit(unsigned n) const {
  return TestBit(serverMap_, n);
}

bool Sess_o::sessTestFuncMap(unsigned n) {
  bool server = TestBit(serverMap_, n);
  if (!sessGetBool(sessSAMode) || n == CAP_SERVER_INITIATED || n == CAP_SERVER_FREE) {
    sessSetUint8(sessCapTestResult, server ? SESS_CAPTEST_SERVER : SESS_CAPTEST_NO_SERVER);
    return server;
  }
  bool agent = TestBit(saMap_, n);
  uint8_t result = server ? (agent ? SESS_CAPTEST_BOTH : SESS_CAPTEST_NO_AGENT)
                          : (agent ? SESS_CAPTEST_NO_SERVER : SESS_CAPTEST_NEITHER);
  sessSetUint8(sessCapTestResult, result);
  return server && agent;
}

void Sess_o::sessCopyFuncMap(const unsigned char* map, size_t len) {
  CopyMap(serverMap_, map, len);
}
void Sess_o::sessCopySAFuncMap(const unsigned char* map, size_t len) {
  CopyMap(saMap_, map, len);
}
bool Sess_o::sessTestSAFuncMap(unsigned n) const {
  return TestBit(saMap_, n);
}
bool Sess_o::sessTestClientFuncMap(unsigned n) const {
  return TestBit(clientMap_, n);
}
void Sess_o::sessSetClientFuncMap(unsigned n) {
  if (n < SESS_FUNCMAP_BYTES * 8) clientMap_[n / 8] |= static_cast<unsigned char>(0x80u >> (n % 8));
}
void Sess_o::sessResetClientFuncMap(unsigned n) {
  if (n < SESS_FUNCMAP_BYTES * 8)
    clientMap_[n / 8] &= static_cast<unsigned char>(~(0x80u >> (n % 8)));
}

std::vector<unsigned char> Sess_o::sessClientFuncMap() const {
  size_t len = SESS_FUNCMAP_BYTES;
  while (len > 0 && clientMap_[len - 1] == 0) --len;
  return std::vector<unsigned char>(clientMap_, clientMap_ + len);
}

void Sess_o::sessShowSess(FILE* out) const {
  struct {
    const char* heading;
    const unsigned char* map;
  } maps[] = {{"Current Server Connection Supports:", serverMap_},
              {"Current Storage Agent Connection Supports:", saMap_},
              {"Client Supports:", clientMap_}};
  for (const auto& m : maps) {
    std::fprintf(out, "%s\n", m.heading);
    for (unsigned n = 0; n < SESS_FUNCMAP_BYTES * 8; ++n)
      if (TestBit(m.map, n)) std::fprintf(out, "   %2.2d - %s\n", n, sessFuncName(n));
  }
}
