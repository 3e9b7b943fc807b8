// The pan/tilt controller (MCU): it takes a command and its data and returns the data of the reply; the caller passes
// the time.
#pragma once

#include <span>
#include <utility>

#include "simulator/model/Protocol.h"
#include "simulator/model/Time.h"

namespace sim {

class McuModel {
 public:
  // Keeps a reference to `state` and changes the MCU's variables in it. Load Default returns to the values that `state`
  // has at construction. `strict`: a command may set allowed values only; false: any value that fits the field.
  explicit McuModel(State& state, bool strict = true) : state_(state), start_(state), strict_(strict) {}

  // Returns the data of the reply: the requested values, or one result byte. `now` must not decrease from call to call.
  Bytes Handle(std::uint8_t id, ByteView data, Time now);
  // Returns whether automatic response mode is on for `id`, kGetPtz or kGetMotorState.
  bool Reports(std::uint8_t id) const;
  // Brings the variables up to date.
  void Advance(Time now) { MoveTo(now); }
  // Sets variables without a command. A head whose position is set stops there.
  void Override(std::span<const std::pair<Var, std::uint32_t>> variables, Time now);
  // Returns the data of the next report for `id`.
  Bytes Report(std::uint8_t id, Time now);

 private:
  void MoveTo(Time now);
  void Pelco(Time now);
  void Turn(std::int64_t pan_rate, std::int64_t tilt_rate, Time now);

  State& state_;
  const State start_;
  const bool strict_;
  // The head was at these `from` positions at the time `since_` and has moved at these rates, in steps per second,
  // since then. MoveTo updates the variables pan and tilt before anything reads them.
  std::int64_t pan_rate_ = 0, tilt_rate_ = 0;
  std::int64_t pan_from_ = 0, tilt_from_ = 0;
  Time since_ = 0;
};

}  // namespace sim
