// The system lock service: named locks shared by every process of the node.
//
// A lock is named by a directory and a lock-file name; the lock file is the
// directory followed by the name ("/etc/zpln/SpaceMan" + "/config/x.pid",
// the directory taken under the system root).  Taking the lock writes the
// holder's process id into the file and holds an open-file-description
// lock on it, so the lock is released when its holder closes it or dies,
// and two threads of one process exclude each other as two processes do.
//
// Thread safety: all functions may be called from any thread.
#ifndef QMX_HSM_DMAPI_SYS_LOCK_H_
#define QMX_HSM_DMAPI_SYS_LOCK_H_

#include <string>

// Kinds of lock for serQuerySysLock.
enum : int { serLockShared = 1, serLockExclusive = 2 };

// The lock file of lock (|dir|, |file|), |dir| mapped under the system root.
std::string serSysLockPath(const char* dir, const char* file);

// Whether somebody holds the lock in a way that conflicts with a lock of
// kind |kind| (serLockExclusive: any holder).  Returns 0 when free, 1 when
// held; -1 with errno ECONNABORTED when the lock file can't be used.  A
// missing lock file means free.
int serQuerySysLock(const char* dir, const char* file, int kind);

// Takes the lock without waiting.  Returns 0, or -1 with errno (EAGAIN or
// EACCES: held by someone else; another errno: the lock file can't be
// made).  Taking a lock this process holds already fails with EDEADLK.
int serAcquireSysLock(const char* dir, const char* file);

// Releases a lock this process holds.  Returns 0, or -1 with ENOLCK when it
// holds none of that name.
int serReleaseSysLock(const char* dir, const char* file);

#endif  // QMX_HSM_DMAPI_SYS_LOCK_H_
