// Recordings: one JSON object a line, written by --capture, read by --replay.
//
//   {"us":552000,"direction":"request","exchange":1,"type":13,"body":"AA AA 01 06 AA 10 ...","meaning":"Get Version"}
#pragma once

#include <istream>
#include <map>
#include <string>
#include <vector>

#include "simulator/Dissector.h"
#include "simulator/Peer.h"

namespace sim {

std::string CaptureLine(const Event& event, const std::string& meaning);

struct CaptureOrError {
  std::vector<Event> events;
  std::string error;  // one line with the line number, when something is wrong
};
CaptureOrError ReadCapture(std::istream& in, const std::string& name);

// Answers from a recording: a request gets what the same frame got then, in the order of the recording, the last
// answer for ever after. The sequence ids are those of today.
class Replay : public Peer {
 public:
  Replay(const std::vector<Event>& events, bool fast);

  std::string Request(std::int32_t type, ByteView body, Time now) override;
  void Advance(Time) override {}
  std::optional<Time> NextEvent() const override { return std::nullopt; }

 private:
  struct Then {
    Bytes body;
    Time after;
    int sequence_offset;  // from the request's; a report keeps its own
    bool answer;
  };
  struct Exchange {
    Time time = 0;
    std::uint8_t sequence = 0;
    std::vector<Then> replies;
  };
  struct Known {
    std::vector<Exchange> exchanges;
    std::size_t next = 0;
  };

  const bool fast_;
  std::map<Bytes, Known> known_;
};

}  // namespace sim
