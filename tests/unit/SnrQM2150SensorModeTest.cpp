// The sensor-mode change with its power cycle.
#include "tests/unit/SnrQM2150Operations.h"

namespace {

class SnrQM2150SensorMode : public SnrQM2150Operations {
 protected:
  SnrQM2150SensorMode() { gtParams = {0x11, 0x2222, 0x3333, 0x44, 0x55, 0x66, 0x77, 0x8888}; }

  // Expects this sensor mode in gtParams, and the other parameters unchanged.
  static void ExpectModeInParams(unsigned mode) {
    EXPECT_EQ(ParamsNow(), Params(0x11, 0x2222, 0x3333, mode, 0x55, 0x66, 0x77, 0x8888));
  }
};

TEST_F(SnrQM2150SensorMode, AnyFrequencyExcept50And60IsRefused) {
  for (const int hz : {55, 0, 1, 49, 51, 59, 61, -50, -60, 50 + 256, 60 + 65536, INT_MIN, INT_MAX}) {
    EXPECT_EQ(SnrQM2150_SetSnrMode(hz), -59) << hz;
  }
  EXPECT_THAT(os.Timeline(), IsEmpty());
  ExpectModeInParams(0x44);
}

TEST_F(SnrQM2150SensorMode, AModeThatIsAlreadySetNeedsNoPowerCycle) {
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kRead + Story{Info("[init] 50 Hz SnrMode = 0x08\n")}));
  ExpectModeInParams(0x08);
  NextCase();

  Mode(0x06);
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), 0);
  EXPECT_EQ(OwnStory(), (kRead + Story{Info("[init] 60 Hz SnrMode = 0x06\n")}));
  ExpectModeInParams(0x06);
  EXPECT_EQ(os.Output(), "");
}

TEST_F(SnrQM2150SensorMode, ChangesTo50HzWithAPowerCycle) {
  PowerCycle();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (Story{"81 09 04 24 72 FF",                                      //
                               "81 01 04 24 72 00 08 FF", "50 ms", "81 09 04 24 72 FF",  //
                               "1 s", "MCU 0C 00", Info("[init] QM2150 Power Off.\n"),   //
                               "1 s", "MCU 0C 01", Info("[init] QM2150 Power On.\n"),    //
                               "1 s", "81 09 04 24 72 FF",                               //
                               "6 s", Info("[init] 50 Hz SnrQM2150_SetSnrMode = 0x08\n"), TimeLine(kChangeMs)}));
  ExpectModeInParams(0x08);
  EXPECT_EQ(os.Calls("sleep"), 4);
  EXPECT_EQ(os.ElapsedMs(), kPollMs + kChangeMs);
  EXPECT_EQ(os.Output(), "");
}

TEST_F(SnrQM2150SensorMode, ChangesTo60HzWithAPowerCycle) {
  PowerCycle(0x12, 0x06);
  Mode(0x06);
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), 0);
  EXPECT_EQ(OwnStory(), (kPowerCycle60 + Story{"1 s"} + kRead + Settled(60, "0x06", kChangeMs)));
  ExpectModeInParams(0x06);
}

TEST_F(SnrQM2150SensorMode, AFailedFirstReadIsRepeatedAtOnce) {
  Broken();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kRead + kRead + Story{Info("[init] 50 Hz SnrMode = 0x08\n")}));
  ExpectModeInParams(0x08);
}

TEST_F(SnrQM2150SensorMode, AFailedFirstReadDoesNotPreventTheChange) {
  Silence();
  PowerCycle();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kSilentRead + kPowerCycle50 + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs)));
  ExpectModeInParams(0x08);
}

TEST_F(SnrQM2150SensorMode, TwoFailedFirstReadsEndItWithTheSecondResult) {
  Broken();
  Silence();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -56);
  EXPECT_EQ(OwnStory(), (kRead + kSilentRead + Story{Err("[init] QM2150_GetSnrMode failed!\n")}));
  NextCase();

  Silence();
  Broken();
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), -1);
  EXPECT_EQ(OwnStory(), (kSilentRead + kRead + Story{Err("[init] QM2150_GetSnrMode failed!\n")}));
  ExpectModeInParams(0x44);
}

TEST_F(SnrQM2150SensorMode, AStopAtTheFirstReadEndsItSilently) {
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), kStoppedRead);
  ExpectModeInParams(0x44);
}

TEST_F(SnrQM2150SensorMode, AStopBeforeTheFirstReadEndsItSilently) {
  SetSigID(1);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_THAT(OwnStory(), IsEmpty());
}

