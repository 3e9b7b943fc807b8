// The message-queue client: opening, sending, receiving, and every way in which they fail.
#include <sys/msg.h>

#include <bit>
#include <cerrno>
#include <csignal>

#include "tests/fakeos/Fixtures.h"

namespace {

using testing::Each;

// --- Open ---

class MsgqClientOpen : public Machine {};

// The ids as they are when a program starts, before any test.
const int32_t kTxAtStart = giMsgIdTx, kRxAtStart = giMsgIdRx;

TEST_F(MsgqClientOpen, NoQueueIsOpenWhenTheProgramStarts) {
  EXPECT_EQ(kTxAtStart, -1);
  EXPECT_EQ(kRxAtStart, -1);
}

TEST_F(MsgqClientOpen, MakesBothKeysThenBothQueues) {
  EXPECT_EQ(giMsgIdTx, -1);
  EXPECT_EQ(giMsgIdRx, -1);
  EXPECT_EQ(ZR4410_MsgQ_Open(), 0);
  EXPECT_THAT(os.Timeline(),
              ElementsAre("ftok /defconf/conf.ptz b", "ftok /defconf/conf.ptz a", "msgget 98", "msgget 97"));
  EXPECT_EQ(giMsgIdTx, FakeOs::kRequestQueue);
  EXPECT_EQ(giMsgIdRx, FakeOs::kReplyQueue);
}

TEST_F(MsgqClientOpen, RequestsAreCreatedWriteOnlyAndRepliesReadOnly) {
  EXPECT_EQ(ZR4410_MsgQ_Open(), 0);
  EXPECT_THAT(os.Opened(),
              ElementsAre(FakeOs::Queue{0x62010042, IPC_CREAT | 0222}, FakeOs::Queue{0x61010042, IPC_CREAT | 0444}));
  EXPECT_EQ(os.Opened()[0].flags, 658);
  EXPECT_EQ(os.Opened()[1].flags, 804);
}

TEST_F(MsgqClientOpen, ClearsBothMessagesAndStoresTheProcessId) {
  gtZR4410MsgqCmdBuf = gtZR4410MsgqRespBuf = Filled<RelayMessage>(0x5A);
  EXPECT_EQ(ZR4410_MsgQ_Open(), 0);
  EXPECT_EQ(gtZR4410MsgqCmdBuf.type, 4711);
  EXPECT_THAT(gtZR4410MsgqCmdBuf.body, Each(0));
  EXPECT_THAT(BytesOf(gtZR4410MsgqRespBuf), Each(0));
}

TEST_F(MsgqClientOpen, LogsTheKeysWithTheDebugFlagOnly) {
  EXPECT_EQ(ZR4410_MsgQ_Open(), 0);
  EXPECT_THAT(os.Log(), IsEmpty());
  gfDebugFlag = 1;
  EXPECT_EQ(ZR4410_MsgQ_Open(), 0);
  EXPECT_THAT(os.Log(),
              ElementsAre(Debug("MsgqClient keyTx = 0x62010042\n"), Debug("MsgqClient keyRx = 0x61010042\n")));
  EXPECT_EQ(os.Output(), "");
}

TEST_F(MsgqClientOpen, FailsWithoutTheKeyFile) {
  os.files.erase("/defconf/conf.ptz");
  EXPECT_EQ(ZR4410_MsgQ_Open(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("ftok keyTx failed!")));
  EXPECT_EQ(os.Calls("ftok"), 1);
}

TEST_F(MsgqClientOpen, FailsWithoutTheReplyKey) {
  gfDebugFlag = 1;
  os.Fail("ftok", ENOENT, 2);
  EXPECT_EQ(ZR4410_MsgQ_Open(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Debug("MsgqClient keyTx = 0x62010042\n"), Err("ftok keyRx failed!")));
  EXPECT_THAT(os.Opened(), IsEmpty());
}

TEST_F(MsgqClientOpen, FailsWithoutTheRequestQueue) {
  os.Fail("msgget", EACCES, 1);
  EXPECT_EQ(ZR4410_MsgQ_Open(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("msgget giMsgIdTx failed!")));
  EXPECT_EQ(os.Calls("msgget"), 1);
  EXPECT_EQ(giMsgIdTx, -1);
  EXPECT_EQ(giMsgIdRx, -1);
}

TEST_F(MsgqClientOpen, WithoutTheReplyQueueOnlySendingWorks) {
  os.Fail("msgget", ENOSPC, 2);
  EXPECT_EQ(ZR4410_MsgQ_Open(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("msgget giMsgIdRx failed!")));
  EXPECT_EQ(giMsgIdTx, FakeOs::kRequestQueue);
  EXPECT_EQ(giMsgIdRx, -1);

  os.Forget();
  RelayMessage message{4711, {1, 2, 3}};
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), 0);
  EXPECT_THAT(os.Log(), ElementsAre(Debug("Reflush Receive Msqg (22): Invalid argument")));
  EXPECT_EQ(os.Requests().size(), 1U);
  os.Forget();
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -1);
  EXPECT_THAT(os.Timeline(), ElementsAre(Logged(Err("ReceiveMsgQ failed!"))));
}

