// How the simulator reports failure: it throws an Error, whose text is one line for the user.
//
// Outcomes that belong to normal operation (a full queue, a silent line, no fault for this request) are return values
// instead.
#pragma once

#include <stdexcept>

namespace sim {

struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace sim
