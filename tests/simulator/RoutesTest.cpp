// The requests of the control interface and their answers, without a socket.
#include "simulator/connect/Routes.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "simulator/model/Scenario.h"
#include "tests/simulator/Support.h"

namespace {

using Json = nlohmann::json;

// A device without a daemon, and the routes to it.
class Routes : public testing::Test {
 protected:
  sim::Answer Ask(const std::string& method, const std::string& path, const std::string& body = "",
                  const sim::Query& query = {}) const {
    return routes_.Handle(method, path, query, body);
  }
  // Return the JSON of an answer that must have that status.
  Json Get(const std::string& path, const sim::Query& query = {}) const { return Done("GET", path, "", 200, query); }
  Json Done(const std::string& method, const std::string& path, const std::string& body, int status = 200,
            const sim::Query& query = {}) const {
    const sim::Answer answer = Ask(method, path, body, query);
    EXPECT_EQ(answer.status, status) << answer.body;
    return Json::parse(answer.body);
  }
  // Returns status and error: "400 text".
  std::string Refused(const std::string& method, const std::string& path, const std::string& body = "",
                      const sim::Query& query = {}) const {
    const sim::Answer answer = Ask(method, path, body, query);
    return std::to_string(answer.status) + " " + Json::parse(answer.body).at("error").get<std::string>();
  }
  std::uint32_t Value(const std::string& section, const std::string& name) const {
    return Get("/state").at(section).at(name).at("value").get<std::uint32_t>();
  }
  void Add(std::uint64_t number, const std::string& body) {
    sim::Event event;
    event.number = number;
    event.body = Body(body);
    log_.Add(event);
  }

  DeviceStory story_;
  sim::MessageLog log_;
  const sim::Routes routes_{{.version = "1.2.3",
                             .locked = [this](const auto& routine) { routine(story_.device_, story_.now_); },
                             .setup = [](const std::string& text) { return sim::ParseScenario(text, "scenario"); }},
                            log_};
};

TEST_F(Routes, RootListsTheRoutes) {
  const Json json = Get("/");
  EXPECT_EQ(json.at("version"), "1.2.3");
  EXPECT_EQ(json.at("routes").size(), sim::RouteTable().size());
  EXPECT_EQ(json.at("routes").at(1).at("method"), "GET");
  EXPECT_EQ(json.at("routes").at(1).at("path"), "/state");
}

TEST_F(Routes, StateHasEveryVariableWithItsValueAndItsText) {
  const Json state = Get("/state");
  EXPECT_EQ(state.at("camera").at("ae_mode"), (Json{{"value", 0}, {"text", "fully auto"}}));
  EXPECT_EQ(state.at("mcu").at("pan"), (Json{{"value", 32000}, {"text", "32000"}}));
  EXPECT_EQ(state.at("camera").at("sensor_mode"), (Json{{"value", 6}, {"text", "6"}}));
  EXPECT_EQ(state.at("camera").size() + state.at("mcu").size(), static_cast<std::size_t>(sim::kFirstTransient) + 1);
  EXPECT_EQ(state.at("registers").size(), 256U);
  EXPECT_EQ(state.at("registers").at("0x72"), 6);
  EXPECT_EQ(state.at("supply"), true);
}

TEST_F(Routes, PatchChangesTheState) {
  const Json state = Done("PATCH", "/state",
                          R"({"camera": {"ae_mode": "manual", "freeze": true}, "mcu": {"pan": 64000},
                              "registers": {"0x72": 8, "1": 255}})");
  EXPECT_EQ(state.at("camera").at("ae_mode").at("text"), "manual");
  EXPECT_EQ(state, Get("/state"));
  EXPECT_EQ(Value("camera", "freeze"), sim::kOn);
  EXPECT_EQ(Value("mcu", "pan"), 64000U);
  EXPECT_EQ(state.at("registers").at("0x01"), 255);
  EXPECT_EQ(story_.Ask(kSensorMode), "AA AA 05 0A AA 82 05 90 50 00 08 FF E8 55");
}

