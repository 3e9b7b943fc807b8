// simZR4410: the device daemon, the camera and the MCU in one process.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "simulator/Capture.h"
#include "simulator/Daemon.h"
#include "simulator/Decode.h"
#include "simulator/Device.h"
#include "simulator/Scenario.h"
#include "simulator/Serial.h"

namespace {

struct Options {
  std::string scenario;
  std::vector<std::string> faults;
  std::uint64_t seed = 1;
  bool fast = false;
  std::uint32_t baud = 9600;
  std::int64_t wake_up_ms = 3000;
  std::int64_t report_ms = 1000;
  bool sockets = false;
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

// The scenario first, then what the command line says besides.
std::string MakeSetup(const CLI::App& app, const Options& options, sim::Setup& setup) {
  if (!options.scenario.empty()) {
    sim::SetupOrError loaded = sim::LoadScenario(options.scenario);
    if (!loaded.error.empty()) {
      return loaded.error;
    }
    setup = std::move(loaded.setup);
  }
  std::vector<sim::Fault> faults;
  for (const std::string& text : options.faults) {
    const sim::FaultOrError parsed = sim::ParseFault(text);
    if (!parsed.fault) {
      return "--fault " + text + ": " + parsed.error;
    }
    faults.push_back(*parsed.fault);
  }
  setup.faults.insert(setup.faults.begin(), faults.begin(), faults.end());
  const auto given = [&app](const char* name) { return app.count(name) != 0; };
  setup.seed = given("--seed") ? options.seed : setup.seed;
  setup.baud = given("--baud") ? options.baud : setup.baud;
  setup.wake_up = given("--wake-up") ? options.wake_up_ms * sim::kMillisecond : setup.wake_up;
  setup.report_every = given("--report") ? options.report_ms * sim::kMillisecond : setup.report_every;
  setup.fast = setup.fast || options.fast;
  setup.sockets = setup.sockets || options.sockets;
  return "";
}

int Run(const Options& options, const sim::Setup& setup) {
  sim::Daemon::BlockSignals();
  const auto say = [&options](const std::string& line) {
    if (!options.quiet) {
      std::puts(line.c_str());
    }
  };
  std::ofstream capture;
  if (!options.capture.empty()) {
    capture.open(options.capture);
    if (!capture) {
      return Fail(options.capture + ": " + std::strerror(errno));
    }
  }

  std::unique_ptr<sim::Peer> peer;
  sim::SerialRelay* serial = nullptr;
  std::unique_ptr<sim::ViscaTerminal> terminal;
  if (!options.serial.empty()) {
    using Protocol = sim::SerialRelay::Protocol;
    const Protocol protocol = options.serial_protocol == "visca" ? Protocol::Visca : Protocol::Uart1;
    auto relay = std::make_unique<sim::SerialRelay>(options.serial, setup.baud, protocol, say);
    if (std::string error; !relay->Open(error)) {
      return Fail(error);
    }
    serial = relay.get();
    peer = std::move(relay);
  } else if (!options.replay.empty()) {
    std::ifstream file(options.replay);
    if (!file) {
      return Fail(options.replay + ": " + std::strerror(errno));
    }
    const sim::CaptureOrError read = sim::ReadCapture(file, options.replay);
    if (!read.error.empty()) {
      return Fail(read.error);
    }
    peer = std::make_unique<sim::Replay>(read.events, setup.fast);
  } else {
    auto device = std::make_unique<sim::Device>(setup);
    if (options.visca_pty) {
      terminal = std::make_unique<sim::ViscaTerminal>(*device, setup.fast, say);
    }
    peer = std::move(device);
  }

  sim::Dissector dissector;
  const bool colour = Colour(options);
  sim::Daemon daemon(*peer, {.key_path = options.key_path, .remove_queues = options.remove_queues},
                     [&](const sim::Event& event) {
                       if (!options.quiet) {
                         std::puts(dissector.Line(event, colour).c_str());
                       }
                       if (capture.is_open()) {
                         const std::string meaning = dissector.Meaning(event.direction, event.body);
                         capture << sim::CaptureLine(event, meaning) << std::endl;
                       }
                     });
  if (std::string error; !daemon.Open(error)) {
    return Fail(error + " (--key-path takes another file)");
  }
  if (serial != nullptr) {
    daemon.Watch(*serial);
  }
  if (terminal) {
    const std::string name = terminal->Open(options.visca_link);
    if (name.empty()) {
      return Fail("no pseudo-terminal" + (options.visca_link.empty() ? "" : " on " + options.visca_link) + ": " +
                  std::strerror(errno));
    }
    std::printf("simZR4410: VISCA on %s\n", name.c_str());
    daemon.Watch(*terminal);
  }
  std::puts("simZR4410: ready");
  if (!options.ready_file.empty()) {
    std::ofstream(options.ready_file) << getpid() << '\n';
  }
  daemon.Run();
  return 0;
}

std::string FaultList() {
  std::string text = "Faults, for --fault and for scenario files:\n";
  for (const sim::FaultInfo& fault : sim::FaultTable()) {
    char line[160];
    std::snprintf(line, sizeof line, "  %-22s%s", std::string(fault.name).c_str(), std::string(fault.text).c_str());
    text += line;
    text += fault.ms >= 0 ? " (ms " + std::to_string(fault.ms) + ")" : "";
    text += fault.value >= 0 ? " (value " + std::to_string(fault.value) + ")" : "";
    text += "\n";
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Options options;
  CLI::App app("The simulated device: daemon, QM2150 camera and pan/tilt MCU behind the two message queues.",
               "simZR4410");
  app.option_defaults()->group("Device");
  app.add_option("--scenario", options.scenario, "Starting state and faults, a TOML file");
  app.add_flag("--check", options.check, "Only say whether the scenario and the faults are right");
  app.add_option("--fault", options.faults,
                 "A fault, NAME[:key=value,...] with the keys nth (3 or 3+5), every, chance, only, match, ms, value; "
                 "may be given again")
      ->allow_extra_args(false);
  app.add_flag("--faults", options.list_faults, "List the faults");
  app.add_option("--seed", options.seed, "Seed of the faults that strike by chance")->capture_default_str();
  app.add_flag("--fast", options.fast, "No waiting of any kind but what a fault asks for");
  app.add_option("--baud", options.baud, "Speed of UART1")->check(CLI::Range(300, 4000000))->capture_default_str();
  app.add_option("--wake-up", options.wake_up_ms, "Milliseconds for which the camera is silent after power on")
      ->check(CLI::Range(0, 3600000))
      ->capture_default_str();
  app.add_option("--report", options.report_ms, "Milliseconds between the MCU's automatic reports")
      ->check(CLI::Range(1, 3600000))
      ->capture_default_str();
  app.add_flag("--sockets", options.sockets, "Forward the camera's own acknowledgement and completion of a command");
  app.option_defaults()->group("Trace");
  app.add_option("--capture", options.capture, "Record all messages in a file, one JSON object a line");
  app.add_option("--replay", options.replay, "Answer from a recording");
  app.add_option("--colour", options.colour, "auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->capture_default_str();
  app.add_flag("--quiet", options.quiet, "Print no messages");
  app.option_defaults()->group("Lines");
  app.add_flag("--visca-pty", options.visca_pty, "Offer the camera on a pseudo-terminal too");
  app.add_option("--visca-link", options.visca_link, "Name for the pseudo-terminal, a symbolic link")
      ->needs("--visca-pty");
  app.add_option("--serial", options.serial, "Relay to hardware on a serial port in place of the models")
      ->excludes("--visca-pty")
      ->excludes("--replay");
  app.add_option("--serial-protocol", options.serial_protocol, "uart1: frames; visca: a bare camera, the MCU simulated")
      ->check(CLI::IsMember({"uart1", "visca"}))
      ->capture_default_str();
  app.add_option("--key-path", options.key_path, "File that the queue keys are made of")->capture_default_str();
  app.add_option("--ready-file", options.ready_file, "Written, with the process id, when requests are taken");
  app.add_flag("--remove-queues", options.remove_queues, "Remove the queues at the end");
  app.set_version_flag("--version", "simZR4410 0.0.1");
  CLI::App* decode = app.add_subcommand("decode", "Read a dump of testZR4410 -g on standard input, print what it says");
  CLI::App* protocol = app.add_subcommand("protocol", "Print the table of all commands, in Markdown");
  CLI11_PARSE(app, argc, argv);

  if (*decode) {
    const std::size_t messages = sim::Decode(std::cin, std::cout, Colour(options));
    return messages != 0 ? 0 : Fail("no message dump on standard input");
  }
  if (*protocol) {
    std::cout << sim::ProtocolMarkdown();
    return 0;
  }
  if (options.list_faults) {
    std::cout << FaultList();
    return 0;
  }
  sim::Setup setup;
  if (const std::string error = MakeSetup(app, options, setup); !error.empty()) {
    return Fail(error);
  }
  return options.check ? 0 : Run(options, setup);
}
