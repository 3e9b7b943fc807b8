// The higher-level setters.
#include "tests/unit/SnrQM2150Operations.h"

namespace {

class SnrQM2150Setters : public SnrQM2150Operations {
 protected:
  // The camera accepts a setting.
  void Accepts(const Bytes& data) {
    Acknowledge();
    Data(data);
  }
  // The camera rejects a setting: both read-backs give these data.
  void Rejects(const Bytes& data) {
    Acknowledge();
    Data(data);
    Data(data);
  }
};

TEST_F(SnrQM2150Setters, ABrokenReplyEndsASetter) {
  Broken();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(4), -1);
  EXPECT_EQ(os.Log().back(), Err("QM2150_GetExpComp failed!\n"));
  NextCase();
  Data({3});
  Broken();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(4), -1);
  EXPECT_EQ(os.Log().back(), Err("QM2150_SetExpComp failed!\n"));
  for (int (*const switchDayNight)() : {SnrQM2150_SetDnNightMode, SnrQM2150_SetDnDayMode}) {
    NextCase();
    Broken();
    EXPECT_EQ(switchDayNight(), -1);
    EXPECT_EQ(os.Log().back(), Err("QM2150_SetAutoIcr failed!\n"));
    EXPECT_EQ(os.Requests().size(), 1U);
  }
}

// --- Setters of one setting each ---

struct SimpleSetter {
  const char* name;
  int (*call)();
  const char* command;
  const char* inquiry;
  uint8_t value;
  LogLine line;
};

void PrintTo(const SimpleSetter& setter, std::ostream* out) { *out << setter.name; }

const SimpleSetter kSimpleSetters[] = {
    {"FocusAuto", [] { return SnrQM2150_SetFocusMode(1); }, "81 01 04 38 02 FF", "81 09 04 38 FF", 2,
     Err("QM2150_SetFocusMode failed!\n")},
    {"FocusManual", [] { return SnrQM2150_SetFocusMode(0); }, "81 01 04 38 03 FF", "81 09 04 38 FF", 3,
     Err("QM2150_SetFocusMode failed!\n")},
    {"MirrorOn", [] { return SnrQM2150_SetMirror(1); }, "81 01 04 61 02 FF", "81 09 04 61 FF", 2,
     Err("QM2150_SetLrReverse failed!\n")},
    {"MirrorOff", [] { return SnrQM2150_SetMirror(0); }, "81 01 04 61 03 FF", "81 09 04 61 FF", 3,
     Err("QM2150_SetLrReverse failed!\n")},
    {"DayNightAutomatic", [] { return SnrQM2150_SetDnIsMode(); }, "81 01 04 51 02 FF", "81 09 04 51 FF", 2,
     Err("QM2150_SetAutoIcr failed!\n")},
};

class SnrQM2150SettersSimple : public SnrQM2150Setters, public testing::WithParamInterface<SimpleSetter> {
 protected:
  const SimpleSetter& setter = GetParam();
};

TEST_P(SnrQM2150SettersSimple, SetTheirSetting) {
  Accepts({setter.value});
  EXPECT_EQ(setter.call(), 0);
  EXPECT_EQ(OwnStory(), (Story{setter.command, "50 ms", setter.inquiry}));
}

TEST_P(SnrQM2150SettersSimple, LogAFailureAndPassItOn) {
  Refuse();
  EXPECT_EQ(setter.call(), -1);
  EXPECT_EQ(OwnStory(), (Story{setter.command, setter.line}));
  NextCase();

  Rejects({0x0F});
  EXPECT_EQ(setter.call(), -60);
  EXPECT_EQ(OwnStory(), (Story{setter.command, "50 ms", setter.inquiry, "50 ms", setter.inquiry, setter.line}));
  NextCase();

  Silence();
  EXPECT_EQ(setter.call(), -56);
  EXPECT_EQ(os.Log().back(), setter.line);
}

TEST_P(SnrQM2150SettersSimple, AreSilentOnAStop) {
  Stop();
  EXPECT_EQ(setter.call(), -15);
  EXPECT_EQ(OwnStory(), (Story{setter.command + std::string(" (stop)")}));
}

INSTANTIATE_TEST_SUITE_P(All, SnrQM2150SettersSimple, testing::ValuesIn(kSimpleSetters),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(SnrQM2150Setters, RefuseOtherArguments) {
  for (const int other : {2, 3, -1, 256, 257, 65536, INT_MIN, INT_MAX}) {
    EXPECT_EQ(SnrQM2150_SetFocusMode(other), -60) << other;
    EXPECT_EQ(SnrQM2150_SetMirror(other), -60) << other;
    EXPECT_EQ(SnrQM2150_SetMirrorFlip(other, 0), -60) << other;
    EXPECT_EQ(SnrQM2150_SetMirrorFlip(other, 1), -60) << other;
    EXPECT_EQ(SnrQM2150_SetMirrorFlip(0, other), -60) << other;
    EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, other), -60) << other;
    EXPECT_EQ(SnrQM2150_SetMirrorFlip(other, other), -60) << other;
  }
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

