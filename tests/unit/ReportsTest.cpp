// The five system reports and the raw inquiry, line by line.
#include <algorithm>

#include "tests/fakeos/Faults.h"
#include "tests/unit/ReportExamples.h"

namespace {

using testing::_;

class Reports : public Linked {
 protected:
  int Report(int number) {
    giArgv1 = number;
    return SystemInquiry();
  }

  // Puts values that no reply can carry into a record. It does so when the first field is logged, because the record is
  // complete by then.
  void ChangeRecord(const std::function<void()>& change) { os.On("syslog", 1, change); }
};

// --- Every report ---

class ReportsEach : public Reports, public testing::WithParamInterface<ReportExample> {};

INSTANTIATE_TEST_SUITE_P(All, ReportsEach, testing::ValuesIn(kReports),
                         [](const auto& test) { return std::to_string(test.param.number); });

TEST_P(ReportsEach, ShowsItsExample) {
  const ReportExample& report = GetParam();
  for (const int debug : {0, 1}) {  // the debug flag makes no difference
    os.Forget();
    gfDebugFlag = debug;
    Answer(os, report);
    EXPECT_EQ(Report(report.number), 0);
    EXPECT_EQ(ReportLines(os), report.lines);
    EXPECT_EQ(os.Packets(), report.packets);
    if (debug == 0) {
      EXPECT_EQ(os.Output(), report.output);
    }
  }
}

TEST_P(ReportsEach, LogsTheFieldsOfItsBlockFirst) {
  Answer(os, GetParam());
  EXPECT_EQ(Report(GetParam().number), 0);
  const std::vector<LogLine> fields(os.Log().begin(), os.Log().end() - static_cast<ptrdiff_t>(GetParam().lines.size()));
  EXPECT_FALSE(fields.empty());
  for (const LogLine& line : GetParam().lines) {
    EXPECT_THAT(fields, testing::Not(testing::Contains(line)));
  }
}

// Returns the two lines that end a report whose block inquiry failed.
std::vector<LogLine> BlockFailed(int number) {
  switch (number) {
    case 0:
      return {Err("QM2150_GetLensControl failed!\n"), Err("GetLensControlInquiry failed!\n")};
    case 1:
      return {Err("QM2150_GetCameraControl failed!\n"), Err("GetCameraControlInquiry failed!\n")};
    case 2:
      return {Err("QM2150_GetOtherControl failed!\n"), Err("GetOthersControlInquiry failed!\n")};
    case 3:
      return {Err("QM2150_GetEnlargeFunction1 failed!\n"), Err("GetEnlargeFun1Inquiry failed!\n")};
    default:  // the last line is the same as for report 3
      return {Err("QM2150_GetEnlargeFunction2 failed!\n"), Err("GetEnlargeFun1Inquiry failed!\n")};
  }
}

TEST_P(ReportsEach, EndsWhenItsBlockFails) {
  for (const Fault& fault : InquiryFaults()) {
    SCOPED_TRACE(fault.name);
    fault.arrange(os, GetParam().replies[0]);
    EXPECT_EQ(Report(GetParam().number), fault.result);
    EXPECT_EQ(LinesAbove(os.Log(), fault, 2), BlockFailed(GetParam().number));
    EXPECT_LE(os.Requests().size(), 1U);
    EXPECT_EQ(os.Output(), "");
    StartOver();
  }
}

TEST_P(ReportsEach, EndsOnAReplyOfAnotherLength) {
  os.Reply(Completed(Bytes(12)));
  EXPECT_EQ(Report(GetParam().number), -59);
  ASSERT_EQ(os.Log().size(), 3U);
  EXPECT_EQ(std::vector<LogLine>(os.Log().begin() + 1, os.Log().end()), BlockFailed(GetParam().number));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(Reports, OfAnotherNumberAreRefusedWithoutALine) {
  const int next = std::size(kReports);  // a report without an example fails here
  for (const int number : {-1, next, next + 1, 256, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ(Report(number), -1) << number;
  }
  EXPECT_THAT(os.Timeline(), IsEmpty());
  EXPECT_EQ(os.Output(), "");
}

// --- Report 0: lens ---

class ReportsLens : public Reports {
 protected:
  // Returns the report's lines for the example with these bytes changed.
  std::vector<LogLine> LinesWith(const std::map<size_t, uint8_t>& changes, int result = 0) {
    os.Forget();
    os.Reply(Completed(With(kLensData, changes)));
    EXPECT_EQ(Report(0), result);
    return ReportLines(os);
  }

  LogLine ZoomLine(uint8_t dzoomMode, int position) {
    return LinesWith({{0, static_cast<uint8_t>(position >> 12 & 0xF)},
                      {1, static_cast<uint8_t>(position >> 8 & 0xF)},
                      {2, static_cast<uint8_t>(position >> 4 & 0xF)},
                      {3, static_cast<uint8_t>(position & 0xF)},
                      {11, static_cast<uint8_t>(dzoomMode << 5)}})
        .at(2);
  }

  static std::map<size_t, uint8_t> FocusPos(int position) {
    return {{6, static_cast<uint8_t>(position >> 12 & 0xF)},
            {7, static_cast<uint8_t>(position >> 8 & 0xF)},
            {8, static_cast<uint8_t>(position >> 4 & 0xF)},
            {9, static_cast<uint8_t>(position & 0xF)}};
  }
};

TEST_F(ReportsLens, ShowsWhetherDigitalZoomIsOn) {
  EXPECT_EQ(LinesWith({{11, 0x00}}).at(1), Err("[Digital Zoom] OFF\n"));
  EXPECT_EQ(LinesWith({{11, 0x02}}).at(1), Err("[Digital Zoom] ON\n"));
}

TEST_F(ReportsLens, ShowsCombinedZoomOf20And40) {
  EXPECT_EQ(ZoomLine(0, 16384), Err("[Combine Zoom] Optical: x20.00, Digital: x1.00, Combine: x20.00\n"));
  EXPECT_EQ(ZoomLine(0, 24576), Err("[Combine Zoom] Optical: x20.00, Digital: x2.00, Combine: x40.00\n"));
}

TEST_F(ReportsLens, SplitsTheCombinedZoomAt20) {
  EXPECT_EQ(ZoomLine(0, 0), Err("[Combine Zoom] Optical: x1.00, Digital: x1.00, Combine: x1.00\n"));
  EXPECT_EQ(ZoomLine(0, 6225), Err("[Combine Zoom] Optical: x2.00, Digital: x1.00, Combine: x2.00\n"));
  EXPECT_EQ(ZoomLine(0, 16349), Err("[Combine Zoom] Optical: x19.50, Digital: x1.00, Combine: x19.50\n"));
  EXPECT_EQ(ZoomLine(0, 16465), Err("[Combine Zoom] Optical: x20.00, Digital: x1.01, Combine: x20.20\n"));
  EXPECT_EQ(ZoomLine(0, 20480), Err("[Combine Zoom] Optical: x20.00, Digital: x1.50, Combine: x30.00\n"));
  EXPECT_EQ(ZoomLine(0, 31424), Err("[Combine Zoom] Optical: x20.00, Digital: x12.00, Combine: x240.00\n"));
}

TEST_F(ReportsLens, ShowsZeroForACombinedZoomWithoutAValue) {
  EXPECT_EQ(ZoomLine(0, 31425), Err("[Combine Zoom] Optical: x0.00, Digital: x1.00, Combine: x0.00\n"));
  EXPECT_EQ(ZoomLine(0, 0xFFFF), Err("[Combine Zoom] Optical: x0.00, Digital: x1.00, Combine: x0.00\n"));
}

TEST_F(ReportsLens, SeparateZoomIsTheOpticalOneAlone) {
  EXPECT_EQ(ZoomLine(1, 0), Err("[Separate Zoom] Optical: x1.00\n"));
  EXPECT_EQ(ZoomLine(1, 8192), Err("[Separate Zoom] Optical: x2.74\n"));
  EXPECT_EQ(ZoomLine(1, 16384), Err("[Separate Zoom] Optical: x20.00\n"));
}

TEST_F(ReportsLens, ShowsZeroForASeparateZoomWithoutAValue) {
  EXPECT_EQ(ZoomLine(1, 16385), Err("[Separate Zoom] Optical: x0.00\n"));
  EXPECT_EQ(ZoomLine(1, 24576), Err("[Separate Zoom] Optical: x0.00\n"));
  EXPECT_EQ(ZoomLine(1, 0xFFFF), Err("[Separate Zoom] Optical: x0.00\n"));
}

TEST_F(ReportsLens, ContinuesAfterAZoomWithoutAValue) {
  EXPECT_THAT(LinesWith({{0, 0x0F}}),
              ElementsAre(kSeparator, Err("[Digital Zoom] ON\n"),
                          Err("[Combine Zoom] Optical: x0.00, Digital: x1.00, Combine: x0.00\n"),
                          Err("[AF] Auto, Normal, Slow Sensitivity.\n"), Err("[Focus Near Limit] 30 cm\n"),
                          Err("[Object Distance] 4.90 meter\n")));
}

TEST_F(ReportsLens, NamesFocusAndAfMode) {
  struct {
    uint8_t focusMode, afMode;
    const char* line;
  } const cases[] = {
      {0, 0, "[AF] Manual, Normal, Slow Sensitivity.\n"},
      {0, 1, "[AF] Manual, Interval, Normal Sensitivity.\n"},
      {0, 2, "[AF] Manual, Zoom Trigger,\n"},
      {0, 3, "[AF] Manual,\n"},
      {1, 0, "[AF] Auto, Normal, Slow Sensitivity.\n"},
      {1, 1, "[AF] Auto, Interval, Normal Sensitivity.\n"},
      {1, 2, "[AF] Auto, Zoom Trigger,\n"},
      {1, 3, "[AF] Auto,\n"},
  };
  for (const auto& [focusMode, afMode, line] : cases) {
    const auto modes = static_cast<uint8_t>(afMode << 3 | focusMode);
    EXPECT_EQ(LinesWith({{11, modes}}).at(3), Err(line));
    EXPECT_EQ(LinesWith({{11, static_cast<uint8_t>(modes | 0x04)}}).at(3), Err(line)) << "afSensitivity has no effect";
  }
}

TEST_F(ReportsLens, NearLimitOf0IsTakenAs0x1000) {
  EXPECT_EQ(LinesWith({{4, 0}, {5, 0}}).at(4), Err("[Focus Near Limit] 1 cm\n"));
}

TEST_F(ReportsLens, NearLimitIsClampedAndConverted) {
  struct {
    uint8_t high, low;
    const char* line;
  } const cases[] = {
      {0x0, 0xF, "[Focus Near Limit] 1 cm\n"},         {0x1, 0x0, "[Focus Near Limit] 1 cm\n"},
      {0x1, 0x1, "[Focus Near Limit] 939.05 meter\n"}, {0x2, 0x0, "[Focus Near Limit] 25.00 meter\n"},
      {0xB, 0xF, "[Focus Near Limit] 1.01 meter\n"},   {0xC, 0x0, "[Focus Near Limit] 1.00 meter\n"},
      {0xC, 0x1, "[Focus Near Limit] 96 cm\n"},        {0xD, 0x0, "[Focus Near Limit] 30 cm\n"},
      {0xE, 0x0, "[Focus Near Limit] 8 cm\n"},         {0xE, 0xF, "[Focus Near Limit] 1 cm\n"},
      {0xF, 0x0, "[Focus Near Limit] 1 cm\n"},         {0xF, 0x1, "[Focus Near Limit] 1 cm\n"},
      {0xF, 0xF, "[Focus Near Limit] 1 cm\n"},
  };
  for (const auto& [high, low, line] : cases) {
    EXPECT_EQ(LinesWith({{4, high}, {5, low}}).at(4), Err(line));
  }
}

TEST_F(ReportsLens, DistanceOf99Point9CentimetresShows100) {
  EXPECT_EQ(LinesWith(FocusPos(0xC006)).at(5), Err("[Object Distance] 100 cm\n"));
  EXPECT_EQ(LinesWith(FocusPos(0xC000)).at(5), Err("[Object Distance] 1.00 meter\n"));
}

TEST_F(ReportsLens, ObjectDistanceIsInCentimetresBelowAMetre) {
  struct {
    int position;
    const char* line;
  } const cases[] = {
      {0x1000, "[Object Distance] 1 cm\n"},         {0x1001, "[Object Distance] 999.75 meter\n"},
      {0x1800, "[Object Distance] 512.50 meter\n"}, {0x2000, "[Object Distance] 25.00 meter\n"},
      {0x8000, "[Object Distance] 2.30 meter\n"},   {0xBFFF, "[Object Distance] 1.00 meter\n"},
      {0xC001, "[Object Distance] 100 cm\n"},       {0xC01D, "[Object Distance] 100 cm\n"},
      {0xC01E, "[Object Distance] 99 cm\n"},        {0xD000, "[Object Distance] 30 cm\n"},
      {0xEFFF, "[Object Distance] 1 cm\n"},         {0xF000, "[Object Distance] 1 cm\n"},
  };
  for (const auto& [position, line] : cases) {
    EXPECT_EQ(LinesWith(FocusPos(position)).at(5), Err(line)) << position;
  }
}

TEST_F(ReportsLens, FailsOnAnObjectPositionOutsideTheTable) {
  for (const int position : {0x0000, 0x0FFF, 0xF001, 0xFFFF}) {
    EXPECT_THAT(LinesWith(FocusPos(position), -59),
                ElementsAre(kSeparator, Err("[Digital Zoom] ON\n"),
                            Err("[Combine Zoom] Optical: x2.74, Digital: x1.00, Combine: x2.74\n"),
                            Err("[AF] Auto, Normal, Slow Sensitivity.\n"), Err("[Focus Near Limit] 30 cm\n"),
                            Err("SnrQM2150_FocusPos failed!\n"), Err("GetLensControlInquiry failed!\n")))
        << position;
  }
}

TEST_F(ReportsLens, LeavesOutValuesWithoutAWord) {
  ChangeRecord([] { gtLensControl.digitalZoom = gtLensControl.dzoomMode = gtLensControl.focusMode = 2; });
  EXPECT_THAT(LinesWith({}), ElementsAre(kSeparator, Err("[Digital Zoom] \n"),  // and no line for the zoom
                                         Err("[AF]  Normal, Slow Sensitivity.\n"), Err("[Focus Near Limit] 30 cm\n"),
                                         Err("[Object Distance] 4.90 meter\n")));
  ChangeRecord([] { gtLensControl.dzoomMode = gtLensControl.focusMode = gtLensControl.afMode = 255; });
  EXPECT_THAT(LinesWith({}), ElementsAre(kSeparator, Err("[Digital Zoom] ON\n"), Err("[AF] \n"),
                                         Err("[Focus Near Limit] 30 cm\n"), Err("[Object Distance] 4.90 meter\n")));
}

TEST_F(ReportsLens, FillsItsGlobalRecord) {
  LinesWith({});
  EXPECT_EQ(gtLensControl.zoomPos, 0x2000);
  EXPECT_EQ(gtLensControl.focusMode, 1);
}

// --- Report 1: exposure and white balance ---

class ReportsExposure : public Reports {
 protected:
  std::vector<LogLine> LinesOf(const Bytes& data, const Bytes& snrMode, const Bytes& highSensitivity, int result = 0) {
    os.Forget();
    os.Reply(Completed(data));
    os.device = [=, this](const Request& request) {
      os.Answer(request, request.Payload()[3] == 0x24 ? snrMode : highSensitivity);
    };
    EXPECT_EQ(Report(1), result);
    return ReportLines(os);
  }
  std::vector<LogLine> LinesWith(const std::map<size_t, uint8_t>& changes, int result = 0) {
    return LinesOf(With(kCameraData, changes), kSnrMode60Hz, kHighSensitivityOff, result);
  }
};

TEST_F(ReportsExposure, UsesTheShutterTimesOf60And50Hz) {
  EXPECT_EQ(LinesOf(kCameraData, kSnrMode60Hz, kHighSensitivityOff).at(2),
            Info("[AE] Fully Auto, 1/60s, x2.51(8.0dB), F2.80\n"));
  EXPECT_EQ(LinesOf(kCameraData, kSnrMode50Hz, kHighSensitivityOff).at(2),
            Info("[AE] Fully Auto, 1/50s, x2.51(8.0dB), F2.80\n"));
}

TEST_F(ReportsExposure, KnowsEveryShutterPosition) {
  constexpr const char* k60Hz[] = {"1",   "2",   "4",   "8",   "15",   "30",   "60",   "90",   "100",  "125",  "180",
                                   "250", "350", "500", "725", "1000", "1500", "2000", "3000", "4000", "6000", "10000"};
  for (uint8_t position = 0; position < 22; ++position) {
    EXPECT_EQ(LinesWith({{8, position}}).at(2),
              Info(std::string("[AE] Fully Auto, 1/") + k60Hz[position] + "s, x2.51(8.0dB), F2.80\n"));
  }
}

TEST_F(ReportsExposure, FailsOnAShutterPositionWithoutATime) {
  for (uint8_t position = 22; position < 32; ++position) {
    EXPECT_THAT(LinesWith({{8, position}}, -59),
                ElementsAre(Err("QM2150_GetCameraControl failed!\n"), Err("GetCameraControlInquiry failed!\n")));
    EXPECT_EQ(os.Requests().size(), 2U) << "the high sensitivity is not asked for";
  }
}

TEST_F(ReportsExposure, FailsInASensorModeOtherThan6And8) {
  for (unsigned mode = 0; mode < 256; ++mode) {
    const Bytes reply = {0x90, 0x50, static_cast<uint8_t>(mode >> 4), static_cast<uint8_t>(mode & 0xF), 0xFF};
    if (mode != 6 && mode != 8) {
      EXPECT_THAT(LinesOf(kCameraData, reply, kHighSensitivityOff, -59),
                  ElementsAre(Err("QM2150_GetCameraControl failed!\n"), Err("GetCameraControlInquiry failed!\n")))
          << mode;
      EXPECT_EQ(os.Requests().size(), 2U);
    }
  }
}

TEST_F(ReportsExposure, TreatsAnErrorReplyToTheSensorModeAsAnUnknownMode) {
  EXPECT_THAT(LinesOf(kCameraData, {0x90, 0x60, 0x41, 0xFF}, kHighSensitivityOff, -59),
              ElementsAre(Err("QM2150_GetCameraControl failed!\n"), Err("GetCameraControlInquiry failed!\n")));
}

TEST_F(ReportsExposure, ShowsHighSensitivityOnOrOff) {
  EXPECT_THAT(
      LinesOf(With(kCameraData, {{10, 15}}), kSnrMode60Hz, kHighSensitivityOn),
      ElementsAre(kSeparator, Info("[High Sensitivity] ON\n"), Info("[AE] Fully Auto, 1/60s, x100.00(40.0dB), F2.80\n"),
                  Info("[ExpComp] ON, x1.41(3.0dB)\n"), Info("[AWB] Auto, (Rgain, Bgain) = (0xc5, 0x3a)\n")));
  EXPECT_THAT(
      LinesOf(With(kCameraData, {{10, 15}}), kSnrMode60Hz, kHighSensitivityOff),
      ElementsAre(kSeparator, Info("[High Sensitivity] OFF\n"), Info("[AE] Fully Auto, 1/60s, x25.12(28.0dB), F2.80\n"),
                  Info("[ExpComp] ON, x1.41(3.0dB)\n"), Info("[AWB] Auto, (Rgain, Bgain) = (0xc5, 0x3a)\n")));
}

TEST_F(ReportsExposure, LeavesOutAnyOtherHighSensitivityState) {
  for (const int state : {0, 1, 4, 255}) {
    EXPECT_THAT(LinesOf(With(kCameraData, {{10, 15}}), kSnrMode60Hz, {0x90, 0x50, static_cast<uint8_t>(state), 0xFF}),
                ElementsAre(kSeparator, Info("[AE] Fully Auto, 1/60s, x25.12(28.0dB), F2.80\n"),
                            Info("[ExpComp] ON, x1.41(3.0dB)\n"), Info("[AWB] Auto, (Rgain, Bgain) = (0xc5, 0x3a)\n")))
        << state;
  }
}

TEST_F(ReportsExposure, ShowsEveryGain) {
  constexpr const char* kGains[] = {"x0.71(-3.0dB)",  "x1.00(0.0dB)",   "x1.26(2.0dB)",   "x1.58(4.0dB)",
                                    "x2.00(6.0dB)",   "x2.51(8.0dB)",   "x3.16(10.0dB)",  "x3.98(12.0dB)",
                                    "x5.01(14.0dB)",  "x6.31(16.0dB)",  "x7.94(18.0dB)",  "x10.00(20.0dB)",
                                    "x12.59(22.0dB)", "x15.85(24.0dB)", "x19.95(26.0dB)", "x25.12(28.0dB)"};
  for (uint8_t position = 0; position < 16; ++position) {
    EXPECT_EQ(LinesWith({{10, position}}).at(2),
              Info(std::string("[AE] Fully Auto, 1/60s, ") + kGains[position] + ", F2.80\n"));
  }
}

TEST_F(ReportsExposure, ShowsEveryFNumber) {
  constexpr const char* kFNumbers[] = {"14.00", "11.00", "9.60", "8.00", "6.80", "5.60", "4.80",
                                       "4.00",  "3.40",  "2.80", "2.40", "2.00", "1.60"};
  EXPECT_EQ(LinesWith({{9, 0}}).at(2), Info("[AE] Fully Auto, 1/60s, x2.51(8.0dB), F360.00\n"));
  for (uint8_t position = 5; position < 18; ++position) {
    EXPECT_EQ(LinesWith({{9, position}}).at(2),
              Info(std::string("[AE] Fully Auto, 1/60s, x2.51(8.0dB), F") + kFNumbers[position - 5] + "\n"));
  }
}

TEST_F(ReportsExposure, FailsOnAnIrisPositionWithoutANumber) {
  for (const int position : {1, 2, 3, 4, 18, 19, 30, 31}) {
    EXPECT_THAT(LinesWith({{9, static_cast<uint8_t>(position)}}, -99),
                ElementsAre(kSeparator, Info("[High Sensitivity] OFF\n"), Err("SnrQM2150_IrisPos2Fno failed!\n"),
                            Err("GetCameraControlInquiry failed!\n")));
  }
}

TEST_F(ReportsExposure, NamesEveryExposureMode) {
  const std::map<uint8_t, const char*> names = {
      {0x0, "Fully Auto"}, {0x3, "Manual"}, {0xA, "Shutter Priority"}, {0xB, "Iris Priority"}, {0xD, "Bright"}};
  for (const auto& [mode, name] : names) {
    EXPECT_EQ(LinesWith({{6, mode}}).at(2), Info(std::string("[AE] ") + name + ", 1/60s, x2.51(8.0dB), F2.80\n"));
  }
}

TEST_F(ReportsExposure, FailsOnAnExposureModeWithoutAName) {
  for (const int mode : {0x1, 0x2, 0x4, 0x5, 0x6, 0x7, 0x8, 0x9, 0xC, 0xE, 0xF}) {
    EXPECT_THAT(LinesWith({{6, static_cast<uint8_t>(mode)}}, -59),
                ElementsAre(kSeparator, Info("[High Sensitivity] OFF\n"), Err("SnrQM2150_AeMode2Str failed!\n"),
                            Err("GetCameraControlInquiry failed!\n")));
  }
}

TEST_F(ReportsExposure, ShowsEveryExposureCompensation) {
  constexpr const char* kGains[] = {"x0.30(-10.5dB)", "x0.35(-9.0dB)", "x0.42(-7.5dB)", "x0.50(-6.0dB)",
                                    "x0.60(-4.5dB)",  "x0.71(-3.0dB)", "x0.84(-1.5dB)", "x1.00(0.0dB)",
                                    "x1.19(1.5dB)",   "x1.41(3.0dB)",  "x1.68(4.5dB)",  "x2.00(6.0dB)",
                                    "x2.37(7.5dB)",   "x2.82(9.0dB)",  "x3.35(10.5dB)"};
  for (uint8_t position = 0; position < 15; ++position) {
    EXPECT_EQ(LinesWith({{12, position}, {7, 0x02}}).at(3),
              Info(std::string("[ExpComp] ON, ") + kGains[position] + "\n"));
    EXPECT_EQ(LinesWith({{12, position}, {7, 0x00}}).at(3),
              Info(std::string("[ExpComp] OFF, ") + kGains[position] + "\n"));
  }
}

TEST_F(ReportsExposure, FailsOnExposureCompensation15) {
  EXPECT_THAT(
      LinesWith({{12, 15}}, -59),
      ElementsAre(kSeparator, Info("[High Sensitivity] OFF\n"), Info("[AE] Fully Auto, 1/60s, x2.51(8.0dB), F2.80\n"),
                  Err("SnrQM2150_ExpCompPos2Db failed!\n"), Err("GetCameraControlInquiry failed!\n")));
}

TEST_F(ReportsExposure, NamesEveryWhiteBalanceMode) {
  constexpr const char* kNames[] = {"Auto",   "Indoor",       "Outdoor",          "One Push WB", "ATW",
                                    "Manual", "Outdoor Auto", "Sodium Lamp Auto", "Sodium Lamp"};
  for (uint8_t mode = 0; mode < 9; ++mode) {
    EXPECT_EQ(LinesWith({{4, mode}}).at(4),
              Info(std::string("[AWB] ") + kNames[mode] + ", (Rgain, Bgain) = (0xc5, 0x3a)\n"));
  }
  EXPECT_EQ(LinesWith({{0, 0}, {1, 7}, {2, 0}, {3, 0}}).at(4), Info("[AWB] Auto, (Rgain, Bgain) = (0x07, 0x00)\n"));
}

TEST_F(ReportsExposure, FailsOnAWhiteBalanceModeWithoutAName) {
  for (uint8_t mode = 9; mode < 16; ++mode) {
    EXPECT_THAT(LinesWith({{4, mode}}, -59),
                ElementsAre(kSeparator, Info("[High Sensitivity] OFF\n"),
                            Info("[AE] Fully Auto, 1/60s, x2.51(8.0dB), F2.80\n"), Info("[ExpComp] ON, x1.41(3.0dB)\n"),
                            Err("SnrQM2150_WbMode2Str failed!\n"), Err("GetCameraControlInquiry failed!\n")));
  }
}

TEST_F(ReportsExposure, FailsOnAGainPositionWithoutAValue) {
  ChangeRecord([] { gtCamControl.gainPos = 16; });
  EXPECT_THAT(LinesWith({}, -99),
              ElementsAre(kSeparator, Info("[High Sensitivity] OFF\n"), Err("SnrQM2150_GainPos2dB failed!\n"),
                          Err("GetCameraControlInquiry failed!\n")));
}

TEST_F(ReportsExposure, LeavesOutTheWordOfAnUnknownExposureCompensation) {
  ChangeRecord([] { gtCamControl.expComp = 2; });
  EXPECT_EQ(LinesWith({}).at(3), Info("[ExpComp] , x1.41(3.0dB)\n"));
}

// The second exchange reads the sensor mode, the third the high sensitivity.
TEST_F(ReportsExposure, EndsWhenTheSecondOrThirdExchangeFails) {
  for (const int exchange : {2, 3}) {
    for (const Fault& fault : InquiryFaults()) {
      SCOPED_TRACE(fault.name);
      os.Reply(Completed(kCameraData));
      if (exchange == 3) {
        os.Reply(kSnrMode50Hz);
      }
      os.On("msgrcv", 2 * (exchange - 1), [&] {  // the receive that gets the previous reply
        fault.arrange(os, exchange == 2 ? kSnrMode50Hz : kHighSensitivityOn);
      });
      EXPECT_EQ(Report(1), fault.result);
      EXPECT_THAT(LinesAbove(ReportLines(os), fault, static_cast<size_t>(exchange) - 1),
                  ElementsAre(Err("QM2150_GetCameraControl failed!\n"), Err("GetCameraControlInquiry failed!\n")));
      EXPECT_LE(os.Requests().size(), static_cast<size_t>(exchange));
      StartOver();
    }
  }
}

TEST_F(ReportsExposure, EndsOnABadReplyToTheHighSensitivity) {
  for (const Bytes& bad : {Bytes{0x90, 0x60, 0x02, 0xFF}, Bytes{0x90, 0x50, 0x02, 0x02, 0xFF}}) {
    const std::vector<LogLine> lines = LinesOf(kCameraData, kSnrMode60Hz, bad, -59);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[lines.size() - 2], Err("QM2150_GetCameraControl failed!\n"));
    EXPECT_EQ(lines[lines.size() - 1], Err("GetCameraControlInquiry failed!\n"));
    EXPECT_THAT(lines, testing::Not(testing::Contains(kSeparator)));
  }
}

TEST_F(ReportsExposure, IsCompleteWhenStoppedAfterTheLastReply) {
  os.StopAt("msgrcv", 6);
  Answer(os, kReports[1]);
  EXPECT_EQ(Report(1), 0);
  EXPECT_EQ(ReportLines(os), kReports[1].lines);
}

TEST_F(ReportsExposure, FillsItsGlobalRecord) {
  LinesWith({});
  EXPECT_EQ(gtCamControl.rGain, 0xC5);
  EXPECT_EQ(gtCamControl.expCompPos, 9);
}

// --- Report 2: day/night ---

using ReportsDayNight = Reports;

TEST_F(ReportsDayNight, NamesEveryCombination) {
  struct {
    uint8_t d0, d1;
    const char* line;
  } const cases[] = {
      {0x00, 0x00, "[DN] [Auto_ICR] OFF, [ICR] OFF (IR_CUT)\n"},
      {0x00, 0x10, "[DN] [Auto_ICR] OFF, [ICR] ON (IR_PASS)\n"},
      {0x04, 0x00, "[DN] [Auto_ICR] ON, [ICR] OFF (IR_CUT)\n"},
      {0x04, 0x10, "[DN] [Auto_ICR] ON, [ICR] ON (IR_PASS)\n"},
  };
  for (const auto& [d0, d1, line] : cases) {
    os.Forget();
    os.Reply(Completed(With(Bytes(13), {{0, d0}, {1, d1}})));
    EXPECT_EQ(Report(2), 0);
    EXPECT_THAT(ReportLines(os), ElementsAre(kSeparator, Err(line)));
    EXPECT_EQ(gtOtherControl.icr, d1 >> 4);
  }
}

TEST_F(ReportsDayNight, LeavesOutValuesWithoutAWord) {
  ChangeRecord([] { gtOtherControl.autoIcr = 2; });
  os.Reply(Completed(kOtherData));
  EXPECT_EQ(Report(2), 0);
  EXPECT_THAT(ReportLines(os), ElementsAre(kSeparator, Err("[DN] [Auto_ICR] [ICR] OFF (IR_CUT)\n")));
  os.Forget();
  ChangeRecord([] { gtOtherControl.icr = 2; });
  os.Reply(Completed(kOtherData));
  EXPECT_EQ(Report(2), 0);
  EXPECT_THAT(ReportLines(os), ElementsAre(kSeparator, Err("[DN] [Auto_ICR] ON, [ICR]\n")));
}

// --- Report 3: digital zoom, high sensitivity, gain limit, noise reduction ---

class ReportsEnlarged : public Reports {
 protected:
  std::vector<LogLine> LinesWith(const std::map<size_t, uint8_t>& changes, int result = 0) {
    os.Forget();
    os.Reply(Completed(With(kEnlarged1Data, changes)));
    EXPECT_EQ(Report(3), result);
    return ReportLines(os);
  }
  std::vector<LogLine> LinesOfZoom(unsigned position, int result = 0) {
    return LinesWith({{0, static_cast<uint8_t>(position >> 4)}, {1, static_cast<uint8_t>(position & 0xF)}}, result);
  }
};

TEST_F(ReportsEnlarged, ShowsTheDigitalZoom) {
  EXPECT_EQ(LinesOfZoom(0).at(1), Err("[Digital Zoom] x1.00\n"));
  EXPECT_EQ(LinesOfZoom(128).at(1), Err("[Digital Zoom] x2.00\n"));
  EXPECT_EQ(LinesOfZoom(149).at(1), Err("[Digital Zoom] x2.50\n"));
  EXPECT_EQ(LinesOfZoom(231).at(1), Err("[Digital Zoom] x10.50\n"));
  EXPECT_EQ(LinesOfZoom(235).at(1), Err("[Digital Zoom] x12.00\n"));
}

TEST_F(ReportsEnlarged, FailsOnADigitalZoomAbove235) {
  for (unsigned position = 236; position < 256; ++position) {
    EXPECT_THAT(LinesOfZoom(position, -59), ElementsAre(kSeparator, Err("SnrQM2150_DigitalZoom failed!\n"),
                                                        Err("GetEnlargeFun1Inquiry failed!\n")));
  }
}

TEST_F(ReportsEnlarged, ShowsEveryGainLimit) {
  constexpr const char* kLimits[] = {"x0.71(-3.0dB)",  "x1.00(0.0dB)",   "x1.26(2.0dB)",   "x1.58(4.0dB)",
                                     "x2.00(6.0dB)",   "x2.51(8.0dB)",   "x3.16(10.0dB)",  "x3.98(12.0dB)",
                                     "x5.01(14.0dB)",  "x6.31(16.0dB)",  "x7.94(18.0dB)",  "x10.00(20.0dB)",
                                     "x12.59(22.0dB)", "x15.85(24.0dB)", "x19.95(26.0dB)", "x25.12(28.0dB)"};
  constexpr const char* kSensitive[] = {"x19.95(26.0dB)", "x25.12(28.0dB)", "x44.67(33.0dB)", "x56.23(35.0dB)",
                                        "x100.00(40.0dB)"};  // from position 11 on
  for (uint8_t limit = 0; limit < 16; ++limit) {
    const std::string plain = std::string("[Gain Limit] ") + kLimits[limit] + "\n";
    const std::string sensitive = limit < 11 ? plain : std::string("[Gain Limit] ") + kSensitive[limit - 11] + "\n";
    EXPECT_THAT(LinesWith({{11, 0x05}, {12, limit}}),
                ElementsAre(kSeparator, Err("[Digital Zoom] x2.50\n"), Info("[High Sensitivity] OFF\n"), Info(plain),
                            Info("[NR] ON, Level: 5\n")));
    EXPECT_THAT(LinesWith({{11, 0x0D}, {12, limit}}),
                ElementsAre(kSeparator, Err("[Digital Zoom] x2.50\n"), Info("[High Sensitivity] ON\n"), Info(sensitive),
                            Info("[NR] ON, Level: 5\n")));
  }
}

TEST_F(ReportsEnlarged, ShowsTheNoiseReductionLevel) {
  constexpr const char* kLines[] = {"[NR] OFF\n",          "[NR] ON, Level: 1\n", "[NR] ON, Level: 2\n",
                                    "[NR] ON, Level: 3\n", "[NR] ON, Level: 4\n", "[NR] ON, Level: 5\n",
                                    "[NR] ON, Level: 6\n", "[NR] ON, Level: 7\n"};
  for (uint8_t level = 0; level < 8; ++level) {
    EXPECT_EQ(LinesWith({{11, level}}).at(4), Info(kLines[level]));
  }
}

TEST_F(ReportsEnlarged, TreatsAnUnknownHighSensitivityModeAsOff) {
  ChangeRecord([] { gtEnlargeFun1.highSensitivityMode = 2; });
  EXPECT_THAT(LinesWith({}), ElementsAre(kSeparator, Err("[Digital Zoom] x2.50\n"), Info("[High Sensitivity] \n"),
                                         Info("[Gain Limit] x25.12(28.0dB)\n"), Info("[NR] ON, Level: 5\n")));
}

TEST_F(ReportsEnlarged, FailsOnAGainLimitWithoutAValue) {
  ChangeRecord([] { gtEnlargeFun1.gainLimit = 16; });
  EXPECT_THAT(LinesWith({}, -99),
              ElementsAre(kSeparator, Err("[Digital Zoom] x2.50\n"), Info("[High Sensitivity] ON\n"),
                          Err("SnrQM2150_GainPos2dB failed!\n"), Err("GetEnlargeFun1Inquiry failed!\n")));
}

TEST_F(ReportsEnlarged, CalledDirectlyHasNoLineForItsFailure) {
  os.Reply(Completed(With(kEnlarged1Data, {{0, 0xF}, {1, 0xF}})));
  EXPECT_EQ(GetEnlargeFun1Inquiry(), -59);
  EXPECT_THAT(ReportLines(os), ElementsAre(kSeparator, Err("SnrQM2150_DigitalZoom failed!\n")));
}

TEST_F(ReportsEnlarged, CalledDirectlyEndsWhenTheBlockFails) {
  os.Reply(Completed(Bytes(14)));
  EXPECT_EQ(GetEnlargeFun1Inquiry(), -59);
  EXPECT_THAT(os.Log(), ElementsAre(_, Err("QM2150_GetEnlargeFunction1 failed!\n")));
}

TEST_F(ReportsEnlarged, CalledDirectlyShowsItsExample) {
  os.Reply(kReports[3].replies[0]);
  EXPECT_EQ(GetEnlargeFun1Inquiry(), 0);
  EXPECT_EQ(ReportLines(os), kReports[3].lines);
  EXPECT_EQ(gtEnlargeFun1.digitalZoomPos, 149);
}

// --- Report 4: wide dynamic range ---

class ReportsWideDynamicRange : public Reports {
 protected:
  std::vector<LogLine> LinesWith(const std::map<size_t, uint8_t>& changes) {
    os.Forget();
    os.Reply(Completed(With(kEnlarged2Data, changes)));
    EXPECT_EQ(Report(4), 0);
    return ReportLines(os);
  }
};

TEST_F(ReportsWideDynamicRange, NamesTheMode) {
  constexpr const char* kLines[] = {"[WideD mode] OFF\n",
                                    "[WideD mode] ON\n",
                                    "[WideD mode] Auto ON/OFF\n",
                                    "[WideD mode] ON (Exposure Ratio)\n",
                                    "[WideD mode] ON (Histogram)\n",
                                    "[WideD mode]\n",
                                    "[WideD mode]\n",
                                    "[WideD mode]\n"};
  for (uint8_t mode = 0; mode < 8; ++mode) {
    EXPECT_EQ(LinesWith({{0, mode}}).at(1), Info(kLines[mode]));
  }
}

TEST_F(ReportsWideDynamicRange, NamesTheDetectionSensitivity) {
  constexpr const char* kLines[] = {"[WideD detection sensitivity] L\n", "[WideD detection sensitivity] M\n",
                                    "[WideD detection sensitivity] H\n", "[WideD detection sensitivity]\n"};
  for (uint8_t value = 0; value < 4; ++value) {
    EXPECT_EQ(LinesWith({{1, value}}).at(2), Info(kLines[value]));
  }
}

TEST_F(ReportsWideDynamicRange, NamesTheShadowCorrectionLevel) {
  constexpr const char* kLines[] = {
      "[WideD blocked-up shadow correction level] L\n", "[WideD blocked-up shadow correction level] M\n",
      "[WideD blocked-up shadow correction level] H\n", "[WideD blocked-up shadow correction level] S\n"};
  for (uint8_t value = 0; value < 4; ++value) {
    EXPECT_EQ(LinesWith({{2, static_cast<uint8_t>(value << 2)}}).at(3), Info(kLines[value]));
  }
}

TEST_F(ReportsWideDynamicRange, NamesTheHighlightCorrectionLevel) {
  constexpr const char* kLines[] = {
      "[WideD blown-out hoghlight correction level] L\n", "[WideD blown-out hoghlight correction level] M\n",
      "[WideD blown-out hoghlight correction level] H\n", "[WideD blown-out hoghlight correction level]\n"};
  for (uint8_t value = 0; value < 4; ++value) {
    EXPECT_EQ(LinesWith({{2, value}}).at(4), Info(kLines[value]));
  }
}

TEST_F(ReportsWideDynamicRange, ShowsTheShortExposureRatio) {
  EXPECT_EQ(LinesWith({{3, 0x0}, {4, 0x0}}).at(5), Info("[WideD short exposure Exposure ratio] x00\n"));
  EXPECT_EQ(LinesWith({{3, 0x0}, {4, 0x7}}).at(5), Info("[WideD short exposure Exposure ratio] x07\n"));
  EXPECT_EQ(LinesWith({{3, 0x1}, {4, 0x0}}).at(5), Info("[WideD short exposure Exposure ratio] x16\n"));
  EXPECT_EQ(LinesWith({{3, 0x6}, {4, 0x4}}).at(5), Info("[WideD short exposure Exposure ratio] x100\n"));
  EXPECT_EQ(LinesWith({{3, 0xF}, {4, 0xF}}).at(5), Info("[WideD short exposure Exposure ratio] x255\n"));
}

TEST_F(ReportsWideDynamicRange, LeavesOutValuesWithoutAWord) {
  ChangeRecord([] { memset(&gtEnlargeFun2, 0xFF, sizeof gtEnlargeFun2); });
  EXPECT_THAT(LinesWith({}),
              ElementsAre(Info("===================================================\n"), Info("[WideD mode]\n"),
                          Info("[WideD detection sensitivity]\n"), Info("[WideD blocked-up shadow correction level]\n"),
                          Info("[WideD blown-out hoghlight correction level]\n"),
                          Info("[WideD short exposure Exposure ratio] x255\n")));
}

TEST_F(ReportsWideDynamicRange, LeavesOutTheScreenDisplay) {
  const std::vector<LogLine> expected = LinesWith({{1, 0x01}});
  EXPECT_EQ(expected.size(), 6U);
  for (uint8_t display = 1; display < 4; ++display) {
    EXPECT_EQ(LinesWith({{1, static_cast<uint8_t>(display << 2 | 0x01)}}), expected);
  }
}

TEST_F(ReportsWideDynamicRange, CalledDirectlyHasNoLineForItsFailure) {
  os.Reply({0x90, 0x60, 0x05, 0xFF});
  EXPECT_EQ(GetEnlargeFun2Inquiry(), -59);
  EXPECT_THAT(os.Log(), ElementsAre(_, _, Err("QM2150_GetEnlargeFunction2 failed!\n")));
}

TEST_F(ReportsWideDynamicRange, CalledDirectlyShowsItsExample) {
  os.Reply(kReports[4].replies[0]);
  EXPECT_EQ(GetEnlargeFun2Inquiry(), 0);
  EXPECT_EQ(ReportLines(os), kReports[4].lines);
  EXPECT_EQ(gtEnlargeFun2.wideDShortExposureRatio, 7);
}

// --- Raw inquiry ---

class ReportsRawInquiry : public Linked {
 protected:
  int Inquire(int category, const Bytes& data) {
    giCategoryCode = category;
    giArgv1 = static_cast<int>(data.size());
    memset(gbArgv, 0, sizeof gbArgv);
    std::copy(data.begin(), data.end(), gbArgv);  // at most 16
    return Inquiry();
  }
};

TEST_F(ReportsRawInquiry, PrintsTheReply) {
  os.Reply({0x90, 0x50, 0x02, 0xFF});
  EXPECT_EQ(Inquire(0x04, {0x00}), 0);
  EXPECT_EQ(os.Output(), "Inquiry Packet: 90 50 02 ff\n");
  EXPECT_THAT(os.Log(), IsEmpty());
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x04, 0x00, 0xFF}));
}

