// Scenario files: the starting state and the faults, in TOML.
//
//   description = "..."
//   seed = 7   and [device] wake_up_ms ...   the keys of Setup.h
//   [camera]   variables of the camera by name, sensor_mode, and [camera.registers] by number
//   [mcu]      variables of the MCU by name
//   [[fault]]  kind, and the keys that a fault takes: nth every chance only match ms value
#pragma once

#include <string>
#include <string_view>

#include "simulator/model/Setup.h"

namespace sim {

// Returns the setup that the text describes; what it does not mention is as in a default Setup. Throws Error, whose
// text begins with `name` and the line: "night.toml:12: ...".
Setup ParseScenario(std::string_view text, const std::string& name);

}  // namespace sim
