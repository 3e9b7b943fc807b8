// Reads a dump of `testZR4410 -g` and says what was said.
#pragma once

#include <istream>
#include <ostream>

namespace sim {

// One line a message; the number of messages. Anything that is no message dump is passed over.
std::size_t Decode(std::istream& in, std::ostream& out, bool colour);

}  // namespace sim