// --- Mirror and flip ---

TEST_F(SnrQM2150Setters, MirrorAndFlipSetReverseAndFlip) {
  const struct {
    int mirror, flip;
    uint8_t reverseValue, flipValue;
    Story story;
  } cases[] = {
      {0, 0, 3, 3, {"81 01 04 61 03 FF", "50 ms", "81 09 04 61 FF", "81 01 04 66 03 FF", "50 ms", "81 09 04 66 FF"}},
      {1, 0, 2, 3, {"81 01 04 61 02 FF", "50 ms", "81 09 04 61 FF", "81 01 04 66 03 FF", "50 ms", "81 09 04 66 FF"}},
      {0, 1, 2, 2, {"81 01 04 61 02 FF", "50 ms", "81 09 04 61 FF", "81 01 04 66 02 FF", "50 ms", "81 09 04 66 FF"}},
      {1, 1, 3, 2, {"81 01 04 61 03 FF", "50 ms", "81 09 04 61 FF", "81 01 04 66 02 FF", "50 ms", "81 09 04 66 FF"}},
  };
  for (const auto& item : cases) {
    Accepts({item.reverseValue});
    Accepts({item.flipValue});
    EXPECT_EQ(SnrQM2150_SetMirrorFlip(item.mirror, item.flip), 0);
    EXPECT_EQ(OwnStory(), item.story);
    NextCase();
  }
}

TEST_F(SnrQM2150Setters, AfterAFailedReverseTheFlipIsNotSet) {
  Refuse();
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -1);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 61 03 FF", Err("QM2150_SetLrReverse failed!\n")}));
  NextCase();

  Stop();
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 61 03 FF (stop)"}));
}

TEST_F(SnrQM2150Setters, AFailedFlipIsLoggedAndPassedOn) {
  Accepts({3});
  Rejects({3});
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -60);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 61 03 FF", "50 ms", "81 09 04 61 FF",  //
                               "81 01 04 66 02 FF", "50 ms", "81 09 04 66 FF", "50 ms", "81 09 04 66 FF",
                               Err("QM2150_SetPictureFlip failed!\n")}));
  NextCase();

  Accepts({3});
  Stop();
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 61 03 FF", "50 ms", "81 09 04 61 FF",  //
                               "81 01 04 66 02 FF (stop)"}));
}

// --- Day and night ---

struct DayNight {
  int (*call)();
  const char* icrCommand;
  uint8_t icr;
};
const DayNight kNight{[] { return SnrQM2150_SetDnNightMode(); }, "81 01 04 01 02 FF", 2};
const DayNight kDay{[] { return SnrQM2150_SetDnDayMode(); }, "81 01 04 01 03 FF", 3};
const Story kAutoIcrOff{"81 01 04 51 03 FF", "50 ms", "81 09 04 51 FF"};

TEST_F(SnrQM2150Setters, DayAndNightSwitchAutoIcrOffAndMoveTheFilter) {
  for (const DayNight& mode : {kNight, kDay}) {
    Accepts({3});
    Accepts({mode.icr});
    EXPECT_EQ(mode.call(), 0);
    EXPECT_EQ(OwnStory(), (kAutoIcrOff + Story{mode.icrCommand, "50 ms", "81 09 04 01 FF"}));
    NextCase();
  }
}

TEST_F(SnrQM2150Setters, TheFilterIsNotMovedIfAutoIcrFails) {
  for (const DayNight& mode : {kNight, kDay}) {
    Rejects({2});
    EXPECT_EQ(mode.call(), -60);
    EXPECT_EQ(OwnStory(), (kAutoIcrOff + Story{"50 ms", "81 09 04 51 FF", Err("QM2150_SetAutoIcr failed!\n")}));
    NextCase();
  }
}

TEST_F(SnrQM2150Setters, AFailedFilterIsLoggedAndPassedOn) {
  for (const DayNight& mode : {kNight, kDay}) {
    Accepts({3});
    Refuse();
    EXPECT_EQ(mode.call(), -1);
    EXPECT_EQ(OwnStory(), (kAutoIcrOff + Story{mode.icrCommand, Err("QM2150_SetIcr failed!\n")}));
    NextCase();
  }
}

