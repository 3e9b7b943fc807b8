// Loads any scenario file. It must be rejected with a one-line message that names file and line, or give a device that
// answers.
#include "simulator/model/Device.h"
#include "simulator/model/Error.h"
#include "simulator/model/Scenario.h"
#include "tests/fuzz/Fuzz.h"

constexpr std::string_view kFile = "night.toml";

void TestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  sim::Setup setup;
  try {
    setup = sim::ParseScenario(text, std::string(kFile));
  } catch (const sim::Error& thrown) {
    const std::string error = thrown.what();
    constexpr size_t kLine = kFile.size() + 1;  // where the line number begins
    Require(error.starts_with(std::string(kFile) + ':'), "the error names the file: " + error);
    const size_t digits = error.find_first_not_of("0123456789", kLine);
    Require(digits != std::string::npos && digits > kLine && error.substr(digits, 2) == ": ",
            "the error names the line: " + error);
    const auto line = std::stoul(error.substr(kLine, digits - kLine));
    const auto lines = 1 + static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    Require(line >= 1 && line <= lines, "the line is in the file: " + error);
    Require(error.find_first_of("\n\r") == std::string::npos, "the error is one line: " + error);
    return;
  }

  sim::Device device(setup);
  sim::Time now = 0;
  for (const char* const request : {"AA AA 01 06 AA 10 01 01 44 55", "AA AA 02 0A AA 02 05 81 09 04 00 FF 00 55",
                                    "AA AA 03 06 AA 11 01 01 43 55"}) {
    auto body = *sim::FromHex(request);
    const auto summed = static_cast<size_t>(body[3]) + 1;  // the checksum is before the stop byte
    body[summed + 1] = sim::Checksum(sim::ByteView(body).subspan(4, summed - 3));
    body.resize(sim::kBodySize);
    device.Request(1, body, now);
    for (int moves = 0; moves < 50 && device.NextDue(); ++moves) {
      now = std::max(now, *device.NextDue());
      device.Advance(now);
      while (device.Take(now)) {
      }
    }
  }
}
