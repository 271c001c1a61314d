// The communication object: how a session reaches its server.
//
// A session owns one commObj_t.  Its function table holds the operations of
// the communication method chosen by the options; commSelectMethod is the one
// place that maps a method to its implementation.  The session only calls
// through the table, so tests may put their own functions in it.
//
// Contracts of the table's operations (all return 0 or a COMM_RC_* code of
// session/sess_status.h):
//   commLoad(obj, method)  prepares the method's state; no connection yet.
//   commOpen(obj)          connects to obj->info's address; a method may
//                          retry as the restart settings allow.
//   commRead(obj, buf, n)  reads exactly n bytes (n > 0).
//   commWrite(obj, buf, n) writes n bytes; they may stay buffered until
//                          commFlush or the next commRead.
//   commFlush(obj)         pushes buffered output.
//   commRecvBuff(obj, buf, max, &got) reads what is available, at least one
//                          byte and at most max.
//   commClose(obj)         shuts the connection; harmless when there is none.
//   commUnload(obj)        shuts the connection and frees the method's state.
// Thread safety: a commObj_t is used by one thread at a time (the session's
// lock serialises sharing).
#ifndef QMX_SESSION_COMM_H_
#define QMX_SESSION_COMM_H_

#include <cstdint>
#include <string>

#include "session/sess_status.h"

// Communication methods (COMMMETHOD).
enum commMethod_t : int {
  COMM_NONE = 0,
  COMM_TCPIP = 1,
  COMM_SHAREDMEM = 2,  // not offered on this platform
};

// Settings of a connection.  Sizes in bytes, times in milliseconds.
struct commInfo_t {
  int method = COMM_TCPIP;
  std::string address;  // host name or numeric IPv4/IPv6 address
  uint16_t port = 1500;
  bool noDelay = true;              // TCPNODELAY
  uint32_t bufferSize = 32 * 1024;  // TCPBUFFSIZE: the send and receive staging buffers
  uint32_t windowSize = 0;          // TCPWINDOWSIZE: socket buffers; 0 = system default
  uint32_t connectTimeoutMs = 30000;
  uint32_t readTimeoutMs = 0;          // 0 = wait as long as it takes
  uint32_t restartDurationMs = 0;      // COMMRESTARTDURATION: how long to keep trying
  uint32_t restartIntervalMs = 15000;  // COMMRESTARTINTERVAL: pause between tries
};

struct commObj_t;

struct commFunc_t {
  int (*commLoad)(commObj_t* obj, int method) = nullptr;
  int (*commOpen)(commObj_t* obj) = nullptr;
  int (*commRead)(commObj_t* obj, unsigned char* buf, uint32_t n) = nullptr;
  int (*commWrite)(commObj_t* obj, const unsigned char* buf, uint32_t n) = nullptr;
  int (*commFlush)(commObj_t* obj) = nullptr;
  int (*commRecvBuff)(commObj_t* obj, unsigned char* buf, uint32_t max, uint32_t* got) = nullptr;
  int (*commClose)(commObj_t* obj) = nullptr;
  int (*commUnload)(commObj_t* obj) = nullptr;
};

struct commObj_t {
  commFunc_t commFunc;
  commInfo_t info;
  void* methodState = nullptr;  // owned by the method; freed by commUnload
  int lastErrno = 0;            // errno of the last failing socket call
  int openAttempts = 0;         // connection attempts made by the last commOpen
};

// Fills obj->commFunc with the operations of |method|.  Returns 0, or
// COMM_RC_METHOD for a method this platform does not offer (the table is then
// left empty).
int commSelectMethod(commObj_t* obj, int method);

// The name of a method for messages and trace ("TCPIP").
const char* commMethodName(int method);

// Adopts an already connected socket |fd| (a connection handed over by the
// scheduler) as obj's TCP connection.  The method must be loaded.
int tcpAdoptSocket(commObj_t* obj, int fd);

#endif  // QMX_SESSION_COMM_H_
