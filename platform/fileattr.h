// Attributes of file-system objects and directory listings, as the commands
// see them.  Symbolic links are never followed.
#ifndef QMX_PLATFORM_FILEATTR_H_
#define QMX_PLATFORM_FILEATTR_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "platform/file_space.h"

// Kind of an object: the low three bits of Attrib::type.
enum : uint16_t {
  ATTR_KIND_MASK = 0x07,
  ATTR_KIND_OTHER = 0,
  ATTR_KIND_FILE = 1,
  ATTR_KIND_DIR = 2,
  ATTR_KIND_CHAR = 3,
  ATTR_KIND_BLOCK = 4,
  ATTR_KIND_FIFO = 5,
  ATTR_KIND_SOCKET = 6,
  // Bits 3 to 5: the link mark.  A symbolic link is kind FILE with the mark
  // value 2 (type & 0x38 == 0x10).
  ATTR_LINK_MASK = 0x38,
  ATTR_LINK_SYMLINK = 0x10,
};

struct Attrib {
  uint16_t type;  // kind and link mark, see above
  mode_t mode;    // permission bits and file type as lstat gives them
  uid_t uid;
  gid_t gid;
  uint64_t size;
  int64_t mtime;
  int64_t atime;
  int64_t ctime;
  dev_t dev;
  ino_t ino;
  nlink_t nlink;
};

// True for a plain file (kind FILE without the link mark).
inline bool attrIsPlainFile(const Attrib& a) {
  return (a.type & ATTR_KIND_MASK) == ATTR_KIND_FILE && (a.type & ATTR_LINK_MASK) == 0;
}
inline bool attrIsDir(const Attrib& a) {
  return (a.type & ATTR_KIND_MASK) == ATTR_KIND_DIR;
}
inline bool attrIsSymlink(const Attrib& a) {
  return (a.type & ATTR_LINK_MASK) == ATTR_LINK_SYMLINK;
}

// Fills |*attr| from an lstat of |path|.  Returns 0, or -1 with errno set.
int fioStatPath(const char* path, Attrib* attr);

// The attributes of the object that |fsp| names.  |flags| is reserved (0).
// Returns 0, or -1 with errno set.
int fioGetAttrib(const fileSpec_t* fsp, Attrib* attr, int flags);

// One entry of a directory listing.  |name| begins with "/".
struct dirEntry_t {
  dirEntry_t* next;
  Attrib attr;
  char name[1];  // allocated to the name's length
};

// Where a listing's entries come from: a function returning |size| bytes (or
// null) from the caller's arena, typically a memory pool; the entries are
// never freed one by one.
typedef void* (*fioAlloc_t)(void* ctx, size_t size);

// Reads the entries of directory |dir| ("." and ".." left out) into a list
// sorted in byte order of name, allocated through |alloc|.  An entry that
// vanishes between reading the directory and looking at it is left out.
// Returns 0 with *head set (null for an empty directory), or -1 with errno
// set (ENOMEM when |alloc| failed).
int fioGetDirEntries2(const char* dir, fioAlloc_t alloc, void* ctx, dirEntry_t** head);

// File attributes as the commands hold them.
class HFileAttributes {
 public:
  HFileAttributes() = default;
  virtual ~HFileAttributes() = default;
  // The owner's user id.
  uid_t getAduUserId() const { return attr_.uid; }
  const Attrib& attrib() const { return attr_; }

 protected:
  Attrib attr_{};
};

// Attributes of one named object of a file space.
class HPsFileAttributes : public HFileAttributes {
 public:
  // Takes the attribute record, the object's path and its file space.
  void setFileAttributes(const Attrib* attr, const char* path, const char* fsName);
  const char* path() const { return path_; }
  const char* fsName() const { return fsName_; }

 private:
  const char* path_ = "";
  const char* fsName_ = "";
};

#endif  // QMX_PLATFORM_FILEATTR_H_