TEST_F(Routes, PatchChangesAllOrNothing) {
  const Json before = Get("/state");
  const std::string good = R"("mcu": {"pan": 1}, "registers": {"0x72": 8}, "camera": )";
  const std::pair<const char*, const char*> wrong[] = {
      {R"({"ae_mode": "x"})",
       "camera.ae_mode: no such mode 'x' (fully auto, manual, shutter priority, iris priority, bright)"},
      {R"({"ae_mode": [1]})", "camera.ae_mode: must be a number, a string, true or false"},
      {R"({"shutter": 65536})", "camera.shutter: 65536 is out of range (0 to 65535)"},
      {R"({"shutter": 1.5})", "camera.shutter: 1.5 is not a whole number (0 to 65535)"},
      {R"({"shutter": 18446744073709551615})", "camera.shutter: 9223372036854775807 is out of range (0 to 65535)"},
      {R"({"pan": 1})", "camera.pan: no such variable"},
      {"7", "camera: must be an object"},
  };
  for (const auto& [values, error] : wrong) {
    EXPECT_EQ(Refused("PATCH", "/state", "{" + good + values + "}"), std::string("400 ") + error);
  }
  EXPECT_EQ(Refused("PATCH", "/state", R"({"mcu": {"pan": 1}, "motor": {"x": 1}})"),
            "400 motor: no such section (camera, mcu, registers)");
  EXPECT_EQ(Refused("PATCH", "/state", R"({"mcu": {"pan": 1}, "motor": {}})"),
            "400 motor: no such section (camera, mcu, registers)");
  EXPECT_EQ(Refused("PATCH", "/state", R"({"mcu": {"pan": 1000.0}})"),
            "400 mcu.pan: 1000.0 is not a whole number (0 to 4294967295)");
  EXPECT_EQ(Refused("PATCH", "/state", R"({"mcu": {"pan": "1\u00002"}})"),
            "400 mcu.pan: '1\\x002' is not a whole number (0 to 4294967295)");
  EXPECT_EQ(Refused("PATCH", "/state", R"({"mcu": {"pan": 1}, "registers": {"256": 1}})"),
            "400 registers.256: no such register (0 to 255, or 0x00 to 0xFF)");
  for (const char* const body : {"", "{", "[]", "7", "{\"mcu\": {}} x"}) {
    EXPECT_EQ(Refused("PATCH", "/state", body), "400 the body must be a JSON object") << body;
  }
  EXPECT_EQ(Get("/state"), before);
}

TEST_F(Routes, FaultsAreAddedListedAndRemoved) {
  EXPECT_EQ(Get("/faults"), Json::parse(R"({"faults": []})"));
  EXPECT_EQ(Done("POST", "/faults", R"({"kind": "no-reply", "nth": [1, 3]})", 201),
            Json::parse(R"({"id": 1, "fault": "no-reply:nth=1+3"})"));
  EXPECT_EQ(Done("POST", "/faults", R"({"kind": "late:ms=20", "chance": 0.5, "only": "mcu"})", 201).at("id"), 2);
  EXPECT_EQ(story_.Ask(kVersion), "");
  EXPECT_EQ(Get("/faults").at("faults").at(0),
            Json::parse(R"({"id": 1, "fault": "no-reply:nth=1+3", "counted": 1, "struck": 1})"));
  EXPECT_EQ(Done("DELETE", "/faults/1", ""), Json::parse(R"({"removed": 1})"));
  EXPECT_EQ(Refused("DELETE", "/faults/1"), "404 there is no fault 1");
  EXPECT_EQ(Refused("DELETE", "/faults/4294967298"), "404 there is no fault 4294967298");
  EXPECT_EQ(Get("/faults").at("faults").size(), 1U);
  EXPECT_EQ(Done("DELETE", "/faults", ""), Json::parse(R"({"removed": 1})"));
  EXPECT_EQ(Get("/faults").at("faults").size(), 0U);
  EXPECT_EQ(story_.Ask(kVersion), kVersionReply);
}

TEST_F(Routes, WrongFaultsAreRefusedInTheWordsOfTheOption) {
  const std::string fault = R"({"kind": "late", )";
  for (const auto& [key, value, text] : {std::tuple{"ms", "\"x\"", "x"},
                                         {"nth", "[0]", "0"},
                                         {"zoo", "1", "1"},
                                         {"chance", "2", "2"},
                                         {"only", "true", "true"}}) {
    const std::string expected =
        ErrorOf([&, key = key, text = text] { sim::ParseFault("late:" + std::string(key) + "=" + text); });
    ASSERT_NE(expected, "") << key;
    EXPECT_EQ(Refused("POST", "/faults", fault + "\"" + key + "\": " + value + "}"), "400 " + expected);
  }
  EXPECT_EQ(Refused("POST", "/faults", R"({"kind": "patch", "at": 3})"),
            "400 patch: nothing to do (value, xor, insert or cut)");
  EXPECT_EQ(Refused("POST", "/faults", R"({"nth": 1})"), "400 kind: must be the name of a fault, such as \"no-reply\"");
  EXPECT_EQ(Refused("POST", "/faults", R"({"kind": "late", "nth": [[1]]})"),
            "400 nth: must be a number, a string, true or false");
  EXPECT_EQ(Get("/faults").at("faults").size(), 0U);
}

