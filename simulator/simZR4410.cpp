// simZR4410: the device daemon, the camera and the MCU in one process.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>

#include "simulator/Daemon.h"
#include "simulator/Device.h"

namespace {

struct Options {
  std::string key_path = sim::kDefaultKeyPath;
  std::string ready_file;
  bool remove_queues = false;
  bool quiet = false;
  bool fast = false;
};

int RunDevice(const Options& options) {
  sim::Daemon::BlockSignals();
  sim::Setup setup;
  setup.fast = options.fast;
  sim::Device device(setup);
  sim::Dissector dissector;
  const bool colour = isatty(STDOUT_FILENO) != 0;
  sim::Daemon daemon(device, {.key_path = options.key_path, .remove_queues = options.remove_queues},
                     [&](const sim::Event& event) {
                       if (!options.quiet) {
                         std::puts(dissector.Line(event, colour).c_str());
                       }
                     });
  std::string error;
  if (!daemon.Open(error)) {
    std::fprintf(stderr, "simZR4410: %s\n", error.c_str());
    return 1;
  }
  std::puts("simZR4410: ready");
  if (!options.ready_file.empty()) {
    std::ofstream(options.ready_file) << getpid() << '\n';
  }
  daemon.Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Options options;
  CLI::App app("The simulated device: daemon, QM2150 camera and pan/tilt MCU behind the two message queues.",
               "simZR4410");
  app.add_option("--key-path", options.key_path, "File that the queue keys are made of")->capture_default_str();
  app.add_option("--ready-file", options.ready_file, "Written, with the process id, when requests are taken");
  app.add_flag("--remove-queues", options.remove_queues, "Remove the queues at the end");
  app.add_flag("--quiet", options.quiet, "Print no messages");
  app.add_flag("--fast", options.fast, "No waiting of any kind");
  CLI11_PARSE(app, argc, argv);
  return RunDevice(options);
}
