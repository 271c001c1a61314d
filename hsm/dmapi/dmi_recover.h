// Taking over the session a daemon of the same name left behind.
#ifndef QMX_HSM_DMAPI_DMI_RECOVER_H_
#define QMX_HSM_DMAPI_DMI_RECOVER_H_

#include "hsm/provider/dmapi_iface.h"

// Takes over the orphaned session called |name| (|sid| unused: the session
// is found by name).  |reuse| 1 keeps the old session for this process,
// else its events are answered and it is destroyed after the takeover.
// Returns 0 (also when there was nothing to recover) or -1.
int dmiRecoverObsoletedSession(dm_sessid_t sid, const char* name, int reuse);

#endif  // QMX_HSM_DMAPI_DMI_RECOVER_H_
