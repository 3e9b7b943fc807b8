// The camera's start-up, its sensor-mode change with a power cycle, the higher-level setters and the raw packets:
// for every path what is sent, slept and logged, in order, what is returned and what stands in gtParams.
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/Fixtures.h"
#include "tests/unit/CameraStory.h"

namespace {

class SnrQM2150Operations : public Linked {
 protected:
  void TearDown() override { EXPECT_EQ(os.Unused(), 0U) << "answers that no request took"; }

  // --- The answers to the requests to come, one after the other ---
  void Acknowledge() { os.Reply({0x10}); }
  void Refuse() { os.Reply({0x40}); }
  void Mode(uint8_t mode) { Data({static_cast<uint8_t>(mode / 16), static_cast<uint8_t>(mode % 16)}); }
  void Data(Bytes data) {
    data.insert(data.begin(), {0x90, 0x50});
    data.push_back(0xFF);
    os.Reply(data);
  }
  void Broken() { os.Reply({}).Header(0xAA, 0x55); }  // fails at once with -1
  void Silence() { os.NoReply(); }                    // fails after 2050 ms with -56
  void Stop() {                                       // the stop flag is set while it is waited for
    os.NoReply();
    os.StopAt("msgsnd", static_cast<int>(os.Unused()));
  }

  // Starts over within a test.
  void Anew() {
    SetSigID(0);
    os.Forget();
  }
};

// gtParams, in the order of its description.
auto Params(unsigned mcuVersion, unsigned model, unsigned romVersion, unsigned snrMode, unsigned aeMode,
            unsigned wbMode, unsigned afMode, unsigned shutter) {
  return std::tuple(mcuVersion, model, romVersion, snrMode, aeMode, wbMode, afMode, shutter);
}
auto ParamsNow() {
  return Params(gtParams.mcuVersion, gtParams.model, gtParams.romVersion, gtParams.snrMode, gtParams.aeMode,
                gtParams.wbMode, gtParams.afMode, gtParams.shutter);
}

// --- Exchanges that fail with -1 ---

TEST_F(SnrQM2150Operations, ABrokenReplyEndsASetter) {
  Broken();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(4), -1);
  EXPECT_EQ(os.Log().back(), Err("QM2150_GetExpComp failed!\n"));
  Anew();
  Data({3});
  Broken();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(4), -1);
  EXPECT_EQ(os.Log().back(), Err("QM2150_SetExpComp failed!\n"));
  for (int (*const switchDayNight)() : {SnrQM2150_SetDnNightMode, SnrQM2150_SetDnDayMode}) {
    Anew();
    Broken();
    EXPECT_EQ(switchDayNight(), -1);
    EXPECT_EQ(os.Log().back(), Err("QM2150_SetAutoIcr failed!\n"));
    EXPECT_EQ(os.Requests().size(), 1U);
  }
}

// --- Sensor-mode change ---

const Story kRead{"81 09 04 24 72 FF"};
const Story kBrokenRead{"81 09 04 24 72 FF", "error: QM2150_CheckZR4410Packet failed!",
                        "error: QM2150_ProcessVisca failed!"};
const Story kSilentRead{"81 09 04 24 72 FF (silence)", "error: ZR4410_MsgQ_Receive timeout!",
                        "error: QM2150_ProcessVisca failed!"};
const Story kStoppedRead{"81 09 04 24 72 FF (stop)"};
const Story kWrite50{"81 01 04 24 72 00 08 FF", "50 ms", "81 09 04 24 72 FF"};
const Story kWrite60{"81 01 04 24 72 00 06 FF", "50 ms", "81 09 04 24 72 FF"};
const Story kPowerOff{"1 s", "MCU 0C 00", "info: [init] QM2150 Power Off.\n"};
const Story kPowerOn{"1 s", "MCU 0C 01", "info: [init] QM2150 Power On.\n"};
const Story kWakeUpFailed{"error: [init] Waiting for QM2150 wake up: QM2150_GetSnrMode fail!\n"};
const Story kSendStopped{"error: ZR4410_MsgQ_Send failed!"};  // the stop flag was set before the request

Story Settled(int hz, const std::string& mode, const std::string& milliseconds) {
  return {"6 s", "info: [init] " + std::to_string(hz) + " Hz SnrQM2150_SetSnrMode = " + mode + "\n",
          "info: [init] Set SnrMode Time = " + milliseconds + " (ms)\n"};
}

class SensorModeChange : public SnrQM2150Operations {
 protected:
  SensorModeChange() { gtParams = {0x11, 0x2222, 0x3333, 0x44, 0x55, 0x66, 0x77, 0x8888}; }

  // Only the sensor mode is ever touched.
  static void ExpectModeInParams(unsigned mode) {
    EXPECT_EQ(ParamsNow(), Params(0x11, 0x2222, 0x3333, mode, 0x55, 0x66, 0x77, 0x8888));
  }

  // Up to the wake-up wait, for 50 Hz: 2250 ms after the start time.
  void PowerCycle() {
    Mode(0x06);
    Acknowledge();
    Mode(0x08);
    Acknowledge();
    Acknowledge();
  }
  const Story powerCycle = kRead + kWrite50 + kPowerOff + kPowerOn;
};

TEST_F(SensorModeChange, Frequency55AndAnyOtherButTwoIsRefused) {
  for (const int hz : {55, 0, 1, 49, 51, 59, 61, -50, -60, 50 + 256, 60 + 65536, INT_MIN, INT_MAX}) {
    EXPECT_EQ(SnrQM2150_SetSnrMode(hz), -59) << hz;
  }
  EXPECT_THAT(os.Timeline(), IsEmpty());
  ExpectModeInParams(0x44);
}

TEST_F(SensorModeChange, TheModeThatIsSetAlreadyNeedsNoPowerCycle) {
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kRead + Story{"info: [init] 50 Hz SnrMode = 0x08\n"}));
  ExpectModeInParams(0x08);
  Anew();

  Mode(0x06);
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), 0);
  EXPECT_EQ(StoryOf(os), (kRead + Story{"info: [init] 60 Hz SnrMode = 0x06\n"}));
  ExpectModeInParams(0x06);
  EXPECT_EQ(os.Output(), "");
}

TEST_F(SensorModeChange, For50Hz) {
  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 24 72 FF",                                      //
                                "81 01 04 24 72 00 08 FF", "50 ms", "81 09 04 24 72 FF",  //
                                "1 s", "MCU 0C 00", "info: [init] QM2150 Power Off.\n",   //
                                "1 s", "MCU 0C 01", "info: [init] QM2150 Power On.\n",    //
                                "1 s", "81 09 04 24 72 FF",                               //
                                "6 s", "info: [init] 50 Hz SnrQM2150_SetSnrMode = 0x08\n",
                                "info: [init] Set SnrMode Time = 9300 (ms)\n"}));
  ExpectModeInParams(0x08);
  EXPECT_EQ(os.Calls("sleep"), 4);
  EXPECT_EQ(os.ElapsedMs(), 50 + 9300);
  EXPECT_EQ(os.Output(), "");
}

TEST_F(SensorModeChange, For60Hz) {
  Mode(0x12);
  Acknowledge();
  Mode(0x06);
  Acknowledge();
  Acknowledge();
  Mode(0x06);
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), 0);
  EXPECT_EQ(StoryOf(os),
            (kRead + kWrite60 + kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(60, "0x06", "9300")));
  ExpectModeInParams(0x06);
}