TEST_F(Routes, ADuplicateKeyIsRefused) {
  const Json before = Get("/state");
  EXPECT_EQ(Refused("PATCH", "/state", R"({"mcu": {"pan": 1, "tilt": 2, "pan": 1}})"), "400 mcu.pan: given twice");
  EXPECT_EQ(Refused("PATCH", "/state", R"({"mcu": {"pan": 1}, "camera": {}, "mcu": {"tilt": 2}})"),
            "400 mcu: given twice");
  EXPECT_EQ(Refused("PATCH", "/state", R"({"": {}, "": {}})"), "400 : given twice");
  EXPECT_EQ(Refused("POST", "/faults", R"({"kind": "late", "nth": [1], "nth": [2]})"), "400 nth: given twice");
  EXPECT_EQ(Refused("POST", "/supply", R"({"on": false, "on": true})"), "400 on: given twice");
  EXPECT_EQ(Get("/state"), before);
  Done("PATCH", "/state", R"({"mcu": {"pan": 1}, "registers": {"0x01": 1, "0x02": 1}, "camera": {}})");
}

TEST_F(Routes, SupplyIsCutUntilItIsConnected) {
  EXPECT_EQ(Done("POST", "/supply", R"({"on": false})"), Json::parse(R"({"on": false})"));
  EXPECT_EQ(Get("/state").at("supply"), false);
  EXPECT_EQ(story_.Ask(kSensorMode), "");
  EXPECT_EQ(story_.Ask(kVersion), kVersionReply);
  Done("POST", "/supply", R"({"on": true})");
  EXPECT_EQ(Get("/state").at("supply"), true);
  story_.Later(10_s);
  EXPECT_EQ(story_.Ask(kSensorMode), kSensorModeReply);
  for (const char* const body : {"{}", R"({"on": 1})", R"({"on": true, "x": 1})", R"({"off": true})"}) {
    EXPECT_EQ(Refused("POST", "/supply", body), "400 on: must be true or false, and the only key");
  }
}

TEST_F(Routes, AScenarioRestartsTheDevice) {
  Done("PATCH", "/state", R"({"mcu": {"pan": 1, "tilt": 1}})");
  Done("POST", "/faults", R"({"kind": "no-reply"})", 201);
  const Json state = Done("POST", "/scenario", "[mcu]\npan = 2\n[[fault]]\nkind = \"late\"\n");
  EXPECT_EQ(state.at("mcu").at("pan").at("value"), 2);
  EXPECT_EQ(state.at("mcu").at("tilt").at("value"), 450);
  EXPECT_EQ(Get("/faults").at("faults").size(), 1U);
  EXPECT_EQ(Get("/faults").at("faults").at(0).at("fault"), "late:ms=2500");
  EXPECT_EQ(Refused("POST", "/scenario", "[mcu]\npan = \"x\"\n"),
            "400 scenario:2: mcu.pan: 'x' is not a whole number (0 to 4294967295)");
  EXPECT_EQ(Value("mcu", "pan"), 2U);
}

TEST_F(Routes, MessagesAreListed) {
  Add(1, kVersion);
  Add(2, kGetPtz);
  const Json json = Get("/messages");
  EXPECT_EQ(json.at("last"), 2);
  EXPECT_EQ(json.at("dropped"), 0);
  EXPECT_EQ(json.at("messages").at(1).at("number"), 2);
  EXPECT_EQ(json.at("messages").at(1).at("meaning"), "Get PTZ get");
  EXPECT_EQ(json.at("messages").at(1).at("body").get<std::string>().substr(0, 29), kGetPtz.substr(0, 29));
  for (const char* const key : {"us", "direction", "exchange", "type", "note"}) {
    EXPECT_TRUE(json.at("messages").at(0).contains(key)) << key;
  }
  EXPECT_EQ(Get("/messages", {{"since", "1"}}).at("messages").size(), 1U);
  EXPECT_EQ(Get("/messages", {{"match", "aa10"}}).at("messages").size(), 1U);
}

