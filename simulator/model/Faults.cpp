#include "simulator/model/Faults.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "simulator/model/Error.h"
#include "simulator/model/Visca.h"

namespace sim {
namespace {

std::uint8_t Low(std::int64_t value) { return static_cast<std::uint8_t>(value); }

bool CarriesVisca(const Frame& frame) {
  return frame.code == ReplyCode(kCameraCode) && frame.data.size() >= kViscaLeast;
}

// Where data bytes are added or removed: a VISCA packet keeps its last byte, FF.
std::size_t EndOfData(const Frame& frame) { return frame.data.size() - (CarriesVisca(frame) ? 1 : 0); }

// The end of the frame in a relay message; the end of the message if the frame is longer.
std::size_t FrameEnd(const Bytes& body) { return std::min<std::size_t>(kFrameAt + body[kFrameLengthAt], body.size()); }

// The routines of the kinds. A routine is called with the fault, whose `ms` and `value` are set if its kind has them.
void Lose(const Fault&, std::vector<Outgoing>& messages) { messages.clear(); }

void Delay(const Fault& fault, std::vector<Outgoing>& messages) {
  for (Outgoing& message : messages) {
    message.due += fault.ms * kMillisecond;
  }
}

// The copy is sent first; the note for the trace belongs to the last message.
void Duplicate(const Fault&, std::vector<Outgoing>& messages) {
  messages.insert(messages.begin(), messages.front());
  messages.front().note.clear();
}

// The note for the trace belongs to the first message, which is the wrong one.
void StaleFirst(const Fault&, std::vector<Outgoing>& messages) {
  messages.insert(messages.begin(), messages.front());
  --messages.front().body[kSequenceAt];
  messages.back().note.clear();
}

void WrongSequence(const Fault& fault, Bytes& body) { body[kSequenceAt] = Low(body[kSequenceAt] + fault.value); }

void WrongHeader(const Fault& fault, Bytes& body) { body[0] = Low(fault.value); }

void WrongCode(const Fault&, Frame& frame) { frame.code = Low(frame.code - kReplyBit); }

void BadChecksum(const Fault&, Bytes& body) { ++body[FrameEnd(body) - 2]; }

void BadStart(const Fault& fault, Bytes& body) { body[kFrameAt] = Low(fault.value); }

void BadStop(const Fault& fault, Bytes& body) { body[FrameEnd(body) - 1] = Low(fault.value); }

void Truncate(const Fault&, Bytes& body) {
  const std::size_t kept = (FrameEnd(body) - kFrameAt) / 2;
  std::fill(body.begin() + static_cast<std::ptrdiff_t>(kFrameAt + kept), body.end(), std::uint8_t{0});
  body[kFrameLengthAt] = Low(static_cast<std::int64_t>(kept));
}

void OverLong(const Fault& fault, Frame& frame) { frame.data.resize(static_cast<std::size_t>(fault.value), 0); }

void WrongSize(const Fault& fault, Bytes& body) { body.resize(static_cast<std::size_t>(fault.value), 0); }

void Shorten(const Fault&, Frame& frame) {
  if (const std::size_t end = EndOfData(frame); end > 0) {
    frame.data.erase(frame.data.begin() + static_cast<std::ptrdiff_t>(end) - 1);
  }
}

void Lengthen(const Fault&, Frame& frame) {
  frame.data.insert(frame.data.begin() + static_cast<std::ptrdiff_t>(EndOfData(frame)), 0);
}

void Refuse(const Fault& fault, Frame& frame) { frame.data = {Low(fault.value)}; }

void ViscaRefuse(const Fault& fault, Frame& frame) { frame.data = {0x90, kViscaError, Low(fault.value), kViscaEnd}; }

void SocketNumber(const Fault& fault, Frame& frame) {
  if (CarriesVisca(frame)) {
    frame.data[1] = Low((frame.data[1] & kViscaKind) + (fault.value & 0x0F));
  }
}

bool CutSupply(const Fault& fault, FaultTarget& device) {
  device.CutSupply(fault.ms * kMillisecond);
  return true;
}

bool LeaveDaemon(const Fault& fault, FaultTarget& device) {
  device.StopDaemon(Outgoing::Kind::Leave, fault.ms * kMillisecond);
  return false;
}

bool RestartDaemon(const Fault& fault, FaultTarget& device) {
  device.StopDaemon(Outgoing::Kind::Restart, fault.ms * kMillisecond);
  return false;
}

bool IsCamera(const Frame& request) { return request.code == kCameraCode; }

bool IsCamera(const Frame& request, std::uint8_t kind) {
  return IsCamera(request) && request.data.size() > 1 && request.data[1] == kind;
}

constexpr std::int64_t kNo = kNoKey;
constexpr std::int64_t kByte = 0xFF;
constexpr std::int64_t kLongestData = kBodySize - kFrameAt - kFrameOverhead;  // for which the message has room
constexpr std::int64_t kLongestMessage = 4096;

// clang-format off
constexpr FaultKind kFaults[] = {
    // name                  ms     value  greatest         action                   text
    {"no-reply",             kNo,   kNo,   kNo,             {.delivery = Lose},      "the reply is lost"},
    {"late",                 2500,  kNo,   kNo,             {.delivery = Delay},     "the reply comes ms later; the tool waits 2000"},
    {"duplicate",            kNo,   kNo,   kNo,             {.delivery = Duplicate}, "the reply comes twice"},
    {"stale-first",          kNo,   kNo,   kNo,             {.delivery = StaleFirst}, "the reply with the sequence id before it comes first"},
    {"wrong-sequence",       kNo,   1,     kByte,           {.body = WrongSequence}, "the sequence id is off by value"},
    {"wrong-header",         kNo,   0x55,  kByte,           {.body = WrongHeader},   "the first byte of the relay header is value"},
    {"wrong-code",           kNo,   kNo,   kNo,             {.frame = WrongCode},    "the command code lacks its 0x80"},
    {"bad-checksum",         kNo,   kNo,   kNo,             {.body = BadChecksum},   "the checksum is off by one"},
    {"bad-start",            kNo,   0,     kByte,           {.body = BadStart},      "the frame's start byte is value"},
    {"bad-stop",             kNo,   0,     kByte,           {.body = BadStop},       "the frame's stop byte is value"},
    {"truncated",            kNo,   kNo,   kNo,             {.body = Truncate},      "the second half of the frame is missing"},
    {"over-long",            kNo,   20,    kLongestData,    {.frame = OverLong},     "the frame carries value data bytes"},
    {"wrong-size",           kNo,   40,    kLongestMessage, {.body = WrongSize},     "the message has value bytes in place of 36"},
    {"short-reply",          kNo,   kNo,   kNo,             {.frame = Shorten},      "the reply lacks its last data byte"},
    {"long-reply",           kNo,   kNo,   kNo,             {.frame = Lengthen},     "the reply has a data byte too many"},
    {"nak",                  kNo,   0x40,  kByte,           {.frame = Refuse},       "a plain frame with the result value in place of the reply"},
    {"visca-length",         kNo,   0x01,  kByte,           {.frame = ViscaRefuse},  "VISCA error 01 from the camera"},
    {"visca-syntax",         kNo,   0x02,  kByte,           {.frame = ViscaRefuse},  "VISCA error 02"},
    {"visca-buffer-full",    kNo,   0x03,  kByte,           {.frame = ViscaRefuse},  "VISCA error 03"},
    {"visca-cancelled",      kNo,   0x04,  kByte,           {.frame = ViscaRefuse},  "VISCA error 04"},
    {"visca-no-socket",      kNo,   0x05,  kByte,           {.frame = ViscaRefuse},  "VISCA error 05"},
    {"visca-not-executable", kNo,   0x41,  kByte,           {.frame = ViscaRefuse},  "VISCA error 41"},
    {"visca-error",          kNo,   0x7F,  kByte,           {.frame = ViscaRefuse},  "VISCA error value"},
    {"socket-number",        kNo,   1,     kByte,           {.frame = SocketNumber}, "the VISCA reply carries the socket number value"},
    {"power-loss",           0,     kNo,   kNo,             {.before = CutSupply, .delivery = Lose}, "the camera loses its supply during the exchange, for ms"},
    {"daemon-away",          3000,  kNo,   kNo,             {.before = LeaveDaemon}, "the daemon leaves with the request, for ms"},
    {"daemon-restart",       100,   kNo,   kNo,             {.before = RestartDaemon}, "the same, and the queues are removed and created again"},
};
// clang-format on
static_assert(std::ranges::all_of(kFaults,
                                  [](const FaultKind& kind) {
                                    const FaultAction& action = kind.action;
                                    return action.before != nullptr || action.frame != nullptr ||
                                           action.body != nullptr || action.delivery != nullptr;
                                  }),
              "every kind of fault does something");

constexpr FaultFilter kFilters[] = {
    {"all", [](const Frame&) { return true; }},
    {"camera", [](const Frame& request) { return IsCamera(request); }},
    {"mcu", [](const Frame& request) { return !IsCamera(request); }},
    {"commands", [](const Frame& request) { return IsCamera(request, kViscaCommand); }},
    {"inquiries", [](const Frame& request) { return IsCamera(request, kViscaInquiry); }},
};

std::string FilterNames() {
  std::string names;
  for (const FaultFilter& filter : kFilters) {
    names += (names.empty() ? "" : ", ") + std::string(filter.name);
  }
  return names;
}

// A whole number, decimal or with 0x hexadecimal, from `least` to `greatest`.
std::optional<std::int64_t> Number(std::string_view text, std::int64_t least, std::int64_t greatest) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = hex ? text.substr(2) : text;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, hex ? 16 : 10);
  const bool whole = error == std::errc() && end == digits.data() + digits.size();
  return whole && number >= least && number <= greatest ? std::optional(number) : std::nullopt;
}

