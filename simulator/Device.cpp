#include "simulator/Device.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

constexpr std::size_t kMostSaid = 16;

std::uint8_t ReplyCode(std::uint8_t code) { return static_cast<std::uint8_t>(code + kReplyBit); }

Bytes WithoutSocket(Bytes packet) {
  if (packet.size() > 1 && packet[1] >= 0x40) {
    packet[1] &= 0xF0;
  }
  return packet;
}

// What a fault does to the reply's frame.
Frame SpoilFrame(const Fault& fault, Frame frame, bool visca) {
  const auto value = static_cast<std::uint8_t>(fault.value);
  Bytes& data = frame.data;
  const Bytes tail = visca && !data.empty() ? Bytes{data.back()} : Bytes{};  // the terminator stays the last
  switch (fault.info->kind) {
    case FaultKind::WrongCode:
      frame.code = static_cast<std::uint8_t>(frame.code - kReplyBit);
      break;
    case FaultKind::Nak:
      frame.data = {value};
      break;
    case FaultKind::OverLong:
      frame.data.resize(static_cast<std::size_t>(fault.value), 0);
      break;
    case FaultKind::ShortReply:
      data.resize(data.size() - std::min(data.size(), tail.size() + 1));
      data.insert(data.end(), tail.begin(), tail.end());
      break;
    case FaultKind::LongReply:
      data.resize(data.size() - tail.size());
      data.push_back(0);
      data.insert(data.end(), tail.begin(), tail.end());
      break;
    case FaultKind::SocketNumber:
      if (visca) {
        frame.data[1] = static_cast<std::uint8_t>((frame.data[1] & 0xF0) + (value & 0x0F));
      }
      break;
    case FaultKind::ViscaError:
      frame.data = {0x90, 0x60, value, 0xFF};
      break;
    default:
      break;
  }
  return frame;
}

// What it does to the bytes of the relay body.
Bytes SpoilBody(const Fault& fault, Bytes body) {
  const auto value = static_cast<std::uint8_t>(fault.value);
  const std::size_t frame_end = std::min<std::size_t>(4U + body[3], body.size());
  switch (fault.info->kind) {
    case FaultKind::WrongSequence:
      body[2] = static_cast<std::uint8_t>(body[2] + value);
      break;
    case FaultKind::WrongHeader:
      body[0] = value;
      break;
    case FaultKind::BadStart:
      body[4] = value;
      break;
    case FaultKind::BadChecksum:
      ++body[frame_end - 2];
      break;
    case FaultKind::BadStop:
      body[frame_end - 1] = value;
      break;
    case FaultKind::Truncated: {
      const std::size_t kept = (frame_end - 4) / 2;
      std::fill(body.begin() + 4 + static_cast<std::ptrdiff_t>(kept), body.end(), std::uint8_t{0});
      body[3] = static_cast<std::uint8_t>(kept);
      break;
    }
    case FaultKind::WrongSize:
      body.resize(static_cast<std::size_t>(fault.value), 0);
      break;
    default:
      break;
  }
  return body;
}

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
  return static_cast<Time>(bytes) * 10 * kSecond / setup_.baud;  // start bit, eight, stop bit
}

Time Device::Field() const { return kSecond / (camera_.Shows50Hz() ? 50 : 60); }

// One exchange holds the line from its first byte to its last. The camera takes one command a field and answers at the
// next field; the MCU needs a millisecond.
Time Device::AnswerTime(const Relay& request, std::size_t reply_bytes, Time now) {
  if (setup_.fast) {
    return now;
  }
  Time time = std::max(now, line_free_) + OnTheWire(request.frame.data.size() + 5);
  if (request.frame.code == kCameraCode) {
    time = (time / Field() + 1) * Field();
  } else {
    time += kMillisecond;
  }
  line_free_ = time + OnTheWire(reply_bytes);
  return line_free_;
}

void Device::Send(Bytes body, Time due, std::string note) {
  outbox_.Add({.due = due, .type = type_, .exchange = exchange_, .body = std::move(body), .note = std::move(note)});
}

void Device::SupplyCamera(bool on, Time now) {
  supply_back_.reset();
  camera_.SetSupply(on, now);
}

