// The interface of everything that can answer requests: the simulated device, a capture, hardware on a serial line.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "simulator/model/Bytes.h"
#include "simulator/model/Time.h"

namespace sim {

// Something for the daemon to do at a certain time.
struct Outgoing {
  enum class Kind : std::uint8_t {
    Message,  // put `body` onto the reply queue
    Leave,    // stop reading requests for `pause`
    Restart,  // the same, and remove the queues and create them again
  };
  Kind kind = Kind::Message;
  Time due = 0;
  std::int32_t type = 1;
  std::uint32_t exchange = 0;  // number of the request that it answers; 0: answers none
  Bytes body;
  std::string note;  // for its line of the trace
  Time pause = 0;
};

// Messages waiting for their time. Messages with the same time leave in the order in which they were added.
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
  std::deque<Outgoing> waiting_;  // sorted by `due`
};

// The daemon calls all of these with its lock held. Times must not decrease from call to call.
class Peer {
 public:
  virtual ~Peer() = default;
  // Handles a request of any type and size. Returns a note for its line of the trace, or an empty text.
  virtual std::string Request(std::int32_t type, ByteView body, Time now) = 0;
  // Does what is due without a request.
  virtual void Advance(Time now) = 0;
  // Returns when Advance has something to do next.
  virtual std::optional<Time> NextEvent() const = 0;
  // Returns the next message that is due.
  std::optional<Outgoing> Take(Time now) { return outbox_.Take(now); }
  // Returns when Advance or Take has something to do next.
  std::optional<Time> NextDue() const { return Earlier(outbox_.NextDue(), NextEvent()); }
  std::size_t Waiting() const { return outbox_.Size(); }
  std::uint32_t LastExchange() const { return exchange_; }
  // How often it has been restarted. A restart cancels what the daemon still had to do for it.
  std::uint32_t Restarts() const { return restarts_; }

 protected:
  Outbox outbox_;
  std::uint32_t exchange_ = 0;  // number of the last request, from 1
  std::uint32_t restarts_ = 0;
};

// Returns the message type of a reply: its request's type, or 1 if the kernel would refuse that.
constexpr std::int32_t ReplyType(std::int32_t request) { return request > 0 ? request : 1; }

}  // namespace sim
