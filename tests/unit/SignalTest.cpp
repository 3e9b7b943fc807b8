// The stop flag, the signal handler, the notice to the device daemon and the worker that sends it.
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "support/Log.h"
#include "tests/fakeos/Fixtures.h"

namespace {

class Signal : public Linked {};

TEST_F(Signal, TheStopFlagHoldsWhatIsStored) {
  EXPECT_EQ(GetSigID(), 0);
  SetSigID(1);
  EXPECT_EQ(GetSigID(), 1);
  SetSigID(-7);
  EXPECT_EQ(GetSigID(), -7);
  EXPECT_EQ(giSigID, -7);
}

struct CaughtSignal {
  int signal;
  const char* line;
  int stop, usr1, usr2;
};

TEST_F(Signal, EachSignalIsLoggedAndSetsItsFlag) {
  for (const CaughtSignal& caught :
       {CaughtSignal{SIGINT, "Catch SIGINT!", 1, 0, 0}, CaughtSignal{SIGTERM, "Catch SIGTERM!", 1, 0, 0},
        CaughtSignal{SIGUSR1, "Catch SIGUSR1!", 0, 1, 0}, CaughtSignal{SIGUSR2, "Catch SIGUSR2!", 0, 0, 1},
        CaughtSignal{SIGHUP, "Catch signal = 1!\n", 0, 0, 0}, CaughtSignal{0, "Catch signal = 0!\n", 0, 0, 0},
        CaughtSignal{-5, "Catch signal = -5!\n", 0, 0, 0}}) {
    ResetProduct();
    os.Forget();
    SignalHandler(caught.signal);
    EXPECT_THAT(os.Log(), ElementsAre(Debug(caught.line)));
    EXPECT_EQ(GetSigID(), caught.stop) << caught.line;
    EXPECT_EQ(giUsr1SigID, caught.usr1) << caught.line;
    EXPECT_EQ(giUsr2SigID, caught.usr2) << caught.line;
  }
}

TEST_F(Signal, OtherSignalsDoNotResetTheStopFlag) {
  SignalHandler(SIGTERM);
  SignalHandler(SIGUSR1);
  SignalHandler(SIGUSR2);
  SignalHandler(SIGHUP);
  EXPECT_EQ(GetSigID(), 1);
}

TEST_F(Signal, TheHandlerRestoresErrno) {
  for (const int signal : {SIGINT, SIGTERM, SIGUSR1, SIGUSR2, SIGHUP}) {
    errno = ENOMSG;
    SignalHandler(signal);
    EXPECT_EQ(errno, ENOMSG) << signal;
  }
}

TEST_F(Signal, ALogLineHoldsTheHandledSignalsBackAndReleasesThem) {
  // FakeOs fails every test that logs while the handled signals are not held back; this one checks which signals are
  // blocked afterwards.
  sigset_t before, after;
  sigemptyset(&before);
  sigaddset(&before, SIGHUP);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  LOG(LOG_INFO, "%s %d", "text", 5);
  sigprocmask(SIG_BLOCK, nullptr, &after);
  for (int signal = 1; signal < 32; ++signal) {
    EXPECT_EQ(sigismember(&after, signal), signal == SIGHUP) << signal;
  }
  sigprocmask(SIG_UNBLOCK, &before, nullptr);
  EXPECT_THAT(os.Log(), ElementsAre(Info("text 5")));
}

// --- The notice ---

const std::string kNotice1 = Sent({0xAA, 0xAA, 0x00, 0x09, 0xAA, 0x02, 0x04, 0x01, 0x22, 0x33, 0x44, 0xB6, 0x55});
const std::string kNotice2 = Sent({0xAA, 0xAA, 0x00, 0x09, 0xAA, 0x02, 0x04, 0x02, 0x22, 0x33, 0x44, 0xB5, 0x55});

TEST_F(Signal, TheNoticeIsThirteenBytesPaddedWithZeros) {
  gtMsgqTxBuf = Filled<RelayMessage>(0x5A);
  SendZR4410Msgq(1);
  SendZR4410Msgq(2);
  EXPECT_THAT(os.Timeline(), ElementsAre("receive nothing", kNotice1, "receive nothing", kNotice2));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Signal, TheNoticeCarriesAnyCode) {
  SendZR4410Msgq(0x00);
  SendZR4410Msgq(0xB7);
  SendZR4410Msgq(0xFF);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x02, 0x04, 0x00, 0x22, 0x33, 0x44, 0xB7, 0x55},
                                       Bytes{0xAA, 0x02, 0x04, 0xB7, 0x22, 0x33, 0x44, 0x00, 0x55},
                                       Bytes{0xAA, 0x02, 0x04, 0xFF, 0x22, 0x33, 0x44, 0xB8, 0x55}));
}

