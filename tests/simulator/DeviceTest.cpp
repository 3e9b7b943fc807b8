// The device between request and reply: relaying and timing.
#include "simulator/model/Device.h"

#include "tests/simulator/Support.h"

namespace {

class Device : public testing::Test, public DeviceStory {};

TEST_F(Device, AnswersTheMcusCommands) {
  EXPECT_EQ(Ask(kVersion), kVersionReply);
  EXPECT_EQ(Ask(kGetPtz), kGetPtzReply);
  EXPECT_EQ(Ask(kUnsupported), "AA AA 04 06 AA 96 01 30 8F 55");
  EXPECT_EQ(Ask("AA AA 04 06 AA 0C 01 02 47 55"), "AA AA 04 06 AA 8C 01 40 89 55");
}

TEST_F(Device, RelaysTheCamerasReplies) {
  EXPECT_EQ(Ask(kSensorMode), kSensorModeReply);
  EXPECT_EQ(Ask("AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55"),
            "AA AA 01 0F AA 82 0A 90 50 00 20 07 20 01 03 02 FF 9E 55");
  EXPECT_EQ(Ask("AA AA 07 0B AA 02 06 81 09 04 EE 00 FF D3 55"), "AA AA 07 09 AA 82 04 90 60 02 FF DF 55");
}

TEST_F(Device, AcknowledgesCommandsWithAPlainFrameEvenIfTheCameraRejectsThem) {
  EXPECT_EQ(Ask(kAeManual), kAcknowledged);
  EXPECT_EQ(note_, "");
  EXPECT_EQ(Ask("AA AA 09 0B AA 02 06 81 01 04 39 01 FF 8F 55"), kAcknowledged);
  EXPECT_EQ(note_, "camera: syntax error");
  EXPECT_EQ(Ask("AA AA 09 0E AA 02 09 81 01 04 43 00 00 00 01 FF 82 55"), kAcknowledged);
  EXPECT_EQ(note_, "camera: command not executable");
}

TEST_F(Device, SwitchesTheCameraOffAndOn) {
  EXPECT_EQ(Ask(kSupplyOff), "AA AA 01 06 AA 8C 01 10 B9 55");
  EXPECT_EQ(Ask(kSensorMode), "");
  EXPECT_EQ(Ask(kAeManual), "");
  EXPECT_EQ(Ask(kSupplyOn), "AA AA 02 06 AA 8C 01 10 B9 55");
  EXPECT_EQ(Ask(kSensorMode), kSensorModeReply);
}

TEST_F(Device, LeavesANoticeUnanswered) { EXPECT_EQ(Ask("AA AA 00 09 AA 02 04 01 22 33 44 B6 55"), ""); }

TEST_F(Device, DropsWhatIsNotARequest) {
  EXPECT_EQ(Ask("AB AA 01 06 AA 10 01 01 44 55"), "");
  EXPECT_EQ(Ask("AA AA 01 06 AB 10 01 01 44 55"), "");
  EXPECT_EQ(Ask("AA AA 01 06 AA 10 01 01 44 00"), "");
  EXPECT_EQ(Ask("AA AA 01 16 AA 10 11 01 44 55"), "");
  EXPECT_EQ(device_.Request(kType, B(kVersion), now_), "wrong message size, dropped");
  EXPECT_EQ(device_.Request(kType, {}, now_), "wrong message size, dropped");
  EXPECT_EQ(Take(), "");
}

TEST_F(Device, ReportsAWrongChecksumAsTheMcuDoes) {
  EXPECT_EQ(Ask("AA AA 01 06 AA 10 01 01 45 55"), "AA AA 01 06 AA 90 01 20 A5 55");
}

TEST_F(Device, SendsReportsInAutomaticResponseMode) {
  EXPECT_EQ(Ask(kReportPtz), "AA AA 01 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55");
  EXPECT_EQ(Later(999_ms), "");
  EXPECT_EQ(device_.NextDue(), 2_s);
  EXPECT_EQ(Later(1_ms), kReport);
  EXPECT_EQ(Later(1_s), kReport);
  EXPECT_EQ(Ask(kGetPtz), kGetPtzReply);
  EXPECT_EQ(Later(5_s), "");
}

constexpr sim::Time kField60Hz = 16666;

TEST(DeviceTiming, FollowsTheWire) {
  DeviceStory story{sim::Setup{}};
  story.now_ = 1000_ms;
  // Six bytes to the MCU, 1 ms, six bytes back, at 9600 8N1: 6.25 + 1 + 6.25 ms.
  EXPECT_EQ(story.Ask(kVersion), "");
  EXPECT_EQ(story.device_.NextDue(), 1000_ms + 13500);
  EXPECT_EQ(story.Later(13500), kVersionReply);
  // Eleven bytes to the camera: 11458 us; the next field begins at 62 * 16666 us; ten bytes back: 10416 us.
  story.now_ = 1005_ms;
  EXPECT_EQ(story.Ask(kSensorMode), "");
  EXPECT_EQ(story.device_.NextDue(), 62 * kField60Hz + 10416);
}

TEST(DeviceTiming, LetsTheCameraTakeOneCommandPerField) {
  DeviceStory story{sim::Setup{.baud = 4000000}};
  story.now_ = 1_s;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(story.Ask(kSensorMode), "");
  }
  std::vector<sim::Time> dues;
  while (dues.size() < 3) {
    story.now_ = story.device_.NextDue().value_or(story.now_ + 1);
    if (story.Take() == kSensorModeReply) {
      dues.push_back(story.now_);
    }
    ASSERT_LT(story.now_, 2_s);
  }
  EXPECT_EQ(dues[1] - dues[0], kField60Hz);
  EXPECT_EQ(dues[2] - dues[1], kField60Hz);
}