TEST_F(SensorModeChange, AFailedFirstReadIsRepeatedAtOnce) {
  Broken();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kBrokenRead + kRead + Story{"info: [init] 50 Hz SnrMode = 0x08\n"}));
  ExpectModeInParams(0x08);
}

TEST_F(SensorModeChange, AFailedFirstReadDoesNotKeepItFromChanging) {
  Silence();
  PowerCycle();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kSilentRead + powerCycle + Story{"1 s"} + kRead + Settled(50, "0x08", "9300")));
  ExpectModeInParams(0x08);
}

TEST_F(SensorModeChange, TwoFailedFirstReadsEndItWithTheSecondsResult) {
  Broken();
  Silence();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -56);
  EXPECT_EQ(StoryOf(os), (kBrokenRead + kSilentRead + Story{"error: [init] QM2150_GetSnrMode failed!\n"}));
  Anew();

  Silence();
  Broken();
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), -1);
  EXPECT_EQ(StoryOf(os), (kSilentRead + kBrokenRead + Story{"error: [init] QM2150_GetSnrMode failed!\n"}));
  ExpectModeInParams(0x44);
}

TEST_F(SensorModeChange, AStopAtTheFirstReadEndsItSilently) {
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), kStoppedRead);
  ExpectModeInParams(0x44);
}

TEST_F(SensorModeChange, AStopBeforeItIsToldByTheSenderAlone) {
  SetSigID(1);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), kSendStopped);
}

TEST_F(SensorModeChange, AStopAtTheSecondReadEndsItSilently) {
  Broken();
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (kBrokenRead + kStoppedRead));
  ExpectModeInParams(0x44);
}

TEST_F(SensorModeChange, ARefusedRegisterWriteIsPassedOver) {
  Mode(0x06);
  Refuse();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kRead +
                          Story{"81 01 04 24 72 00 08 FF", "error: QM2150_SetRegisterValue failed!",
                                "error: [init] QM2150_SetSnrMode failed!\n"} +
                          kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "9200")));
  ExpectModeInParams(0x08);
}

TEST_F(SensorModeChange, AnUnansweredRegisterWriteIsPassedOver) {
  Mode(0x06);
  Silence();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kRead +
                          Story{"81 01 04 24 72 00 08 FF (silence)", "error: ZR4410_MsgQ_Receive timeout!",
                                "error: QM2150_ProcessVisca failed!", "error: QM2150_SetRegisterValue failed!",
                                "error: [init] QM2150_SetSnrMode failed!\n"} +
                          kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "11200")));
}

TEST_F(SensorModeChange, AFailedRegisterReadBackIsPassedOver) {
  Mode(0x06);
  Acknowledge();
  Broken();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kRead + Story{"81 01 04 24 72 00 08 FF", "50 ms"} + kBrokenRead +
                          Story{"error: QM2150_GetSnrMode failed!", "error: [init] QM2150_SetSnrMode failed!\n"} +
                          kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "9300")));
}

// The register write itself reports a mode that did not take as success.
TEST_F(SensorModeChange, ARegisterThatKeepsItsValueIsNoFailureOfTheWrite) {
  Mode(0x06);
  Acknowledge();
  Mode(0x06);
  Mode(0x06);
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os),
            (kRead + kWrite50 +
             Story{"50 ms", "81 09 04 24 72 FF", "error: QM2150_SetSnrMode bRegValue != bReadRegValue failed!"} +
             kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "9400")));
}

TEST_F(SensorModeChange, AStopAtTheRegisterWriteIsToldAndPassedOver) {
  Mode(0x06);
  Stop();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  os.On("sleep", 1, [] { SetSigID(0); });  // so that what follows can be seen
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kRead +
                          Story{"81 01 04 24 72 00 08 FF (stop)", "error: QM2150_SetRegisterValue failed!",
                                "error: [init] QM2150_SetSnrMode failed!\n"} +
                          kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "9200")));
}

TEST_F(SensorModeChange, AStopAtTheRegisterReadBackIsToldAndPassedOver) {
  Mode(0x06);
  Acknowledge();
  Stop();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  os.On("sleep", 1, [] { SetSigID(0); });
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kRead +
                          Story{"81 01 04 24 72 00 08 FF", "50 ms", "81 09 04 24 72 FF (stop)",
                                "error: QM2150_GetSnrMode failed!", "error: [init] QM2150_SetSnrMode failed!\n"} +
                          kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "9300")));
}

TEST_F(SensorModeChange, AStopThatLastsEndsItAtThePowerCommand) {
  Mode(0x06);
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (kRead +
                          Story{"81 01 04 24 72 00 08 FF (stop)", "error: QM2150_SetRegisterValue failed!",
                                "error: [init] QM2150_SetSnrMode failed!\n", "1 s"} +
                          kSendStopped));
  ExpectModeInParams(0x06);
}

TEST_F(SensorModeChange, ARefusedPowerCommandIsPassedOver) {
  const Story failed{"error: [init] MCU_LensPowerControl failed!\n"};
  for (const uint8_t code : Bytes{0x20, 0x30, 0x40, 0x50, 0x00, 0x11}) {
    Mode(0x06);
    Acknowledge();
    Mode(0x08);
    os.Reply({code});
    Acknowledge();
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
    EXPECT_EQ(StoryOf(os),
              (kRead + kWrite50 + Story{"1 s", "MCU 0C 00"} + failed + Story{"info: [init] QM2150 Power Off.\n"} +
               kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "9300")));
    Anew();

    Mode(0x06);
    Acknowledge();
    Mode(0x08);
    Acknowledge();
    os.Reply({code});
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
    EXPECT_EQ(StoryOf(os),
              (kRead + kWrite50 + kPowerOff + Story{"1 s", "MCU 0C 01"} + failed +
               Story{"info: [init] QM2150 Power On.\n"} + Story{"1 s"} + kRead + Settled(50, "0x08", "9300")));
    Anew();
  }
}

TEST_F(SensorModeChange, UnansweredPowerCommandsArePassedOver) {
  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Silence();
  Silence();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (kRead + kWrite50 +
                          Story{"1 s", "MCU 0C 00 (silence)", "error: ZR4410_MsgQ_Receive failed!",
                                "error: MCU_ProcessUart1 failed!", "error: [init] MCU_LensPowerControl failed!\n",
                                "info: [init] QM2150 Power Off.\n",  //
                                "1 s", "MCU 0C 01 (silence)", "error: ZR4410_MsgQ_Receive failed!",
                                "error: MCU_ProcessUart1 failed!", "error: [init] MCU_LensPowerControl failed!\n",
                                "info: [init] QM2150 Power On.\n", "1 s"} +
                          kRead + Settled(50, "0x08", "13300")));
}

TEST_F(SensorModeChange, AStopAtEitherPowerCommandEndsItSilently) {
  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (kRead + kWrite50 + Story{"1 s", "MCU 0C 00 (stop)"}));
  ExpectModeInParams(0x06);
  Anew();

  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Acknowledge();
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (kRead + kWrite50 + kPowerOff + Story{"1 s", "MCU 0C 01 (stop)"}));
}

// The sleeps do not look at the stop flag: it is the next exchange that does.
TEST_F(SensorModeChange, AStopInASleepIsSeenByTheNextExchange) {
  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  os.StopAt("sleep", 1);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (kRead + kWrite50 + Story{"1 s"} + kSendStopped));
  Anew();

  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Acknowledge();
  os.StopAt("sleep", 2);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (kRead + kWrite50 + kPowerOff + Story{"1 s"} + kSendStopped));
  Anew();

  PowerCycle();
  os.StopAt("sleep", 3);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (powerCycle + Story{"1 s"} + kSendStopped));
  Anew();

  PowerCycle();
  Mode(0x08);
  os.StopAt("sleep", 4);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (powerCycle + Story{"1 s"} + kRead + Settled(50, "0x08", "9300")));
}

