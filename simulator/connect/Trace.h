// Shows the messages of a run: as lines on standard output, and in a capture file.
#pragma once

#include <fstream>
#include <functional>
#include <string>

#include "simulator/model/Dissector.h"

namespace sim {

// Takes a whole line of the trace, without its line feed.
using LineSink = std::function<void(const std::string&)>;

// Not thread-safe: the daemon calls it with its lock held.
class Trace {
 public:
  struct Options {
    bool quiet = false;   // print nothing
    bool colour = false;  // with the terminal's escape sequences
    std::string capture;  // the file to write the capture to; empty: none
  };
  // Opens the capture file and overwrites it. Throws Error.
  explicit Trace(const Options& options);

  void Message(const Event& event);
  void Line(const std::string& line) const;

 private:
  const bool quiet_;
  const bool colour_;
  std::ofstream capture_;
  Dissector dissector_;
};

}  // namespace sim
