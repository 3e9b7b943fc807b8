// What can go wrong between a request and its reply.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/Wire.h"

namespace sim {

enum class FaultKind : std::uint8_t {
  NoReply,
  Late,
  Duplicate,
  StaleFirst,
  WrongSequence,
  WrongHeader,
  WrongCode,
  BadChecksum,
  BadStart,
  BadStop,
  Truncated,
  OverLong,
  WrongSize,
  ShortReply,
  LongReply,
  Nak,
  ViscaError,
  SocketNumber,
  PowerLoss,
  DaemonAway,
  DaemonRestart
};

struct FaultInfo {
  std::string_view name;
  FaultKind kind;
  std::int64_t ms;     // default of "ms"; -1 where it means nothing
  std::int64_t value;  // default of "value"; -1 where it means nothing
  std::string_view text;
};
std::span<const FaultInfo> FaultTable();

enum class Only : std::uint8_t { All, Camera, Mcu, Commands, Inquiries };

// One fault and when it strikes: on the listed messages, on every so-many-th, by chance, or else always. Messages are
// counted from 1 among those that `only` and `match` let through.
struct Fault {
  const FaultInfo* info = nullptr;
  std::vector<std::uint32_t> nth;
  std::uint32_t every = 0;
  std::optional<double> chance;
  Only only = Only::All;
  Bytes match;  // bytes that the request's frame must contain
  std::int64_t ms = -1;
  std::int64_t value = -1;
};

// "late:ms=2500,nth=3" -> the fault, or the reason why not.
struct FaultOrError {
  std::optional<Fault> fault;
  std::string error;
};
FaultOrError ParseFault(std::string_view text);
// One key and its value in text; an empty result is success. Scenario files use it too.
std::string SetFaultKey(Fault& fault, std::string_view key, std::string_view value);
const FaultInfo* FindFault(std::string_view name);

// Decides, request by request, whether a fault strikes. Of several, the first in the list.
class FaultPicker {
 public:
  FaultPicker(std::vector<Fault> faults, std::uint64_t seed);
  const Fault* Pick(const Frame& request);

 private:
  std::vector<Fault> faults_;
  std::vector<std::uint32_t> seen_;
  std::mt19937_64 random_;
};

}  // namespace sim
