// Space-reserve files of a managed file system.
//
// A managed file system keeps a few plain files in "<fs>/.SpaceMan/reserve"
// whose blocks the HSM can give back when the file system runs full, so
// that its daemons can still write their attributes and logs.  Releasing
// one is deleting it.
#ifndef QMX_HSM_DMAPI_SPACE_RESERVE_H_
#define QMX_HSM_DMAPI_SPACE_RESERVE_H_

#include <string>

// The reserve directory of file system |fsName| (plain concatenation).
std::string dmiSpaceReserveDir(const char* fsName);

// Releases up to |count| reserve files of |fsName|, oldest name first.
// Returns how many were released (0 when none is left, or the directory
// does not exist), or -1 with errno when the directory can't be read or a
// file can't be removed.
int dmiFreeSpaceReserved(const char* fsName, int count);

#endif  // QMX_HSM_DMAPI_SPACE_RESERVE_H_
