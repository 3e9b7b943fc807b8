// simZR4410: the device daemon, the camera and the MCU in one process. This file is the command line; model/ is what is
// simulated, connect/ connects it to queues, lines and files.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulator/connect/Capture.h"
#include "simulator/connect/Daemon.h"
#include "simulator/connect/Decode.h"
#include "simulator/connect/Files.h"
#include "simulator/connect/Replay.h"
#include "simulator/connect/SerialRelay.h"
#include "simulator/connect/Trace.h"
#include "simulator/connect/ViscaTerminal.h"
#include "simulator/model/Device.h"
#include "simulator/model/Error.h"
#include "simulator/model/ProtocolPage.h"
#include "simulator/model/Scenario.h"

namespace {

constexpr std::size_t kFaultWidth = 22;  // width of the names in the list of faults

struct Options {
  std::string scenario;
  std::vector<std::string> faults;
  std::vector<std::pair<const sim::SetupKey*, std::int64_t>> setup;  // what is given of SetupKeys()
  std::string capture;
  std::string replay;
  bool visca_pty = false;
  std::string visca_link;
  std::string serial;
  std::string serial_protocol = "uart1";
  std::string key_path = sim::kDefaultKeyPath;
  std::string ready_file;
  bool remove_queues = false;
  bool quiet = false;
  bool check = false;
  bool list_faults = false;
  std::string colour = "auto";
};

int Fail(const std::string& text) {
  std::fprintf(stderr, "simZR4410: %s\n", text.c_str());
  return 1;
}

bool Colour(const Options& options) {
  return options.colour == "always" || (options.colour == "auto" && isatty(STDOUT_FILENO) != 0);
}

sim::Fault FaultOfOption(const std::string& text) {
  try {
    return sim::ParseFault(text);
  } catch (const sim::Error& error) {
    throw sim::Error("--fault " + text + ": " + error.what());
  }
}

// Reads the scenario first. Command-line options override it, and their faults come before its faults.
sim::Setup MakeSetup(const Options& options) {
  sim::Setup setup;
  if (!options.scenario.empty()) {
    setup = sim::ParseScenario(sim::ReadFile(options.scenario), options.scenario);
  }
  std::vector<sim::Fault> faults;
  std::ranges::transform(options.faults, std::back_inserter(faults), FaultOfOption);
  setup.faults.insert(setup.faults.begin(), faults.begin(), faults.end());
  for (const auto& [key, value] : options.setup) {
    key->set(setup, value);
  }
  return setup;
}

std::vector<sim::Event> LoadCapture(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    throw sim::Error(path + ": " + std::strerror(errno));
  }
  return sim::ReadCapture(file, path);
}

// Runs the daemon until a signal ends it.
void Run(const Options& options, const sim::Setup& setup) {
  sim::Daemon::BlockSignals();
  sim::Trace trace({.quiet = options.quiet, .colour = Colour(options), .capture = options.capture});
  const sim::LineSink say = [&trace](const std::string& line) { trace.Line(line); };

  std::unique_ptr<sim::Peer> peer;
  std::unique_ptr<sim::ViscaTerminal> terminal;
  sim::SerialRelay* serial = nullptr;
  if (!options.serial.empty()) {
    using Protocol = sim::SerialRelay::Protocol;
    const Protocol protocol = options.serial_protocol == "visca" ? Protocol::Visca : Protocol::Uart1;
    auto relay = std::make_unique<sim::SerialRelay>(options.serial, setup.baud, protocol, say);
    relay->Open();
    serial = relay.get();
    peer = std::move(relay);
  } else if (!options.replay.empty()) {
    peer = std::make_unique<sim::Replay>(LoadCapture(options.replay), setup.fast);
  } else {
    auto device = std::make_unique<sim::Device>(setup);
    if (options.visca_pty) {
      terminal = std::make_unique<sim::ViscaTerminal>(*device, setup.fast, say);
    }
    peer = std::move(device);
  }

  sim::Daemon daemon(*peer, {.key_path = options.key_path, .remove_queues = options.remove_queues},
                     [&trace](const sim::Event& event) { trace.Message(event); });
  try {
    daemon.Open();
  } catch (const sim::Error& error) {
    throw sim::Error(std::string(error.what()) + " (--key-path names another file to make the queue keys from)");
  }
  if (serial != nullptr) {
    daemon.Watch(*serial);
  }
  if (terminal) {
    std::printf("simZR4410: VISCA on %s\n", terminal->Open(options.visca_link).c_str());
    daemon.Watch(*terminal);
  }
  std::puts("simZR4410: ready");
  if (!options.ready_file.empty()) {
    std::ofstream(options.ready_file) << getpid() << '\n';
  }
  daemon.Run();
}

