// The options by group, and the uses of the program in which some of them have no effect.
#include "simulator/Options.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>

#include "simulator/connect/Files.h"
#include "simulator/model/Error.h"
#include "simulator/model/Scenario.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

const CLI::Validator kNotEmpty([](const std::string& text) { return text.empty() ? "must not be empty" : ""; }, "");

bool IsPath(const std::string& control) { return control.find('/') != std::string::npos; }

Fault FaultOfOption(const std::string& text) {
  try {
    return ParseFault(text);
  } catch (const Error& error) {
    throw Error("--fault " + text + ": " + error.what());
  }
}

// Adds the options for the device: a scenario, faults, and the rows of SetupKeys().
void AddDeviceOptions(CLI::App& app, Options& options) {
  app.option_defaults()->group("Device");
  app.add_option("--scenario", options.scenario,
                 "Starting state and faults: a TOML file, or the name of an installed scenario")
      ->check(kNotEmpty);
  app.add_flag("--check", options.check, "Only check the scenario and the faults");
  app.add_option("--fault", options.faults,
                 "A fault, NAME[:key=value,...]; --faults lists the names and the keys; may be repeated")
      ->allow_extra_args(false);
  app.add_flag("--faults", options.list_faults, "List the faults and their keys");
  for (const SetupKey& key : SetupKeys()) {
    const std::string name(key.option);
    const std::string text(key.text);
    if (key.is_switch) {
      app.add_flag_callback(
          name, [&options, &key] { options.setup.emplace_back(&key, 1 - key.get(Setup{})); }, text);
    } else {
      const auto give = [&options, &key](const std::int64_t& value) { options.setup.emplace_back(&key, value); };
      app.add_option_function<std::int64_t>(name, give, text)
          ->check(CLI::Range(key.least, key.greatest))
          ->default_str(std::to_string(key.get(Setup{})));
    }
  }
}

void AddOtherOptions(CLI::App& app, Options& options) {
  app.option_defaults()->group("Trace");
  app.add_option("--capture", options.capture, "Record all messages in a file, one JSON object per line")
      ->check(kNotEmpty);
  app.add_flag("--force", options.force, "Overwrite an existing capture")->needs("--capture");
  app.add_option("--replay", options.replay, "Answer from a file written by --capture")->check(kNotEmpty);
  app.add_option("--colour", options.colour, "Colour the messages: auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  app.add_flag("--quiet", options.quiet, "Print no messages");
  app.option_defaults()->group("Lines");
  app.add_flag("--visca-pty", options.visca_pty, "Also offer the camera on a pseudo-terminal")->excludes("--replay");
  app.add_option("--visca-link", options.visca_link, "Create a symbolic link to the pseudo-terminal")
      ->check(kNotEmpty)
      ->needs("--visca-pty");
  app.add_option("--serial", options.serial, "Relay to hardware on a serial port instead of simulating the device")
      ->check(kNotEmpty)
      ->excludes("--visca-pty")
      ->excludes("--replay");
  app.add_option("--serial-protocol", options.serial_protocol,
                 "uart1: UART1 frames; visca: a bare camera, the MCU is simulated")
      ->check(CLI::IsMember({"uart1", "visca"}))
      ->capture_default_str()
      ->needs("--serial");
  app.add_option("--key-path", options.key_path, "File to derive the queue keys from")
      ->check(kNotEmpty)
      ->capture_default_str();
  app.add_option("--ready-file", options.ready_file, "File that holds the process id while requests are accepted")
      ->check(kNotEmpty);
  app.add_flag("--remove-queues", options.remove_queues, "Remove the queues at exit");
}

void AddControlOptions(CLI::App& app, Options& options) {
  app.option_defaults()->group("Control");
  CLI::Option* const control =
      app.add_option("--control", options.control, "Serve the control interface at a path with a slash or at HOST:PORT")
          ->check(kNotEmpty);
  app.add_flag("--control-anyone", options.control_anyone, "Allow a HOST that is not a loopback address")
      ->needs(control);
}

// A use of the program: the option or subcommand that selects it, and the options that have an effect with it, by group
// or by name. If none of these is given, the simulated device runs, and all options have an effect.
struct Use {
  std::string_view name;
  std::vector<std::string_view> groups;
  std::vector<std::string_view> options;
};
const Use kUses[] = {
    {"decode", {}, {"--colour"}},
    {"protocol", {}, {}},
    {"ctl", {}, {}},
    {"--faults", {}, {}},
    {"--check", {"Device"}, {}},
    {"--serial", {"Trace", "Lines", "Control"}, {"--baud"}},
    {"--replay", {"Trace", "Lines", "Control"}, {"--fast"}},
};

void RefuseOptionsWithoutEffect(const CLI::App& app) {
  const std::vector<const CLI::Option*> given =
      app.get_options([](const CLI::Option* option) { return option->count() != 0; });
  const auto applies = [&](const Use& use) {
    return use.name.starts_with('-') ? app.count(std::string(use.name)) != 0
                                     : app.got_subcommand(std::string(use.name));
  };
  if (app.count("--control-anyone") != 0 && IsPath(app.get_option("--control")->as<std::string>())) {
    throw CLI::ValidationError("--control-anyone", "has no effect with a path");
  }
  const auto use = std::ranges::find_if(kUses, applies);
  if (use == std::end(kUses)) {
    return;
  }
  for (const CLI::Option* option : given) {
    const std::string name = option->get_name();
    if (name != use->name && std::ranges::count(use->groups, option->get_group()) == 0 &&
        std::ranges::count(use->options, name) == 0) {
      throw CLI::ValidationError(name, "has no effect with " + std::string(use->name));
    }
  }
}

}  // namespace

