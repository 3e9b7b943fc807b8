/* The two debug switches and the hex dump. */
#ifndef ZR4410_SUPPORT_DEBUG_H
#define ZR4410_SUPPORT_DEBUG_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

extern int32_t gfDebugFlag; /* option -g: 1 dumps every queue message and adds debug log lines */
extern int32_t giDebug;     /* settings key EXT_DEBUG: bit mask, see DebugEnable; bit 15 logs VISCA completions */

/* Returns the bit (0 or 1) of word. Only the low 8 bits of the bit number count; 32..255 there gives 0. */
uint32_t DebugEnable(uint32_t bit, uint32_t word);

/* Prints "(count): " and count bytes in hex, 16 per line, to standard output; no bytes if count is 0 or negative.
   Returns the result of the last putchar. */
int DumpData(const uint8_t* bytes, int32_t count);

ZR4410_END_DECLS

#endif
