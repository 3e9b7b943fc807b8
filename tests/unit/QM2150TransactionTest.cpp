// Camera commands and inquiries, and the check of a reply.
#include <cerrno>

#include "camera/QM2150Transaction.h"
#include "tests/fakeos/Faults.h"
#include "tests/fakeos/Fixtures.h"

namespace {

using testing::Each;
using testing::ValuesIn;

constexpr uint8_t kData[17] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09,
                               0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11};
const Bytes kAck = {0x10};
const Bytes kCompletion = {0x90, 0x50, 0x02, 0xFF};

class QM2150Transaction : public Linked {
 protected:
  int Inquiry(uint8_t count = 1) { return QM2150_Inquiry(0x04, count, kData, &reply); }
  tVisca reply{};
};

// --- Commands ---

TEST_F(QM2150Transaction, ACommandIsSentAndDoesNotWaitForItsCompletion) {
  const uint8_t data[] = {0x00, 0x02};
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(2, data), 0);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x02, 0x06, 0x81, 0x01, 0x04, 0x00, 0x02, 0xFF, 0xC7, 0x55}));
  EXPECT_EQ(Hex(Bytes(os.Requests()[0].body.begin(), os.Requests()[0].body.begin() + 5)), "AA AA 01 0B AA");
  EXPECT_EQ(os.Requests()[0].type, 4711);
  EXPECT_THAT(os.Log(), IsEmpty());
  EXPECT_EQ(os.Output(), "");
}

TEST_F(QM2150Transaction, ACommandMayBeEmpty) {
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(0, nullptr), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0xFF}));
}

TEST_F(QM2150Transaction, ACommandTakesTwelveDataBytes) {
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(12, kData), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09,
                                              0x0A, 0x0B, 0x0C, 0xFF}));
}

TEST_F(QM2150Transaction, ACommandOf13To16DataBytesIsRefusedByTheLink) {
  for (const uint8_t count : Bytes{13, 14, 15, 16}) {
    os.Forget();
    gbUart1Command = 0x77;
    EXPECT_EQ(QM2150_Command(count, kData), -57) << int{count};
    EXPECT_EQ(gbUart1Command, 0x02);  // stored before the link refuses
    EXPECT_THAT(os.Log(), ElementsAre(Err("Len > VISCA_PACKET_MAX_LEN"), Err("QM2150_FillZR4410 failed!"),
                                      Err("QM2150_ProcessVisca failed!")));
    EXPECT_THAT(os.Requests(), IsEmpty());
  }
  EXPECT_EQ(gbSeqId, 4);  // each request used up an id
}

TEST_F(QM2150Transaction, ACommandOfMoreThan16BytesIsRefusedSilently) {
  EXPECT_EQ(QM2150_Command(17, kData), -1);
  EXPECT_EQ(QM2150_Command(256, kData), -1);  // the length is not truncated to a byte
  EXPECT_EQ(QM2150_Command(0xFFFFFFFF, nullptr), -1);
  EXPECT_THAT(os.Timeline(), IsEmpty());
  EXPECT_EQ(gbSeqId, 0);
}

TEST_F(QM2150Transaction, OnlyAnAcknowledgementOf0x10Counts) {
  for (const uint8_t answer : Bytes{0x40, 0x00, 0x11, 0x20, 0x30, 0x50, 0xFF}) {
    os.Reply({answer});
    EXPECT_EQ(QM2150_Command(1, kData), -1) << int{answer};
  }
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Transaction, AnAcknowledgementMayCarryMoreData) {
  os.Reply({0x10, 0x90, 0x41, 0xFF});
  EXPECT_EQ(QM2150_Command(1, kData), 0);
}

TEST_F(QM2150Transaction, AnEmptyAcknowledgementCountsAsTheEarlierOne) {
  // The record of plain replies is not cleared here, so an acknowledgement without data leaves the data of the last
  // one.
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(1, kData), 0);
  os.Reply({});
  EXPECT_EQ(QM2150_Command(1, kData), 0);
  os.Reply({0x40});
  EXPECT_EQ(QM2150_Command(1, kData), -1);
  os.Reply({});
  EXPECT_EQ(QM2150_Command(1, kData), -1);
}

