// Reports, raw inquiries and raw commands as runs of the whole program, from banner to banner.
#include "tests/fakeos/Fixtures.h"
#include "tests/unit/ReportExamples.h"

namespace {

class ReportsRun : public Machine {
 protected:
  // Returns all lines of a run whose action logs these lines and has this many exchanges.
  static std::vector<LogLine> Whole(const std::vector<LogLine>& lines, int exchanges) {
    return std::vector<LogLine>({kSeparator, Info("Start testZR4410 (v" ZR4410_VERSION ")."), kSeparator}) + lines +
           std::vector<LogLine>({Info("Delta Time (ms) : " + std::to_string(exchanges * kPollMs) + "\n"), kSeparator,
                                 Info("Finish testZR4410 (v" ZR4410_VERSION ")."), kSeparator});
  }
};

class ReportsRunEach : public ReportsRun, public testing::WithParamInterface<ReportExample> {};

INSTANTIATE_TEST_SUITE_P(All, ReportsRunEach, testing::ValuesIn(kReports),
                         [](const auto& test) { return std::to_string(test.param.number); });

TEST_P(ReportsRunEach, ShowsItsExample) {
  const ReportExample& report = GetParam();
  Answer(os, report);
  EXPECT_EQ(RunProgram({"-y", std::to_string(report.number)}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole(report.lines, static_cast<int>(report.packets.size())));
  EXPECT_EQ(os.Output(), report.output);
  EXPECT_EQ(os.Packets(), report.packets);
  EXPECT_EQ(os.Unused(), 0U);
}

TEST_P(ReportsRunEach, TakesTheLongOption) {
  const ReportExample& report = GetParam();
  Answer(os, report);
  EXPECT_EQ(RunProgram({"--sys", std::to_string(report.number)}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole(report.lines, static_cast<int>(report.packets.size())));
}

TEST_P(ReportsRunEach, HasTheSameReportLinesWithTheDebugFlag) {
  const ReportExample& report = GetParam();
  Answer(os, report);
  EXPECT_EQ(RunProgram({"-y", std::to_string(report.number), "-g"}).status, 0);
  std::vector<LogLine> lines = os.Log();
  std::erase_if(lines, [](const LogLine& line) { return line.level == 7; });  // the lines with the two queue keys
  EXPECT_EQ(os.Log().size() - lines.size(), 2U);
  EXPECT_EQ(WithoutFields(lines), Whole(report.lines, static_cast<int>(report.packets.size())));
}

TEST_P(ReportsRunEach, FailsWithStatus0) {
  os.device = [](const Request&) {};
  EXPECT_EQ(RunProgram({"-y", std::to_string(GetParam().number)}).status, 0);
  EXPECT_THAT(os.Log(), testing::Contains(Info("Delta Time (ms) : " + std::to_string(kTimeOutMs) + "\n")));
  EXPECT_THAT(os.Log(), testing::Contains(testing::Field(&LogLine::level, 3)));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(ReportsRun, LogsCompletionsIfTheSettingsSaySo) {
  os.files["/sysconf/conf.img"] = "EXT_DEBUG=32768\n";
  os.Reply(kReports[2].replies[0]);
  EXPECT_EQ(RunProgram({"-y", "2"}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole(std::vector<LogLine>({Debug("VISCA RESP ACK!\n")}) + kReports[2].lines, 1));
}

TEST_F(ReportsRun, AnUnknownReportNumberSendsAndPrintsNothing) {
  const std::string next = std::to_string(std::size(kReports));
  for (const std::string& number :
       std::vector<std::string>{"-1", next, "2147483647", "2147483648", "4294967291", "-2147483648"}) {
    os.Forget();
    EXPECT_EQ(RunProgram({"-y", number}).status, 0);
    EXPECT_EQ(ReportLines(os), Whole({}, 0)) << number;
    EXPECT_THAT(os.Requests(), IsEmpty());
    EXPECT_EQ(os.Output(), "");
  }
}

// --- Raw inquiry ---

TEST_F(ReportsRun, ARawPowerInquiryPrintsItsReply) {
  os.Reply({0x90, 0x50, 0x02, 0xFF});
  EXPECT_EQ(RunProgram({"-i", "04", "00"}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole({}, 1));
  EXPECT_EQ(os.Output(), "Inquiry Packet: 90 50 02 ff\n");
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x04, 0x00, 0xFF}));
}

TEST_F(ReportsRun, ARawSensorModeInquiryPrintsItsReply) {
  os.Reply({0x90, 0x50, 0x00, 0x06, 0xFF});
  EXPECT_EQ(RunProgram({"--inq", "04", "2472"}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole({}, 1));
  EXPECT_EQ(os.Output(), "Inquiry Packet: 90 50 00 06 ff\n");
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x04, 0x24, 0x72, 0xFF}));
}

TEST_F(ReportsRun, ARawBlockInquiryPrintsItsReply) {
  os.Reply(Completed(kLensData));
  EXPECT_EQ(RunProgram({"-i", "7E", "7E00"}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole({}, 1));
  EXPECT_EQ(os.Output(), "Inquiry Packet: 90 50 02 00 00 00 0d 00 05 00 00 00 00 03 00 ff\n");
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x7E, 0x7E, 0x00, 0xFF}));
}

TEST_F(ReportsRun, AFailedRawInquiryIsLogged) {
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(RunProgram({"-i", "04", "99"}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole({Err("VISCA RESP: Syntax error.\n"), Err("QM2150_ChecRespVisca fail!\n"),
                                    Err("SnrQM2150_Inquiry failed!\n")},
                                   1));
  EXPECT_EQ(os.Output(), "");
}

// --- Raw command ---

TEST_F(ReportsRun, ARawCommandIsSentAndLogged) {
  os.Reply({0x10});
  EXPECT_EQ(RunProgram({"-c", "0002"}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole({Info("Send Command OK!\n")}, 1));
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x00, 0x02, 0xFF}));
}

TEST_F(ReportsRun, ARefusedRawCommandIsLogged) {
  os.Reply({0x40});
  EXPECT_EQ(RunProgram({"--cmd", "043903"}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole({Err("SnrQM2150_Command failed!\n")}, 1));
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x04, 0x39, 0x03, 0xFF}));
}

TEST_F(ReportsRun, AnEmptyRawCommandIsSent) {
  os.Reply({0x10});
  EXPECT_EQ(RunProgram({"-c", ""}).status, 0);
  EXPECT_EQ(ReportLines(os), Whole({Info("Send Command OK!\n")}, 1));
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0xFF}));
}

}  // namespace
