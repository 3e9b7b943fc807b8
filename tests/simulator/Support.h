// Bytes written out, for the tests of the simulator.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/Device.h"

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

// A relay body: what is written, then zeros up to 36 bytes.
inline Packet Body(const std::string& text) {
  Packet body = B(text);
  body.resize(36, 0);
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
