// Scenario files: what they set, how invalid ones are rejected, and the installed files.
#include "simulator/model/Scenario.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "simulator/model/Device.h"
#include "tests/simulator/Support.h"

namespace {

using sim::Var;

const std::string kFolder = std::string(SIM_SOURCE) + "/simulator/scenarios/";

sim::Setup Load(const std::string& name) {
  std::ifstream file(kFolder + name);
  std::ostringstream text;
  text << file.rdbuf();
  sim::Setup setup = sim::ParseScenario(text.str(), name);
  setup.fast = true;
  return setup;
}

// Returns the VISCA packet that answers a packet; empty if there is none within a minute.
std::string Ask(sim::Device& device, const std::string& packet, sim::Time now = 1_s) {
  device.Request(1, sim::EncodeRelay(1, sim::Frame{sim::kCameraCode, B(packet)}.Encode()), now);
  device.Advance(now + 60_s);
  const auto out = device.Take(now + 60_s);
  return out ? Hex(sim::DecodeRelay(out->body).frame.data) : "";
}

TEST(ScenarioFiles, EachHaveATest) {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
    files.insert(entry.path().filename());
  }
  EXPECT_EQ(files, (std::set<std::string>{"camera-off.toml", "confused-camera.toml", "day-to-night.toml",
                                          "dead-camera.toml", "flaky-link.toml", "night.toml", "restarting-daemon.toml",
                                          "telephoto.toml", "wide-dynamic-range.toml"}));
}

TEST(ScenarioFiles, NightIsDark) {
  sim::Device device(Load("night.toml"));
  EXPECT_EQ(Ask(device, "81 09 04 24 72 FF"), "90 50 00 08 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 01 FF"), "90 50 0C 08 0B 04 08 08 03 01 04 11 0F 11 07 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 02 FF"), "90 50 05 10 00 00 00 00 01 02 03 04 05 00 00 FF");
  EXPECT_EQ(Ask(device, "81 09 04 5E FF"), "90 50 02 FF");
  EXPECT_EQ(Ask(device, "81 09 04 53 FF"), "90 50 05 FF");
}

TEST(ScenarioFiles, WideDynamicRangeSetsItsVariables) {
  sim::Device device(Load("wide-dynamic-range.toml"));
  EXPECT_EQ(Ask(device, "81 09 7E 7E 04 FF"), "90 50 01 02 0D 02 00 00 00 00 00 00 00 00 00 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 01 FF"), "90 50 0C 08 0B 04 00 08 00 16 06 0E 01 11 09 FF");
}

TEST(ScenarioFiles, TelephotoSetsZoomFocusAndPosition) {
  sim::Device device(Load("telephoto.toml"));
  EXPECT_EQ(Ask(device, "81 09 7E 7E 00 FF"), "90 50 06 00 00 00 04 00 04 00 00 00 00 06 00 FF");
  EXPECT_EQ(Ask(device, "81 09 7E 7E 03 FF").substr(0, 11), "90 50 08 00");
  EXPECT_EQ(device.state()[Var::pan], 64000U);
  EXPECT_EQ(device.state()[Var::tilt], 300U);
}

TEST(ScenarioFiles, ADeadCameraIsSilentButTheMcuAnswers) {
  sim::Device device(Load("dead-camera.toml"));
  EXPECT_EQ(Ask(device, "81 09 00 02 FF"), "");
  EXPECT_EQ(Ask(device, "81 01 04 00 02 FF"), "");
  device.Request(1, Body(kVersion), 90_s);
  EXPECT_TRUE(device.Take(90_s));
}

TEST(ScenarioFiles, ACameraThatIsOffCanBeSwitchedOn) {
  sim::Device device(Load("camera-off.toml"));
  EXPECT_EQ(Ask(device, "81 09 00 02 FF"), "");
  device.Request(1, Body(kSupplyOn), 2_s);
  EXPECT_TRUE(device.Take(2_s));
  EXPECT_EQ(Ask(device, "81 09 00 02 FF", 3_s), "90 50 00 20 07 20 01 03 02 FF");
}

