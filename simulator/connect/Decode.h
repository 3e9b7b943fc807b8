// Describes the messages in a dump of `testZR4410 -g`.
#pragma once

#include <istream>
#include <ostream>

namespace sim {

// Prints one line per message, without a time, and returns the number of messages. Everything else in the text is
// skipped. A message that was cut off is printed with the note "cut" if its frame is complete.
std::size_t Decode(std::istream& in, std::ostream& out, bool colour);

}  // namespace sim
