// Serves the page and sends it what has changed since the last event.
#include "simulator/connect/View.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>
#include <vector>

#include "simulator/connect/Json.h"
#include "simulator/model/Change.h"
#include "simulator/model/Device.h"
#include "simulator/model/Dissector.h"

namespace sim {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kInterval = std::chrono::milliseconds(100);  // between two events
constexpr auto kHeartbeat = std::chrono::seconds(5);        // the longest time without an event
constexpr std::size_t kMostMessages = 50;                   // of one event; the page keeps a few hundred

// Returns what each variable may be set to by a command, with its group and the names of its values.
Json Variables() {
  Json list = Json::array();
  const auto* group = std::begin(kVarGroups);
  for (std::size_t i = 0; i < static_cast<std::size_t>(kFirstTransient); ++i) {
    const Var var{static_cast<std::uint8_t>(i)};
    const VarInfo& info = Info(var);
    if (std::next(group) != std::end(kVarGroups) && std::next(group)->first == var) {
      ++group;
    }
    Json names = Json::array();
    for (const ValueName& name : info.names) {
      names.push_back({name.value, name.name});
    }
    list.push_back({{"section", VariableSection(var)},
                    {"name", info.name},
                    {"group", group->title},
                    {"least", info.least},
                    {"greatest", info.greatest},
                    {"names", names}});
  }
  return list;
}

Json Hello(const std::string& version) {
  Json kinds = Json::array();
  for (const FaultKind& kind : FaultTable()) {
    kinds.push_back({{"name", kind.name}, {"text", kind.text}});
  }
  return {{"version", version}, {"variables", Variables()}, {"kinds", kinds}};
}

// Returns what the page shows of the device, except for the messages.
Json Shown(const Routes::Options& options) {
  State state;
  bool cable = false;
  std::string picture, description;
  std::int64_t fields = 0;
  std::vector<ActiveFault> faults;
  options.locked([&](Device& device, Time now) {
    device.Apply({}, now);
    state = device.state();
    cable = device.CableConnected();
    faults = device.Faults();
    description = device.setup().description;
    fields = (kSecond + device.Field() / 2) / device.Field();
    picture = !device.CameraSupplied()   ? "no supply"
              : !device.CameraAwake(now) ? "waking up"
              : state[Var::power] != kOn ? "standby"
                                         : "on";
  });
  Json json = StateJson(state, cable);
  json["picture"] = picture;
  json["description"] = description;
  json["fields"] = fields;
  json["faults"] = FaultsJson(faults);
  return json;
}

// Returns the members of `now` that differ from those of `before`; of objects within them, only what differs there.
Json Changes(const Json& before, const Json& now) {
  Json changes = Json::object();
  for (const auto& [key, value] : now.items()) {
    const auto old = before.find(key);
    if (old == before.end()) {
      changes[key] = value;
    } else if (*old != value) {
      changes[key] = value.is_object() ? Changes(*old, value) : value;
    }
  }
  return changes;
}

}  // namespace

Answer ViewPage() {
  std::random_device random;
  std::string nonce;
  for (int i = 0; i < 4; ++i) {  // 128 bits
    const unsigned word = random();
    for (unsigned shift = 0; shift < 32; shift += 8) {
      nonce += ToHex(Bytes{static_cast<std::uint8_t>(word >> shift)});
    }
  }
  const std::string place = "nonce=\"";
  std::string page(kViewPage);
  for (std::size_t at = 0; (at = page.find(place + "\"", at)) != std::string::npos; at += place.size()) {
    page.insert(at + place.size(), nonce);
  }
  Answer answer{200, std::move(page)};
  answer.policy = "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" + nonce +
                  "'; connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
  return answer;
}

Stream ViewStream(const Routes::Options& options, MessageLog& log) {
  const std::uint64_t last = log.Last();
  return [&options, &log, dissector = Dissector(), shown = Json(),
          since = last - std::min<std::uint64_t>(last, kMostMessages),
          next = Clock::now()](const MessageLog::Left& left) mutable {
    if (shown.is_null()) {
      shown = Json::object();
      return ServerEvent("hello", Hello(options.version));
    }
    const auto end = Clock::now() + kHeartbeat;
    while (!log.WaitForStop(next) && !(left && left()) && Clock::now() < end) {
      next = Clock::now() + kInterval;
      Json now = Shown(options);
      Json event = Changes(shown, now);
      shown = std::move(now);
      // Only a few messages are described: the page must not slow down a device that answers thousands per second.
      // Of more than kMostMessages, the first are described but not sent: the description of a reply needs its request.
      const std::vector<Event> events = log.Newest(since, 2 * kMostMessages);
      if (!events.empty()) {
        Json messages = Json::array();
        for (const Event& one : events) {
          const std::string meaning = dissector.Meaning(one);
          if (events.back().number - one.number < kMostMessages) {
            messages.push_back(MessageJson({one, meaning}));
          }
        }
        event["skipped"] = events.back().number - since - messages.size();
        event["messages"] = std::move(messages);
        since = events.back().number;
      }
      if (!event.empty()) {
        return ServerEvent("view", event);
      }
    }
    return ServerEvent("beat", nullptr);
  };
}

}  // namespace sim
