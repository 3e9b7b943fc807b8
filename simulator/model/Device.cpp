// Handles an exchange from request to reply, with its faults and its time on the line, and the supply, the reports and
// the timeline.
#include "simulator/model/Device.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

constexpr std::size_t kMostUnasked = 16;  // packets kept for TakeVisca, which is only called if there is a VISCA line
constexpr Time kBitsPerByte = 10;         // start bit, eight data bits, stop bit
constexpr Time kMcuTime = kMillisecond;   // how long the MCU takes to answer

Bytes WithoutSocket(Bytes packet) {
  if (packet.size() > 1 && packet[1] >= kViscaAccepted) {
    packet[1] &= kViscaKind;
  }
  return packet;
}

std::string FaultNote(const Fault& fault) { return "fault " + std::string(fault.kind->name); }

}  // namespace

Device::Device(const Setup& setup) : setup_(setup), faults_(setup.seed) { Build(0); }

void Device::Build(Time now) {
  std::ranges::stable_sort(setup_.time_line, {}, &Moment::after);
  state_ = setup_.state;
  camera_ = std::make_unique<CameraModel>(
      state_, CameraModel::Options{.wake_up = setup_.WakeUp(), .travel = !setup_.fast, .strict = setup_.strict});
  mcu_ = std::make_unique<McuModel>(state_, setup_.strict);
  UpdateSupply(now);
}

void Device::Restart(const Setup& setup, Time now) {
  ++restarts_;
  setup_ = setup;
  faults_ = FaultPicker(setup.seed);
  ready_.reset();
  next_moment_ = 0;
  cable_ = true;
  outbox_ = {};
  unasked_.clear();
  commands_ = {};
  line_free_ = next_report_ = 0;
  supply_back_.reset();
  Build(now);
  Start(now);
}

void Device::Start(Time now) {
  if (ready_) {
    return;
  }
  ready_ = now;
  for (const Fault& fault : setup_.faults) {
    faults_.Add(fault, now);
  }
}

void Device::UpdateSupply(Time now) {
  camera_->SetSupply(cable_ && !supply_back_ && state_[Var::lens_power] != 0, now);
}

void Device::Apply(const Change& change, Time now) {
  Advance(now);
  Make(change, now);
}

void Device::Make(const Change& change, Time now) {
  const bool reporting = Reporting();
  std::vector<std::pair<Var, std::uint32_t>> camera, mcu;
  for (const auto& variable : change.variables) {
    (variable.first < kFirstMcu ? camera : mcu).push_back(variable);
  }
  camera_->Override(camera, now);
  mcu_->Override(mcu, now);
  for (const auto& [number, value] : change.registers) {
    state_.registers[number] = value;
  }
  cable_ = change.supply.value_or(cable_);
  UpdateSupply(now);
  if (!reporting) {
    next_report_ = now + setup_.report_every;
  }
  if (change.clear_faults) {
    faults_.Clear();
  }
  for (const Fault& fault : change.faults) {
    faults_.Add(fault, now);
  }
}

std::uint32_t Device::AddFault(Fault fault, Time now) {
  Start(now);
  return faults_.Add(std::move(fault), now);
}

Time Device::OnTheWire(std::size_t bytes) const {
  return static_cast<Time>(bytes) * kBitsPerByte * kSecond / setup_.baud;
}

Time Device::Field() const { return kSecond / (camera_->Shows50Hz() ? 50 : 60); }

// Returns when the reply begins. An exchange occupies the line from its first byte to its last. The camera accepts one
// command per field and answers at the next field; the MCU answers after kMcuTime.
Time Device::AnswerTime(const Relay& request, Time now) const {
  Time time = std::max(now, line_free_) + OnTheWire(request.frame.data.size() + kFrameOverhead);
  if (request.frame.code == kCameraCode) {
    time = (time / Field() + 1) * Field();
  } else {
    time += kMcuTime;
  }
  return time;
}

// Returns where the command of a packet with a socket number is stored; nullptr for any other packet.
std::optional<Device::Asked>* Device::CommandOf(const Bytes& packet) {
  const std::uint8_t kind = packet.size() == kViscaLeast ? packet[1] & kViscaKind : 0;
  const std::size_t socket = kind == kViscaAccepted || kind == kViscaCompleted ? packet[1] & kViscaSocket : 0;
  return socket >= 1 && socket <= commands_.size() ? &commands_[socket - 1] : nullptr;
}

