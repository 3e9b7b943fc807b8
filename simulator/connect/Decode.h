// Describes the messages in a dump of `testZR4410 -g`.
#pragma once

#include <istream>
#include <ostream>

namespace sim {

// Prints one line per message, without a time, and returns their number. Everything else in the text is skipped. Of a
// dump that was cut, a message is printed if its frame is whole, with the note "cut".
std::size_t Decode(std::istream& in, std::ostream& out, bool colour);

}  // namespace sim
