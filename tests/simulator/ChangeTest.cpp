// Changes of a running device: their notation, their immediate effect, and the timelines of scenarios.
#include "simulator/model/Change.h"

#include "simulator/model/Scenario.h"
#include "tests/simulator/Support.h"

namespace {

using namespace std::string_literals;
using sim::Var;

std::string ErrorOfValue(Var var, const sim::Given& given) {
  return ErrorOf([&] { sim::VariableValue(var, given); });
}

TEST(VariableValue, TakesNumbersNamesAndSwitches) {
  EXPECT_EQ(sim::VariableValue(Var::ae_mode, "manual"s), 3U);
  EXPECT_EQ(sim::VariableValue(Var::ae_mode, std::int64_t{15}), 15U);  // fits the field, but has no name
  EXPECT_EQ(sim::VariableValue(Var::icr, true), 2U);
  EXPECT_EQ(sim::VariableValue(Var::lens_power, false), 0U);
  EXPECT_EQ(sim::VariableValue(Var::alarm, true), 1U);
  EXPECT_EQ(sim::VariableValue(Var::pan, std::int64_t{0xFFFFFFFF}), 0xFFFFFFFFU);
}

TEST(VariableValue, NamesTheMistake) {
  EXPECT_EQ(ErrorOfValue(Var::ae_mode, "x"s),
            "camera.ae_mode: no such mode 'x' (fully auto, manual, shutter priority, iris priority, bright)");
  EXPECT_EQ(ErrorOfValue(Var::ae_mode, true),
            "camera.ae_mode: no such mode true (fully auto, manual, shutter priority, iris priority, bright)");
  EXPECT_EQ(ErrorOfValue(Var::icr, 2.0), "camera.icr: no such value 2.0 (on, off)");
  EXPECT_EQ(ErrorOfValue(Var::ae_mode, std::int64_t{16}), "camera.ae_mode: 16 is out of range (0 to 15)");
  EXPECT_EQ(ErrorOfValue(Var::pan, -1), "mcu.pan: -1 is out of range (0 to 4294967295)");
  EXPECT_EQ(ErrorOfValue(Var::pan, 1.5), "mcu.pan: 1.5 is not a whole number (0 to 4294967295)");
  EXPECT_EQ(ErrorOfValue(Var::pan, "left"s), "mcu.pan: 'left' is not a whole number (0 to 4294967295)");
}

TEST(SetVariable, KnowsTheSections) {
  sim::Change change;
  sim::SetVariable(change, "camera", "iris_pos", 17);
  sim::SetVariable(change, "mcu", "tilt", 300);
  sim::SetVariable(change, "camera", "sensor_mode", 8);
  sim::SetVariable(change, "registers", "0x50", 1);
  sim::SetVariable(change, "registers", "81", 2);
  using Variables = std::vector<std::pair<Var, std::uint32_t>>;
  using Registers = std::vector<std::pair<std::uint8_t, std::uint8_t>>;
  EXPECT_EQ(change.variables, (Variables{{Var::iris_pos, 17}, {Var::tilt, 300}}));
  EXPECT_EQ(change.registers, (Registers{{0x72, 8}, {0x50, 1}, {81, 2}}));
}

TEST(SetVariable, NamesTheMistake) {
  sim::Change change;
  const auto error = [&change](const char* section, const char* key, const sim::Given& given) {
    return ErrorOf([&] { sim::SetVariable(change, section, key, given); });
  };
  EXPECT_EQ(error("lens", "zoom", 1), "lens: no such section (camera, mcu, registers)");
  EXPECT_EQ(error("camera", "pan", 1), "camera.pan: no such variable");
  EXPECT_EQ(error("mcu", "step", 1), "mcu.step: no such variable");
  EXPECT_EQ(error("registers", "256", 1), "registers.256: no such register (0 to 255, or 0x00 to 0xFF)");
  EXPECT_EQ(error("registers", "0x72", 256), "registers.0x72: 256 is out of range (0 to 255)");
  EXPECT_EQ(error("camera", "sensor_mode", "p30"s), "camera.sensor_mode: 'p30' is not a whole number (0 to 255)");
  EXPECT_TRUE(change.variables.empty());
  EXPECT_TRUE(change.registers.empty());
}

class Changes : public testing::Test, public DeviceStory {
 protected:
  explicit Changes(sim::Setup setup = {.fast = true}) : DeviceStory(std::move(setup)) {}
  void Apply(const sim::Change& change) { device_.Apply(change, now_); }
};

TEST_F(Changes, SetVariablesAndRegisters) {
  Apply({.variables = {{Var::mcu_version, 0x22}, {Var::ae_mode, 3}}, .registers = {{0x72, 8}}});
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 22 A3 55");
  EXPECT_EQ(Ask("AA AA 02 0A AA 02 05 81 09 04 39 FF 89 55"), "AA AA 02 09 AA 82 04 90 50 03 FF EE 55");
  EXPECT_EQ(Ask(kSensorMode), "AA AA 05 0A AA 82 05 90 50 00 08 FF E8 55");
}

TEST_F(Changes, CutTheSupplyUntilItReturns) {
  Apply({.supply = false});
  EXPECT_FALSE(device_.CableConnected());
  EXPECT_EQ(Ask(kSensorMode), "");
  EXPECT_EQ(note_, "camera silent");
  EXPECT_EQ(Ask(kSupplyOn), "AA AA 02 06 AA 8C 01 10 B9 55");  // without effect: the cable is cut
  EXPECT_EQ(Ask(kSensorMode), "");
  Apply({.variables = {{Var::pan, 1}}});
  EXPECT_EQ(Ask(kSensorMode), "");
  Apply({.supply = true});
  EXPECT_TRUE(device_.CableConnected());
  EXPECT_EQ(Ask(kSensorMode), kSensorModeReply);
}

TEST_F(Changes, SwitchTheSupplyByItsVariable) {
  Apply({.variables = {{Var::lens_power, 0}}});
  EXPECT_EQ(Ask(kSensorMode), "");
  Apply({.variables = {{Var::lens_power, 1}}});
  EXPECT_EQ(Ask(kSensorMode), kSensorModeReply);
}

TEST_F(Changes, StartReports) {
  Ask(kVersion);
  Apply({.variables = {{Var::ptz_report, 1}}});
  EXPECT_EQ(Later(999_ms), "");
  EXPECT_EQ(Later(1_ms), "AA AA 00 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55");
}

TEST_F(Changes, ReplaceTheFaults) {
  const std::uint32_t old = device_.AddFault(sim::ParseFault("no-reply"), now_);
  Apply({.clear_faults = true, .faults = {sim::ParseFault("nak")}});
  ASSERT_EQ(device_.Faults().size(), 1U);
  EXPECT_GT(device_.Faults()[0].id, old);
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 40 85 55");
}

class MovingDevice : public Changes {
 protected:
  MovingDevice() : Changes(sim::Setup{}) {}
};

TEST_F(MovingDevice, StopsWhereItIsSet) {
  Ask("AA AA 01 0B AA 02 06 81 01 04 07 27 FF 9B 55");  // zoom tele
  Ask("AA AA 02 09 AA 01 04 00 02 3F 00 10 55");        // pan right
  Later(1_s);
  EXPECT_GT(device_.state()[Var::zoom_pos], 5000U);
  EXPECT_NE(device_.state()[Var::pan], 32000U);
  Apply({.variables = {{Var::zoom_pos, 16}, {Var::pan, 1}}});
  Later(1_s);
  EXPECT_EQ(device_.state()[Var::zoom_pos], 16U);
  EXPECT_EQ(device_.state()[Var::pan], 1U);
  EXPECT_EQ(device_.state()[Var::motor_state], 0U);
}

TEST_F(Changes, RestartKeepsOnlyTheNumberOfRequests) {
  Apply({.variables = {{Var::mcu_version, 9}, {Var::ptz_report, 1}},
         .supply = false,
         .faults = {sim::ParseFault("late")}});
  EXPECT_EQ(Ask(kVersion), "");
  sim::Setup setup{.fast = true};
  setup.state[Var::mcu_version] = 0x22;
  setup.faults = {sim::ParseFault("duplicate:nth=2")};
  device_.Restart(setup, now_);
  EXPECT_EQ(device_.LastExchange(), 1U);
  EXPECT_EQ(device_.Faults().size(), 1U);
  EXPECT_EQ(Later(10_s), "");  // neither the late reply nor a report
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 22 A3 55");
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 22 A3 55 | AA AA 01 06 AA 90 01 22 A3 55");
  EXPECT_EQ(Ask(kSensorMode), kSensorModeReply);
}

constexpr const char* kTimeLine = R"(
[device]
fast = true
[[at]]
ms = 3000
supply = true
clear_faults = true
[[at]]
ms = 1000
[at.camera]
ae_mode = "manual"
[at.mcu]
mcu_version = 0x22
[at.registers]
0x72 = 8
[[at]]
ms = 2000
supply = false
[[at.fault]]
kind = "nak"
only = "mcu"
from_ms = 500
)";

