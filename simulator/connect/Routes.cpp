// The table of the control interface's requests, a routine for each, and the JSON of their answers.
#include "simulator/connect/Routes.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>
#include <set>

#include "simulator/connect/Json.h"
#include "simulator/connect/View.h"
#include "simulator/model/Change.h"
#include "simulator/model/Device.h"
#include "simulator/model/Error.h"
#include "simulator/model/Text.h"

namespace sim {

// The arguments of a route's handler.
struct RouteCall {
  const Routes::Options& options;
  MessageLog& log;
  const Query& query;
  const std::string& body;
  std::uint64_t id;              // the ID of the path
  const MessageLog::Left& left;  // whether the client has left; may be empty
};

namespace {

constexpr std::size_t kMostAtOnce = 64;               // messages in one part of a stream
constexpr auto kHeartbeat = std::chrono::seconds(5);  // sent on an idle stream, to notice a client that is unreachable
constexpr int kCreated = 201;
constexpr int kBadRequest = 400;
constexpr int kNotFound = 404;
constexpr int kMethodNotAllowed = 405;
constexpr int kTimeout = 408;
constexpr int kConflict = 409;

Answer Reply(const Json& json, int status = 200) { return {status, JsonText(json) + "\n"}; }

std::uint64_t Number(const std::string& key, const std::string& text, std::uint64_t greatest) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value > greatest) {
    throw Error(key + ": '" + Printable(text) + "' is not a whole number (0 to " + std::to_string(greatest) + ")");
  }
  return value;
}

std::uint64_t Number(const RouteCall& call, const std::string& key, std::uint64_t fallback,
                     std::uint64_t greatest = std::numeric_limits<std::int64_t>::max()) {
  const auto it = call.query.find(key);
  return it == call.query.end() ? fallback : Number(key, it->second, greatest);
}

MessageLog::Filter FilterOf(const RouteCall& call, std::uint64_t since) {
  MessageLog::Filter filter{.since = Number(call, "since", since), .match = {}};
  if (const auto it = call.query.find("match"); it != call.query.end()) {
    const auto bytes = FromHex(it->second);
    if (!bytes || bytes->empty()) {
      throw Error("match: '" + Printable(it->second) + "' is not a sequence of bytes (such as AA 10)");
    }
    filter.match = *bytes;
  }
  return filter;
}

// Throws Error also if an object has a key twice: the library would keep only the last value.
Json ObjectOf(const std::string& body) {
  struct Object {
    std::set<std::string> keys;
    std::string last;  // key
  };
  std::vector<Object> open;
  std::optional<std::string> twice;
  const auto check = [&](int, Json::parse_event_t event, Json& parsed) {
    if (event == Json::parse_event_t::object_start) {
      open.emplace_back();
    } else if (event == Json::parse_event_t::object_end) {
      open.pop_back();
    } else if (event == Json::parse_event_t::key) {
      open.back().last = parsed.get<std::string>();
      if (!open.back().keys.insert(open.back().last).second && !twice) {
        twice.emplace();
        for (const Object& object : open) {
          *twice += (&object == &open.front() ? "" : ".") + object.last;
        }
      }
    }
    return true;
  };
  Json json = Json::parse(body, check, false);
  if (!json.is_object()) {
    throw Error("the body must be a JSON object");
  }
  if (twice) {
    throw Error(*twice + ": given twice");
  }
  return json;
}

Given GivenOf(const std::string& key, const Json& json) {
  if (json.is_boolean()) {
    return json.get<bool>();
  }
  if (json.is_number_integer()) {
    // A number that does not fit becomes the greatest that does, which is out of range for every variable.
    return json.is_number_unsigned() && json.get<std::uint64_t>() > std::numeric_limits<std::int64_t>::max()
               ? std::numeric_limits<std::int64_t>::max()
               : json.get<std::int64_t>();
  }
  if (json.is_number_float()) {
    return json.get<double>();
  }
  if (json.is_string()) {
    return json.get<std::string>();
  }
  throw Error(key + ": must be a number, a string, true or false");
}

void WithDevice(const RouteCall& call, const std::function<void(Device&, Time)>& routine) {
  call.options.locked(routine);
}

Answer Help(const RouteCall& call) {
  Json routes = Json::array();
  for (const Route& route : RouteTable()) {
    routes.push_back({{"method", route.method}, {"path", route.path}, {"query", route.query}, {"text", route.text}});
  }
  return Reply({{"program", "simZR4410"}, {"version", call.options.version}, {"routes", routes}});
}

