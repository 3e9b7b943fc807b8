// The whole program, from the command line to the exit status.
#include <stdio_ext.h>

#include <cerrno>
#include <csignal>
#include <limits>

#include "tests/fakeos/Fixtures.h"

extern "C" {
extern RelayMessage gtMsgqRxBuf;
}

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kBanner[] = "===================================================";

const std::vector<LogLine> kStart = {Info(kBanner), Info("Start testZR4410 (v" ZR4410_VERSION ")."), Info(kBanner)};
const std::vector<LogLine> kFinish = {Info(kBanner), Info("Finish testZR4410 (v" ZR4410_VERSION ")."), Info(kBanner)};

LogLine DeltaLine(int64_t milliseconds) { return Info("Delta Time (ms) : " + std::to_string(milliseconds) + "\n"); }
std::vector<LogLine> Delta(int64_t milliseconds) { return {DeltaLine(milliseconds)}; }

// A message that arrives in the read loop.
const Bytes kMessage(36, 0xC3);
// How long the read loop sleeps before each poll of the reply queue, and after each message.
constexpr unsigned kPollUs = 1000 * kPollMs, kLoopUs = 1000;
const LogLine kLoopStart = Info("Start main loop."), kLoopFinish = Info("Finish main loop."),
              kLoopFailure = Err("ZR4410_MsgQ_Receive fail!\n");

class Program : public Machine {
 protected:
  // Resets everything to its state before the first run.
  void StartOver() {
    ResetProduct();
    os.Forget();
  }

  Ended RunAgain(std::vector<std::string> arguments) {
    StartOver();
    return RunProgram(std::move(arguments));
  }

  // Runs to a normal end and expects these lines between the banners.
  void ExpectLog(std::vector<std::string> arguments, const std::vector<LogLine>& lines) {
    const Ended run = RunProgram(std::move(arguments));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(os.Log(), kStart + lines + kFinish);
  }
};

// --- A run from start to finish ---

TEST_F(Program, WithoutAModeItOnlyOpensTheQueuesAndLogsTheTime) {
  for (const char* argument : {"-g", "--debug", "word"}) {
    StartOver();
    const std::vector<LogLine> keys = {Debug("MsgqClient keyTx = 0x62010042\n"),
                                       Debug("MsgqClient keyRx = 0x61010042\n")};
    ExpectLog({argument}, (*argument == '-' ? keys : std::vector<LogLine>{}) + Delta(0));
    EXPECT_EQ(os.Opened().size(), 2U);
    EXPECT_THAT(os.Requests(), IsEmpty());
    EXPECT_EQ(os.Output(), "");
  }
}

TEST_F(Program, ItsStepsComeInOrder) {
  os.files["/sysconf/conf.img"] = "EXT_DEBUG=5\n";
  os.Reply({0x23});
  EXPECT_EQ(RunProgram({"-m", "16", "0"}).status, 0);
  EXPECT_EQ(giDebug, 5);
  auto timeline = os.Timeline();
  std::erase_if(timeline, [](const std::string& event) { return event.starts_with("read "); });
  const std::string banner = Logged(Info(kBanner));
  EXPECT_THAT(timeline,
              ElementsAre(banner, Logged(kStart[1]), banner, "sigaction 2", "sigaction 15", "sigaction 10",
                          "sigaction 12", "sigaction 13", "open r /sysconf/conf.img", "close /sysconf/conf.img",
                          "ftok /defconf/conf.ptz b", "ftok /defconf/conf.ptz a", "msgget 98", "msgget 97",
                          "receive nothing", Sent({0xAA, 0xAA, 0x01, 0x06, 0xAA, 0x10, 0x01, 0x01, 0x44, 0x55}),
                          "sleep " + std::to_string(kPollUs), "receive 36", Logged(DeltaLine(kPollMs)), banner,
                          Logged(kFinish[1]), banner));
  EXPECT_EQ(os.Output(), "Version = 0x23\n");
  EXPECT_EQ(os.Calls("clock_gettime"), 3);  // start, receive, end
}

TEST_F(Program, HandlesFourSignalsAndIgnoresBrokenPipes) {
  EXPECT_EQ(RunProgram({"-g"}).status, 0);
  const int signals[] = {SIGINT, SIGTERM, SIGUSR1, SIGUSR2, SIGPIPE};
  ASSERT_EQ(os.Handlers().size(), 5U);
  for (size_t i = 0; i < 5; ++i) {
    const FakeOs::Handler& handler = os.Handlers()[i];
    EXPECT_EQ(handler.signal, signals[i]);
    EXPECT_EQ(handler.handler, handler.signal == SIGPIPE ? SIG_IGN : SignalHandler);
    EXPECT_EQ(handler.flags, 0);
    EXPECT_TRUE(handler.emptyMask);
    EXPECT_FALSE(handler.asksForOld);
  }
}