std::string Device::Request(std::int32_t type, ByteView body, Time now) {
  Advance(now);
  type_ = type > 0 ? type : 1;
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
  if (fault != nullptr && fault->info->kind == FaultKind::PowerLoss) {
    camera_.SetSupply(false, now);
    supply_back_ = now + fault->ms * kMillisecond;
  }
  Answer answer = Ask(request.frame, now);
  std::string note = answer.note;
  if (fault != nullptr) {
    note += std::string(note.empty() ? "" : ", ") + "fault " + std::string(fault->info->name);
  }
  Deliver(request, std::move(answer), fault, now);
  return note;
}

Device::Answer Device::Ask(const Frame& request, Time now) {
  const std::uint8_t code = ReplyCode(request.code);
  if (request.code != kCameraCode) {
    const bool reporting = mcu_.Reports(kGetPtz) || mcu_.Reports(kGetMotorState);
    const Bytes data = mcu_.Handle(request.code, request.data, now);
    if (!supply_back_) {
      camera_.SetSupply(state_[Var::lens_power] == 1, now);
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
  // A command is acknowledged as soon as the camera has taken it off the line, whatever it thinks of it; anything else
  // is answered with the camera's own words.
  const bool command = request.data.size() > 1 && request.data[1] == 0x01;
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

void Device::Deliver(const Relay& request, Answer answer, const Fault* fault, Time now) {
  const FaultKind kind = fault != nullptr ? fault->info->kind : FaultKind::NoReply;
  if (fault != nullptr && (kind == FaultKind::DaemonAway || kind == FaultKind::DaemonRestart)) {
    outbox_.Add({.kind = kind == FaultKind::DaemonAway ? Outgoing::Kind::Leave : Outgoing::Kind::Restart,
                 .due = now,
                 .exchange = exchange_,
                 .body = {},
                 .note = "",
                 .pause = fault->ms * kMillisecond});
    return;
  }
  for (const Frame& good : answer.frames) {
    const bool visca = good.code == ReplyCode(kCameraCode) && good.data.size() >= 3;
    Time due = AnswerTime(request, good.data.size() + 5, now);
    if (fault == nullptr) {
      Send(EncodeRelay(request.sequence, good.Encode()), due, "");
      continue;
    }
    if (kind == FaultKind::NoReply || kind == FaultKind::PowerLoss) {
      continue;
    }
    const std::string note = "fault " + std::string(fault->info->name);
    if (kind == FaultKind::Late) {
      due += fault->ms * kMillisecond;
    }
    if (kind == FaultKind::StaleFirst) {
      Send(EncodeRelay(static_cast<std::uint8_t>(request.sequence - 1), good.Encode()), due, note);
    }
    const Bytes frame = SpoilFrame(*fault, good, visca).Encode();
    const Bytes body = SpoilBody(*fault, EncodeRelay(request.sequence, frame));
    if (kind == FaultKind::Duplicate) {
      Send(body, due, "");
    }
    Send(body, due, kind == FaultKind::StaleFirst ? "" : note);
  }
}

void Device::Advance(Time now) {
  if (supply_back_ && now >= *supply_back_) {
    const bool on = state_[Var::lens_power] == 1;
    const Time then = *supply_back_;
    SupplyCamera(on, then);
  }
  for (Bytes& packet : camera_.Advance(now)) {
    if (setup_.sockets && (packet[1] & 0xF0) == 0x50) {
      Send(EncodeRelay(sequence_, Frame{ReplyCode(kCameraCode), packet}.Encode()), now, "completed");
    }
    if (said_.size() < kMostSaid) {  // nobody may be listening
      said_.push_back(std::move(packet));
    }
  }
  for (const std::uint8_t id : {kGetPtz, kGetMotorState}) {
    if (mcu_.Reports(id) && now >= next_report_) {
      // Sequence id 0: no request ever waits for it first, so a report is not taken for an answer.
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
  std::optional<Time> next = camera_.NextEvent();
  if (supply_back_) {
    next = next ? std::min(*next, *supply_back_) : *supply_back_;
  }
  if (mcu_.Reports(kGetPtz) || mcu_.Reports(kGetMotorState)) {
    next = next ? std::min(*next, next_report_) : next_report_;
  }
  return next;
}

std::vector<Bytes> Device::Visca(ByteView packet, Time now) {
  Advance(now);
  return camera_.Handle(packet, now);
}

std::vector<Bytes> Device::TakeVisca() { return std::exchange(said_, {}); }

}  // namespace sim
