// Executes the MCU's commands, and moves the head.
#include "simulator/model/McuModel.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::int64_t kPanTurn = 64000;  // steps of a full turn
constexpr std::int64_t kDegrees = 360;    // of a full turn; max_speed is in degrees per second
constexpr std::int64_t kTiltEnd = 920;    // steps; the tilt starts at 0
constexpr std::int64_t kTiltSpeed = 10;   // steps per second, for each step of speed
constexpr std::int64_t kTopSpeed = 0x3F;  // PelcoD speeds go from 0 to this

}  // namespace

Bytes McuModel::Handle(std::uint8_t id, ByteView data, Time now) {
  MoveTo(now);
  const Row* row = FindMcu(id);
  if (row == nullptr || row->act == Act::Sony) {  // a VISCA packet is for the camera
    return {kMcuUnknown};
  }
  Bytes bytes = {id};
  bytes.insert(bytes.end(), data.begin(), data.end());
  const auto values = Match(row->command, row->fields, bytes);
  const bool lenient = !strict_ && row->act == Act::Set && values && Fits(*values);
  if (!values || (!lenient && !Accepted(*values))) {
    return {kMcuRange};
  }
  if (row->act == Act::LoadDefault) {
    const auto from = static_cast<std::size_t>(Var::max_speed);
    const auto to = static_cast<std::size_t>(kFirstTransient);
    std::copy(start_.values.begin() + from, start_.values.begin() + to, state_.values.begin() + from);
  } else {
    for (const FieldValue& v : *values) {
      state_[v.field->var] = v.value;
    }
  }
  if (id == kSetPtz || row->act == Act::LoadDefault) {  // both stop the head
    Turn(0, 0, now);
  }
  if (row->act == Act::Pelco) {
    Pelco(now);
  }
  return Fill(row->reply, row->fields, state_);
}

void McuModel::Override(std::span<const std::pair<Var, std::uint32_t>> variables, Time now) {
  MoveTo(now);
  for (const auto& [var, value] : variables) {
    if (var == Var::pan || var == Var::tilt) {
      Turn(0, 0, now);
    }
    state_[var] = value;
  }
}

bool McuModel::Reports(std::uint8_t id) const {
  return state_[id == kGetPtz ? Var::ptz_report : Var::motor_report] != 0;
}

Bytes McuModel::Report(std::uint8_t id, Time now) {
  MoveTo(now);
  const Row* row = FindMcu(id);
  return Fill(row->reply, row->fields, state_);
}

// The bits of the second byte: right 02, left 04, up 08, down 10; none of them: stop.
void McuModel::Pelco(Time now) {
  const std::uint32_t bits = state_[Var::pelco_2];
  const auto direction = [bits](unsigned plus, unsigned minus) {
    return ((bits & plus) != 0 ? 1 : 0) - ((bits & minus) != 0 ? 1 : 0);
  };
  const auto speed = [this](Var var) { return std::min<std::int64_t>(state_[var], kTopSpeed); };
  Turn(direction(0x02, 0x04) * speed(Var::pelco_3) * state_[Var::max_speed] * kPanTurn / kDegrees / kTopSpeed,
       direction(0x08, 0x10) * speed(Var::pelco_4) * kTiltSpeed, now);
}

void McuModel::Turn(std::int64_t pan_rate, std::int64_t tilt_rate, Time now) {
  pan_rate_ = pan_rate;
  tilt_rate_ = tilt_rate;
  pan_from_ = state_[Var::pan];
  tilt_from_ = state_[Var::tilt];
  since_ = now;
  state_[Var::motor_state] = pan_rate_ != 0 || tilt_rate_ != 0;
}

void McuModel::MoveTo(Time now) {
  const Time passed = now - since_;
  if (pan_rate_ != 0) {  // pan turns without end
    const std::int64_t pan = (pan_from_ + pan_rate_ * passed / kSecond) % kPanTurn;
    state_[Var::pan] = static_cast<std::uint32_t>(pan < 0 ? pan + kPanTurn : pan);
  }
  if (tilt_rate_ != 0) {
    const std::int64_t end = tilt_rate_ < 0 ? 0 : std::max(tilt_from_, kTiltEnd);
    const std::int64_t tilt = tilt_from_ + tilt_rate_ * passed / kSecond;
    const bool there = tilt_rate_ < 0 ? tilt <= end : tilt >= end;
    state_[Var::tilt] = static_cast<std::uint32_t>(there ? end : tilt);
    if (there) {
      Turn(pan_rate_, 0, now);
    }
  }
}

}  // namespace sim