TEST_F(MsgqClientOpen, NothingIsSentOrReceivedBeforeIt) {
  RelayMessage message{4711, {}};
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), -1);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -1);
  EXPECT_THAT(os.Timeline(), ElementsAre(Logged(Err("SendMsgQ failed!")), Logged(Err("ReceiveMsgQ failed!"))));
}

TEST_F(MsgqClientOpen, ClosingNeverFailsAndDoesNothing) {
  EXPECT_EQ(ZR4410_MsgQ_Close(), 0);
  EXPECT_EQ(ZR4410_MsgQ_Open(), 0);
  os.Forget();
  EXPECT_EQ(ZR4410_MsgQ_Close(), 0);
  EXPECT_EQ(ZR4410_MsgQ_Close(), 0);
  EXPECT_THAT(os.Timeline(), IsEmpty());
  EXPECT_EQ(giMsgIdTx, FakeOs::kRequestQueue);
  EXPECT_EQ(giMsgIdRx, FakeOs::kReplyQueue);
}

// --- Send ---

class MsgqClientSend : public Linked {
 protected:
  MsgqClientSend() {
    for (uint8_t i = 0; i < 36; ++i) {
      message.body[i] = i;
    }
  }
  RelayMessage message{0x1267, {}};
};

constexpr char kSent[] =
    "send 4711 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20 21 "
    "22 23";

TEST_F(MsgqClientSend, SendsTypeAndWholeBodyWithoutWaiting) {
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), 0);
  EXPECT_THAT(os.Timeline(), ElementsAre("receive nothing", kSent));
  EXPECT_EQ(os.Requests().at(0).queue, FakeOs::kRequestQueue);
  EXPECT_EQ(os.Output(), "");
}

TEST_F(MsgqClientSend, DiscardsEveryWaitingReplyFirst) {
  os.Arrive(Bytes(36), 0, 1);
  os.Arrive(Bytes(36), 0, 4711);
  os.Arrive(Bytes(5), 0, 2147483647);
  os.Arrive({}, 0, 3);
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), 0);
  EXPECT_THAT(os.Timeline(),
              ElementsAre("receive 36", "receive 36", "receive 5", "receive 0", "receive nothing", kSent));
}

TEST_F(MsgqClientSend, AStopBeforeTheFlushSendsNothing) {
  SetSigID(1);
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), -15);
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

TEST_F(MsgqClientSend, AStopDuringTheFlushSendsNothing) {
  for (int i = 0; i < 5; ++i) {
    os.Arrive(Bytes(36));
  }
  os.StopAt("msgrcv", 3);
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), -15);
  EXPECT_THAT(os.Timeline(), ElementsAre("receive 36", "receive 36", "receive 36"));
}

TEST_F(MsgqClientSend, OnlyAStopFlagOfOneStops) {
  SetSigID(2);
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), 0);
}

TEST_F(MsgqClientSend, AnErrorDuringTheFlushIsLoggedAndTheMessageSent) {
  os.Fail("msgrcv", EIDRM);
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), 0);
  EXPECT_THAT(os.Timeline(),
              ElementsAre("receive error 43", Logged(Debug("Reflush Receive Msqg (43): Identifier removed")), kSent));
}

TEST_F(MsgqClientSend, AnOverlongMessageEndsEveryFlushAtOnce) {
  os.Arrive(Bytes(37));
  os.Arrive(Bytes(36));
  for (int i = 0; i < 2; ++i) {
    os.Forget();
    EXPECT_EQ(ZR4410_MsgQ_Send(&message), 0);
    EXPECT_THAT(os.Timeline(), ElementsAre("receive error 7",
                                           Logged(Debug("Reflush Receive Msqg (7): Argument list too long")), kSent));
  }
  EXPECT_EQ(os.Waiting(), 2U);
}

