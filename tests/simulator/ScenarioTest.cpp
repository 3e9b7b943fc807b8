// Scenario files: what they set, and how wrong ones are refused.
#include "simulator/Scenario.h"

#include <filesystem>
#include <set>

#include "tests/simulator/Support.h"

namespace {

using sim::Var;

const std::string kFolder = std::string(SIM_SOURCE) + "/simulator/scenarios/";

sim::Setup Load(const std::string& name) {
  sim::SetupOrError loaded = sim::LoadScenario(kFolder + name);
  EXPECT_EQ(loaded.error, "");
  loaded.setup.fast = true;
  return loaded.setup;
}

// The reply's frame to a camera inquiry's data, VISCA packet only; empty when nothing came within a minute.
std::string Ask(sim::Device& device, const std::string& frame, sim::Time now = 1_s) {
  Packet body = B("AA AA 01 00 AA 02");
  const Packet data = B(frame);
  body[3] = static_cast<std::uint8_t>(data.size() + 5);
  body.push_back(static_cast<std::uint8_t>(data.size()));
  body.insert(body.end(), data.begin(), data.end());
  std::uint8_t sum = 0;
  for (std::size_t i = 4; i < body.size(); ++i) {
    sum = static_cast<std::uint8_t>(sum + body[i]);
  }
  body.push_back(static_cast<std::uint8_t>(-sum));
  body.push_back(0x55);
  body.resize(36, 0);
  device.Request(1, body, now);
  device.Advance(now + 60_s);
  const auto out = device.Take(now + 60_s);
  return out && out->body[6] <= 16 ? Hex(Packet(out->body.begin() + 7, out->body.begin() + 7 + out->body[6])) : "";
}

TEST(Scenarios, HaveATestEach) {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
    files.insert(entry.path().filename());
    EXPECT_EQ(sim::LoadScenario(entry.path()).error, "");
  }
  EXPECT_EQ(files, (std::set<std::string>{"camera-off.toml", "confused-camera.toml", "dead-camera.toml",
                                          "flaky-link.toml", "night.toml", "restarting-daemon.toml", "telephoto.toml",
                                          "wide-dynamic-range.toml"}));
}

TEST(Scenarios, NightIsDark) {
  sim::Device device(Load("night.toml"));
  EXPECT_EQ(Ask(device, "81 09 04 24 72 FF"), "90 50 00 08 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 01 FF"), "90 50 0C 08 0B 04 08 08 03 01 04 11 0F 11 07 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 02 FF"), "90 50 05 10 00 00 00 00 01 02 03 04 05 00 00 FF");
  EXPECT_EQ(Ask(device, "81 09 04 5E FF"), "90 50 02 FF");
  EXPECT_EQ(Ask(device, "81 09 04 53 FF"), "90 50 05 FF");
}

TEST(Scenarios, WideDynamicRangeIsWide) {
  sim::Device device(Load("wide-dynamic-range.toml"));
  EXPECT_EQ(Ask(device, "81 09 7E 7E 04 FF"), "90 50 01 02 0D 02 00 00 00 00 00 00 00 00 00 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 01 FF"), "90 50 0C 08 0B 04 00 08 00 16 06 0E 01 11 09 FF");
}

TEST(Scenarios, TelephotoLooksFar) {
  sim::Device device(Load("telephoto.toml"));
  EXPECT_EQ(Ask(device, "81 09 7E 7E 00 FF"), "90 50 06 00 00 00 04 00 04 00 00 00 00 06 00 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 03 FF").substr(0, 11), "90 50 08 00");
  EXPECT_EQ(device.state()[Var::pan], 64000U);
  EXPECT_EQ(device.state()[Var::tilt], 300U);
}

TEST(Scenarios, ADeadCameraIsSilentButTheMcuAnswers) {
  sim::Device device(Load("dead-camera.toml"));
  EXPECT_EQ(Ask(device, "81 09 00 02 FF"), "");
  EXPECT_EQ(Ask(device, "81 01 04 00 02 FF"), "");
  device.Request(1, Body("AA AA 01 06 AA 10 01 01 44 55"), 90_s);
  EXPECT_TRUE(device.Take(90_s));
}