Answer StateAnswer(const RouteCall& call, const Change& change) {
  State state;
  bool supply = false;
  WithDevice(call, [&](Device& device, Time now) {
    device.Apply(change, now);
    state = device.state();
    supply = device.CableConnected();
  });
  return Reply(StateJson(state, supply));
}

Answer GetState(const RouteCall& call) { return StateAnswer(call, {}); }

Answer PatchState(const RouteCall& call) {
  const Json sections = ObjectOf(call.body);
  Change change;
  for (const auto& [section, values] : sections.items()) {
    if (!values.is_object()) {
      throw Error(section + ": must be an object");
    }
    CheckSection(section);
    for (const auto& [key, value] : values.items()) {
      SetVariable(change, section, key, GivenOf(section + "." + key, value));
    }
  }
  return StateAnswer(call, change);
}

Answer GetFaults(const RouteCall& call) {
  std::vector<ActiveFault> faults;
  WithDevice(call, [&](Device& device, Time) { faults = device.Faults(); });
  return Reply({{"faults", FaultsJson(faults)}});
}

// The text of a fault's key, as --fault takes it.
std::string FaultValue(const std::string& key, const Json& json) {
  if (json.is_array()) {
    std::string all;
    for (const Json& one : json) {
      all += (all.empty() ? "" : "+") + FaultValue(key, one.is_array() ? Json() : one);
    }
    return all;
  }
  return GivenPlain(GivenOf(key, json));
}

Answer PostFaults(const RouteCall& call) {
  const Json json = ObjectOf(call.body);
  const auto kind = json.find("kind");
  if (kind == json.end() || !kind->is_string()) {
    throw Error("kind: must be the name of a fault, such as \"no-reply\"");
  }
  const std::string name = kind->get<std::string>();
  Fault fault = name.find(':') == std::string::npos ? MakeFault(name) : ParseFault(name);
  for (const auto& [key, value] : json.items()) {
    if (key != "kind") {
      SetFaultKey(fault, key, FaultValue(key, value));
    }
  }
  CheckFault(fault);
  std::uint32_t id = 0;
  WithDevice(call, [&](Device& device, Time now) { id = device.AddFault(fault, now); });
  return Reply({{"id", id}, {"fault", FaultText(fault)}}, kCreated);
}

Answer DeleteFaults(const RouteCall& call) {
  std::size_t removed = 0;
  WithDevice(call, [&](Device& device, Time) {
    removed = device.Faults().size();
    device.ClearFaults();
  });
  return Reply({{"removed", removed}});
}

Answer DeleteFault(const RouteCall& call) {
  bool removed = false;
  if (call.id <= std::numeric_limits<std::uint32_t>::max()) {
    WithDevice(call, [&](Device& device, Time) { removed = device.RemoveFault(static_cast<std::uint32_t>(call.id)); });
  }
  return removed ? Reply({{"removed", 1}}) : Refusal(kNotFound, "there is no fault " + std::to_string(call.id));
}

Answer PostSupply(const RouteCall& call) {
  const Json json = ObjectOf(call.body);
  const auto on = json.find("on");
  if (json.size() != 1 || on == json.end() || !on->is_boolean()) {
    throw Error("on: must be true or false, and the only key");
  }
  Change change;
  change.supply = on->get<bool>();
  WithDevice(call, [&](Device& device, Time now) { device.Apply(change, now); });
  return Reply({{"on", *change.supply}});
}

Answer PostScenario(const RouteCall& call) {
  const Setup setup = call.options.setup(call.body);
  WithDevice(call, [&](Device& device, Time now) { device.Restart(setup, now); });
  return GetState(call);
}

Answer GetMessages(const RouteCall& call) {
  const MessageLog::List list = call.log.After(FilterOf(call, 0));
  Json messages = Json::array();
  for (const MessageLog::Message& message : list.messages) {
    messages.push_back(MessageJson(message));
  }
  return Reply({{"messages", messages}, {"last", list.last}, {"dropped", list.dropped}});
}

Answer GetWait(const RouteCall& call) {
  const MessageLog::Filter filter = FilterOf(call, call.log.Last());
  const std::uint64_t ms = Number(call, "timeout_ms", kDefaultWaitMs, kGreatestWaitMs);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  const MessageLog::List list = call.log.Wait(filter, 1, end, call.left);
  if (list.messages.empty()) {  // or the client has left: then nobody reads the answer
    return Refusal(kTimeout, call.log.stopped() ? "the simulator is stopping"
                                                : "no such message within " + std::to_string(ms) + " ms");
  }
  return Reply(MessageJson(list.messages.front()));
}