TEST(DeviceTiming, KeepsAFieldOf20MsAt50Hz) {
  sim::Setup setup;
  setup.state.registers[0x72] = 0x08;
  EXPECT_EQ(sim::Device(setup).Field(), 20_ms);
  EXPECT_EQ(sim::Device(sim::Setup{}).Field(), kField60Hz);
}

TEST(DeviceSockets, CountTheWireTimeOfARequestOnce) {
  DeviceStory story{sim::Setup{.sockets = true}};
  story.now_ = 1_s;
  EXPECT_EQ(story.Ask(kAeManual), "");
  // Eleven bytes to the camera: 11458 us; the next field begins at 61 * 16666 us; then 6, 8 and 8 bytes back.
  const sim::Time begin = 61 * kField60Hz;
  for (const sim::Time bytes : {6, 14, 22}) {
    EXPECT_EQ(story.device_.NextDue(), begin + bytes * 10 * 1_s / 9600);
    story.now_ = *story.device_.NextDue();
    EXPECT_NE(story.Take(), "");
  }
}

const std::string kZoomIn = "AA AA 05 0E AA 02 09 81 01 04 47 04 00 00 00 FF 7B 55";

TEST(DeviceSockets, CompleteTheCommandThatWasGiven) {
  DeviceStory story{sim::Setup{.baud = 4000000, .sockets = true}};
  story.Ask(kZoomIn);
  EXPECT_EQ(story.device_.LastExchange(), 1U);
  EXPECT_EQ(story.Later(100_ms), "AA AA 05 06 AA 82 01 10 C3 55 | AA AA 05 08 AA 82 03 90 41 FF 01 55");
  story.device_.Request(78, Body(kVersion), story.now_);  // another client
  story.now_ += 100_ms;
  while (story.device_.Take(story.now_)) {
  }
  story.now_ += 10_s;
  story.device_.Advance(story.now_);
  const auto completed = story.device_.Take(story.now_);
  ASSERT_TRUE(completed);
  EXPECT_EQ(Text(*completed), "AA AA 05 08 AA 82 03 90 51 FF F1 55");
  EXPECT_EQ(completed->exchange, 1U);
  EXPECT_EQ(completed->type, DeviceStory::kType);
  EXPECT_TRUE(story.device_.TakeVisca().empty()) << "the command was not given on the VISCA line";
}

TEST(DeviceSockets, KeepTheCommandsOfAViscaLineOutOfTheQueues) {
  DeviceStory story{sim::Setup{.sockets = true}};
  EXPECT_EQ(Hex(story.device_.Visca(B("81 01 04 47 04 00 00 00 FF"), story.now_).packets), "90 41 FF");
  EXPECT_EQ(story.Later(10_s), "");
  EXPECT_EQ(Hex(story.device_.TakeVisca()), "90 51 FF");
}