// During exit, a handler that logs could wait forever for a lock of libc.
TEST_F(Program, SignalsAreHeldBackAtTheEnd) {
  for (const char* option : {"-g", "-h"}) {
    EXPECT_TRUE(RunProgram({option}).signalsHeld) << option;
  }
  EXPECT_TRUE(RunProgram({"-c", "x"}).signalsHeld);
}

TEST_F(Program, ASignalAnywhereInTheFinishBannerIsLogged) {
  EXPECT_EQ(RunProgram({"-g"}).status, 0);
  const int lines = os.Calls("syslog");
  for (int line = lines - 2; line <= lines; ++line) {
    StartOver();
    os.On("syslog", line, [] { raise(SIGUSR1); });  // held back until the line is complete
    signal(SIGUSR1, SignalHandler);
    EXPECT_EQ(RunProgram({"-g"}).status, 0);
    signal(SIGUSR1, SIG_DFL);
    const auto& log = os.Log();
    EXPECT_EQ(log.at(static_cast<size_t>(line)), Debug("Catch SIGUSR1!")) << line;
    EXPECT_EQ(log.size(), static_cast<size_t>(lines) + 1);
  }
}

TEST_F(Program, StandardOutputIsLineBuffered) {
  EXPECT_EQ(RunProgram({"-g"}).status, 0);
  EXPECT_TRUE(__flbf(stdout));
}

TEST_F(Program, TheQueuesAreNeverRemoved) {
  EXPECT_EQ(RunProgram({"-g"}).status, 0);
  EXPECT_EQ(RunProgram({"-g"}).status, 0);
  EXPECT_EQ(giMsgIdTx, FakeOs::kRequestQueue);
  EXPECT_EQ(giMsgIdRx, FakeOs::kReplyQueue);
}

TEST_F(Program, TheDeltaIsTheTimeOfTheActionAlone) {
  os.AdvanceMs(123456);
  os.NoReply();
  ExpectLog({"-m", "12", "1"}, {Err("ZR4410_MsgQ_Receive failed!"), Err("MCU_ProcessUart1 failed!"),
                                Err("MCU_LensPowerControl fail!\n"), DeltaLine(kTimeOutMs)});
}

// --- Usage ---

TEST_F(Program, TheUsageEndsTheRunWithStatus0) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"-h"}, {"--help"}, {"-s", "1"}, {"-s", "1", "2", "3", "4"}, {"-r", "1", "2"}}) {
    const Ended run = RunAgain(arguments);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_THAT(os.Output(), StartsWith("Usage: testZR4410 [OPTION]\n\n -s 0 0 QM2150 Get Version\n"));
    EXPECT_EQ(os.Log(), kStart);
    EXPECT_THAT(os.Opened(), IsEmpty());
    EXPECT_THAT(os.FileSteps(), IsEmpty());
    EXPECT_EQ(os.Handlers().size(), 5U);
  }
}

TEST_F(Program, TheParserComplainsBeforeTheUsage) {
  struct Example {
    std::vector<std::string> arguments;
    const char* complaint;
  };
  for (const Example& example : {Example{{"-x"}, "testZR4410: invalid option -- 'x'\n"},
                                 Example{{"-m", "12", "-1"}, "testZR4410: invalid option -- '1'\n"},
                                 Example{{"-y"}, "testZR4410: option requires an argument -- 'y'\n"},
                                 Example{{"--sys"}, "testZR4410: option '--sys' requires an argument\n"},
                                 Example{{"--nonsense"}, "testZR4410: unrecognized option '--nonsense'\n"}}) {
    const Ended run = RunAgain(example.arguments);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, example.complaint);
    EXPECT_THAT(os.Output(), StartsWith("Usage: testZR4410 [OPTION]\n"));
    EXPECT_EQ(os.Log(), kStart);
    EXPECT_THAT(os.Opened(), IsEmpty());
  }
}

TEST_F(Program, NoOtherLetterOrDigitIsAnOption) {
  const std::string letters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabdefjklnopqtuvwxz";
  for (const char letter : letters) {
    EXPECT_EQ(RunAgain({std::string{'-', letter}}).errors,
              std::string("testZR4410: invalid option -- '") + letter + "'\n");
    EXPECT_EQ(os.Log(), kStart);
  }
}

