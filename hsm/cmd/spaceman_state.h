// Whether a file system is under space management, and in what state.
//
// Every space-management command asks before it touches a file.  The state
// combines the node-wide (global) switches and the file system's own, as the
// DMAPI layer reports them.
#ifndef QMX_HSM_CMD_SPACEMAN_STATE_H_
#define QMX_HSM_CMD_SPACEMAN_STATE_H_

#include <cstddef>

#include "hsm/cmd/cmd_status.h"

// The state of the file system mounted at |fsName| (SPACEMAN_* of
// hsm/cmd/cmd_status.h).  errno is kept.
int getSpaceManState(const char* fsName);

// 0 when the space-management client is installed and |fsName| (null: any)
// is managed, else -1.  A file system without a DMAPI session
// (SPACEMAN_NOSESSION) or globally deactivated (SPACEMAN_GLOBALDEACTIVATED)
// counts as managed.
int qmxSpaceManIsInstalled(const char* fsName);

// |fsName| followed by "/.SpaceMan" into |buf| (plain concatenation).
// Returns |buf|.
char* qmxFSNameToSpaceManDir(const char* fsName, char* buf, size_t size);

#endif  // QMX_HSM_CMD_SPACEMAN_STATE_H_
