// Describes messages in words, one line each, for traces, captures and dumps.
#pragma once

#include <array>
#include <string>

#include "simulator/model/Event.h"
#include "simulator/model/Protocol.h"

namespace sim {

// Describes a reply as the answer to its request. It finds the request by the number of the exchange, among the last
// kExchanges requests. In a dump, whose events have neither a number nor a time, it uses the last request with the
// reply's sequence id.
class Dissector {
 public:
  static constexpr std::size_t kExchanges = 1024;

  // "CAM_AE manual", "Get PTZ → pan 64000, tilt 300, zoom 16". The same event may be described more than once.
  std::string Meaning(const Event& event);
  // "   12.345 reply   #1   AA 90 01 21 A4 55                 Get Version → 0x21  [note]", without a line feed.
  // The time is left out for an event that has none. With `colour`, escape sequences of the terminal are added.
  std::string Line(const Event& event, bool colour);

 private:
  struct Asked {
    std::uint32_t exchange = 0;
    std::uint8_t code = 0;
    const Row* row = nullptr;  // nullptr: unknown
    bool rejected = false;     // a request to the MCU that it answers with a result, not with data
    std::string text;
  };
  Asked* Place(const Event& event, std::uint8_t sequence);

  std::array<Asked, kExchanges> exchanges_;  // by the exchange's number, modulo the size
  std::array<Asked, 256> sequences_;         // by sequence id, for dumps
};

// Returns the meaning of a VISCA packet to the camera on that line. Sets `row` to its row; to nullptr if it is unknown.
std::string ViscaRequestText(ByteView packet, const Row** row, Line line = Line::Visca);
// Returns the meaning of a packet from the camera. `row` is that of the packet that it answers; nullptr if unknown.
std::string ViscaReplyText(ByteView packet, const Row* row);
// Returns the trace line of a packet on a VISCA line: "   12.345 visca <       81 09 04 39 FF   CAM_AE?".
std::string ViscaLine(Time now, const char* direction, ByteView packet, const std::string& meaning);

}  // namespace sim
