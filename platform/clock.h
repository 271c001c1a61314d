// Time of day and local date and time.
#ifndef QMX_PLATFORM_CLOCK_H_
#define QMX_PLATFORM_CLOCK_H_

#include <cstdint>
#include <ctime>

// Seconds since the epoch, as the run statistics keep it (32 bits).
uint32_t GetTod();

// The current time with milliseconds: seconds since the epoch into |*secs|,
// milliseconds within the second into |*millis|.  Either may be null.
void psGetTimeMs(time_t* secs, unsigned long* millis);

// Local broken-down time of |t| into |*out| (thread-safe).  Returns |out|,
// or null when the conversion fails.
struct tm* psLocalTime(time_t t, struct tm* out);

#endif  // QMX_PLATFORM_CLOCK_H_
