// The system root: where the fixed absolute paths of the client live.
//
// Every fixed absolute path that the system uses (client directories, the
// recall daemon's executable, "/etc/zpln/SpaceMan", run-time directories and
// sockets) is looked up through psSysPath().  When the environment variable
// QMX_SYSROOT names a directory R, the path P becomes R followed by P, so that
// tests, the demo and packagers can run a whole client inside a sandbox.
// Unset or empty, paths stand as they are.  QMX_DIR, QMX_CONFIG and QMX_LOG
// keep their own meaning on top of this.
//
// Thread safety: safe to call from any thread as long as nobody changes the
// environment concurrently.
#ifndef QMX_PLATFORM_SYSROOT_H_
#define QMX_PLATFORM_SYSROOT_H_

#include <cstddef>
#include <string>

// The system root in force: the value of QMX_SYSROOT without trailing "/",
// or "" when unset or empty.
std::string psSysRoot();

// Maps a fixed absolute path under the system root.  |path| must be
// absolute; a relative path is returned unchanged.
std::string psSysPath(const char* path);

// The same into a caller's buffer of |size| bytes.  Returns |buf|, or null
// when the mapped path does not fit (the buffer is then left empty).
char* psSysPath(const char* path, char* buf, size_t size);

#endif  // QMX_PLATFORM_SYSROOT_H_
