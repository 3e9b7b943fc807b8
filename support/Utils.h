/* Clock, bit, hex and settings-file helpers. */
#ifndef ZR4410_SUPPORT_UTILS_H
#define ZR4410_SUPPORT_UTILS_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* --- Clock --- */

/* Milliseconds of the monotonic clock (its origin is the clock's own, only differences mean anything).
   0, or the negative result of the clock call: then *milliseconds is untouched and "clock_gettime failed." stands
   on standard output. */
int GetMsFromStart(uint64_t* milliseconds);

/* Writes the local time as "YYYYMMDDhhmmss" with its terminating zero; text holds at least 16 bytes. Returns 0. */
int GetCurrentDayTime(char* text);

/* 0 if the RTC driver's text file /proc/driver/rtc begins with "rtc_time"; -1 otherwise, also when it cannot be
   read. */
int IsRtcTime(void);

/* --- Bits of a 32-bit word --- */

/* Sets bit (0..31) of *word to value (0 or 1). 0; -1 and nothing changed when either is out of range. */
int SetBitUint(uint32_t bit, uint32_t value, uint32_t* word);

/* The bit (0 or 1), or -1 for a bit number above 31. */
int GetBitUint(uint32_t bit, uint32_t word);

/* --- Hex texts --- */

/* 0 if every character is a hex digit of either case (also for an empty text), -1 otherwise. */
int IsHexString(const char* text);

/* The value, 0..255, of the text's first two characters read as hex; one character is one digit, none is 0. */
uint8_t Hex2Byte(const char* text);

/* Converts two digits a byte, an odd last digit is dropped. 0; -1 and nothing written if that gives more than the
   16 bytes that out must hold. */
int HexStr2Bytes(const char* text, uint8_t* out);

/* --- Settings file: key=value lines of at most 255 characters, '#' comments --- */

/* Copies the value of the first line that begins with key and has a '='. Blanks before the value and double
   quotes around it are dropped, and it is cut at its first unprintable character.
   out: 256 bytes always suffice; untouched when the key is not found.
   0, also when the key is not found; -1 on a null argument or a file that cannot be opened. */
int sysconf_fget(const char* path, const char* key, char* out);

/* Replaces the value of every line that begins with key and has a '=', through path + ".tmp" (127 characters at
   most) and an atomic rename. A key that does not occur is not added.
   0; -1 on a null argument, an unopenable file, a temporary file that cannot be made or written whole, or a failed
   rename: then the settings file is as it was. */
int sysconf_fset(const char* path, const char* key, const char* value);

ZR4410_END_DECLS

#endif
