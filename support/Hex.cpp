// Bit access and the conversion of hexadecimal text. Nothing here logs.
#include "support/Hex.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kWordBits = 32;
constexpr size_t kMaxBytes = 16;  // of HexStr2Bytes

}  // namespace

int SetBitUint(uint32_t bit, uint32_t value, uint32_t* word) {
  if (bit >= kWordBits || value >= 2) {
    return -1;
  }
  *word = (*word & ~(1U << bit)) | value << bit;
  return 0;
}

int GetBitUint(uint32_t bit, uint32_t word) { return bit >= kWordBits ? -1 : static_cast<int>(word >> bit & 1); }

int IsHexString(const char* text) { return text[strspn(text, "0123456789ABCDEFabcdef")] == 0 ? 0 : -1; }

uint8_t Hex2Byte(const char* text) {
  char digits[3] = {};
  memcpy(digits, text, strnlen(text, 2));
  return static_cast<uint8_t>(strtol(digits, nullptr, 16) & 0xFF);
}

int HexStr2Bytes(const char* text, uint8_t* out) {
  const size_t count = strlen(text) / 2;
  if (count > kMaxBytes) {
    return -1;
  }
  for (size_t k = 0; k < count; ++k) {
    out[k] = Hex2Byte(text + 2 * k);
  }
  return 0;
}