const char* const kTimes[] = {"9300",  "10350", "11400", "12450", "13500",
                              "14550", "15600", "16650", "17700", "18750"};  // milliseconds, 1050 an attempt

TEST_F(SensorModeChange, WakesAtEachOfTenAttemptsAfterFailures) {
  for (int attempt = 1; attempt <= 10; ++attempt) {
    Story story = powerCycle;
    PowerCycle();
    for (int i = 1; i < attempt; ++i) {
      Broken();
      story = story + Story{"1 s"} + kBrokenRead + kWakeUpFailed;
    }
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0) << attempt;
    EXPECT_EQ(StoryOf(os), (story + Story{"1 s"} + kRead + Settled(50, "0x08", kTimes[attempt - 1]))) << attempt;
    ExpectModeInParams(0x08);
    Anew();
  }
}

TEST_F(SensorModeChange, WakesAtEachOfTenAttemptsAfterOtherModes) {
  for (int attempt = 1; attempt <= 10; ++attempt) {
    Story story = powerCycle;
    PowerCycle();
    for (int i = 1; i < attempt; ++i) {
      Mode(static_cast<uint8_t>(i == 8 ? 0x00 : i));
      story = story + Story{"1 s"} + kRead;
    }
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0) << attempt;
    EXPECT_EQ(StoryOf(os), (story + Story{"1 s"} + kRead + Settled(50, "0x08", kTimes[attempt - 1]))) << attempt;
    Anew();
  }
}

TEST_F(SensorModeChange, WakesAfterSilence) {
  PowerCycle();
  Silence();
  Silence();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(StoryOf(os), (powerCycle + Story{"1 s"} + kSilentRead + kWakeUpFailed + Story{"1 s"} + kSilentRead +
                          kWakeUpFailed + Story{"1 s"} + kRead + Settled(50, "0x08", "15400")));
}

TEST_F(SensorModeChange, TenFailedAttemptsEndItWithTheLastResult) {
  for (const bool silent : {false, true}) {
    Story story = powerCycle;
    PowerCycle();
    for (int i = 1; i <= 10; ++i) {
      if (silent) {
        Silence();
      } else {
        Broken();
      }
      story = story + Story{"1 s"} + (silent ? kSilentRead : kBrokenRead) + kWakeUpFailed;
    }
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), silent ? -56 : -1);
    EXPECT_EQ(StoryOf(os), (story + Story{"error: [init] 50 Hz SnrQM2150_SetSnrMode = 0x00 failed!\n",
                                          silent ? "info: [init] Set SnrMode Time = 32750 (ms)\n"
                                                 : "info: [init] Set SnrMode Time = 12750 (ms)\n"}));
    ExpectModeInParams(0x06);
    Anew();
  }
}

TEST_F(SensorModeChange, TenFailedAttemptsSayTheFrequency) {
  Mode(0x08);
  Acknowledge();
  Mode(0x06);
  Acknowledge();
  Acknowledge();
  for (int i = 1; i <= 10; ++i) {
    Broken();
  }
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), -1);
  EXPECT_THAT(StoryOf(os), testing::Contains("error: [init] 60 Hz SnrQM2150_SetSnrMode = 0x00 failed!\n"));
}

// The machine has run for 50 days: 32 bits of milliseconds are used up. And the clock leaps on in the middle.
TEST_F(SensorModeChange, TheTimeIsCountedIn64Bits) {
  os.SetClock(4'320'000'000'000'000);
  PowerCycle();
  Mode(0x08);
  os.On("sleep", 4, [this] { os.SetClock(7'320'003'350'000'000); });  // 3,000,000 s later than it was
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_THAT(StoryOf(os), testing::Contains("info: [init] Set SnrMode Time = 3000009300 (ms)\n"));
}

TEST_F(SensorModeChange, TenOtherModesEndItWithoutALine) {
  Story story = powerCycle;
  PowerCycle();
  for (int i = 1; i <= 10; ++i) {
    Mode(static_cast<uint8_t>(0x08 + i));
    story = story + Story{"1 s"} + kRead;
  }
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -59);
  EXPECT_EQ(StoryOf(os), story);
  ExpectModeInParams(0x12);
}

TEST_F(SensorModeChange, OtherModesAndAFailureAtLastEndItWithThatFailure) {
  Story story = powerCycle;
  PowerCycle();
  for (int i = 1; i <= 9; ++i) {
    Mode(0x0C);
    story = story + Story{"1 s"} + kRead;
  }
  Broken();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -1);
  EXPECT_EQ(StoryOf(os), (story + Story{"1 s"} + kBrokenRead + kWakeUpFailed +
                          Story{"error: [init] 50 Hz SnrQM2150_SetSnrMode = 0x00 failed!\n",
                                "info: [init] Set SnrMode Time = 12750 (ms)\n"}));
  ExpectModeInParams(0x0C);
}

TEST_F(SensorModeChange, FailuresAndAnotherModeAtLastEndItWithMinus59) {
  Story story = kRead + kWrite60 + kPowerOff + kPowerOn;
  Mode(0x08);
  Acknowledge();
  Mode(0x06);
  Acknowledge();
  Acknowledge();
  for (int i = 1; i <= 9; ++i) {
    Broken();
    story = story + Story{"1 s"} + kBrokenRead + kWakeUpFailed;
  }
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), -59);
  EXPECT_EQ(StoryOf(os), (story + Story{"1 s"} + kRead));
  ExpectModeInParams(0x08);
}

TEST_F(SensorModeChange, AStopAtAnyWakeUpReadEndsItSilently) {
  for (int attempt = 1; attempt <= 10; ++attempt) {
    Story story = powerCycle;
    PowerCycle();
    for (int i = 1; i < attempt; ++i) {
      Broken();
      story = story + Story{"1 s"} + kBrokenRead + kWakeUpFailed;
    }
    Stop();
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15) << attempt;
    EXPECT_EQ(StoryOf(os), (story + Story{"1 s"} + kStoppedRead)) << attempt;
    ExpectModeInParams(0x06);
    Anew();
  }
}

// A register reply is used as it stands, an error reply too: 0x41 is cut to the mode 0x10.
TEST_F(SensorModeChange, AnErrorReplyIsTakenForAMode) {
  PowerCycle();
  os.Reply({0x90, 0x60, 0x41, 0xFF});
  Mode(0x08);
  os.StopAt("msgsnd", 7);  // after the error reply
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(StoryOf(os), (powerCycle + Story{"1 s"} + kRead + Story{"1 s"} + kStoppedRead));
  ExpectModeInParams(0x10);
}

TEST_F(SensorModeChange, ASignalCutsOneSleepShort) {
  PowerCycle();
  Mode(0x08);
  os.SignalAt(50 + 3300 + 2000, SIGUSR1);  // 2 s into the 6 s
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(os.Log().back(), Info("[init] Set SnrMode Time = 5300 (ms)\n"));
  EXPECT_EQ(os.Calls("sleep"), 4);
}

