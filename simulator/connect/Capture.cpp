// Writes and reads the JSON lines of a capture.
#include "simulator/connect/Capture.h"

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "simulator/connect/Queues.h"
#include "simulator/model/Error.h"

namespace sim {
namespace {

constexpr int kFormat = 1;  // the version in the header; captures of other versions are rejected

constexpr std::string_view kHeaderStart = "{\"capture\":";  // of the first line, as CaptureHeader writes it

std::string Dump(const nlohmann::ordered_json& line) {
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// "2026-11-21T18:00:00.123Z"
std::string TimeOfDay(std::int64_t microseconds) {
  const auto seconds = static_cast<std::time_t>(microseconds / kSecond);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char day[32];
  char rest[16];
  std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(rest, sizeof rest, ".%03dZ", static_cast<int>(microseconds % kSecond / kMillisecond));
  return std::string(day) + rest;
}

}  // namespace

std::string CaptureHeader(const CaptureSetup& setup) {
  return Dump({{"capture", kFormat},
               {"program", setup.program},
               {"started", TimeOfDay(setup.started)},
               {"setup", {{"arguments", setup.arguments}, {"scenario", setup.scenario}}}});
}

std::string CaptureGap(std::uint64_t messages) { return Dump({{"lost", messages}}); }

nlohmann::ordered_json EventJson(const Event& event, const std::string& meaning) {
  return {
      {"us", event.time},           {"direction", event.direction == Direction::Request ? "request" : "reply"},
      {"exchange", event.exchange}, {"type", event.type},
      {"body", ToHex(event.body)},  {"meaning", meaning},
      {"note", event.note},
  };
}

std::string CaptureLine(const Event& event, const std::string& meaning) { return Dump(EventJson(event, meaning)); }

Recording ReadCapture(std::istream& in, const std::string& name) {
  Recording recording;
  std::string text;
  bool sound = false;  // at least one valid line has been read
  for (std::size_t number = 1; std::getline(in, text); ++number) {
    if (text.find_first_not_of(" \t\r") == std::string::npos) {
      continue;
    }
    const auto line = nlohmann::json::parse(text, nullptr, false);
    const auto field = [&line](const char* key, auto fallback) {
      const auto it = line.find(key);
      using Value = decltype(fallback);
      if (it == line.end()) {
        return fallback;
      }
      if constexpr (std::is_same_v<Value, std::string>) {
        return it->is_string() ? it->template get<std::string>() : fallback;
      } else {
        return it->is_number_integer() ? it->template get<Value>() : fallback;
      }
    };
    const std::string where = name + ":" + std::to_string(number) + ": ";
    const bool object = line.is_object();
    if (object && line.contains("capture")) {
      if (const auto format = field("capture", std::int64_t{0}); format != kFormat) {
        throw Error(where + "unknown capture format " + std::to_string(format));
      }
      sound = true;
      continue;
    }
    if (object && line.contains("lost")) {
      recording.warnings.push_back(where + std::to_string(field("lost", std::uint64_t{0})) +
                                   " messages are missing here");
      continue;
    }
    const std::string direction = object ? field("direction", std::string()) : "";
    const auto body = FromHex(object ? field("body", std::string("?")) : "?");
    if ((direction != "request" && direction != "reply") || !body || body->size() > kMaxMessage) {
      const bool header_start = kHeaderStart.starts_with(text.substr(0, kHeaderStart.size()));
      if (in.eof() && (sound || header_start)) {
        recording.warnings.push_back(where + "the last line is cut off and is left out");
        continue;
      }
      throw Error(where + "not a line of a capture");
    }
    sound = true;
    recording.events.push_back({.time = field("us", std::int64_t{0}),
                                .direction = direction == "request" ? Direction::Request : Direction::Reply,
                                .type = field("type", std::int32_t{1}),
                                .exchange = field("exchange", std::uint32_t{0}),
                                .body = *body,
                                .note = field("note", std::string())});
  }
  return recording;
}

}  // namespace sim
