#include "simulator/connect/Files.h"

#include <fstream>
#include <sstream>

#include "simulator/model/Error.h"

namespace sim {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) {
    throw Error(path + ": cannot be read");
  }
  return text.str();
}

}  // namespace sim