TEST_F(ReportsRawInquiry, PrintsTwoDataBytes) {
  os.Reply({0x90, 0x50, 0x00, 0x06, 0xFF});
  EXPECT_EQ(Inquire(0x04, {0x24, 0x72}), 0);
  EXPECT_EQ(os.Output(), "Inquiry Packet: 90 50 00 06 ff\n");
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x04, 0x24, 0x72, 0xFF}));
}

TEST_F(ReportsRawInquiry, PrintsTheLongestReply) {
  os.Reply(Completed({0xA0, 0xB1, 0xC2, 0xD3, 0xE4, 0xF5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
  EXPECT_EQ(Inquire(0x7E, {0x7E, 0x00}), 0);
  EXPECT_EQ(os.Output(), "Inquiry Packet: 90 50 a0 b1 c2 d3 e4 f5 06 07 08 09 0a 0b 0c 0d 0e 0f ff\n");
}

TEST_F(ReportsRawInquiry, PrintsAReplyWithoutData) {
  os.Reply({0x90, 0x41, 0xFF});
  EXPECT_EQ(Inquire(0x04, {0x00}), 0);
  EXPECT_EQ(os.Output(), "Inquiry Packet: 90 41 ff\n");
}

TEST_F(ReportsRawInquiry, Takes0To12DataBytes) {
  os.device = [&](const Request& request) { os.Answer(request, {0x90, 0x50, 0x00, 0xFF}); };
  Bytes data;
  for (uint8_t count = 0; count <= 12; ++count) {
    os.Forget();
    EXPECT_EQ(Inquire(0x06, data), 0);
    Bytes packet = {0x81, 0x09, 0x06};
    packet.insert(packet.end(), data.begin(), data.end());
    packet.push_back(0xFF);
    EXPECT_THAT(os.Packets(), ElementsAre(packet));
    data.push_back(static_cast<uint8_t>(0x10 + count));
  }
}

TEST_F(ReportsRawInquiry, TakesTheLowBytesOfCategoryAndCount) {
  os.device = [&](const Request& request) { os.Answer(request, {0x90, 0x50, 0x00, 0xFF}); };
  giCategoryCode = -1;
  giArgv1 = 257;
  gbArgv[0] = 0x11;
  EXPECT_EQ(Inquiry(), 0);
  giCategoryCode = 255;
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0xFF, 0x11, 0xFF}, Bytes{0x81, 0x09, 0xFF, 0x11, 0xFF}));
}