TEST_F(QM2150Transaction, ACommandClearsTheRequestAndTheCameraReplyOnly) {
  gtUart1ViscaCmdInq = Filled<ViscaRequestFrame>(0x5A);
  gtUart1ViscaResp = Filled<ViscaReplyFrame>(0x5A);
  gtUart1Resp = Filled<PlainFrame>(0x5A);
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(1, kData), 0);
  EXPECT_EQ(Hex(BytesOf(gtUart1ViscaCmdInq)),
            "AA 02 05 81 01 04 01 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF C9 55");
  EXPECT_THAT(BytesOf(gtUart1ViscaResp), Each(0));
  EXPECT_EQ(Hex(BytesOf(gtUart1Resp)), "AA 82 01 10 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A C3 55");
}

// --- Inquiries ---

TEST_F(QM2150Transaction, AnInquiryReturnsItsReply) {
  os.Reply({0x90, 0x50, 0x01, 0x0A, 0xFF});
  reply = Filled<tVisca>(0x5A);
  EXPECT_EQ(QM2150_Inquiry(0x7E, 2, kData, &reply), 0);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x01, 0x02, 0xFF, 0x44, 0x55}));
  EXPECT_EQ(Hex(BytesOf(reply)), "90 50 02 01 0A 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF");
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Transaction, AnInquiryReplyMayHaveSixteenDataBytes) {
  os.Reply({0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10,
            0xFF});
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_EQ(Hex(BytesOf(reply)), "90 50 10 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 FF");
}

TEST_F(QM2150Transaction, NothingOfAnEarlierReplyIsLeft) {
  os.Reply({0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0xFF});
  EXPECT_EQ(Inquiry(), 0);
  os.Reply({0x90, 0x50, 0x09, 0xFF});
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_EQ(Hex(BytesOf(reply)), "90 50 01 09 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF");
}

TEST_F(QM2150Transaction, TheCategoryIsPassedOn) {
  for (const uint8_t category : Bytes{0x00, 0x04, 0x7E, 0xFF}) {
    os.Forget();
    os.Reply(kCompletion);
    EXPECT_EQ(QM2150_Inquiry(category, 0, nullptr, &reply), 0);
    EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, category, 0xFF}));
  }
}

TEST_F(QM2150Transaction, AnInquiryOf13To16DataBytesIsRefusedByTheLink) {
  for (const uint8_t count : Bytes{13, 14, 15, 16}) {
    os.Forget();
    EXPECT_EQ(Inquiry(count), -57);
    EXPECT_THAT(os.Log(), ElementsAre(Err("Len > VISCA_PACKET_MAX_LEN"), Err("QM2150_FillZR4410 failed!"),
                                      Err("QM2150_ProcessVisca failed!")));
    EXPECT_THAT(os.Requests(), IsEmpty());
  }
  EXPECT_EQ(gbSeqId, 4);
}

TEST_F(QM2150Transaction, AnInquiryOfMoreThan16BytesIsRefusedSilently) {
  EXPECT_EQ(QM2150_Inquiry(0x04, 17, kData, &reply), -1);
  EXPECT_EQ(QM2150_Inquiry(0x04, 256, kData, &reply), -1);
  EXPECT_EQ(QM2150_Inquiry(0x04, 0xFFFFFFFF, nullptr, &reply), -1);
  EXPECT_THAT(os.Timeline(), IsEmpty());
  EXPECT_EQ(gbSeqId, 0);
}

// --- The exchange ---

TEST_F(QM2150Transaction, TheFirstRequestHasId1AndTheCounterIsSharedWithTheMcu) {
  uint8_t version;
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(1, kData), 0);
  os.Reply({0x23});
  EXPECT_EQ(MCU_GetVersion(&version), 0);
  os.Reply(kCompletion);
  EXPECT_EQ(Inquiry(), 0);
  os.Reply(kAck);
  EXPECT_EQ(MCU_LensPowerControl(1), 0);
  Bytes ids;
  for (const Request& request : os.Requests()) {
    ids.push_back(request.Id());
  }
  EXPECT_EQ(ids, (Bytes{1, 2, 3, 4}));
}

