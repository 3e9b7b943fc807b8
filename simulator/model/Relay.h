// Encodes and decodes the relay message of the queues and the UART1 frame in it.
//
//   relay message   AA AA  sequence-id  frame-length  frame...     36 bytes, the rest unused
//   frame           AA  code  L  data[L]  checksum  55             the frame length is L + 5
#pragma once

#include <cstdint>
#include <string_view>

#include "simulator/model/Bytes.h"

namespace sim {

// Offsets and sizes in the relay message.
constexpr std::size_t kSequenceAt = 2;
constexpr std::size_t kFrameLengthAt = 3;
constexpr std::size_t kFrameAt = 4;
constexpr std::size_t kBodySize = 36;
// In the frame.
constexpr std::size_t kDataAt = 3;
constexpr std::size_t kFrameOverhead = 5;  // start, code, L, checksum, stop
constexpr std::size_t kMaxData = 16;
constexpr std::uint8_t kFrameStart = 0xAA;
constexpr std::uint8_t kFrameStop = 0x55;
constexpr std::uint8_t kCameraCode = 0x02;  // "[Sony Lens] Visca Command"
constexpr std::uint8_t kReplyBit = 0x80;    // a reply's code is the request's plus this

struct Frame {
  std::uint8_t code = 0;
  Bytes data;  // more than kMaxData bytes only for a fault

  Bytes Encode() const;
};
// The byte that makes the sum of all bytes 0 modulo 256.
std::uint8_t Checksum(ByteView bytes);
constexpr std::uint8_t ReplyCode(std::uint8_t request) { return static_cast<std::uint8_t>(request + kReplyBit); }

// Returns whether the frame is the notice that the tool sends after a signal: four bytes that are not a VISCA packet.
// It is for the daemon only and is never answered.
bool IsNotice(const Frame& frame);

enum class Flaw : std::uint8_t { None, Size, Header, FrameLength, Start, Length, Checksum, Stop };
std::string_view FlawText(Flaw flaw);

struct Relay {
  std::uint8_t sequence = 0;
  Frame frame;
  Flaw flaw = Flaw::None;  // the first flaw found; `sequence` and `frame` contain what was read before it
};
Relay DecodeRelay(ByteView body);
// A frame that is too long is cut off at the end of the message.
Bytes EncodeRelay(std::uint8_t sequence, ByteView frame);
// The sequence id of a message of any size; 0 if it is too short to have one.
std::uint8_t Sequence(ByteView body);

}  // namespace sim