TEST_F(ReportsRawInquiry, RefusesCategory256) {
  for (const int category : {256, 257, 260, 2147483647}) {
    os.Forget();
    EXPECT_EQ(Inquire(category, {0x00}), -1);
    EXPECT_THAT(os.Log(), ElementsAre(Err("Inquiry Category Code is not supported.\n")));
    EXPECT_THAT(os.Requests(), IsEmpty());
    EXPECT_EQ(os.Output(), "");
  }
}

TEST_F(ReportsRawInquiry, RefusesTooManyDataBytes) {
  EXPECT_EQ(Inquire(0x04, Bytes(13)), -1);
  EXPECT_EQ(os.Log().back(), Err("SnrQM2150_Inquiry failed!\n"));
  giArgv1 = 17;
  EXPECT_EQ(Inquiry(), -1);
  EXPECT_EQ(os.Log().back(), Err("SnrQM2150_Inquiry failed!\n"));
  EXPECT_THAT(os.Requests(), IsEmpty());
}

TEST_F(ReportsRawInquiry, FailsOnAnErrorReply) {
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(Inquire(0x04, {0x99}), -1);
  EXPECT_THAT(os.Log(), ElementsAre(_, _, Err("SnrQM2150_Inquiry failed!\n")));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(ReportsRawInquiry, LogsItsOwnLineForEveryFailureEvenWhenStopped) {
  for (const Fault& fault : InquiryFaults()) {
    SCOPED_TRACE(fault.name);
    fault.arrange(os, {0x90, 0x50, 0x02, 0xFF});
    EXPECT_EQ(Inquire(0x04, {0x00}), -1);
    EXPECT_THAT(LinesAbove(os.Log(), fault, 2), ElementsAre(Err("SnrQM2150_Inquiry failed!\n")));
    EXPECT_EQ(os.Output(), "");
    StartOver();
  }
}

}  // namespace
