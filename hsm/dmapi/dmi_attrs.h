// The DM attributes that the HSM keeps on files: names, sizes, and the
// text forms of the small ones.
//
//   "KVRObj"   124 bytes  migration record of a stub (dmi_record.h)
//   "KVRPMig"   28 bytes  external object id of a premigrated file's copy
//   "KVRServ"   65 bytes  server holding the copy, NUL-terminated, <= 64 chars
//   "KVRexID"   57 bytes  the external object id as 56 hex digits and a NUL
//   "KVRStat" 1020 bytes  space-management state of a file system
//   "KVRNoSp"             marks a space-reserve file
#ifndef QMX_HSM_DMAPI_DMI_ATTRS_H_
#define QMX_HSM_DMAPI_DMI_ATTRS_H_

#include <cstddef>

#include "hsm/provider/dmapi_iface.h"

#define DMI_ATTR_OBJ "KVRObj"
#define DMI_ATTR_PMIG "KVRPMig"
#define DMI_ATTR_SERV "KVRServ"
#define DMI_ATTR_EXTID "KVRexID"
#define DMI_ATTR_STAT "KVRStat"
#define DMI_ATTR_NOSPACE "KVRNoSp"

constexpr size_t dmiObjSize = 124;
constexpr size_t dmiExtObjIdSize = 28;
constexpr size_t dmiServNameSize = 65;  // 64 characters and the NUL
constexpr size_t dmiExtIdHexSize = 57;  // 56 hex digits and the NUL
constexpr size_t dmiStatSize = 1020;

// The external object id of a file's copy on the server.
struct s_midExtObjId {
  unsigned char id[dmiExtObjIdSize];
};

// A zero-filled attribute name holding the first 8 bytes of |name|.
dm_attrname_t dmiAttrName(const char* name);

// The "KVRexID" value of |id|: 56 upper-case hex digits and a NUL.
void dmiExtObjIdToHex(const s_midExtObjId& id, char (&out)[dmiExtIdHexSize]);
// Parses a "KVRexID" value (either letter case).  Returns 0, or -1 when it
// is not exactly 56 hex digits followed by a NUL or the end of |len| bytes.
int dmiExtObjIdFromHex(const char* text, size_t len, s_midExtObjId* id);

// The "KVRServ" value for server |name|: the name and zero bytes up to 65.
// Returns 0, or -1 when |name| is null or longer than 64 characters.
int dmiServerNameValue(const char* name, char (&out)[dmiServNameSize]);

#endif  // QMX_HSM_DMAPI_DMI_ATTRS_H_
