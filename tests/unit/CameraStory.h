// What happened on the wire, in the log and in sleep, told one event a line, in order:
//
//   "81 09 04 53 FF"             a VISCA packet sent and answered at the first poll
//   "MCU 0C 01"                  an MCU command with its data, likewise
//   "81 09 04 53 FF (silence)"   ... never answered, waited for until the time-out
//   "81 09 04 53 FF (stop)"      ... given up because the stop flag was set meanwhile
//   "50 ms", "6 s"               one sleep outside an exchange
//   "error: text\n"              a log line; also "info: " and "debug: "
#ifndef ZR4410_TESTS_UNIT_CAMERASTORY_H
#define ZR4410_TESTS_UNIT_CAMERASTORY_H

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/FakeOs.h"

using Story = std::vector<std::string>;

inline Story operator+(Story first, const Story& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

inline Story StoryOf(const FakeOs& os) {
  constexpr int kPollsUntilTimeOut = 41;  // at 50, 100 ... 2050 ms
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
      while (!answered && polls < kPollsUntilTimeOut && line(i + 1) == "sleep 50000" &&
             line(i + 2).starts_with("receive ")) {
        answered = line(i + 2) == "receive 36";
        ++polls;
        i += 2;
      }
      if (answered && polls > 1) {
        event += " (" + std::to_string(polls) + " polls)";
      } else if (!answered && polls == kPollsUntilTimeOut) {
        event += " (silence)";
      } else if (!answered && line(i + 1) == "sleep 50000") {
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
    } else if (line(i).starts_with("log ")) {
      const char level = lines[i][4];
      story.push_back((level == '3'   ? "error: "
                       : level == '6' ? "info: "
                       : level == '7' ? "debug: "
                                      : "level " + std::string(1, level) + ": ") +
                      lines[i].substr(6));
    }  // else the reply queue being drained before a request
  }
  return story;
}

// The bytes of a text such as "90 50 0A FF".
inline Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (size_t i = 0; i < text.size(); i += 3) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

#endif
