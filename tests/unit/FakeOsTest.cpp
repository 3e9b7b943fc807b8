// Tests of the fake operating system, on which the other unit tests depend.
#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <sys/msg.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>

#include "support/SignalGuard.h"
#include "tests/fakeos/Fixtures.h"

namespace {

using testing::HasSubstr;

class FakeOsTest : public Linked {
 protected:
  int Send() { return ZR4410_MsgQ_Send(&message); }
  int Receive() { return ZR4410_MsgQ_Receive(&received); }
  RelayMessage message{4711, {0xAA, 0xAA, 7, 6, 0xAA, 0x10, 1, 1, 0x44, 0x55}}, received{};
};

TEST_F(FakeOsTest, AnswersARequestWithAGoodFrame) {
  os.Reply({0x23, 0x42});
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(Receive(), 0);
  EXPECT_EQ(Hex(Bytes(received.body, received.body + 11)), "AA AA 07 07 AA 90 02 23 42 5F 55");
  EXPECT_EQ(os.Slept(), std::vector<unsigned>{1000 * kPollMs});
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x10, 0x01, 0x01, 0x44, 0x55}));
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x01}));
}

TEST_F(FakeOsTest, RepliesWithTheErrorsAskedFor) {
  os.Reply({0x23}).Header(1, 2).Id(3).FrameLength(4).Start(5).Code(6).Length(7).Checksum(8).Stop(9).Type(10);
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(Receive(), 0);
  EXPECT_EQ(received.type, 10);
  EXPECT_EQ(Hex(Bytes(received.body, received.body + 10)), "01 02 03 04 05 06 07 23 08 09");
}

TEST_F(FakeOsTest, RecordsEverythingInOrder) {
  os.NoReply();
  os.Arrive(Bytes(36), 0);
  os.Arrive(Bytes(37), kPollMs + 10);
  os.StopAt("usleep", 3);
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(Receive(), -55);
  EXPECT_EQ(Receive(), -15);
  const std::string sleep = "sleep " + std::to_string(1000 * kPollMs);
  EXPECT_THAT(os.Timeline(), ElementsAre("receive 36", "receive nothing",
                                         Sent({0xAA, 0xAA, 0x07, 0x06, 0xAA, 0x10, 0x01, 0x01, 0x44, 0x55}), sleep,
                                         "receive nothing", sleep, "receive error 7",
                                         Logged(Err("msgrcv len failed(-1)!7:Argument list too long")), sleep));
  EXPECT_EQ(os.ElapsedMs(), 3 * kPollMs);
  os.RemoveOverlong();
  EXPECT_EQ(os.Waiting(), 0U);
}

TEST_F(FakeOsTest, ASignalCutsASleepShort) {
  os.SignalAt(1200, SIGUSR1);
  EXPECT_EQ(sleep(3), 2U);
  EXPECT_EQ(os.ElapsedMs(), 1200);
  os.SignalAt(10, SIGUSR1);
  EXPECT_EQ(usleep(20000), -1);
  EXPECT_EQ(usleep(20000), 0);
  EXPECT_EQ(os.ElapsedMs(), 1230);
  EXPECT_EQ(giUsr1SigID, 1);
}

TEST_F(FakeOsTest, FailsTheCallsAskedFor) {
  os.Fail("msgsnd", EAGAIN, 2, 2);
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(Send(), -1);
  os.Forget();
  EXPECT_EQ(Send(), -1);
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(os.Calls("msgsnd"), 2);
}

