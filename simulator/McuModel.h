// The pan/tilt controller as a pure machine: a command and its data in, the reply's data out.
#pragma once

#include <optional>

#include "simulator/Protocol.h"

namespace sim {

class McuModel {
 public:
  explicit McuModel(State& state) : state_(state), start_(state) {}

  Bytes Handle(std::uint8_t id, ByteView data, Time now);
  // The reports that automatic response mode sends: the data of a reply to Get PTZ and to Get Motor State.
  bool Reports(std::uint8_t id) const;
  Bytes Report(std::uint8_t id, Time now);

 private:
  void MoveTo(Time now);
  void Pelco(Time now);
  void Turn(std::int64_t pan_rate, std::int64_t tilt_rate, Time now);

  State& state_;
  const State start_;
  std::int64_t pan_rate_ = 0, tilt_rate_ = 0;  // steps a second
  std::int64_t pan_from_ = 0, tilt_from_ = 0;
  Time since_ = 0;
};

constexpr std::uint8_t kGetPtz = 0x11;
constexpr std::uint8_t kSetPtz = 0x12;
constexpr std::uint8_t kGetMotorState = 0x14;

}  // namespace sim
