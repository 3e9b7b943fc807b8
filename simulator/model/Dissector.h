// Describes messages in words, one line each, for traces, captures and dumps.
#pragma once

#include <array>
#include <string>

#include "simulator/model/Event.h"
#include "simulator/model/Protocol.h"

namespace sim {

// Stores the last request of each sequence id, so that a reply is described as the answer to its request.
class Dissector {
 public:
  // "CAM_AE manual", "Get PTZ → pan 64000, tilt 300, zoom 16"
  std::string Meaning(Direction direction, ByteView body);
  // "   12.345 reply   #1   AA 90 01 21 A4 55                 Get Version → 0x21  [note]", without a line feed.
  // The time is left out for an event that has none. With `colour`, escape sequences of the terminal are added.
  std::string Line(const Event& event, bool colour);

 private:
  struct Asked {
    const Row* row = nullptr;  // nullptr: unknown
    std::string text;
  };
  std::array<Asked, 256> asked_;  // by sequence id
};

// The meaning of a VISCA packet to the camera. Sets `row` to its row, or to nullptr if it is unknown.
std::string ViscaRequestText(ByteView packet, const Row** row);
// The meaning of a packet from the camera. `row`: the row of the packet that it answers; nullptr if that is unknown.
std::string ViscaReplyText(ByteView packet, const Row* row);
// A trace line for a packet on a VISCA line: "   12.345 visca <       81 09 04 39 FF   CAM_AE?".
std::string ViscaLine(Time now, const char* direction, ByteView packet, const std::string& meaning);

}  // namespace sim
