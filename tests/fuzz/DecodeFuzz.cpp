// The simulator's decode and replay: dumps and recordings of any content.
#include <sstream>

#include "simulator/Capture.h"
#include "simulator/Decode.h"
#include "tests/fuzz/Fuzz.h"

namespace {

// As many dumps as there can be: one for each heading.
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
  Require(static_cast<size_t>(std::count(lines.begin(), lines.end(), '\n')) == messages, "one line a message");
  Require(messages <= Headings(text), "no message without its heading");
  Require(lines.find('\x1B') == std::string::npos, "no colour unless asked for");
}

void Replays(const std::string& text) {
  std::istringstream in(text);
  const auto capture = sim::ReadCapture(in, "file");
  Require(capture.error.empty() || capture.error.starts_with("file:"), "the error names the file: " + capture.error);
  if (!capture.error.empty()) {
    return;
  }
  sim::Replay replay(capture.events, true);
  for (const auto& event : capture.events) {
    if (event.direction == sim::Direction::Request) {
      replay.Request(event.type, event.body, 0);
      while (replay.Take(INT64_MAX)) {
      }
    }
    sim::Dissector dissector;
    std::istringstream again(sim::CaptureLine(event, dissector.Line(event, true)));
    const auto reread = sim::ReadCapture(again, "again");
    Require(reread.events.size() == 1 && reread.events[0].body == event.body, "a recording is read as it was written");
  }
}

}  // namespace

void TestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Decodes(text);
  Replays(text);
}
