// The monotonic clock, the local time as text, and the check for a working RTC.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tests/fakeos/Fixtures.h"

namespace {

constexpr time_t kMorning = 1767596889;  // 5 January 2026, 07:08:09 UTC

class Clock : public Machine {
 protected:
  ~Clock() override { SetZone("UTC0"); }

  static void SetZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  std::string DayTime() {
    EXPECT_EQ(GetCurrentDayTime(text), 0);
    EXPECT_EQ(text[14], 0);
    EXPECT_EQ(text[15], 0);
    EXPECT_EQ(text[16], 'x');
    return text;
  }

  char text[17] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
};

TEST_F(Clock, MillisecondsAreRoundedDown) {
  uint64_t milliseconds = 0;
  os.SetClock(12'345'678'999'999);
  EXPECT_EQ(GetMsFromStart(&milliseconds), 0);
  EXPECT_EQ(milliseconds, 12'345'678U);
  os.SetClock(0);
  EXPECT_EQ(GetMsFromStart(&milliseconds), 0);
  EXPECT_EQ(milliseconds, 0U);
}

TEST_F(Clock, MillisecondsNeed64Bits) {
  uint64_t milliseconds = 0;
  os.SetClock(4'294'968'001'000'000);  // 50 days: more milliseconds than 32 bits hold
  EXPECT_EQ(GetMsFromStart(&milliseconds), 0);
  EXPECT_EQ(milliseconds, 4'294'968'001U);
}

TEST_F(Clock, AFailureIsPrintedAndLeavesTheOutputUnchanged) {
  uint64_t milliseconds = 77;
  os.Fail("clock_gettime", EINVAL);
  EXPECT_EQ(GetMsFromStart(&milliseconds), -1);
  EXPECT_EQ(milliseconds, 77U);
  EXPECT_EQ(os.Output(), "clock_gettime failed.\n");
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Clock, TheDayTimeIsFourteenDigits) {
  SetZone("UTC0");
  os.wallClock = kMorning;
  EXPECT_EQ(DayTime(), "20260105070809");
  os.wallClock = 1798761599;
  EXPECT_EQ(DayTime(), "20261231235959");
  os.wallClock = 0;
  EXPECT_EQ(DayTime(), "19700101000000");
}

TEST_F(Clock, TheDayTimeIsLocal) {
  SetZone("EAST-5:30");
  os.wallClock = kMorning;
  EXPECT_EQ(DayTime(), "20260105123809");
}

TEST_F(Clock, ALongerYearIsCutToFourteenDigitsInAll) {
  if (sizeof(time_t) > 4) {
    SetZone("UTC0");
    os.wallClock = static_cast<time_t>(327'403'753'689);  // 5 January 12345, 07:08:09
    EXPECT_EQ(DayTime(), "12345010507080");
    os.wallClock = static_cast<time_t>(1) << (sizeof(time_t) * 8 - 2);  // its year does not fit into an int
    EXPECT_EQ(DayTime().size(), 14U);
  }
}

// --- IsRtcTime ---

constexpr char kRtc[] = "/proc/driver/rtc";

TEST_F(Clock, AnRtcFileBeginsWithRtcTime) {
  os.files[kRtc] = "rtc_time\t: 07:08:09\nrtc_date\t: 2026-01-05\n";
  EXPECT_EQ(IsRtcTime(), 0);
  EXPECT_THAT(os.FileSteps(),
              ElementsAre("open r /proc/driver/rtc", "read /proc/driver/rtc", "close /proc/driver/rtc"));
  EXPECT_EQ(os.AskedFor(), 256U);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Clock, OnlyTheFirstEightCharactersOfTheRtcFileCount) {
  os.files[kRtc] = "rtc_time";
  EXPECT_EQ(IsRtcTime(), 0);
  os.files[kRtc] = "rtc_time" + std::string(1000, 'x');
  EXPECT_EQ(IsRtcTime(), 0);
}

TEST_F(Clock, TheRtcFileMayGetDescriptor0) {
  os.files[kRtc] = "rtc_time";
  os.nextFile = 0;
  EXPECT_EQ(IsRtcTime(), 0);
}

TEST_F(Clock, AFileWithAnotherBeginningIsNotAnRtc) {
  for (const char* content : {"rtc_tim", "rtc_date\t: 2026-01-05\n", " rtc_time", "RTC_TIME", "\n"}) {
    os.files[kRtc] = content;
    EXPECT_EQ(IsRtcTime(), -1) << content;
  }
  os.files[kRtc] = std::string("rtc_\0time", 9);
  EXPECT_EQ(IsRtcTime(), -1);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Clock, AMissingRtcFileIsLogged) {
  EXPECT_EQ(IsRtcTime(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("Open /proc/driver/rtc failed")));
}

TEST_F(Clock, AnEmptyRtcFileIsLogged) {
  os.files[kRtc] = "";
  EXPECT_EQ(IsRtcTime(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("Read /proc/driver/rtc failed")));
  EXPECT_EQ(os.OpenFiles(), 0U);
}

TEST_F(Clock, AnUnreadableRtcFileIsLogged) {
  os.files[kRtc] = "rtc_time\t: 07:08:09\n";
  os.Fail("read", EIO);
  EXPECT_EQ(IsRtcTime(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("Read /proc/driver/rtc failed")));
  EXPECT_EQ(os.OpenFiles(), 0U);
}

}  // namespace
