// Executes the camera's commands: sockets, motors, supply and memories. The packets are rows of Protocol.cpp.
#include "simulator/model/CameraModel.h"

#include <algorithm>
#include <cstdlib>

namespace sim {
namespace {

constexpr std::uint32_t kOpticalEnd = 16384;  // of the zoom; the digital zoom continues from there
constexpr std::uint32_t kDigitalStep = 64;    // positions of the combined zoom per digital position
constexpr std::int64_t kZoomSpeed = 700;      // positions per second, for each step of speed
constexpr std::int64_t kFocusSpeed = 4000;
constexpr std::int64_t kTopSpeed = 8;  // steps of speed; packets carry 0 to 7
constexpr std::int64_t kOrdinarySpeed = 6;

constexpr std::uint8_t kLastSensorMode = 0x12;
constexpr std::uint8_t k50HzModes[] = {0x04, 0x05, 0x08, 0x0C, 0x0D, 0x11, 0x12};

constexpr std::uint8_t kInterfaceClear[] = {0x00, 0x01};
constexpr std::uint8_t kInterfaceClearAll[] = {kViscaBroadcast, kViscaCommand, 0x00, 0x01, kViscaEnd};
constexpr std::uint8_t kLastAddress = 7;

// Returns how fast a motor must turn, in positions per second; negative for the other direction. A packet carries
// either a speed, for the motion of its row, or a move: stop, the motion of its row, or the opposite.
std::int64_t MoveRate(const Row& row, const FieldValue& field) {
  const std::int64_t unit = row.act == Act::MoveZoom ? kZoomSpeed : kFocusSpeed;
  const std::int64_t rate = static_cast<std::int64_t>(row.motion) * unit;
  if (field.field->var == Var::speed) {
    return rate * (static_cast<std::int64_t>(field.value) + 1);
  }
  return field.value == kMoveStop ? 0 : rate * kOrdinarySpeed * (field.value == kMoveTeleOrFar ? 1 : -1);
}

std::uint8_t Byte(int value) { return static_cast<std::uint8_t>(value); }

}  // namespace

CameraModel::CameraModel(State& state, Options options)
    : state_(state),
      start_(state),
      options_(options),
      video_mode_(state.registers[kSensorModeRegister]),
      zoom_{.var = Var::zoom_pos, .least = 0, .greatest = Info(Var::zoom_pos).greatest},
      focus_{.var = Var::focus_pos, .least = Info(Var::focus_pos).least, .greatest = Info(Var::focus_pos).greatest} {}

void CameraModel::SetSupply(bool on, Time now) {
  if (on == supply_) {
    return;
  }
  MoveTo(now);
  Forget();
  supply_ = on;
  if (!on) {
    return;
  }
  // The positions of zoom and focus, the registers, the identity and the memory are kept; the rest is reset.
  for (std::size_t i = 0; i < static_cast<std::size_t>(kFirstKept); ++i) {
    if (static_cast<Var>(i) != Var::zoom_pos && static_cast<Var>(i) != Var::focus_pos) {
      state_.values[i] = start_.values[i];
    }
  }
  SettleZoom();
  state_[Var::power] = kOn;
  video_mode_ = state_.registers[kSensorModeRegister];
  awake_at_ = now + options_.wake_up;
  announced_ = false;
  address_ = kViscaFirstAddress;
}

bool CameraModel::Shows50Hz() const { return std::ranges::find(k50HzModes, video_mode_) != std::end(k50HzModes); }

void CameraModel::Override(std::span<const std::pair<Var, std::uint32_t>> variables, Time now) {
  MoveTo(now);
  for (const auto& [var, value] : variables) {
    for (Axis* axis : {&zoom_, &focus_}) {
      axis->rate = axis->var == var ? 0 : axis->rate;
    }
    state_[var] = value;
  }
  if (state_[Var::power] != kOn) {
    Forget();
  }
  SettleZoom();
}

void CameraModel::Forget() {
  sockets_ = {};
  zoom_.rate = focus_.rate = 0;
}

Bytes CameraModel::Reply(std::initializer_list<std::uint8_t> bytes) const {
  Bytes packet;
  packet.reserve(kViscaMost);
  packet.push_back(ViscaFrom(address_));
  packet.insert(packet.end(), bytes);
  packet.push_back(kViscaEnd);
  return packet;
}

Bytes CameraModel::Error(int socket, std::uint8_t code) const { return Reply({Byte(kViscaError + socket), code}); }

std::vector<Bytes> CameraModel::Handle(ByteView packet, Line line, Time now) {
  if (!Awake(now) || packet.empty()) {
    return {};
  }
  const std::uint8_t header = packet[0];
  const bool broadcast = header == kViscaBroadcast;
  if (!broadcast && header != ViscaTo(address_)) {
    return {};
  }
  if (packet.size() < kViscaLeast || packet.size() > kViscaMost) {
    return {Error(0, kErrLength)};
  }
  if (packet.back() != kViscaEnd) {
    return {Error(0, kErrSyntax)};
  }
  MoveTo(now);
  if (broadcast) {
    if (packet.size() == 4 && packet[1] == kViscaAddressSet && packet[2] >= kViscaFirstAddress &&
        packet[2] <= kLastAddress) {
      address_ = packet[2];
      return {{kViscaBroadcast, kViscaAddressSet, Byte(packet[2] + 1), kViscaEnd}};
    }
    if (std::ranges::equal(packet, kInterfaceClearAll)) {
      Forget();
      return {Bytes(packet.begin(), packet.end())};
    }
    return {};
  }
  if (packet.size() == kViscaLeast && (packet[1] & kViscaKind) == kViscaCancel) {
    return Cancel(packet[1] & kViscaSocket, now);
  }
  const ByteView data = ViscaData(packet);
  if (packet[1] == kViscaCommand) {
    return Command(data, line, now);
  }
  return packet[1] == kViscaInquiry ? Inquiry(data, line) : std::vector<Bytes>{Error(0, kErrSyntax)};
}

std::vector<Bytes> CameraModel::Command(ByteView data, Line line, Time now) {
  if (std::ranges::equal(data, kInterfaceClear)) {
    Forget();
    return {Reply({kViscaCompleted})};
  }
  const auto found = FindCommand(data, line);
  if (!found || !Takes(*found)) {
    return {Error(0, kErrSyntax)};
  }
  const auto free = std::find_if(sockets_.begin(), sockets_.end(), [](const Socket& s) { return !s.busy; });
  if (free == sockets_.end()) {
    return {Error(0, kErrBufferFull)};
  }
  const int number = static_cast<int>(free - sockets_.begin()) + 1;
  if (!Executable(found->row->needs)) {
    return {Error(number, kErrNotExecutable)};
  }
  const Bytes acknowledged = Reply({Byte(kViscaAccepted + number)});
  const Time duration = Perform(*found->row, found->values, *free, now);
  if (duration > 0) {
    free->busy = true;
    free->until = now + duration;
    return {acknowledged};
  }
  return {acknowledged, Reply({Byte(kViscaCompleted + number)})};
}

std::vector<Bytes> CameraModel::Inquiry(ByteView data, Line line) {
  const auto found = FindInquiry(data, line);
  if (!found) {
    return {Error(0, kErrSyntax)};
  }
  // A setting can be read in every mode, even if its command needs a particular one.
  if (!Executable(found->row->needs == Needs::Standby ? Needs::Standby : Needs::Power)) {
    return {Error(0, kErrNotExecutable)};
  }
  // Updates the transient variables that replies contain: the requested register, and the current flags.
  if (found->row->act == Act::Register) {
    state_[Var::register_value] = state_.registers[found->values.front().value];
  }
  state_[Var::zoom_moving] = zoom_.rate != 0;
  state_[Var::focus_moving] = focus_.rate != 0;
  state_[Var::field_50hz] = Shows50Hz();
  Bytes packet = Reply({kViscaCompleted});
  const Bytes values = Fill(found->row->reply, found->row->fields, state_);
  packet.insert(packet.end() - 1, values.begin(), values.end());
  return {packet};
}

bool CameraModel::Takes(const Found& command) const {
  return Accepted(command.values) || (!options_.strict && command.row->act == Act::Set && Fits(command.values));
}

std::vector<Bytes> CameraModel::Cancel(int number, Time now) {
  if (number < 1 || number > static_cast<int>(sockets_.size()) ||
      !sockets_[static_cast<std::size_t>(number) - 1].busy) {
    return {Error(number, kErrNoSocket)};
  }
  Socket& socket = sockets_[static_cast<std::size_t>(number) - 1];
  for (Axis* axis : socket.axes) {
    if (axis != nullptr) {
      Turn(*axis, 0, now);
    }
  }
  socket = {};
  return {Error(number, kErrCancelled)};
}

bool CameraModel::Executable(Needs needs) const {
  if (needs == Needs::Standby) {
    return true;
  }
  if (state_[Var::power] != kOn) {
    return false;
  }
  const std::uint32_t ae = state_[Var::ae_mode];
  switch (needs) {
    case Needs::ShutterFree:
      return ae == kAeManual || ae == kAeShutterPriority;
    case Needs::IrisFree:
      return ae == kAeManual || ae == kAeIrisPriority;
    case Needs::GainFree:
      return ae == kAeManual;
    case Needs::BrightFree:
      return ae == kAeBright;
    case Needs::WbManual:
      return state_[Var::wb_mode] == kWbManual;
    case Needs::FocusManual:
      return state_[Var::focus_mode] == kManual;
    case Needs::Power:
    case Needs::Standby:
      break;
  }
  return true;
}

Time CameraModel::Perform(const Row& row, const Values& values, Socket& socket, Time now) {
  const auto first = [&values] { return values.front().value; };
  switch (row.act) {
    case Act::Set:
      for (const FieldValue& v : values) {
        state_[v.field->var] = v.value;
      }
      SettleZoom();
      break;
    case Act::Power:
      state_[Var::power] = first();
      if (first() != kOn) {
        Forget();
      }
      break;
    case Act::Step: {
      const Var var = row.fields[1].var;
      const VarInfo& info = Info(var);
      std::uint32_t& value = state_[var];
      value = first() == kStepReset ? start_[var]
              : first() == kStepUp  ? std::min(value + 1, info.greatest)
                                    : std::max(value, info.least + 1) - 1;
      break;
    }
    case Act::MoveZoom:
    case Act::MoveFocus:
      SettleZoom();
      Turn(row.act == Act::MoveZoom ? zoom_ : focus_, MoveRate(row, values.front()), now);
      break;
    case Act::ZoomTo:
      return Drive(zoom_, first(), kTopSpeed * kZoomSpeed, socket, now);
    case Act::FocusTo:
      return Drive(focus_, first(), kTopSpeed * kFocusSpeed, socket, now);
    case Act::ZoomFocusTo:
      return std::max(Drive(zoom_, values[0].value, kTopSpeed * kZoomSpeed, socket, now),
                      Drive(focus_, values[1].value, kTopSpeed * kFocusSpeed, socket, now));
    case Act::FocusInfinity:
      return Drive(focus_, focus_.least, kTopSpeed * kFocusSpeed, socket, now);
    case Act::ToggleFocus:
      state_[Var::focus_mode] = state_[Var::focus_mode] == kAuto ? kManual : kAuto;
      break;
    case Act::Register: {
      const auto number = static_cast<std::uint8_t>(values[0].value);
      const auto value = static_cast<std::uint8_t>(values[1].value);
      if (number != kSensorModeRegister || value <= kLastSensorMode) {
        state_.registers[number] = value;
      }
      break;
    }
    case Act::MemoryReset:
      state_[Var::memory_last] = first();
      memories_[first()].reset();
      break;
    case Act::MemorySet:
      state_[Var::memory_last] = first();
      memories_[first()] = state_;
      break;
    case Act::MemoryRecall: {
      state_[Var::memory_last] = first();
      const State& stored = memories_[first()] ? *memories_[first()] : start_;
      std::copy_n(stored.values.begin(), static_cast<std::size_t>(kFirstKept), state_.values.begin());
      SettleZoom();
      break;
    }
    case Act::Nothing:
    case Act::Sony:
    case Act::Pelco:
    case Act::LoadDefault:
      break;
  }
  return 0;
}

Time CameraModel::Drive(Axis& axis, std::uint32_t target, std::int64_t speed, Socket& socket, Time now) {
  if (&axis == &zoom_) {
    SettleZoom();
  }
  target = std::clamp(target, axis.least, axis.greatest);
  const auto here = static_cast<std::int64_t>(state_[axis.var]);
  const std::int64_t distance = static_cast<std::int64_t>(target) - here;
  if (!options_.travel || distance == 0) {
    state_[axis.var] = target;
    axis.rate = 0;
    SettleZoom();
    return 0;
  }
  Turn(axis, distance > 0 ? speed : -speed, now);
  axis.target = target;
  (socket.axes[0] == nullptr ? socket.axes[0] : socket.axes[1]) = &axis;
  return std::abs(distance) * kSecond / speed + kMillisecond;
}

void CameraModel::Turn(Axis& axis, std::int64_t rate, Time now) {
  axis.from = state_[axis.var];
  axis.since = now;
  axis.rate = rate;
  axis.target = rate > 0 ? axis.greatest : axis.least;
}

// Brings the motors' variables up to date.
void CameraModel::MoveTo(Time now) {
  for (Axis* axis : {&zoom_, &focus_}) {
    if (axis->rate == 0) {
      continue;
    }
    const std::int64_t reached = axis->from + axis->rate * (now - axis->since) / kSecond;
    const bool there = axis->rate > 0 ? reached >= axis->target : reached <= axis->target;
    state_[axis->var] = static_cast<std::uint32_t>(there ? axis->target : reached);
    if (there) {
      axis->rate = 0;
    }
    if (axis == &zoom_) {
      SettleZoom();
    }
  }
}

// Limits the zoom's position to its range, which the digital zoom extends, and derives the digital position from it.
void CameraModel::SettleZoom() {
  const bool combined = state_[Var::dzoom_mode] == 0;
  zoom_.greatest = combined && state_[Var::digital_zoom] == kOn ? Info(Var::zoom_pos).greatest : kOpticalEnd;
  std::uint32_t& zoom = state_[Var::zoom_pos];
  zoom = std::min(zoom, zoom_.greatest);
  if (combined) {
    state_[Var::digital_zoom_pos] = zoom > kOpticalEnd ? (zoom - kOpticalEnd) / kDigitalStep : 0;
  }
}

std::vector<Bytes> CameraModel::Advance(Time now) {
  std::vector<Bytes> packets;
  if (!supply_) {
    return packets;
  }
  if (!announced_ && now >= awake_at_) {
    announced_ = true;
    packets.push_back(Reply({kViscaNetworkChange}));
  }
  MoveTo(now);
  for (std::size_t i = 0; i < sockets_.size(); ++i) {
    if (sockets_[i].busy && now >= sockets_[i].until) {
      sockets_[i] = {};
      packets.push_back(Reply({Byte(kViscaCompleted + 1 + static_cast<int>(i))}));
    }
  }
  return packets;
}

std::optional<Time> CameraModel::NextEvent() const {
  std::optional<Time> next;
  if (supply_ && !announced_) {
    next = awake_at_;
  }
  for (const Socket& socket : sockets_) {
    next = Earlier(next, socket.busy ? std::optional(socket.until) : std::nullopt);
  }
  return next;
}

}  // namespace sim