TEST_F(MsgqClientSend, AFullQueueFailsWithoutWaiting) {
  os.Fail("msgsnd", EAGAIN);
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), -1);
  EXPECT_THAT(os.Timeline(), ElementsAre("receive nothing", Logged(Err("msgsnd failed!"))));
  EXPECT_EQ(os.Calls("msgsnd"), 1);
  EXPECT_EQ(os.ElapsedMs(), 0);
}

TEST_F(MsgqClientSend, AnInterruptedSendIsAFailure) {
  os.Fail("msgsnd", EINTR);
  gfDebugFlag = 1;
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("msgsnd failed!")));
  EXPECT_EQ(os.Output(), "");
}

// The dump shows 36 of the 40 bytes. It starts with the type word, in the machine's byte order.
constexpr bool kLittleEndian = std::endian::native == std::endian::little;

TEST_F(MsgqClientSend, TheDebugFlagDumps36BytesFromTheTypeWordOn) {
  gfDebugFlag = 1;
  EXPECT_EQ(ZR4410_MsgQ_Send(&message), 0);
  EXPECT_EQ(os.Output(), std::string("[testZR4410] client msgsnd:\n(36): \n") +
                             (kLittleEndian ? "67 12 00 00" : "00 00 12 67") +
                             " 00 01 02 03 04 05 06 07 08 09 0A 0B \n"
                             "0C 0D 0E 0F 10 11 12 13 14 15 16 17 18 19 1A 1B \n"
                             "1C 1D 1E 1F \n");
}

// --- Receive ---

class MsgqClientReceive : public Linked {
 protected:
  RelayMessage message = Filled<RelayMessage>(0x5A);
};

TEST_F(MsgqClientReceive, SleepsBeforeTheFirstPoll) {
  os.Arrive(Bytes(36, 0xC3));
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  EXPECT_THAT(os.Timeline(), ElementsAre("sleep 50000", "receive 36"));
  EXPECT_THAT(message.body, Each(0xC3));
}

TEST_F(MsgqClientReceive, PollsOnceInEachInterval) {
  os.Arrive(Bytes(36, 0xC3), 140);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  EXPECT_THAT(os.Timeline(), ElementsAre("sleep 50000", "receive nothing", "sleep 50000", "receive nothing",
                                         "sleep 50000", "receive 36"));
}

TEST_F(MsgqClientReceive, TakesAMessageOfAnyType) {
  for (const long type : {1L, 4711L, 99999L, 2147483647L}) {
    os.Arrive(Bytes(36, 0xC3), 0, type);
    EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
    EXPECT_EQ(message.type, type);
  }
}

TEST_F(MsgqClientReceive, TakesTheFirstMessageOnly) {
  os.Arrive(Bytes(36, 0x01));
  os.Arrive(Bytes(36, 0x02));
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  EXPECT_THAT(message.body, Each(0x01));
  EXPECT_EQ(os.Waiting(), 1U);
}

TEST_F(MsgqClientReceive, GivesUpAfterMoreThan2000Ms) {
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
  EXPECT_EQ(os.ElapsedMs(), 2050);
  EXPECT_EQ(os.Calls("msgrcv"), 41);
  EXPECT_THAT(os.Slept(), testing::AllOf(testing::SizeIs(41), Each(50000U)));
  EXPECT_THAT(os.Log(), IsEmpty());
  EXPECT_THAT(BytesOf(message), Each(0x5A));
}

TEST_F(MsgqClientReceive, A2001stMillisecondIsTooLate) {
  os.On("usleep", 7, [this] { os.AdvanceMs(1); });
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
  EXPECT_EQ(os.ElapsedMs(), 2001);
}

TEST_F(MsgqClientReceive, TakesAMessageAtTheLastPoll) {
  os.Arrive(Bytes(36, 0xC3), kTimeOutMs);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  os.Arrive(Bytes(36, 0xC3), kTimeOutMs + 1);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
}

TEST_F(MsgqClientReceive, TheDebugFlagLogsEveryPollAndTheTimeOut) {
  gfDebugFlag = 1;
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
  std::vector<LogLine> expected(kPollsUntilTimeOut, Info("msgrcv len = 0\n"));
  expected.push_back(Err("msgrcv timeout!"));
  EXPECT_EQ(os.Log(), expected);
  EXPECT_EQ(os.Output(), "");
}

