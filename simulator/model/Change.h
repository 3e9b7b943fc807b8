// Changes to a running device, and their notation: scenario files, the command line and the control interface use the
// same names for variables, registers and values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "simulator/model/Faults.h"
#include "simulator/model/State.h"

namespace sim {

// Device::Apply applies all of it at once, in the order of the members.
struct Change {
  std::vector<std::pair<Var, std::uint32_t>> variables{};          // values that fit their fields
  std::vector<std::pair<std::uint8_t, std::uint8_t>> registers{};  // number, value
  std::optional<bool> supply{};  // the camera's cable: false cuts it, true connects it again
  bool clear_faults = false;     // removes all faults before `faults` are added
  std::vector<Fault> faults{};
};

// A value as it is written in a file, in a request or on the command line.
using Given = std::variant<bool, std::int64_t, double, std::string>;
// Returns the value as text, without quotes: "true", "8", "0.5", "x".
std::string GivenPlain(const Given& given);
// Returns the value as messages show it: a string is quoted and made printable ("'x'"), and a double without a
// fraction keeps its ".0" ("1000.0").
std::string GivenText(const Given& given);
// Returns a whole number from `least` to `greatest`. Throws Error: "9 is out of range (0 to 5)", or "'x' is not a whole
// number (0 to 5)", with `unit`, such as " milliseconds", after the range.
std::int64_t WholeNumber(const Given& given, std::int64_t least, std::int64_t greatest, std::string_view unit = "");
// Throws Error: "3 is neither true nor false".
bool OnOrOff(const Given& given);

// Returns a variable's value from a number that fits its field, a name, or true and false for on and off, or for yes
// and no. Throws Error: "camera.ae_mode: no such mode 'x' (fully auto, manual, ...)"; for a wrong number, the text of
// WholeNumber after "camera.ae_mode: ".
std::uint32_t VariableValue(Var var, const Given& given);
// Returns the section of a variable: "camera" or "mcu"; empty if it is transient.
std::string_view VariableSection(Var var);

// Throws Error if there is no such section: "motor: no such section (camera, mcu, registers)".
void CheckSection(std::string_view section);
// Adds section.key = value to a change. The sections are "camera", whose keys are the camera's variables and
// sensor_mode; "mcu"; and "registers", whose keys are register numbers, decimal or with 0x. Throws Error, and then adds
// nothing.
void SetVariable(Change& change, std::string_view section, std::string_view key, const Given& given);

}  // namespace sim
