// The names of the VISCA errors.
#include "simulator/model/Visca.h"

namespace sim {

std::string_view ViscaErrorText(std::uint8_t code) {
  switch (code) {
    case kErrLength:
      return "message length error";
    case kErrSyntax:
      return "syntax error";
    case kErrBufferFull:
      return "command buffer full";
    case kErrCancelled:
      return "command cancelled";
    case kErrNoSocket:
      return "no socket";
    case kErrNotExecutable:
      return "command not executable";
    default:
      return "unknown error";
  }
}

}  // namespace sim