TEST_F(MsgqClientReceive, TheDebugFlagDumpsTheWholeMessage) {
  gfDebugFlag = 1;
  Bytes body;
  for (uint8_t i = 0; i < 36; ++i) {
    body.push_back(i);
  }
  os.Arrive(body, 0, 0x1267);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  EXPECT_EQ(os.Output(), std::string("[testZR4410] client msgrcv:\n(40): \n") +
                             (kLittleEndian ? "67 12 00 00" : "00 00 12 67") +
                             " 00 01 02 03 04 05 06 07 08 09 0A 0B \n"
                             "0C 0D 0E 0F 10 11 12 13 14 15 16 17 18 19 1A 1B \n"
                             "1C 1D 1E 1F 20 21 22 23 \n");
}

TEST_F(MsgqClientReceive, AStopIsNoticedAfterEachSleepBeforeTheQueueIsRead) {
  os.Arrive(Bytes(36), 10);
  os.StopAt("usleep", 1);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -15);
  EXPECT_EQ(os.Slept().size(), 1U);
  EXPECT_EQ(os.Calls("msgrcv"), 0);
  EXPECT_EQ(os.Waiting(), 1U);
}

TEST_F(MsgqClientReceive, OnlyAStopFlagOfOneStops) {
  SetSigID(2);
  os.Arrive(Bytes(36, 0xC3), kPollMs + 10);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  EXPECT_EQ(os.ElapsedMs(), 2 * kPollMs);
}

TEST_F(MsgqClientReceive, AStopEndsTheWaitAtAnyPoll) {
  for (int poll = 1; poll <= kPollsUntilTimeOut; ++poll) {
    SetSigID(0);
    os.Forget();
    os.StopAt("usleep", poll);
    EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -15) << poll;
    EXPECT_EQ(os.ElapsedMs(), kPollMs * poll);
    EXPECT_THAT(os.Log(), IsEmpty());
  }
}

TEST_F(MsgqClientReceive, ASignalEndsTheWaitWithinOneInterval) {
  os.SignalAt(1234, SIGINT);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -15);
  EXPECT_LE(os.ElapsedMs(), 1234 + kPollMs);
  EXPECT_THAT(os.Log(), ElementsAre(Debug("Catch SIGINT!")));
}

TEST_F(MsgqClientReceive, Sigusr1AndSigusr2DoNotEndTheWait) {
  os.SignalAt(120, SIGUSR1);
  os.SignalAt(240, SIGUSR2);
  os.Arrive(Bytes(36), 400);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  EXPECT_THAT(os.Log(), ElementsAre(Debug("Catch SIGUSR1!"), Debug("Catch SIGUSR2!")));
}

TEST_F(MsgqClientReceive, AMessageOfAnotherLengthIsAnError) {
  for (const int length : {0, 1, 4, 35}) {
    os.Forget();
    os.Arrive(Bytes(static_cast<size_t>(length), 0xC3), 0, 99);
    message = Filled<RelayMessage>(0x5A);
    EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -55) << length;
    EXPECT_EQ(message.type, 99);
    Bytes left(36, 0x5A);  // the received bytes, then the buffer's earlier bytes
    std::fill_n(left.begin(), length, uint8_t{0xC3});
    EXPECT_EQ(BytesOf(message.body), left);
    ASSERT_EQ(os.Log().size(), 1U);
    EXPECT_EQ(os.Log()[0].level, 3);
    // errno is left over from an earlier call, so only the length is known.
    EXPECT_THAT(os.Log()[0].text, testing::StartsWith("msgrcv len failed(" + std::to_string(length) + ")!"));
    EXPECT_EQ(os.Waiting(), 0U);
  }
}

TEST_F(MsgqClientReceive, AnOverlongMessageFailsEveryReceiveUntilItIsRemoved) {
  for (const size_t length : {37U, 8192U}) {
    os.Arrive(Bytes(length));
    os.Arrive(Bytes(36));
    for (int i = 0; i < 2; ++i) {
      os.Forget();
      EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -55);
      EXPECT_THAT(os.Log(), ElementsAre(Err("msgrcv len failed(-1)!7:Argument list too long")));
    }
    os.RemoveOverlong();
    EXPECT_EQ(ZR4410_MsgQ_Receive(&message), 0);
  }
}

