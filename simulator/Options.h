// The command line of simZR4410: the options with their help texts, and the setup that they describe.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "simulator/connect/Queues.h"
#include "simulator/model/Setup.h"

namespace sim {

struct Options {
  std::vector<std::string> arguments;  // all of them, as they were given
  std::string scenario;
  std::vector<std::string> faults;
  std::vector<std::pair<const SetupKey*, std::int64_t>> setup;  // the given keys of SetupKeys()
  std::string capture;
  bool force = false;
  std::string replay;
  bool visca_pty = false;
  std::string visca_link;
  std::string serial;
  std::string serial_protocol = "uart1";
  std::string key_path = kDefaultKeyPath;
  std::string ready_file;
  bool remove_queues = false;
  bool quiet = false;
  bool check = false;
  bool list_faults = false;
  std::string colour = "auto";
  std::string control;
  bool control_anyone = false;
};

// Adds the options to the command line. Parsing it fills `options`, and refuses options that would have no effect.
void AddOptions(CLI::App& app, Options& options);
// Reads the file of --scenario, if it is given, into `scenario`, which must be empty before. Returns the setup of that
// text, overridden by the options. Throws Error.
Setup MakeSetup(const Options& options, std::string& scenario);
// The same with the text of a scenario instead of --scenario. Errors in it begin with `name`.
Setup MakeSetup(const Options& options, const std::string& scenario, const std::string& name);
// Throws Error if two options name the same file.
void RefuseSameFiles(const Options& options);

}  // namespace sim
