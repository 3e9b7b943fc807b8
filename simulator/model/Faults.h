// What can go wrong between a request and its reply: the kinds of faults, each with its own routine, and the choice of
// the fault that applies to a request.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/model/Peer.h"
#include "simulator/model/Relay.h"

namespace sim {

struct Fault;

// What a fault may do to the device as a whole. Durations start with the request that the fault applies to.
class FaultTarget {
 public:
  virtual ~FaultTarget() = default;
  virtual void CutSupply(Time duration) = 0;  // of the camera
  virtual void StopDaemon(Outgoing::Kind how, Time duration) = 0;
};

// What a kind does, at one or more stages of an exchange. A stage without a routine proceeds as usual.
struct FaultAction {
  // Called before the camera or the MCU receives the request. Returns whether a reply will be delivered.
  bool (*before)(const Fault& fault, FaultTarget& device) = nullptr;
  // The reply's frame, still without its checksum.
  void (*frame)(const Fault& fault, Frame& frame) = nullptr;
  // The relay message with the frame in it. Its size is kBodySize.
  void (*body)(const Fault& fault, Bytes& body) = nullptr;
  // The messages that are sent for one reply. When it is called, these are the reply alone.
  void (*delivery)(const Fault& fault, std::vector<Outgoing>& messages) = nullptr;
};

// One row of the table. Keys that mean nothing to a kind are kNoKey.
constexpr std::int64_t kNoKey = -1;
struct FaultKind {
  std::string_view name;
  std::int64_t ms;        // default of "ms", milliseconds
  std::int64_t value;     // default of "value"
  std::int64_t greatest;  // value, from 0
  FaultAction action;
  std::string_view text;  // for the list of faults and the manual
};
std::span<const FaultKind> FaultTable();
constexpr std::int64_t kGreatestFaultMs = std::int64_t{24} * 3600 * 1000;

// Which requests a fault may apply to: a row for each value of the key "only".
struct FaultFilter {
  std::string_view name;
  bool (*passes)(const Frame& request);
};

// A fault, as ParseFault makes it, and the messages that it applies to: those listed in `nth`, every Nth (`every`), or,
// if neither is given, all; of these, each with the probability `chance`. Only messages that `only` and `match` let
// through are counted, from 1.
struct Fault {
  const FaultKind* kind = nullptr;  // a row of FaultTable
  std::vector<std::uint32_t> nth;
  std::uint32_t every = 0;  // 0: not given
  std::optional<double> chance;
  const FaultFilter* only = nullptr;
  Bytes match;  // bytes that the request's frame must contain
  std::int64_t ms = kNoKey;
  std::int64_t value = kNoKey;
};

// Reads a fault such as "late:ms=2500,nth=3". Throws Error.
Fault ParseFault(std::string_view text);
// Sets one key from its text, for the option and for scenario files. Throws Error.
void SetFaultKey(Fault& fault, std::string_view key, std::string_view value);

// Chooses the fault for each request: the first in the list that applies.
class FaultPicker {
 public:
  FaultPicker(std::vector<Fault> faults, std::uint64_t seed);
  // Returns the fault for a request; nullptr if none applies. It must be called once for every request, in order,
  // because the faults count the requests.
  const Fault* Pick(const Frame& request);

 private:
  std::vector<Fault> faults_;
  std::vector<std::uint32_t> seen_;  // for each fault, how many messages it has counted
  std::mt19937_64 random_;
};

}  // namespace sim