TEST_F(MsgqClientReceive, EveryOtherErrorOfTheQueueIsAnError) {
  struct Failure {
    int error;
    const char* line;
  };
  for (const Failure& failure : {Failure{EIDRM, "msgrcv len failed(-1)!43:Identifier removed"},
                                 Failure{EINTR, "msgrcv len failed(-1)!4:Interrupted system call"},
                                 Failure{EACCES, "msgrcv len failed(-1)!13:Permission denied"},
                                 Failure{EINVAL, "msgrcv len failed(-1)!22:Invalid argument"},
                                 Failure{EAGAIN, "msgrcv len failed(-1)!11:Resource temporarily unavailable"}}) {
    os.Forget();
    os.Fail("msgrcv", failure.error, 2);
    EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -55);
    EXPECT_THAT(os.Log(), ElementsAre(Err(failure.line)));
    EXPECT_EQ(os.ElapsedMs(), 2 * kPollMs);
    EXPECT_THAT(BytesOf(message), Each(0x5A));
  }
}

TEST_F(MsgqClientReceive, WithoutAStartTimeItGivesUpAtTheFirstEmptyPoll) {
  os.Fail("clock_gettime", EINVAL);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
  EXPECT_THAT(os.Log(), ElementsAre(Info("GetMsFromStart failed!\n")));
  EXPECT_EQ(os.Calls("msgrcv"), 1);
  EXPECT_EQ(os.Output(), "clock_gettime failed.\n");
}

TEST_F(MsgqClientReceive, AMissingStartTimeIs0) {
  for (const auto& [first, polls] : {std::pair<uint64_t, int>{2000 - kPollMs, 2}, {2001 - kPollMs, 1}}) {
    os.Forget();
    os.SetClock(first * 1000000);
    os.Fail("clock_gettime", EINVAL);
    EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
    EXPECT_EQ(os.Calls("msgrcv"), polls);
  }
}

TEST_F(MsgqClientReceive, AfterALaterClockFailureTheLastTimeCounts) {
  os.Fail("clock_gettime", EINVAL, kPollsUntilTimeOut, 3);  // clock reading n + 1 follows poll n
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
  EXPECT_EQ(os.ElapsedMs(), kTimeOutMs + 2 * kPollMs);
  EXPECT_THAT(os.Log(), ElementsAre(Info("GetMsFromStart failed!\n"), Info("GetMsFromStart failed!\n"),
                                    Info("GetMsFromStart failed!\n")));
}

TEST_F(MsgqClientReceive, AnEmptyPollIsLoggedBeforeTheClockIsRead) {
  gfDebugFlag = 1;
  os.Fail("clock_gettime", EINVAL, 2);
  os.StopAt("usleep", 2);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -15);
  EXPECT_THAT(os.Log(), ElementsAre(Info("msgrcv len = 0\n"), Info("GetMsFromStart failed!\n")));
}

TEST_F(MsgqClientReceive, WithAClockThatAlwaysFailsItKeepsWaiting) {
  // The start is 0 and no later time can be read: for the routine no time passes, no matter how long it sleeps.
  os.Fail("clock_gettime", EINVAL, 1, 200);
  os.StopAt("usleep", 150);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -15);
  EXPECT_EQ(os.Log().size(), 150U);
}

TEST_F(MsgqClientReceive, WithAClockThatJumpsFarAheadItGivesUp) {
  os.On("usleep", 1, [this] { os.SetClock(3'000'100'000'000'000); });  // by more than 31 bits of milliseconds
  os.StopAt("usleep", 3);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -56);
  EXPECT_EQ(os.Calls("msgrcv"), 1);
}

TEST_F(MsgqClientReceive, WithAClockThatGoesFarBackItKeepsWaiting) {
  os.SetClock(3'000'100'000'000'000);
  os.On("usleep", 1, [this] { os.SetClock(100'000'000'000); });
  os.StopAt("usleep", 60);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -15);
  EXPECT_EQ(os.Calls("msgrcv"), 59);
}

TEST_F(MsgqClientReceive, WithAClockThatGoesBackItKeepsWaiting) {
  os.On("usleep", 1, [this] { os.SetClock(1'000'000'000); });
  os.StopAt("usleep", 60);
  EXPECT_EQ(ZR4410_MsgQ_Receive(&message), -15);
  EXPECT_EQ(os.Calls("msgrcv"), 59);
}

}  // namespace
