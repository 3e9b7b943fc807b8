// Scenario files: the starting state and the faults, in TOML.
//
//   description = "..."
//   seed = 7   and [device] wake_up_ms ...   the keys of Setup.h
//   [camera]     variables of the camera by name, and sensor_mode
//   [mcu]        variables of the MCU by name
//   [registers]  registers of the camera by number; also [camera.registers]
//   [[fault]]    kind, and the keys of FaultKeys
//   [[at]]       ms after "ready", and what changes then: [at.camera], [at.mcu], [at.registers], supply, clear_faults,
//                [[at.fault]]
#pragma once

#include <string>
#include <string_view>

#include "simulator/model/Setup.h"

namespace sim {

// Returns the setup that the text describes; everything that it does not mention has its default value. Throws Error,
// whose text begins with `name` and the line: "night.toml:12: ...".
Setup ParseScenario(std::string_view text, const std::string& name);

}  // namespace sim
