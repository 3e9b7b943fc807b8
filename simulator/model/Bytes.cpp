// Converts bytes to hexadecimal text and back.
#include "simulator/model/Bytes.h"

#include <cstdio>

namespace sim {
namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

std::string ToHex(ByteView bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X", byte);
    text += (text.empty() ? "" : " ") + std::string(digits);
  }
  return text;
}

std::optional<Bytes> FromHex(std::string_view text) {
  Bytes bytes;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    const int high = HexDigit(text[i]);
    const int low = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    i += 2;
  }
  return bytes;
}

}  // namespace sim
