// Cut the bytes of a line, which come in pieces of any size, into frames or packets.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "simulator/model/Bytes.h"
#include "simulator/model/Relay.h"
#include "simulator/model/Time.h"

namespace sim {

// A line that is silent for longer ends what it has begun: neither frames nor packets pause for so long.
constexpr Time kLongestPause = 100 * kMillisecond;

// UART1 frames. Bytes that are not part of a frame are dropped and counted.
class FrameSplitter {
 public:
  void Feed(ByteView bytes);
  // The next whole frame with a right checksum; nothing if more bytes are needed.
  std::optional<Frame> Next();
  // The line has been silent for kLongestPause: drops the start byte of an incomplete frame. Next may then find a frame
  // behind it.
  void Idle();
  bool Waiting() const { return !pending_.empty(); }
  std::uint64_t Dropped() const { return dropped_; }

 private:
  Bytes pending_;
  std::uint64_t dropped_ = 0;
};

// VISCA packets, 8x or 9x ... FF. Bytes outside of packets are dropped and counted. A packet that is too long is cut to
// one byte more than a packet may have, for the receiver to reject.
class ViscaSplitter {
 public:
  void Feed(ByteView bytes);
  std::optional<Bytes> Next();
  // The line has been silent for kLongestPause: drops an incomplete packet.
  void Idle();
  bool Waiting() const { return !pending_.empty(); }
  std::uint64_t Dropped() const { return dropped_; }

 private:
  Bytes pending_;
  std::deque<Bytes> packets_;
  std::uint64_t dropped_ = 0;
};

}  // namespace sim
