// The session-log marker: a file that records a live session of the node.
#ifndef QMX_HSM_DMAPI_DMI_SESSINFO_H_
#define QMX_HSM_DMAPI_DMI_SESSINFO_H_

#include <cstddef>

#include "hsm/provider/dmapi_iface.h"

// The session-log marker "<fs>/.SpaceMan/logdir/sessionlog<N>/<sid>.sess"
// in the first managed file system; |instance| below 1 means this node's.
// Return 0 or -1 with errno.  The program "qmxmigrate" writes none.
int dmiSessionCreateInfo(dm_sessid_t sid);
int dmiSessionRemoveInfo(dm_sessid_t sid, int flag, int instance);
// The marker's path (empty when the file-system table has no entry).
int dmiSessionInfoPath(dm_sessid_t sid, int instance, char* buf, size_t size);

#endif  // QMX_HSM_DMAPI_DMI_SESSINFO_H_
