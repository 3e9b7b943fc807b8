// What the tests of the simulator share: bytes written as text, messages, a device without queues.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/model/Device.h"
#include "simulator/model/Error.h"

using Packet = std::vector<std::uint8_t>;
using Packets = std::vector<Packet>;

// "81 09 04 39 FF"
inline Packet B(const std::string& text) {
  Packet bytes;
  std::istringstream words(text);
  for (unsigned byte = 0; words >> std::hex >> byte;) {
    bytes.push_back(static_cast<std::uint8_t>(byte));
  }
  return bytes;
}

constexpr std::size_t kMessageSize = 36;

// A relay message: what is written, then zeros.
inline Packet Body(const std::string& text) {
  Packet body = B(text);
  body.resize(kMessageSize, 0);
  return body;
}

inline std::string Hex(const Packet& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    const char* const digits = "0123456789ABCDEF";
    text += (text.empty() ? "" : " ") + std::string{digits[byte >> 4], digits[byte & 15]};
  }
  return text;
}

inline std::string Hex(const Packets& packets) {
  std::string text;
  for (const Packet& packet : packets) {
    text += (text.empty() ? "" : " | ") + Hex(packet);
  }
  return text;
}

constexpr sim::Time operator""_ms(unsigned long long ms) { return static_cast<sim::Time>(ms) * 1000; }
constexpr sim::Time operator""_s(unsigned long long s) { return static_cast<sim::Time>(s) * 1000000; }

// Returns the text of the Error that a routine throws; an empty string if it throws none.
template <typename Routine>
std::string ErrorOf(Routine routine) {
  try {
    routine();
  } catch (const sim::Error& error) {
    return error.what();
  }
  return "";
}

// Requests and their replies.
inline const std::string kVersion = "AA AA 01 06 AA 10 01 01 44 55";
inline const std::string kVersionReply = "AA AA 01 06 AA 90 01 21 A4 55";
inline const std::string kGetPtz = "AA AA 02 06 AA 11 01 00 44 55";
inline const std::string kGetPtzReply = "AA AA 02 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55";
inline const std::string kReportPtz = "AA AA 01 06 AA 11 01 01 43 55";
inline const std::string kReport = "AA AA 00 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55";
inline const std::string kSupplyOff = "AA AA 01 06 AA 0C 01 00 49 55";
inline const std::string kSupplyOn = "AA AA 02 06 AA 0C 01 01 48 55";
inline const std::string kSensorMode = "AA AA 05 0B AA 02 06 81 09 04 24 72 FF 2B 55";
inline const std::string kSensorModeReply = "AA AA 05 0A AA 82 05 90 50 00 06 FF EA 55";
inline const std::string kAeManual = "AA AA 09 0B AA 02 06 81 01 04 39 03 FF 8D 55";
inline const std::string kAcknowledged = "AA AA 09 06 AA 82 01 10 C3 55";
inline const std::string kUnsupported = "AA AA 04 06 AA 16 01 00 3F 55";

// Describes what leaves the device: "AA AA 01 06 ... 55" without the zeros at the end, or what the daemon does.
inline std::string Text(const sim::Outgoing& out) {
  if (out.kind != sim::Outgoing::Kind::Message) {
    return std::string(out.kind == sim::Outgoing::Kind::Leave ? "leaves" : "restarts") + " for " +
           std::to_string(out.pause / 1000) + " ms";
  }
  Packet body = out.body;
  const std::size_t size = body.size();
  while (body.size() > 4 && body.back() == 0) {
    body.pop_back();
  }
  return Hex(body) + (size == kMessageSize ? "" : " (" + std::to_string(size) + " bytes)");
}

// A device and its clock. Ask and Later return what leaves the device at that time, "message | message".
class DeviceStory {
 public:
  static constexpr std::int32_t kType = 77;

  explicit DeviceStory(sim::Setup setup = {.fast = true}) : device_(setup) {}

  std::string Ask(const std::string& body) {
    note_ = device_.Request(kType, Body(body), now_);
    return Take();
  }
  std::string Take() {
    std::string text;
    device_.Advance(now_);
    while (const auto out = device_.Take(now_)) {
      text += (text.empty() ? "" : " | ") + Text(*out);
      EXPECT_EQ(out->type, out->kind == sim::Outgoing::Kind::Message ? kType : 1);
    }
    return text;
  }
  std::string Later(sim::Time by) {
    now_ += by;
    return Take();
  }

  sim::Device device_;
  sim::Time now_ = 1_s;
  std::string note_;
};
