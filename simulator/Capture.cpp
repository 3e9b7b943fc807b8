#include "simulator/Capture.h"

#include <nlohmann/json.hpp>

namespace sim {
namespace {

// What makes two requests the same: the frame, or the whole message where there is none.
Bytes Key(ByteView body) {
  const Relay relay = DecodeRelay(body);
  if (relay.flaw == Flaw::None) {
    return relay.frame.Encode();
  }
  Bytes key(body.begin(), body.end());
  if (key.size() > 2) {
    key[2] = 0;
  }
  return key;
}

std::uint8_t Sequence(ByteView body) { return body.size() > 2 ? body[2] : std::uint8_t{0}; }

}  // namespace

std::string CaptureLine(const Event& event, const std::string& meaning) {
  const nlohmann::ordered_json line = {
      {"us", event.time},           {"direction", event.direction == Direction::Request ? "request" : "reply"},
      {"exchange", event.exchange}, {"type", event.type},
      {"body", ToHex(event.body)},  {"meaning", meaning},
      {"note", event.note},
  };
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

CaptureOrError ReadCapture(std::istream& in, const std::string& name) {
  CaptureOrError result;
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
    if ((direction != "request" && direction != "reply") || !body || body->size() > 8192) {
      result.error = name + ":" + std::to_string(number) + ": not a line of a capture";
      return result;
    }
    result.events.push_back({.time = field("us", std::int64_t{0}),
                             .direction = direction == "request" ? Direction::Request : Direction::Reply,
                             .type = field("type", std::int32_t{1}),
                             .exchange = field("exchange", std::uint32_t{0}),
                             .body = *body,
                             .note = field("note", std::string())});
  }
  return result;
}

Replay::Replay(const std::vector<Event>& events, bool fast) : fast_(fast) {
  std::map<std::uint32_t, std::pair<Known*, std::size_t>> asked;  // by number of the exchange
  std::pair<Known*, std::size_t> last{};
  for (const Event& event : events) {
    if (event.direction == Direction::Request) {
      Known& known = known_[Key(event.body)];
      last = {&known, known.exchanges.size()};
      asked[event.exchange] = last;
      known.exchanges.push_back({event.time, Sequence(event.body), {}});
      continue;
    }
    const auto it = asked.find(event.exchange);
    const bool answer = event.exchange != 0 && it != asked.end();
    const auto [known, index] = answer ? it->second : last;
    if (known == nullptr) {
      continue;  // a report before any request
    }
    Exchange& exchange = known->exchanges[index];
    constexpr Time kLongest = 3600 * kSecond;
    const Time after = event.time > exchange.time ? std::min(event.time / 2 - exchange.time / 2, kLongest) * 2 : 0;
    exchange.replies.push_back({event.body, after, Sequence(event.body) - exchange.sequence, answer});
  }
}

std::string Replay::Request(std::int32_t type, ByteView body, Time now) {
  ++exchange_;
  const auto it = known_.find(Key(body));
  if (it == known_.end()) {
    return "not in the capture";
  }
  Known& known = it->second;
  const Exchange& exchange = known.exchanges[known.next];
  known.next = std::min(known.next + 1, known.exchanges.size() - 1);
  for (const Then& then : exchange.replies) {
    Bytes reply = then.body;
    if (then.answer && reply.size() > 2) {
      reply[2] = static_cast<std::uint8_t>(Sequence(body) + then.sequence_offset);
    }
    outbox_.Add({.due = fast_ ? now : now + then.after,
                 .type = type > 0 ? type : 1,
                 .exchange = then.answer ? exchange_ : 0,
                 .body = std::move(reply),
                 .note = ""});
  }
  return "";
}

}  // namespace sim
