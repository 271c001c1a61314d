// Plain and recursive mutexes of the platform layer.
//
// psMutex_t wraps a POSIX mutex so that the rest of the client names one
// type.  All functions return 0 on success or the error number of the
// failing call.  A mutex must be initialised before use and destroyed once.
#ifndef QMX_PLATFORM_MUTEX_H_
#define QMX_PLATFORM_MUTEX_H_

#include <pthread.h>

struct psMutex_t {
  pthread_mutex_t m;
  int initialised;  // 1 between psMutexInit and psMutexDestroy
};

// |recursive| non-zero makes a mutex that the owning thread may take again
// (released as often as it was taken).
int psMutexInit(psMutex_t* mx, int recursive);
int psMutexDestroy(psMutex_t* mx);
int psMutexLock(psMutex_t* mx);
int psMutexUnlock(psMutex_t* mx);

// Scope guard: holds |mx| for its lifetime.  |mx| may be null (no locking).
class psMutexGuard {
 public:
  explicit psMutexGuard(psMutex_t* mx) : mx_(mx) {
    if (mx_ != nullptr) psMutexLock(mx_);
  }
  ~psMutexGuard() {
    if (mx_ != nullptr) psMutexUnlock(mx_);
  }
  psMutexGuard(const psMutexGuard&) = delete;
  psMutexGuard& operator=(const psMutexGuard&) = delete;

 private:
  psMutex_t* mx_;
};

#endif  // QMX_PLATFORM_MUTEX_H_