TEST_F(Signal, TheNoticeDoesNotChangeTheSharedRecords) {
  uint8_t version;
  os.Reply({0x23});
  ASSERT_EQ(MCU_GetVersion(&version), 0);
  const Bytes request = BytesOf(gtZR4410MsgqCmdBuf);
  SendZR4410Msgq(1);
  EXPECT_EQ(BytesOf(gtZR4410MsgqCmdBuf), request);
  EXPECT_EQ(gbSeqId, 1);
  EXPECT_EQ(gbUart1Command, 0x10);
  os.Reply({0x23});
  ASSERT_EQ(MCU_GetVersion(&version), 0);
  EXPECT_EQ(os.Requests().back().Id(), 2);
}

TEST_F(Signal, TheNoticeWaitsForNoReplyButDropsThoseInTheQueue) {
  os.Arrive(Bytes(36));
  os.Arrive(Bytes(36));
  SendZR4410Msgq(1);
  EXPECT_THAT(os.Timeline(), ElementsAre("receive 36", "receive 36", "receive nothing", kNotice1));
}

TEST_F(Signal, AFailedNoticeIsLogged) {
  os.Fail("msgsnd", EAGAIN);
  SendZR4410Msgq(1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("msgsnd failed!"), Err("ZR4410_MsgQ_Send fail!\n")));
}

TEST_F(Signal, AStoppedNoticeIsLoggedAsAFailure) {
  SetSigID(1);
  SendZR4410Msgq(1);
  EXPECT_THAT(os.Requests(), IsEmpty());
  EXPECT_THAT(os.Log(), ElementsAre(Err("ZR4410_MsgQ_Send fail!\n")));
}

// --- The worker ---

const std::string kStarted = Logged(Info("Start thread.")), kFinished = Logged(Info("Finish thread."));
constexpr char kSleep[] = "sleep 100000";

TEST_F(Signal, TheWorkerEndsAtOnceWhenStopped) {
  SetSigID(1);
  giUsr1SigID = 1;
  EXPECT_EQ(Thread(), 0);
  EXPECT_THAT(os.Timeline(), ElementsAre(kStarted, kFinished));
  EXPECT_EQ(giUsr1SigID, 1);
}

TEST_F(Signal, TheWorkerChecksTheStopFlagEvery100Ms) {
  os.StopAt("usleep", 3);
  EXPECT_EQ(Thread(), 0);
  EXPECT_THAT(os.Timeline(), ElementsAre(kStarted, kSleep, kSleep, kSleep, kFinished));
}

TEST_F(Signal, OnlyAStopFlagOfOneEndsTheWorker) {
  SetSigID(2);
  os.StopAt("usleep", 2);
  EXPECT_EQ(Thread(), 0);
  EXPECT_EQ(os.Calls("usleep"), 2);
}

TEST_F(Signal, OnlyASigusr1FlagOfOneSendsANotice) {
  giUsr1SigID = 2;
  os.StopAt("usleep", 1);
  EXPECT_EQ(Thread(), 0);
  EXPECT_THAT(os.Requests(), IsEmpty());
  EXPECT_EQ(giUsr1SigID, 2);
}

TEST_F(Signal, TheWorkerTurnsSigusr1IntoOneNotice) {
  os.On("usleep", 2, [] { SignalHandler(SIGUSR1); });
  os.StopAt("usleep", 4);
  EXPECT_EQ(Thread(), 0);
  EXPECT_THAT(os.Timeline(), ElementsAre(kStarted, kSleep, kSleep, Logged(Debug("Catch SIGUSR1!")), "receive nothing",
                                         kNotice1, kSleep, kSleep, kFinished));
  EXPECT_EQ(giUsr1SigID, 0);
}

