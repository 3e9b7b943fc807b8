#include "simulator/connect/Trace.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ostream>

#include "simulator/connect/Capture.h"
#include "simulator/model/Error.h"

namespace sim {

Trace::Trace(const Options& options) : quiet_(options.quiet), colour_(options.colour) {
  if (!options.capture.empty()) {
    capture_.open(options.capture);
    if (!capture_) {
      throw Error(options.capture + ": " + std::strerror(errno));
    }
  }
}

void Trace::Message(const Event& event) {
  if (!quiet_) {
    Line(dissector_.Line(event, colour_));
  }
  if (capture_.is_open()) {
    capture_ << CaptureLine(event, dissector_.Meaning(event.direction, event.body)) << std::endl;
  }
}

void Trace::Line(const std::string& line) const {
  if (!quiet_) {
    std::puts(line.c_str());
  }
}

}  // namespace sim