TEST_F(Program, BadHexEndsWithMinusOneBeforeAnythingIsOpened) {
  struct Example {
    std::vector<std::string> arguments;
    const char* line;
  };
  for (const Example& example :
       {Example{{"-c", "12G4"}, "IsHexString failed!\n"},
        Example{{"-c", std::string(34, '1')}, "HexStr2Bytes failed!\n"},
        Example{{"-i", "xx", "00"}, "IsHexString failed!\n"}, Example{{"-i", "04", "0x"}, "IsHexString failed!\n"},
        Example{{"-i", "04", std::string(34, '1'), "-g"}, "HexStr2Bytes failed!\n"}}) {
    const Ended run = RunAgain(example.arguments);
    EXPECT_EQ(run.status, -1);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(os.Output(), "");
    EXPECT_EQ(os.Log(), kStart + std::vector<LogLine>{Err(example.line)});
    EXPECT_THAT(os.Opened(), IsEmpty());
    EXPECT_THAT(os.FileSteps(), IsEmpty());
  }
}

// --- Debug level ---

TEST_F(Program, TheDebugLevelIsADecimalNumberOf32Bits) {
  struct Example {
    std::string line;
    int32_t level;
  };
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  for (const Example& example :
       {Example{"EXT_DEBUG=32768\n", 32768}, Example{"EXT_DEBUG=\"7\"\n", 7}, Example{"EXT_DEBUG = 5\n", 5},
        Example{"EXT_DEBUG=0x8000\n", 0}, Example{"EXT_DEBUG=\n", 0}, Example{"EXT_DEBUG=yes\n", 0},
        Example{"EXT_DEBUG=-1\n", -1}, Example{"EXT_DEBUG=2147483647\n", kMost},
        Example{"EXT_DEBUG=2147483648\n", LowerHalfOrNearest(std::numeric_limits<int32_t>::min(), kMost)},
        Example{"EXT_DEBUG=4294967296\n", LowerHalfOrNearest(0, kMost)}, Example{"OTHER=5\n", 0},
        Example{"EXT_DEBUG=" + std::string(300, '9') + "\n", LowerHalfOrNearest(-1, kMost)},
        Example{"EXT_DEBUG=" + std::string(240, ' ') + "12\n", 12},
        Example{"EXT_DEBUG=\"" + std::string(243, 'x') + "\"\n", 0}, Example{"", 0}}) {
    StartOver();
    os.files["/sysconf/conf.img"] = example.line;
    giDebug = 99;
    ExpectLog({"word"}, Delta(0));
    EXPECT_EQ(giDebug, example.level) << example.line;
  }
}

TEST_F(Program, MissingSettingsAreLoggedAndTheRunContinues) {
  os.files.erase("/sysconf/conf.img");
  giDebug = 99;
  ExpectLog({"word"},
            std::vector<LogLine>{Err("can not open sysconf file /sysconf/conf.img.\n"), Err("sysconf_fget failed!\n")} +
                Delta(0));
  EXPECT_EQ(giDebug, 0);
}

TEST_F(Program, TheSettingsAreReadAndNotWritten) {
  os.files["/sysconf/conf.img"] = "#\nEXT_DEBUG=1\n";
  EXPECT_EQ(RunProgram({"-s", "1", "1"}).status, 0);
  EXPECT_EQ(os.files["/sysconf/conf.img"], "#\nEXT_DEBUG=1\n");
  EXPECT_EQ(os.OpenFiles(), 0U);
}

// --- Opening and timing ---

TEST_F(Program, WithoutQueuesThereIsNoActionAndNoTiming) {
  os.files.erase("/defconf/conf.ptz");
  ExpectLog({"-s", "0", "0"}, {Err("ftok keyTx failed!"), Err("ZR4410_MsgQ_Open fail!\n")});
  EXPECT_EQ(os.Calls("clock_gettime"), 0);
  EXPECT_THAT(os.Requests(), IsEmpty());
  EXPECT_EQ(os.Output(), "");
}

TEST_F(Program, OneOpenQueueIsAFailureToo) {
  os.Fail("msgget", ENOSPC, 2);
  ExpectLog({"-s", "1", "1"}, {Err("msgget giMsgIdRx failed!"), Err("ZR4410_MsgQ_Open fail!\n")});
  EXPECT_EQ(os.Output(), "");
}

TEST_F(Program, AClockFailureAtTheStartCountsFromZero) {
  os.Fail("clock_gettime", EINVAL, 1);
  ExpectLog({"word"}, std::vector<LogLine>{Info("GetMsFromStart failed!\n")} + Delta(100000));
  EXPECT_EQ(os.Output(), "clock_gettime failed.\n");
}

