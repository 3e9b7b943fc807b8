// Switches off a terminal's line handling, so that bytes pass unchanged.
#pragma once

#include <termios.h>

namespace sim {

// Switches a terminal to raw mode at once. Returns false, with errno set, if `descriptor` is not a terminal or its mode
// cannot be set.
inline bool MakeRaw(int descriptor) {
  termios raw{};
  if (tcgetattr(descriptor, &raw) != 0) {
    return false;
  }
  cfmakeraw(&raw);
  return tcsetattr(descriptor, TCSANOW, &raw) == 0;
}

}  // namespace sim
