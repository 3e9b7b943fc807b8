// Scenario files: the starting state and the faults, in TOML.
//
//   description = "..."          seed = 7
//   [device]   wake_up_ms  report_ms  baud  fast  sockets
//   [camera]   variables of the camera by name, sensor_mode, and [camera.registers] by number
//   [mcu]      variables of the MCU by name
//   [[fault]]  kind, and what else a fault takes: nth every chance only match ms value
#pragma once

#include <string>
#include <string_view>

#include "simulator/Device.h"

namespace sim {

struct SetupOrError {
  Setup setup;
  std::string error;  // one line, "night.toml:12: ...", when something is wrong
};
SetupOrError ParseScenario(std::string_view text, const std::string& name, const Setup& base = {});
SetupOrError LoadScenario(const std::string& path, const Setup& base = {});

}  // namespace sim
