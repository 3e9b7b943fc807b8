// Something with a descriptor that the daemon's main thread watches in addition to the queues: a terminal or a serial
// line.
#pragma once

#include <optional>

#include "simulator/model/Time.h"

namespace sim {

// All of these are called on the main thread with the daemon's lock held, so they may use the peer.
class Watched {
 public:
  virtual ~Watched() = default;
  // Returns the descriptor; a negative number if there is nothing to watch at the moment.
  virtual int Descriptor() const = 0;
  // Called when the descriptor can be read or has failed.
  virtual void OnReadable(Time now) = 0;
  // Called after each time that the main thread wakes up.
  virtual void OnTime(Time now) = 0;
  // Returns when OnTime has something to do next.
  virtual std::optional<Time> NextDue() const = 0;
};

}  // namespace sim