TEST(Scenarios, ACameraThatIsOffCanBeSwitchedOn) {
  sim::Device device(Load("camera-off.toml"));
  EXPECT_EQ(Ask(device, "81 09 00 02 FF"), "");
  device.Request(1, Body("AA AA 01 06 AA 0C 01 01 48 55"), 2_s);
  EXPECT_TRUE(device.Take(2_s));
  EXPECT_EQ(Ask(device, "81 09 00 02 FF", 3_s), "90 50 00 20 07 20 01 03 02 FF");
}

TEST(Scenarios, AFlakyLinkLosesSomeButNotMost) {
  const auto run = [] {
    sim::Device device(Load("flaky-link.toml"));
    std::string answers;
    for (int i = 1; i <= 1000; ++i) {
      device.Request(1, Body("AA AA 01 06 AA 10 01 01 44 55"), i * 10_s);
      const bool at_once = device.Take(i * 10_s).has_value();
      const bool late = !at_once && device.Take(i * 10_s + 3_s).has_value();
      answers += at_once ? 'x' : late ? 'l' : '-';
    }
    return answers;
  };
  const std::string answers = run();
  EXPECT_EQ(run(), answers) << "the seed gives the same run";
  const auto lost = std::count(answers.begin(), answers.end(), '-');
  const auto late = std::count(answers.begin(), answers.end(), 'l');
  EXPECT_GT(lost, 20);
  EXPECT_LT(lost, 100);
  EXPECT_GT(late, 20);
  EXPECT_LT(late, 150);
}

TEST(Scenarios, ARestartingDaemonRestartsAtTheFifth) {
  sim::Device device(Load("restarting-daemon.toml"));
  for (int i = 1; i <= 10; ++i) {
    device.Request(1, Body("AA AA 01 06 AA 10 01 01 44 55"), i * 1_s);
    const auto out = device.Take(i * 1_s);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->kind == sim::Outgoing::Kind::Restart, i % 5 == 0) << i;
  }
}

TEST(Scenarios, AConfusedCameraIsOutOfItsTables) {
  sim::Device device(Load("confused-camera.toml"));
  EXPECT_EQ(Ask(device, "81 09 04 24 72 FF"), "90 50 00 09 FF");
  EXPECT_EQ(Ask(device, "81 09 04 39 FF"), "90 50 01 FF");
  EXPECT_EQ(Ask(device, "81 09 04 4B FF"), "90 60 41 FF");
  EXPECT_EQ(Ask(device, "81 09 04 4B FF"), "90 50 00 00 00 03 FF");
}

TEST(ScenarioText, SetsEverything) {
  const sim::SetupOrError parsed = sim::ParseScenario(R"(
description = "all of it"
seed = 7
[device]
wake_up_ms = 1500
report_ms = 200
baud = 38400
fast = true
sockets = true
[camera]
ae_mode = "iris priority"
wb_mode = 5
exp_comp = true
icr = false
sensor_mode = 8
[camera.registers]
0x50 = 0x12
81 = 2
[mcu]
pan = 64000
[[fault]]
kind = "late"
ms = 2500
nth = [3, 5]
[[fault]]
kind = "nak"
value = 0x20
chance = 0.5
only = "commands"
match = "04 39"
)",
                                                      "all.toml");
  ASSERT_EQ(parsed.error, "");
  const sim::Setup& setup = parsed.setup;
  EXPECT_EQ(setup.seed, 7U);
  EXPECT_EQ(setup.wake_up, 1500_ms);
  EXPECT_EQ(setup.report_every, 200_ms);
  EXPECT_EQ(setup.baud, 38400U);
  EXPECT_TRUE(setup.fast);
  EXPECT_TRUE(setup.sockets);
  EXPECT_EQ(setup.state[Var::ae_mode], 0x0BU);
  EXPECT_EQ(setup.state[Var::wb_mode], 5U);
  EXPECT_EQ(setup.state[Var::exp_comp], 2U);
  EXPECT_EQ(setup.state[Var::icr], 3U);
  EXPECT_EQ(setup.state.registers[0x72], 8);
  EXPECT_EQ(setup.state.registers[0x50], 0x12);
  EXPECT_EQ(setup.state.registers[81], 2);
  EXPECT_EQ(setup.state[Var::pan], 64000U);
  ASSERT_EQ(setup.faults.size(), 2U);
  EXPECT_EQ(setup.faults[0].info->name, "late");
  EXPECT_EQ(setup.faults[0].ms, 2500);
  EXPECT_EQ(setup.faults[0].nth, (std::vector<std::uint32_t>{3, 5}));
  EXPECT_EQ(setup.faults[1].value, 0x20);
  EXPECT_EQ(setup.faults[1].chance, 0.5);
  EXPECT_EQ(setup.faults[1].only, sim::Only::Commands);
  EXPECT_EQ(Hex(setup.faults[1].match), "04 39");
}

