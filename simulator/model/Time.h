// The model's time: microseconds of a clock that the caller keeps. Nothing in the model reads a clock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace sim {

using Time = std::int64_t;
constexpr Time kMillisecond = 1000;
constexpr Time kSecond = 1000 * kMillisecond;

// The earlier of two times of which either may be missing; nothing if both are.
constexpr std::optional<Time> Earlier(std::optional<Time> a, std::optional<Time> b) {
  return a && b ? std::min(*a, *b) : a ? a : b;
}

}  // namespace sim
