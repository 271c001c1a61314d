// The node's space-management configuration that the DMAPI layer reads:
// the table of managed file systems and the HSM instance number.
//
// Both are small text files in "/etc/zpln/SpaceMan/config" under the
// system root:
//  - "dmiFSTable": one managed file system (mount point or virtual mount
//    point) per line, absolute paths; blank lines and lines starting with
//    '#' are skipped.  The first entry also holds the session logs.
//  - "dmiInstanceNo": the instance number, a decimal from 1 to 32767.
//    Without the file the node is instance 1.
// Files are read on every call: they are tiny and administrators change
// them while daemons run.
#ifndef QMX_HSM_DMAPI_FS_CONFIG_H_
#define QMX_HSM_DMAPI_FS_CONFIG_H_

#include <string>
#include <vector>

// Paths of the two files in force.
std::string dmiFSTablePath();
std::string dmiInstanceNoPath();

// Reads the managed file-system table into |out|.  Returns 0 (a missing
// table is an empty one), or -1 with |*error| saying which file and line is
// wrong (a relative path) or why it can't be read; |out| is then empty.
int dmiReadFSTable(std::vector<std::string>* out, std::string* error);

// The first managed file system into |out|.  Returns 0, or -1 when the
// table can't be read or is empty (|*error| says which).
int dmiFirstManagedFS(std::string* out, std::string* error);

// The managed file system that holds |path|: the longest table entry that
// is |path| or a directory above it.  Returns 0, or -1 with |*error| when
// there is none or the table can't be read.
int dmiGetFSName(const std::string& path, std::string* out, std::string* error);

// Reads the instance number.  Returns 0 with *out, or -1 with |*error|
// naming the file and its bad content (*out is then 0).
int dmiReadInstanceNo(short* out, std::string* error);

// The instance number for callers that only need it: 0 when the file is
// unusable (dmiReadInstanceNo tells why).
short getInstanceNo();

#endif  // QMX_HSM_DMAPI_FS_CONFIG_H_
