// The camera, packet by packet.
#include "simulator/CameraModel.h"

#include "tests/simulator/Support.h"

namespace {

class Camera : public testing::Test {
 protected:
  // What the camera answers at once, "packet | packet".
  std::string Say(const std::string& packet) { return Hex(camera_.Handle(B(packet), now_)); }
  std::string Later(sim::Time by) {
    now_ += by;
    return Hex(camera_.Advance(now_));
  }
  std::string Block(int number) { return Say("81 09 7E 7E 0" + std::to_string(number) + " FF"); }

  sim::State state_;
  sim::CameraModel camera_{state_, {.wake_up = 3_s, .travel = true}};
  sim::Time now_ = 1_s;
};

constexpr const char* kDone = "90 41 FF | 90 51 FF";
constexpr const char* kNotExecutable = "90 61 41 FF";
constexpr const char* kSyntax = "90 60 02 FF";

struct Setting {
  const char* name;
  const char* before;  // what must be commanded first, or ""
  const char* inquiry;
  const char* start;
  const char* command;
  const char* after;
};

class CameraSetting : public Camera, public testing::WithParamInterface<Setting> {};

TEST_P(CameraSetting, IsReadAndWrittenInItsOwnLayout) {
  const Setting& setting = GetParam();
  EXPECT_EQ(Say(setting.inquiry), setting.start);
  if (*setting.before != '\0') {
    EXPECT_EQ(Say(setting.command), kNotExecutable);
    EXPECT_EQ(Say(setting.before), kDone);
  }
  EXPECT_EQ(Say(setting.command), kDone);
  EXPECT_EQ(Say(setting.inquiry), setting.after);
}

constexpr const char* kAeManual = "81 01 04 39 03 FF";
constexpr const char* kWbManual = "81 01 04 35 05 FF";

INSTANTIATE_TEST_SUITE_P(
    All, CameraSetting,
    testing::Values(Setting{"NR", "", "81 09 04 53 FF", "90 50 03 FF", "81 01 04 53 05 FF", "90 50 05 FF"},
                    Setting{"WdrParams", "", "81 09 04 2D FF", "90 50 00 01 01 01 00 07 00 00 FF",
                            "81 01 04 2D 01 02 03 02 0A 05 00 00 FF", "90 50 01 02 03 02 0A 05 00 00 FF"},
                    Setting{"WdrMode", "", "81 09 04 3D FF", "90 50 03 FF", "81 01 04 3D 02 FF", "90 50 02 FF"},
                    Setting{"Bgain", kWbManual, "81 09 04 44 FF", "90 50 00 00 0B 04 FF", "81 01 04 44 00 00 0A 01 FF",
                            "90 50 00 00 0A 01 FF"},
                    Setting{"Rgain", kWbManual, "81 09 04 43 FF", "90 50 00 00 0C 08 FF", "81 01 04 43 00 00 0F 0F FF",
                            "90 50 00 00 0F 0F FF"},
                    Setting{"IrisPos", kAeManual, "81 09 04 4B FF", "90 50 00 00 00 0E FF",
                            "81 01 04 4B 00 00 01 01 FF", "90 50 00 00 01 01 FF"},
                    Setting{"GainPos", kAeManual, "81 09 04 4C FF", "90 50 00 00 00 01 FF",
                            "81 01 04 4C 00 00 00 0F FF", "90 50 00 00 00 0F FF"},
                    Setting{"GainLimit", "", "81 09 04 2C FF", "90 50 0B FF", "81 01 04 2C 0F FF", "90 50 0F FF"},
                    Setting{"HighSensitivity", "", "81 09 04 5E FF", "90 50 03 FF", "81 01 04 5E 02 FF", "90 50 02 FF"},
                    Setting{"ExpCompStep", "", "81 09 04 4E FF", "90 50 00 00 00 07 FF", "81 01 04 4E 00 00 00 0E FF",
                            "90 50 00 00 00 0E FF"},
                    Setting{"ExpComp", "", "81 09 04 3E FF", "90 50 03 FF", "81 01 04 3E 02 FF", "90 50 02 FF"},
                    Setting{"PictureFlip", "", "81 09 04 66 FF", "90 50 03 FF", "81 01 04 66 02 FF", "90 50 02 FF"},
                    Setting{"LrReverse", "", "81 09 04 61 FF", "90 50 03 FF", "81 01 04 61 02 FF", "90 50 02 FF"},
                    Setting{"Icr", "", "81 09 04 01 FF", "90 50 03 FF", "81 01 04 01 02 FF", "90 50 02 FF"},
                    Setting{"AutoIcr", "", "81 09 04 51 FF", "90 50 03 FF", "81 01 04 51 02 FF", "90 50 02 FF"},
                    Setting{"ColorGain", "", "81 09 04 49 FF", "90 50 00 00 00 04 FF", "81 01 04 49 00 00 00 0E FF",
                            "90 50 00 00 00 0E FF"},
                    Setting{"Shutter", kAeManual, "81 09 04 4A FF", "90 50 00 00 00 06 FF",
                            "81 01 04 4A 00 00 00 15 FF", "90 50 00 00 00 15 FF"},
                    Setting{"AfMode", "", "81 09 04 57 FF", "90 50 00 FF", "81 01 04 57 02 FF", "90 50 02 FF"},
                    Setting{"FocusMode", "", "81 09 04 38 FF", "90 50 02 FF", "81 01 04 38 03 FF", "90 50 03 FF"},
                    Setting{"AeMode", "", "81 09 04 39 FF", "90 50 00 FF", "81 01 04 39 0D FF", "90 50 0D FF"},
                    Setting{"WbMode", "", "81 09 04 35 FF", "90 50 00 FF", "81 01 04 35 08 FF", "90 50 08 FF"}),
    [](const testing::TestParamInfo<Setting>& one) { return std::string(one.param.name); });

TEST_F(Camera, TellsItsVersion) { EXPECT_EQ(Say("81 09 00 02 FF"), "90 50 00 20 07 20 01 03 02 FF"); }

TEST_F(Camera, KeepsABankOfRegisters) {
  EXPECT_EQ(Say("81 09 04 24 72 FF"), "90 50 00 06 FF");
  EXPECT_EQ(Say("81 01 04 24 72 00 08 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 24 72 FF"), "90 50 00 08 FF");
  EXPECT_EQ(Say("81 01 04 24 FE 0A 05 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 24 FE FF"), "90 50 0A 05 FF");
}

TEST_F(Camera, TakesNoSensorModeThatDoesNotExist) {
  EXPECT_EQ(Say("81 01 04 24 72 01 03 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 24 72 FF"), "90 50 00 06 FF");
}

TEST_F(Camera, PacksTheBlocksOfItsStart) {
  EXPECT_EQ(Block(0), "90 50 00 00 00 00 0D 00 08 00 00 00 00 05 00 FF");
  EXPECT_EQ(Block(1), "90 50 0C 08 0B 04 00 08 00 00 06 0E 01 11 07 FF");
  EXPECT_EQ(Block(2), "90 50 01 00 00 00 00 00 01 02 03 04 00 00 00 FF");
  EXPECT_EQ(Block(3), "90 50 00 00 00 05 00 05 00 00 00 20 01 03 1B FF");
  EXPECT_EQ(Block(4), "90 50 00 01 05 00 07 00 00 00 00 00 00 00 00 FF");
}

TEST_F(Camera, ShowsInBlock0WhatWasSetOneByOne) {
  Say("81 01 04 36 01 FF");           // separate zoom: bit 5
  Say("81 01 04 57 02 FF");           // zoom trigger: bits 4 and 3
  Say("81 01 04 58 03 FF");           // low sensitivity: bit 2
  Say("81 01 04 06 02 FF");           // digital zoom: bit 1
  Say("81 01 04 38 03 FF");           // manual focus: bit 0
  Say("81 01 04 28 0A 0B 00 00 FF");  // near limit
  EXPECT_EQ(Block(0), "90 50 00 00 00 00 0A 0B 08 00 00 00 00 32 00 FF");
}

TEST_F(Camera, ShowsInBlock1WhatWasSetOneByOne) {
  Say("81 01 04 39 03 FF");
  Say("81 01 04 35 05 FF");
  Say("81 01 04 43 00 00 01 02 FF");
  Say("81 01 04 44 00 00 03 04 FF");
  Say("81 01 04 42 00 00 00 0F FF");
  for (const char* on : {"52", "59", "33", "3E", "5A", "3D"}) {
    EXPECT_EQ(Say("81 01 04 " + std::string(on) + " 02 FF"), kDone) << on;
  }
  Say("81 01 04 4A 00 00 00 15 FF");
  Say("81 01 04 4B 00 00 01 01 FF");
  Say("81 01 04 4C 00 00 00 0F FF");
  Say("81 01 04 4E 00 00 00 0E FF");
  EXPECT_EQ(Block(1), "90 50 01 02 03 04 05 0F 03 3F 15 11 0F 11 0E FF");
  Say("81 01 04 3D 03 FF");
  EXPECT_EQ(Block(1), "90 50 01 02 03 04 05 0F 03 2F 15 11 0F 11 0E FF");
}

TEST_F(Camera, ShowsInBlock2WhatWasSetOneByOne) {
  for (const char* on : {"51", "01", "62", "61", "75", "74", "15"}) {
    EXPECT_EQ(Say("81 01 04 " + std::string(on) + " 02 FF"), kDone) << on;
  }
  Say("81 01 04 63 04 FF");
  Say("81 01 04 22 0A 0B 0C 0D FF");
  EXPECT_EQ(Block(2), "90 50 05 1C 1C 04 00 00 0A 0B 0C 0D 04 00 00 FF");
}

TEST_F(Camera, ShowsInBlock3WhatWasSetOneByOne) {
  Say("81 01 04 66 02 FF");
  Say("81 01 04 49 00 00 00 07 FF");
  Say("81 01 04 5D 1F FF");
  Say("81 01 04 5B 04 FF");
  Say("81 01 04 5E 02 FF");
  Say("81 01 04 53 05 FF");
  Say("81 01 04 5F 03 FF");
  Say("81 01 04 2C 0F FF");
  Say("81 01 04 27 01 02 03 04 FF");
  Say("81 01 04 29 00 00 00 09 FF");
  EXPECT_EQ(Block(3), "90 50 00 00 01 02 03 04 00 09 01 39 1F 4D 3F FF");
}

TEST_F(Camera, NumbersTheWideDynamicRangeModesOfBlock4InItsOwnWay) {
  const std::pair<const char*, const char*> modes[] = {
      {"03", "00"}, {"02", "01"}, {"00", "02"}, {"01", "03"}, {"04", "04"}};
  Say("81 01 04 2D 03 02 03 01 02 00 00 00 FF");
  for (const auto& [setting, shown] : modes) {
    Say("81 01 04 3D " + std::string(setting) + " FF");
    EXPECT_EQ(Block(4), "90 50 " + std::string(shown) + " 0E 0D 02 00 00 00 00 00 00 00 00 00 FF");
  }
}

TEST_F(Camera, RefusesWhatExposureOrBalanceOrFocusDoesByItself) {
  for (const char* packet : {"81 01 04 4B 00 00 00 0A FF", "81 01 04 4A 00 00 00 0A FF", "81 01 04 4C 00 00 00 0A FF",
                             "81 01 04 0B 02 FF", "81 01 04 4D 00 00 00 0A FF", "81 01 04 43 00 00 00 01 FF",
                             "81 01 04 48 08 00 00 00 FF", "81 01 04 08 02 FF"}) {
    EXPECT_EQ(Say(packet), kNotExecutable) << packet;
  }
  EXPECT_EQ(Say("81 01 04 39 0B FF"), kDone);  // iris priority
  EXPECT_EQ(Say("81 01 04 4B 00 00 00 0A FF"), kDone);
  EXPECT_EQ(Say("81 01 04 4A 00 00 00 0A FF"), kNotExecutable);
  EXPECT_EQ(Say("81 01 04 39 0A FF"), kDone);  // shutter priority
  EXPECT_EQ(Say("81 01 04 4A 00 00 00 0A FF"), kDone);
  EXPECT_EQ(Say("81 01 04 4B 00 00 00 0A FF"), kNotExecutable);
}

TEST_F(Camera, RefusesWhatItDoesNotKnow) {
  for (const char* packet : {"81 01 04 FF",                 // nothing to do
                             "81 01 04 EE 01 FF",           // no such command
                             "81 01 04 39 01 FF",           // no such mode
                             "81 01 04 39 FF",              // no value
                             "81 01 04 39 03 00 FF",        // one byte too many
                             "81 01 04 53 1F FF",           // a nibble where a zero belongs
                             "81 01 04 4E 00 00 02 00 FF",  // a step beyond the last
                             "81 09 04 EE FF",              // no such inquiry
                             "81 09 7E 7E 05 FF",           // no such block
                             "81 05 04 39 FF",              // neither command nor inquiry
                             "81 09 04 39"}) {              // no end
    EXPECT_EQ(Say(packet), kSyntax) << packet;
  }
}

TEST_F(Camera, RefusesPacketsOfAWrongLength) {
  EXPECT_EQ(Say("81 FF"), "90 60 01 FF");
  EXPECT_EQ(Say("81 01 04 00 00 00 00 00 00 00 00 00 00 00 00 00 FF"), "90 60 01 FF");
}

TEST_F(Camera, IsSilentWhenNotAddressed) {
  EXPECT_EQ(Say("82 09 04 39 FF"), "");
  EXPECT_EQ(Say("01 09 04 39 FF"), "");
  EXPECT_EQ(Say(""), "");
}

TEST_F(Camera, AnswersTheInterfaceCommands) {
  EXPECT_EQ(Say("88 01 00 01 FF"), "88 01 00 01 FF");
  EXPECT_EQ(Say("81 01 00 01 FF"), "90 50 FF");
  EXPECT_EQ(Say("88 30 01 FF"), "88 30 02 FF");
  EXPECT_EQ(Say("88 30 03 FF"), "88 30 04 FF");
  EXPECT_EQ(Say("81 09 04 39 FF"), "");
  EXPECT_EQ(Say("83 09 04 39 FF"), "B0 50 00 FF");
}

TEST_F(Camera, AnswersOnlyPowerVersionAndInterfaceInStandby) {
  EXPECT_EQ(Say("81 01 04 00 03 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 00 FF"), "90 50 03 FF");
  EXPECT_EQ(Say("81 09 00 02 FF"), "90 50 00 20 07 20 01 03 02 FF");
  EXPECT_EQ(Say("81 01 00 01 FF"), "90 50 FF");
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 60 41 FF");
  EXPECT_EQ(Say("81 01 04 39 03 FF"), kNotExecutable);
  EXPECT_EQ(Say("81 01 04 00 02 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 50 00 FF");
}

TEST_F(Camera, WakesUpSomeTimeAfterItsSupply) {
  camera_.SetSupply(false, now_);
  EXPECT_EQ(Say("81 09 04 39 FF"), "");
  camera_.SetSupply(true, now_);
  now_ += 2999_ms;
  EXPECT_EQ(Say("81 09 04 39 FF"), "");
  EXPECT_EQ(Later(1_ms), "90 38 FF");
  EXPECT_EQ(Later(1_ms), "");
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 50 00 FF");
}

TEST_F(Camera, ForgetsSettingsButNotRegistersWithItsSupply) {
  Say("81 01 04 39 03 FF");
  Say("81 01 04 24 72 00 08 FF");
  EXPECT_EQ(Block(2).substr(0, 44), "90 50 01 00 00 00 00 00 01 02 03 04 00 00 00");  // still 60 Hz
  camera_.SetSupply(false, now_);
  camera_.SetSupply(true, now_);
  now_ += 3_s;
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 50 00 FF");
  EXPECT_EQ(Say("81 09 04 24 72 FF"), "90 50 00 08 FF");
  EXPECT_EQ(Block(2).substr(0, 44), "90 50 01 00 00 00 00 00 01 02 03 04 01 00 00");  // 50 Hz now
}

TEST_F(Camera, DrivesTheZoomToAPosition) {
  EXPECT_EQ(Say("81 01 04 47 01 05 0E 00 FF"), "90 41 FF");  // 5600 positions: a second
  EXPECT_EQ(Block(0).substr(42, 2), "01") << "the zoom is moving";
  EXPECT_EQ(Later(500_ms), "");
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 00 0A 0F 00 FF");
  EXPECT_EQ(Later(501_ms), "90 51 FF");
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 01 05 0E 00 FF");
  EXPECT_EQ(Block(0).substr(42, 2), "00");
}

TEST_F(Camera, ZoomsAsLongAsItIsTold) {
  EXPECT_EQ(Say("81 01 04 07 02 FF"), kDone);
  now_ += 1_s;
  EXPECT_EQ(Say("81 01 04 07 00 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 01 00 06 08 FF");  // 4200
  now_ += 1_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 01 00 06 08 FF");
  EXPECT_EQ(Say("81 01 04 07 37 FF"), kDone);
  now_ += 10_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 00 00 00 00 FF");
}

TEST_F(Camera, StopsAtTheOpticalEnd) {
  EXPECT_EQ(Say("81 01 04 07 27 FF"), kDone);
  now_ += 3_s;  // 5600 positions a second: at the optical end
  EXPECT_EQ(Block(0), "90 50 04 00 00 00 0D 00 08 00 00 00 00 05 00 FF");
}

TEST_F(Camera, ZoomsDigitallyBeyondTheOpticalEnd) {
  Say("81 01 04 47 07 00 00 00 FF");
  now_ += 10_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 04 00 00 00 FF");
  camera_.Advance(now_);
  Say("81 01 04 06 02 FF");
  Say("81 01 04 47 06 00 00 00 FF");
  now_ += 10_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 06 00 00 00 FF");
  EXPECT_EQ(Say("81 09 04 46 FF"), "90 50 00 00 08 00 FF");
}

TEST_F(Camera, MovesTheFocusInManualMode) {
  Say("81 01 04 38 03 FF");
  Say("81 01 04 08 02 FF");  // far: towards 0x1000
  now_ += 500_ms;
  Say("81 01 04 08 00 FF");
  EXPECT_EQ(Say("81 09 04 48 FF"), "90 50 05 01 02 00 FF");
  EXPECT_EQ(Say("81 01 04 48 0F 00 00 00 FF"), "90 41 FF");
  EXPECT_EQ(Later(2_s), "90 51 FF");
  EXPECT_EQ(Say("81 09 04 48 FF"), "90 50 0F 00 00 00 FF");
  EXPECT_EQ(Say("81 01 04 18 02 FF"), "90 41 FF");
  EXPECT_EQ(Later(3_s), "90 51 FF");
  EXPECT_EQ(Say("81 09 04 48 FF"), "90 50 01 00 00 00 FF");
  EXPECT_EQ(Say("81 01 04 38 10 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 38 FF"), "90 50 02 FF");
}

TEST_F(Camera, HasTwoSockets) {
  Say("81 01 04 38 03 FF");
  EXPECT_EQ(Say("81 01 04 47 04 00 00 00 FF"), "90 41 FF");
  EXPECT_EQ(Say("81 01 04 48 0F 00 00 00 FF"), "90 42 FF");
  EXPECT_EQ(Say("81 01 04 39 03 FF"), "90 60 03 FF");
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 50 00 FF") << "an inquiry needs none";
  EXPECT_EQ(Say("81 22 FF"), "90 62 04 FF");
  EXPECT_EQ(Say("81 22 FF"), "90 62 05 FF");
  EXPECT_EQ(Say("81 01 04 39 03 FF"), "90 42 FF | 90 52 FF");
  EXPECT_EQ(Later(10_s), "90 51 FF");
}

TEST_F(Camera, StopsWhereACancelCatchesIt) {
  Say("81 01 04 47 04 00 00 00 FF");
  now_ += 1_s;
  EXPECT_EQ(Say("81 21 FF"), "90 61 04 FF");
  now_ += 5_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 01 05 0E 00 FF");
  EXPECT_EQ(Later(0), "");
}

TEST_F(Camera, StepsUpAndDownAndBack) {
  Say("81 01 04 39 03 FF");
  Say("81 01 04 0B 02 FF");
  EXPECT_EQ(Say("81 09 04 4B FF"), "90 50 00 00 00 0F FF");
  Say("81 01 04 0B 03 FF");
  Say("81 01 04 0B 03 FF");
  EXPECT_EQ(Say("81 09 04 4B FF"), "90 50 00 00 00 0D FF");
  Say("81 01 04 0B 00 FF");
  EXPECT_EQ(Say("81 09 04 4B FF"), "90 50 00 00 00 0E FF");
  for (int i = 0; i < 20; ++i) {
    Say("81 01 04 0C 03 FF");
  }
  EXPECT_EQ(Say("81 09 04 4C FF"), "90 50 00 00 00 00 FF");
}

TEST_F(Camera, RemembersSettings) {
  Say("81 01 04 53 01 FF");
  EXPECT_EQ(Say("81 01 04 3F 01 02 FF"), kDone);
  Say("81 01 04 53 04 FF");
  EXPECT_EQ(Say("81 01 04 3F 02 02 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 53 FF"), "90 50 01 FF");
}

TEST_F(Camera, TriggersAOnePushWhiteBalance) { EXPECT_EQ(Say("81 01 04 10 05 FF"), kDone); }

// Whatever bytes come, the camera answers with well-formed packets or not at all.
TEST_F(Camera, SurvivesAnyBytes) {
  std::uint32_t random = 1;
  const auto next = [&random] { return static_cast<std::uint8_t>((random = random * 1664525 + 1013904223) >> 24); };
  for (int i = 0; i < 200000; ++i) {
    Packet packet(next() % 20);
    for (std::uint8_t& byte : packet) {
      byte = next();
    }
    if (packet.size() > 3) {
      packet[0] = next() < 8 ? packet[0] : 0x81;
      packet[1] = (next() & 1) != 0 ? 0x01 : 0x09;
      packet[2] = next() < 128 ? 0x04 : packet[2];
      packet.back() = 0xFF;
    }
    now_ += next() * 1000;
    for (const Packet& answer : camera_.Handle(packet, now_)) {
      ASSERT_GE(answer.size(), 3U);
      ASSERT_LE(answer.size(), 16U);
      ASSERT_EQ(answer.back(), 0xFF);
    }
    camera_.Advance(now_);
  }
}

}  // namespace