TEST(ScenarioFiles, AFlakyLinkLosesSomeButNotMost) {
  const auto run = [] {
    sim::Device device(Load("flaky-link.toml"));
    std::string answers;
    for (int i = 1; i <= 1000; ++i) {
      device.Request(1, Body(kVersion), i * 10_s);
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

TEST(ScenarioFiles, ARestartingDaemonRestartsAtEveryFifthRequest) {
  sim::Device device(Load("restarting-daemon.toml"));
  for (int i = 1; i <= 10; ++i) {
    device.Request(1, Body(kVersion), i * 1_s);
    const auto out = device.Take(i * 1_s);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->kind == sim::Outgoing::Kind::Restart, i % 5 == 0) << i;
  }
}

TEST(ScenarioFiles, AConfusedCameraHasUndefinedValues) {
  sim::Device device(Load("confused-camera.toml"));
  EXPECT_EQ(Ask(device, "81 09 04 24 72 FF"), "90 50 00 09 FF");
  EXPECT_EQ(Ask(device, "81 09 04 39 FF"), "90 50 01 FF");
  EXPECT_EQ(Ask(device, "81 09 04 4B FF"), "90 60 41 FF");
  EXPECT_EQ(Ask(device, "81 09 04 4B FF"), "90 50 00 00 00 03 FF");
}

TEST(ScenarioFiles, DayTurnsToNight) {
  sim::Device device(Load("day-to-night.toml"));
  device.Start(0);
  const auto replies = [&device](sim::Time from) {
    int whole = 0;
    for (int i = 0; i < 100; ++i) {
      device.Request(1, Body(kVersion), from + i * 1_ms);
      const auto out = device.Take(from + i * 1_ms);
      whole += out && Text(*out) == kVersionReply ? 1 : 0;
    }
    return whole;
  };
  EXPECT_EQ(replies(4_s), 100);
  EXPECT_LT(replies(6_s), 90);
  EXPECT_EQ(replies(15_s), 100);
  device.Advance(20_s);
  EXPECT_EQ(device.state()[Var::icr], sim::kOn);
  EXPECT_EQ(device.state()[Var::gain_pos], 15U);
  device.Advance(40_s);
  EXPECT_FALSE(device.CameraAwake(40_s));
  device.Advance(45_s);
  EXPECT_TRUE(device.CameraAwake(45_s));
}

TEST(Scenario, SetsTheBaudRateIfTheDeviceIsNotFast) {
  EXPECT_EQ(sim::ParseScenario("[device]\nbaud = 38400\n", "x.toml").baud, 38400U);
}

TEST(Scenario, SetsEverything) {
  const sim::Setup setup = sim::ParseScenario(R"(
description = "all of it"
seed = 7
[device]
wake_up_ms = 1500
report_ms = 200
fast = true
sockets = true
strict = false
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
  EXPECT_EQ(setup.seed, 7U);
  EXPECT_EQ(setup.wake_up, 1500_ms);
  EXPECT_EQ(setup.report_every, 200_ms);
  EXPECT_TRUE(setup.fast);
  EXPECT_TRUE(setup.sockets);
  EXPECT_FALSE(setup.strict);
  EXPECT_EQ(setup.state[Var::ae_mode], 0x0BU);
  EXPECT_EQ(setup.state[Var::wb_mode], 5U);
  EXPECT_EQ(setup.state[Var::exp_comp], 2U);
  EXPECT_EQ(setup.state[Var::icr], 3U);
  EXPECT_EQ(setup.state.registers[0x72], 8);
  EXPECT_EQ(setup.state.registers[0x50], 0x12);
  EXPECT_EQ(setup.state.registers[81], 2);
  EXPECT_EQ(setup.state[Var::pan], 64000U);
  ASSERT_EQ(setup.faults.size(), 2U);
  EXPECT_EQ(setup.faults[0].kind->name, "late");
  EXPECT_EQ(setup.faults[0].ms, 2500);
  EXPECT_EQ(setup.faults[0].nth, (std::vector<std::uint32_t>{3, 5}));
  EXPECT_EQ(setup.faults[1].value, 0x20);
  EXPECT_EQ(setup.faults[1].chance, 0.5);
  EXPECT_EQ(setup.faults[1].only->name, "commands");
  EXPECT_EQ(Hex(setup.faults[1].match), "04 39");
}

TEST(Scenario, AnErrorIsOneLineWithFileLineAndKey) {
  const std::pair<const char*, const char*> wrong[] = {
      {"sed = 1", "x.toml:1: sed: no such key"},
      {"\nseed = -1", "x.toml:2: seed: -1 is out of range (0 to 9223372036854775807)"},
      {"seed = 1.5", "x.toml:1: seed: 1.5 is not a whole number (0 to 9223372036854775807)"},
      {"description = 3", "x.toml:1: description: must be a string"},
      {"device = 3", "x.toml:1: device: not a table"},
      {"[device]\nbaud = 1200\nfast = true",
       "x.toml:2: device.baud: has no effect: the device answers without delay (device.fast)"},
      {"[device]\nbaud = 12", "x.toml:2: device.baud: 12 is out of range (300 to 4000000)"},
      {"[device]\nfast = 1", "x.toml:2: device.fast: 1 is neither true nor false"},
      {"[device]\nspeed = 1", "x.toml:2: device.speed: no such key"},
      {"[camera]\n\niris = 3", "x.toml:3: camera.iris: no such variable"},
      {"[camera]\npan = 3", "x.toml:2: camera.pan: no such variable"},
      {"[camera]\nstep = 3", "x.toml:2: camera.step: no such variable"},
      {"[mcu]\nae_mode = 3", "x.toml:2: mcu.ae_mode: no such variable"},
      {"[camera]\niris_pos = 256", "x.toml:2: camera.iris_pos: 256 is out of range (0 to 255)"},
      {"[camera]\niris_pos = \"wide\"", "x.toml:2: camera.iris_pos: 'wide' is not a whole number (0 to 255)"},
      {"[camera]\naf_mode = \"wide\"",
       "x.toml:2: camera.af_mode: no such mode 'wide' (normal, interval, zoom trigger)"},
      {"[camera]\nae_mode = []", "x.toml:2: camera.ae_mode: must be a number, a string, true or false"},
      {"[camera]\nregisters = 3", "x.toml:2: camera.registers: not a table"},
      {"[camera.registers]\n0x1FF = 1",
       "x.toml:2: camera.registers.0x1FF: no such register (0 to 255, or 0x00 to 0xFF)"},
      {"[registers]\nx = 1", "x.toml:2: registers.x: no such register (0 to 255, or 0x00 to 0xFF)"},
      {"[registers]\n1 = 256", "x.toml:2: registers.1: 256 is out of range (0 to 255)"},
      {"fault = 1", "x.toml:1: fault: not written as [[fault]]"},
      {"fault = [1]", "x.toml:1: fault: not a table"},
      {"[[fault]]\nms = 1", "x.toml:1: fault.kind: must be the name of a fault, such as \"no-reply\""},
      {"[[fault]]\nkind = 1", "x.toml:2: fault.kind: must be the name of a fault, such as \"no-reply\""},
      {"[[fault]]\nkind = \"lost\"", "x.toml:2: fault.kind: no such fault 'lost' (--faults lists them)"},
      {"[[fault]]\nkind = \"nak:value=1\"", "x.toml:2: fault.kind: no such fault 'nak:value=1' (--faults lists them)"},
      {"[[fault]]\nkind = \"nak\"\nwhen = 3",
       "x.toml:3: fault.when: no such key (nth, every, chance, count, only, match, from_ms, until_ms, ms, value, at, "
       "xor, insert, cut)"},
      {"[[fault]]\nkind = \"nak\"\nnth = [0]",
       "x.toml:3: fault.nth: '0' is not a list of message numbers from 1 (3, or 3+5)"},
      {"[[fault]]\nkind = \"nak\"\nnth = []",
       "x.toml:3: fault.nth: '' is not a list of message numbers from 1 (3, or 3+5)"},
      {"[[fault]]\nkind = \"nak\"\nchance = 2", "x.toml:3: fault.chance: '2' is not a probability (0 to 1)"},
      {"at = 1", "x.toml:1: at: not written as [[at]]"},
      {"[[at]]\nsupply = true", "x.toml:1: at.ms: not given (milliseconds after \"ready\")"},
      {"[[at]]\nms = -1", "x.toml:2: at.ms: -1 is out of range (0 to 86400000 milliseconds)"},
      {"[[at]]\nms = 1.5", "x.toml:2: at.ms: 1.5 is not a whole number (0 to 86400000 milliseconds)"},
      {"[[at]]\nms = 1\nsupply = 0", "x.toml:3: at.supply: 0 is neither true nor false"},
      {"[[at]]\nms = 1\nseed = 2", "x.toml:3: at.seed: no such key"},
      {"[[at]]\nms = 1\n[at.camera]\nae_mode = \"x\"",
       "x.toml:4: at.camera.ae_mode: no such mode 'x' (fully auto, manual, shutter priority, iris priority, bright)"},
      {"[[at]]\nms = 1\n[[at.fault]]\nkind = \"lost\"",
       "x.toml:4: at.fault.kind: no such fault 'lost' (--faults lists them)"},
  };
  for (const auto& [text, error] : wrong) {
    EXPECT_EQ(ErrorOf([&scenario = text] { sim::ParseScenario(scenario, "x.toml"); }), error);
  }
  const std::string error = ErrorOf([] { sim::ParseScenario("seed = 1\n[camera\n", "x.toml"); });
  EXPECT_EQ(error.substr(0, 10), "x.toml:2: ") << error;
  EXPECT_EQ(error.find('\n'), std::string::npos);
}

// Returns a key of that many levels: "a.a.a".
std::string DeepKey(std::size_t levels) {
  std::string key = "a";
  while (key.size() < 2 * levels - 1) {
    key += ".a";
  }
  return key;
}

// The parser is recursive, so a deeply nested key would exhaust the stack.
TEST(Scenario, LimitsItsDepth) {
  const std::string most = "# " + std::string(32, '.') + "\n";
  EXPECT_EQ(sim::ParseScenario(most + most + "seed = 3", "x.toml").seed, 3U);
  EXPECT_EQ(ErrorOf([&] { sim::ParseScenario(most + "#." + most, "x.toml"); }),
            "x.toml:2: more than 32 dots in a line");
  EXPECT_EQ(ErrorOf([] { sim::ParseScenario("seed = 3\n" + DeepKey(200000) + " = 1", "x.toml"); }),
            "x.toml:2: more than 32 dots in a line");
  std::string deepest = "x = [\n";
  for (int i = 0; i < 1000; ++i) {
    deepest += "{" + DeepKey(33) + " = [\n";
  }
  EXPECT_NE(ErrorOf([&] { sim::ParseScenario(deepest, "x.toml"); }), "");
}

}  // namespace
