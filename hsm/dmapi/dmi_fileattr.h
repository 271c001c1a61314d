// The DM attributes of managed files: migration state, the migration record
// "KVRObj", server name and external id, and the recall-mode request of the
// attribute command.
//
// Functions return 0 (or a state code) on success, -1 with errno on
// failure.  An absent attribute (errno ENOENT or ENODATA) decides a state;
// it is never an error of the state queries.  Messages: 9511 (read failed),
// 9512 (write failed), 9126 (fstat failed), 9535 (no handle), 9538 (bad
// request), 9184 (out of memory); they go to the trace and the error log.
#ifndef QMX_HSM_DMAPI_DMI_FILEATTR_H_
#define QMX_HSM_DMAPI_DMI_FILEATTR_H_

#include <cstddef>
#include <cstdint>

#include "hsm/dmapi/dmi_attrs.h"
#include "hsm/dmapi/dmi_record.h"
#include "hsm/dmapi/dmi_status.h"
#include "hsm/dmapi/xdsmapi.h"

// ---- The attribute command's request ---------------------------------

constexpr size_t migAttrPathSize = 1280;

enum : int32_t { migAttrQuery = 1, migAttrSet = 2 };

// Filled by the command (zeroed whole first), carried out by
// dmiEntryFileAttributes.
struct migAttrRequest {
  int32_t operation;           // migAttrQuery or migAttrSet
  uint32_t mask;               // set: bits of the attribute word to replace (255)
  uint32_t word;               // unused, left zero
  uint32_t value;              // set: the new bits; query: receives the attribute word
  uint32_t value2;             // query: receives the word at offset 60
  char path[migAttrPathSize];  // the file, NUL-terminated
  int32_t fd;                  // the file opened by the caller (fstat'ed)
};

// The entry of the attribute command: dmiFileAttr(sid, req, 0).  A |sid|
// of 0 or all ones means the process's session (dmiGetSid).  Returns 0, or
// -1 with errno: EPERM (not a regular file, not migrated, busy with a set,
// mode 255), EINVAL (partial recall on data that is or may be compressed),
// or the errno of the failing call.
int dmiEntryFileAttributes(dm_sessid_t sid, migAttrRequest* req);

// Queries or sets the recall mode of the migrated file of |req|.
// |skipStat| 1 skips the regular-file test on req->fd.
int dmiFileAttr(dm_sessid_t sid, migAttrRequest* req, int skipStat);

// ---- Handles -----------------------------------------------------------

// A handle for |path| into |*h|.  Returns 0 or -1 with errno.
int handleSetWithPath(xdsm_handle_t* h, const char* path);
// Releases |*h| (made by handleSetWithPath) and clears it.
void handleFree(xdsm_handle_t* h);
// Announces that the regular files of |dir| are about to be queried, so
// that the access object may fetch their handles and migration attributes
// in one go (XDSMAPI::prefetchDirAttributes).  Returns 0, or -1 with errno;
// a failure changes nothing but speed.
int dmiPrefetchDirAttributes(const char* dir);

// ---- Migration state ------------------------------------------------

// The state from "KVRObj" alone (dmiState* of hsm/dmapi/dmi_status.h):
// dmiStateInTransition or dmiStateTransition12 while in transition, else
// the stored state; dmiStateResident when absent; -1 on error (9511).  |id|
// (may be null) receives the record's first 28 bytes when present.
int dmiGetFileResStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, s_midExtObjId* id);
// The full migration state: as dmiGetFileResStat, and dmiStatePremigrated
// when only "KVRPMig" is present (|id| receives it).
int dmiGetFileMigStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, s_midExtObjId* id);
// Moves the file to |state|: dmiStatePremigrated writes "KVRPMig" (and
// "KVRexID" when external ids are recorded); dmiStateInTransition,
// dmiStateResident and dmiStateTransition12 rewrite the record's stored
// state and transition flag; any other state does nothing.
int dmiSetFileMigStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token,
                      const s_midExtObjId* id, int state, int flag);
// Removes "KVRPMig" (and "KVRexID" when recorded) and the managed region.
int dmiResetFileMigStat(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token);

// ---- The migration record ------------------------------------------

// Reads "KVRObj" into |*info|.  Returns 0, or -1 with errno (ENOENT when
// absent, EIO when it is not 124 bytes).
int dmiGetDMAttrib(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, dmiInfo* info);
// Writes |info| as "KVRObj", then "KVRexID" when external ids are recorded
// and "KVRServ" when server names are recorded and |withServerName| is 1.
// A full file system (ENOSPC, ENOMEM) releases one space-reserve file per
// retry.  Returns 0 or -1.
int dmiSetDMAttrib(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token, const dmiInfo& info,
                   int withServerName);

// ---- Server name and external id --------------------------------------

int dmiSetServerNameAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h,
                           const char* name);
// Reads up to 65 bytes into |buf| (at least dmiServNameSize bytes).
int dmiGetServerNameAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h, char* buf);
int dmiGetServerNameAttrib(dm_sessid_t sid, dm_token_t token, const char* path, char* buf);
int dmiRemoveServerNameAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h);
int dmiSetExtObjIDAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h,
                         const s_midExtObjId* id);
int dmiRemoveExtObjIDAttrib(dm_sessid_t sid, dm_token_t token, const xdsm_handle_t& h);

// 1 when the file carries attribute |name|, 0 when not, -1 on error.
int dmiFileHasDmAttr(dm_sessid_t sid, const xdsm_handle_t& h, const char* name);

// ---- Regions and file systems --------------------------------------

// Replaces the managed regions of the file by none.
int dmiClrMngRegion(dm_sessid_t sid, const xdsm_handle_t& h, dm_token_t token);
// The managed file system holding the file of |h| into |buf| (|size|
// bytes), from the handle's path and the file-system table.  Returns 0 or
// -1 with errno (ENOENT: in no managed file system).
int dmiGetFSName(dm_sessid_t sid, const xdsm_handle_t& h, char* buf, size_t size);

// The server name that records carry: the MIGRATESERVER option, else
// SERVERNAME ("" without options).
const char* dmiOptServerName();

#endif  // QMX_HSM_DMAPI_DMI_FILEATTR_H_
