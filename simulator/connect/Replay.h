// Answers from a capture, instead of the simulated device.
#pragma once

#include <map>
#include <vector>

#include "simulator/model/Event.h"
#include "simulator/model/Peer.h"

namespace sim {

// Answers a request as the same frame was answered in the capture, after the same time. If the frame is repeated, uses
// the answers in the capture in their order and then repeats the last one. Sequence ids and message types are those of
// the current request.
class Replay : public Peer {
 public:
  // `fast`: answers at once.
  Replay(const std::vector<Event>& events, bool fast);

  std::string Request(std::int32_t type, ByteView body, Time now) override;
  void Advance(Time) override {}
  std::optional<Time> NextEvent() const override { return std::nullopt; }

 private:
  struct Reply {
    Bytes body;
    Time after;           // delay from the request to the reply
    int sequence_offset;  // from the request's id
    bool answer;          // false: it is unsolicited and keeps its own id
  };
  struct Exchange {
    Time time = 0;  // of the request
    std::uint8_t sequence = 0;
    std::vector<Reply> replies;
  };
  struct Known {
    std::vector<Exchange> exchanges;  // never empty
    std::size_t next = 0;
  };

  const bool fast_;
  std::map<Bytes, Known> known_;  // by the part of a request that identifies it
};

}  // namespace sim
