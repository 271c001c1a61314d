// The root daemon's requests as a table: one row per request kind
// (rdmCall_t) with
//   - its decoder and encoder: the call's codec in hsm/rdm/rdm_calls.h;
//   - its rule: who may ask it and what it names (rootd_guard.h, whose
//     rtdApplyRule is the one function that applies a rule);
//   - its handler: the call of the real provider and the output values.
// Every request's authorisation can be read in the table; adding a
// request kind is adding its codec and one row.
//
// A request is answered in four steps: the row of its call (none: status
// EOPNOTSUPP); its arguments decoded exactly (otherwise status EPROTO);
// the row's rule applied to what the arguments name (a refusal is the
// call's result: -1 with errno, output values empty); the handler.  The
// rule looks at the decoded arguments by their names: a file's session,
// handle and token ("file"), "sid" or "oldsid", "handle", "token", and
// "path", "dir" or "info" as the text.
#ifndef QMX_HSM_ROOTD_ROOTD_REQUESTS_H_
#define QMX_HSM_ROOTD_ROOTD_REQUESTS_H_

#include <cstdint>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_proto.h"
#include "hsm/rootd/rootd_guard.h"

struct rtdRequestRow_t;

// Decodes |req|, applies |row|'s rule for |ctx|'s caller, makes the call
// and fills |rep|'s status, result, errno and output values.
typedef void (*rtdServeFn_t)(const rtdRequestRow_t& row, const rtdGuardContext_t& ctx,
                             const rdmRequest_t& req, rdmReply_t* rep);

struct rtdRequestRow_t {
  rdmCall_t call;
  const char* function;  // the DMAPI function named in refusal reports
  rtdRule_t rule;
  rtdServeFn_t serve;
};

// The row of |call|, or null when there is none.
const rtdRequestRow_t* rtdFindRequest(uint16_t call);

// Answers |req| for |ctx|'s caller: |rep| gets the call and key echoed, a
// status (rdm_status.h, or EPROTO, EOPNOTSUPP), the result, errno and
// output values.  Thread-safe (the context is the calling thread's for
// the call).
void rtdDispatch(const rtdGuardContext_t& ctx, const rdmRequest_t& req, rdmReply_t* rep);

// Answers |req| as for root through |dm|: every call made as asked, the
// directory call read as root, no session recorded.  For programs that
// stand in for the daemon (tests).
void rtdDispatchAsRoot(const dmapiBinding_t& dm, const rdmRequest_t& req, rdmReply_t* rep);

// Serves one request on the connection |fd| as rtdDispatchAsRoot does:
// reads it, answers it, writes the reply.  Returns 0 or -1 with errno.
int rtdServeConnection(int fd, const dmapiBinding_t& dm);

#endif  // QMX_HSM_ROOTD_ROOTD_REQUESTS_H_