void Device::CutSupply(Time duration) {
  supply_back_ = now_ + duration;
  UpdateSupply(now_);
}

void Device::StopDaemon(Outgoing::Kind how, Time duration) {
  outbox_.Add({.kind = how, .due = now_, .exchange = exchange_, .body = {}, .note = "", .pause = duration});
}

std::string Device::Request(std::int32_t type, ByteView body, Time now) {
  Advance(now);
  type_ = ReplyType(type);
  ++exchange_;
  const Relay request = DecodeRelay(body);
  if (request.flaw == Flaw::Checksum) {
    Deliver(request, {{{ReplyCode(request.frame.code), {kMcuChecksum}}}, ""}, nullptr, now);
    return "wrong checksum";
  }
  if (request.flaw != Flaw::None) {
    return std::string(FlawText(request.flaw)) + ", dropped";
  }
  if (IsNotice(request.frame)) {
    return "";
  }
  const Fault* fault = faults_.Pick(request.frame, now);
  const bool delivers =
      fault == nullptr || fault->kind->action.before == nullptr || fault->kind->action.before(*fault, *this);
  const Answer answer = Ask(request.frame, request.sequence, now);
  if (delivers && !Deliver(request, answer, fault, now) && fault != nullptr) {
    faults_.TakeBack(*fault);
    fault = nullptr;
  }
  return answer.note + (fault != nullptr ? (answer.note.empty() ? "" : ", ") + FaultNote(*fault) : "");
}

Device::Answer Device::Ask(const Frame& request, std::uint8_t sequence, Time now) {
  const std::uint8_t code = ReplyCode(request.code);
  if (request.code != kCameraCode) {
    const bool reporting = Reporting();
    const Bytes data = mcu_->Handle(request.code, request.data, now);
    UpdateSupply(now);
    if (!reporting) {
      next_report_ = now + setup_.report_every;
    }
    return {{{code, data}}, ""};
  }
  const std::vector<Bytes> packets = camera_->Handle(request.data, Line::Any, now);
  if (packets.empty()) {
    return {{}, camera_->Awake(now) ? "camera not addressed" : "camera silent"};
  }
  Answer answer;
  const std::uint8_t error = ViscaError(packets[0]);
  if (error != 0) {
    answer.note = "camera: " + std::string(ViscaErrorText(error));
  }
  // A command is acknowledged as soon as the camera has received it, even if the camera then rejects it; anything else
  // is answered with the camera's own packets.
  const bool command = request.data.size() > 1 && request.data[1] == kViscaCommand;
  if (command) {
    answer.frames.push_back({code, {kMcuOk}});
  }
  if (auto* const place = CommandOf(packets[0]); place != nullptr) {
    *place = Asked{type_, exchange_, sequence};
  }
  for (const Bytes& packet : packets) {
    if (!command || setup_.sockets) {
      answer.frames.push_back({code, setup_.sockets ? packet : WithoutSocket(packet)});
    }
  }
  return answer;
}

bool Device::Deliver(const Relay& request, const Answer& answer, const Fault* fault, Time now) {
  const FaultAction action = fault != nullptr ? fault->kind->action : FaultAction{};
  bool strikes = action.ChangesMore();
  if (answer.frames.empty()) {
    return strikes;
  }
  Time due = setup_.fast ? now : AnswerTime(request, now);
  for (const Frame& good : answer.frames) {
    due += setup_.fast ? 0 : OnTheWire(good.data.size() + kFrameOverhead);
    Frame frame = good;
    if (action.frame != nullptr) {
      action.frame(*fault, frame);
    }
    Bytes body = EncodeRelay(request.sequence, frame.Encode());
    if (action.body != nullptr) {
      action.body(*fault, body);
    }
    const bool noted =
        fault != nullptr && (action.ChangesMore() || body != EncodeRelay(request.sequence, good.Encode()));
    strikes = strikes || noted;
    std::vector<Outgoing> messages = {{.due = due,
                                       .type = type_,
                                       .exchange = exchange_,
                                       .body = std::move(body),
                                       .note = noted ? FaultNote(*fault) : ""}};
    if (action.delivery != nullptr) {
      action.delivery(*fault, messages);
    }
    for (Outgoing& message : messages) {
      outbox_.Add(std::move(message));
    }
  }
  line_free_ = due;
  return strikes;
}