TEST_F(SensorModeChange, AClockThatFailsDoesNotFailIt) {
  PowerCycle();
  Mode(0x08);
  os.Fail("clock_gettime", EINVAL, 1, 100);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(os.Requests().size(), 6U);
  EXPECT_EQ(os.Log().back(), Info("[init] Set SnrMode Time = 0 (ms)\n"));
}

// --- Start-up ---

const Story kGetMcuVersion{"MCU 10 01"};
const Story kGetVersion{"81 09 00 02 FF"};
const Story kGetVersionOk{"81 09 00 02 FF", "error: [init] QM2150_GetVersion OK.\n"};
const Story kGetVersionFailed{"81 09 00 02 FF", "error: QM2150_CheckZR4410Packet failed!",
                              "error: QM2150_ProcessVisca failed!", "error: [init] QM2150_GetVersion fail!\n"};
const Story kLaterReads{"81 09 04 39 FF", "81 09 04 4A FF", "81 09 04 35 FF", "81 09 04 57 FF"};
const Story kReport{"info: MCU Ver           \t=\t0x23\n",   "info: [QM2150] Model    \t=\t0x0506\n",
                    "info: [QM2150] ROM Ver  \t=\t0x0123\n", "info: [QM2150] Snr Mode \t=\t0x08\n",
                    "info: [QM2150] AE Mode  \t=\t0x0d\n",   "info: [QM2150] Shutter  \t=\t0x0115\n",
                    "info: [QM2150] WB Mode  \t=\t0x05\n",   "info: [QM2150] AF Mode  \t=\t0x01\n"};

class StartUp : public SnrQM2150Operations {
 protected:
  StartUp() { gtParams = {0x11, 0x2222, 0x3333, 0x44, 0x55, 0x66, 0x77, 0x8888}; }

  void McuVersion() { os.Reply({0x23}); }
  void Version() { Data({0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02}); }
  void LaterReads() {
    Data({0x0D});
    Data({0x00, 0x00, 0x01, 0x15});
    Data({0x05});
    Data({0x01});
  }
  const Story modeIsSet = kRead + Story{"info: [init] 50 Hz SnrMode = 0x08\n"};
};

