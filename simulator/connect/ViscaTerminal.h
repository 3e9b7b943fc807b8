// Offers the simulated camera on a pseudo-terminal as a plain VISCA camera, for any VISCA controller.
#pragma once

#include <deque>
#include <string>

#include "simulator/connect/Splitters.h"
#include "simulator/connect/Trace.h"
#include "simulator/connect/Watched.h"
#include "simulator/model/Device.h"

namespace sim {

class ViscaTerminal : public Watched {
 public:
  // If the device is fast, replies are sent at once, otherwise each in a field of its own and at the speed of the
  // device's line.
  ViscaTerminal(Device& device, LineSink sink);
  // Removes the link.
  ~ViscaTerminal() override;
  ViscaTerminal(const ViscaTerminal&) = delete;
  ViscaTerminal& operator=(const ViscaTerminal&) = delete;

  // Creates the terminal and returns its name. If `link` is not empty, creates a symbolic link of that name to the
  // terminal; an existing link is replaced, a file is not. Throws Error.
  std::string Open(const std::string& link);

  int Descriptor() const override { return master_; }
  void OnReadable(Time now) override;
  void OnTime(Time now) override;
  std::optional<Time> NextDue() const override;

 private:
  struct Waiting {
    Time due;
    Bytes packet;
    const Row* row;  // of the request that it answers; nullptr if none or unknown
  };
  void Send(Bytes packet, const Row* row, Time due);

  Device& device_;
  const LineSink sink_;
  int master_ = -1;
  int slave_ = -1;  // held open, so that the terminal outlives its users
  std::string link_, name_;
  ViscaSplitter splitter_;
  Time heard_at_ = 0;            // when the last bytes arrived
  Time line_free_ = 0;           // when the line is free after the replies so far
  std::deque<Waiting> waiting_;  // sorted by `due`
};

}  // namespace sim
