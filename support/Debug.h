/* The two debug switches and the hex dump. */
#ifndef ZR4410_SUPPORT_DEBUG_H
#define ZR4410_SUPPORT_DEBUG_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

extern int32_t gfDebugFlag; /* option -g: 1 dumps each queue message and the data of MCU_GetPTZ, adds debug log lines */
extern int32_t giDebug;     /* EXT_DEBUG: bit mask, see DebugEnable; bit 15: QM2150_ChecRespVisca logs completions */

/* Returns the bit of word (0 or 1) whose number is the low 8 bits of bit; 0 if that number is above 31. */
uint32_t DebugEnable(uint32_t bit, uint32_t word);

/* Prints "(count): " and then count bytes in upper-case hex to standard output: 16 per line, each byte followed by a
   space, each line preceded by a line feed, and a line feed at the end. Prints no bytes if count is 0 or negative.
   Returns '\n', or EOF if the last line feed could not be written. */
int DumpData(const uint8_t* bytes, int32_t count);

ZR4410_END_DECLS

#endif
