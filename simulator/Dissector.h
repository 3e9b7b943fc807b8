// Reads messages aloud: one line each, in words.
#pragma once

#include <array>
#include <string>

#include "simulator/Wire.h"

namespace sim {

enum class Direction : std::uint8_t { Request, Reply };

struct Event {
  Time time = 0;
  Direction direction = Direction::Request;
  std::int32_t type = 0;
  std::uint32_t exchange = 0;  // numbers the requests; 0 for what answers none
  Bytes body;
  std::string note;
};

// Remembers the requests, so that a reply is read as the answer to its own.
class Dissector {
 public:
  // "CAM_AE manual", "Get PTZ → pan 64000, tilt 300, zoom 16"
  std::string Meaning(Direction direction, ByteView body);
  // "   12.345 reply   #1   AA 90 01 21 A4 55   Get Version → 0x21"
  std::string Line(const Event& event, bool colour);

 private:
  struct Asked {
    const Row* row = nullptr;
    std::string text;
  };
  std::array<Asked, 256> asked_;
};

// A VISCA packet by itself, for the trace of a VISCA line.
std::string ViscaRequestText(ByteView packet, const Row** row);
std::string ViscaReplyText(ByteView packet, const Row* row);

}  // namespace sim
