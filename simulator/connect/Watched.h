// Something with a descriptor that the daemon's main thread watches beside the queues: a terminal, a serial line.
#pragma once

#include <optional>

#include "simulator/model/Time.h"

namespace sim {

// All of these are called on the main thread with the daemon's lock held, so that they may use the peer.
class Watched {
 public:
  virtual ~Watched() = default;
  // Negative: nothing to watch at the moment.
  virtual int Descriptor() const = 0;
  // The descriptor can be read, or has failed.
  virtual void OnReadable(Time now) = 0;
  // After every wake-up, also of others.
  virtual void OnTime(Time now) = 0;
  // When OnTime has something to do next.
  virtual std::optional<Time> NextDue() const = 0;
};

}  // namespace sim