TEST_F(StartUp, ReadsAndReportsEverything) {
  Mode(0x08);
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  EXPECT_EQ(StoryOf(os), (Story{
                             "81 09 04 24 72 FF",
                             "info: [init] 50 Hz SnrMode = 0x08\n",
                             "MCU 10 01",
                             "81 09 00 02 FF",
                             "error: [init] QM2150_GetVersion OK.\n",
                             "81 09 04 39 FF",
                             "81 09 04 4A FF",
                             "81 09 04 35 FF",
                             "81 09 04 57 FF",
                             "info: MCU Ver           \t=\t0x23\n",
                             "info: [QM2150] Model    \t=\t0x0506\n",
                             "info: [QM2150] ROM Ver  \t=\t0x0123\n",
                             "info: [QM2150] Snr Mode \t=\t0x08\n",
                             "info: [QM2150] AE Mode  \t=\t0x0d\n",
                             "info: [QM2150] Shutter  \t=\t0x0115\n",
                             "info: [QM2150] WB Mode  \t=\t0x05\n",
                             "info: [QM2150] AF Mode  \t=\t0x01\n",
                         }));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0x01, 0x0115));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(StartUp, ChangesTheSensorModeFirst) {
  Mode(0x01);
  Acknowledge();
  Mode(0x06);
  Acknowledge();
  Acknowledge();
  Silence();
  Mode(0x06);
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(60), 0);
  Story report = kReport;
  report[3] = "info: [QM2150] Snr Mode \t=\t0x06\n";
  EXPECT_EQ(StoryOf(os),
            (kRead + kWrite60 + kPowerOff + kPowerOn + Story{"1 s"} + kSilentRead + kWakeUpFailed + Story{"1 s"} +
             kRead + Settled(60, "0x06", "12350") + kGetMcuVersion + kGetVersionOk + kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x06, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(StartUp, AnotherFrequencyIsToldAndPassedOver) {
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(55), 0);
  Story report = kReport;
  report[3] = "info: [QM2150] Snr Mode \t=\t0x00\n";
  EXPECT_EQ(StoryOf(os), (Story{"error: [init] SnrQM2150_SetSnrMode failed!\n"} + kGetMcuVersion + kGetVersionOk +
                          kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x00, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(StartUp, AFailedSensorModeChangeIsToldAndPassedOver) {
  Broken();
  Broken();
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  Story report = kReport;
  report[3] = "info: [QM2150] Snr Mode \t=\t0x00\n";
  EXPECT_EQ(StoryOf(os),
            (kBrokenRead + kBrokenRead +
             Story{"error: [init] QM2150_GetSnrMode failed!\n", "error: [init] SnrQM2150_SetSnrMode failed!\n"} +
             kGetMcuVersion + kGetVersionOk + kLaterReads + report));
}

// The mode that the camera kept is reported all the same.
TEST_F(StartUp, AModeThatNeverTookIsToldAndPassedOver) {
  Story story = kRead + kWrite50 + kPowerOff + kPowerOn;
  Mode(0x0C);
  Acknowledge();
  Mode(0x08);
  Acknowledge();
  Acknowledge();
  for (int i = 1; i <= 10; ++i) {
    Mode(0x0C);
    story = story + Story{"1 s"} + kRead;
  }
  McuVersion();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  Story report = kReport;
  report[3] = "info: [QM2150] Snr Mode \t=\t0x0c\n";
  EXPECT_EQ(StoryOf(os), (story + Story{"error: [init] SnrQM2150_SetSnrMode failed!\n"} + kGetMcuVersion +
                          kGetVersionOk + kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x0C, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(StartUp, AFailedMcuVersionIsToldAndPassedOver) {
  Mode(0x08);
  Silence();
  Version();
  LaterReads();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  Story report = kReport;
  report[0] = "info: MCU Ver           \t=\t0x00\n";
  EXPECT_EQ(StoryOf(os), (modeIsSet +
                          Story{"MCU 10 01 (silence)", "error: ZR4410_MsgQ_Receive failed!",
                                "error: MCU_ProcessUart1 failed!", "error: [init] MCU_GetVersion failed!\n"} +
                          kGetVersionOk + kLaterReads + report));
  EXPECT_EQ(ParamsNow(), Params(0x00, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0x01, 0x0115));
}

TEST_F(StartUp, TheVersionIsTriedFiveTimes) {
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
    EXPECT_EQ(StoryOf(os), (story + kGetVersionOk + kLaterReads + kReport)) << failures;
    EXPECT_EQ(ParamsNow(), Params(0x23, 0x0506, 0x0123, 0x08, 0x0D, 0x05, 0x01, 0x0115));
    Anew();
  }
}

TEST_F(StartUp, FiveFailedVersionsEndItWithTheLastResult) {
  Mode(0x08);
  McuVersion();
  Broken();
  Broken();
  Broken();
  Broken();
  Silence();
  EXPECT_EQ(SnrQM2150_init(50), -56);
  EXPECT_EQ(StoryOf(os), (modeIsSet + kGetMcuVersion + kGetVersionFailed + kGetVersionFailed + kGetVersionFailed +
                          kGetVersionFailed +
                          Story{"81 09 00 02 FF (silence)", "error: ZR4410_MsgQ_Receive timeout!",
                                "error: QM2150_ProcessVisca failed!", "error: [init] QM2150_GetVersion fail!\n"}));
  EXPECT_EQ(ParamsNow(), Params(0x23, 0, 0, 0x08, 0, 0, 0, 0));
  Anew();

  Mode(0x08);
  McuVersion();
  Silence();
  Broken();
  Broken();
  Broken();
  Broken();
  EXPECT_EQ(SnrQM2150_init(50), -1);
}

TEST_F(StartUp, EachLaterReadThatFailsIsToldAndPassedOver) {
  const char* const kLines[] = {"error: [init] QM2150_GetAeMode fail!\n", "error: [init] QM2150_GetShutter fail!\n",
                                "error: [init] QM2150_GetWbMode fail!\n", "error: [init] QM2150_GetAfMode fail!\n"};
  const Story reportWithout[] = {{"info: [QM2150] AE Mode  \t=\t0x00\n", "info: [QM2150] Shutter  \t=\t0x0115\n",
                                  "info: [QM2150] WB Mode  \t=\t0x05\n", "info: [QM2150] AF Mode  \t=\t0x01\n"},
                                 {"info: [QM2150] AE Mode  \t=\t0x0d\n", "info: [QM2150] Shutter  \t=\t0x0000\n",
                                  "info: [QM2150] WB Mode  \t=\t0x05\n", "info: [QM2150] AF Mode  \t=\t0x01\n"},
                                 {"info: [QM2150] AE Mode  \t=\t0x0d\n", "info: [QM2150] Shutter  \t=\t0x0115\n",
                                  "info: [QM2150] WB Mode  \t=\t0x00\n", "info: [QM2150] AF Mode  \t=\t0x01\n"},
                                 {"info: [QM2150] AE Mode  \t=\t0x0d\n", "info: [QM2150] Shutter  \t=\t0x0115\n",
                                  "info: [QM2150] WB Mode  \t=\t0x05\n", "info: [QM2150] AF Mode  \t=\t0x00\n"}};
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
        story = story + Story{"error: VISCA RESP: Syntax error.\n", "error: QM2150_ChecRespVisca fail!\n", kLines[i]};
      } else {
        Data(good[i]);
      }
    }
    EXPECT_EQ(SnrQM2150_init(50), 0);
    EXPECT_EQ(StoryOf(os), (story + Story(kReport.begin(), kReport.begin() + 4) + reportWithout[failing]));
    EXPECT_EQ(ParamsNow(), paramsWithout[failing]);
    Anew();
  }
}

TEST_F(StartUp, AllThatMayFailFails) {
  Broken();
  Broken();
  Broken();
  Version();
  Broken();
  Broken();
  Broken();
  Broken();
  EXPECT_EQ(SnrQM2150_init(50), 0);
  const Story ending{"error: QM2150_CheckZR4410Packet failed!", "error: QM2150_ProcessVisca failed!",
                     "error: QM2150_Inquiry fail!\n"};
  EXPECT_EQ(StoryOf(os),
            (kBrokenRead + kBrokenRead +
             Story{"error: [init] QM2150_GetSnrMode failed!\n", "error: [init] SnrQM2150_SetSnrMode failed!\n",
                   "MCU 10 01", "error: ZR4410_PACKET_HEADER failed!", "error: MCU_CheckZR4410Packet failed!",
                   "error: MCU_ProcessUart1 failed!", "error: [init] MCU_GetVersion failed!\n"} +
             kGetVersionOk +                                                                        //
             Story{"81 09 04 39 FF"} + ending + Story{"error: [init] QM2150_GetAeMode fail!\n"} +   //
             Story{"81 09 04 4A FF"} + ending + Story{"error: [init] QM2150_GetShutter fail!\n"} +  //
             Story{"81 09 04 35 FF"} + ending + Story{"error: [init] QM2150_GetWbMode fail!\n"} +   //
             Story{"81 09 04 57 FF"} + ending + Story{"error: [init] QM2150_GetAfMode fail!\n"} +
             Story{"info: MCU Ver           \t=\t0x00\n", "info: [QM2150] Model    \t=\t0x0506\n",
                   "info: [QM2150] ROM Ver  \t=\t0x0123\n", "info: [QM2150] Snr Mode \t=\t0x00\n",
                   "info: [QM2150] AE Mode  \t=\t0x00\n", "info: [QM2150] Shutter  \t=\t0x0000\n",
                   "info: [QM2150] WB Mode  \t=\t0x00\n", "info: [QM2150] AF Mode  \t=\t0x00\n"}));
}

TEST_F(StartUp, TheParametersAreClearedFirst) {
  Stop();
  EXPECT_EQ(SnrQM2150_init(50), -15);
  EXPECT_EQ(ParamsNow(), Params(0, 0, 0, 0, 0, 0, 0, 0));
}

// The start-up with a sensor-mode change has twelve exchanges, written out in `story` with a stop at each.
class StartUpStop : public StartUp, public testing::WithParamInterface<int> {
 protected:
  // Answers the exchanges before the one that is stopped.
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
  const Story story = kRead + kWrite50 + kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", "9300") +
                      kGetMcuVersion + kGetVersionOk + kLaterReads;
  // Where the exchanges stand in `story`.
  static constexpr int kPlaces[] = {0, 1, 3, 5, 8, 11, 15, 16, 18, 19, 20, 21};
  Story Before(int stopped) const { return {story.begin(), story.begin() + kPlaces[stopped - 1]}; }
};

TEST_P(StartUpStop, WhileWaitingForAReplyEndsItSilently) {
  const int stopped = GetParam();
  AnswersBefore(stopped);
  Stop();
  EXPECT_EQ(SnrQM2150_init(50), -15);
  const Story end{story[static_cast<size_t>(kPlaces[stopped - 1])] + " (stop)"};
  if (stopped == 2) {  // the register write alone is told and passed over, to the next exchange
    EXPECT_EQ(StoryOf(os),
              (Before(stopped) + end +
               Story{"error: QM2150_SetRegisterValue failed!", "error: [init] QM2150_SetSnrMode failed!\n", "1 s"} +
               kSendStopped));
  } else if (stopped == 3) {  // and so is its reading back
    EXPECT_EQ(
        StoryOf(os),
        (Before(stopped) + end +
         Story{"error: QM2150_GetSnrMode failed!", "error: [init] QM2150_SetSnrMode failed!\n", "1 s"} + kSendStopped));
  } else {
    EXPECT_EQ(StoryOf(os), (Before(stopped) + end));
  }
  EXPECT_EQ(ParamsNow(), ParamsBefore(stopped));
}

TEST_P(StartUpStop, BeforeARequestIsToldByTheSenderAlone) {
  const int stopped = GetParam();
  AnswersBefore(stopped);
  if (stopped == 1) {
    SetSigID(1);
  } else {
    os.StopAt("msgrcv", 2 * (stopped - 1));  // as the reply to the request before it is taken
  }
  EXPECT_EQ(SnrQM2150_init(50), -15);
  if (stopped == 2) {
    EXPECT_EQ(StoryOf(os),
              (kRead + kSendStopped +
               Story{"error: QM2150_SetRegisterValue failed!", "error: [init] QM2150_SetSnrMode failed!\n", "1 s"} +
               kSendStopped));
  } else if (stopped == 3) {
    EXPECT_EQ(
        StoryOf(os),
        (kRead + Story{"81 01 04 24 72 00 08 FF", "50 ms"} + kSendStopped +
         Story{"error: QM2150_GetSnrMode failed!", "error: [init] QM2150_SetSnrMode failed!\n", "1 s"} + kSendStopped));
  } else {
    EXPECT_EQ(StoryOf(os), (Before(stopped) + kSendStopped));
  }
  EXPECT_EQ(ParamsNow(), ParamsBefore(stopped));
}

INSTANTIATE_TEST_SUITE_P(AtExchange, StartUpStop, testing::Range(1, 13));

TEST_F(StartUp, AStopAtALaterTryOfTheVersionEndsItSilently) {
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
    EXPECT_EQ(StoryOf(os), (story + Story{"81 09 00 02 FF (stop)"})) << attempt;
    Anew();
  }
}

// --- Setters of one setting each ---

class CameraSetters : public SnrQM2150Operations {
 protected:
  // A setting that the camera takes.
  void Takes(const Bytes& data) {
    Acknowledge();
    Data(data);
  }
  // A setting that it keeps refusing.
  void Keeps(const Bytes& data) {
    Acknowledge();
    Data(data);
    Data(data);
  }
};

struct SimpleSetter {
  const char* name;
  int (*call)();
  const char* command;
  const char* inquiry;
  uint8_t value;
  const char* accessorLine;  // mismatch of the accessor
  const char* line;
};

void PrintTo(const SimpleSetter& setter, std::ostream* out) { *out << setter.name; }

const SimpleSetter kSimpleSetters[] = {
    {"FocusAuto", [] { return SnrQM2150_SetFocusMode(1); }, "81 01 04 38 02 FF", "81 09 04 38 FF", 2,
     "error: QM2150_SetFocusMode bFocusMode != bReadFocusMode!\n", "error: QM2150_SetFocusMode failed!\n"},
    {"FocusManual", [] { return SnrQM2150_SetFocusMode(0); }, "81 01 04 38 03 FF", "81 09 04 38 FF", 3,
     "error: QM2150_SetFocusMode bFocusMode != bReadFocusMode!\n", "error: QM2150_SetFocusMode failed!\n"},
    {"MirrorOn", [] { return SnrQM2150_SetMirror(1); }, "81 01 04 61 02 FF", "81 09 04 61 FF", 2,
     "error: QM2150_GetMirror bLrReverse != bReadLrReverse.\n", "error: QM2150_SetLrReverse failed!\n"},
    {"MirrorOff", [] { return SnrQM2150_SetMirror(0); }, "81 01 04 61 03 FF", "81 09 04 61 FF", 3,
     "error: QM2150_GetMirror bLrReverse != bReadLrReverse.\n", "error: QM2150_SetLrReverse failed!\n"},
    {"DayNightAutomatic", [] { return SnrQM2150_SetDnIsMode(); }, "81 01 04 51 02 FF", "81 09 04 51 FF", 2,
     "error: QM2150_SetAutoIcr bAutoIcr != bReadAutoIcr.\n", "error: QM2150_SetAutoIcr failed!\n"},
};

class SimpleCameraSetters : public CameraSetters, public testing::WithParamInterface<SimpleSetter> {
 protected:
  const SimpleSetter& setter = GetParam();
};

TEST_P(SimpleCameraSetters, SetTheirSetting) {
  Takes({setter.value});
  EXPECT_EQ(setter.call(), 0);
  EXPECT_EQ(StoryOf(os), (Story{setter.command, "50 ms", setter.inquiry}));
}

TEST_P(SimpleCameraSetters, TellAFailureAndPassItOn) {
  Refuse();
  EXPECT_EQ(setter.call(), -1);
  EXPECT_EQ(StoryOf(os), (Story{setter.command, "error: QM2150_Command fail!\n", setter.line}));
  Anew();

  Keeps({0x0F});
  EXPECT_EQ(setter.call(), -60);
  EXPECT_EQ(StoryOf(os), (Story{setter.command, "50 ms", setter.inquiry, "50 ms", setter.inquiry, setter.accessorLine,
                                setter.line}));
  Anew();

  Silence();
  EXPECT_EQ(setter.call(), -56);
  EXPECT_EQ(os.Log().back(), Err(std::string(setter.line).substr(7)));
}

TEST_P(SimpleCameraSetters, AreSilentOnAStop) {
  Stop();
  EXPECT_EQ(setter.call(), -15);
  EXPECT_EQ(StoryOf(os), (Story{setter.command + std::string(" (stop)"), "error: QM2150_Command fail!\n"}));
}

INSTANTIATE_TEST_SUITE_P(All, SimpleCameraSetters, testing::ValuesIn(kSimpleSetters),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(CameraSetters, RefuseOtherArguments) {
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

TEST_F(CameraSetters, FocusMode2IsRefused) {
  EXPECT_EQ(SnrQM2150_SetFocusMode(2), -60);
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

// --- Mirror and flip ---

TEST_F(CameraSetters, MirrorAndFlipSetReverseAndFlip) {
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
    Takes({item.reverseValue});
    Takes({item.flipValue});
    EXPECT_EQ(SnrQM2150_SetMirrorFlip(item.mirror, item.flip), 0);
    EXPECT_EQ(StoryOf(os), item.story);
    Anew();
  }
}

TEST_F(CameraSetters, MirrorFlip0And1SetsBothTo2And2And0IsRefused) {
  Takes({2});
  Takes({2});
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(0, 1), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 61 02 FF", "50 ms", "81 09 04 61 FF",  //
                                "81 01 04 66 02 FF", "50 ms", "81 09 04 66 FF"}));
  Anew();
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(2, 0), -60);
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

TEST_F(CameraSetters, AFailedReverseKeepsTheFlipFromBeingSet) {
  Refuse();
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -1);
  EXPECT_EQ(StoryOf(os),
            (Story{"81 01 04 61 03 FF", "error: QM2150_Command fail!\n", "error: QM2150_SetLrReverse failed!\n"}));
  Anew();

  Stop();
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 61 03 FF (stop)", "error: QM2150_Command fail!\n"}));
}

