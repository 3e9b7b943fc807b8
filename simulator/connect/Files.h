// Reads a whole file.
#pragma once

#include <string>

namespace sim {

// Throws Error.
std::string ReadFile(const std::string& path);

}  // namespace sim
