// The debug switches, the test of one of their bits, and the hex dump.
#include "support/Debug.h"

#include <cstdio>

int32_t gfDebugFlag, giDebug;

namespace {

constexpr int32_t kBytesPerLine = 16;

}  // namespace

uint32_t DebugEnable(uint32_t bit, uint32_t word) {
  const uint32_t shift = bit & 0xFF;
  return shift < 32 ? word >> shift & 1 : 0;
}

int DumpData(const uint8_t* bytes, int32_t count) {
  printf("(%d): ", count);
  for (int32_t i = 0; i < count; ++i) {
    if (i % kBytesPerLine == 0) {
      putchar('\n');
    }
    printf("%02X ", bytes[i]);
  }
  return putchar('\n');
}