Answer GetEvents(const RouteCall& call) {
  Answer answer;
  answer.stream = [&log = call.log, next = FilterOf(call, call.log.Last()), first = true](const auto& left) mutable {
    if (std::exchange(first, false)) {
      return std::string(": messages\n\n");
    }
    const MessageLog::List list = log.Wait(next, kMostAtOnce, std::chrono::steady_clock::now() + kHeartbeat, left);
    next.since = list.last;
    std::string text = list.messages.empty() ? ":\n\n" : "";
    if (list.dropped != 0) {
      text = ServerEvent("dropped", {{"dropped", list.dropped}});
    }
    for (const MessageLog::Message& message : list.messages) {
      text += "id: " + std::to_string(message.event.number) + "\n" + ServerEvent("", MessageJson(message));
    }
    return text;
  };
  return answer;
}

Answer GetView(const RouteCall&) { return ViewPage(); }

Answer GetViewEvents(const RouteCall& call) {
  Answer answer;
  answer.stream = ViewStream(call.options, call.log);
  return answer;
}

// clang-format off
constexpr Route kRoutes[] = {
    {"GET", "/", false, "", "the list of these requests", Help},
    {"GET", "/state", true, "", "all variables and registers, and whether the camera's cable is connected", GetState},
    {"PATCH", "/state", true, "", "changes variables and registers, all or none", PatchState},
    {"GET", "/faults", true, "", "the faults, how many messages each has counted and how often it struck", GetFaults},
    {"POST", "/faults", true, "", "adds a fault", PostFaults},
    {"DELETE", "/faults", true, "", "removes all faults", DeleteFaults},
    {"DELETE", "/faults/ID", true, "", "removes one fault", DeleteFault},
    {"POST", "/supply", true, "", "cuts the camera's supply, or connects it again", PostSupply},
    {"POST", "/scenario", true, "", "restarts the device from a scenario, in TOML", PostScenario},
    {"GET", "/messages", false, "since match", "the last messages", GetMessages},
    {"GET", "/wait", false, "since match timeout_ms", "waits for a message", GetWait},
    {"GET", "/events", false, "since match", "the messages as they arrive, as server-sent events", GetEvents},
    {"GET", "/view", true, "", "a web page that shows the device", GetView},
    {"GET", "/view/events", true, "", "what that page needs; may differ in every version", GetViewEvents},
};
// clang-format on

// Returns whether a path is that of the route, and sets `id`.
bool Matches(const Route& route, std::string_view path, std::uint64_t& id) {
  constexpr std::string_view kId = "ID";
  if (!route.path.ends_with(kId)) {
    return route.path == path;
  }
  const std::string_view stem = route.path.substr(0, route.path.size() - kId.size());
  if (!path.starts_with(stem)) {
    return false;
  }
  const std::string_view digits = path.substr(stem.size());
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), id);
  return error == std::errc() && end == digits.data() + digits.size();
}

bool HasWord(std::string_view words, std::string_view word) {
  const std::string all = " " + std::string(words) + " ";
  return !word.empty() && all.find(" " + std::string(word) + " ") != std::string::npos;
}

}  // namespace

std::span<const Route> RouteTable() { return kRoutes; }

Answer Refusal(int status, const std::string& text) { return Reply({{"error", text}}, status); }

Answer Routes::Handle(const std::string& method, const std::string& path, const Query& query, const std::string& body,
                      const MessageLog::Left& left) const {
  std::string methods;
  for (const Route& route : kRoutes) {
    std::uint64_t id = 0;
    if (!Matches(route, path, id)) {
      continue;
    }
    methods += (methods.empty() ? "" : ", ") + std::string(route.method);
    if (route.method != method) {
      continue;
    }
    for (const auto& parameter : query) {
      if (!HasWord(route.query, parameter.first)) {
        const std::string allowed = route.query.empty() ? "none" : std::string(route.query);
        return Refusal(kBadRequest, parameter.first + ": no such parameter (" + allowed + ")");
      }
    }
    if (route.device && !options_.locked) {
      return Refusal(kConflict, "there is no simulated device, only a capture or hardware");
    }
    try {
      return route.handle({options_, log_, query, body, id, left});
    } catch (const Error& error) {
      return Refusal(kBadRequest, error.what());
    }
  }
  if (methods.empty()) {
    return Refusal(kNotFound, path + ": there is no such path; GET / lists them");
  }
  return Refusal(kMethodNotAllowed, method + " " + path + ": no such method (" + methods + ")");
}

}  // namespace sim
