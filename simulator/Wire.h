// The relay message and the UART1 frame inside it: bytes in, bytes out.
//
//   relay body   AA AA  id  frame-length  frame...  (36 bytes, the rest unused)
//   frame        AA  code  L  data[L]  checksum  55
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "simulator/Protocol.h"

namespace sim {

constexpr std::size_t kBodySize = 36;
constexpr std::size_t kMaxData = 16;
constexpr std::uint8_t kCameraCode = 0x02;  // "[Sony Lens] Visca Command"
constexpr std::uint8_t kReplyBit = 0x80;

struct Frame {
  std::uint8_t code = 0;
  Bytes data;  // a frame may hold more than the 16 bytes of the protocol when a fault asks for it

  Bytes Encode() const;
};
// Sums to zero with the bytes before it.
std::uint8_t Checksum(ByteView bytes);

// The tool's signal notice: four bytes that are no VISCA packet, meant for the daemon; nobody waits for an answer.
bool IsNotice(const Frame& frame);

enum class Flaw : std::uint8_t { None, Size, Header, FrameLength, Start, Length, Checksum, Stop };
std::string_view FlawText(Flaw flaw);

struct Relay {
  std::uint8_t sequence = 0;
  Frame frame;
  Flaw flaw = Flaw::None;  // the first thing wrong; the fields before it can be relied on
};
Relay DecodeRelay(ByteView body);
Bytes EncodeRelay(std::uint8_t sequence, ByteView frame);

// "AA 10 01", and back; FromHex takes blanks between the bytes or none.
std::string ToHex(ByteView bytes);
std::optional<Bytes> FromHex(std::string_view text);

// Cuts a byte stream into UART1 frames; whatever is no frame is dropped and counted. Idle() says that the line has
// been silent for longer than a frame may pause: what is still incomplete was no frame.
class FrameSplitter {
 public:
  void Feed(ByteView bytes);
  std::optional<Frame> Next();
  void Idle();
  bool Waiting() const { return !pending_.empty(); }
  std::uint64_t Dropped() const { return dropped_; }

 private:
  Bytes pending_;
  std::uint64_t dropped_ = 0;
};

// Cuts a byte stream into VISCA packets, 8x or 9x ... FF. What does not begin with an address is dropped and counted.
// A packet longer than sixteen bytes comes out cut to seventeen, for the receiver to refuse.
class ViscaSplitter {
 public:
  void Feed(ByteView bytes);
  std::optional<Bytes> Next();
  void Idle();
  bool Waiting() const { return !pending_.empty(); }
  std::uint64_t Dropped() const { return dropped_; }

 private:
  Bytes pending_;
  std::deque<Bytes> packets_;
  std::uint64_t dropped_ = 0;
};

}  // namespace sim
