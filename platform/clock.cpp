#include "platform/clock.h"

#include <sys/time.h>

uint32_t GetTod() {
  return static_cast<uint32_t>(time(nullptr));
}

void psGetTimeMs(time_t* secs, unsigned long* millis) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  if (secs != nullptr) *secs = ts.tv_sec;
  if (millis != nullptr) *millis = static_cast<unsigned long>(ts.tv_nsec / 1000000);
}

struct tm* psLocalTime(time_t t, struct tm* out) {
  if (out == nullptr) return nullptr;
  return localtime_r(&t, out);
}
