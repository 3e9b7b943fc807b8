// Captures: the messages of a run as text, one JSON object per line.
//
//   {"us":552000,"direction":"request","exchange":1,"type":13,"body":"AA AA 01 06 AA 10 ...","meaning":"...","note":""}
//
// `us` is the time in microseconds. `exchange` is the number of the request, 0 for a message that answers no request.
// `meaning` and `note` are only for the reader.
#pragma once

#include <istream>
#include <string>
#include <vector>

#include "simulator/model/Event.h"

namespace sim {

// Without a line feed.
std::string CaptureLine(const Event& event, const std::string& meaning);
// Reads the events of a capture. Empty lines are skipped. Missing fields have their defaults, except `direction` and
// `body`, which are required. Throws Error, whose text begins with `name` and the line.
std::vector<Event> ReadCapture(std::istream& in, const std::string& name);

}  // namespace sim
