// The camera's start-up.
#include "tests/unit/SnrQM2150Operations.h"

namespace {

const Story kGetMcuVersion{"MCU 10 01"};
const Story kGetVersion{"81 09 00 02 FF"};
const Story kGetVersionOk{"81 09 00 02 FF", Err("[init] QM2150_GetVersion OK.\n")};
const Story kGetVersionFailed{"81 09 00 02 FF", Err("[init] QM2150_GetVersion fail!\n")};
const Story kLaterReads{"81 09 04 39 FF", "81 09 04 4A FF", "81 09 04 35 FF", "81 09 04 57 FF"};
const Story kReport{Info("MCU Ver           \t=\t0x23\n"),   Info("[QM2150] Model    \t=\t0x0506\n"),
                    Info("[QM2150] ROM Ver  \t=\t0x0123\n"), Info("[QM2150] Snr Mode \t=\t0x08\n"),
                    Info("[QM2150] AE Mode  \t=\t0x0d\n"),   Info("[QM2150] Shutter  \t=\t0x0115\n"),
                    Info("[QM2150] WB Mode  \t=\t0x05\n"),   Info("[QM2150] AF Mode  \t=\t0x01\n")};

class SnrQM2150StartUp : public SnrQM2150Operations {
 protected:
  SnrQM2150StartUp() { gtParams = {0x11, 0x2222, 0x3333, 0x44, 0x55, 0x66, 0x77, 0x8888}; }