TEST_F(CameraSetters, AFailedFlipIsToldAndPassedOn) {
  Takes({3});
  Keeps({3});
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -60);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 61 03 FF", "50 ms", "81 09 04 61 FF",  //
                                "81 01 04 66 02 FF", "50 ms", "81 09 04 66 FF", "50 ms", "81 09 04 66 FF",
                                "error: QM2150_SetPictureFlip bPictureFlip != bReadPictureFlip.\n",
                                "error: QM2150_SetPictureFlip failed!\n"}));
  Anew();

  Takes({3});
  Stop();
  EXPECT_EQ(SnrQM2150_SetMirrorFlip(1, 1), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 61 03 FF", "50 ms", "81 09 04 61 FF",  //
                                "81 01 04 66 02 FF (stop)", "error: QM2150_Command fail!\n"}));
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

TEST_F(CameraSetters, DayAndNightSwitchTheAutomaticOffAndTheFilter) {
  for (const DayNight& mode : {kNight, kDay}) {
    Takes({3});
    Takes({mode.icr});
    EXPECT_EQ(mode.call(), 0);
    EXPECT_EQ(StoryOf(os), (kAutoIcrOff + Story{mode.icrCommand, "50 ms", "81 09 04 01 FF"}));
    Anew();
  }
}

TEST_F(CameraSetters, TheFilterIsLeftAloneIfTheAutomaticFails) {
  for (const DayNight& mode : {kNight, kDay}) {
    Keeps({2});
    EXPECT_EQ(mode.call(), -60);
    EXPECT_EQ(StoryOf(os),
              (kAutoIcrOff + Story{"50 ms", "81 09 04 51 FF", "error: QM2150_SetAutoIcr bAutoIcr != bReadAutoIcr.\n",
                                   "error: QM2150_SetAutoIcr failed!\n"}));
    Anew();
  }
}

