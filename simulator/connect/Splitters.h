// Splits the bytes of a line, which arrive in pieces of any size, into frames or packets.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "simulator/model/Bytes.h"
#include "simulator/model/Relay.h"
#include "simulator/model/Time.h"

namespace sim {

// A longer silence ends an incomplete frame or packet, because neither contains so long a pause.
constexpr Time kLongestPause = 100 * kMillisecond;

// UART1 frames. Bytes that are not part of a frame are dropped and counted.
class FrameSplitter {
 public:
  void Feed(ByteView bytes);
  // Returns the next whole frame with a correct checksum; nothing if more bytes are needed.
  std::optional<Frame> Next();
  // To be called when the line has been silent for kLongestPause. Drops the start byte of an incomplete frame. Next may
  // then find a frame after it.
  void Idle();
  bool Waiting() const { return !pending_.empty(); }
  std::uint64_t Dropped() const { return dropped_; }

 private:
  Bytes pending_;
  std::uint64_t dropped_ = 0;
};

// VISCA packets, 8x or 9x ... FF. Bytes outside packets are dropped and counted. A packet that is too long is cut to
// one byte more than the maximum, so that the receiver rejects it.
class ViscaSplitter {
 public:
  void Feed(ByteView bytes);
  std::optional<Bytes> Next();
  // To be called when the line has been silent for kLongestPause. Drops an incomplete packet.
  void Idle();
  bool Waiting() const { return !pending_.empty(); }
  std::uint64_t Dropped() const { return dropped_; }

 private:
  Bytes pending_;
  std::deque<Bytes> packets_;
  std::uint64_t dropped_ = 0;
};

}  // namespace sim