TEST(ScenarioText, IsRefusedInOneLineThatSaysWhere) {
  const std::pair<const char*, const char*> wrong[] = {
      {"sed = 1", "x.toml:1: unknown key 'sed'"},
      {"\nseed = -1", "x.toml:2: seed takes a whole number from 0 to 9223372036854775807"},
      {"seed = 1.5", "x.toml:1: seed takes a whole number from 0 to 9223372036854775807"},
      {"description = 3", "x.toml:1: description takes a text"},
      {"device = 3", "x.toml:1: device is a table"},
      {"[device]\nbaud = 12", "x.toml:2: baud takes a whole number from 300 to 4000000"},
      {"[device]\nfast = 1", "x.toml:2: fast takes true or false"},
      {"[device]\nspeed = 1", "x.toml:2: unknown key 'speed' in [device]"},
      {"[camera]\n\niris = 3", "x.toml:3: unknown key 'iris' in [camera]"},
      {"[camera]\npan = 3", "x.toml:2: unknown key 'pan' in [camera]"},
      {"[camera]\nstep = 3", "x.toml:2: unknown key 'step' in [camera]"},
      {"[mcu]\nae_mode = 3", "x.toml:2: unknown key 'ae_mode' in [mcu]"},
      {"[camera]\niris_pos = 256", "x.toml:2: iris_pos takes a whole number from 0 to 255"},
      {"[camera]\niris_pos = \"wide\"", "x.toml:2: iris_pos takes a number"},
      {"[camera]\naf_mode = \"wide\"", "x.toml:2: af_mode takes a number or one of: normal, interval, zoom trigger"},
      {"[camera.registers]\n0x1FF = 1", "x.toml:2: '0x1FF' is no register number"},
      {"[camera.registers]\nx = 1", "x.toml:2: 'x' is no register number"},
      {"[camera.registers]\n1 = 256", "x.toml:2: 1 takes a whole number from 0 to 255"},
      {"fault = 1", "x.toml:1: faults are written [[fault]]"},
      {"fault = [1]", "x.toml:1: fault is a table"},
      {"[[fault]]\nms = 1", "x.toml:1: a fault takes a kind, such as \"no-reply\""},
      {"[[fault]]\nkind = 1", "x.toml:2: a fault takes a kind, such as \"no-reply\""},
      {"[[fault]]\nkind = \"lost\"", "x.toml:2: unknown fault 'lost'"},
      {"[[fault]]\nkind = \"nak\"\nwhen = 3", "x.toml:3: unknown key 'when'"},
      {"[[fault]]\nkind = \"nak\"\nnth = [0]", "x.toml:3: nth takes a whole number from 1 to 4294967295"},
      {"[[fault]]\nkind = \"nak\"\nnth = []", "x.toml:3: nth takes a number or a text or a list of numbers"},
      {"[[fault]]\nkind = \"nak\"\nchance = 2", "x.toml:3: chance takes a number from 0 to 1, not '2'"},
  };
  for (const auto& [text, error] : wrong) {
    EXPECT_EQ(sim::ParseScenario(text, "x.toml").error, error) << text;
  }
  const std::string error = sim::ParseScenario("seed = 1\n[camera\n", "x.toml").error;
  EXPECT_EQ(error.substr(0, 10), "x.toml:2: ") << error;
  EXPECT_EQ(error.find('\n'), std::string::npos);
  EXPECT_EQ(sim::LoadScenario("/no/such/file.toml").error, "/no/such/file.toml: cannot be read");
}

}  // namespace