TEST_F(SnrQM2150SensorMode, AStopAtTheSecondReadEndsItSilently) {
  Broken();
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), (kRead + kStoppedRead));
  ExpectModeInParams(0x44);
}

TEST_F(SnrQM2150SensorMode, ARefusedRegisterWriteIsIgnored) {
  Mode(0x06);
  Refuse();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(),
            (kRead + Story{"81 01 04 24 72 00 08 FF", Err("[init] QM2150_SetSnrMode failed!\n")} + kPowerOff +
             kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs - kReadBackMs - kPollMs)));
  ExpectModeInParams(0x08);
}

TEST_F(SnrQM2150SensorMode, AnUnansweredRegisterWriteIsIgnored) {
  Mode(0x06);
  Silence();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kRead + Story{"81 01 04 24 72 00 08 FF (silence)", Err("[init] QM2150_SetSnrMode failed!\n")} +
                         kPowerOff + kPowerOn + Story{"1 s"} + kRead +
                         Settled(50, "0x08", kChangeMs - kReadBackMs - 2 * kPollMs + kTimeOutMs)));
}

TEST_F(SnrQM2150SensorMode, AFailedRegisterReadBackIsIgnored) {
  Mode(0x06);
  Acknowledge();
  Broken();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kRead + Story{"81 01 04 24 72 00 08 FF", "50 ms"} + kRead +
                         Story{Err("[init] QM2150_SetSnrMode failed!\n")} + kPowerOff + kPowerOn + Story{"1 s"} +
                         kRead + Settled(50, "0x08", kChangeMs)));
}

// The register write itself reports a rejected mode as success.
TEST_F(SnrQM2150SensorMode, ARegisterThatKeepsItsValueDoesNotFailTheWrite) {
  Mode(0x06);
  Acknowledge();
  Mode(0x06);
  Mode(0x06);
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kRead + kWrite50 + Story{"50 ms", "81 09 04 24 72 FF"} + kPowerOff + kPowerOn + Story{"1 s"} +
                         kRead + Settled(50, "0x08", kChangeMs + kReadBackMs + kPollMs)));
}

TEST_F(SnrQM2150SensorMode, AStopAtTheRegisterWriteIsLoggedAndIgnored) {
  Mode(0x06);
  Stop();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  os.On("sleep", 1, [] { SetSigID(0); });  // so that the change continues
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(),
            (kRead + Story{"81 01 04 24 72 00 08 FF (stop)", Err("[init] QM2150_SetSnrMode failed!\n")} + kPowerOff +
             kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs - kReadBackMs - kPollMs)));
}

TEST_F(SnrQM2150SensorMode, AStopAtTheRegisterReadBackIsLoggedAndIgnored) {
  Mode(0x06);
  Acknowledge();
  Stop();
  Acknowledge();
  Acknowledge();
  Mode(0x08);
  os.On("sleep", 1, [] { SetSigID(0); });
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kRead +
                         Story{"81 01 04 24 72 00 08 FF", "50 ms", "81 09 04 24 72 FF (stop)",
                               Err("[init] QM2150_SetSnrMode failed!\n")} +
                         kPowerOff + kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs)));
}

TEST_F(SnrQM2150SensorMode, AStopThatLastsEndsItAtThePowerCommand) {
  Mode(0x06);
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(),
            (kRead + Story{"81 01 04 24 72 00 08 FF (stop)", Err("[init] QM2150_SetSnrMode failed!\n"), "1 s"}));
  ExpectModeInParams(0x06);
}

TEST_F(SnrQM2150SensorMode, ARefusedPowerCommandIsIgnored) {
  const Story failed{Err("[init] MCU_LensPowerControl failed!\n")};
  for (const uint8_t code : Bytes{0x20, 0x30, 0x40, 0x50, 0x00, 0x11}) {
    Mode(0x06);
    Acknowledge();
    Mode(0x08);
    os.Reply({code});
    Acknowledge();
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
    EXPECT_EQ(OwnStory(),
              (kRead + kWrite50 + Story{"1 s", "MCU 0C 00"} + failed + Story{Info("[init] QM2150 Power Off.\n")} +
               kPowerOn + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs)));
    NextCase();

    Mode(0x06);
    Acknowledge();
    Mode(0x08);
    Acknowledge();
    os.Reply({code});
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
    EXPECT_EQ(OwnStory(),
              (kRead + kWrite50 + kPowerOff + Story{"1 s", "MCU 0C 01"} + failed +
               Story{Info("[init] QM2150 Power On.\n")} + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs)));
    NextCase();
  }
}

