// The client's side of the wire, below the calls (rdm_client.h): each
// thread's connection to the daemon, the ordinary exchange with its
// retries (rdmTransact), and the request a thread may have sent ahead of
// its reply (a call sent in two halves).
//
// A thread has at most one request sent ahead.  Another exchange of the
// thread first reads that request's reply off the connection and keeps it,
// so the halves may have other calls between them.
//
// Thread safety: every function acts on the calling thread's own state.
#ifndef QMX_HSM_RDM_RDM_TRANSPORT_H_
#define QMX_HSM_RDM_RDM_TRANSPORT_H_

#include <cstdint>
#include <vector>

#include "hsm/rdm/rdm_proto.h"

// The pool settings in force (test settings when set and not negative):
// how often a call is asked while the daemon answers "busy", and how long
// to wait between.
int rdmPoolSize();
long rdmPoolTimeUs();

// One request and its reply: retries while busy, checks key and call.
// Returns 0 with |*rep| (status rdmStatusMade), or -1 with errno (EACCES,
// EAGAIN).
int rdmTransact(uint16_t call, const rdmWriter& args, rdmReply_t* rep);

// Writes a request of |call| with |payload| and returns at once, forgetting
// any request sent ahead before.  A request that could not be written is
// remembered as lost (rdmReceiveAhead says so).
void rdmSendAhead(uint16_t call, const std::vector<unsigned char>& payload);

// The reply to the request sent ahead, which is then forgotten.  Returns 0
// with |*rep| when the daemon answered it (whatever the status); -1 when
// nothing was sent ahead, or the request or reply was lost (|*lost| true),
// or the reply was not the answer to it (|*lost| false; the connection,
// out of step, is closed).
int rdmReceiveAhead(rdmReply_t* rep, bool* lost);

// Forgets the request sent ahead, if any; its connection is closed unless
// its reply was already read.
void rdmAbandonAhead();

#endif  // QMX_HSM_RDM_RDM_TRANSPORT_H_