// Creates a stream in the way that FakeOs allows: the path is opened first, and the stream has its own buffer.
FILE* OpenStream(const char* path, const char* mode) {
  const int file = open(path, *mode == 'r' ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (file < 0) {
    return nullptr;
  }
  const SignalGuard guard;
  FILE* const stream = fdopen(file, mode);
  static char buffer[1024];
  setvbuf(stream, buffer, _IOFBF, sizeof buffer);
  return stream;
}

int CloseStream(FILE* stream) {
  const SignalGuard guard;
  return fclose(stream);
}

TEST_F(FakeOsTest, KeepsFilesInMemory) {
  FILE* const out = OpenStream("/new", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(fputs("one\ntwo\n", out), 1);
  EXPECT_EQ(os.files["/new"], "");
  EXPECT_EQ(fflush(out), 0);
  EXPECT_EQ(os.files["/new"], "one\ntwo\n");
  EXPECT_EQ(os.AfterPowerCut()["/new"], "");
  EXPECT_EQ(fsync(fileno(out)), 0);
  EXPECT_EQ(os.AfterPowerCut()["/new"], "one\ntwo\n");
  EXPECT_EQ(CloseStream(out), 0);
  EXPECT_EQ(rename("/new", "/newer"), 0);
  EXPECT_EQ(os.files.count("/new"), 0U);
  FILE* const in = OpenStream("/newer", "r");
  ASSERT_NE(in, nullptr);
  char line[16];
  EXPECT_STREQ(fgets(line, sizeof line, in), "one\n");
  rewind(in);
  EXPECT_STREQ(fgets(line, sizeof line, in), "one\n");
  EXPECT_EQ(CloseStream(in), 0);
  EXPECT_EQ(OpenStream("/none", "r"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(os.OpenFiles(), 0U);
}

TEST_F(FakeOsTest, AFileStepFails) {
  os.FailFileStep(2, ENOSPC);
  FILE* const out = OpenStream("/new", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(fputs("text", out), 1);
  EXPECT_EQ(fflush(out), EOF);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(fflush(out), 0);
  EXPECT_EQ(CloseStream(out), 0);
}

TEST_F(FakeOsTest, AfterBeingKilledNothingHasAnEffect) {
  os.KillAtFileStep(2);
  FILE* const out = OpenStream("/new", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(fputs("text", out), 1);
  EXPECT_EQ(fflush(out), 0);
  EXPECT_EQ(CloseStream(out), 0);
  EXPECT_EQ(rename("/new", "/sysconf/conf.img"), 0);
  EXPECT_TRUE(os.Killed());
  EXPECT_EQ(os.files["/new"], "");
  EXPECT_EQ(os.files["/sysconf/conf.img"], "EXT_DEBUG=0\n");
  EXPECT_THAT(os.FileSteps(), ElementsAre("open w /new", "write /new"));
}

TEST_F(FakeOsTest, RecordsHowMuchAReadAskedFor) {
  os.files["/a"] = "abcde";
  const int file = open("/a", O_RDONLY);
  char text[16] = {};
  EXPECT_EQ(read(file, text, 2), 2);
  EXPECT_EQ(os.AskedFor(), 2U);
  EXPECT_EQ(read(file, text + 2, 12), 3);
  EXPECT_EQ(os.AskedFor(), 12U);
  EXPECT_STREQ(text, "abcde");
  EXPECT_EQ(close(file), 0);
}

TEST_F(FakeOsTest, CapturesStandardOutput) {
  printf("a %d\n", 1);
  EXPECT_EQ(os.Output(), "a 1\n");
  puts("b");
  EXPECT_EQ(os.Output(), "a 1\nb\n");
  os.Forget();
  EXPECT_EQ(os.Output(), "");
}

// --- The checks that FakeOs makes itself ---

// Returns the failures that a FakeOs reports for the action.
std::vector<std::string> Reported(const std::function<void()>& action) {
  testing::TestPartResultArray failures;
  {
    using Reporter = testing::ScopedFakeTestPartResultReporter;
    const Reporter reporter(Reporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    const FakeOs os;
    action();
  }
  std::vector<std::string> messages;
  for (int i = 0; i < failures.size(); ++i) {
    messages.emplace_back(failures.GetTestPartResult(i).message());
  }
  return messages;
}

constexpr char kSettings[] = "/sysconf/conf.img";

void LogAs(const char* name) {
  openlog(name, LOG_CONS | LOG_PID, LOG_USER);
  syslog(LOG_ERR, "text");
  closelog();
}

// Matches the message "a handler that logs can interrupt WHAT".
auto Interrupts(const std::string& what) { return HasSubstr("a handler that logs can interrupt " + what); }
// Matches the message "WHAT while the handled signals are held back".
auto WithSignalsHeld(const std::string& what) { return HasSubstr(what + " while the handled signals are held back"); }

TEST(FakeOsChecks, ReportsALogLineWithTheSignalsFree) {
  EXPECT_THAT(Reported([] { LogAs("testZR4410"); }),
              ElementsAre(Interrupts("openlog"), Interrupts("syslog text"), Interrupts("closelog")));
}

TEST(FakeOsChecks, ReportsTheLocalTimeWithTheSignalsFree) {
  EXPECT_THAT(Reported([] {
                const time_t now = 0;
                EXPECT_NE(localtime(&now), nullptr);
              }),
              ElementsAre(Interrupts("localtime")));
}

TEST(FakeOsChecks, ReportsEachUseOfAStreamWithTheSignalsFree) {
  EXPECT_THAT(Reported([] {
                for (const char* mode : {"r", "w"}) {
                  if (FILE* const file = fopen(kSettings, mode)) {
                    *mode == 'r' ? getc(file) : putc('x', file);
                    fclose(file);
                  }
                }
              }),
              ElementsAre(Interrupts("fopen"), Interrupts("a stream's read"), Interrupts("fclose"), Interrupts("fopen"),
                          Interrupts("a stream's write"), Interrupts("fclose")));
}

TEST(FakeOsChecks, ReportsWhatMayWaitWithTheSignalsHeld) {
  EXPECT_THAT(Reported([] {
                const SignalGuard guard;
                const int file = open(kSettings, O_RDWR);
                char byte = 0;
                EXPECT_EQ(read(file, &byte, 1), 1);
                EXPECT_EQ(write(file, &byte, 1), 1);
                close(file);
              }),
              ElementsAre(WithSignalsHeld("opening /sysconf/conf.img"), WithSignalsHeld("reading /sysconf/conf.img"),
                          WithSignalsHeld("writing /sysconf/conf.img")));
}

TEST(FakeOsChecks, ReportsASleepWithOneSignalHeld) {
  EXPECT_THAT(Reported([] {
                sigset_t held;
                sigemptyset(&held);
                sigaddset(&held, SIGTERM);
                sigprocmask(SIG_BLOCK, &held, nullptr);
                usleep(1);
                sigprocmask(SIG_UNBLOCK, &held, nullptr);
              }),
              ElementsAre(WithSignalsHeld("sleeping")));
}

TEST(FakeOsChecks, ReportsAnotherNameInTheLog) {
  EXPECT_THAT(Reported([] {
                const SignalGuard guard;
                LogAs("other");
              }),
              ElementsAre(HasSubstr("openlog other 3 8")));
}

TEST(FakeOsChecks, ReportsABlockingQueueCall) {
  EXPECT_THAT(Reported([] {
                char message[sizeof(long) + 36];
                msgrcv(FakeOs::kReplyQueue, message, 36, 0, 0);
              }),
              ElementsAre(HasSubstr("msgrcv of 36 bytes, type 0, flags 0")));
}

TEST(FakeOsChecks, WithoutAFakeOsLibcIsCalled) {
  EXPECT_EQ(FakeOs::current, nullptr);
  timespec now;
  EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
  EXPECT_NE(getpid(), FakeOs::kPid);
}

}  // namespace
