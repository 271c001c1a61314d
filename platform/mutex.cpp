#include "platform/mutex.h"

#include <cerrno>

int psMutexInit(psMutex_t* mx, int recursive) {
  if (mx == nullptr) return EINVAL;
  pthread_mutexattr_t attr;
  int rc = pthread_mutexattr_init(&attr);
  if (rc != 0) return rc;
  pthread_mutexattr_settype(&attr, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
  rc = pthread_mutex_init(&mx->m, &attr);
  pthread_mutexattr_destroy(&attr);
  mx->initialised = rc == 0 ? 1 : 0;
  return rc;
}

int psMutexDestroy(psMutex_t* mx) {
  if (mx == nullptr || !mx->initialised) return EINVAL;
  mx->initialised = 0;
  return pthread_mutex_destroy(&mx->m);
}

int psMutexLock(psMutex_t* mx) {
  if (mx == nullptr || !mx->initialised) return EINVAL;
  return pthread_mutex_lock(&mx->m);
}

int psMutexUnlock(psMutex_t* mx) {
  if (mx == nullptr || !mx->initialised) return EINVAL;
  return pthread_mutex_unlock(&mx->m);
}
