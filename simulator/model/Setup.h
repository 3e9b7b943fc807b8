// How the simulated device starts. Scenario files and the command line fill it in.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "simulator/model/Faults.h"
#include "simulator/model/State.h"
#include "simulator/model/Time.h"

namespace sim {

struct Setup {
  State state{};
  std::vector<Fault> faults{};  // of several that strike, the first counts
  std::uint64_t seed = 1;       // of the faults with a chance
  bool fast = false;            // no waiting but what a fault asks for
  Time wake_up = 3 * kSecond;   // how long the camera is silent after its supply came on
  Time report_every = kSecond;  // of the MCU in automatic response mode
  std::uint32_t baud = 9600;    // of UART1, 8N1
  bool sockets = false;         // forward the camera's own acknowledgement and completion of a command too
};

// A number or a switch of the setup that has a name: a row for each, with all that the command line, scenario files and
// the manual's test need to know of it.
struct SetupKey {
  std::string_view section;  // of a scenario file; empty: its top level
  std::string_view key;      // in that section
  std::string_view option;   // of the command line
  bool is_switch;            // true or false; as a number 1 or 0
  std::int64_t least, greatest;
  std::int64_t (*get)(const Setup& setup);
  void (*set)(Setup& setup, std::int64_t value);  // `value` must be within the range
  std::string_view text;                          // for --help
};
std::span<const SetupKey> SetupKeys();

}  // namespace sim
