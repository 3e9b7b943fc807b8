// The pan/tilt controller (MCU) as a machine: a command and its data in, the reply's data out, the time
// passed in.
#pragma once

#include "simulator/model/Protocol.h"
#include "simulator/model/Time.h"

namespace sim {

class McuModel {
 public:
  // Keeps a reference to `state` and changes the MCU's variables in it. What `state` holds now is what Load Default
  // returns to.
  explicit McuModel(State& state) : state_(state), start_(state) {}

  // The data of the reply: the values asked for, or one result byte. `now` must not run backwards from call to call.
  Bytes Handle(std::uint8_t id, ByteView data, Time now);
  // Whether automatic response mode is on for `id`, kGetPtz or kGetMotorState, and the data of its next report.
  bool Reports(std::uint8_t id) const;
  Bytes Report(std::uint8_t id, Time now);

 private:
  void MoveTo(Time now);
  void Pelco(Time now);
  void Turn(std::int64_t pan_rate, std::int64_t tilt_rate, Time now);

  State& state_;
  const State start_;
  // The head was at `from` at the time `since` and has moved with these rates from then on, in steps per second. The
  // variables pan and tilt are brought up to date by MoveTo before anything reads them.
  std::int64_t pan_rate_ = 0, tilt_rate_ = 0;
  std::int64_t pan_from_ = 0, tilt_from_ = 0;
  Time since_ = 0;
};

}  // namespace sim
