// File-system space queries.
#ifndef QMX_PLATFORM_FSINFO_H_
#define QMX_PLATFORM_FSINFO_H_

#include <cstdint>

// Blocks of the file system holding |path| that unprivileged users may still
// use (statvfs64's f_bavail) into |*avail|.  Returns 0, or the errno of the
// failing query.
int psFsAvailBlocks(const char* path, uint64_t* avail);

#endif  // QMX_PLATFORM_FSINFO_H_