TEST_F(CameraSetters, AFailedFilterIsToldAndPassedOn) {
  for (const DayNight& mode : {kNight, kDay}) {
    Takes({3});
    Refuse();
    EXPECT_EQ(mode.call(), -1);
    EXPECT_EQ(StoryOf(os), (kAutoIcrOff +
                            Story{mode.icrCommand, "error: QM2150_Command fail!\n", "error: QM2150_SetIcr failed!\n"}));
    Anew();
  }
}

TEST_F(CameraSetters, AStopAtTheAutomaticIsToldByDayAndNotByNight) {
  Stop();
  EXPECT_EQ(SnrQM2150_SetDnNightMode(), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 51 03 FF (stop)", "error: QM2150_Command fail!\n"}));
  Anew();

  Stop();
  EXPECT_EQ(SnrQM2150_SetDnDayMode(), -15);
  EXPECT_EQ(StoryOf(os),
            (Story{"81 01 04 51 03 FF (stop)", "error: QM2150_Command fail!\n", "error: QM2150_SetAutoIcr failed!\n"}));
}

TEST_F(CameraSetters, AStopAtTheFilterIsSilentByDayAndByNight) {
  for (const DayNight& mode : {kNight, kDay}) {
    Takes({3});
    Stop();
    EXPECT_EQ(mode.call(), -15);
    EXPECT_EQ(StoryOf(os),
              (kAutoIcrOff + Story{mode.icrCommand + std::string(" (stop)"), "error: QM2150_Command fail!\n"}));
    Anew();
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

TEST_F(CameraSetters, BacklightIndexesHaveTheirSteps) {
  for (const BacklightStep& item : kBacklightSteps) {
    Data({2});
    Takes({0, 0, 0, item.step});
    EXPECT_EQ(SnrQM2150_SetBlcIndex(item.index), 0) << item.index;
    EXPECT_EQ(StoryOf(os), (Story{"81 09 04 3E FF", item.command, "50 ms", "81 09 04 4E FF"})) << item.index;
    Anew();
  }
}

TEST_F(CameraSetters, BacklightIndexes4And9BothSetStep7) {
  for (const int index : {4, 9}) {
    Data({2});
    Takes({0, 0, 0, 7});
    EXPECT_EQ(SnrQM2150_SetBlcIndex(index), 0);
    EXPECT_EQ(os.Packets().at(1), (Bytes{0x81, 0x01, 0x04, 0x4E, 0x00, 0x00, 0x00, 0x07, 0xFF}));
    Anew();
  }
}

TEST_F(CameraSetters, BacklightSwitchesExposureCompensationOnUnlessItIs) {
  for (const uint8_t state : Bytes{0, 1, 3, 4, 0x12, 0xFF}) {
    Data({state});
    Takes({2});
    Takes({0, 0, 0, 3});
    EXPECT_EQ(SnrQM2150_SetBlcIndex(2), 0);
    EXPECT_EQ(StoryOf(os), (Story{"81 09 04 3E FF",                                //
                                  "81 01 04 3E 02 FF", "50 ms", "81 09 04 3E FF",  //
                                  "81 01 04 4E 00 00 00 03 FF", "50 ms", "81 09 04 4E FF"}));
    Anew();
  }
}

TEST_F(CameraSetters, BacklightEndsIfTheSwitchCannotBeRead) {
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -59);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 3E FF", "error: VISCA RESP: Syntax error.\n",
                                "error: QM2150_ChecRespVisca fail!\n", "error: QM2150_GetExpComp failed!\n"}));
  Anew();

  Stop();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 3E FF (stop)"}));
}

TEST_F(CameraSetters, BacklightEndsIfTheSwitchCannotBeSet) {
  Data({3});
  Keeps({3});
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -60);
  EXPECT_EQ(StoryOf(os),
            (Story{"81 09 04 3E FF",  //
                   "81 01 04 3E 02 FF", "50 ms", "81 09 04 3E FF", "50 ms", "81 09 04 3E FF",
                   "error: QM2150_SetExpComp bExpComp != bReadExpComp.\n", "error: QM2150_SetExpComp failed!\n"}));
  Anew();

  Data({3});
  Stop();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(0), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 3E FF", "81 01 04 3E 02 FF (stop)", "error: QM2150_Command fail!\n"}));
}

TEST_F(CameraSetters, BacklightPassesTheResultOfTheStepOnWithoutALine) {
  Data({2});
  Refuse();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(8), -1);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 3E FF", "81 01 04 4E 00 00 00 0E FF", "error: QM2150_Command fail!\n"}));
  Anew();

  Data({2});
  Keeps({0, 0, 0, 7});
  EXPECT_EQ(SnrQM2150_SetBlcIndex(8), -60);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 3E FF",  //
                                "81 01 04 4E 00 00 00 0E FF", "50 ms", "81 09 04 4E FF", "50 ms", "81 09 04 4E FF",
                                "error: QM2150_SetExpCompStep bExpCompStep != bReadExpCompStep!\n"}));
  Anew();

  Data({2});
  Stop();
  EXPECT_EQ(SnrQM2150_SetBlcIndex(8), -15);
  EXPECT_EQ(StoryOf(os),
            (Story{"81 09 04 3E FF", "81 01 04 4E 00 00 00 0E FF (stop)", "error: QM2150_Command fail!\n"}));
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

TEST_F(CameraSetters, SaturationsHaveTheirColourGain) {
  for (const Saturation& item : kSaturations) {
    Takes({0, 0, 0, item.gain});
    std::string printedBefore;
    os.On("msgsnd", 1, [&] { printedBefore = os.Output(); });
    EXPECT_EQ(SnrQM2150_SetSaturation(item.index), 0) << item.index;
    EXPECT_EQ(printedBefore, item.output) << item.index;
    EXPECT_EQ(os.Output(), item.output) << item.index;
    EXPECT_EQ(StoryOf(os), (Story{item.command, "50 ms", "81 09 04 49 FF"})) << item.index;
    Anew();
  }
}

TEST_F(CameraSetters, SaturationIsLimitedBelow0AndAbove255) {
  Takes({0, 0, 0, 0});
  Takes({0, 0, 0, 14});
  Takes({0, 0, 0, 6});
  EXPECT_EQ(SnrQM2150_SetSaturation(-5), 0);
  EXPECT_EQ(SnrQM2150_SetSaturation(300), 0);
  EXPECT_EQ(SnrQM2150_SetSaturation(130), 0);
  EXPECT_EQ(os.Output(),
            "iSaturationIndex = 0, iSaturation = 0, bColorGain = 0\n"
            "iSaturationIndex = 255, iSaturation = 14, bColorGain = 14\n"
            "iSaturationIndex = 130, iSaturation = 6, bColorGain = 6\n");
}

TEST_F(CameraSetters, AFailedColourGainIsToldAndPassedOn) {
  Refuse();
  EXPECT_EQ(SnrQM2150_SetSaturation(131), -1);
  EXPECT_EQ(os.Output(), "iSaturationIndex = 131, iSaturation = 7, bColorGain = 7\n");
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 49 00 00 00 07 FF", "error: QM2150_Command fail!\n",
                                "error: QM2150_SetColorGain failed!\n"}));
  Anew();

  Keeps({0, 0, 0, 6});
  EXPECT_EQ(SnrQM2150_SetSaturation(131), -60);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 49 00 00 00 07 FF", "50 ms", "81 09 04 49 FF", "50 ms", "81 09 04 49 FF",
                                "error: QM2150_SetShutter bColorGain != bReadColorGain.\n",
                                "error: QM2150_SetColorGain failed!\n"}));
  Anew();

  Stop();
  EXPECT_EQ(SnrQM2150_SetSaturation(131), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 49 00 00 00 07 FF (stop)", "error: QM2150_Command fail!\n"}));
}