void AddOptions(CLI::App& app, Options& options) {
  AddDeviceOptions(app, options);
  AddOtherOptions(app, options);
  AddControlOptions(app, options);
  app.set_version_flag("--version", "simZR4410 " ZR4410_VERSION);
  app.final_callback([&app] { RefuseOptionsWithoutEffect(app); });
}

Setup MakeSetup(const Options& options, std::string& scenario) {
  std::string path;
  if (!options.scenario.empty()) {
    path = ScenarioFile(options.scenario);
    scenario = ReadFile(path);
  }
  return MakeSetup(options, scenario, path);
}

// Command-line options override the scenario. Faults from the command line come before those of the scenario.
Setup MakeSetup(const Options& options, const std::string& scenario, const std::string& name) {
  Setup setup = ParseScenario(scenario, name);
  std::vector<Fault> faults;
  std::ranges::transform(options.faults, std::back_inserter(faults), FaultOfOption);
  setup.faults.insert(setup.faults.begin(), faults.begin(), faults.end());
  for (const auto& [key, value] : options.setup) {
    key->set(setup, value);
  }
  for (const auto& [key, value] : options.setup) {
    if (setup.fast && key->key == "baud") {
      throw Error("--baud has no effect: the device answers without delay (--fast)");
    }
  }
  return setup;
}

void RefuseSameFiles(const Options& options) {
  const std::string socket = IsPath(options.control) ? options.control : "";
  const std::pair<const char*, const std::string*> files[] = {
      {"--scenario", &options.scenario},
      {"--replay", &options.replay},
      {"--capture", &options.capture},
      {"--ready-file", &options.ready_file},
      {"--key-path", &options.key_path},
      {"--visca-link", &options.visca_link},
      {"--control", &socket},
  };
  const auto same = [](const std::string& a, const std::string& b) {
    std::error_code error;
    if (fs::exists(a, error) && !fs::is_regular_file(a, error)) {
      return false;  // two options may both name /dev/null
    }
    return fs::weakly_canonical(a, error) == fs::weakly_canonical(b, error) || fs::equivalent(a, b, error);
  };
  for (const auto& a : files) {
    for (const auto& b : files) {
      if (&a < &b && !a.second->empty() && !b.second->empty() && same(*a.second, *b.second)) {
        throw Error(std::string(a.first) + " and " + b.first + " name the same file, " + *b.second);
      }
    }
  }
}

}  // namespace sim
