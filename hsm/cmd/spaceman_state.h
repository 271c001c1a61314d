// Whether a file system is under space management, and in what state.
//
// Every space-management command asks before it touches a file.  The state
// combines the node-wide (global) switches and the file system's own, as the
// DMAPI layer reports them.
#ifndef QMX_HSM_CMD_SPACEMAN_STATE_H_
#define QMX_HSM_CMD_SPACEMAN_STATE_H_

#include <cstddef>

// State codes of getSpaceManState.
enum : int {
  SPACEMAN_NOSESSION = -1,  // no DMAPI session could be had
  SPACEMAN_NONE = 0,        // not managed
  SPACEMAN_ACTIVE = 1,      // migration and recall on
  SPACEMAN_INACTIVE = 2,    // both off
  SPACEMAN_RECALLONLY = 3,  // recall on, migration off
  SPACEMAN_MIGONLY = 4,     // migration on, recall off
  SPACEMAN_GLOBALDEACTIVATED = 6,
};

// The state of the file system mounted at |fsName|.  errno is kept.
int getSpaceManState(const char* fsName);

// 0 when the space-management client is installed and |fsName| (null: any)
// is managed, else -1.  A file system without a DMAPI session (-1) or
// globally deactivated (6) counts as managed.
int qmxSpaceManIsInstalled(const char* fsName);

// |fsName| followed by "/.SpaceMan" into |buf| (plain concatenation).
// Returns |buf|.
char* qmxFSNameToSpaceManDir(const char* fsName, char* buf, size_t size);

#endif  // QMX_HSM_CMD_SPACEMAN_STATE_H_