TEST_F(QM2150Transaction, TheIdWrapsFrom255To0) {
  os.device = [this](const Request& request) { os.Answer(request, kCompletion); };
  for (int i = 1; i <= 600; ++i) {
    ASSERT_EQ(Inquiry(), 0);
    ASSERT_EQ(os.Requests().back().Id(), i % 256);
    ASSERT_EQ(gbSeqId, i % 256);
  }
}

TEST_F(QM2150Transaction, PresettingTheRememberedIdChangesNothing) {
  gbSeqId = 77;
  os.Reply(kCompletion);
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_EQ(os.Requests()[0].Id(), 1);
}

TEST_F(QM2150Transaction, TheEndOfAnEarlierLongerRequestIsSentAgain) {
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(4, kData), 0);
  os.Reply(kAck);
  EXPECT_EQ(QM2150_Command(1, kData), 0);
  EXPECT_EQ(Hex(Bytes(os.Requests()[1].body.begin(), os.Requests()[1].body.begin() + 18)),
            "AA AA 02 0A AA 02 05 81 01 04 01 FF C9 55 FF BD 55 00");
}

TEST_F(QM2150Transaction, AStaleReplyIsNeverUsedAsTheAnswer) {
  os.NoReply();
  EXPECT_EQ(Inquiry(), -56);
  os.Arrive({0xAA, 0xAA, 0x01, 0x09, 0xAA, 0x82, 0x04, 0x90, 0x50, 0x77, 0xFF, 0x7A, 0x55});
  os.Forget();
  os.Reply(kCompletion);
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_EQ(reply.bData[0], 0x02);
}

TEST_F(QM2150Transaction, AReplyWithAWrongIdIsNotSkippedForALaterOne) {
  os.device = [this](const Request& request) {
    Bytes wrong = Reply(kCompletion).Id(0x99).Body(request);
    os.Arrive(wrong);
    os.Answer(request, kCompletion);
  };
  EXPECT_EQ(Inquiry(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("SeqID failed!"), Err("QM2150_CheckZR4410Packet failed!"),
                                    Err("QM2150_ProcessVisca failed!")));
}

TEST_F(QM2150Transaction, ProcessViscaCompletesThePreparedRecord) {
  gtUart1ViscaCmdInq = Filled<ViscaRequestFrame>(0x5A);
  gtUart1ViscaCmdInq.selector = 0x09;
  gtUart1ViscaCmdInq.category = 0x04;
  gtUart1ViscaCmdInq.count = 1;
  gtUart1ViscaCmdInq.data[0] = 0x42;
  os.Reply(kCompletion);
  EXPECT_EQ(QM2150_ProcessVisca(), 0);
  EXPECT_EQ(Hex(Bytes(&gtUart1ViscaCmdInq.start, &gtUart1ViscaCmdInq.start + 8)), "AA 02 05 81 09 04 01 42");
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x02, 0x05, 0x81, 0x09, 0x04, 0x42, 0xFF, 0x80, 0x55}));
  EXPECT_EQ(gbUart1Command, 0x02);
  EXPECT_EQ(Hex(Bytes(&gtUart1ViscaResp.start, &gtUart1ViscaResp.start + 7)), "AA 82 04 90 50 01 02");
}

TEST_F(QM2150Transaction, ProcessViscaTreatsEverySelectorExceptInquiryAsACommand) {
  for (const uint8_t selector : Bytes{0x00, 0x01, 0x08, 0x0A, 0xFF}) {
    gtUart1ViscaCmdInq = {};
    gtUart1ViscaCmdInq.selector = selector;
    os.Reply({0x77});
    EXPECT_EQ(QM2150_ProcessVisca(), 0);
    EXPECT_EQ(gtUart1Resp.data[0], 0x77);
  }
}