TEST_F(Routes, WaitReturnsAMessageOrReportsThatNoneCame) {
  Add(1, kVersion);
  Add(2, kGetPtz);
  EXPECT_EQ(Get("/wait", {{"since", "0"}, {"match", "AA 11"}}).at("number"), 2);
  EXPECT_EQ(Refused("GET", "/wait", "", {{"timeout_ms", "1"}}), "408 no such message within 1 ms");  // only from now on
  log_.Stop();
  EXPECT_EQ(Refused("GET", "/wait"), "408 the simulator is stopping");
}

TEST_F(Routes, WaitEndsWhenTheClientHasLeft) {
  int asked = 0;
  const auto left = [&asked] { return ++asked == 2; };
  EXPECT_EQ(routes_.Handle("GET", "/wait", {{"timeout_ms", "600000"}}, "", left).status, 408);
}

TEST_F(Routes, EventsAreAStreamFromNowOn) {
  Add(7, kVersion);
  const sim::Answer answer = Ask("GET", "/events", "", {{"match", "10"}});
  ASSERT_TRUE(answer.stream);
  EXPECT_EQ(answer.stream({}), ": messages\n\n");
  Add(8, "AA AA 02 06 AA 11 01 00 44 55");
  Add(9, kVersion);
  const std::string event = answer.stream({});
  EXPECT_TRUE(event.starts_with("id: 9\ndata: {\"number\":9,") && event.ends_with("}\n\n")) << event;
  const sim::Answer earlier = Ask("GET", "/events", "", {{"since", "3"}});
  earlier.stream({});
  EXPECT_TRUE(earlier.stream({}).starts_with("event: dropped\ndata: {\"dropped\":3}\n\nid: 7\ndata: "));
  EXPECT_EQ(answer.stream([] { return true; }), ":\n\n");
}

TEST_F(Routes, ViewIsAPageWithAPolicyForItsOwnScript) {
  const sim::Answer answer = Ask("GET", "/view");
  const std::string& policy = answer.policy;
  const std::size_t begin = policy.find("script-src 'nonce-") + 18;
  const std::string nonce = policy.substr(begin, policy.find('\'', begin) - begin);
  EXPECT_EQ(nonce.size(), 32U);
  EXPECT_EQ(policy, "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" + nonce +
                        "'; connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; "
                        "frame-ancestors 'none'");
  EXPECT_TRUE(answer.body.starts_with("<!DOCTYPE html>"));
  EXPECT_NE(answer.body.find("<style nonce=\"" + nonce + "\">"), std::string::npos);
  EXPECT_NE(answer.body.find("<script nonce=\"" + nonce + "\">"), std::string::npos);
  EXPECT_EQ(answer.body.find("nonce=\"\""), std::string::npos);
  EXPECT_NE(Ask("GET", "/view").policy, policy);
}

// Returns the JSON of a server-sent event of that name.
Json EventOf(const std::string& text, const std::string& name) {
  const std::size_t at = text.find("event: " + name + "\ndata: ");
  EXPECT_NE(at, std::string::npos) << text;
  return Json::parse(text.substr(at + name.size() + 14));
}

TEST_F(Routes, ViewEventsDescribeEverythingAndThenTheChanges) {
  Add(1, kVersion);
  const sim::Stream next = Ask("GET", "/view/events").stream;
  const Json hello = EventOf(next({}), "hello");
  EXPECT_EQ(hello.at("version"), "1.2.3");
  EXPECT_EQ(hello.at("kinds").size(), sim::FaultTable().size());
  EXPECT_EQ(hello.at("variables").size(), static_cast<std::size_t>(sim::kFirstTransient));
  std::vector<std::string> groups;
  for (const Json& variable : hello.at("variables")) {
    if (groups.empty() || variable.at("group") != groups.back()) {
      groups.push_back(variable.at("group").get<std::string>());
    }
  }
  ASSERT_EQ(groups.size(), std::size(sim::kVarGroups));
  for (std::size_t i = 0; i < groups.size(); ++i) {
    EXPECT_EQ(groups[i], sim::kVarGroups[i].title);
  }

  Json all = EventOf(next({}), "view");
  EXPECT_EQ(all.at("messages").size(), 1U);
  EXPECT_EQ(all.at("skipped"), 0);
  EXPECT_EQ(all.at("picture"), "on");
  EXPECT_EQ(all.at("description"), "");
  const Json state = Get("/state");
  for (const char* key : {"camera", "mcu", "registers", "supply"}) {
    EXPECT_EQ(all.at(key), state.at(key)) << key;
  }

  Done("PATCH", "/state", R"({"camera": {"ae_mode": "manual"}, "registers": {"0x50": 1}})");
  EXPECT_EQ(EventOf(next({}), "view"), Json::parse(R"({"camera": {"ae_mode": {"value": 3, "text": "manual"}},
                                                      "registers": {"0x50": 1}})"));
  Done("POST", "/faults", R"({"kind": "no-reply"})", 201);
  EXPECT_EQ(EventOf(next({}), "view"),
            Json::parse(R"({"faults": [{"id": 1, "fault": "no-reply", "counted": 0, "struck": 0}]})"));
  for (std::uint64_t number = 2; number <= 70; ++number) {
    Add(number, kVersion);
  }
  const Json last = EventOf(next({}), "view");
  EXPECT_EQ(last.at("messages").size(), 50U);
  EXPECT_EQ(last.at("messages").back().at("number"), 70);
  EXPECT_EQ(last.at("skipped"), 19);
  Done("POST", "/scenario", "description = \"A test.\"");
  EXPECT_EQ(EventOf(next({}), "view").at("description"), "A test.");
  log_.Stop();
  EXPECT_EQ(next({}), "event: beat\ndata: null\n\n");
}

