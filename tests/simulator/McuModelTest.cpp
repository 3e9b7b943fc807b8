// The MCU: each command's data, its checks and its answer.
#include "simulator/McuModel.h"

#include "tests/simulator/Support.h"

namespace {

class Mcu : public testing::Test {
 protected:
  std::string Say(int id, const std::string& data) {
    return Hex(mcu_.Handle(static_cast<std::uint8_t>(id), B(data), now_));
  }
  sim::State state_;
  sim::McuModel mcu_{state_};
  sim::Time now_ = 1_s;
};

struct Command {
  int id;
  const char* good;
  const char* low;  // just out of range, or "" where every value will do
  const char* high;
  const char* wrong_length;
};

class McuCommand : public Mcu, public testing::WithParamInterface<Command> {};

TEST_P(McuCommand, ChecksLengthAndRange) {
  const Command& command = GetParam();
  EXPECT_EQ(Say(command.id, command.good), "10");
  if (*command.low != '\0') {
    EXPECT_EQ(Say(command.id, command.low), "40");
  }
  if (*command.high != '\0') {
    EXPECT_EQ(Say(command.id, command.high), "40");
  }
  EXPECT_EQ(Say(command.id, command.wrong_length), "40");
}

INSTANTIATE_TEST_SUITE_P(Sets, McuCommand,
                         testing::Values(Command{0x01, "00 00 00 00", "", "", "00 00 00"},             //
                                         Command{0x03, "00 1E", "00 1D", "01 AF", "1E"},               // 30 to 430
                                         Command{0x03, "01 AE", "00 00", "FF FF", "00 01 AE"},         //
                                         Command{0x04, "01", "00", "5B", ""},                          // 1 to 90
                                         Command{0x05, "01", "", "02", "00 00"},                       //
                                         Command{0x06, "00", "", "02", ""},                            //
                                         Command{0x07, "01", "", "FF", ""},                            //
                                         Command{0x08, "5A", "00", "5B", ""},                          //
                                         Command{0x09, "01", "", "02", ""},                            //
                                         Command{0x0A, "00 00 FA 00", "", "00 00 FA 01", "00 FA 00"},  // up to 64000
                                         Command{0x0B, "00 00 00 00", "", "01 00 00 00", "00 00 00"},  //
                                         Command{0x0C, "01", "", "02", ""},                            //
                                         Command{0x0D, "01", "", "", "01 02"},                         //
                                         Command{0x0D, "", "", "", "01 02"},                           //
                                         Command{0x12, "00 00 FA 00 01 2C 00 10", "", "00 00 FA 01 01 2C 00 10",
                                                 "00 00 FA 00 01 2C 00"},
                                         Command{0x13, "01", "", "02", ""},  //
                                         Command{0x15, "00", "", "02", ""}),
                         [](const testing::TestParamInfo<Command>& one) {
                           return "id" + std::to_string(one.param.id) + "_" + std::to_string(one.index);
                         });

TEST_F(Mcu, AnswersWhatItIsAsked) {
  EXPECT_EQ(Say(0x0E, ""), "00");
  EXPECT_EQ(Say(0x0F, "00"), "00");
  EXPECT_EQ(Say(0x10, "01"), "21");
  EXPECT_EQ(Say(0x11, "00"), "00 00 7D 00 01 C2 00 00");
  EXPECT_EQ(Say(0x14, "00"), "00");
  EXPECT_EQ(Say(0x11, "02"), "40");
  EXPECT_EQ(Say(0x11, ""), "40");
  EXPECT_EQ(Say(0x14, "02"), "40");
}

TEST_F(Mcu, KnowsNothingElse) {
  for (const int id : {0x00, 0x16, 0x7F, 0x80, 0xFF}) {
    EXPECT_EQ(Say(id, "00"), "30") << id;
  }
}

TEST_F(Mcu, ReportsThePositionThatWasSet) {
  Say(0x12, "00 00 FA 00 01 2C 00 10");
  EXPECT_EQ(Say(0x11, "00"), "00 00 FA 00 01 2C 00 10");
}

TEST_F(Mcu, ReportsByItselfBetween1And0) {
  EXPECT_FALSE(mcu_.Reports(0x11));
  EXPECT_EQ(Say(0x11, "01"), "00 00 7D 00 01 C2 00 00");
  EXPECT_TRUE(mcu_.Reports(0x11));
  EXPECT_FALSE(mcu_.Reports(0x14));
  EXPECT_EQ(Hex(mcu_.Report(0x11, now_)), "00 00 7D 00 01 C2 00 00");
  Say(0x11, "00");
  EXPECT_FALSE(mcu_.Reports(0x11));
}

TEST_F(Mcu, TurnsWithPelcoDUntilItIsToldToStop) {
  Say(0x12, "00 00 00 00 00 64 00 00");
  Say(0x03, "00 5A");                         // 90 degrees a second at full speed
  EXPECT_EQ(Say(0x01, "00 0A 3F 0A"), "10");  // right and up
  EXPECT_EQ(Say(0x14, "00"), "01");
  now_ += 2_s;  // half a turn; up by 200
  EXPECT_EQ(Say(0x11, "00"), "00 00 7D 00 01 2C 00 00");
  Say(0x01, "00 00 00 00");
  EXPECT_EQ(Say(0x14, "00"), "00");
  now_ += 2_s;
  EXPECT_EQ(Say(0x11, "00"), "00 00 7D 00 01 2C 00 00");
}

TEST_F(Mcu, StandsStillAtAPositionThatWasSet) {
  Say(0x01, "00 02 3F 00");
  EXPECT_EQ(Say(0x14, "00"), "01");
  Say(0x12, "00 00 00 00 00 64 00 00");
  EXPECT_EQ(Say(0x14, "00"), "00");
  now_ += 1_s;
  EXPECT_EQ(Say(0x11, "00"), "00 00 00 00 00 64 00 00");
}

TEST_F(Mcu, StopsAtTheEndsOfTheTilt) {
  Say(0x12, "00 00 00 00 00 64 00 00");
  Say(0x01, "00 10 00 3F");  // down
  EXPECT_EQ(Say(0x14, "00"), "01");
  now_ += 1_s;
  EXPECT_EQ(Say(0x11, "00"), "00 00 00 00 00 00 00 00");
  EXPECT_EQ(Say(0x14, "00"), "00");
  Say(0x01, "00 08 00 3F");  // up
  now_ += 10_s;
  EXPECT_EQ(Say(0x11, "00"), "00 00 00 00 03 98 00 00");
  EXPECT_EQ(Say(0x14, "00"), "00");
}

TEST_F(Mcu, LoadsItsDefaults) {
  Say(0x03, "00 1E");
  Say(0x13, "01");
  EXPECT_EQ(state_[sim::Var::max_speed], 30U);
  EXPECT_EQ(Say(0x0D, ""), "10");
  EXPECT_EQ(state_[sim::Var::max_speed], 300U);
  EXPECT_EQ(state_[sim::Var::alarm_out], 0U);
  Say(0x12, "00 00 00 00 00 64 00 00");
  Say(0x01, "00 02 3F 00");
  Say(0x0D, "");
  now_ += 1_s;
  EXPECT_EQ(Say(0x11, "00"), "00 00 00 00 00 64 00 00") << "and stands still";
}

}  // namespace
