// Reads a file as a whole.
#pragma once

#include <string>

namespace sim {

// Throws Error.
std::string ReadFile(const std::string& path);

}  // namespace sim
