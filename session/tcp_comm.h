// The TCP/IP communication method.
//
// A real TCP client: the server address is resolved with getaddrinfo (IPv4
// and IPv6, every address tried in turn), connected with a time-out, and the
// TCPNODELAY and TCPWINDOWSIZE settings are applied to the socket before it
// connects.  Output is staged in a buffer of TCPBUFFSIZE bytes and pushed by
// commFlush, by a full buffer, or before the next read (so that a request is
// never left waiting while its answer is awaited).  Input is read through a
// buffer of the same size.  Reads and writes survive short transfers and
// EINTR.  When no connection can be made, commOpen tries again every
// restartIntervalMs until restartDurationMs have passed.
#ifndef QMX_SESSION_TCP_COMM_H_
#define QMX_SESSION_TCP_COMM_H_

#include "session/comm.h"

void tcpFillFuncTable(commFunc_t* fn);

// The local socket of an open connection, or -1 (for tests and diagnostics).
int tcpSocketOf(const commObj_t* obj);

#endif  // QMX_SESSION_TCP_COMM_H_
