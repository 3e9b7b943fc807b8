#include "simulator/model/Device.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

constexpr std::size_t kMostUnasked = 16;  // packets kept for TakeVisca, which nobody may call
constexpr Time kBitsPerByte = 10;         // start bit, eight data bits, stop bit
constexpr Time kMcuTime = kMillisecond;

Bytes WithoutSocket(Bytes packet) {
  if (packet.size() > 1 && packet[1] >= kViscaAccepted) {
    packet[1] &= kViscaKind;
  }
  return packet;
}

std::string FaultNote(const Fault& fault) { return "fault " + std::string(fault.kind->name); }

}  // namespace

Device::Device(const Setup& setup)
    : setup_(setup),
      state_(setup.state),
      camera_(state_, {.wake_up = setup.fast ? 0 : setup.wake_up, .travel = !setup.fast}),
      mcu_(state_),
      faults_(setup.faults, setup.seed) {
  if (state_[Var::lens_power] == 0) {
    camera_.SetSupply(false, 0);
  }
}

Time Device::OnTheWire(std::size_t bytes) const {
  return static_cast<Time>(bytes) * kBitsPerByte * kSecond / setup_.baud;
}

Time Device::Field() const { return kSecond / (camera_.Shows50Hz() ? 50 : 60); }

// Returns when the last byte of the reply arrives. An exchange occupies the line from its first byte to its last. The
// camera accepts one command per field and answers at the next field; the MCU answers after kMcuTime.
Time Device::AnswerTime(const Relay& request, std::size_t reply_bytes, Time now) {
  if (setup_.fast) {
    return now;
  }
  Time time = std::max(now, line_free_) + OnTheWire(request.frame.data.size() + kFrameOverhead);
  if (request.frame.code == kCameraCode) {
    time = (time / Field() + 1) * Field();
  } else {
    time += kMcuTime;
  }
  line_free_ = time + OnTheWire(reply_bytes);
  return line_free_;
}

void Device::CutSupply(Time duration) {
  camera_.SetSupply(false, now_);
  supply_back_ = now_ + duration;
}

void Device::StopDaemon(Outgoing::Kind how, Time duration) {
  outbox_.Add({.kind = how, .due = now_, .exchange = exchange_, .body = {}, .note = "", .pause = duration});
}

std::string Device::Request(std::int32_t type, ByteView body, Time now) {
  Advance(now);
  type_ = ReplyType(type);
  ++exchange_;
  const Relay request = DecodeRelay(body);
  sequence_ = request.sequence;
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
  const Fault* fault = faults_.Pick(request.frame);
  const bool delivers =
      fault == nullptr || fault->kind->action.before == nullptr || fault->kind->action.before(*fault, *this);
  const Answer answer = Ask(request.frame, now);
  if (delivers) {
    Deliver(request, answer, fault, now);
  }
  return answer.note + (fault != nullptr ? (answer.note.empty() ? "" : ", ") + FaultNote(*fault) : "");
}

Device::Answer Device::Ask(const Frame& request, Time now) {
  const std::uint8_t code = ReplyCode(request.code);
  if (request.code != kCameraCode) {
    const bool reporting = mcu_.Reports(kGetPtz) || mcu_.Reports(kGetMotorState);
    const Bytes data = mcu_.Handle(request.code, request.data, now);
    if (!supply_back_) {
      camera_.SetSupply(state_[Var::lens_power] != 0, now);
    }
    if (!reporting) {
      next_report_ = now + setup_.report_every;
    }
    return {{{code, data}}, ""};
  }
  const std::vector<Bytes> packets = camera_.Handle(request.data, now);
  if (packets.empty()) {
    return {{}, camera_.Awake(now) ? "camera not addressed" : "camera silent"};
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
  for (const Bytes& packet : packets) {
    if (!command || setup_.sockets) {
      answer.frames.push_back({code, setup_.sockets ? packet : WithoutSocket(packet)});
    }
  }
  return answer;
}

void Device::Deliver(const Relay& request, const Answer& answer, const Fault* fault, Time now) {
  const FaultAction action = fault != nullptr ? fault->kind->action : FaultAction{};
  for (const Frame& good : answer.frames) {
    const Time due = AnswerTime(request, good.data.size() + kFrameOverhead, now);
    Frame frame = good;
    if (action.frame != nullptr) {
      action.frame(*fault, frame);
    }
    Bytes body = EncodeRelay(request.sequence, frame.Encode());
    if (action.body != nullptr) {
      action.body(*fault, body);
    }
    std::vector<Outgoing> messages = {{.due = due,
                                       .type = type_,
                                       .exchange = exchange_,
                                       .body = std::move(body),
                                       .note = fault != nullptr ? FaultNote(*fault) : ""}};
    if (action.delivery != nullptr) {
      action.delivery(*fault, messages);
    }
    for (Outgoing& message : messages) {
      outbox_.Add(std::move(message));
    }
  }
}

void Device::Advance(Time now) {
  now_ = now;
  if (supply_back_ && now >= *supply_back_) {
    camera_.SetSupply(state_[Var::lens_power] != 0, *supply_back_);
    supply_back_.reset();
  }
  for (Bytes& packet : camera_.Advance(now)) {
    if (setup_.sockets && (packet[1] & kViscaKind) == kViscaCompleted) {
      outbox_.Add({.due = now,
                   .type = type_,
                   .exchange = exchange_,
                   .body = EncodeRelay(sequence_, Frame{ReplyCode(kCameraCode), packet}.Encode()),
                   .note = "completed"});
    }
    if (unasked_.size() < kMostUnasked) {
      unasked_.push_back(std::move(packet));
    }
  }
  for (const std::uint8_t id : {kGetPtz, kGetMotorState}) {
    if (mcu_.Reports(id) && now >= next_report_) {
      // Sequence id 0: the ids of the tool's requests start at 1, so the tool does not take a report for a reply.
      outbox_.Add({.due = now,
                   .type = type_,
                   .exchange = 0,
                   .body = EncodeRelay(0, Frame{ReplyCode(id), mcu_.Report(id, now)}.Encode()),
                   .note = "report"});
    }
  }
  if (now >= next_report_) {
    next_report_ = now + setup_.report_every;
  }
}

std::optional<Time> Device::NextEvent() const {
  const bool reporting = mcu_.Reports(kGetPtz) || mcu_.Reports(kGetMotorState);
  return Earlier(Earlier(camera_.NextEvent(), supply_back_), reporting ? std::optional(next_report_) : std::nullopt);
}

std::vector<Bytes> Device::Visca(ByteView packet, Time now) {
  Advance(now);
  return camera_.Handle(packet, now);
}

std::vector<Bytes> Device::TakeVisca() { return std::exchange(unasked_, {}); }

}  // namespace sim
