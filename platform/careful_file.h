// The one careful way to open the files the system reads and to write the
// files it keeps.
//
// Files are hostile until checked.  A name given for reading may lead to a
// directory, a FIFO that nobody writes, a device that never ends
// (/dev/zero), a socket, or a symbolic link to somebody else's file; a
// file the system writes may have been replaced by a link that points out
// of its directory.  These functions open without blocking, refuse what is
// not a regular file (telling what it is instead), never follow a link
// where the system keeps its own state, bound what they read, and check
// every write.
//
// Every function returns 0 (or a descriptor) on success and -1 with errno
// on failure; errno is kept as the failing call left it, except:
//   EINVAL: not a regular file; *kind (when asked for) says what it is
//     (psFileDirectory, psFileFifo, ...), so that the caller can print a
//     message that names both the file and its kind;
//   ELOOP: the last component is a symbolic link where none is allowed;
//   EFBIG: the file is larger than the caller's bound.
//
// Thread safety: all functions may be called from any thread.
#ifndef QMX_PLATFORM_CAREFUL_FILE_H_
#define QMX_PLATFORM_CAREFUL_FILE_H_

#include <sys/types.h>

#include <cstddef>
#include <string>

// What a path turned out to be.
enum psFileKind_t : int {
  psFileRegular = 0,
  psFileDirectory,
  psFileFifo,
  psFileSocket,
  psFileCharDevice,
  psFileBlockDevice,
  psFileSymlink,
  psFileOther,
  psFileMissing,  // nothing there (errno ENOENT)
};

// A word for |kind| ("directory", "FIFO", "socket", "character device",
// "block device", "symbolic link", "special file", "regular file",
// "missing file"), for trace lines; messages take their words from the
// catalogue.
const char* psFileKindName(psFileKind_t kind);

// How a file that is to be read may be reached.
enum psLinkRule_t : int {
  psFollowLinks = 0,  // a file the user named: links are the user's business
  psNoLinks = 1,      // the system's own state: the last component may not be a link
};

// Opens |path| for reading: without blocking (a FIFO or a device with no
// writer does not hold the caller), close-on-exec, never as a controlling
// terminal.  Anything but a regular file is closed again and refused
// (EINVAL, *kind says what it is).  The descriptor returned blocks again
// as usual.  |kind| may be null.
int psOpenForReading(const char* path, psLinkRule_t links, psFileKind_t* kind);

// Reads the whole regular file |path| into |*out|, at most |maxBytes|
// (EFBIG when it holds more).  Opens as psOpenForReading does.
int psReadWholeFile(const char* path, psLinkRule_t links, size_t maxBytes, std::string* out,
                    psFileKind_t* kind);

// Reads at most |maxBytes| of the regular file open on |fd| into |*out|
// (EFBIG when there is more), retrying interrupted and short reads.
int psReadAllFd(int fd, size_t maxBytes, std::string* out);

// Writes all |n| bytes to |fd|, retrying interrupted and short writes.
// -1 with errno (ENOSPC, EIO, EPIPE ...) when any byte could not be
// written.
int psWriteAll(int fd, const void* p, size_t n);

// Opens (creating with |mode| when absent) one of the system's own files
// for writing, as |flags| asks (O_WRONLY or O_RDWR, and O_APPEND or
// O_TRUNC as wished; O_CREAT, O_NOFOLLOW, O_NONBLOCK, O_CLOEXEC and
// O_NOCTTY are added): never through a symbolic link in the last
// component (ELOOP), and only to a regular file (EINVAL with *kind).
// |kind| may be null.
int psOpenOwnFile(const char* path, int flags, mode_t mode, psFileKind_t* kind);

// Replaces the system's own file |path| by |n| bytes at |p|, atomically: a
// new file is written in the same directory, flushed to disk and renamed
// over the old one, so that a reader sees the old content or the new,
// never a part, and a writer killed at any point leaves one or the other.
// A symbolic link in place of |path| is replaced, never followed.  The new
// file gets |mode|.  Returns 0, or -1 with errno (the old file is then
// untouched and no temporary file is left).
int psReplaceFile(const char* path, const void* p, size_t n, mode_t mode);

#endif  // QMX_PLATFORM_CAREFUL_FILE_H_
