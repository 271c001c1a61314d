// The statuses of the root daemon's protocol that are not errno values.
// A reply's status is one of these or an errno: EAGAIN (the daemon is busy,
// ask again), EPROTO (the request did not decode), EOPNOTSUPP (no such
// call), or another errno when the daemon refused the request.
#ifndef QMX_HSM_RDM_RDM_STATUS_H_
#define QMX_HSM_RDM_RDM_STATUS_H_

#include <cstdint>

// The call was made; the reply's result, errno and output values are its.
constexpr int32_t rdmStatusMade = 0;

#endif  // QMX_HSM_RDM_RDM_STATUS_H_
