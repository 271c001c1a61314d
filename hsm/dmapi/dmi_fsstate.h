// The space-management state: recall and migration switched on or off, once
// for the whole node (the global state file) and once per managed file
// system (the DM attribute "KVRStat" of its ".SpaceMan/dmiFSState").
//
// Functions return 0 or -1 with errno.  Messages 9511, 9512, 9527, 9528 and
// 9545 go to the trace (class DMI) and the error log.
#ifndef QMX_HSM_DMAPI_DMI_FSSTATE_H_
#define QMX_HSM_DMAPI_DMI_FSSTATE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "hsm/dmapi/xdsmapi.h"

constexpr size_t fsmPathSize = 1280;

// Flag bits of fsmState::flags.
enum : unsigned char {
  fsmRecallOn = 0x1,
  fsmMigrateOn = 0x2,
  fsmFlag2 = 0x4,  // carried unchanged
  fsmFlag3 = 0x8,  // carried unchanged
};

struct fsmState {
  unsigned char flags;       // bits 0-3, see above
  uint32_t value;            // carried between memory and disk unchanged
  char fsName[fsmPathSize];  // the file system; empty for the global state
};

// ---- Global state ------------------------------------------------------

// "/etc/zpln/SpaceMan/config/dmiFSGlobalState" under the system root.
std::string dmiGlobalStatePath();
// The name of its system lock (sys_lock.h).
extern const char* const dmiGlobalLockDir;   // "/etc/zpln/SpaceMan"
extern const char* const dmiGlobalLockFile;  // "/config/dmiFSGlobalState.pid"

// Bits 0 and 1 of |st|->flags from the global state file; other bits are
// kept.  Waits while a writer holds the lock; creates a missing file (both
// flags on); a damaged file is reported (9528), deleted, and -1 returned.
int dmiGetGlobalState(dm_sessid_t sid, fsmState* st);
// Writes bits 0 and 1 of |st|->flags to the global state file, holding the
// lock (five tries, 9545 after the last).
int dmiSetGlobalState(dm_sessid_t sid, const fsmState* st);
// Creates the global state file with recall and migration on; the caller
// holds the lock.  Returns 0 or -1.
int DmiCreateGlobalStateFile();

// How the global state waits between tries (5 seconds).  Tests replace it;
// null restores the default.  Returns the previous one.
typedef void (*dmiStateSleep_t)(unsigned seconds);
dmiStateSleep_t dmiSetStateSleep(dmiStateSleep_t fn);

// ---- Per-file-system state ---------------------------------------------

// Handle of the state file of file system |fsName|.  Returns 0 or -1.
int dmiGetFSStateHandle(const char* fsName, xdsm_handle_t* h);
// 1 in *mode when |fsName| is managed (its state file carries "KVRStat"),
// else 0.  Returns 0, or -1 with errno for another failure.
int dmiGetFSMode(dm_sessid_t sid, const char* fsName, int* mode);
// The four flags and the value from "KVRStat" of the state file |h|.  A
// |sid| of all ones means the process's session.
int dmiGetFSState(dm_sessid_t sid, const xdsm_handle_t& h, fsmState* st);
// Stores the four flags and the value into "KVRStat"; the rest of the
// 1020 bytes is kept as read.
int dmiSetFSState(dm_sessid_t sid, const xdsm_handle_t& h, const fsmState* st);

// Puts file system |fsName| under space management: ".SpaceMan", its state
// file and "KVRStat" with recall and migration on.  An existing "KVRStat"
// is kept.  Returns 0 or -1.
int dmiCreateFSState(dm_sessid_t sid, const char* fsName);
// Removes the state file of |fsName| (and so its state).  Returns 0 (also
// when there was none) or -1.
int dmiRemoveFSState(dm_sessid_t sid, const char* fsName);
// Makes the state of |fsName| readable again: a missing state file or a
// "KVRStat" of the wrong size is recreated with recall and migration on; a
// readable state is left alone.  Returns 0 or -1.
int DmiRecoverFSState(dm_sessid_t sid, const char* fsName);

// ---- Entries of the commands -----------------------------------------

// The global state into |st| (dmiGetGlobalState).
int dmiEntryGetGlobalState(dm_sessid_t sid, fsmState* st);
// The state of file system |st|->fsName: handle, mode check, read.
int dmiEntryGetFSState(dm_sessid_t sid, fsmState* st);
// The same for setting (the administrative commands and qmxstub).
int dmiEntrySetGlobalState(dm_sessid_t sid, const fsmState* st);
int dmiEntrySetFSState(dm_sessid_t sid, const fsmState* st);

#endif  // QMX_HSM_DMAPI_DMI_FSSTATE_H_