TEST_F(Program, AClockFailureAtTheEndCountsToZero) {
  os.Fail("clock_gettime", EINVAL, 2);
  ExpectLog({"word"}, std::vector<LogLine>{Info("GetMsFromStart failed!\n")} + Delta(-100000));
}

TEST_F(Program, TheDeltaIsASigned64BitNumber) {
  os.On("usleep", 1, [this] { os.SetClock(3'000'100'000'000'000); });
  os.Reply({0x10});
  ExpectLog({"-m", "12", "0"}, {DeltaLine(3'000'000'000 + kPollMs)});

  StartOver();
  os.SetClock(3'000'100'000'000'000);
  os.On("usleep", 1, [this] {
    os.SetClock(100'000'000'000);
    SetSigID(1);
  });
  ExpectLog({"-r"}, {kLoopStart, kLoopFinish, DeltaLine(-3'000'000'000 + kPollMs)});
}

// --- The modes; ReportsRunTest has raw packets and reports ---

TEST_F(Program, OptionSIsACameraAction) {
  os.Reply({0x90, 0x50, 0x00, 0x08, 0xFF});
  ExpectLog({"-s", "1", "0"}, Delta(kPollMs));
  EXPECT_EQ(os.Output(), "[GetSnrMode] 1080p 25fps\n");
}

TEST_F(Program, OptionMIsAnMcuCommand) {
  os.Reply({0x10});
  ExpectLog({"-m", "12", "0"}, Delta(kPollMs));
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x0C, 0x01, 0x00, 0x49, 0x55}));
}

TEST_F(Program, AFailedActionDoesNotChangeTheExitStatus) {
  ExpectLog({"-s", "3", "0"}, std::vector<LogLine>{Err("Command ID is not supported.\n")} + Delta(0));
  StartOver();
  ExpectLog({"-m", "0x10", "0"}, std::vector<LogLine>{Err("Command ID is not supported.\n")} + Delta(0));
}

TEST_F(Program, OptionCLogsACommandThatDoesNotFitTheFrame) {
  ExpectLog({"-c", "00112233445566778899AABBCC"},
            std::vector<LogLine>{Err("Len > VISCA_PACKET_MAX_LEN"), Err("QM2150_FillZR4410 failed!"),
                                 Err("QM2150_ProcessVisca failed!"), Err("SnrQM2150_Command failed!\n")} +
                Delta(0));
  EXPECT_THAT(os.Requests(), IsEmpty());
}

TEST_F(Program, OptionYSendsTheInquiryOfAReport) {
  EXPECT_EQ(RunProgram({"-y", "0"}).status, 0);
  ASSERT_FALSE(os.Packets().empty());
  EXPECT_EQ(os.Packets()[0], (Bytes{0x81, 0x09, 0x7E, 0x7E, 0x00, 0xFF}));
}

TEST_F(Program, AStopDuringAnActionStillFinishes) {
  os.SignalAt(700, SIGTERM);
  ExpectLog({"-s", "0", "0"}, {Debug("Catch SIGTERM!"), Err("QM2150_VersionInq fail!\n"), DeltaLine(700)});
}

TEST_F(Program, TheDebugFlagDumpsBothMessages) {
  os.Reply({0x23});
  EXPECT_EQ(RunProgram({"-m", "16", "0", "-g"}).status, 0);
  EXPECT_THAT(os.Output(), StartsWith("[testZR4410] client msgsnd:\n(36): \n"));
  EXPECT_THAT(os.Output(), HasSubstr("[testZR4410] client msgrcv:\n(40): \n"));
  EXPECT_THAT(os.Output(), testing::EndsWith("Version = 0x23\n"));
}

// --- The read loop ---

TEST_F(Program, TheReadLoopRunsUntilItIsStopped) {
  for (const auto& [signal, line] : {std::pair{SIGINT, "Catch SIGINT!"}, std::pair{SIGTERM, "Catch SIGTERM!"}}) {
    StartOver();
    os.SignalAt(5000, signal);
    ExpectLog({"-r"}, {kLoopStart, kLoopFailure, kLoopFailure, Debug(line), kLoopFinish, DeltaLine(5000)});
    EXPECT_EQ(os.Output(), "");
    EXPECT_THAT(os.Requests(), IsEmpty());
  }
}

TEST_F(Program, TheReadLoopContinuesAfterSigusr1AndSigusr2) {
  os.SignalAt(100, SIGUSR1);
  os.SignalAt(200, SIGUSR2);
  os.SignalAt(300, SIGTERM);
  ExpectLog({"-r"}, {kLoopStart, Debug("Catch SIGUSR1!"), Debug("Catch SIGUSR2!"), Debug("Catch SIGTERM!"), kLoopFinish,
                     DeltaLine(300)});
}

TEST_F(Program, TheReadLoopTakesMessagesSilently) {
  for (int i = 0; i < 3; ++i) {
    os.Arrive(kMessage, 10 + i);
  }
  os.SignalAt(500, SIGTERM);
  ExpectLog({"-r"}, {kLoopStart, Debug("Catch SIGTERM!"), kLoopFinish, DeltaLine(500)});
  EXPECT_EQ(os.Output(), "");
  EXPECT_EQ(os.Waiting(), 0U);
  EXPECT_EQ(std::vector<unsigned>(os.Slept().begin(), os.Slept().begin() + 6),
            (std::vector<unsigned>{kPollUs, kLoopUs, kPollUs, kLoopUs, kPollUs, kLoopUs}));
}

TEST_F(Program, TheReadLoopDumpsMessagesWithTheDebugFlag) {
  os.Arrive(kMessage, 10);
  os.SignalAt(80, SIGTERM);
  EXPECT_EQ(RunProgram({"-r", "-g"}).status, 0);
  EXPECT_THAT(os.Output(), StartsWith("[testZR4410] client msgrcv:\n(40): \n"));
  EXPECT_THAT(os.Output(), testing::EndsWith(" C3 \nC3 C3 C3 C3 C3 C3 C3 C3 \n"));
}

TEST_F(Program, TheReadLoopClearsItsBufferBeforeEachMessage) {
  os.Arrive(kMessage, 10);
  os.Arrive(Bytes(4, 0xD4), 60);
  os.On("msgrcv", 3, [] {
    EXPECT_EQ(gtMsgqRxBuf.type, 0);
    EXPECT_EQ(gtMsgqRxBuf.body[35], 0x00);
    SetSigID(1);
  });
  EXPECT_EQ(RunProgram({"-r"}).status, 0);
  EXPECT_EQ(os.Calls("msgrcv"), 3);
}

TEST_F(Program, TheReadLoopLogsEveryBadMessage) {
  os.Arrive(Bytes(35), 10);
  os.On("usleep", 4, [this] { os.Fail("msgrcv", EIDRM); });
  os.StopAt("usleep", 6);
  EXPECT_EQ(RunProgram({"-r"}).status, 0);
  ASSERT_GE(os.Log().size(), 6U);
  EXPECT_THAT(os.Log()[4].text, StartsWith("msgrcv len failed(35)!"));
  EXPECT_EQ(os.Log()[5], kLoopFailure);
}

TEST_F(Program, TheReadLoopSeesAStopBeforeItsFirstMessage) {
  os.Arrive(Bytes(36), 0);
  SetSigID(1);
  ExpectLog({"-r"}, {kLoopStart, kLoopFinish, DeltaLine(0)});
  EXPECT_EQ(os.Waiting(), 1U);
  EXPECT_THAT(os.Slept(), IsEmpty());
}

TEST_F(Program, AStopDuringTheReceiveEndsTheLoopWithoutAnErrorOrASleep) {
  os.Arrive(Bytes(36), 10);
  os.StopAt("msgrcv", 1);  // the message is taken, then the flag is seen
  ExpectLog({"-r"}, {kLoopStart, kLoopFinish, DeltaLine(kPollMs)});
  EXPECT_THAT(os.Slept(), ElementsAre(kPollUs));
}

TEST_F(Program, OnlyAStopFlagOfOneEndsTheReadLoop) {
  SetSigID(2);
  os.Arrive(kMessage, 10);
  os.StopAt("usleep", 2);  // in the loop's own sleep
  ExpectLog({"-r"}, {kLoopStart, kLoopFinish, DeltaLine(kPollMs + 1)});
  EXPECT_THAT(os.Slept(), ElementsAre(kPollUs, kLoopUs));
  EXPECT_EQ(os.Waiting(), 0U);
}

TEST_F(Program, TenThousandSignalsDoNotEndTheReadLoop) {
  for (int i = 1; i <= 10000; ++i) {
    os.SignalAt(i, i % 2 ? SIGUSR1 : SIGUSR2);
  }
  os.SignalAt(10001, SIGTERM);
  EXPECT_EQ(RunProgram({"-r"}).status, 0);
  EXPECT_EQ(os.Log().back(), Info(kBanner));
}

}  // namespace
