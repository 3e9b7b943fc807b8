// Who answers the requests: the simulated device, a recording, or hardware on a serial line.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "simulator/Wire.h"

namespace sim {

struct Outgoing {
  enum class Kind : std::uint8_t {
    Message,  // goes onto the reply queue
    Leave,    // the daemon stops reading for `pause`
    Restart,  // the same, and the queues are removed and made anew
  };
  Kind kind = Kind::Message;
  Time due = 0;
  std::int32_t type = 1;
  std::uint32_t exchange = 0;  // number of the request that it answers; 0 when it answers none
  Bytes body;
  std::string note;
  Time pause = 0;
};

// Messages waiting for their time; those of one time leave in the order they came.
class Outbox {
 public:
  void Add(Outgoing out) {
    const auto later = std::upper_bound(waiting_.begin(), waiting_.end(), out.due,
                                        [](Time due, const Outgoing& o) { return due < o.due; });
    waiting_.insert(later, std::move(out));
  }
  std::optional<Outgoing> Take(Time now) {
    if (waiting_.empty() || waiting_.front().due > now) {
      return std::nullopt;
    }
    Outgoing out = std::move(waiting_.front());
    waiting_.pop_front();
    return out;
  }
  std::optional<Time> NextDue() const {
    return waiting_.empty() ? std::nullopt : std::optional<Time>(waiting_.front().due);
  }
  std::size_t Size() const { return waiting_.size(); }

 private:
  std::deque<Outgoing> waiting_;
};

class Peer {
 public:
  virtual ~Peer() = default;
  // A request came in. The result is a remark for its line of the trace, mostly empty.
  virtual std::string Request(std::int32_t type, ByteView body, Time now) = 0;
  // Does what is due by itself.
  virtual void Advance(Time now) = 0;
  virtual std::optional<Time> NextEvent() const = 0;
  std::optional<Outgoing> Take(Time now) { return outbox_.Take(now); }
  std::optional<Time> NextDue() const {
    const auto due = outbox_.NextDue();
    const auto event = NextEvent();
    return due && event ? std::min(*due, *event) : due ? due : event;
  }
  std::size_t Waiting() const { return outbox_.Size(); }
  std::uint32_t LastExchange() const { return exchange_; }

 protected:
  Outbox outbox_;
  std::uint32_t exchange_ = 0;  // number of the last request, from 1
};

}  // namespace sim
