// File specifications: a canonical absolute path split into the file space
// (the mount point it lives in), the directory part below it and its name.
//
// The file space of a path is the longest of the machine's mount points and
// the registered virtual mount points that is a prefix of the path at a "/"
// boundary.  The mount table is read once per process from
// /proc/self/mountinfo; psFsReloadMounts() reads it again.
//
// Thread safety: the registry of virtual mount points and the cached mount
// table are meant to be set up at start-up, before other threads run.
#ifndef QMX_PLATFORM_FILE_SPACE_H_
#define QMX_PLATFORM_FILE_SPACE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "platform/platform_status.h"

// A split path.  fsName + hl + ll is the full path (with a file space of "/"
// contributing no character of its own).  ll begins with "/" unless empty.
struct fileSpec_t {
  char* fsName;  // file space: a mount point or a virtual mount point
  char* hl;      // directory part between the file space and the name ("" or "/a/b")
  char* ll;      // the name with its leading "/" ("" for the file space itself)
};

// Makes |path| canonical in place: runs of |sep| become one, "." components
// are dropped, ".." removes the component before it (never above the root),
// and a trailing separator is removed (except for the root itself).
// Returns |path|.
char* DoCanon(char* path, char sep);

// Splits the canonical absolute path |path| into a new fileSpec_t that the
// caller frees with freeFileSpec.  Returns null with *rc = PS_RC_BADARG for a
// path that is empty or not absolute, PS_RC_NOMEM when out of memory; *rc = 0
// on success.
// |flags| is reserved and must be 0.
fileSpec_t* parseBackOperand(const char* path, int* rc, int flags);

// A fileSpec_t built from its three parts (copied); null when out of memory.
fileSpec_t* newFileSpec(const char* fsName, const char* hl, const char* ll);
void freeFileSpec(fileSpec_t* fsp);

// The full path of |fsp| into |buf| of |size| bytes; null when it does not fit.
char* fsFullPath(const fileSpec_t* fsp, char* buf, size_t size);

// Registers an absolute directory that counts as a file space of its own
// (a virtual mount point).  The path is made canonical first.  Returns 0, or
// PS_RC_BADARG for a path that is not absolute.
int psAddVirtualMountPoint(const char* dir);
void psClearVirtualMountPoints();

// The file space of the canonical absolute path |path| (at least "/").
std::string psFileSpaceOf(const char* path);

// Reads the machine's mount table again.
void psFsReloadMounts();

#endif  // QMX_PLATFORM_FILE_SPACE_H_