[[noreturn]] void Reject(std::string_view key, std::string_view takes, std::string_view text) {
  throw Error(std::string(key) + " must be " + std::string(takes) + ", not '" + std::string(text) + "'");
}

void RequireKey(const Fault& fault, std::string_view key, std::int64_t of_kind) {
  if (of_kind == kNoKey) {
    throw Error("fault " + std::string(fault.kind->name) + " has no " + std::string(key));
  }
}

}  // namespace

std::span<const FaultKind> FaultTable() { return kFaults; }

void SetFaultKey(Fault& fault, std::string_view key, std::string_view text) {
  if (key == "nth") {
    std::string_view rest = text;
    do {
      const std::string_view one = rest.substr(0, rest.find('+'));
      rest.remove_prefix(std::min(one.size() + 1, rest.size()));
      const auto number = Number(one, 1, UINT32_MAX);
      if (!number) {
        Reject(key, "message numbers from 1, such as 3 or 3+5", text);
      }
      fault.nth.push_back(static_cast<std::uint32_t>(*number));
    } while (!rest.empty());
  } else if (key == "every") {
    const auto number = Number(text, 1, UINT32_MAX);
    if (!number) {
      Reject(key, "a whole number from 1", text);
    }
    fault.every = static_cast<std::uint32_t>(*number);
  } else if (key == "chance") {
    double chance = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), chance);
    if (error != std::errc() || end != text.data() + text.size() || !(chance >= 0 && chance <= 1)) {
      Reject(key, "a number from 0 to 1", text);
    }
    fault.chance = chance;
  } else if (key == "only") {
    fault.only = std::ranges::find(kFilters, text, &FaultFilter::name);
    if (fault.only == std::end(kFilters)) {
      Reject(key, "one of " + FilterNames(), text);
    }
  } else if (key == "match") {
    fault.match = FromHex(text).value_or(Bytes{});
    if (fault.match.empty()) {
      Reject(key, "bytes in hexadecimal", text);
    }
  } else if (key == "ms") {
    RequireKey(fault, key, fault.kind->ms);
    const auto number = Number(text, 0, kGreatestFaultMs);
    if (!number) {
      Reject(key, "a whole number of milliseconds, one day at most", text);
    }
    fault.ms = *number;
  } else if (key == "value") {
    RequireKey(fault, key, fault.kind->value);
    const auto number = Number(text, 0, fault.kind->greatest);
    if (!number) {
      Reject(key, "a number from 0 to " + std::to_string(fault.kind->greatest), text);
    }
    fault.value = *number;
  } else {
    throw Error("unknown key '" + std::string(key) + "'");
  }
}

