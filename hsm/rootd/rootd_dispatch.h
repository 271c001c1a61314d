// The daemon's side of the protocol (hsm/rdm/rdm_proto.h): a request
// decoded and made as a call through a provider binding, its output values
// encoded into the reply.
#ifndef QMX_HSM_ROOTD_ROOTD_DISPATCH_H_
#define QMX_HSM_ROOTD_ROOTD_DISPATCH_H_

#include <cstdint>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rdm/rdm_proto.h"

// Makes the call of |req| through |dm| and fills |rep| (call and key
// echoed, status 0, result, errno, output values).  A request whose
// payload does not decode exactly gets status EPROTO; an unknown call
// EOPNOTSUPP.  The directory call is answered by |dirFn| (with |dirArg|)
// when given, else by rtdAnswerDirAttrsAsRoot through |dm|; either returns 0, or
// -1 with errno, and writes the entries only on success.
typedef int64_t (*rtdDirFn_t)(void* arg, const rdmDirQuery_t& q, rdmWriter* out);
void rtdProviderDispatch(const dmapiBinding_t& dm, const rdmRequest_t& req, rdmReply_t* rep,
                         rtdDirFn_t dirFn = nullptr, void* dirArg = nullptr);

// Serves one connection: reads a request, dispatches it, writes the reply.
// Returns 0 or -1 with errno.
int rtdServeConnection(int fd, const dmapiBinding_t& dm);

#endif  // QMX_HSM_ROOTD_ROOTD_DISPATCH_H_