TEST_F(Signal, Sigusr2NeverSendsANotice) {
  os.On("usleep", 1, [] { SignalHandler(SIGUSR2); });
  os.StopAt("usleep", 3);
  EXPECT_EQ(Thread(), 0);
  EXPECT_THAT(os.Requests(), IsEmpty());
  EXPECT_EQ(giUsr2SigID, 1);
}

TEST_F(Signal, ASigusr1DuringTheSendingIsLost) {
  giUsr1SigID = 1;
  os.On("msgsnd", 1, [] { SignalHandler(SIGUSR1); });
  os.StopAt("usleep", 3);
  EXPECT_EQ(Thread(), 0);
  EXPECT_EQ(os.Requests().size(), 1U);
  EXPECT_EQ(giUsr1SigID, 0);
}

TEST_F(Signal, TheWorkerContinuesAfterAFailedNotice) {
  giUsr1SigID = 1;
  os.Fail("msgsnd", EAGAIN);
  os.On("usleep", 1, [] { SignalHandler(SIGUSR1); });
  os.StopAt("usleep", 2);
  EXPECT_EQ(Thread(), 0);
  EXPECT_THAT(os.Log(), ElementsAre(Info("Start thread."), Err("msgsnd failed!"), Err("ZR4410_MsgQ_Send fail!\n"),
                                    Debug("Catch SIGUSR1!"), Info("Finish thread.")));
  EXPECT_EQ(os.Requests().size(), 1U);
}

TEST_F(Signal, SigintInterruptsTheSleepAndEndsTheWorker) {
  os.SignalAt(250, SIGINT);
  EXPECT_EQ(Thread(), 0);
  EXPECT_EQ(os.ElapsedMs(), 250);
}

// The worker clears the SIGUSR1 flag and then checks it again. In between it makes no system call at which a test could
// set the flag. So the worker runs step by step in a child process, and the test sets the flag right after the worker
// has cleared it.
TEST_F(Signal, ASecondSigusr1BetweenTheTwoChecksSendsASecondNotice) {
  enum { GoodNotices = 0, OtherNotices = 1, NoTracing = 2 };
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    giUsr1SigID = 1;
    os.On("msgsnd", 1, [] {
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(NoTracing);
      }
      raise(SIGSTOP);
    });
    os.StopAt("usleep", 1);
    Thread();
    const auto timeline = os.Timeline();
    const std::vector<std::string> expected = {kStarted, "receive nothing", kNotice1, "receive nothing", kNotice2,
                                               kSleep,   kFinished};
    _exit(timeline == expected && giUsr1SigID == 0 ? GoodNotices : OtherNotices);
  }
  // ptrace reads and writes words; on a 64-bit machine the flag is half a word. A forked child has the same addresses.
  const auto address = reinterpret_cast<uintptr_t>(&giUsr1SigID);
  const uintptr_t word = address & ~(sizeof(long) - 1);
  const auto readFlag = [&](long data) {
    int32_t flag;
    memcpy(&flag, reinterpret_cast<char*>(&data) + (address - word), sizeof flag);
    return flag;
  };
  int status = 0;
  bool stepping = true;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  for (int steps = 0; WIFSTOPPED(status); ++steps) {
    long data = ptrace(PTRACE_PEEKDATA, child, reinterpret_cast<void*>(word), nullptr);
    if (stepping && readFlag(data) == 0) {
      const int32_t again = 1;
      memcpy(reinterpret_cast<char*>(&data) + (address - word), &again, sizeof again);
      ASSERT_EQ(ptrace(PTRACE_POKEDATA, child, reinterpret_cast<void*>(word), reinterpret_cast<void*>(data)), 0);
      stepping = false;
    }
    ASSERT_EQ(ptrace(stepping ? PTRACE_SINGLESTEP : PTRACE_CONT, child, nullptr, nullptr), 0);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_LT(steps, 1000000);
  }
  ASSERT_TRUE(WIFEXITED(status)) << WTERMSIG(status);
  if (WEXITSTATUS(status) == NoTracing) {
    GTEST_SKIP() << "this machine does not allow tracing";
  }
  EXPECT_EQ(WEXITSTATUS(status), GoodNotices);
}

}  // namespace