TEST_F(SnrQM2150SensorMode, UnansweredPowerCommandsAreIgnored) {
  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Silence();
  Silence();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kRead + kWrite50 +
                         Story{"1 s", "MCU 0C 00 (silence)", Err("[init] MCU_LensPowerControl failed!\n"),
                               Info("[init] QM2150 Power Off.\n"),  //
                               "1 s", "MCU 0C 01 (silence)", Err("[init] MCU_LensPowerControl failed!\n"),
                               Info("[init] QM2150 Power On.\n"), "1 s"} +
                         kRead + Settled(50, "0x08", kChangeMs + 2 * (kTimeOutMs - kPollMs))));
}

TEST_F(SnrQM2150SensorMode, AStopAtEitherPowerCommandEndsItSilently) {
  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), (kRead + kWrite50 + Story{"1 s", "MCU 0C 00 (stop)"}));
  ExpectModeInParams(0x06);
  NextCase();

  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Acknowledge();
  Stop();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), (kRead + kWrite50 + kPowerOff + Story{"1 s", "MCU 0C 01 (stop)"}));
}

// The sleeps do not check the stop flag; the next exchange does.
TEST_F(SnrQM2150SensorMode, AStopInASleepIsNoticedByTheNextExchange) {
  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  os.StopAt("sleep", 1);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), (kRead + kWrite50 + Story{"1 s"}));
  NextCase();

  Mode(0x06);
  Acknowledge();
  Mode(0x08);
  Acknowledge();
  os.StopAt("sleep", 2);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), (kRead + kWrite50 + kPowerOff + Story{"1 s"}));
  NextCase();

  PowerCycle();
  os.StopAt("sleep", 3);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), (kPowerCycle50 + Story{"1 s"}));
  NextCase();

  PowerCycle();
  Mode(0x08);
  os.StopAt("sleep", 4);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(), (kPowerCycle50 + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs)));
}

TEST_F(SnrQM2150SensorMode, WakesAtEachOfTenAttemptsAfterFailures) {
  for (int attempt = 1; attempt <= 10; ++attempt) {
    Story story = kPowerCycle50;
    PowerCycle();
    for (int i = 1; i < attempt; ++i) {
      Broken();
      story = story + Story{"1 s"} + kRead + kWakeUpFailed;
    }
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0) << attempt;
    EXPECT_EQ(OwnStory(),
              (story + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs + (attempt - 1) * (1000 + kPollMs))))
        << attempt;
    ExpectModeInParams(0x08);
    NextCase();
  }
}

TEST_F(SnrQM2150SensorMode, WakesAtEachOfTenAttemptsAfterOtherModes) {
  for (int attempt = 1; attempt <= 10; ++attempt) {
    Story story = kPowerCycle50;
    PowerCycle();
    for (int i = 1; i < attempt; ++i) {
      Mode(static_cast<uint8_t>(i == 8 ? 0x00 : i));
      story = story + Story{"1 s"} + kRead;
    }
    Mode(0x08);
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0) << attempt;
    EXPECT_EQ(OwnStory(),
              (story + Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs + (attempt - 1) * (1000 + kPollMs))))
        << attempt;
    NextCase();
  }
}

TEST_F(SnrQM2150SensorMode, WakesAfterSilence) {
  PowerCycle();
  Silence();
  Silence();
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(OwnStory(),
            (kPowerCycle50 + Story{"1 s"} + kSilentRead + kWakeUpFailed + Story{"1 s"} + kSilentRead + kWakeUpFailed +
             Story{"1 s"} + kRead + Settled(50, "0x08", kChangeMs + 2 * (1000 + kTimeOutMs))));
}

TEST_F(SnrQM2150SensorMode, TenFailedAttemptsEndItWithTheLastResult) {
  for (const bool silent : {false, true}) {
    Story story = kPowerCycle50;
    PowerCycle();
    for (int i = 1; i <= 10; ++i) {
      if (silent) {
        Silence();
      } else {
        Broken();
      }
      story = story + Story{"1 s"} + (silent ? kSilentRead : kRead) + kWakeUpFailed;
    }
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), silent ? -56 : -1);
    EXPECT_EQ(OwnStory(), (story + Story{Err("[init] 50 Hz SnrQM2150_SetSnrMode = 0x00 failed!\n"),
                                         TimeLine(kFailedMs + (silent ? 10 * (kTimeOutMs - kPollMs) : 0))}));
    ExpectModeInParams(0x06);
    NextCase();
  }
}

