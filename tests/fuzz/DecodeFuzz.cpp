// Runs the simulator's decode and replay on dumps and captures of any content.
#include <sstream>
#include <string>
#include <vector>

#include "simulator/connect/Capture.h"
#include "simulator/connect/Decode.h"
#include "simulator/connect/Replay.h"
#include "simulator/model/Dissector.h"
#include "simulator/model/Error.h"
#include "tests/fuzz/Fuzz.h"

namespace {

// The largest possible number of dumps: one for each heading.
size_t Headings(const std::string& text) {
  size_t count = 0;
  for (const char* const heading : {"client msgsnd:", "client msgrcv:"}) {
    for (size_t at = 0; (at = text.find(heading, at)) != std::string::npos; ++at) {
      ++count;
    }
  }
  return count;
}

void Decodes(const std::string& text) {
  std::istringstream in(text);
  std::ostringstream out;
  const size_t messages = sim::Decode(in, out, false);
  const std::string lines = out.str();
  Require(static_cast<size_t>(std::count(lines.begin(), lines.end(), '\n')) == messages, "one line per message");
  Require(messages <= Headings(text), "no message without a heading");
  Require(lines.find('\x1B') == std::string::npos, "no colour without the option");
}

void Replays(const std::string& text) {
  std::istringstream in(text);
  std::vector<sim::Event> events;
  try {
    events = sim::ReadCapture(in, "file").events;
  } catch (const sim::Error& error) {
    Require(std::string(error.what()).starts_with("file:"), "the error names the file: " + std::string(error.what()));
    return;
  }
  sim::Replay replay(events, true);
  for (const auto& event : events) {
    if (event.direction == sim::Direction::Request) {
      replay.Request(event.type, event.body, 0);
      while (replay.Take(INT64_MAX)) {
      }
    }
    sim::Dissector dissector;
    std::istringstream again(sim::CaptureLine(event, dissector.Line(event, true)));
    const std::vector<sim::Event> reread = sim::ReadCapture(again, "again").events;
    Require(reread.size() == 1 && reread[0].body == event.body,
            "a capture line that is written and read is the same message");
  }
}

}  // namespace

void TestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Decodes(text);
  Replays(text);
}