class TimeLine : public Changes {
 protected:
  TimeLine() : Changes(sim::ParseScenario(kTimeLine, "line.toml")) { device_.Start(now_); }
};

TEST_F(TimeLine, ChangesTheDeviceAtItsTimes) {
  EXPECT_EQ(device_.NextDue(), 2_s);  // ready at 1 s
  EXPECT_EQ(Later(999_ms), "");
  EXPECT_EQ(Ask(kVersion), kVersionReply);
  Later(1_ms);
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 22 A3 55");
  EXPECT_EQ(Ask(kSensorMode), "AA AA 05 0A AA 82 05 90 50 00 08 FF E8 55");
  EXPECT_EQ(device_.state()[Var::ae_mode], 3U);
  Later(1_s);
  EXPECT_EQ(Ask(kSensorMode), "");
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 22 A3 55");  // the times of a fault start when it is added
  Later(500_ms);
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 40 85 55");
  Later(500_ms);
  EXPECT_EQ(Ask(kVersion), "AA AA 01 06 AA 90 01 22 A3 55");
  EXPECT_EQ(Ask(kSensorMode), "AA AA 05 0A AA 82 05 90 50 00 08 FF E8 55");
  EXPECT_FALSE(device_.NextDue());
}

TEST_F(TimeLine, KeepsItsOrderWhenTimeJumps) {
  Later(10_s);
  EXPECT_TRUE(device_.CableConnected());
  EXPECT_TRUE(device_.Faults().empty());
  EXPECT_EQ(device_.state()[Var::ae_mode], 0U) << "the cut of the supply has reset it";
}

TEST(TimeLines, StartWithTheFirstTime) {
  DeviceStory story(sim::ParseScenario(kTimeLine, "line.toml"));
  EXPECT_FALSE(story.device_.NextDue());
  story.now_ = 50_s;
  story.Take();
  EXPECT_EQ(story.device_.NextDue(), 51_s);
}

}  // namespace
