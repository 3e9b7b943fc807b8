// Switches off a terminal's line handling, so that bytes pass unchanged.
#pragma once

#include <termios.h>

namespace sim {

// Returns false, with errno set, if `descriptor` is not a terminal.
inline bool MakeRaw(int descriptor) {
  termios raw{};
  if (tcgetattr(descriptor, &raw) != 0) {
    return false;
  }
  cfmakeraw(&raw);
  return tcsetattr(descriptor, TCSANOW, &raw) == 0;
}

}  // namespace sim