  void McuVersion() { os.Reply({0x23}); }
  void Version() { Data({0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02}); }
  void LaterReads() {
    Data({0x0D});
    Data({0x00, 0x00, 0x01, 0x15});
    Data({0x05});
    Data({0x01});
  }
  const Story modeIsSet = kRead + Story{Info("[init] 50 Hz SnrMode = 0x08\n")};
};

TEST_F(SnrQM2150StartUp, ReadsAndReportsEverything) {
  Mode(0x08);
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  EXPECT_EQ(OwnStory(), (Story{
                            "81 09 04 24 72 FF",
                            Info("[init] 50 Hz SnrMode = 0x08\n"),
                            "MCU 10 01",
                            "81 09 00 02 FF",
                            Err("[init] QM2150_GetVersion OK.\n"),
                            "81 09 04 39 FF",
                            "81 09 04 4A FF",
                            "81 09 04 35 FF",
                            "81 09 04 57 FF",
                            Info("MCU Ver           \t=\t0x23\n"),
                            Info("[QM2150] Model    \t=\t0x0506\n"),
                            Info("[QM2150] ROM Ver  \t=\t0x0123\n"),
                            Info("[QM2150] Snr Mode \t=\t0x08\n"),
                            Info("[QM2150] AE Mode  \t=\t0x0d\n"),
                            Info("[QM2150] Shutter  \t=\t0x0115\n"),
                            Info("[QM2150] WB Mode  \t=\t0x05\n"),
                            Info("[QM2150] AF Mode  \t=\t0x01\n"),
                        }));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0x01, 0x0115));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(SnrQM2150StartUp, ChangesTheSensorModeFirst) {
  PowerCycle(0x01, 0x06);
  Silence();
  Mode(0x06);
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(60), 0);
  Story report = kReport;
  report[3] = Info("[QM2150] Snr Mode \t=\t0x06\n");
  EXPECT_EQ(OwnStory(), (kPowerCycle60 + Story{"1 s"} + kSilentRead + kWakeUpFailed + Story{"1 s"} + kRead +
                         Settled(60, "0x06", kChangeMs + 1000 + kTimeOutMs) + kGetMcuVersion + kGetVersionOk +
                         kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x06, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(SnrQM2150StartUp, AnotherFrequencyIsLoggedAndIgnored) {
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(55), 0);
  Story report = kReport;
  report[3] = Info("[QM2150] Snr Mode \t=\t0x00\n");
  EXPECT_EQ(OwnStory(), (Story{Err("[init] SnrQM2150_SetSnrMode failed!\n")} + kGetMcuVersion + kGetVersionOk +
                         kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x00, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(SnrQM2150StartUp, AFailedSensorModeChangeIsLoggedAndIgnored) {
  Broken();
  Broken();
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  Story report = kReport;
  report[3] = Info("[QM2150] Snr Mode \t=\t0x00\n");
  EXPECT_EQ(
      OwnStory(),
      (kRead + kRead + Story{Err("[init] QM2150_GetSnrMode failed!\n"), Err("[init] SnrQM2150_SetSnrMode failed!\n")} +
       kGetMcuVersion + kGetVersionOk + kLaterReads + report));
}

// The mode that the camera kept is still reported.
TEST_F(SnrQM2150StartUp, AModeThatIsNeverAcceptedIsLoggedAndIgnored) {
  Story story = kPowerCycle50;
  PowerCycle(0x0C, 0x08);
  for (int i = 1; i <= 10; ++i) {
    Mode(0x0C);
    story = story + Story{"1 s"} + kRead;
  }
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  Story report = kReport;
  report[3] = Info("[QM2150] Snr Mode \t=\t0x0c\n");
  EXPECT_EQ(OwnStory(), (story + Story{Err("[init] SnrQM2150_SetSnrMode failed!\n")} + kGetMcuVersion + kGetVersionOk +
                         kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x0C, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(SnrQM2150StartUp, AFailedMcuVersionIsLoggedAndIgnored) {
  Mode(0x08);
  Silence();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  Story report = kReport;
  report[0] = Info("MCU Ver           \t=\t0x00\n");
  EXPECT_EQ(OwnStory(), (modeIsSet + Story{"MCU 10 01 (silence)", Err("[init] MCU_GetVersion failed!\n")} +
                         kGetVersionOk + kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x00, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(SnrQM2150StartUp, TheVersionIsTriedFiveTimes) {
  for (int failures = 1; failures <= 4; ++failures) {
    Story story = modeIsSet + kGetMcuVersion;
    Mode(0x08);
    McuVersion();
    for (int i = 1; i <= failures; ++i) {
      Broken();
      story = story + kGetVersionFailed;
    }
    Version();
    LaterReads();
    EXPECT_EQ(SnrQM2150_init(50), 0) << failures;
    EXPECT_EQ(OwnStory(), (story + kGetVersionOk + kLaterReads + kReport)) << failures;
    EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0x01, 0x0115));
    NextCase();
  }
}

TEST_F(SnrQM2150StartUp, FiveFailedVersionsEndItWithTheLastResult) {
  Mode(0x08);
  McuVersion();
  Broken();
  Broken();
  Broken();
  Broken();
  Silence();
  EXPECT_EQ(SnrQM2150_init(50), -56);
  EXPECT_EQ(OwnStory(),
            (modeIsSet + kGetMcuVersion + kGetVersionFailed + kGetVersionFailed + kGetVersionFailed +
             kGetVersionFailed + Story{"81 09 00 02 FF (silence)", Err("[init] QM2150_GetVersion fail!\n")}));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0, 0, 0x08, 0, 0, 0, 0));
  NextCase();

  Mode(0x08);
  McuVersion();
  Silence();
  Broken();
  Broken();
  Broken();
  Broken();
  EXPECT_EQ(SnrQM2150_init(50), -1);
}

TEST_F(SnrQM2150StartUp, EachLaterReadThatFailsIsLoggedAndIgnored) {
  const LogLine kLines[] = {Err("[init] QM2150_GetAeMode fail!\n"), Err("[init] QM2150_GetShutter fail!\n"),
                            Err("[init] QM2150_GetWbMode fail!\n"), Err("[init] QM2150_GetAfMode fail!\n")};
  const Story reportWithout[] = {{Info("[QM2150] AE Mode  \t=\t0x00\n"), Info("[QM2150] Shutter  \t=\t0x0115\n"),
                                  Info("[QM2150] WB Mode  \t=\t0x05\n"), Info("[QM2150] AF Mode  \t=\t0x01\n")},
                                 {Info("[QM2150] AE Mode  \t=\t0x0d\n"), Info("[QM2150] Shutter  \t=\t0x0000\n"),
                                  Info("[QM2150] WB Mode  \t=\t0x05\n"), Info("[QM2150] AF Mode  \t=\t0x01\n")},
                                 {Info("[QM2150] AE Mode  \t=\t0x0d\n"), Info("[QM2150] Shutter  \t=\t0x0115\n"),
                                  Info("[QM2150] WB Mode  \t=\t0x00\n"), Info("[QM2150] AF Mode  \t=\t0x01\n")},
                                 {Info("[QM2150] AE Mode  \t=\t0x0d\n"), Info("[QM2150] Shutter  \t=\t0x0115\n"),
                                  Info("[QM2150] WB Mode  \t=\t0x05\n"), Info("[QM2150] AF Mode  \t=\t0x00\n")}};
  const std::vector<decltype(ParamsNow())> paramsWithout = {Params(0x23, 0x0506, 0x0123, 0x08, 0, 0x05, 0x01, 0x0115),
                                                            Params(0x23, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0x01, 0),
                                                            Params(0x23, 0x0506, 0x0123, 0x08, 0x0D, 0, 0x01, 0x0115),
                                                            Params(0x23, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0, 0x0115)};
  const Bytes good[] = {{0x0D}, {0x00, 0x00, 0x01, 0x15}, {0x05}, {0x01}};
  for (size_t failing = 0; failing < 4; ++failing) {
    Story story = modeIsSet + kGetMcuVersion + kGetVersionOk;
    Mode(0x08);
    McuVersion();
    Version();
    for (size_t i = 0; i < 4; ++i) {
      story.push_back(kLaterReads[i]);
      if (i == failing) {
        os.Reply({0x90, 0x60, 0x02, 0xFF});
        story = story + Story{kLines[i]};
      } else {
        Data(good[i]);
      }
    }
    EXPECT_EQ(SnrQM2150_init(50), 0);
    EXPECT_EQ(OwnStory(), (story + Story(kReport.begin(), kReport.begin() + 4) + reportWithout[failing]));
    EXPECT_EQ(ParamsNow(), paramsWithout[failing]);
    NextCase();
  }
}

TEST_F(SnrQM2150StartUp, ContinuesIfEverythingThatMayFailFails) {
  Broken();
  Broken();
  Broken();
  Version();
  Broken();
  Broken();
  Broken();
  Broken();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  EXPECT_EQ(OwnStory(), (kRead + kRead +
                         Story{Err("[init] QM2150_GetSnrMode failed!\n"), Err("[init] SnrQM2150_SetSnrMode failed!\n"),
                               "MCU 10 01", Err("[init] MCU_GetVersion failed!\n")} +
                         kGetVersionOk +                                                             //
                         Story{"81 09 04 39 FF"} + Story{Err("[init] QM2150_GetAeMode fail!\n")} +   //
                         Story{"81 09 04 4A FF"} + Story{Err("[init] QM2150_GetShutter fail!\n")} +  //
                         Story{"81 09 04 35 FF"} + Story{Err("[init] QM2150_GetWbMode fail!\n")} +   //
                         Story{"81 09 04 57 FF"} + Story{Err("[init] QM2150_GetAfMode fail!\n")} +
                         Story{Info("MCU Ver           \t=\t0x00\n"), Info("[QM2150] Model    \t=\t0x0506\n"),
                               Info("[QM2150] ROM Ver  \t=\t0x0123\n"), Info("[QM2150] Snr Mode \t=\t0x00\n"),
                               Info("[QM2150] AE Mode  \t=\t0x00\n"), Info("[QM2150] Shutter  \t=\t0x0000\n"),
                               Info("[QM2150] WB Mode  \t=\t0x00\n"), Info("[QM2150] AF Mode  \t=\t0x00\n")}));
}

TEST_F(SnrQM2150StartUp, TheParametersAreClearedFirst) {
  Stop();
  EXPECT_EQ(SnrQM2150_init(50), -15);
  EXPECT_EQ(ParamsNow(), Params(0, 0, 0, 0, 0, 0, 0, 0));
}

// The start-up with a sensor-mode change has twelve exchanges. Each test is stopped at one of them.
class SnrQM2150StartUpStop : public SnrQM2150StartUp, public testing::WithParamInterface<int> {
 protected:
  // Scripts the answers to the exchanges before the one that is stopped.
  void AnswersBefore(int stopped) {
    const std::function<void()> answers[] = {[this] { Mode(0x06); },    [this] { Acknowledge(); },
                                             [this] { Mode(0x08); },    [this] { Acknowledge(); },
                                             [this] { Acknowledge(); }, [this] { Mode(0x08); },
                                             [this] { McuVersion(); },  [this] { Version(); },
                                             [this] { Data({0x0D}); },  [this] { Data({0, 0, 1, 0x15}); },
                                             [this] { Data({0x05}); }};
    for (int i = 0; i < stopped - 1; ++i) {
      answers[i]();
    }
  }
  static auto ParamsBefore(int stopped) {
    return Params(stopped > 7 ? 0x23 : 0, stopped > 8 ? 0x0506 : 0, stopped > 8 ? 0x0123 : 0,
                  stopped > 6   ? 0x08
                  : stopped > 1 ? 0x06
                                : 0,
                  stopped > 9 ? 0x0D : 0, stopped > 11 ? 0x05 : 0, 0, stopped > 10 ? 0x0115 : 0);
  }
  const Story story = kPowerCycle50 + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs) + kGetMcuVersion +
                      kGetVersionOk + kLaterReads;
  // The positions of the exchanges in `story`.
  static constexpr int kPlaces[] = {0, 1, 3, 5, 8, 11, 15, 16, 18, 19, 20, 21};
  Story Before(int stopped) const { return {story.begin(), story.begin() + kPlaces[stopped - 1]}; }
};

TEST_P(SnrQM2150StartUpStop, WhileWaitingForAReplyEndsItSilently) {
  const int stopped = GetParam();
  AnswersBefore(stopped);
  Stop();
  EXPECT_EQ(SnrQM2150_init(50), -15);
  const Story end{story[static_cast<size_t>(kPlaces[stopped - 1])].text + " (stop)"};
  if (stopped == 2 || stopped == 3) {  // logged and ignored; the next exchange ends it
    EXPECT_EQ(OwnStory(), (Before(stopped) + end + Story{Err("[init] QM2150_SetSnrMode failed!\n"), "1 s"}));
  } else {
    EXPECT_EQ(OwnStory(), (Before(stopped) + end));
  }
  EXPECT_EQ(ParamsNow(), ParamsBefore(stopped));
}

TEST_P(SnrQM2150StartUpStop, BeforeARequestEndsItSilently) {
  const int stopped = GetParam();
  AnswersBefore(stopped);
  if (stopped == 1) {
    SetSigID(1);
  } else {
    os.StopAt("msgrcv", 2 * (stopped - 1));  // when the previous request's reply is received
  }
  EXPECT_EQ(SnrQM2150_init(50), -15);
  if (stopped == 2) {
    EXPECT_EQ(OwnStory(), (kRead + Story{Err("[init] QM2150_SetSnrMode failed!\n"), "1 s"}));
  } else if (stopped == 3) {
    EXPECT_EQ(OwnStory(), (kRead + Story{"81 01 04 24 72 00 08 FF", "50 ms"} +
                           Story{Err("[init] QM2150_SetSnrMode failed!\n"), "1 s"}));
  } else {
    EXPECT_EQ(OwnStory(), (Before(stopped)));
  }
  EXPECT_EQ(ParamsNow(), ParamsBefore(stopped));
}

INSTANTIATE_TEST_SUITE_P(AtExchange, SnrQM2150StartUpStop, testing::Range(1, 13));

TEST_F(SnrQM2150StartUp, AStopAtAnyTryOfTheVersionEndsItSilently) {
  for (int attempt = 1; attempt <= 5; ++attempt) {
    Story story = modeIsSet + kGetMcuVersion;
    Mode(0x08);
    McuVersion();
    for (int i = 1; i < attempt; ++i) {
      Broken();
      story = story + kGetVersionFailed;
    }
    Stop();
    EXPECT_EQ(SnrQM2150_init(50), -15) << attempt;
    EXPECT_EQ(OwnStory(), (story + Story{"81 09 00 02 FF (stop)"})) << attempt;
    NextCase();
  }
}

}  // namespace
