/* The monotonic clock, the local time and the check for a working RTC. */
#ifndef ZR4410_SUPPORT_CLOCK_H
#define ZR4410_SUPPORT_CLOCK_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Reads the monotonic clock into *milliseconds. Its origin is the clock's own: only differences are meaningful.
   Returns 0, or the negative result of the clock call: *milliseconds is then unchanged, and "clock_gettime failed."
   has been printed to standard output. */
int GetMsFromStart(uint64_t* milliseconds);

/* Writes the local time as "YYYYMMDDhhmmss" and its terminating zero; text must hold at least 16 bytes. Returns 0. */
int GetCurrentDayTime(char* text);

/* Returns 0 if the RTC driver's text file /proc/driver/rtc begins with "rtc_time"; -1 if it does not, or cannot be
   read. */
int IsRtcTime(void);

ZR4410_END_DECLS

#endif
