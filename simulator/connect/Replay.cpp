// Sorts a capture by request, and repeats its answers.
#include "simulator/connect/Replay.h"

#include <algorithm>
#include <utility>

#include "simulator/model/Relay.h"

namespace sim {
namespace {

constexpr Time kLongest = 2 * Time{3600} * kSecond;  // between a request and its reply

// Returns the part of a request that identifies it: the frame, or, if the message has a flaw, the whole message without
// its sequence id.
Bytes Key(ByteView body) {
  const Relay relay = DecodeRelay(body);
  if (relay.flaw == Flaw::None) {
    return relay.frame.Encode();
  }
  Bytes key(body.begin(), body.end());
  if (key.size() > kSequenceAt) {
    key[kSequenceAt] = 0;
  }
  return key;
}

}  // namespace

Replay::Replay(const std::vector<Event>& events, bool fast) : fast_(fast) {
  std::map<std::uint32_t, std::pair<Known*, std::size_t>> asked;  // by the exchange's number
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
    // Compares halves, because the difference of two times in a damaged capture may not fit in a Time.
    const Time after = event.time > exchange.time ? std::min(event.time / 2 - exchange.time / 2, kLongest / 2) * 2 : 0;
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
  for (const Reply& then : exchange.replies) {
    Bytes reply = then.body;
    if (then.answer && reply.size() > kSequenceAt) {
      reply[kSequenceAt] = static_cast<std::uint8_t>(Sequence(body) + then.sequence_offset);
    }
    outbox_.Add({.due = fast_ ? now : now + then.after,
                 .type = ReplyType(type),
                 .exchange = then.answer ? exchange_ : 0,
                 .body = std::move(reply),
                 .note = ""});
  }
  return "";
}

}  // namespace sim