TEST_F(SnrQM2150Setters, AStopAtAutoIcrIsLoggedByDayAndNotByNight) {
  Stop();
  EXPECT_EQ(SnrQM2150_SetDnNightMode(), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 51 03 FF (stop)"}));
  NextCase();

  Stop();
  EXPECT_EQ(SnrQM2150_SetDnDayMode(), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 51 03 FF (stop)", Err("QM2150_SetAutoIcr failed!\n")}));
}

TEST_F(SnrQM2150Setters, AStopAtTheFilterIsSilentByDayAndByNight) {
  for (const DayNight& mode : {kNight, kDay}) {
    Accepts({3});
    Stop();
    EXPECT_EQ(mode.call(), -15);
    EXPECT_EQ(OwnStory(), (kAutoIcrOff + Story{mode.icrCommand + std::string(" (stop)")}));
    NextCase();
  }
}

// --- Backlight compensation ---

struct BacklightStep {
  int index;
  uint8_t step;
  const char* command;
};
const BacklightStep kBacklightSteps[] = {
    {0, 0, "81 01 04 4E 00 00 00 00 FF"},         {1, 1, "81 01 04 4E 00 00 00 01 FF"},
    {2, 3, "81 01 04 4E 00 00 00 03 FF"},         {3, 5, "81 01 04 4E 00 00 00 05 FF"},
    {4, 7, "81 01 04 4E 00 00 00 07 FF"},         {5, 9, "81 01 04 4E 00 00 00 09 FF"},
    {6, 11, "81 01 04 4E 00 00 00 0B FF"},        {7, 13, "81 01 04 4E 00 00 00 0D FF"},
    {8, 14, "81 01 04 4E 00 00 00 0E FF"},        {9, 7, "81 01 04 4E 00 00 00 07 FF"},
    {-1, 7, "81 01 04 4E 00 00 00 07 FF"},        {256, 7, "81 01 04 4E 00 00 00 07 FF"},
    {65536 + 8, 7, "81 01 04 4E 00 00 00 07 FF"}, {INT_MIN, 7, "81 01 04 4E 00 00 00 07 FF"},
    {INT_MAX, 7, "81 01 04 4E 00 00 00 07 FF"}};

TEST_F(SnrQM2150Setters, EachBacklightIndexHasItsStep) {
  for (const BacklightStep& item : kBacklightSteps) {
    Data({2});
    Accepts({0, 0, 0, item.step});
    EXPECT_EQ(SnrQM2150_SetBlcIndex(item.index), 0) << item.index;
    EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF", item.command, "50 ms", "81 09 04 4E FF"})) << item.index;
    NextCase();
  }
}

TEST_F(SnrQM2150Setters, BacklightSwitchesExposureCompensationOnUnlessItIsOn) {
  for (const uint8_t state : Bytes{0, 1, 3, 4, 0x12, 0xFF}) {
    Data({state});
    Accepts({2});
    Accepts({0, 0, 0, 3});
    EXPECT_EQ(SnrQM2150_SetBlcIndex(2), 0);
    EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF",                                //
                                 "81 01 04 3E 02 FF", "50 ms", "81 09 04 3E FF",  //
                                 "81 01 04 4E 00 00 00 03 FF", "50 ms", "81 09 04 4E FF"}));
    NextCase();
  }
}

TEST_F(SnrQM2150Setters, BacklightEndsIfTheSwitchCannotBeRead) {
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -59);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF", Err("QM2150_GetExpComp failed!\n")}));
  NextCase();

  Stop();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF (stop)"}));
}

TEST_F(SnrQM2150Setters, BacklightEndsIfTheSwitchCannotBeSet) {
  Data({3});
  Rejects({3});
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -60);
  EXPECT_EQ(OwnStory(),
            (Story{"81 09 04 3E FF",  //
                   "81 01 04 3E 02 FF", "50 ms", "81 09 04 3E FF", "50 ms", "81 09 04 3E FF",
                   Err("QM2150_SetExpComp failed!\n")}));
  NextCase();

  Data({3});
  Stop();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF", "81 01 04 3E 02 FF (stop)"}));
}

TEST_F(SnrQM2150Setters, BacklightPassesTheResultOfTheStepOnWithoutALine) {
  Data({2});
  Refuse();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(8), -1);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF", "81 01 04 4E 00 00 00 0E FF"}));
  NextCase();

  Data({2});
  Rejects({0, 0, 0, 7});
  EXPECT_EQ(SnrQM2150_SetBlcIndex(8), -60);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF",  //
                               "81 01 04 4E 00 00 00 0E FF", "50 ms", "81 09 04 4E FF", "50 ms", "81 09 04 4E FF"}));
  NextCase();

  Data({2});
  Stop();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(8), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 3E FF", "81 01 04 4E 00 00 00 0E FF (stop)"}));
}