// --- Raw packets ---

using RawPackets = SnrQM2150Operations;

TEST_F(RawPackets, ACommandIsSentAsItIs) {
  const Bytes data{0x00, 0x02};
  Acknowledge();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 00 02 FF"}));
  Anew();

  Acknowledge();
  EXPECT_EQ(SnrQM2150_Command(0, data.data()), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 FF"}));
  Anew();

  const Bytes twelve{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  Acknowledge();
  EXPECT_EQ(SnrQM2150_Command(12, twelve.data()), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 01 02 03 04 05 06 07 08 09 0A 0B 0C FF"}));
}

TEST_F(RawPackets, ACommandsResultIsPassedOnWithoutALineOfItsOwn) {
  const Bytes data(17, 0x01);
  Refuse();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), -1);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 01 01 FF"}));
  Anew();
  Stop();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 01 01 FF (stop)"}));
  Anew();
  Silence();
  EXPECT_EQ(SnrQM2150_Command(2, data.data()), -56);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 01 01 FF (silence)", "error: ZR4410_MsgQ_Receive timeout!",
                                "error: QM2150_ProcessVisca failed!"}));
  Anew();
  EXPECT_EQ(SnrQM2150_Command(13, data.data()), -57);
  EXPECT_EQ(StoryOf(os), (Story{"error: Len > VISCA_PACKET_MAX_LEN", "error: QM2150_FillZR4410 failed!",
                                "error: QM2150_ProcessVisca failed!"}));
  Anew();
  EXPECT_EQ(SnrQM2150_Command(17, data.data()), -1);
  EXPECT_EQ(SnrQM2150_Command(UINT32_MAX, data.data()), -1);
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

class RawInquiryRoutine : public SnrQM2150Operations {
 protected:
  int Inquire(uint32_t size) { return SnrQM2150_Inquiry(0x04, 1, code, size, text); }
  // What stands behind the first count characters of the text.
  std::string Behind(size_t count) const { return {text + count, sizeof text - count}; }

  const uint8_t code[1] = {0x47};
  char text[80];
  RawInquiryRoutine() { memset(text, 'x', sizeof text); }
};

TEST_F(RawInquiryRoutine, ShowsTheReplyInHex) {
  Data({0x01, 0x23});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 50 01 23 ff");
  EXPECT_EQ(Behind(14), std::string(50, '\0') + std::string(16, 'x'));
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 47 FF"}));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(RawInquiryRoutine, PassesCategoryCountAndBytes) {
  const Bytes data{0x7E, 0x00, 0xAB};
  Data({});
  EXPECT_EQ(SnrQM2150_Inquiry(0x7E, 3, data.data(), 64, text), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 7E 7E 00 AB FF"}));
  Anew();
  Data({});
  EXPECT_EQ(SnrQM2150_Inquiry(0x00, 0, data.data(), 64, text), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 00 FF"}));
}

TEST_F(RawInquiryRoutine, RepliesHaveNoneToSixteenDataBytes) {
  Data({});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 50 ff");
  Data({0x00, 0x0A, 0xA0, 0xBC, 0xDE, 0xF9, 0x10, 0x80, 0x7F, 0xFF, 0x01, 0x02, 0x03, 0x04, 0x05, 0xFE});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 50 00 0a a0 bc de f9 10 80 7f ff 01 02 03 04 05 fe ff");
  os.Reply({0x90, 0x41, 0xFF});  // any type but an error
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 41 ff");
  os.Reply({0x90, 0x61, 0x41, 0xFF});
  EXPECT_EQ(Inquire(64), 0);
  EXPECT_STREQ(text, "90 61 41 ff");
}

TEST_F(RawInquiryRoutine, TheSizeBoundsOnlyTheClearing) {
  for (const uint32_t size : {0U, 1U, 13U, 14U, 15U}) {  // the text and its zero are written whatever it is
    memset(text, 'x', sizeof text);
    Data({0x01, 0x23});
    EXPECT_EQ(Inquire(size), 0) << size;
    EXPECT_STREQ(text, "90 50 01 23 ff") << size;
    EXPECT_EQ(Behind(15), std::string(65, 'x')) << size;
  }
  memset(text, 'x', sizeof text);
  Data({0x01, 0x23});
  EXPECT_EQ(Inquire(20), 0);
  EXPECT_EQ(Behind(14), std::string(6, '\0') + std::string(60, 'x'));
  memset(text, 'x', sizeof text);
  Data({0x01, 0x23});
  EXPECT_EQ(Inquire(80), 0);
  EXPECT_EQ(Behind(14), std::string(66, '\0'));
}

TEST_F(RawInquiryRoutine, TheLongestTextAndItsZeroTake57Bytes) {
  char exact[57];
  Data(Bytes(16, 0x55));
  EXPECT_EQ(SnrQM2150_Inquiry(0x04, 1, code, 0, exact), 0);
  EXPECT_STREQ(exact, "90 50 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 55 ff");
}

TEST_F(RawInquiryRoutine, AFailedInquiryIsToldAndLeavesTheTextAlone) {
  Silence();
  EXPECT_EQ(Inquire(64), -56);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 47 FF (silence)", "error: ZR4410_MsgQ_Receive timeout!",
                                "error: QM2150_ProcessVisca failed!", "error: QM2150_Inquiry fail!\n"}));
  Anew();
  os.Reply({0x90, 0x50, 0xFF}).Stop(0x56);
  EXPECT_EQ(Inquire(64), -58);
  EXPECT_EQ(os.Log().back(), Err("QM2150_Inquiry fail!\n"));
  Anew();
  EXPECT_EQ(SnrQM2150_Inquiry(0x04, 17, code, 64, text), -1);
  EXPECT_EQ(StoryOf(os), (Story{"error: QM2150_Inquiry fail!\n"}));
  EXPECT_EQ(Behind(0), std::string(80, 'x'));
}

TEST_F(RawInquiryRoutine, AnErrorReplyIsToldAndLeavesTheTextAlone) {
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(Inquire(64), -59);
  EXPECT_EQ(StoryOf(os),
            (Story{"81 09 04 47 FF", "error: VISCA RESP: Syntax error.\n", "error: QM2150_ChecRespVisca fail!\n"}));
  Anew();
  os.Reply({0x91, 0x50, 0x02, 0xFF});
  EXPECT_EQ(Inquire(64), -59);
  EXPECT_EQ(StoryOf(os),
            (Story{"81 09 04 47 FF", "error: VISCA RESP Header fail!\n", "error: QM2150_ChecRespVisca fail!\n"}));
  EXPECT_EQ(Behind(0), std::string(80, 'x'));
}

TEST_F(RawInquiryRoutine, AStopIsSilentAndLeavesTheTextAlone) {
  Stop();
  EXPECT_EQ(Inquire(64), -15);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 47 FF (stop)"}));
  EXPECT_EQ(Behind(0), std::string(80, 'x'));
  Anew();
  SetSigID(1);
  EXPECT_EQ(Inquire(64), -15);
  EXPECT_EQ(StoryOf(os), kSendStopped);
}

}  // namespace
