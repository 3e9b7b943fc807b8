// The subcommand ctl: the control interface of a running simulator on the command line.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "simulator/connect/Routes.h"

namespace CLI {
class App;
}

namespace sim {

class Ctl {
 public:
  // Sends a request, as Control::Send does. Tests pass a routine of their own.
  using Send = std::function<std::optional<Answer>(const std::string& method, const std::string& target,
                                                   const std::string& body, int seconds)>;

  // Adds the subcommand to the program's command line.
  explicit Ctl(CLI::App& app);
  Ctl(const Ctl&) = delete;
  Ctl& operator=(const Ctl&) = delete;

  // Returns whether the subcommand was given.
  bool given() const;
  // Executes the command that was given. Returns the exit status: 0; 1 if the simulator refuses the request, no
  // message came, or `out` cannot be written; 2 if there is no simulator, or it does not answer.
  int Run(std::ostream& out, std::ostream& error);
  int Run(const Send& send, std::ostream& out, std::ostream& error);

 private:
  CLI::App* command_;
  std::string where_;
  std::string name_;
  std::vector<std::string> words_;
  std::optional<std::uint32_t> id_;
  std::string on_;
  std::optional<std::uint64_t> since_;
  std::string match_;
  std::uint64_t timeout_ms_ = kDefaultWaitMs;
};

}  // namespace sim
