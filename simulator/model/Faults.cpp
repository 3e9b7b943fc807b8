// The tables of faults, keys and filters, the routine of each fault, and the choice of the one that strikes.
#include "simulator/model/Faults.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "simulator/model/Change.h"
#include "simulator/model/Error.h"
#include "simulator/model/Visca.h"

namespace sim {
namespace {

std::uint8_t Low(std::int64_t value) { return static_cast<std::uint8_t>(value); }

bool CarriesVisca(const Frame& frame) {
  return frame.code == ReplyCode(kCameraCode) && frame.data.size() >= kViscaLeast;
}

// Returns where data bytes are added or removed: a VISCA packet keeps its last byte, FF.
std::size_t EndOfData(const Frame& frame) { return frame.data.size() - (CarriesVisca(frame) ? 1 : 0); }

// The end of the frame in a relay message; the end of the message if the frame is longer.
std::size_t FrameEnd(const Bytes& body) { return std::min<std::size_t>(kFrameAt + body[kFrameLengthAt], body.size()); }

// One routine per kind of fault. It is called with the fault, whose `ms` and `value` are set if its kind takes them.
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

// Corrects the checksum for the changed byte, unless that is the checksum itself: otherwise the tool would reject the
// frame before it looks at the byte. The message keeps its size: the bytes after a cut or an insertion move.
void Patch(const Fault& fault, Bytes& body) {
  const std::size_t end = FrameEnd(body);
  const std::int64_t place = fault.at < 0 ? static_cast<std::int64_t>(end) + fault.at : fault.at;
  if (place < 0 || place >= static_cast<std::int64_t>(body.size())) {
    return;
  }
  const auto offset = static_cast<std::size_t>(place);
  const auto at = body.begin() + static_cast<std::ptrdiff_t>(offset);
  body.erase(at, at + static_cast<std::ptrdiff_t>(std::min(static_cast<std::size_t>(fault.cut), body.size() - offset)));
  body.insert(body.begin() + static_cast<std::ptrdiff_t>(offset), fault.insert.begin(), fault.insert.end());
  body.resize(kBodySize);
  const std::uint8_t old = body[offset];
  body[offset] = fault.value != kNoKey ? Low(fault.value) : fault.flip != kNoKey ? Low(old ^ fault.flip) : old;
  const std::size_t checksum = end - 2;
  if (offset >= kFrameAt && offset < checksum) {
    body[checksum] = Low(body[checksum] - body[offset] + old);
  }
}

void FillTail(const Fault& fault, Bytes& body) {
  std::fill(body.begin() + static_cast<std::ptrdiff_t>(FrameEnd(body)), body.end(), Low(fault.value));
}

void Shorten(const Fault&, Frame& frame) {
  if (const std::size_t end = EndOfData(frame); end > 0) {
    frame.data.erase(frame.data.begin() + static_cast<std::ptrdiff_t>(end) - 1);
  }
}

void Lengthen(const Fault&, Frame& frame) {
  frame.data.insert(frame.data.begin() + static_cast<std::ptrdiff_t>(EndOfData(frame)), 0);
}

void Refuse(const Fault& fault, Frame& frame) { frame.data = {Low(fault.value)}; }

void ViscaRefuse(const Fault& fault, Frame& frame) {
  frame.data = {ViscaFrom(kViscaFirstAddress), kViscaError, Low(fault.value), kViscaEnd};
}

void SocketNumber(const Fault& fault, Frame& frame) {
  if (CarriesVisca(frame)) {
    frame.data[1] = Low((frame.data[1] & kViscaKind) + (fault.value & kViscaSocket));
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
// FaultKind::visca_line.
constexpr bool kQueues = false;
constexpr bool kBoth = true;

constexpr std::int64_t kByte = 0xFF;
constexpr std::int64_t kLongestData = kBodySize - kFrameAt - kFrameOverhead;  // that fits into a message
constexpr std::int64_t kLongestMessage = 4096;
constexpr std::int64_t kLastOffset = kBodySize - 1;
constexpr std::int64_t kFirstOffset = -static_cast<std::int64_t>(kFrameAt + kFrameOverhead + kMaxData);

// clang-format off
constexpr FaultKind kFaults[] = {
    // name                  ms     value  greatest         lines    action                   text
    {"no-reply",             kNo,   kNo,   kNo,             kBoth,   {.delivery = Lose},      "the reply is lost"},
    {"late",                 2500,  kNo,   kNo,             kBoth,   {.delivery = Delay},     "the reply comes ms later; the tool waits 2000"},
    {"duplicate",            kNo,   kNo,   kNo,             kBoth,   {.delivery = Duplicate}, "the reply comes twice"},
    {"stale-first",          kNo,   kNo,   kNo,             kQueues, {.delivery = StaleFirst}, "a copy of the reply with the previous sequence id comes first"},
    {"wrong-sequence",       kNo,   1,     kByte,           kQueues, {.body = WrongSequence}, "the sequence id is off by value"},
    {"wrong-header",         kNo,   0x55,  kByte,           kQueues, {.body = WrongHeader},   "the first byte of the relay header is value"},
    {"wrong-code",           kNo,   kNo,   kNo,             kQueues, {.frame = WrongCode},    "the command code is the request's"},
    {"bad-checksum",         kNo,   kNo,   kNo,             kQueues, {.body = BadChecksum},   "the checksum is off by one"},
    {"bad-start",            kNo,   0,     kByte,           kQueues, {.body = BadStart},      "the frame's start byte is value"},
    {"bad-stop",             kNo,   0,     kByte,           kQueues, {.body = BadStop},       "the frame's stop byte is value"},
    {"truncated",            kNo,   kNo,   kNo,             kQueues, {.body = Truncate},      "the second half of the frame is missing"},
    {"over-long",            kNo,   20,    kLongestData,    kQueues, {.frame = OverLong},     "the frame carries value data bytes"},
    {"wrong-size",           kNo,   40,    kLongestMessage, kQueues, {.body = WrongSize},     "the message has value bytes instead of 36"},
    {"short-reply",          kNo,   kNo,   kNo,             kBoth,   {.frame = Shorten},      "the reply lacks its last data byte"},
    {"long-reply",           kNo,   kNo,   kNo,             kBoth,   {.frame = Lengthen},     "the reply has one data byte too many"},
    {"nak",                  kNo,   0x40,  kByte,           kQueues, {.frame = Refuse},       "a plain frame with the result code value instead of the reply"},
    {"visca-length",         kNo,   0x01,  kByte,           kBoth,   {.frame = ViscaRefuse},  "VISCA error 01 from the camera"},
    {"visca-syntax",         kNo,   0x02,  kByte,           kBoth,   {.frame = ViscaRefuse},  "VISCA error 02"},
    {"visca-buffer-full",    kNo,   0x03,  kByte,           kBoth,   {.frame = ViscaRefuse},  "VISCA error 03"},
    {"visca-cancelled",      kNo,   0x04,  kByte,           kBoth,   {.frame = ViscaRefuse},  "VISCA error 04"},
    {"visca-no-socket",      kNo,   0x05,  kByte,           kBoth,   {.frame = ViscaRefuse},  "VISCA error 05"},
    {"visca-not-executable", kNo,   0x41,  kByte,           kBoth,   {.frame = ViscaRefuse},  "VISCA error 41"},
    {"visca-error",          kNo,   0x7F,  kByte,           kBoth,   {.frame = ViscaRefuse},  "a VISCA error with the code value"},
    {"socket-number",        kNo,   1,     kByte,           kBoth,   {.frame = SocketNumber}, "the VISCA reply carries value as its socket number"},
    {"tail",                 kNo,   0xFF,  kByte,           kQueues, {.body = FillTail},      "the unused bytes after the frame are value, not 0"},
    {"patch",                kNo,   kNo,   kByte,           kQueues, {.body = Patch},         "the message is changed by at, value, xor, insert, cut"},
    {"power-loss",           0,     kNo,   kNo,             kBoth,   {.before = CutSupply, .delivery = Lose}, "the camera loses its supply during the exchange, for ms"},
    {"daemon-away",          3000,  kNo,   kNo,             kQueues, {.before = LeaveDaemon}, "the request is not answered, and the daemon does nothing for ms"},
    {"daemon-restart",       100,   kNo,   kNo,             kQueues, {.before = RestartDaemon}, "the request is not answered, and the daemon removes the queues and creates them again after ms"},
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

[[noreturn]] void Reject(std::string_view text, const std::string& takes) {
  throw Error("'" + std::string(text) + "' is not " + takes);
}

// Returns a whole number, decimal or hexadecimal with 0x; nothing if the text is anything else.
std::optional<std::int64_t> Number(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = hex ? text.substr(2) : text;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, hex ? 16 : 10);
  return error == std::errc() && end == digits.data() + digits.size() ? std::optional(number) : std::nullopt;
}

std::int64_t Whole(std::string_view text, std::int64_t least, std::int64_t greatest, std::string_view unit = "") {
  const auto number = Number(text);
  return WholeNumber(number ? Given(*number) : Given(std::string(text)), least, greatest, unit);
}

std::int64_t Milliseconds(std::string_view text) { return Whole(text, 0, kGreatestFaultMs, " milliseconds"); }

std::string KeyText(std::int64_t value) { return value == kNoKey ? "" : std::to_string(value); }

std::uint32_t Count(std::string_view text) { return static_cast<std::uint32_t>(Whole(text, 1, UINT32_MAX)); }

std::string CountText(std::uint32_t count) { return count == 0 ? "" : std::to_string(count); }

// Throws Error if the fault's kind does not take the key: `of_kind` is then kNoKey.
void RequireKey(const Fault& fault, std::int64_t of_kind) {
  if (of_kind == kNoKey) {
    throw Error("not a key of fault " + std::string(fault.kind->name));
  }
}

void RequirePatch(const Fault& fault) { RequireKey(fault, fault.kind->action.body == Patch ? 0 : kNoKey); }

void SetNth(Fault& fault, std::string_view text) {
  std::vector<std::uint32_t> numbers;
  for (std::size_t begin = 0, end = 0; begin <= text.size(); begin = end + 1) {
    end = std::min(text.find('+', begin), text.size());
    const auto number = Number(text.substr(begin, end - begin));
    if (!number || *number < 1 || *number > UINT32_MAX) {
      Reject(text, "a list of message numbers from 1 (3, or 3+5)");
    }
    numbers.push_back(static_cast<std::uint32_t>(*number));
  }
  fault.nth = std::move(numbers);
}

std::string NthText(const Fault& fault) {
  std::string text;
  for (const std::uint32_t number : fault.nth) {
    text += (text.empty() ? "" : "+") + std::to_string(number);
  }
  return text;
}

void SetChance(Fault& fault, std::string_view text) {
  double chance = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), chance);
  if (error != std::errc() || end != text.data() + text.size() || !(chance >= 0 && chance <= 1)) {
    Reject(text, "a probability (0 to 1)");
  }
  fault.chance = chance;
}

std::string ChanceText(const Fault& fault) {
  char digits[32];
  return fault.chance ? std::string(digits, std::to_chars(digits, digits + sizeof digits, *fault.chance).ptr) : "";
}

void SetOnly(Fault& fault, std::string_view text) {
  const auto* const filter = std::ranges::find(kFilters, text, &FaultFilter::name);
  if (filter == std::end(kFilters)) {
    Reject(text, "a kind of messages (" + FilterNames() + ")");
  }
  fault.only = filter;
}

Bytes SomeBytes(std::string_view text) {
  const auto bytes = FromHex(text);
  if (!bytes || bytes->empty() || bytes->size() > kBodySize) {
    Reject(text, "a sequence of 1 to 36 bytes in hexadecimal (09 04 24)");
  }
  return *bytes;
}

// clang-format off
constexpr FaultKey kKeys[] = {
    {"nth", SetNth, NthText,
     "The messages that the fault applies to, counted from 1: 3, or 3+5 (in files and requests also [3, 5])."},
    {"every", [](Fault& f, std::string_view text) { f.every = Count(text); },
     [](const Fault& f) { return CountText(f.every); },
     "Every Nth message."},
    {"chance", SetChance, ChanceText,
     "A probability from 0 to 1. With nth or every, it applies to the messages that those select."},
    {"count", [](Fault& f, std::string_view text) { f.count = Count(text); },
     [](const Fault& f) { return CountText(f.count); },
     "The maximum number of times that the fault strikes."},
    {"only", SetOnly,
     [](const Fault& f) { return f.only == std::begin(kFilters) ? "" : std::string(f.only->name); },
     "Which messages are counted: all, camera, mcu, commands or inquiries."},
    {"match", [](Fault& f, std::string_view text) { f.match = SomeBytes(text); },
     [](const Fault& f) { return ToHex(f.match); },
     "Bytes in hexadecimal. Only requests whose frame contains them are counted."},
    {"from_ms", [](Fault& f, std::string_view text) { f.from_ms = Milliseconds(text); },
     [](const Fault& f) { return KeyText(f.from_ms); },
     "Only messages that arrive at least this many milliseconds after the fault was added are counted."},
    {"until_ms", [](Fault& f, std::string_view text) { f.until_ms = Milliseconds(text); },
     [](const Fault& f) { return KeyText(f.until_ms); },
     "Only messages that arrive less than this many milliseconds after the fault was added are counted."},
    {"ms",
     [](Fault& f, std::string_view text) {
       RequireKey(f, f.kind->ms);
       f.ms = Milliseconds(text);
     },
     [](const Fault& f) { return KeyText(f.ms); },
     "Milliseconds, for the faults that take a time."},
    {"value",
     [](Fault& f, std::string_view text) {
       RequireKey(f, f.kind->greatest);
       f.value = Whole(text, 0, f.kind->greatest);
     },
     [](const Fault& f) { return KeyText(f.value); },
     "A number, for the faults that take one."},
    {"at",
     [](Fault& f, std::string_view text) {
       RequirePatch(f);
       f.at = Whole(text, kFirstOffset, kLastOffset);
     },
     [](const Fault& f) { return f.at == 0 ? "" : std::to_string(f.at); },
     "For patch: the offset in the message, from 0; if negative, from the end of the frame: -1 is the stop byte."},
    {"xor",
     [](Fault& f, std::string_view text) {
       RequirePatch(f);
       f.flip = Whole(text, 1, kByte);
     },
     [](const Fault& f) { return KeyText(f.flip); },
     "For patch: the bits to invert in the byte; value replaces the byte. A checksum that covers the byte is corrected."},
    {"insert",
     [](Fault& f, std::string_view text) {
       RequirePatch(f);
       f.insert = SomeBytes(text);
     },
     [](const Fault& f) { return ToHex(f.insert); },
     "For patch: bytes in hexadecimal to insert. The message keeps its size."},
    {"cut",
     [](Fault& f, std::string_view text) {
       RequirePatch(f);
       f.cut = Whole(text, 1, kBodySize);
     },
     [](const Fault& f) { return f.cut == 0 ? "" : std::to_string(f.cut); },
     "For patch: how many bytes to remove before any are inserted. The message keeps its size."},
};
// clang-format on

// Returns a number from 0 to just below 1. It depends only on the arguments, so adding or removing a fault does not
// change when the others strike.
double Draw(std::uint64_t seed, std::uint32_t id, std::uint32_t message) {
  const auto mix = [](std::uint64_t x) {  // the finalizer of splitmix64
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return x ^ (x >> 31);
  };
  constexpr std::uint64_t kStep = 0x9E3779B97F4A7C15;
  return std::ldexp(static_cast<double>(mix(mix(mix(seed + kStep) + id * kStep) + message * kStep) >> 11), -53);
}

}  // namespace

std::span<const FaultKind> FaultTable() { return kFaults; }
std::span<const FaultKey> FaultKeys() { return kKeys; }

bool operator==(const Fault& a, const Fault& b) { return FaultText(a) == FaultText(b); }

void SetFaultKey(Fault& fault, std::string_view key, std::string_view value) {
  const auto* const row = std::ranges::find(kKeys, key, &FaultKey::name);
  if (row == std::end(kKeys)) {
    std::string names;
    for (const FaultKey& known : kKeys) {
      names += (names.empty() ? "" : ", ") + std::string(known.name);
    }
    throw Error(std::string(key) + ": no such key (" + names + ")");
  }
  try {
    row->set(fault, value);
  } catch (const Error& error) {
    throw Error(std::string(key) + ": " + error.what());
  }
}

Fault MakeFault(std::string_view name) {
  const auto* const kind = std::ranges::find(kFaults, name, &FaultKind::name);
  if (kind == std::end(kFaults)) {
    throw Error("no such fault '" + std::string(name) + "' (--faults lists them)");
  }
  Fault fault;
  fault.kind = kind;
  fault.only = std::begin(kFilters);
  fault.ms = kind->ms;
  fault.value = kind->value;
  return fault;
}

Fault ParseFault(std::string_view text) {
  const std::string_view name = text.substr(0, text.find(':'));
  Fault fault = MakeFault(name);
  std::vector<std::string_view> given;
  for (std::size_t begin = name.size() + 1, end = 0; begin <= text.size(); begin = end + 1) {
    end = std::min(text.find(',', begin), text.size());
    const std::string_view pair = text.substr(begin, end - begin);
    const auto equals = pair.find('=');
    if (equals == std::string_view::npos) {
      throw Error("'" + std::string(pair) + "' is not key=value");
    }
    const std::string_view key = pair.substr(0, equals);
    if (std::ranges::find(given, key) != given.end()) {
      throw Error(std::string(key) + ": given twice");
    }
    given.push_back(key);
    SetFaultKey(fault, key, pair.substr(equals + 1));
  }
  CheckFault(fault);
  return fault;
}

void CheckFault(const Fault& fault) {
  if (fault.from_ms != kNoKey && fault.until_ms != kNoKey && fault.from_ms >= fault.until_ms) {
    throw Error("until_ms: " + std::to_string(fault.until_ms) + " is not after from_ms (" +
                std::to_string(fault.from_ms) + ")");
  }
  if (fault.kind->action.body == Patch) {
    const bool value = fault.value != kNoKey, flip = fault.flip != kNoKey;
    if (value && flip) {
      throw Error("xor: not together with value");
    }
    if (!value && !flip && fault.insert.empty() && fault.cut == 0) {
      throw Error("patch: nothing to do (value, xor, insert or cut)");
    }
  }
}

std::string FaultText(const Fault& fault) {
  std::string text(fault.kind->name);
  char separator = ':';
  for (const FaultKey& key : kKeys) {
    if (const std::string value = key.get(fault); !value.empty()) {
      text += separator + std::string(key.name) + "=" + value;
      separator = ',';
    }
  }
  return text;
}

std::uint32_t FaultPicker::Add(Fault fault, Time now) {
  faults_.push_back({.id = ++last_id_, .fault = std::move(fault), .since = now});
  return last_id_;
}

bool FaultPicker::Remove(std::uint32_t id) {
  return std::erase_if(faults_, [id](const ActiveFault& fault) { return fault.id == id; }) != 0;
}

const Fault* FaultPicker::Pick(const Frame& request, Time now, bool visca_line) {
  if (faults_.empty()) {
    return nullptr;
  }
  ActiveFault* picked = nullptr;
  const Bytes bytes = request.Encode();
  for (ActiveFault& active : faults_) {
    const Fault& fault = active.fault;
    const auto& match = fault.match;
    const Time age = now - active.since;
    if ((visca_line && !fault.kind->visca_line) || (fault.from_ms != kNoKey && age < fault.from_ms * kMillisecond) ||
        (fault.until_ms != kNoKey && age >= fault.until_ms * kMillisecond) || !fault.only->passes(request) ||
        std::search(bytes.begin(), bytes.end(), match.begin(), match.end()) == bytes.end()) {
      continue;
    }
    const std::uint32_t number = ++active.counted;
    bool strikes = fault.nth.empty() && fault.every == 0;
    strikes = strikes || std::ranges::find(fault.nth, number) != fault.nth.end();
    strikes = strikes || (fault.every != 0 && number % fault.every == 0);
    strikes = strikes && (fault.count == 0 || active.struck < fault.count);
    strikes = strikes && (!fault.chance || Draw(seed_, active.id, number) < *fault.chance);
    if (strikes && picked == nullptr) {
      picked = &active;
    }
  }
  if (picked == nullptr) {
    return nullptr;
  }
  ++picked->struck;
  return &picked->fault;
}

void FaultPicker::TakeBack(const Fault& fault) {
  const auto active = std::ranges::find_if(faults_, [&](const ActiveFault& one) { return &one.fault == &fault; });
  if (active != faults_.end()) {
    --active->struck;
  }
}

}  // namespace sim
