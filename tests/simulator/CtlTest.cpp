// The subcommand ctl, with the routes of a device but without a socket.
#include "simulator/connect/Ctl.h"

#include <CLI/CLI.hpp>
#include <sstream>
#include <string>

#include "simulator/model/Scenario.h"
#include "tests/simulator/Support.h"

namespace {

// The subcommand, and the routes of a device that it calls without a socket.
class Ctl : public testing::Test {
 protected:
  // Returns what the command line prints, then "= STATUS" if it is not 0.
  std::string Run(const std::string& line) {
    CLI::App app;
    sim::Ctl ctl(app);
    try {
      app.parse("ctl --control /somewhere " + line);
    } catch (const CLI::ParseError& error) {
      return std::string("wrong: ") + error.what();
    }
    EXPECT_TRUE(ctl.given());
    std::ostringstream out;
    const int status = ctl.Run(
        [this](const std::string& method, const std::string& target, const std::string& body,
               int) -> std::optional<sim::Answer> {
          if (!there_) {
            return std::nullopt;
          }
          if (silent_) {
            return sim::Answer{sim::kNoAnswer, "", {}};
          }
          const std::size_t mark = target.find('?');
          sim::Query query;
          std::istringstream pairs(mark == std::string::npos ? "" : target.substr(mark + 1));
          for (std::string pair; std::getline(pairs, pair, '&');) {
            query[pair.substr(0, pair.find('='))] = pair.substr(pair.find('=') + 1);
          }
          return routes_.Handle(method, target.substr(0, mark), query, body);
        },
        out, out);
    return out.str() + (status == 0 ? "" : "= " + std::to_string(status));
  }
  void Add(const std::string& body) {
    sim::Event event;
    event.number = ++number_;
    event.body = Body(body);
    log_.Add(event);
  }

