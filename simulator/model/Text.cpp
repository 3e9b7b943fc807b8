// Replaces control characters with visible text.
#include "simulator/model/Text.h"

#include <cstdio>

namespace sim {

std::string Printable(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    const bool second_set = byte == 0xC2 && next >= 0x80 && next < 0xA0;  // U+0080 to U+009F, which terminals obey too
    if (byte == '\n') {
      out += "\\n";
    } else if (byte < ' ' || byte == 0x7F || second_set) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", second_set ? next : byte);
      out += escaped;
      i += second_set ? 1 : 0;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace sim