Fault ParseFault(std::string_view text) {
  const std::string_view name = text.substr(0, text.find(':'));
  const auto* const kind = std::ranges::find(kFaults, name, &FaultKind::name);
  if (kind == std::end(kFaults)) {
    throw Error("unknown fault '" + std::string(name) + "'");
  }
  Fault fault;
  fault.kind = kind;
  fault.only = std::begin(kFilters);
  fault.ms = kind->ms;
  fault.value = kind->value;
  text.remove_prefix(std::min(name.size() + 1, text.size()));
  while (!text.empty()) {
    const std::string_view pair = text.substr(0, text.find(','));
    text.remove_prefix(std::min(pair.size() + 1, text.size()));
    const auto equals = pair.find('=');
    if (equals == std::string_view::npos) {
      throw Error("'" + std::string(pair) + "' is not key=value");
    }
    SetFaultKey(fault, pair.substr(0, equals), pair.substr(equals + 1));
  }
  return fault;
}

FaultPicker::FaultPicker(std::vector<Fault> faults, std::uint64_t seed)
    : faults_(std::move(faults)), seen_(faults_.size(), 0), random_(seed) {}

const Fault* FaultPicker::Pick(const Frame& request) {
  const Fault* picked = nullptr;
  const Bytes bytes = request.Encode();
  for (std::size_t i = 0; i < faults_.size(); ++i) {
    const Fault& fault = faults_[i];
    const auto& match = fault.match;
    if (!fault.only->passes(request) ||
        std::search(bytes.begin(), bytes.end(), match.begin(), match.end()) == bytes.end()) {
      continue;
    }
    const std::uint32_t number = ++seen_[i];
    bool strikes = fault.nth.empty() && fault.every == 0;
    strikes = strikes || std::ranges::find(fault.nth, number) != fault.nth.end();
    strikes = strikes || (fault.every != 0 && number % fault.every == 0);
    if (fault.chance) {  // drawn for every message, so that other faults do not change the run of a seed
      const double drawn = std::ldexp(static_cast<double>(random_() >> 11), -53);  // from 0 to just below 1
      strikes = strikes && drawn < *fault.chance;
    }
    if (strikes && picked == nullptr) {
      picked = &fault;
    }
  }
  return picked;
}

}  // namespace sim
