// The story of a test: what was sent, logged and slept, one event each, in order:
//
//   "81 09 04 53 FF"             a VISCA packet sent and answered at the first poll
//   "MCU 0C 01"                  an MCU command with its data, also answered at the first poll
//   "81 09 04 53 FF (2 polls)"   a request that is answered at the second poll
//   "81 09 04 53 FF (silence)"   a request that is not answered before the time-out
//   "81 09 04 53 FF (stop)"      a request whose wait ends because the stop flag is set
//   "81 09 04 53 FF (not received)"   a request that the product does not wait for, or whose reply cannot be received
//   "50 ms", "6 s"               one sleep outside an exchange
//   Err("text\n")                a log line; also Info and Debug
#ifndef ZR4410_TESTS_UNIT_CAMERASTORY_H
#define ZR4410_TESTS_UNIT_CAMERASTORY_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fakeos/Fixtures.h"

struct Event {
  std::string text;
  Event(std::string_view event) : text(event) {}
  Event(const std::string& event) : text(event) {}
  Event(const char* event) : text(event) {}
  Event(const LogLine& line) : text(Logged(line)) {}
  bool operator==(const Event&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const Event& event) {
  return out << testing::PrintToString(event.text);
}

using Story = std::vector<Event>;

inline Story operator+(Story first, const Story& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Returns the story with only those log lines that `shown` accepts, so that a test sees only the lines of the routine
// that it tests.
inline Story StoryOf(const FakeOs& os, const std::function<bool(std::string_view)>& shown) {
  const std::string poll = "sleep " + std::to_string(kPollMs * 1000);
  const std::vector<std::string>& lines = os.Timeline();
  const std::vector<Request>& requests = os.Requests();
  const auto line = [&lines](size_t i) { return i < lines.size() ? std::string_view(lines[i]) : ""; };
  size_t request = 0;
  Story story;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (line(i).starts_with("send ")) {
      const Request& sent = requests.at(request++);
      std::string event = sent.Code() == 0x02 ? "" : "MCU " + Hex({sent.Code()}) + ' ';
      event += Hex(sent.Payload());
      int polls = 0;
      bool answered = false;
      while (!answered && polls < kPollsUntilTimeOut && line(i + 1) == poll && line(i + 2).starts_with("receive ")) {
        answered = line(i + 2) == "receive 36";
        ++polls;
        i += 2;
      }
      if (answered && polls > 1) {
        event += " (" + std::to_string(polls) + " polls)";
      } else if (!answered && polls == kPollsUntilTimeOut) {
        event += " (silence)";
      } else if (!answered && line(i + 1) == poll) {
        event += " (stop)";
        ++i;
      } else if (!answered) {
        event += " (not received)";
      }
      story.push_back(event);
    } else if (line(i).starts_with("sleep ")) {
      const long microseconds = std::stol(lines[i].substr(6));
      story.push_back(microseconds % 1000000 == 0 ? std::to_string(microseconds / 1000000) + " s"
                      : microseconds % 1000 == 0  ? std::to_string(microseconds / 1000) + " ms"
                                                  : std::to_string(microseconds) + " us");
    } else if (line(i).starts_with("log ") && shown(line(i).substr(6))) {
      story.push_back(line(i));
    }  // otherwise the reply queue is emptied before a request
  }
  return story;
}

inline Story StoryOf(const FakeOs& os) {
  return StoryOf(os, [](std::string_view) { return true; });
}

// Returns the bytes of a text such as "90 50 0A FF".
inline Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (size_t i = 0; i < text.size(); i += 3) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

#endif
