// What the tests of SnrQM2150Operations.cpp share: the camera's answers, and the parts of the stories.
#ifndef ZR4410_TESTS_UNIT_SNRQM2150OPERATIONS_H
#define ZR4410_TESTS_UNIT_SNRQM2150OPERATIONS_H

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>

#include "tests/fakeos/Fixtures.h"
#include "tests/unit/CameraStory.h"

class SnrQM2150Operations : public Linked {
 protected:
  void TearDown() override { EXPECT_EQ(os.Unused(), 0U) << "answers that no request took"; }

  // --- These script the answers to the next requests, in order ---
  void Acknowledge() { os.Reply({0x10}); }
  void Refuse() { os.Reply({0x40}); }
  void Mode(uint8_t mode) { Data({static_cast<uint8_t>(mode / 16), static_cast<uint8_t>(mode % 16)}); }
  void Data(const Bytes& data) { os.Reply(Completed(data)); }
  void Broken() { os.Reply({}).Header(0xAA, 0x55); }  // fails at once with -1
  void Silence() { os.NoReply(); }                    // fails with -56 after the time-out
  void Stop() {                                       // sets the stop flag during the wait for the answer
    os.NoReply();
    os.StopAt("msgsnd", static_cast<int>(os.Unused()));
  }

  // A change from one sensor mode to another, up to the wait for the camera to wake up.
  void PowerCycle(uint8_t from = 0x06, uint8_t to = 0x08) {
    Mode(from);
    Acknowledge();
    Mode(to);
    Acknowledge();
    Acknowledge();
  }

  // Clears the stop flag and what was recorded. Answers that no request took stay, so that TearDown reports them.
  void NextCase() {
    SetSigID(0);
    os.Forget();
  }

  // The story with only the log lines of the operations themselves, which begin with '[' or "MCU Ver", or end with
  // " failed!" and a line feed. The lines of the routines that they call are left to those routines' tests.
  Story OwnStory() const {
    return StoryOf(os, [](std::string_view line) {
      return line.starts_with("[") || line.starts_with("MCU Ver") || line.ends_with(" failed!\n");
    });
  }
};

// gtParams, in the record's order.
inline auto Params(unsigned mcuVersion, unsigned model, unsigned romVersion, unsigned snrMode, unsigned aeMode,
                   unsigned wbMode, unsigned afMode, unsigned shutter) {
  return std::tuple(mcuVersion, model, romVersion, snrMode, aeMode, wbMode, afMode, shutter);
}
inline auto ParamsNow() {
  return Params(gtParams.mcuVersion, gtParams.model, gtParams.romVersion, gtParams.snrMode, gtParams.aeMode,
                gtParams.wbMode, gtParams.afMode, gtParams.shutter);
}

// --- Sensor-mode change ---

inline const Story kRead{"81 09 04 24 72 FF"};
inline const Story kSilentRead{"81 09 04 24 72 FF (silence)"};
inline const Story kStoppedRead{"81 09 04 24 72 FF (stop)"};
inline const Story kWrite50{"81 01 04 24 72 00 08 FF", "50 ms", "81 09 04 24 72 FF"};
inline const Story kWrite60{"81 01 04 24 72 00 06 FF", "50 ms", "81 09 04 24 72 FF"};
inline const Story kPowerOff{"1 s", "MCU 0C 00", Info("[init] QM2150 Power Off.\n")};
inline const Story kPowerOn{"1 s", "MCU 0C 01", Info("[init] QM2150 Power On.\n")};
inline const Story kWakeUpFailed{Err("[init] Waiting for QM2150 wake up: QM2150_GetSnrMode fail!\n")};
inline const Story kPowerCycle50 = kRead + kWrite50 + kPowerOff + kPowerOn;
inline const Story kPowerCycle60 = kRead + kWrite60 + kPowerOff + kPowerOn;

// How long the change takes, from the second exchange on: the sleeps, and one poll for each exchange.
inline constexpr int kReadBackMs = 50;
inline constexpr int kChangeMs = 9000 + kReadBackMs + 5 * kPollMs;
inline constexpr int kFailedMs = 2000 + kReadBackMs + 4 * kPollMs + 10 * (1000 + kPollMs);  // ten attempts fail at once

inline LogLine TimeLine(long long milliseconds) {
  return Info("[init] Set SnrMode Time = " + std::to_string(milliseconds) + " (ms)\n");
}
inline Story Settled(int hz, const std::string& mode, int milliseconds) {
  return {"6 s", Info("[init] " + std::to_string(hz) + " Hz SnrQM2150_SetSnrMode = " + mode + "\n"),
          TimeLine(milliseconds)};
}

#endif
