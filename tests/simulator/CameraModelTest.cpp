// The camera: every packet of its table, then what takes time or depends on its state.
#include "simulator/model/CameraModel.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "tests/simulator/Support.h"

namespace {

constexpr sim::Time kWakeUp = 3_s;

class CameraModel : public testing::Test {
 protected:
  // What the camera answers at once, "packet | packet".
  std::string Say(const std::string& packet) { return Hex(camera_.Handle(B(packet), line_, now_)); }
  std::string Later(sim::Time by) {
    now_ += by;
    return Hex(camera_.Advance(now_));
  }
  std::string Block(int number) { return Say("81 09 7E 7E 0" + std::to_string(number) + " FF"); }

  sim::Line line_ = sim::Line::Any;
  sim::State state_;
  sim::CameraModel camera_{state_, {.wake_up = kWakeUp, .travel = true}};
  sim::Time now_ = 1_s;
};

constexpr const char* kDone = "90 41 FF | 90 51 FF";
constexpr const char* kAccepted = "90 41 FF";
constexpr const char* kNotExecutable = "90 61 41 FF";
constexpr const char* kSyntax = "90 60 02 FF";

// A row of the camera's table with an example of its packets, without 81 01, 81 09, 90 50 and FF. An empty text means
// that there is no such packet.
struct Example {
  std::string_view row;
  std::string inquiry;
  std::string start;  // the reply's data before any command
  std::string command{};
  std::string after{};   // the reply's data after the command
  std::string before{};  // a command without which this one is not executable
};

// clang-format off
const Example kExamples[] = {
    // settings of the device's software
    {"CAM_AE", "04 39", "00", "04 39 0D", "0D"},
    {"CAM_Shutter Direct", "04 4A", "00 00 00 06", "04 4A 00 00 00 15", "00 00 00 15", "04 39 03"},
    {"CAM_Iris Direct", "04 4B", "00 00 00 0E", "04 4B 00 00 01 01", "00 00 01 01", "04 39 03"},
    {"CAM_Gain Direct", "04 4C", "00 00 00 01", "04 4C 00 00 00 0F", "00 00 00 0F", "04 39 03"},
    {"CAM_Gain Limit", "04 2C", "0B", "04 2C 0F", "0F"}, {"CAM_ExpComp", "04 3E", "03", "04 3E 02", "02"},
    {"CAM_ExpComp Direct", "04 4E", "00 00 00 07", "04 4E 00 00 00 0E", "00 00 00 0E"},
    {"CAM_HighSensitivity", "04 5E", "03", "04 5E 02", "02"}, {"CAM_WD", "04 3D", "03", "04 3D 02", "02"},
    {"CAM_WD Parameters", "04 2D", "00 01 01 01 00 07 00 00", "04 2D 01 02 03 02 0A 05 00 00",
     "01 02 03 02 0A 05 00 00"},
    {"CAM_WB", "04 35", "00", "04 35 08", "08"},
    {"CAM_RGain Direct", "04 43", "00 00 0C 08", "04 43 00 00 0F 0F", "00 00 0F 0F", "04 35 05"},
    {"CAM_BGain Direct", "04 44", "00 00 0B 04", "04 44 00 00 0A 01", "00 00 0A 01", "04 35 05"},
    {"CAM_ColorGain", "04 49", "00 00 00 04", "04 49 00 00 00 0E", "00 00 00 0E"},
    {"CAM_NR", "04 53", "03", "04 53 05", "05"}, {"CAM_PictureFlip", "04 66", "03", "04 66 02", "02"},
    {"CAM_LR_Reverse", "04 61", "03", "04 61 02", "02"}, {"CAM_ICR", "04 01", "03", "04 01 02", "02"},
    {"CAM_AutoICR", "04 51", "03", "04 51 02", "02"}, {"CAM_AFMode", "04 57", "00", "04 57 02", "02"},
    {"CAM_Focus Mode", "04 38", "02", "04 38 03", "03"},
    {"CAM_Register", "04 24 FE", "00 00", "04 24 FE 0A 05", "0A 05"}, {"CAM_WB One Push", "", "", "04 10 05"},
    // power, version, identity
    {"CAM_Power", "04 00", "02", "04 00 03", "03"}, {"CAM_Version", "00 02", "00 20 07 20 01 03 02"},
    {"CAM_ID", "04 22", "01 02 03 04", "04 22 0A 0B 0C 0D", "0A 0B 0C 0D"},
    // zoom and focus
    {"CAM_Zoom", "", "", "04 07 02"}, {"CAM_Zoom Tele", "", "", "04 07 27"}, {"CAM_Zoom Wide", "", "", "04 07 37"},
    {"CAM_Zoom Direct", "04 47", "00 00 00 00", "04 47 01 05 0E 00", "01 05 0E 00"},
    {"CAM_Zoom+Focus Direct", "", "", "04 47 01 05 0E 00 0F 00 00 00", "", "04 38 03"},
    {"CAM_DZoom", "04 06", "03", "04 06 02", "02"}, {"CAM_DZoom Mode", "04 36", "00", "04 36 01", "01"},
    {"CAM_DZoom Direct", "04 46", "00 00 00 00", "04 46 00 00 0E 0B", "00 00 00 00"},
    {"CAM_Focus", "", "", "04 08 02", "", "04 38 03"}, {"CAM_Focus Far", "", "", "04 08 20", "", "04 38 03"},
    {"CAM_Focus Near", "", "", "04 08 37", "", "04 38 03"},
    {"CAM_Focus Direct", "04 48", "08 00 00 00", "04 48 0F 00 00 00", "0F 00 00 00", "04 38 03"},
    {"CAM_Focus Auto/Manual", "", "", "04 38 10"}, {"CAM_Focus One Push", "", "", "04 18 01", "", "04 38 03"},
    {"CAM_Focus Infinity", "", "", "04 18 02", "", "04 38 03"},
    {"CAM_Focus Near Limit", "04 28", "0D 00 00 00", "04 28 0A 0B 00 00", "0A 0B 00 00"},
    {"CAM_AF Sensitivity", "04 58", "02", "04 58 03", "03"},
    {"CAM_AF Times", "04 27", "00 05 00 05", "04 27 01 02 03 04", "01 02 03 04"},
    // steps
    {"CAM_Shutter", "", "", "04 0A 02", "", "04 39 0A"}, {"CAM_Iris", "", "", "04 0B 02", "", "04 39 0B"},
    {"CAM_Gain", "", "", "04 0C 03", "", "04 39 03"}, {"CAM_Bright", "", "", "04 0D 02", "", "04 39 0D"},
    {"CAM_ExpComp Step", "", "", "04 0E 03"}, {"CAM_RGain", "", "", "04 03 02", "", "04 35 05"},
    {"CAM_BGain", "", "", "04 04 00", "", "04 35 05"}, {"CAM_Aperture", "", "", "04 02 02"},
    {"CAM_Shutter Direct (VISCA line)", "04 4A", "00 00 00 06", "04 4A 00 00 01 05", "00 00 01 05", "04 39 03"},
    // the other settings that the blocks show
    {"CAM_Bright Direct", "04 4D", "00 00 01 01", "04 4D 00 00 01 0F", "00 00 01 0F", "04 39 0D"},
    {"CAM_Aperture Direct", "04 42", "00 00 00 08", "04 42 00 00 00 0F", "00 00 00 0F"},
    {"CAM_SlowShutter", "04 5A", "03", "04 5A 02", "02"}, {"CAM_BackLight", "04 33", "03", "04 33 02", "02"},
    {"CAM_SpotAE", "04 59", "03", "04 59 02", "02"},
    {"CAM_SpotAE Position", "04 29", "00 00 00 00", "04 29 00 00 00 09", "00 00 00 09"},
    {"CAM_AE Response", "04 5D", "01", "04 5D 1F", "1F"}, {"CAM_HighResolution", "04 52", "03", "04 52 02", "02"},
    {"CAM_ChromaSuppress", "04 5F", "01", "04 5F 03", "03"}, {"CAM_Gamma", "04 5B", "00", "04 5B 04", "04"},
    {"CAM_Freeze", "04 62", "03", "04 62 02", "02"}, {"CAM_PictureEffect", "04 63", "00", "04 63 04", "04"},
    {"CAM_Mute", "04 75", "03", "04 75 02", "02"}, {"CAM_Title", "04 74", "03", "04 74 02", "02"},
    {"CAM_Title Clear", "", "", "04 74 00"},
    {"CAM_Display", "04 15", "03", "04 15 02", "02"}, {"CAM_Memory", "04 3F", "00"},
    {"CAM_Memory Reset", "", "", "04 3F 00 02"},
    {"CAM_Memory Set", "", "", "04 3F 01 02"}, {"CAM_Memory Recall", "", "", "04 3F 02 02"},
    {"Block 0 Lens", "7E 7E 00", "00 00 00 00 0D 00 08 00 00 00 00 05 00"},
    {"Block 1 Camera", "7E 7E 01", "0C 08 0B 04 00 08 00 00 06 0E 01 11 07"},
    {"Block 2 Other", "7E 7E 02", "01 00 00 00 00 00 01 02 03 04 00 00 00"},
    {"Block 3 Enlarge 1", "7E 7E 03", "00 00 00 05 00 05 00 00 00 20 01 03 1B"},
    {"Block 4 Enlarge 2", "7E 7E 04", "00 01 05 00 07 00 00 00 00 00 00 00 00"},
};
// clang-format on

class CameraModelExamples : public CameraModel, public testing::WithParamInterface<Example> {
 protected:
  std::string Inquire() { return Say("81 09 " + GetParam().inquiry + " FF"); }
  std::string Command(const std::string& data) { return Say("81 01 " + data + " FF"); }
};

TEST_P(CameraModelExamples, AreReadAndCarriedOut) {
  const Example& example = GetParam();
  line_ = std::ranges::find(sim::CameraTable(), example.row, &sim::Row::name)->line;
  if (!example.inquiry.empty()) {
    EXPECT_EQ(sim::FindInquiry(B(example.inquiry), line_).value().row->name, example.row);
    EXPECT_EQ(Inquire(), "90 50 " + example.start + " FF");
  }
  if (!example.before.empty()) {
    EXPECT_EQ(Command(example.command), kNotExecutable);
    EXPECT_EQ(Command(example.before), kDone);
  }
  if (!example.command.empty()) {
    EXPECT_EQ(sim::FindCommand(B(example.command), line_).value().row->name, example.row);
    EXPECT_TRUE(Command(example.command).starts_with(kAccepted));
    Later(10_s);
  }
  if (!example.after.empty()) {
    EXPECT_EQ(Inquire(), "90 50 " + example.after + " FF");
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, CameraModelExamples, testing::ValuesIn(kExamples), [](const auto& one) {
  std::string name(one.param.row);
  std::erase_if(name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; });
  return name;
});

TEST(CameraModelTable, HasAnExampleOfEveryPacket) {
  for (const sim::Row& row : sim::CameraTable()) {
    const auto* const example =
        std::ranges::find_if(kExamples, [&row](const Example& one) { return one.row == row.name; });
    ASSERT_NE(example, std::end(kExamples)) << "no example of " << row.name;
    EXPECT_EQ(example->command.empty(), row.command.empty()) << row.name;
    EXPECT_EQ(example->inquiry.empty(), row.inquiry.empty()) << row.name;
  }
}

TEST_F(CameraModel, AcceptsTheShutterInNibblesOnAViscaLineOnly) {
  Say("81 01 04 39 03 FF");
  EXPECT_EQ(Say("81 01 04 4A 00 00 01 05 FF"), kSyntax) << "two whole bytes: 0x0105";
  line_ = sim::Line::Visca;
  EXPECT_EQ(Say("81 01 04 4A 00 00 01 05 FF"), kDone);
  EXPECT_EQ(state_[sim::Var::shutter], 0x15U);
  EXPECT_EQ(Say("81 01 04 4A 00 00 01 06 FF"), kSyntax);
  EXPECT_EQ(Say("81 01 04 4A 00 00 00 10 FF"), kDone) << "not two nibbles";
  EXPECT_EQ(Say("81 09 04 4A FF"), "90 50 00 00 01 00 FF");
  line_ = sim::Line::Any;
  EXPECT_EQ(Say("81 09 04 4A FF"), "90 50 00 00 00 10 FF");
}

TEST_F(CameraModel, ReportsTheMemoryThatWasUsedLast) {
  for (const char* const use : {"01 02", "02 03", "00 04"}) {
    EXPECT_EQ(Say("81 01 04 3F " + std::string(use) + " FF"), kDone);
    EXPECT_EQ(Say("81 09 04 3F FF"), "90 50 " + std::string(use).substr(3) + " FF");
  }
}

TEST_F(CameraModel, AcceptsAnyValueThatFitsUnlessItIsStrict) {
  EXPECT_EQ(Say("81 01 04 53 0F FF"), kSyntax);
  EXPECT_EQ(Say("81 01 04 39 01 FF"), kSyntax);
  sim::CameraModel lenient(state_, {.wake_up = kWakeUp, .strict = false});
  const auto say = [&](const char* packet) { return Hex(lenient.Handle(B(packet), line_, now_)); };
  EXPECT_EQ(say("81 01 04 53 0F FF"), kDone);
  EXPECT_EQ(say("81 09 04 53 FF"), "90 50 0F FF");
  EXPECT_EQ(say("81 01 04 39 01 FF"), kDone);
  EXPECT_EQ(say("81 01 04 39 03 FF"), kDone);
  EXPECT_EQ(say("81 01 04 4A 00 00 01 06 FF"), kDone);
  EXPECT_EQ(state_[sim::Var::shutter], 0x106U);
  line_ = sim::Line::Visca;
  EXPECT_EQ(say("81 01 04 4A 00 00 01 06 FF"), kDone);
  EXPECT_EQ(state_[sim::Var::shutter], 0x16U);
  EXPECT_EQ(say("81 01 04 39 10 FF"), kSyntax) << "no value that the blocks can carry";
  EXPECT_EQ(say("81 01 04 00 07 FF"), kSyntax) << "an action";
  EXPECT_EQ(say("81 01 04 0A 07 FF"), kSyntax) << "an action";
}

TEST_F(CameraModel, IgnoresASensorModeThatDoesNotExist) {
  EXPECT_EQ(Say("81 01 04 24 72 01 03 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 24 72 FF"), "90 50 00 06 FF");
}

TEST_F(CameraModel, ShowsInBlock0WhatWasSetOneByOne) {
  Say("81 01 04 36 01 FF");           // separate zoom: bit 5
  Say("81 01 04 57 02 FF");           // zoom trigger: bits 4 and 3
  Say("81 01 04 58 03 FF");           // low sensitivity: bit 2
  Say("81 01 04 06 02 FF");           // digital zoom: bit 1
  Say("81 01 04 38 03 FF");           // manual focus: bit 0
  Say("81 01 04 28 0A 0B 00 00 FF");  // near limit
  EXPECT_EQ(Block(0), "90 50 00 00 00 00 0A 0B 08 00 00 00 00 32 00 FF");
}

TEST_F(CameraModel, ShowsInBlock1WhatWasSetOneByOne) {
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

TEST_F(CameraModel, ShowsInBlock2WhatWasSetOneByOne) {
  for (const char* on : {"51", "01", "62", "61", "75", "74", "15"}) {
    EXPECT_EQ(Say("81 01 04 " + std::string(on) + " 02 FF"), kDone) << on;
  }
  Say("81 01 04 63 04 FF");
  Say("81 01 04 22 0A 0B 0C 0D FF");
  EXPECT_EQ(Block(2), "90 50 05 1C 1C 04 00 00 0A 0B 0C 0D 04 00 00 FF");
}

TEST_F(CameraModel, ShowsInBlock3WhatWasSetOneByOne) {
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

TEST_F(CameraModel, NumbersTheWideDynamicRangeModesDifferentlyInBlock4) {
  const std::pair<const char*, const char*> modes[] = {
      {"03", "00"}, {"02", "01"}, {"00", "02"}, {"01", "03"}, {"04", "04"}};
  Say("81 01 04 2D 03 02 03 01 02 00 00 00 FF");
  for (const auto& [setting, shown] : modes) {
    Say("81 01 04 3D " + std::string(setting) + " FF");
    EXPECT_EQ(Block(4), "90 50 " + std::string(shown) + " 0E 0D 02 00 00 00 00 00 00 00 00 00 FF");
  }
}

TEST_F(CameraModel, SetsShutterAndIrisInTheirPriorityModesOnly) {
  EXPECT_EQ(Say("81 01 04 39 0B FF"), kDone);  // iris priority
  EXPECT_EQ(Say("81 01 04 4B 00 00 00 0A FF"), kDone);
  EXPECT_EQ(Say("81 01 04 4A 00 00 00 0A FF"), kNotExecutable);
  EXPECT_EQ(Say("81 01 04 39 0A FF"), kDone);  // shutter priority
  EXPECT_EQ(Say("81 01 04 4A 00 00 00 0A FF"), kDone);
  EXPECT_EQ(Say("81 01 04 4B 00 00 00 0A FF"), kNotExecutable);
}

TEST_F(CameraModel, RejectsWhatItDoesNotKnow) {
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

TEST_F(CameraModel, RejectsPacketsOfAWrongLength) {
  EXPECT_EQ(Say("81 FF"), "90 60 01 FF");
  EXPECT_EQ(Say("81 01 04 00 00 00 00 00 00 00 00 00 00 00 00 00 FF"), "90 60 01 FF");
}

TEST_F(CameraModel, IsSilentWhenNotAddressed) {
  EXPECT_EQ(Say("82 09 04 39 FF"), "");
  EXPECT_EQ(Say("01 09 04 39 FF"), "");
  EXPECT_EQ(Say(""), "");
}

TEST_F(CameraModel, AnswersTheInterfaceCommands) {
  EXPECT_EQ(Say("88 01 00 01 FF"), "88 01 00 01 FF");
  EXPECT_EQ(Say("81 01 00 01 FF"), "90 50 FF");
  EXPECT_EQ(Say("88 30 01 FF"), "88 30 02 FF");
  EXPECT_EQ(Say("88 30 03 FF"), "88 30 04 FF");
  EXPECT_EQ(Say("81 09 04 39 FF"), "");
  EXPECT_EQ(Say("83 09 04 39 FF"), "B0 50 00 FF");
}

TEST_F(CameraModel, AnswersOnlyPowerVersionAndInterfaceInStandby) {
  EXPECT_EQ(Say("81 01 04 00 03 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 00 FF"), "90 50 03 FF");
  EXPECT_EQ(Say("81 09 00 02 FF"), "90 50 00 20 07 20 01 03 02 FF");
  EXPECT_EQ(Say("81 01 00 01 FF"), "90 50 FF");
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 60 41 FF");
  EXPECT_EQ(Say("81 01 04 39 03 FF"), kNotExecutable);
  EXPECT_EQ(Say("81 01 04 00 02 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 50 00 FF");
}

TEST_F(CameraModel, WakesUpSomeTimeAfterItsSupply) {
  camera_.SetSupply(false, now_);
  EXPECT_EQ(Say("81 09 04 39 FF"), "");
  camera_.SetSupply(true, now_);
  now_ += kWakeUp - 1_ms;
  EXPECT_EQ(Say("81 09 04 39 FF"), "");
  EXPECT_EQ(Later(1_ms), "90 38 FF");
  EXPECT_EQ(Later(1_ms), "");
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 50 00 FF");
}

TEST_F(CameraModel, ForgetsSettingsButNotRegistersWithItsSupply) {
  Say("81 01 04 39 03 FF");
  Say("81 01 04 24 72 00 08 FF");
  EXPECT_EQ(Block(2).substr(0, 44), "90 50 01 00 00 00 00 00 01 02 03 04 00 00 00");  // still 60 Hz
  camera_.SetSupply(false, now_);
  camera_.SetSupply(true, now_);
  now_ += kWakeUp;
  EXPECT_EQ(Say("81 09 04 39 FF"), "90 50 00 FF");
  EXPECT_EQ(Say("81 09 04 24 72 FF"), "90 50 00 08 FF");
  EXPECT_EQ(Block(2).substr(0, 44), "90 50 01 00 00 00 00 00 01 02 03 04 01 00 00");  // 50 Hz now
}

TEST_F(CameraModel, DrivesTheZoomToAPosition) {
  EXPECT_EQ(Say("81 01 04 47 01 05 0E 00 FF"), "90 41 FF");  // 5600 positions: a second
  EXPECT_EQ(Block(0).substr(42, 2), "01") << "the zoom is moving";
  EXPECT_EQ(Later(500_ms), "");
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 00 0A 0F 00 FF");
  EXPECT_EQ(Later(501_ms), "90 51 FF");
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 01 05 0E 00 FF");
  EXPECT_EQ(Block(0).substr(42, 2), "00");
}

TEST_F(CameraModel, ZoomsUntilItIsStopped) {
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

TEST_F(CameraModel, StopsAtTheOpticalEnd) {
  EXPECT_EQ(Say("81 01 04 07 27 FF"), kDone);
  now_ += 3_s;  // 5600 positions a second: at the optical end
  EXPECT_EQ(Block(0), "90 50 04 00 00 00 0D 00 08 00 00 00 00 05 00 FF");
}

TEST_F(CameraModel, ZoomsDigitallyBeyondTheOpticalEnd) {
  Say("81 01 04 47 07 00 00 00 FF");
  now_ += 10_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 04 00 00 00 FF");
  camera_.Advance(now_);
  Say("81 01 04 06 02 FF");
  Say("81 01 04 47 06 00 00 00 FF");
  now_ += 10_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 06 00 00 00 FF");
  EXPECT_EQ(Say("81 09 04 46 FF"), "90 50 00 00 08 00 FF");
  Say("81 01 04 36 01 FF");
  Say("81 01 04 46 00 00 0E 0B FF");
  EXPECT_EQ(Say("81 09 04 46 FF"), "90 50 00 00 0E 0B FF") << "separate from the optical zoom";
}

TEST_F(CameraModel, MovesTheFocusInManualMode) {
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
  Say("81 01 04 08 37 FF");  // near at full speed: away from 0x1000
  EXPECT_EQ(Later(1_s), "");
  EXPECT_EQ(Say("81 09 04 48 FF"), "90 50 08 0D 00 00 FF");
  Say("81 01 04 08 20 FF");  // far at the lowest speed
  EXPECT_EQ(Later(1_s), "");
  EXPECT_EQ(Say("81 09 04 48 FF"), "90 50 07 0D 06 00 FF");
  EXPECT_EQ(Say("81 01 04 38 10 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 38 FF"), "90 50 02 FF");
}

TEST_F(CameraModel, HasTwoSockets) {
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

TEST_F(CameraModel, StopsAtOnceWhenCancelled) {
  Say("81 01 04 47 04 00 00 00 FF");
  now_ += 1_s;
  EXPECT_EQ(Say("81 21 FF"), "90 61 04 FF");
  now_ += 5_s;
  EXPECT_EQ(Say("81 09 04 47 FF"), "90 50 01 05 0E 00 FF");
  EXPECT_EQ(Later(0), "");
}

TEST_F(CameraModel, StepsUpAndDownAndResets) {
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

TEST_F(CameraModel, RecallsStoredSettings) {
  Say("81 01 04 53 01 FF");
  EXPECT_EQ(Say("81 01 04 3F 01 02 FF"), kDone);
  Say("81 01 04 53 04 FF");
  EXPECT_EQ(Say("81 01 04 3F 02 02 FF"), kDone);
  EXPECT_EQ(Say("81 09 04 53 FF"), "90 50 01 FF");
}

}  // namespace
