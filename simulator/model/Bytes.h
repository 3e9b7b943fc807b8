// Bytes, and the hexadecimal text for them in traces, captures and fault options.
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
// The reverse, in either case, with or without blanks between the bytes; nothing if `text` is anything else.
std::optional<Bytes> FromHex(std::string_view text);

}  // namespace sim