TEST_F(Routes, ViewSaysWhyThereIsNoPicture) {
  Done("POST", "/scenario", "[device]\nwake_up_ms = 1000");
  const sim::Stream next = Ask("GET", "/view/events").stream;
  next({});
  next({});
  Done("PATCH", "/state", R"({"camera": {"power": "off"}})");
  EXPECT_EQ(EventOf(next({}), "view").at("picture"), "standby");
  Done("POST", "/supply", R"({"on": false})");
  EXPECT_EQ(EventOf(next({}), "view").at("picture"), "no supply");
  Done("POST", "/supply", R"({"on": true})");
  EXPECT_EQ(EventOf(next({}), "view").at("picture"), "waking up");
}

TEST_F(Routes, WrongParametersAreRefused) {
  EXPECT_EQ(Refused("GET", "/messages", "", {{"since", "x"}}),
            "400 since: 'x' is not a whole number (0 to 9223372036854775807)");
  EXPECT_EQ(Refused("GET", "/messages", "", {{"since", ""}}),
            "400 since: '' is not a whole number (0 to 9223372036854775807)");
  EXPECT_EQ(Refused("GET", "/messages", "",
                    {{"since", std::string("1\0"
                                           "2",
                                           3)}}),
            "400 since: '1\\x002' is not a whole number (0 to 9223372036854775807)");
  EXPECT_EQ(Refused("GET", "/events", "", {{"match", "A"}}),
            "400 match: 'A' is not a sequence of bytes (such as AA 10)");
  EXPECT_EQ(Refused("GET", "/wait", "", {{"timeout_ms", "600001"}}),
            "400 timeout_ms: '600001' is not a whole number (0 to 600000)");
  EXPECT_EQ(Refused("GET", "/messages", "", {{"sinse", "1"}}), "400 sinse: no such parameter (since match)");
  EXPECT_EQ(Refused("GET", "/state", "", {{"x", "1"}}), "400 x: no such parameter (none)");
}

TEST_F(Routes, WrongPathsAndMethodsAreRefused) {
  EXPECT_EQ(Refused("GET", "/zoo"), "404 /zoo: there is no such path; GET / lists them");
  EXPECT_EQ(Refused("GET", ""), "404 : there is no such path; GET / lists them");
  EXPECT_EQ(Refused("DELETE", "/faults/x"), "404 /faults/x: there is no such path; GET / lists them");
  EXPECT_EQ(Refused("DELETE", "/faults/"), "404 /faults/: there is no such path; GET / lists them");
  EXPECT_EQ(Refused("DELETE", "/state"), "405 DELETE /state: no such method (GET, PATCH)");
}

TEST_F(Routes, BytesThatAreNotTextAreReplaced) {
  EXPECT_EQ(Refused("GET", "/\xFF"), "404 /\xEF\xBF\xBD: there is no such path; GET / lists them");
}

TEST_F(Routes, WithoutADeviceOnlyTheMessagesAreServed) {
  const sim::Routes routes({}, log_);
  for (const sim::Route& route : sim::RouteTable()) {
    if (route.path == "/wait") {
      continue;
    }
    const std::string path(route.path == "/faults/ID" ? "/faults/1" : route.path);
    EXPECT_EQ(routes.Handle(std::string(route.method), path, {}, "").status, route.device ? 409 : 200) << path;
  }
}

}  // namespace