std::optional<Time> Device::NextMoment() const {
  const bool more = ready_ && next_moment_ < setup_.time_line.size();
  return more ? std::optional(*ready_ + setup_.time_line[next_moment_].after) : std::nullopt;
}

void Device::Advance(Time now) {
  Start(now);
  for (std::optional<Time> moment; (moment = NextMoment()) && *moment <= now;) {
    AdvanceTo(*moment);
    Make(setup_.time_line[next_moment_++].change, *moment);
  }
  AdvanceTo(now);
}

void Device::AdvanceTo(Time now) {
  now_ = now;
  mcu_->Advance(now);
  if (supply_back_ && now >= *supply_back_) {
    const Time back = *supply_back_;
    supply_back_.reset();
    UpdateSupply(back);
  }
  for (Bytes& packet : camera_->Advance(now)) {
    const auto* const command = CommandOf(packet);
    if (command != nullptr && *command) {
      if (setup_.sockets) {
        outbox_.Add({.due = now,
                     .type = (*command)->type,
                     .exchange = (*command)->exchange,
                     .body = EncodeRelay((*command)->sequence, Frame{ReplyCode(kCameraCode), packet}.Encode()),
                     .note = "completed"});
      }
    } else if (unasked_.size() < kMostUnasked) {
      unasked_.push_back(std::move(packet));
    }
  }
  for (const std::uint8_t id : {kGetPtz, kGetMotorState}) {
    if (mcu_->Reports(id) && now >= next_report_) {
      // Sequence id 0: the ids of the tool's requests start at 1, so the tool does not take a report for a reply.
      outbox_.Add({.due = now,
                   .type = type_,
                   .exchange = 0,
                   .body = EncodeRelay(0, Frame{ReplyCode(id), mcu_->Report(id, now)}.Encode()),
                   .note = "report"});
    }
  }
  if (now >= next_report_) {
    next_report_ = now + setup_.report_every;
  }
}

std::optional<Time> Device::NextEvent() const {
  const std::optional<Time> report = Reporting() ? std::optional(next_report_) : std::nullopt;
  return Earlier(Earlier(camera_->NextEvent(), supply_back_), Earlier(report, NextMoment()));
}

Device::LineAnswer Device::Visca(ByteView packet, Time now) {
  Advance(now);
  const Fault* fault = faults_.Pick(Frame{kCameraCode, Bytes(packet.begin(), packet.end())}, now, true);
  const FaultAction action = fault != nullptr ? fault->kind->action : FaultAction{};
  if (action.before != nullptr) {
    action.before(*fault, *this);
  }
  std::vector<Bytes> packets = camera_->Handle(packet, Line::Visca, now);
  if (auto* const place = packets.empty() ? nullptr : CommandOf(packets[0]); place != nullptr) {
    place->reset();
  }
  bool strikes = action.ChangesMore();
  if (action.frame != nullptr && !packets.empty()) {
    Frame frame{ReplyCode(kCameraCode), packets[0]};
    action.frame(*fault, frame);
    strikes = strikes || frame.data != packets[0];
    packets[0] = frame.data;
    if (ViscaError(packets[0]) != 0) {
      packets.resize(1);  // an error ends the exchange
    }
  }
  if (fault != nullptr && !strikes) {
    faults_.TakeBack(*fault);
  }
  LineAnswer answer{.packets = {}, .note = strikes ? FaultNote(*fault) : ""};
  for (Bytes& one : packets) {
    std::vector<Outgoing> messages = {{.due = now, .body = std::move(one), .note = ""}};
    if (action.delivery != nullptr) {
      action.delivery(*fault, messages);
    }
    for (Outgoing& message : messages) {
      answer.late = message.due - now;
      answer.packets.push_back(std::move(message.body));
    }
  }
  return answer;
}

std::vector<Bytes> Device::TakeVisca() { return std::exchange(unasked_, {}); }

}  // namespace sim
