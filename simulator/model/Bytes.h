// Byte sequences and their hexadecimal text, as in traces, captures and fault options.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// {0xAA, 0x10} -> "AA 10".
std::string ToHex(ByteView bytes);
// The reverse: upper or lower case, with or without spaces between the bytes. Returns nothing for any other text.
std::optional<Bytes> FromHex(std::string_view text);

}  // namespace sim