// --- Saturation ---

struct Saturation {
  int index;
  uint8_t gain;
  const char* output;
  const char* command;
};
const Saturation kSaturations[] = {
    {INT_MIN, 0, "iSaturationIndex = 0, iSaturation = 0, bColorGain = 0\n", "81 01 04 49 00 00 00 00 FF"},
    {-5, 0, "iSaturationIndex = 0, iSaturation = 0, bColorGain = 0\n", "81 01 04 49 00 00 00 00 FF"},
    {-1, 0, "iSaturationIndex = 0, iSaturation = 0, bColorGain = 0\n", "81 01 04 49 00 00 00 00 FF"},
    {0, 0, "iSaturationIndex = 0, iSaturation = 0, bColorGain = 0\n", "81 01 04 49 00 00 00 00 FF"},
    {1, 0, "iSaturationIndex = 1, iSaturation = 0, bColorGain = 0\n", "81 01 04 49 00 00 00 00 FF"},
    {123, 0, "iSaturationIndex = 123, iSaturation = 0, bColorGain = 0\n", "81 01 04 49 00 00 00 00 FF"},
    {124, 0, "iSaturationIndex = 124, iSaturation = 0, bColorGain = 0\n", "81 01 04 49 00 00 00 00 FF"},
    {125, 1, "iSaturationIndex = 125, iSaturation = 1, bColorGain = 1\n", "81 01 04 49 00 00 00 01 FF"},
    {130, 6, "iSaturationIndex = 130, iSaturation = 6, bColorGain = 6\n", "81 01 04 49 00 00 00 06 FF"},
    {131, 7, "iSaturationIndex = 131, iSaturation = 7, bColorGain = 7\n", "81 01 04 49 00 00 00 07 FF"},
    {137, 13, "iSaturationIndex = 137, iSaturation = 13, bColorGain = 13\n", "81 01 04 49 00 00 00 0D FF"},
    {138, 14, "iSaturationIndex = 138, iSaturation = 14, bColorGain = 14\n", "81 01 04 49 00 00 00 0E FF"},
    {139, 14, "iSaturationIndex = 139, iSaturation = 14, bColorGain = 14\n", "81 01 04 49 00 00 00 0E FF"},
    {255, 14, "iSaturationIndex = 255, iSaturation = 14, bColorGain = 14\n", "81 01 04 49 00 00 00 0E FF"},
    {256, 14, "iSaturationIndex = 255, iSaturation = 14, bColorGain = 14\n", "81 01 04 49 00 00 00 0E FF"},
    {300, 14, "iSaturationIndex = 255, iSaturation = 14, bColorGain = 14\n", "81 01 04 49 00 00 00 0E FF"},
    {INT_MAX, 14, "iSaturationIndex = 255, iSaturation = 14, bColorGain = 14\n", "81 01 04 49 00 00 00 0E FF"},
};

TEST_F(SnrQM2150Setters, EachSaturationHasItsColourGain) {
  for (const Saturation& item : kSaturations) {
    Accepts({0, 0, 0, item.gain});
    std::string printedBefore;
    os.On("msgsnd", 1, [&] { printedBefore = os.Output(); });
    EXPECT_EQ(SnrQM2150_SetSaturation(item.index), 0) << item.index;
    EXPECT_EQ(printedBefore, item.output) << item.index;
    EXPECT_EQ(os.Output(), item.output) << item.index;
    EXPECT_EQ(OwnStory(), (Story{item.command, "50 ms", "81 09 04 49 FF"})) << item.index;
    NextCase();
  }
}

TEST_F(SnrQM2150Setters, AFailedColourGainIsLoggedAndPassedOn) {
  Refuse();
  EXPECT_EQ(SnrQM2150_SetSaturation(131), -1);
  EXPECT_EQ(os.Output(), "iSaturationIndex = 131, iSaturation = 7, bColorGain = 7\n");
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 49 00 00 00 07 FF", Err("QM2150_SetColorGain failed!\n")}));
  NextCase();

  Rejects({0, 0, 0, 6});
  EXPECT_EQ(SnrQM2150_SetSaturation(131), -60);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 49 00 00 00 07 FF", "50 ms", "81 09 04 49 FF", "50 ms", "81 09 04 49 FF",
                               Err("QM2150_SetColorGain failed!\n")}));
  NextCase();

  Stop();
  EXPECT_EQ(SnrQM2150_SetSaturation(131), -15);
  EXPECT_EQ(OwnStory(), (Story{"81 01 04 49 00 00 00 07 FF (stop)"}));
}

}  // namespace
