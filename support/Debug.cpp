#include "support/Debug.h"

#include <cstdio>

int32_t gfDebugFlag, giDebug;

uint32_t DebugEnable(uint32_t bit, uint32_t word) {
  const uint32_t shift = bit & 0xFF;
  return shift < 32 ? word >> shift & 1 : 0;
}

int DumpData(const uint8_t* bytes, int32_t count) {
  printf("(%d): ", count);
  for (int32_t i = 0; i < count; ++i) {
    if (i % 16 == 0) {
      putchar('\n');
    }
    printf("%02X ", bytes[i]);
  }
  return putchar('\n');
}
