// The table of the setup's numbers and switches.
#include "simulator/model/Setup.h"

#include <limits>

namespace sim {
namespace {

using Number = std::int64_t;

constexpr Number kHour = Number{3600} * 1000;  // milliseconds

// clang-format off
constexpr SetupKey kKeys[] = {
    {"", "seed", "--seed", false, 0, std::numeric_limits<Number>::max(),
     [](const Setup& s) { return static_cast<Number>(s.seed); },
     [](Setup& s, Number value) { s.seed = static_cast<std::uint64_t>(value); },
     "Seed of the random numbers for faults with a chance: the same seed gives the same run"},
    {"device", "fast", "--fast", true, 0, 1,
     [](const Setup& s) { return static_cast<Number>(s.fast); },
     [](Setup& s, Number value) { s.fast = value != 0; },
     "Answer without delay, except for the delays that a fault or --wake-up sets"},
    {"device", "baud", "--baud", false, 300, 4000000,
     [](const Setup& s) { return static_cast<Number>(s.baud); },
     [](Setup& s, Number value) { s.baud = static_cast<std::uint32_t>(value); },
     "Speed of UART1 in bits per second"},
    {"device", "wake_up_ms", "--wake-up", false, 0, kHour,
     [](const Setup& s) { return s.WakeUp() / kMillisecond; },
     [](Setup& s, Number value) { s.wake_up = value * kMillisecond; },
     "Milliseconds for which the camera does not answer after its supply has been switched on"},
    {"device", "report_ms", "--report", false, 1, kHour,
     [](const Setup& s) { return s.report_every / kMillisecond; },
     [](Setup& s, Number value) { s.report_every = value * kMillisecond; },
     "Milliseconds between two automatic reports of the MCU"},
    {"device", "sockets", "--sockets", true, 0, 1,
     [](const Setup& s) { return static_cast<Number>(s.sockets); },
     [](Setup& s, Number value) { s.sockets = value != 0; },
     "Also forward the camera's own acknowledgement and completion of a command"},
    {"device", "strict", "--lenient", true, 0, 1,
     [](const Setup& s) { return static_cast<Number>(s.strict); },
     [](Setup& s, Number value) { s.strict = value != 0; },
     "Let a command set any value that fits the setting's field, not only the allowed ones"},
};
// clang-format on

}  // namespace

std::span<const SetupKey> SetupKeys() { return kKeys; }

std::int64_t SetupNumber(const SetupKey& key, const Given& given) {
  return key.is_switch ? std::int64_t{OnOrOff(given)} : WholeNumber(given, key.least, key.greatest);
}

}  // namespace sim
