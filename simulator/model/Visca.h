// The constants of a VISCA packet: address byte, kind, data, FF. Protocol.h defines what the data means.
#pragma once

#include <cstdint>
#include <string_view>

#include "simulator/model/Bytes.h"

namespace sim {

constexpr std::uint8_t kViscaEnd = 0xFF;
constexpr std::size_t kViscaLeast = 3;  // bytes of a packet
constexpr std::size_t kViscaMost = 16;

// The first byte of a packet: to the camera of that address, 1 to 7, and from it.
constexpr std::uint8_t ViscaTo(std::uint8_t address) { return static_cast<std::uint8_t>(0x80 + address); }
constexpr std::uint8_t ViscaFrom(std::uint8_t address) { return static_cast<std::uint8_t>((8 + address) << 4); }
constexpr std::uint8_t kViscaFirstAddress = 1;  // of the first or only camera
constexpr std::uint8_t kViscaBroadcast = 0x88;  // to all cameras

// The second byte of a packet to the camera.
constexpr std::uint8_t kViscaCommand = 0x01;
constexpr std::uint8_t kViscaInquiry = 0x09;
constexpr std::uint8_t kViscaCancel = 0x20;      // plus the socket's number
constexpr std::uint8_t kViscaAddressSet = 0x30;  // in a broadcast packet

// The second byte of a packet from the camera: the upper half is the kind, the lower half a socket's number. Without a
// socket a completion is the reply to an inquiry.
constexpr std::uint8_t kViscaKind = 0xF0;
constexpr std::uint8_t kViscaSocket = 0x0F;
constexpr std::uint8_t kViscaAccepted = 0x40;
constexpr std::uint8_t kViscaCompleted = 0x50;
constexpr std::uint8_t kViscaError = 0x60;
constexpr std::uint8_t kViscaNetworkChange = 0x38;  // the whole byte: the camera has started

// The third byte of an error packet.
enum : std::uint8_t {
  kErrLength = 0x01,
  kErrSyntax = 0x02,
  kErrBufferFull = 0x03,
  kErrCancelled = 0x04,
  kErrNoSocket = 0x05,
  kErrNotExecutable = 0x41
};
std::string_view ViscaErrorText(std::uint8_t code);

// At least address, kind and end.
inline bool IsViscaPacket(ByteView packet) { return packet.size() >= kViscaLeast && packet.back() == kViscaEnd; }
// Returns the error code in a packet from the camera; 0 if it is not an error packet.
inline std::uint8_t ViscaError(ByteView packet) {
  return packet.size() == 4 && (packet[1] & kViscaKind) == kViscaError ? packet[2] : std::uint8_t{0};
}
// Returns the bytes between the kind and the end. The packet must have at least kViscaLeast bytes.
inline ByteView ViscaData(ByteView packet) { return packet.subspan(2, packet.size() - kViscaLeast); }

}  // namespace sim
