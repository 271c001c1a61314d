// The client's way of making one call of the daemon (used by the calls of
// rdm_client.h): its arguments encoded and its reply decoded through its
// codec (rdm_calls.h), the exchange through rdmTransact.
#ifndef QMX_HSM_RDM_RDM_MAKE_CALL_H_
#define QMX_HSM_RDM_RDM_MAKE_CALL_H_

#include <errno.h>

#include "diag/trace.h"
#include "hsm/rdm/rdm_calls.h"
#include "hsm/rdm/rdm_transport.h"

// Decodes |rep|, the answer to |a|, into |*v|.  Returns 0, or -1 with
// errno EACCES when it is not such an answer.
template <class M>
int rdmTakeReply(const typename M::Args& a, const rdmReply_t& rep, typename M::Reply* v) {
  if (M::decodeReply(a, rep.payload.data(), rep.payload.size(), rep.result, v)) return 0;
  if (TR_DMI)
    trPrintf(__FILE__, __LINE__, "rdm: reply to call %u has the wrong size (%zu bytes)\n", rep.call,
             rep.payload.size());
  errno = EACCES;
  return -1;
}

// Makes call M with |a| and decodes its reply into |*v|.  Returns 0 with
// |*rep| (its result and errno are the call's), or -1 with errno: EACCES
// (or EAGAIN) from the exchange, EACCES for a reply that is not an answer
// to |a|.
template <class M>
int rdmMakeCall(const typename M::Args& a, typename M::Reply* v, rdmReply_t* rep) {
  rdmWriter w;
  M::encodeArgs(a, &w);
  if (rdmTransact(M::kCall, w, rep) != 0) return -1;
  return rdmTakeReply<M>(a, *rep, v);
}

// What the daemon's call returned, with its errno.
inline int rdmOutcome(const rdmReply_t& rep) {
  errno = rep.err;
  return static_cast<int>(rep.result);
}

#endif  // QMX_HSM_RDM_RDM_MAKE_CALL_H_
