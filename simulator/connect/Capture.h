// Captures: the messages of a run as text, one JSON object per line.
//
//   {"capture":1,"program":"simZR4410 0.0.1","started":"2026-11-21T18:00:00.123Z","setup":{"arguments":["--fast"],
//    "scenario":""}}
//   {"us":552000,"direction":"request","exchange":1,"type":13,"body":"AA AA 01 06 AA 10 ...","meaning":"...","note":""}
//   {"lost":312}
//
// The first line is the header: the version of this format, the program, the time of day at which `us` is 0, the
// arguments of the run and the text of its scenario file. Older captures have no header. `us` is the time in
// microseconds. `exchange` is the number of the request, 0 for a message that answers no request. `meaning` and `note`
// are for human readers only. `lost` is how many messages are missing at that point.
#pragma once

#include <cstdint>
#include <istream>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "simulator/model/Event.h"

namespace sim {

// What the header says about the run.
struct CaptureSetup {
  std::string program;                 // with its version
  std::int64_t started = 0;            // microseconds since the beginning of 1970, UTC
  std::vector<std::string> arguments;  // of the command line
  std::string scenario;                // the text of the file
};
// Return the lines of a capture, without a line feed.
std::string CaptureHeader(const CaptureSetup& setup);
std::string CaptureGap(std::uint64_t messages);
// Returns the fields of a message's line. The control interface shows them too.
nlohmann::ordered_json EventJson(const Event& event, const std::string& meaning);
std::string CaptureLine(const Event& event, const std::string& meaning);

struct Recording {
  std::vector<Event> events;
  std::vector<std::string> warnings;  // about a last line that is cut off, and about missing messages
};
// Reads a capture. Empty lines are skipped. Missing fields have their defaults, except `direction` and `body`, which
// are required. Throws Error, whose text, like that of a warning, begins with `name` and the line.
Recording ReadCapture(std::istream& in, const std::string& name);

}  // namespace sim