std::string FaultList() {
  const auto shown = [](const char* key, std::int64_t value) {
    return value != sim::kNoKey ? std::string(" (") + key + " " + std::to_string(value) + ")" : "";
  };
  std::string text = "Faults, for --fault and for scenario files:\n";
  for (const sim::FaultKind& kind : sim::FaultTable()) {
    std::string name(kind.name);
    name.resize(std::max(name.size(), kFaultWidth), ' ');
    text += "  " + name + std::string(kind.text) + shown("ms", kind.ms) + shown("value", kind.value) + "\n";
  }
  return text;
}

// Adds the options for the device: a scenario, faults, and the rows of SetupKeys().
void AddDeviceOptions(CLI::App& app, Options& options) {
  app.option_defaults()->group("Device");
  app.add_option("--scenario", options.scenario, "Starting state and faults, a TOML file");
  app.add_flag("--check", options.check, "Only check the scenario and the faults");
  app.add_option("--fault", options.faults,
                 "A fault, NAME[:key=value,...] with the keys nth (3 or 3+5), every, chance, only, match, ms, value; "
                 "may be repeated")
      ->allow_extra_args(false);
  app.add_flag("--faults", options.list_faults, "List the faults");
  for (const sim::SetupKey& key : sim::SetupKeys()) {
    const std::string name(key.option);
    const std::string text(key.text);
    if (key.is_switch) {
      app.add_flag_callback(
          name, [&options, &key] { options.setup.emplace_back(&key, 1); }, text);
    } else {
      const auto give = [&options, &key](const std::int64_t& value) { options.setup.emplace_back(&key, value); };
      app.add_option_function<std::int64_t>(name, give, text)
          ->check(CLI::Range(key.least, key.greatest))
          ->default_str(std::to_string(key.get(sim::Setup{})));
    }
  }
}

void AddOtherOptions(CLI::App& app, Options& options) {
  app.option_defaults()->group("Trace");
  app.add_option("--capture", options.capture, "Record all messages in a file, one JSON object per line");
  app.add_option("--replay", options.replay, "Answer from a file that --capture has written");
  app.add_option("--colour", options.colour, "auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  app.add_flag("--quiet", options.quiet, "Print no messages");
  app.option_defaults()->group("Lines");
  app.add_flag("--visca-pty", options.visca_pty, "Offer the camera on a pseudo-terminal too");
  app.add_option("--visca-link", options.visca_link, "Name for the pseudo-terminal, a symbolic link")
      ->needs("--visca-pty");
  app.add_option("--serial", options.serial, "Relay to hardware on a serial port, in place of the simulated device")
      ->excludes("--visca-pty")
      ->excludes("--replay");
  app.add_option("--serial-protocol", options.serial_protocol,
                 "uart1: UART1 frames; visca: a bare camera, the MCU is simulated")
      ->check(CLI::IsMember({"uart1", "visca"}))
      ->capture_default_str();
  app.add_option("--key-path", options.key_path, "File to derive the queue keys from")->capture_default_str();
  app.add_option("--ready-file", options.ready_file, "File to write the process id to when requests are accepted");
  app.add_flag("--remove-queues", options.remove_queues, "Remove the queues at the end");
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Options options;
  CLI::App app("The simulated device: daemon, QM2150 camera and pan/tilt MCU behind the two message queues.",
               "simZR4410");
  AddDeviceOptions(app, options);
  AddOtherOptions(app, options);
  app.set_version_flag("--version", "simZR4410 " SIM_VERSION);
  CLI::App* decode = app.add_subcommand("decode", "Describe the messages in a dump of testZR4410 -g on standard input");
  CLI::App* protocol = app.add_subcommand("protocol", "Print the tables of all commands and variables in Markdown");
  CLI11_PARSE(app, argc, argv);

  try {
    if (*decode) {
      if (sim::Decode(std::cin, std::cout, Colour(options)) == 0) {
        throw sim::Error("no message dump on standard input");
      }
    } else if (*protocol) {
      std::cout << sim::ProtocolMarkdown();
    } else if (options.list_faults) {
      std::cout << FaultList();
    } else if (const sim::Setup setup = MakeSetup(options); !options.check) {
      Run(options, setup);
    }
  } catch (const sim::Error& error) {
    return Fail(error.what());
  }
  return 0;
}
