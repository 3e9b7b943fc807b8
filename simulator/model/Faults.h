// What can go wrong between a request and its reply: the kinds of faults, each with its own routine, and the choice of
// the fault that applies to a request.
#pragma once

#include <cstdint>
#include <optional>
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
  // The messages that are sent for one reply; initially the reply alone.
  void (*delivery)(const Fault& fault, std::vector<Outgoing>& messages) = nullptr;

  // Whether it changes more than the bytes of a reply.
  constexpr bool ChangesMore() const { return before != nullptr || delivery != nullptr; }
};

// One row of the table. kNoKey stands for a key that the kind does not take.
constexpr std::int64_t kNoKey = -1;
struct FaultKind {
  std::string_view name;
  std::int64_t ms;        // default of "ms", milliseconds; kNoKey: the kind does not take it
  std::int64_t value;     // default of "value"; kNoKey: it has none
  std::int64_t greatest;  // greatest "value"; the least is 0; kNoKey: the kind does not take it
  bool visca_line;        // also strikes on a VISCA line, where there is no relay message
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

// A fault and the messages that it applies to. It counts, from 1, the messages that `only` and `match` let through and
// that arrive from `from_ms` on and before `until_ms`. It applies to those listed in `nth` and to every Nth (`every`);
// to all if neither is given. It strikes on each of these with the probability `chance`, at most `count` times. The two
// times start when the fault is added; for the faults of a setup, when the device is ready.
struct Fault {
  const FaultKind* kind = nullptr;  // a row of FaultTable
  std::vector<std::uint32_t> nth;
  std::uint32_t every = 0;  // 0: not given
  std::optional<double> chance;
  const FaultFilter* only = nullptr;
  Bytes match;  // bytes that the request's frame must contain
  std::int64_t from_ms = kNoKey;
  std::int64_t until_ms = kNoKey;
  std::uint32_t count = 0;  // 0: not given
  std::int64_t ms = kNoKey;
  std::int64_t value = kNoKey;
  // For the kind "patch" only. They change the relay message at the offset `at`, or, if that is negative, at that many
  // bytes before the end of the frame: -1 is the stop byte. First `cut` bytes are removed, then `insert` is inserted,
  // then the byte is set to `value`, or its bits that are set in `flip` are inverted.
  std::int64_t at = 0;
  std::int64_t flip = kNoKey;
  std::int64_t cut = 0;
  Bytes insert;
};

bool operator==(const Fault& a, const Fault& b);

// A key of a fault: a row for each, with everything that the option --fault, scenario files, the control interface and
// the test of the manual need.
struct FaultKey {
  std::string_view name;
  void (*set)(Fault& fault, std::string_view value);  // throws Error: "'x' is not a ..."
  std::string (*get)(const Fault& fault);             // the value as `set` takes it; empty if the key is not given
  std::string_view text;                              // for the manual
};
std::span<const FaultKey> FaultKeys();

// Returns a fault of that kind with the defaults of the kind. Throws Error.
Fault MakeFault(std::string_view kind);
// Reads a fault such as "late:ms=2500,nth=3". Throws Error: "ms: 'x' is not ...".
Fault ParseFault(std::string_view text);
// The reverse: a text from which ParseFault makes the same fault.
std::string FaultText(const Fault& fault);
// Throws Error if the keys of a fault contradict each other or leave it without an effect. ParseFault calls it; after
// SetFaultKey the caller does.
void CheckFault(const Fault& fault);
// Sets one key from its text. Throws Error.
void SetFaultKey(Fault& fault, std::string_view key, std::string_view value);

// A fault of a running device.
struct ActiveFault {
  std::uint32_t id = 0;  // from 1; never used twice
  Fault fault;
  Time since = 0;             // when it was added
  std::uint32_t counted = 0;  // messages
  std::uint32_t struck = 0;   // how often it took effect and changed something
};

// Chooses the fault for each request: the first in the list that applies.
class FaultPicker {
 public:
  explicit FaultPicker(std::uint64_t seed) : seed_(seed) {}
  // Adds a fault to the end of the list and returns its id. The others keep their ids, counts and chances.
  std::uint32_t Add(Fault fault, Time now);
  // Returns whether there was a fault of that id.
  bool Remove(std::uint32_t id);
  void Clear() { faults_.clear(); }
  const std::vector<ActiveFault>& Faults() const { return faults_; }
  // Returns the fault for a request, valid until the list changes; nullptr if none applies. It must be called once for
  // every request, in order, because the faults count the requests. `visca_line`: the request is a packet from a VISCA
  // line; only the kinds that strike there count it.
  const Fault* Pick(const Frame& request, Time now, bool visca_line = false);
  // Takes back the strike that the last Pick has counted, because the fault has changed nothing.
  void TakeBack(const Fault& fault);

 private:
  std::uint64_t seed_;
  std::uint32_t last_id_ = 0;
  std::vector<ActiveFault> faults_;
};

}  // namespace sim
