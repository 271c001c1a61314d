// Typed session attributes, addressed by an 8-bit index.
//
// The index map is the table in sess_attr.cpp: each index has one type, a
// name (for sessShowSess and assertions) and a default.  An accessor accepts
// only indices of its own type; any other index is a programming error that
// stops the program with an assertion naming the accessor.
//
// Ranges: strings 1-16, booleans 17-111, 8-bit 112-135, 16-bit 136-151,
// 32-bit 152-175, 64-bit 176-191, character buffers 192-207, dates 208-215,
// pointers 216-231, the password 240.
#ifndef QMX_SESSION_SESS_ATTR_H_
#define QMX_SESSION_SESS_ATTR_H_

#include <cstddef>
#include <cstdint>
#include <string>

enum sessAttrType_t : uint8_t {
  atNone = 0,
  atString,
  atBool,
  atUint8,
  atUint16,
  atUint32,
  atUint64,
  atChar,  // fixed character buffer filled by the session itself
  atDate,
  atVoid,
  atPassword,
};

enum sessAttrIndex : uint8_t {
  // strings
  sessServerName = 1,      // server stanza name (SERVERNAME)
  sessCommAddress = 2,     // server address (TCPSERVERADDRESS)
  sessCommMethodName = 3,  // "TCPIP"
  sessPswdDir = 4,         // PASSWORDDIR
  sessNodeName = 5,        // NODENAME, as signed on
  sessOwner = 6,           // user the session runs for
  sessSAAddress = 7,       // storage agent address
  sessPlatform = 8,        // platform text sent at sign-on
  sessClientVersionStr = 9,

  // booleans
  sessLargeBuffers = 17,     // large buffers wanted (LARGECOMMBUFFERS)
  sessLargeGranted = 18,     // the server granted large buffers
  sessTcpNoDelay = 19,       // TCPNODELAY
  sessEnhancedSignOn = 20,   // use the enhanced sign-on verb
  sessPswdExpired = 21,      // the server reported an expired password
  sessServerInitiated = 22,  // scheduler mode: the server opens the connection
  sessMainSession = 23,      // this is the thread's main session
  sessCanPrompt = 24,        // the user may be asked for passwords
  sessBroken = 25,           // the verb stream is broken; re-initialise
  sessSAMode = 26,           // a storage agent is in use
  sessLanFreeMode = 27,      // VS_LANFreeMode
  sessObjectSetMode = 28,    // VS_ObjectSetMode
  sessFMMode = 29,           // VS_FMMode
  sessAuthenticated = 30,    // the challenge response was accepted
  sessServerProven = 31,     // the server proved it knows the verifier
  sessPswdFromFile = 32,     // the credentials came from the password file
  sessPswdPrompted = 33,     // the password was entered by the user
  sessKeepOnExpiry = 34,     // keep the session open when the password expired
  sessSignedOnOnce = 35,     // signed on at least once
  sessHaveSAMap = 36,        // a storage agent map arrived
  sessCrcSeen = 37,          // the server sent a checksum verb
  sessSignOffSent = 38,      // the sign-off verb went out
  sessTraceVerbs = 39,       // verb tracing forced for this session
  sessEventsPending = 40,    // unread input was flushed
  sessPswdUpdated = 41,      // the verifier was changed during this sign-on

  // 8-bit
  sessPswdAccess = 112,     // PASSWORDACCESS: 0 prompt, 1 generate
  sessCrcMode = 113,        // checksum mode: 0 none, 1 data verbs, 2 all verbs
  sessInitType = 114,       // why the session is opened (sessInitType_t)
  sessCapTestResult = 115,  // result of the last sessTestFuncMap (SESS_CAPTEST_*)
  sessClientType = 116,     // client type of the program
  sessCommMethod = 117,     // commMethod_t
  sessConnMode = 118,       // sessConnMode_t of the last sessOpen

  // 16-bit
  sessCommPort = 136,  // TCPPORT
  sessSAPort = 137,    // storage agent port
  sessServerVersion = 138,
  sessServerRelease = 139,
  sessServerLevel = 140,
  sessLastSignOnRc = 141,

  // 32-bit
  sessBufferSize = 152,       // TCPBUFFSIZE in bytes
  sessWindowSize = 153,       // TCPWINDOWSIZE in bytes
  sessRestartDuration = 154,  // COMMRESTARTDURATION in ms
  sessRestartInterval = 155,  // COMMRESTARTINTERVAL in ms
  sessConnectTimeout = 156,   // ms
  sessReadTimeout = 157,      // ms, 0 none
  sessVerifierIter = 158,     // iterations for new verifiers
  sessServerIter = 159,       // iterations the server asked for
  sessMaxVerbLen = 160,       // current receive limit

  // 64-bit
  sessBytesSent = 176,
  sessBytesRecv = 177,
  sessVerbsSent = 178,
  sessVerbsRecv = 179,

  // character buffers
  sessServerNameRecv = 192,  // server name as the server reports it
  sessServerPlatform = 193,

  // dates
  sessSignOnDate = 208,   // last successful sign-on
  sessPswdSetDate = 209,  // last verifier change

  // pointers
  sessLoginHandler = 216,  // sessLoginHandler_t* (owned by the caller)
  sessSchedHandler = 217,  // sessSchedHandler_t* (owned by the caller)
  sessUserData = 218,

  // password
  sessPassword = 240,
};

constexpr size_t SESS_CHAR_LEN = 65;  // character buffers hold 64 characters

// Date and time of day (local time).
struct nDate {
  uint16_t year = 0;
  uint8_t month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

struct sessAttrDesc_t {
  uint8_t index;
  sessAttrType_t type;
  const char* name;
  uint64_t numDefault;  // default of number and boolean attributes
};

// The descriptor of |index|, or null when the index is unused.
const sessAttrDesc_t* sessAttrDesc(uint8_t index);

// Storage of one session's attributes.  Accessors assert the type; |who| is
// the accessor's name for the assertion.
class sessAttrStore {
 public:
  sessAttrStore();
  ~sessAttrStore();
  sessAttrStore(const sessAttrStore&) = delete;
  sessAttrStore& operator=(const sessAttrStore&) = delete;

  uint64_t GetNum(uint8_t idx, sessAttrType_t type, const char* who) const;
  void SetNum(uint8_t idx, sessAttrType_t type, uint64_t v, const char* who);
  const std::string& GetStr(uint8_t idx, sessAttrType_t type, const char* who) const;
  void SetStr(uint8_t idx, sessAttrType_t type, const char* v, const char* who);
  char* GetCharP(uint8_t idx, const char* who);
  nDate GetDate(uint8_t idx, const char* who) const;
  void SetDate(uint8_t idx, const nDate& d, const char* who);
  void* GetVoid(uint8_t idx, const char* who) const;
  void SetVoid(uint8_t idx, void* p, const char* who);

 private:
  void Check(uint8_t idx, sessAttrType_t type, const char* who) const;

  uint64_t num_[256];
  std::string str_[256];
  char chars_[16][SESS_CHAR_LEN];
  nDate dates_[8];
  void* ptrs_[16];
};

#endif  // QMX_SESSION_SESS_ATTR_H_