  bool there_ = true;
  bool silent_ = false;
  std::uint64_t number_ = 0;
  DeviceStory story_;
  sim::MessageLog log_{2};
  const sim::Routes routes_{{.version = "",
                             .locked = [this](const auto& routine) { routine(story_.device_, story_.now_); },
                             .setup = [](const std::string& text) { return sim::ParseScenario(text, "scenario"); }},
                            log_};
};

TEST_F(Ctl, GetsOneVariableOrAll) {
  EXPECT_EQ(Run("get ae_mode"), "fully auto\n");
  EXPECT_EQ(Run("get camera.ae_mode"), "fully auto\n");
  EXPECT_EQ(Run("get pan"), "32000\n");
  EXPECT_EQ(Run("get registers.0x72"), "6\n");
  EXPECT_EQ(Run("get 0x00"), "0\n");
  EXPECT_EQ(Run("set registers.1=3 0x7f=4 0X80=5"), "");
  EXPECT_EQ(Run("get registers.1") + Run("get 0x7f") + Run("get 0X80") + Run("get registers.0X72"), "3\n4\n5\n6\n");
  EXPECT_EQ(Run("set registers.1=0 0x7f=0 0X80=0"), "");
  EXPECT_EQ(Run("get registers.256"), "simZR4410: registers.256: no such variable\n= 1");
  EXPECT_EQ(Run("get sensor_mode"), "6\n");
  EXPECT_EQ(Run("get supply"), "on\n");
  EXPECT_EQ(Run("get zoo"), "simZR4410: camera.zoo: no such variable\n= 1");
  const std::string all = Run("get");
  EXPECT_TRUE(all.starts_with("camera.ae_mode=fully auto\ncamera.shutter=0x06\n")) << all;
  EXPECT_NE(all.find("\nmcu.pan=32000\n"), std::string::npos);
  EXPECT_TRUE(all.ends_with("\nregisters.0x72=6\nsupply=on\n")) << all;
}

TEST_F(Ctl, SetsAllOrNothing) {
  EXPECT_EQ(Run("set ae_mode=manual mcu.pan=0x10 freeze=true 0x72=8 'wb_mode=sodium lamp'"), "");
  EXPECT_EQ(Run("get ae_mode") + Run("get pan") + Run("get freeze") + Run("get 0x72") + Run("get wb_mode"),
            "manual\n16\non\n8\nsodium lamp\n");
  EXPECT_EQ(Run("set pan=1 tilt=x"), "simZR4410: mcu.tilt: 'x' is not a whole number (0 to 65535)\n= 1");
  EXPECT_EQ(Run("set zoo=1"), "simZR4410: camera.zoo: no such variable\n= 1");
  EXPECT_EQ(Run("set pan=\x1b[1m"), "simZR4410: mcu.pan: '\\x1b[1m' is not a whole number (0 to 4294967295)\n= 1");
  EXPECT_EQ(Run("set pan=1 tilt=2 mcu.pan=3"), "simZR4410: mcu.pan: given twice\n= 1");
  EXPECT_EQ(Run("set pan"), "simZR4410: pan: must be NAME=VALUE\n= 1");
  EXPECT_EQ(Run("get pan"), "16\n");
}

TEST_F(Ctl, AddsAndRemovesFaults) {
  EXPECT_EQ(Run("fault no-reply:nth=1 late:ms=20,chance=0.5"), "1\n2\n");
  story_.Ask(kVersion);
  EXPECT_EQ(Run("faults"), "1 no-reply:nth=1 counted 1 struck 1\n2 late:chance=0.5,ms=20 counted 1 struck 0\n");
  EXPECT_EQ(Run("clear 1"), "");
  EXPECT_EQ(Run("clear 1"), "simZR4410: there is no fault 1\n= 1");
  EXPECT_EQ(Run("clear"), "");
  EXPECT_EQ(Run("faults"), "");
  const std::string expected = ErrorOf([] { sim::ParseFault("zoo"); });
  ASSERT_NE(expected, "");
  EXPECT_EQ(Run("fault zoo"), "simZR4410: " + expected + "\n= 1");
  EXPECT_EQ(Run("fault late zoo"), "simZR4410: " + expected + "\n= 1");
  EXPECT_EQ(Run("faults"), "");
}

TEST_F(Ctl, CutsTheSupply) {
  EXPECT_EQ(Run("supply off"), "");
  EXPECT_EQ(Run("get supply"), "off\n");
  EXPECT_EQ(Run("supply on"), "");
  EXPECT_EQ(Run("get supply"), "on\n");
  EXPECT_EQ(Run("supply x").substr(0, 6), "wrong:");
}

TEST_F(Ctl, RestartsTheDeviceFromAFile) {
  EXPECT_EQ(Run("scenario \"" SIM_SOURCE "/simulator/scenarios/night.toml\""), "");
  EXPECT_EQ(Run("get ae_mode"), "manual\n");
  EXPECT_EQ(Run("scenario wide-dynamic-range"), "");
  EXPECT_EQ(Run("get wdr_mode"), "on\n");
  EXPECT_TRUE(
      Run("scenario nigth").starts_with("simZR4410: nigth: no such file, and no installed scenario (camera-off, "));
  EXPECT_EQ(Run("scenario /no/such/file"), "simZR4410: /no/such/file: No such file or directory\n= 1");
}

TEST_F(Ctl, ListsAndAwaitsMessages) {
  Add(kVersion);
  Add(kVersion);
  Add(kGetPtz);
  const std::string zeros = Hex(Body(kVersion)).substr(kVersion.size());
  const std::string third = "3 request " + kGetPtz + zeros + " Get PTZ get\n";
  const std::string dropped = "... 1 message has been dropped\n";
  EXPECT_EQ(Run("messages"), dropped + "2 request " + kVersion + zeros + " Get Version\n" + third);
  EXPECT_EQ(Run("messages --since 2"), third);
  EXPECT_EQ(Run("messages --match AA11"), dropped + third);
  EXPECT_EQ(Run("wait --since 0 --match AA11"), third);
  EXPECT_EQ(Run("messages --since -1").substr(0, 6), "wrong:");
  EXPECT_EQ(Run("wait --timeout 1"), "simZR4410: no such message within 1 ms\n= 1");
}

TEST_F(Ctl, ReportsThatThereIsNoSimulator) {
  there_ = false;
  for (const char* const line :
       {"get", "set pan=1", "fault late", "faults", "clear", "supply on", "messages", "wait"}) {
    EXPECT_EQ(Run(line), "simZR4410: /somewhere: there is no simulator\n= 2") << line;
  }
}

TEST_F(Ctl, ReportsThatTheSimulatorDoesNotAnswer) {
  silent_ = true;
  EXPECT_EQ(Run("get"), "simZR4410: /somewhere: the simulator does not answer\n= 2");
}

TEST_F(Ctl, ReportsThatItsOutputCannotBeWritten) {
  CLI::App app;
  sim::Ctl ctl(app);
  app.parse("ctl --control /somewhere get");
  std::ostream full(nullptr);
  std::ostringstream error;
  const auto state = [this](const auto& method, const auto& target, const auto& body, int) {
    return std::optional(routes_.Handle(method, target, {}, body));
  };
  EXPECT_EQ(ctl.Run(state, full, error), 1);
  EXPECT_EQ(error.str(), "simZR4410: standard output cannot be written\n");
}

TEST_F(Ctl, NeedsACommand) { EXPECT_EQ(Run("").substr(0, 6), "wrong:"); }

}  // namespace
