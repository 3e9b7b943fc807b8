// Captures: the messages of a run as text, one JSON object per line.
//
//   {"us":552000,"direction":"request","exchange":1,"type":13,"body":"AA AA 01 06 AA 10 ...","meaning":"...","note":""}
//
// `us` is the time in microseconds, `exchange` the number of the request, 0 for what answers none; `meaning` and `note`
// are for people only.
#pragma once

#include <istream>
#include <string>
#include <vector>

#include "simulator/model/Event.h"

namespace sim {

// Without a line feed.
std::string CaptureLine(const Event& event, const std::string& meaning);
// The events of a capture. Empty lines are skipped, missing fields but `direction` and `body` have their defaults.
// Throws Error, which begins with `name` and the line.
std::vector<Event> ReadCapture(std::istream& in, const std::string& name);

}  // namespace sim
