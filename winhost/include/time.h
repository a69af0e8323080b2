// The C library's own, and the calls that only the Windows one has.
#pragma once

#include_next <time.h>

typedef long long __time64_t;
typedef int errno_t;

// Seconds since 1970 by the PC's clock. time() and localtime() are the machine's: they know neither the PC's
// clock nor its time zone.
__time64_t _time64(__time64_t* time);
// Takes over the PC's time zone for later calls of localtime_s. The first of them does so by itself; a zone
// that changes afterwards has no effect until the next _tzset.
void _tzset();
// In the time zone that was taken over, in which %z of strftime then prints it too. 0, or EINVAL with every
// field at -1.
errno_t localtime_s(struct tm* local, const time_t* time);
// The same in UTC.
errno_t gmtime_s(struct tm* utc, const time_t* time);
// 26 characters with the NUL, as asctime makes them. 0, or EINVAL with an empty text.
errno_t asctime_s(char* buffer, size_t size, const struct tm* time);
