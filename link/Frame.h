// Constants and helpers shared by the product code that builds or reads a frame: the exchanges with the camera and the
// MCU, and the notice to the daemon.
#ifndef ZR4410_LINK_FRAME_H
#define ZR4410_LINK_FRAME_H

#include <cstddef>
#include <cstdint>

inline constexpr uint8_t kFrameStart = 0xAA;  // also each of the two relay header bytes
inline constexpr uint8_t kFrameStop = 0x55;
inline constexpr uint8_t kReplyBit = 0x80;      // a reply's command code is the request's plus this
inline constexpr uint8_t kMaxPayload = 16;      // bytes of payload of a request or a plain reply
inline constexpr uint8_t kFrameOverhead = 5;    // bytes of a frame around its payload: three before it, two after it
inline constexpr uint8_t kCommandVisca = 0x02;  // command code of every camera request
inline constexpr uint8_t kAcknowledged = 0x10;  // first data byte of the reply to a delivered command

// Offsets into the relay body. link/Relay.h has the whole layout.
enum RelayOffset : size_t {
  RELAY_SEQUENCE_ID = 2,
  RELAY_FRAME_LENGTH = 3,
  RELAY_START = 4,
};

// Writes the two header bytes into the outgoing body, increments the sequence id in it (255 is followed by 0) and
// copies the id to gbSeqId.
void FillRelayHeader(uint8_t* body);

// The bytes of a frame record.
template <typename Frame>
const uint8_t* FrameBytes(const Frame* frame) {
  return reinterpret_cast<const uint8_t*>(frame);
}

// Returns the sum of count bytes modulo 256. A frame's checksum is the negated sum.
uint8_t SumBytes(const uint8_t* bytes, size_t count);

#endif
