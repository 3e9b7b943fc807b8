#include "simulator/Faults.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace sim {
namespace {

using K = FaultKind;

// clang-format off
constexpr FaultInfo kFaults[] = {
    {"no-reply",             K::NoReply,       -1,   -1,   "the reply is lost"},
    {"late",                 K::Late,          2500, -1,   "the reply comes ms later; the tool waits 2000"},
    {"duplicate",            K::Duplicate,     -1,   -1,   "the reply comes twice"},
    {"stale-first",          K::StaleFirst,    -1,   -1,   "the reply with the sequence id before it comes first"},
    {"wrong-sequence",       K::WrongSequence, -1,   1,    "the sequence id is off by value"},
    {"wrong-header",         K::WrongHeader,   -1,   0x55, "the first byte of the relay header is value"},
    {"wrong-code",           K::WrongCode,     -1,   -1,   "the command code lacks its 0x80"},
    {"bad-checksum",         K::BadChecksum,   -1,   -1,   "the checksum is off by one"},
    {"bad-start",            K::BadStart,      -1,   0,    "the frame's start byte is value"},
    {"bad-stop",             K::BadStop,       -1,   0,    "the frame's stop byte is value"},
    {"truncated",            K::Truncated,     -1,   -1,   "the second half of the frame is missing"},
    {"over-long",            K::OverLong,      -1,   20,   "the frame carries value data bytes"},
    {"wrong-size",           K::WrongSize,     -1,   40,   "the message has value bytes in place of 36"},
    {"short-reply",          K::ShortReply,    -1,   -1,   "the reply lacks its last data byte"},
    {"long-reply",           K::LongReply,     -1,   -1,   "the reply has a data byte too many"},
    {"nak",                  K::Nak,           -1,   0x40, "a plain frame with the result value in place of the reply"},
    {"visca-length",         K::ViscaError,    -1,   0x01, "VISCA error 01 from the camera"},
    {"visca-syntax",         K::ViscaError,    -1,   0x02, "VISCA error 02"},
    {"visca-buffer-full",    K::ViscaError,    -1,   0x03, "VISCA error 03"},
    {"visca-cancelled",      K::ViscaError,    -1,   0x04, "VISCA error 04"},
    {"visca-no-socket",      K::ViscaError,    -1,   0x05, "VISCA error 05"},
    {"visca-not-executable", K::ViscaError,    -1,   0x41, "VISCA error 41"},
    {"visca-error",          K::ViscaError,    -1,   0x7F, "VISCA error value"},
    {"socket-number",        K::SocketNumber,  -1,   1,    "the VISCA reply carries the socket number value"},
    {"power-loss",           K::PowerLoss,     0,    -1,   "the camera loses its supply during the exchange, for ms"},
    {"daemon-away",          K::DaemonAway,    3000, -1,   "the daemon leaves with the request, for ms"},
    {"daemon-restart",       K::DaemonRestart, 100,  -1,   "the same, and the queues are removed and made anew"},
};
// clang-format on

bool Number(std::string_view text, std::int64_t& out) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = hex ? text.substr(2) : text;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), out, hex ? 16 : 10);
  return error == std::errc() && end == digits.data() + digits.size();
}

}  // namespace

std::span<const FaultInfo> FaultTable() { return kFaults; }

const FaultInfo* FindFault(std::string_view name) {
  const auto it =
      std::find_if(std::begin(kFaults), std::end(kFaults), [name](const FaultInfo& f) { return f.name == name; });
  return it == std::end(kFaults) ? nullptr : it;
}

