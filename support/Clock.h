/* The monotonic clock, the local time and the check for a working RTC. */
#ifndef ZR4410_SUPPORT_CLOCK_H
#define ZR4410_SUPPORT_CLOCK_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Stores the time of the monotonic clock in *milliseconds. Its starting point is arbitrary: only differences are
   meaningful. Returns 0; the negative result of the clock call if it fails. *milliseconds is then unchanged, and
   "clock_gettime failed." is printed to standard output. */
int GetMsFromStart(uint64_t* milliseconds);

/* Writes the local time as "YYYYMMDDhhmmss", followed by two zero bytes. text must hold 16 bytes. Returns 0. */
int GetCurrentDayTime(char* text);

/* Returns 0 if the RTC driver's text file /proc/driver/rtc begins with "rtc_time"; -1 if it does not, or if
   it cannot be read, which is logged. */
int IsRtcTime(void);

ZR4410_END_DECLS

#endif
