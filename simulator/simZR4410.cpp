// simZR4410: the device daemon, the camera and the MCU in one process. This file creates the peer that the options ask
// for and connects it to the daemon. model/ is the simulation; connect/ connects it to queues, lines and files.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "simulator/Options.h"
#include "simulator/connect/Capture.h"
#include "simulator/connect/Control.h"
#include "simulator/connect/Ctl.h"
#include "simulator/connect/Daemon.h"
#include "simulator/connect/Decode.h"
#include "simulator/connect/Files.h"
#include "simulator/connect/MessageLog.h"
#include "simulator/connect/Replay.h"
#include "simulator/connect/Routes.h"
#include "simulator/connect/SerialRelay.h"
#include "simulator/connect/Signals.h"
#include "simulator/connect/Trace.h"
#include "simulator/connect/ViscaTerminal.h"
#include "simulator/model/Device.h"
#include "simulator/model/Error.h"
#include "simulator/model/ProtocolPage.h"
#include "simulator/model/Text.h"

namespace {

constexpr std::size_t kFaultWidth = 22;  // width of the names in the list of faults

bool Colour(const sim::Options& options) {
  return options.colour == "always" || (options.colour == "auto" && isatty(STDOUT_FILENO) != 0);
}

void Complain(const std::string& text) { sim::WriteLine(STDERR_FILENO, "simZR4410: " + sim::Printable(text)); }

std::vector<sim::Event> LoadCapture(const std::string& path) {
  std::istringstream file(sim::ReadFile(path));
  sim::Recording recording = sim::ReadCapture(file, path);
  for (const std::string& warning : recording.warnings) {
    Complain(warning);
  }
  return std::move(recording.events);
}

std::string Header(const sim::Options& options, std::string scenario) {
  using Microseconds = std::chrono::microseconds;
  const auto now = std::chrono::duration_cast<Microseconds>(std::chrono::system_clock::now().time_since_epoch());
  return sim::CaptureHeader({.program = "simZR4410 " ZR4410_VERSION,
                             .started = now.count() - sim::Daemon::Now(),
                             .arguments = options.arguments,
                             .scenario = std::move(scenario)});
}

std::string Plural(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// Returns the routes of the control interface; `device` is nullptr if the daemon has another peer.
sim::Routes MakeRoutes(const sim::Options& options, sim::Daemon& daemon, sim::Device* device, sim::MessageLog& log) {
  sim::Routes::Options routes{.version = ZR4410_VERSION};
  routes.setup = [&options](const std::string& text) { return sim::MakeSetup(options, text, "scenario"); };
  if (device != nullptr) {
    routes.locked = [&daemon, device](const std::function<void(sim::Device&, sim::Time)>& routine) {
      daemon.Locked([&](sim::Time now) { routine(*device, now); });
    };
  }
  return {std::move(routes), log};
}

// Runs the daemon until a signal stops it. Opens everything before it overwrites or removes anything. Calls that may
// wait for another process come before BlockStopSignals, so that a stop signal can end the wait.
void Run(const sim::Options& options) {
  sim::ExitOnStopSignals();
  std::string scenario;
  const sim::Setup setup = sim::MakeSetup(options, scenario);
  sim::RefuseSameFiles(options);
  std::vector<sim::Event> events;
  if (!options.replay.empty()) {
    events = LoadCapture(options.replay);
  }
  std::shared_ptr<sim::CaptureFile> capture;
  if (!options.capture.empty()) {
    capture = std::make_shared<sim::CaptureFile>(options.capture, options.force);
  }
  sim::ReadyFile ready(options.ready_file);

  sim::Trace* printer = nullptr;  // set when everything is open
  const sim::LineSink say = [&printer](const std::string& line) { printer->Line(line); };
  std::unique_ptr<sim::Peer> peer;
  std::unique_ptr<sim::ViscaTerminal> terminal;
  sim::SerialRelay* serial = nullptr;
  sim::Device* simulated = nullptr;
  if (!options.serial.empty()) {
    using Protocol = sim::SerialRelay::Protocol;
    const Protocol protocol = options.serial_protocol == "visca" ? Protocol::Visca : Protocol::Uart1;
    auto relay = std::make_unique<sim::SerialRelay>(options.serial, setup.baud, protocol, say);
    relay->Open();
    serial = relay.get();
    peer = std::move(relay);
  } else if (!options.replay.empty()) {
    peer = std::make_unique<sim::Replay>(events, setup.fast);
  } else {
    auto device = std::make_unique<sim::Device>(setup);
    simulated = device.get();
    if (options.visca_pty) {
      terminal = std::make_unique<sim::ViscaTerminal>(*device, say);
    }
    peer = std::move(device);
  }

  sim::Daemon daemon(*peer, {.key_path = options.key_path, .remove_queues = options.remove_queues},
                     [&printer](const sim::Event& event) { printer->Message(event); });
  sim::MessageLog log;
  const sim::Routes routes = MakeRoutes(options, daemon, simulated, log);
  std::optional<sim::Control> control;
  if (!options.control.empty()) {
    control.emplace(options.control, options.control_anyone, routes, log);
    control->Resolve();
  }

  sim::BlockStopSignals();
  const std::string controlled = control ? control->Open() : "";
  daemon.Open();
  ready.Prepare();
  const std::string line = terminal ? terminal->Open(options.visca_link) : "";
  if (capture && !capture->Begin(Header(options, std::move(scenario)))) {
    return;
  }
  // Declared after the daemon because its threads may stop the daemon: they must end first, even after an exception.
  sim::Trace trace(
      {.quiet = options.quiet, .colour = Colour(options), .on_capture_failure = [&daemon] { daemon.Stop(); }}, capture);
  printer = &trace;
  if (const auto [requests, replies] = daemon.Empty(); requests + replies != 0) {
    say("simZR4410: removed messages of an earlier run: " + Plural(requests, "request", "requests") + ", " +
        Plural(replies, "reply", "replies"));
  }
  if (serial != nullptr) {
    daemon.Watch(*serial);
  }
  if (terminal) {
    trace.Announce("simZR4410: VISCA on " + line);
    daemon.Watch(*terminal);
  }
  if (control) {
    trace.Announce("simZR4410: control on " + sim::Printable(controlled));
    daemon.AddSink([&log](const sim::Event& event) { log.Add(event); });
    control->Start();
  }
  ready.Announce();
  trace.Announce("simZR4410: ready");
  if (capture) {
    capture->Keep();
  }
  daemon.Run();

  control.reset();
  ready.Remove();
  terminal.reset();
  sim::DieOnStopSignals();
  trace.Finish();
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
  text += "Keys:\n";
  for (const sim::FaultKey& key : sim::FaultKeys()) {
    std::string name(key.name);
    name.resize(std::max(name.size(), kFaultWidth), ' ');
    text += "  " + name + std::string(key.text) + "\n";
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  sim::OpenStandardDescriptors();
  sim::Options options;
  options.arguments = {argv + 1, argv + argc};
  CLI::App app("The simulated device: daemon, QM2150 camera and pan/tilt MCU behind the two message queues.",
               "simZR4410");
  sim::AddOptions(app, options);
  CLI::App* decode = app.add_subcommand("decode", "Describe the messages in a dump of testZR4410 -g on standard input");
  CLI::App* protocol = app.add_subcommand("protocol", "Print the tables of all commands and variables in Markdown");
  sim::Ctl ctl(app);
  CLI11_PARSE(app, argc, argv);

  try {
    if (ctl.given()) {
      return ctl.Run(std::cout, std::cerr);
    }
    if (*decode) {
      if (sim::Decode(std::cin, std::cout, Colour(options)) == 0) {
        throw sim::Error("no message dump on standard input");
      }
    } else if (*protocol) {
      std::cout << sim::ProtocolMarkdown();
    } else if (options.list_faults) {
      std::cout << FaultList();
    } else if (options.check) {
      std::string scenario;
      sim::MakeSetup(options, scenario);
    } else {
      Run(options);
    }
  } catch (const std::exception& error) {
    Complain(error.what());
    return 1;
  }
  return 0;
}
