// Whether a file system is under space management, as DMAPI sees it.
#ifndef QMX_HSM_DMAPI_FS_MODE_H_
#define QMX_HSM_DMAPI_FS_MODE_H_

#include <string>

#include "hsm/dmapi/dmapi_binding.h"

// The state file of file system |fsName|: "<fs>/.SpaceMan/dmiFSState".
std::string dmiFSStatePath(const char* fsName);

// The mode of file system |fsName| (a mount point or a virtual mount
// point) into *mode: 1 (managed) when its state file exists and carries
// the DM attribute "KVRStat", else 0.  Asks the provider of |dm| within
// session |sid|.  Returns 0, or -1 with errno when the provider fails for
// another reason than the state file or its attribute being absent.
int dmiGetFSMode(const dmapiBinding_t& dm, dm_sessid_t sid, const char* fsName, int* mode);

#endif  // QMX_HSM_DMAPI_FS_MODE_H_
