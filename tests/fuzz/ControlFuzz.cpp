// Sends any requests to the control interface, in any order. Input: requests, each a line with the method and the path
// with its query, then the body, up to a line "---". Every answer must be JSON, a refused request must change nothing,
// and the device must still answer afterwards.
#include <nlohmann/json.hpp>

#include "simulator/connect/Routes.h"
#include "simulator/model/Device.h"
#include "simulator/model/Scenario.h"
#include "tests/fuzz/Fuzz.h"

namespace {

sim::Query QueryOf(std::string_view text) {
  sim::Query query;
  while (!text.empty()) {
    const std::string_view pair = text.substr(0, text.find('&'));
    text.remove_prefix(std::min(pair.size() + 1, text.size()));
    const std::size_t equals = std::min(pair.find('='), pair.size());
    query[std::string(pair.substr(0, equals))] = std::string(pair.substr(std::min(equals + 1, pair.size())));
  }
  return query;
}

class Story {
 public:
  Story() { log_.Stop(); }  // GET /wait returns at once

  void Ask(const std::string& line, const std::string& body) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    const std::string target = line.substr(std::min(blank + 1, line.size()));
    const std::size_t mark = std::min(target.find('?'), target.size());
    const sim::Query query = QueryOf(std::string_view(target).substr(std::min(mark + 1, target.size())));
    const std::string before = Everything();
    const sim::Answer answer = routes_.Handle(line.substr(0, blank), target.substr(0, mark), query, body);
    if (answer.stream) {
      Require(answer.status == 200 && answer.body.empty(), "a stream has no body");
      return;
    }
    const auto json = nlohmann::json::parse(answer.body, nullptr, false);
    Require(json.is_object(), "an answer is a JSON object: " + answer.body);
    Require(json.contains("error") == (answer.status >= 400), "an error has its status: " + answer.body);
    if (answer.status >= 400) {
      Require(!json["error"].get<std::string>().empty(), "an error says why");
      Require(Everything() == before, "a request that is refused changes nothing: " + line);
    }
  }

  // Lets time pass and sends a request of the tool.
  void Live() {
    now_ += 100 * sim::kMillisecond;
    auto body = sim::EncodeRelay(++sequence_, sim::Frame{0x10, {0x01}}.Encode());
    sim::Event event;
    event.number = ++number_;
    event.body = body;
    log_.Add(event);
    device_.Request(1, body, now_);
    for (int moves = 0; moves < 20 && device_.NextDue(); ++moves) {
      now_ = std::max(now_, *device_.NextDue());
      device_.Advance(now_);
      while (device_.Take(now_)) {
      }
    }
  }

 private:
  std::string Everything() const {
    const sim::State& state = device_.state();
    std::string text(state.registers.begin(), state.registers.end());
    for (const std::uint32_t value : state.values) {
      text += std::to_string(value) + " ";
    }
    for (const sim::ActiveFault& active : device_.Faults()) {
      text += std::to_string(active.id) + sim::FaultText(active.fault);
    }
    return text + (device_.CableConnected() ? "on" : "off");
  }

  sim::Device device_{sim::Setup{}};
  sim::Time now_ = 0;
  std::uint8_t sequence_ = 0;
  std::uint64_t number_ = 0;
  sim::MessageLog log_{16};
  const sim::Routes routes_{{.version = "",
                             .locked = [this](const auto& routine) { routine(device_, now_); },
                             .setup = [](const std::string& text) { return sim::ParseScenario(text, "scenario"); }},
                            log_};
};

}  // namespace

void TestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  Story story;
  for (int requests = 0; !text.empty() && requests < 50; ++requests) {
    const std::string line = TakeLine(text);
    std::string body;
    while (!text.empty() && !text.starts_with("---")) {
      body += TakeLine(text) + "\n";
    }
    TakeLine(text);
    story.Ask(line, body);
    story.Live();
  }
}