TEST_F(QM2150Transaction, ProcessViscaDoesNotExamineTheContent) {
  for (const Bytes& payload : {Bytes{0x90, 0x60, 0x02, 0xFF}, Bytes{0x00, 0x00, 0x00}}) {
    gtUart1ViscaCmdInq = {};
    gtUart1ViscaCmdInq.selector = 0x09;
    os.Reply(payload);
    EXPECT_EQ(QM2150_ProcessVisca(), 0);
  }
  EXPECT_THAT(os.Log(), IsEmpty());
}

// --- Every fault ---

class QM2150TransactionInquiryFault : public QM2150Transaction, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, QM2150TransactionInquiryFault, ValuesIn(InquiryFaults()),
                         FaultName<testing::TestParamInfo<Fault>>);

TEST_P(QM2150TransactionInquiryFault, FailsTheInquiryWithOneMoreLineUnlessStopped) {
  GetParam().arrange(os, kCompletion);
  reply = Filled<tVisca>(0x5A);
  EXPECT_EQ(Inquiry(), GetParam().result);
  EXPECT_EQ(LinesAbove(os.Log(), GetParam()).size(), GetParam().result == -15 ? 0U : 1U);
  EXPECT_THAT(BytesOf(reply), Each(0x5A));
}

TEST_P(QM2150TransactionInquiryFault, FailsTheExchangeWithItsOwnLinesOnly) {
  GetParam().arrange(os, kCompletion);
  gtUart1ViscaCmdInq.selector = 0x09;
  EXPECT_EQ(QM2150_ProcessVisca(), GetParam().result);
  EXPECT_EQ(os.Log(), GetParam().lines);
}

TEST_P(QM2150TransactionInquiryFault, DoesNotAffectTheNextInquiry) {
  GetParam().arrange(os, kCompletion);
  EXPECT_EQ(Inquiry(), GetParam().result);
  StartOver();
  os.Reply({0x90, 0x50, 0x33, 0xFF});
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_EQ(reply.bData[0], 0x33);
}

class QM2150TransactionCommandFault : public QM2150Transaction, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, QM2150TransactionCommandFault, ValuesIn(CommandFaults()),
                         FaultName<testing::TestParamInfo<Fault>>);

TEST_P(QM2150TransactionCommandFault, FailsTheCommandWithOneMoreLineUnlessStopped) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(QM2150_Command(1, kData), GetParam().result);
  EXPECT_EQ(LinesAbove(os.Log(), GetParam()).size(), GetParam().result == -15 ? 0U : 1U);
}

TEST_P(QM2150TransactionCommandFault, FailsTheExchangeWithItsOwnLinesOnly) {
  GetParam().arrange(os, kAck);
  gtUart1ViscaCmdInq.selector = 0x01;
  EXPECT_EQ(QM2150_ProcessVisca(), GetParam().result);
  EXPECT_EQ(os.Log(), GetParam().lines);
}

TEST_F(QM2150Transaction, AMalformedReplyIsRefusedWithoutReadingBeyondIt) {
  for (unsigned length = 0; length <= 36; ++length) {
    for (const uint8_t fill : Bytes{0x00, 0x55, 0xAA, 0xFF}) {
      os.Reply({}).Raw(Bytes(length, fill));
      EXPECT_LT(Inquiry(), 0);
      os.Reply({}).Raw(Bytes(length, fill));
      EXPECT_LT(QM2150_Command(1, kData), 0);
    }
  }
}

TEST_F(QM2150Transaction, InquireAndJudgeLogsWhichStepFailed) {
  os.NoReply();
  EXPECT_EQ(InquireAndJudge(0x04, 1, kData, &reply), -56);
  EXPECT_EQ(os.Log().back(), Err("QM2150_Inquiry fail!\n"));
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(InquireAndJudge(0x04, 1, kData, &reply), -59);
  EXPECT_EQ(os.Log().back(), Err("QM2150_ChecRespVisca fail!\n"));
}

// --- Checking a reply ---