TEST(DeviceWakeUp, TakesAsLongAsItIsSet) {
  const auto silent_for = [](sim::Setup setup, sim::Time time) {
    DeviceStory story{std::move(setup)};
    story.Ask(kSupplyOff);
    story.Ask(kSupplyOn);
    story.Later(time - 1_ms);
    const bool awake_before = story.device_.CameraAwake(story.now_);
    story.Later(1_ms);
    return !awake_before && story.device_.CameraAwake(story.now_);
  };
  EXPECT_TRUE(silent_for({.fast = true, .wake_up = 3_s}, 3_s));
  EXPECT_TRUE(silent_for({}, 3_s));
  EXPECT_TRUE(silent_for({.wake_up = 100_ms}, 100_ms));
  DeviceStory fast;
  fast.Ask(kSupplyOff);
  fast.Ask(kSupplyOn);
  EXPECT_TRUE(fast.device_.CameraAwake(fast.now_));
}

TEST(DeviceSockets, ForwardTheCamerasOwnPackets) {
  DeviceStory story{sim::Setup{.fast = true, .sockets = true}};
  EXPECT_EQ(story.Ask(kAeManual),
            kAcknowledged + " | AA AA 09 08 AA 82 03 90 41 FF 01 55 | AA AA 09 08 AA 82 03 90 51 FF F1 55");
  EXPECT_EQ(story.Ask("AA AA 09 0E AA 02 09 81 01 04 43 00 00 00 01 FF 82 55"),
            kAcknowledged + " | AA AA 09 09 AA 82 04 90 61 41 FF 9F 55");
}

// Faults on a VISCA line: those that concern the camera's packets strike there too.
TEST(DeviceViscaLine, HasItsFaults) {
  const std::string inquiry = "81 09 04 39 FF";
  const std::string command = "81 01 04 39 03 FF";
  const struct {
    const char* fault;
    std::string packet;
    const char* reply;
  } kExamples[] = {
      {"no-reply", command, ""},
      {"duplicate", inquiry, "90 50 00 FF | 90 50 00 FF"},
      {"short-reply", inquiry, "90 50 FF"},
      {"long-reply", inquiry, "90 50 00 00 FF"},
      {"visca-syntax", command, "90 60 02 FF"},
      {"visca-error:value=0x7E", inquiry, "90 60 7E FF"},
      {"socket-number:value=2", inquiry, "90 52 00 FF"},
      {"power-loss:ms=500", inquiry, ""},
  };
  for (const auto& example : kExamples) {
    sim::Setup setup{.fast = true};
    setup.faults = {sim::ParseFault(example.fault)};
    setup.faults[0].nth = {2};
    DeviceStory story{setup};
    EXPECT_EQ(Hex(story.device_.Visca(B(inquiry), story.now_).packets), "90 50 00 FF") << example.fault;
    const auto answer = story.device_.Visca(B(example.packet), story.now_);
    EXPECT_EQ(Hex(answer.packets), example.reply) << example.fault;
    EXPECT_EQ(answer.note, "fault " + std::string(setup.faults[0].kind->name));
  }
}

TEST(DeviceViscaLine, HasNoFaultThatChangesNothing) {
  sim::Setup setup{.fast = true};
  setup.faults = {sim::ParseFault("socket-number:value=0")};
  DeviceStory story{setup};
  const auto answer = story.device_.Visca(B("81 09 04 39 FF"), story.now_);
  EXPECT_EQ(Hex(answer.packets), "90 50 00 FF");
  EXPECT_EQ(answer.note, "");
  EXPECT_EQ(story.device_.Faults().at(0).struck, 0U);
}

TEST(DeviceViscaLine, HasLateReplies) {
  sim::Setup setup{.fast = true};
  setup.faults = {sim::ParseFault("late:ms=200")};
  DeviceStory story{setup};
  EXPECT_EQ(story.device_.Visca(B("81 09 04 39 FF"), story.now_).late, 200_ms);
}

TEST(DeviceViscaLine, DoesNotCountForFaultsOfRelayMessages) {
  sim::Setup setup{.fast = true};
  setup.faults = {sim::ParseFault("bad-checksum:nth=1")};
  DeviceStory story{setup};
  EXPECT_EQ(Hex(story.device_.Visca(B("81 09 04 39 FF"), story.now_).packets), "90 50 00 FF");
  EXPECT_EQ(story.Ask(kVersion), "AA AA 01 06 AA 90 01 21 A5 55");
}

}  // namespace
