// The MCU: the data, range and reply of each command, and the motion of the head.
#include "simulator/model/McuModel.h"

#include <set>

#include "tests/simulator/Support.h"

namespace {

class McuModel : public testing::Test {
 protected:
  std::string Say(int id, const std::string& data) {
    return Hex(mcu_.Handle(static_cast<std::uint8_t>(id), B(data), now_));
  }
  sim::State state_;
  sim::McuModel mcu_{state_};
  sim::Time now_ = 1_s;
};

TEST_F(McuModel, AcceptsAnyValueThatFitsUnlessItIsStrict) {
  EXPECT_EQ(Say(0x04, "FF"), "40");
  sim::McuModel lenient(state_, false);
  EXPECT_EQ(Hex(lenient.Handle(0x04, B("FF"), now_)), "10");
  EXPECT_EQ(state_[sim::Var::scan_speed], 0xFFU);
  EXPECT_EQ(Hex(lenient.Handle(0x06, B("02"), now_)), "40") << "the field has one bit";
}

struct Example {
  int id;
  const char* good;
  const char* low;   // just below the range; "" if no value is
  const char* high;  // just above it
  const char* wrong_length;
  const char* reply = "10";
};

// clang-format off
constexpr Example kExamples[] = {
    {0x01, "00 00 00 00", "", "", "00 00 00"}, {0x02, "81 09 00 02 FF", "", "", "", "30"},
    {0x03, "00 1E", "00 1D", "01 AF", "1E"}, {0x03, "01 AE", "00 00", "FF FF", "00 01 AE"},
    {0x04, "01", "00", "5B", "01 01"}, {0x05, "01", "", "02", "00 00"}, {0x06, "00", "", "02", "01 01"},
    {0x07, "01", "", "FF", "01 01"}, {0x08, "5A", "00", "5B", "01 01"}, {0x09, "01", "", "02", "01 01"},
    {0x0A, "00 00 FA 00", "", "00 00 FA 01", "00 FA 00"}, {0x0B, "00 00 00 00", "", "01 00 00 00", "00 00 00"},
    {0x0C, "01", "", "02", "01 01"}, {0x0D, "01", "", "", "01 02"}, {0x0D, "", "", "", "01 02"},
    {0x0E, "", "", "", "00 00", "00"}, {0x0F, "00", "", "", "00 00", "00"}, {0x10, "01", "", "", "00 00", "21"},
    {0x11, "00", "", "02", "00 00", "00 00 7D 00 01 C2 00 00"},
    {0x12, "00 00 FA 00 01 2C 00 10", "", "00 00 FA 01 01 2C 00 10", "00 00 FA 00 01 2C 00"},
    {0x13, "01", "", "02", "01 01"}, {0x14, "00", "", "02", "00 00", "00"}, {0x15, "00", "", "02", "01 01"},
};
// clang-format on

class McuModelExamples : public McuModel, public testing::WithParamInterface<Example> {};

TEST_P(McuModelExamples, CheckLengthAndRange) {
  const Example& example = GetParam();
  EXPECT_EQ(Say(example.id, example.good), example.reply);
  for (const char* wrong : {example.low, example.high, example.wrong_length}) {
    if (*wrong != '\0') {
      EXPECT_EQ(Say(example.id, wrong), "40") << wrong;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, McuModelExamples, testing::ValuesIn(kExamples), [](const auto& one) {
  return std::to_string(one.param.id) + "_" + std::to_string(one.index);
});

TEST(McuModelTable, HasAnExampleOfEveryCommand) {
  std::set<const sim::Row*> shown;
  for (const Example& example : kExamples) {
    shown.insert(sim::FindMcu(static_cast<std::uint8_t>(example.id)));
  }
  for (const sim::Row& row : sim::McuTable()) {
    EXPECT_TRUE(shown.contains(&row)) << "no example of " << row.name;
  }
}

TEST_F(McuModel, RejectsMissingData) {
  for (const int id :
       {0x01, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x11, 0x12, 0x13, 0x14, 0x15}) {
    EXPECT_EQ(Say(id, ""), "40") << id;
  }
}

TEST_F(McuModel, RejectsOtherCommands) {
  for (const int id : {0x00, 0x16, 0x7F, 0x80, 0xFF}) {
    EXPECT_EQ(Say(id, "00"), "30") << id;
  }
}

TEST_F(McuModel, ReportsWhileAutomaticResponseIsOn) {
  EXPECT_FALSE(mcu_.Reports(0x11));
  EXPECT_EQ(Say(0x11, "01"), "00 00 7D 00 01 C2 00 00");
  EXPECT_TRUE(mcu_.Reports(0x11));
  EXPECT_FALSE(mcu_.Reports(0x14));
  EXPECT_EQ(Hex(mcu_.Report(0x11, now_)), "00 00 7D 00 01 C2 00 00");
  Say(0x11, "00");
  EXPECT_FALSE(mcu_.Reports(0x11));
}

TEST_F(McuModel, TurnsWithPelcoDUntilItIsStopped) {
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

TEST_F(McuModel, StopsAtAPositionThatIsSet) {
  Say(0x01, "00 02 3F 00");
  EXPECT_EQ(Say(0x14, "00"), "01");
  Say(0x12, "00 00 00 00 00 64 00 00");
  EXPECT_EQ(Say(0x14, "00"), "00");
  now_ += 1_s;
  EXPECT_EQ(Say(0x11, "00"), "00 00 00 00 00 64 00 00");
}

TEST_F(McuModel, StopsAtTheEndsOfTheTilt) {
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

TEST_F(McuModel, LoadsItsDefaults) {
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
  EXPECT_EQ(Say(0x11, "00"), "00 00 00 00 00 64 00 00") << "and the head stops";
}

}  // namespace
