#include "simulator/connect/Capture.h"

#include <nlohmann/json.hpp>

#include "simulator/connect/Queues.h"
#include "simulator/model/Error.h"

namespace sim {

std::string CaptureLine(const Event& event, const std::string& meaning) {
  const nlohmann::ordered_json line = {
      {"us", event.time},           {"direction", event.direction == Direction::Request ? "request" : "reply"},
      {"exchange", event.exchange}, {"type", event.type},
      {"body", ToHex(event.body)},  {"meaning", meaning},
      {"note", event.note},
  };
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::vector<Event> ReadCapture(std::istream& in, const std::string& name) {
  std::vector<Event> events;
  std::string text;
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
    const bool object = line.is_object();
    const std::string direction = object ? field("direction", std::string()) : "";
    const auto body = FromHex(object ? field("body", std::string("?")) : "?");
    if ((direction != "request" && direction != "reply") || !body || body->size() > kMaxMessage) {
      throw Error(name + ":" + std::to_string(number) + ": not a line of a capture");
    }
    events.push_back({.time = field("us", std::int64_t{0}),
                      .direction = direction == "request" ? Direction::Request : Direction::Reply,
                      .type = field("type", std::int32_t{1}),
                      .exchange = field("exchange", std::uint32_t{0}),
                      .body = *body,
                      .note = field("note", std::string())});
  }
  return events;
}

}  // namespace sim
