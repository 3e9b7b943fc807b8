// How the simulator reports failure: what cannot be done throws an Error, whose text is one line for the user.
//
// The exceptions to this are outcomes that belong to normal operation (a full queue, a silent line, no fault for this
// request): those are return values.
#pragma once

#include <stdexcept>

namespace sim {

struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace sim