TEST_F(SnrQM2150SensorMode, TheLineOfTenFailedAttemptsHasTheFrequency) {
  PowerCycle(0x08, 0x06);
  for (int i = 1; i <= 10; ++i) {
    Broken();
  }
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), -1);
  EXPECT_THAT(OwnStory(), testing::Contains(Err("[init] 60 Hz SnrQM2150_SetSnrMode = 0x00 failed!\n")));
}

// The machine has run for 50 days, which is more milliseconds than 32 bits hold. The clock jumps ahead during the
// change.
TEST_F(SnrQM2150SensorMode, TheTimeIsCountedIn64Bits) {
  os.SetClock(4'320'000'000'000'000);
  PowerCycle();
  Mode(0x08);
  os.On("sleep", 4, [this] { os.SetClock(7'320'003'350'000'000); });  // 3,000,000 s later than it was
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_THAT(OwnStory(), testing::Contains(TimeLine(3'000'009'350 - kPollMs)));
}

TEST_F(SnrQM2150SensorMode, TenOtherModesEndItWithoutALine) {
  Story story = kPowerCycle50;
  PowerCycle();
  for (int i = 1; i <= 10; ++i) {
    Mode(static_cast<uint8_t>(0x08 + i));
    story = story + Story{"1 s"} + kRead;
  }
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -59);
  EXPECT_EQ(OwnStory(), story);
  ExpectModeInParams(0x12);
}

TEST_F(SnrQM2150SensorMode, OtherModesAndAFinalFailureEndItWithThatFailure) {
  Story story = kPowerCycle50;
  PowerCycle();
  for (int i = 1; i <= 9; ++i) {
    Mode(0x0C);
    story = story + Story{"1 s"} + kRead;
  }
  Broken();
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -1);
  EXPECT_EQ(OwnStory(), (story + Story{"1 s"} + kRead + kWakeUpFailed +
                         Story{Err("[init] 50 Hz SnrQM2150_SetSnrMode = 0x00 failed!\n"), TimeLine(kFailedMs)}));
  ExpectModeInParams(0x0C);
}

TEST_F(SnrQM2150SensorMode, FailuresAndAFinalOtherModeEndItWithMinus59) {
  Story story = kPowerCycle60;
  PowerCycle(0x08, 0x06);
  for (int i = 1; i <= 9; ++i) {
    Broken();
    story = story + Story{"1 s"} + kRead + kWakeUpFailed;
  }
  Mode(0x08);
  EXPECT_EQ(SnrQM2150_SetSnrMode(60), -59);
  EXPECT_EQ(OwnStory(), (story + Story{"1 s"} + kRead));
  ExpectModeInParams(0x08);
}

TEST_F(SnrQM2150SensorMode, AStopAtAnyWakeUpReadEndsItSilently) {
  for (int attempt = 1; attempt <= 10; ++attempt) {
    Story story = kPowerCycle50;
    PowerCycle();
    for (int i = 1; i < attempt; ++i) {
      Broken();
      story = story + Story{"1 s"} + kRead + kWakeUpFailed;
    }
    Stop();
    EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15) << attempt;
    EXPECT_EQ(OwnStory(), (story + Story{"1 s"} + kStoppedRead)) << attempt;
    ExpectModeInParams(0x06);
    NextCase();
  }
}

// A register reply is used unchecked, even an error reply: 0x41 in place of the high nibble gives mode 0x10.
TEST_F(SnrQM2150SensorMode, AnErrorReplyIsReadAsAMode) {
  PowerCycle();
  os.Reply({0x90, 0x60, 0x41, 0xFF});
  Mode(0x08);
  os.StopAt("msgsnd", 7);  // after the error reply
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), -15);
  EXPECT_EQ(OwnStory(), (kPowerCycle50 + Story{"1 s"} + kRead + Story{"1 s"} + kStoppedRead));
  ExpectModeInParams(0x10);
}

TEST_F(SnrQM2150SensorMode, ASignalCutsOneSleepShort) {
  PowerCycle();
  Mode(0x08);
  os.SignalAt(kPollMs + kChangeMs - 4000, SIGUSR1);  // 2 s into the 6 s
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(os.Log().back(), TimeLine(kChangeMs - 4000));
  EXPECT_EQ(os.Calls("sleep"), 4);
}

TEST_F(SnrQM2150SensorMode, AClockThatFailsDoesNotFailIt) {
  PowerCycle();
  Mode(0x08);
  os.Fail("clock_gettime", EINVAL, 1, 100);
  EXPECT_EQ(SnrQM2150_SetSnrMode(50), 0);
  EXPECT_EQ(os.Requests().size(), 6U);
  EXPECT_EQ(os.Log().back(), Info("[init] Set SnrMode Time = 0 (ms)\n"));
}

}  // namespace