std::string SetFaultKey(Fault& fault, std::string_view key, std::string_view text) {
  static constexpr std::string_view kOnly[] = {"all", "camera", "mcu", "commands", "inquiries"};
  const std::string shown = "'" + std::string(text) + "'";
  const std::string name(fault.info->name);
  std::int64_t number = 0;
  const bool numeric = Number(text, number);
  if (key == "nth") {
    for (std::string_view rest = text; !rest.empty();) {
      const std::string_view one = rest.substr(0, rest.find('+'));
      rest.remove_prefix(std::min(one.size() + 1, rest.size()));
      if (!Number(one, number) || number < 1 || number > UINT32_MAX) {
        return "nth takes message numbers from 1, not " + shown;
      }
      fault.nth.push_back(static_cast<std::uint32_t>(number));
    }
    return fault.nth.empty() ? "nth takes message numbers from 1, not ''" : "";
  }
  if (key == "every") {
    fault.every = static_cast<std::uint32_t>(number);
    return numeric && number >= 1 && number <= UINT32_MAX ? "" : "every takes a number from 1, not " + shown;
  }
  if (key == "chance") {
    double chance = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), chance);
    fault.chance = chance;
    return error == std::errc() && end == text.data() + text.size() && chance >= 0 && chance <= 1
               ? ""
               : "chance takes a number from 0 to 1, not " + shown;
  }
  if (key == "only") {
    const auto it = std::find(std::begin(kOnly), std::end(kOnly), text);
    fault.only = static_cast<Only>(it - std::begin(kOnly));
    return it != std::end(kOnly) ? "" : "only takes all, camera, mcu, commands or inquiries, not " + shown;
  }
  if (key == "match") {
    const auto bytes = FromHex(text);
    fault.match = bytes.value_or(Bytes{});
    return !fault.match.empty() ? "" : "match takes bytes in hexadecimal, not " + shown;
  }
  if (key == "ms") {
    fault.ms = number;
    return fault.info->ms < 0                                  ? "ms means nothing to " + name
           : numeric && number >= 0 && number <= 24 * 3600000L ? ""
                                                               : "ms takes milliseconds of a day at most, not " + shown;
  }
  if (key == "value") {
    fault.value = number;
    const std::int64_t greatest = fault.info->kind == K::WrongSize ? 4096 : fault.info->kind == K::OverLong ? 27 : 255;
    return fault.info->value < 0 ? "value means nothing to " + name
           : numeric && number >= 0 && number <= greatest
               ? ""
               : "value takes a number from 0 to " + std::to_string(greatest) + ", not " + shown;
  }
  return "unknown key '" + std::string(key) + "'";
}

FaultOrError ParseFault(std::string_view text) {
  const std::string_view name = text.substr(0, text.find(':'));
  Fault fault;
  fault.info = FindFault(name);
  if (fault.info == nullptr) {
    return {{}, "unknown fault '" + std::string(name) + "'"};
  }
  fault.ms = fault.info->ms;
  fault.value = fault.info->value;
  text.remove_prefix(std::min(name.size() + 1, text.size()));
  while (!text.empty()) {
    const std::string_view pair = text.substr(0, text.find(','));
    text.remove_prefix(std::min(pair.size() + 1, text.size()));
    const auto equals = pair.find('=');
    if (equals == std::string_view::npos) {
      return {{}, "'" + std::string(pair) + "' is not key=value"};
    }
    if (const std::string error = SetFaultKey(fault, pair.substr(0, equals), pair.substr(equals + 1)); !error.empty()) {
      return {{}, error};
    }
  }
  return {fault, ""};
}

FaultPicker::FaultPicker(std::vector<Fault> faults, std::uint64_t seed)
    : faults_(std::move(faults)), seen_(faults_.size(), 0), random_(seed) {}

const Fault* FaultPicker::Pick(const Frame& request) {
  const Fault* picked = nullptr;
  const bool camera = request.code == kCameraCode;
  const std::uint8_t selector = camera && request.data.size() > 1 ? request.data[1] : std::uint8_t{0};
  const Bytes bytes = request.Encode();
  for (std::size_t i = 0; i < faults_.size(); ++i) {
    const Fault& fault = faults_[i];
    const bool meant = fault.only == Only::All || (fault.only == Only::Camera && camera) ||
                       (fault.only == Only::Mcu && !camera) || (fault.only == Only::Commands && selector == 0x01) ||
                       (fault.only == Only::Inquiries && selector == 0x09);
    const auto& match = fault.match;
    if (!meant || std::search(bytes.begin(), bytes.end(), match.begin(), match.end()) == bytes.end()) {
      continue;
    }
    const std::uint32_t number = ++seen_[i];
    bool strikes = fault.nth.empty() && fault.every == 0;
    strikes = strikes || std::ranges::find(fault.nth, number) != fault.nth.end();
    strikes = strikes || (fault.every != 0 && number % fault.every == 0);
    if (fault.chance) {  // drawn for every message, so that a seed gives the same run whatever else strikes
      const double drawn = std::ldexp(static_cast<double>(random_() >> 11), -53);
      strikes = strikes && drawn < *fault.chance;
    }
    if (strikes && picked == nullptr) {
      picked = &fault;
    }
  }
  return picked;
}

}  // namespace sim
