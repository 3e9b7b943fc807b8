// Makes text from outside safe to print on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace sim {

// Makes control characters visible: a line feed "\n", an escape "\x1b". Leaves everything else unchanged, including
// UTF-8.
std::string Printable(std::string_view text);

}  // namespace sim
