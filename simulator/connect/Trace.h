// Shows the messages of a run: as lines on standard output, and in a capture. Threads of its own describe and write
// them, so that neither a reader that stalls nor a slow disk delays the device.
#pragma once

#include <unistd.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "simulator/connect/Files.h"
#include "simulator/connect/Writer.h"
#include "simulator/model/Event.h"

namespace sim {

// Takes a whole line of the trace, without its line feed.
using LineSink = std::function<void(const std::string&)>;

// Its routines may be called by any thread and never wait, except for Finish.
class Trace {
 public:
  struct Options {
    bool quiet = false;   // print no messages
    bool colour = false;  // with the terminal's escape sequences
    int output = STDOUT_FILENO;
    std::size_t shown = 4096;                          // messages that may wait to be printed
    std::size_t recorded = 65536;                      // messages that may wait to be recorded
    std::function<void()> on_capture_failure = [] {};  // the capture cannot be written; called by another thread
  };
  // `capture`: nullptr for none. Starts the threads.
  Trace(const Options& options, std::shared_ptr<CaptureFile> capture);

  void Message(const Event& event);
  void Line(const std::string& line);
  // A line that is printed even with `quiet`.
  void Announce(const std::string& line) { shown_.Put(line); }
  // Waits for what has not been written yet, but not long for a reader that stalls. Throws Error if the capture lacks
  // messages.
  void Finish();

 private:
  const bool quiet_;
  const std::shared_ptr<CaptureFile> capture_;
  Writer shown_;
  std::optional<Writer> recorded_;
};

}  // namespace sim
