// How the simulated device starts, as set by scenario files and the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/model/Change.h"
#include "simulator/model/Faults.h"
#include "simulator/model/State.h"
#include "simulator/model/Time.h"

namespace sim {

// An entry of a timeline: `change` is applied this long `after` the device is ready.
struct Moment {
  Time after = 0;
  Change change;
};

struct Setup {
  std::string description{};  // for people
  State state{};
  std::vector<Fault> faults{};      // if several apply to a request, the first takes effect
  std::vector<Moment> time_line{};  // in any order; entries with the same time take effect in this order
  std::uint64_t seed = 1;           // of the random numbers for faults with a chance
  bool fast = false;                // no delay except those that a fault or `wake_up` sets
  std::optional<Time> wake_up{};    // how long the camera does not answer after its supply has been switched on
  Time report_every = kSecond;      // interval of the MCU's reports in automatic response mode
  std::uint32_t baud = 9600;        // of UART1, 8N1
  bool sockets = false;             // forward the camera's own acknowledgement and completion of a command too
  bool strict = true;               // a command may set allowed values only; false: any value that fits the field

  static constexpr Time kUsualWakeUp = 3 * kSecond;
  // Without `wake_up` a fast device wakes up at once, any other after kUsualWakeUp.
  Time WakeUp() const { return wake_up.value_or(fast ? 0 : kUsualWakeUp); }
};

// A number or a switch of the setup: a row for each, with everything that the command line, scenario files and the test
// of the manual need.
struct SetupKey {
  std::string_view section;  // of a scenario file; empty: its top level
  std::string_view key;      // in that section
  std::string_view option;   // of the command line
  bool is_switch;            // the value is true or false, as a number 1 or 0; the option reverses the default
  std::int64_t least, greatest;
  std::int64_t (*get)(const Setup& setup);
  void (*set)(Setup& setup, std::int64_t value);  // `value` must be within the range
  std::string_view text;                          // for --help
};
std::span<const SetupKey> SetupKeys();
// Returns the number that `set` takes for a value: a number within the range, or true or false for a switch. Throws
// Error.
std::int64_t SetupNumber(const SetupKey& key, const Given& given);

}  // namespace sim
