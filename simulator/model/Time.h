// The model's time, in microseconds. The caller passes it; nothing in the model reads a clock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace sim {

using Time = std::int64_t;
constexpr Time kMillisecond = 1000;
constexpr Time kSecond = 1000 * kMillisecond;

// Returns the earlier of two times, each of which may be missing; nothing if both are missing.
constexpr std::optional<Time> Earlier(std::optional<Time> a, std::optional<Time> b) {
  return a && b ? std::min(*a, *b) : a ? a : b;
}

}  // namespace sim