TEST_F(QM2150Transaction, ACompletionIsGood) {
  reply = {0x90, 0x50, 0, {}, 0xFF};
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), 0);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Transaction, Bit15OfTheDebugLevelLogsACompletion) {
  reply = {0x90, 0x50, 0, {}, 0xFF};
  for (const int32_t level : {0x8000, 0xFFFF, -1}) {
    os.Forget();
    giDebug = level;
    EXPECT_EQ(QM2150_ChecRespVisca(&reply), 0);
    EXPECT_THAT(os.Log(), ElementsAre(Debug("VISCA RESP ACK!\n")));
  }
  os.Forget();
  giDebug = 0x7FFF7FFF;
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), 0);
  giDebug = -1;
  reply.replyType = 0x41;
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), 0);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Transaction, AWrongHeaderOrTerminatorIsBad) {
  reply = {0x91, 0x50, 0, {}, 0xFF};
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), -59);
  reply = {0x90, 0x50, 0, {}, 0xFE};
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), -59);
  reply = {0x00, 0x60, 0, {0x02}, 0x00};  // the header is checked first
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), -59);
  reply = {0x90, 0x60, 0, {0x02}, 0x00};
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), -59);
  EXPECT_THAT(os.Log(), ElementsAre(Err("VISCA RESP Header fail!\n"), Err("VISCA RESP Terminator fail!\n"),
                                    Err("VISCA RESP Header fail!\n"), Err("VISCA RESP Terminator fail!\n")));
}

TEST_F(QM2150Transaction, EachErrorCodeHasItsLine) {
  struct Error {
    uint8_t code;
    const char* line;
  };
  for (const Error& error :
       {Error{0x01, "VISCA RESP: Message length error.\n"}, Error{0x02, "VISCA RESP: Syntax error.\n"},
        Error{0x03, "VISCA RESP: Command buffer full.\n"}, Error{0x04, "VISCA RESP: Command cancelled.\n"},
        Error{0x05, "VISCA RESP: No Socket.\n"}, Error{0x41, "VISCA RESP: Command not executable.\n"},
        Error{0x00, "VISCA RESP: Others code.\n"}, Error{0x06, "VISCA RESP: Others code.\n"},
        Error{0x40, "VISCA RESP: Others code.\n"}, Error{0x42, "VISCA RESP: Others code.\n"},
        Error{0xFF, "VISCA RESP: Others code.\n"}}) {
    os.Forget();
    reply = {0x90, 0x60, 1, {error.code}, 0xFF};
    EXPECT_EQ(QM2150_ChecRespVisca(&reply), -59);
    EXPECT_THAT(os.Log(), ElementsAre(Err(error.line)));
  }
}

TEST_F(QM2150Transaction, EveryReplyTypeExcept0x60Passes) {
  for (unsigned type = 0; type <= 0xFF; ++type) {
    reply = {0x90, static_cast<uint8_t>(type), 1, {0x02}, 0xFF};
    EXPECT_EQ(QM2150_ChecRespVisca(&reply), type == 0x60 ? -59 : 0) << type;
  }
  EXPECT_THAT(os.Log(), ElementsAre(Err("VISCA RESP: Syntax error.\n")));
}

TEST_F(QM2150Transaction, ASyntaxErrorIsRecognised) {
  os.Reply({0x90, 0x60, 0x02, 0xFF});
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_EQ(reply.length, 1);
  EXPECT_EQ(reply.bData[0], 0x02);
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), -59);
  EXPECT_THAT(os.Log(), ElementsAre(Err("VISCA RESP: Syntax error.\n")));
}

TEST_F(QM2150Transaction, AnAcknowledgementWithoutDataIsGood) {
  os.Reply({0x90, 0x41, 0xFF});
  EXPECT_EQ(Inquiry(), 0);
  EXPECT_EQ(reply.length, 0);
  EXPECT_EQ(QM2150_ChecRespVisca(&reply), 0);
  EXPECT_THAT(os.Log(), IsEmpty());
}

}  // namespace
