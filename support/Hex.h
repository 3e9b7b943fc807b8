/* Bits of a 32-bit word, and hexadecimal text. */
#ifndef ZR4410_SUPPORT_HEX_H
#define ZR4410_SUPPORT_HEX_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Sets bit (0..31) of *word to value (0 or 1). Returns 0; -1 if either is out of range: *word is then unchanged. */
int SetBitUint(uint32_t bit, uint32_t value, uint32_t* word);

/* Returns the bit (0 or 1) of word; -1 for a bit number above 31. */
int GetBitUint(uint32_t bit, uint32_t word);

/* Returns 0 if all characters are hex digits, upper or lower case, or the text is empty; -1 otherwise. */
int IsHexString(const char* text);

/* Returns the value, 0..255, of the first two characters of text, read as hex digits. A text of one character gives
   the value of one digit, an empty text 0. The characters are not checked. */
uint8_t Hex2Byte(const char* text);

/* Converts each pair of hex digits to a byte; an odd last digit is ignored. out must hold 16 bytes.
   Returns 0; -1 if the text gives more than 16 bytes: out is then unchanged. */
int HexStr2Bytes(const char* text, uint8_t* out);

ZR4410_END_DECLS

#endif
