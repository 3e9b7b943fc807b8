// Wrapping, unwrapping and checking the relay body and the frames in it.
#include <cstring>

#include "tests/fakeos/Fixtures.h"

namespace {

using testing::Each;

struct Body {
  uint8_t bytes[36];
};

Body BodyOf(const Bytes& used, uint8_t rest = 0xEE) {
  Body body;
  memset(body.bytes, rest, sizeof body.bytes);
  std::copy(used.begin(), used.end(), body.bytes);
  return body;
}

std::string Text(const Body& body) { return Hex(BytesOf(body.bytes)); }

class Relay : public Machine {};

// --- Camera request ---

// A request with `count` data bytes 01, 02, 03 ..., junk behind them, and this checksum.
ViscaRequestFrame CameraRequest(uint8_t count, uint8_t checksum) {
  ViscaRequestFrame frame{0xAA,     0x02, static_cast<uint8_t>(count + 4), 0x81, 0x09, 0x04, count, {}, 0xFF,
                          checksum, 0x55};
  for (uint8_t i = 0; i < 16; ++i) {
    frame.data[i] = i < count ? static_cast<uint8_t>(i + 1) : 0xDD;
  }
  return frame;
}

TEST_F(Relay, TheChecksumBringsTheFramesSumToZero) {
  ViscaRequestFrame frame = CameraRequest(0, 0);
  EXPECT_EQ(QM2150_ChecksumViscaCmd(&frame), 0xC3);
  frame = CameraRequest(1, 0);
  EXPECT_EQ(QM2150_ChecksumViscaCmd(&frame), 0xC1);
  frame = CameraRequest(16, 0);
  EXPECT_EQ(QM2150_ChecksumViscaCmd(&frame), 0x2B);
}

TEST_F(Relay, TheChecksumUsesTheFieldsAsTheyAre) {
  ViscaRequestFrame frame{};
  EXPECT_EQ(QM2150_ChecksumViscaCmd(&frame), 0x00);
  frame = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x02, {0x10, 0x20, 0x40}, 0x80, 0x77, 0x88};
  EXPECT_EQ(QM2150_ChecksumViscaCmd(&frame), 0x3B);  // not count, third data byte, checksum or stop
}

TEST_F(Relay, ACountOutOfRangeSumsSixteenDataBytesAtMost) {
  ViscaRequestFrame frame = CameraRequest(16, 0);
  frame.count = 255;
  EXPECT_EQ(QM2150_ChecksumViscaCmd(&frame), 0x2B);
}

TEST_F(Relay, ARequestWithoutDataIsWrapped) {
  const ViscaRequestFrame frame = CameraRequest(0, 0xC3);
  Body body = BodyOf({0, 0, 0});
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(Text(body), Text(BodyOf({0xAA, 0xAA, 0x01, 0x09, 0xAA, 0x02, 0x04, 0x81, 0x09, 0x04, 0xFF, 0xC3, 0x55})));
}

TEST_F(Relay, ARequestWithTwelveDataBytesIsTheLongest) {
  const ViscaRequestFrame frame = CameraRequest(12, 0x12);
  Body body = BodyOf({0, 0, 0});
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(Text(body), Text(BodyOf({0xAA, 0xAA, 0x01, 0x15, 0xAA, 0x02, 0x10, 0x81, 0x09, 0x04, 0x01, 0x02, 0x03,
                                     0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0xFF, 0x12, 0x55})));
}

TEST_F(Relay, AnyLongerRequestIsRefusedButUsesUpAnId) {
  for (const uint8_t count : Bytes{13, 14, 16}) {
    os.Forget();
    const ViscaRequestFrame frame = CameraRequest(count, 0);
    Body body = BodyOf({0xAA, 0xAA, 0x07, 0x09, 0xAA, 0x02, 0x04, 0x81, 0x09, 0x04, 0xFF, 0xC3, 0x55});
    EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), -57);
    EXPECT_THAT(os.Log(), ElementsAre(Err("Len > VISCA_PACKET_MAX_LEN")));
    EXPECT_EQ(Text(body), Text(BodyOf({0xAA, 0xAA, 0x08, 0x09, 0xAA, 0x02, 0x04, 0x81, 0x09, 0x04, 0xFF, 0xC3, 0x55})));
    EXPECT_EQ(gbSeqId, 8);
  }
}

TEST_F(Relay, TheTailOfALongerRequestStays) {
  ViscaRequestFrame frame = CameraRequest(12, 0x12);
  Body body = BodyOf({0, 0, 0}, 0);
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  frame = CameraRequest(1, 0xC1);
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(Text(body), Text(BodyOf({0xAA, 0xAA, 0x02, 0x0A, 0xAA, 0x02, 0x05, 0x81, 0x09, 0x04, 0x01, 0xFF, 0xC1,
                                     0x55, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0xFF, 0x12, 0x55},
                                    0)));
}

TEST_F(Relay, TheIdIsOneMoreThanTheBodysOwn) {
  const ViscaRequestFrame frame = CameraRequest(0, 0xC3);
  Body body = BodyOf({0, 0, 0});
  gbSeqId = 99;  // only a copy: the counter is in the body
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(body.bytes[2], 1);
  EXPECT_EQ(gbSeqId, 1);
  body.bytes[2] = 0x80;
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(body.bytes[2], 0x81);
  EXPECT_EQ(gbSeqId, 0x81);
}

TEST_F(Relay, TheIdWrapsFrom255To0) {
  const ViscaRequestFrame frame = CameraRequest(0, 0xC3);
  Body body = BodyOf({0, 0, 0xFE});
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(gbSeqId, 0xFF);
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(body.bytes[2], 0);
  EXPECT_EQ(gbSeqId, 0);
  EXPECT_EQ(QM2150_FillZR4410(&frame, body.bytes), 0);
  EXPECT_EQ(gbSeqId, 1);
}

// --- Received body ---

TEST_F(Relay, ABodyWithHeaderAndIdIsGood) {
  gbSeqId = 0x42;
  const Body body = BodyOf({0xAA, 0xAA, 0x42}, 0);  // the frame length is ignored
  EXPECT_EQ(QM2150_CheckZR4410Packet(body.bytes), 0);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Relay, AWrongHeaderByteFailsSilently) {
  gbSeqId = 0x42;
  for (const Bytes& header : {Bytes{0xAB, 0xAA, 0x42}, Bytes{0xAA, 0x00, 0x42}, Bytes{0x00, 0x00, 0x41}}) {
    const Body body = BodyOf(header);
    EXPECT_EQ(QM2150_CheckZR4410Packet(body.bytes), -1);
  }
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Relay, AWrongIdIsLogged) {
  gbSeqId = 0x42;
  for (const uint8_t id : Bytes{0x41, 0x43, 0x00, 0xFF}) {
    os.Forget();
    const Body body = BodyOf({0xAA, 0xAA, id});
    EXPECT_EQ(QM2150_CheckZR4410Packet(body.bytes), -1);
    EXPECT_THAT(os.Log(), ElementsAre(Err("SeqID failed!")));
  }
}

// --- Camera reply ---

TEST_F(Relay, AReplyOfThreeBytesHasNoMiddle) {
  const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x08, 0xAA, 0x82, 0x03, 0x90, 0x41, 0xFF, 0x01, 0x55});
  ViscaReplyFrame frame{};
  EXPECT_EQ(QM2150_FillUart1Resp(body.bytes, &frame), 0);
  EXPECT_EQ(Hex(BytesOf(frame)), "AA 82 03 90 41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF 01 55");
}

TEST_F(Relay, AReplyOfNineteenBytesIsTheLongest) {
  const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x18, 0xAA, 0x82, 0x13, 0x90, 0x50, 0x01, 0x02, 0x03, 0x04, 0x05,
                            0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0xFF, 0x5A, 0x55});
  ViscaReplyFrame frame{};
  EXPECT_EQ(QM2150_FillUart1Resp(body.bytes, &frame), 0);
  EXPECT_EQ(Hex(BytesOf(frame)), "AA 82 13 90 50 10 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 FF 5A 55");
}

TEST_F(Relay, AReplyOfAnyOtherLengthIsRefused) {
  struct Length {
    uint8_t length, middle;
  };
  for (const Length& refused : {Length{0x00, 0xFD}, Length{0x01, 0xFE}, Length{0x02, 0xFF}, Length{0x14, 0x11},
                                Length{0x80, 0x7D}, Length{0xFF, 0xFC}}) {
    os.Forget();
    const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x08, 0xAA, 0x82, refused.length, 0x90, 0x50});
    auto frame = Filled<ViscaReplyFrame>(0x5A);
    EXPECT_EQ(QM2150_FillUart1Resp(body.bytes, &frame), -57);
    EXPECT_THAT(os.Log(), ElementsAre(Err("Len > VISCA_PACKET_MAX_LEN")));
    EXPECT_EQ(Hex(Bytes(&frame.start, &frame.start + 6)),
              Hex({0xAA, 0x82, refused.length, 0x90, 0x50, refused.middle}));
    EXPECT_THAT(frame.middle, Each(0x5A));
    EXPECT_EQ(frame.terminator, 0x5A);
  }
}

TEST_F(Relay, UnwrappingAReplyDoesNotClearTheRecord) {
  const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x09, 0xAA, 0x82, 0x04, 0x90, 0x50, 0x02, 0xFF, 0xEF, 0x55});
  auto frame = Filled<ViscaReplyFrame>(0x5A);
  EXPECT_EQ(QM2150_FillUart1Resp(body.bytes, &frame), 0);
  EXPECT_EQ(Hex(BytesOf(frame)), "AA 82 04 90 50 01 02 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A FF EF 55");
}

ViscaReplyFrame GoodReply() {
  gbUart1Command = 0x02;
  return {0xAA, 0x82, 0x05, 0x90, 0x50, 0x02, {0x01, 0x0A, 0xDD}, 0xFF, 0xE5, 0x55};
}

TEST_F(Relay, AGoodReplyPasses) {
  const ViscaReplyFrame frame = GoodReply();
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), 0);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Relay, EachFaultOfAReplyHasItsResultAndLine) {
  ViscaReplyFrame frame = GoodReply();
  frame.start = 0xAB;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58);
  frame = GoodReply();
  frame.command = 0x02;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -1);
  frame = GoodReply();
  frame.checksum = 0xE4;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58);
  frame = GoodReply();
  frame.stop = 0x54;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58);
  EXPECT_THAT(os.Log(), ElementsAre(Err("VISCA_UART1_CMD_START failed!"), Err("UART1 RESP CMD Code failed!"),
                                    Err("Checksum failed!"), Err("VISCA_UART1_CMD_STOP failed!")));
}

TEST_F(Relay, TheFirstFaultOfAReplyDecides) {
  ViscaReplyFrame frame = GoodReply();
  frame.start = frame.command = frame.checksum = frame.stop = 0x00;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58);
  frame.start = 0xAA;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -1);
  frame.command = 0x82;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58);
  frame.checksum = 0xE5;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58);
  EXPECT_THAT(os.Log(), ElementsAre(Err("VISCA_UART1_CMD_START failed!"), Err("UART1 RESP CMD Code failed!"),
                                    Err("Checksum failed!"), Err("VISCA_UART1_CMD_STOP failed!")));
}

TEST_F(Relay, EveryByteOfAReplyIsSummed) {
  for (const size_t place : {1U, 2U, 3U, 4U, 6U, 7U, 22U}) {  // not the count and the unused part of the middle
    ViscaReplyFrame frame = GoodReply();
    uint8_t* const byte = &frame.start + place;
    ++*byte;
    gbUart1Command = static_cast<uint8_t>(frame.command - 0x80);
    EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58) << place;
  }
  ViscaReplyFrame frame = GoodReply();
  frame.middle[2] = 0x00;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), 0);
}

TEST_F(Relay, ARequestCodeOf0x80OrAboveIsNeverAnswered) {
  for (const int request : {0x80, 0x82, 0xFF}) {
    ViscaReplyFrame frame = GoodReply();
    gbUart1Command = static_cast<uint8_t>(request);
    frame.command = static_cast<uint8_t>(request + 0x80);
    EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -1);
    const PlainFrame plain{0xAA, frame.command, 0, {}, static_cast<uint8_t>(0x56 - frame.command), 0x55};
    EXPECT_EQ(MCU_CheckUart1Resp(&plain), -1);
  }
  EXPECT_THAT(os.Log(), Each(Err("UART1 RESP CMD Code failed!")));
}

TEST_F(Relay, AReplyCountOutOfRangeReadsNothingBeyondTheRecord) {
  ViscaReplyFrame frame = GoodReply();
  frame.count = 255;
  EXPECT_EQ(QM2150_CheckUart1Resp(&frame), -58);
}

// --- Plain frame ---

PlainFrame GoodPlain() {
  gbUart1Command = 0x10;
  return {0xAA, 0x90, 0x02, {0x23, 0x42, 0xDD}, 0x5F, 0x55};
}

TEST_F(Relay, ThePlainChecksumMatchesKnownValues) {
  PlainFrame frame{0xAA, 0x10, 1, {0x01, 0xDD}, 0xEE, 0xEE};
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0x44);
  frame = {0xAA, 0x0C, 1, {0x01}, 0, 0};
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0x48);
  frame = {0xAA, 0x0C, 1, {0x00}, 0, 0};
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0x49);
  frame = {0xAA, 0x11, 1, {0x00}, 0, 0};
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0x44);
  frame = {0xAA, 0x10, 0, {0xDD}, 0, 0};
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0x46);
  frame = {};
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0x00);
  frame = Filled<PlainFrame>(0x10);  // sixteen data bytes
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0xD0);
}

TEST_F(Relay, APlainLengthOutOfRangeSumsSixteenDataBytesAtMost) {
  PlainFrame frame = Filled<PlainFrame>(0x10);
  frame.length = 0xFF;
  EXPECT_EQ(MCU_ChecksumCmdResp(&frame), 0xE1);
}

TEST_F(Relay, APlainReplyIsUnwrappedIntoFixedPlaces) {
  const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x07, 0xAA, 0x90, 0x02, 0x23, 0x42, 0x5F, 0x55});
  auto frame = Filled<PlainFrame>(0x5A);  // not cleared
  EXPECT_EQ(MCU_FillUart1Resp(body.bytes, &frame), 0);
  EXPECT_EQ(Hex(BytesOf(frame)), "AA 90 02 23 42 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A 5F 55");
}

TEST_F(Relay, APlainReplyWithoutDataIsUnwrapped) {
  const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x05, 0xAA, 0x90, 0x00, 0xC6, 0x55});
  PlainFrame frame{};
  EXPECT_EQ(MCU_FillUart1Resp(body.bytes, &frame), 0);
  EXPECT_EQ(Hex(BytesOf(frame)), "AA 90 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 C6 55");
}

TEST_F(Relay, APlainReplyOfSixteenDataBytesIsTheLongest) {
  const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x15, 0xAA, 0x90, 0x10, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06,
                            0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x2E, 0x55});
  PlainFrame frame{};
  EXPECT_EQ(MCU_FillUart1Resp(body.bytes, &frame), 0);
  EXPECT_EQ(Hex(BytesOf(frame)), "AA 90 10 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 2E 55");
}

TEST_F(Relay, ALongerPlainReplyIsRefused) {
  for (const uint8_t length : Bytes{17, 18, 128, 255}) {
    os.Forget();
    const Body body = BodyOf({0xAA, 0xAA, 0x01, 0x05, 0xAB, 0x91, length});
    auto frame = Filled<PlainFrame>(0x5A);
    EXPECT_EQ(MCU_FillUart1Resp(body.bytes, &frame), -1);
    EXPECT_THAT(os.Log(), ElementsAre(Err("Len > DATA_MAX_LEN")));
    EXPECT_EQ(Hex(Bytes(&frame.start, &frame.start + 3)), Hex({0xAB, 0x91, length}));
    EXPECT_THAT(frame.data, Each(0x5A));
    EXPECT_EQ(frame.checksum, 0x5A);
    EXPECT_EQ(frame.stop, 0x5A);
  }
}

TEST_F(Relay, AGoodPlainReplyPasses) {
  const PlainFrame frame = GoodPlain();
  EXPECT_EQ(MCU_CheckUart1Resp(&frame), 0);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Relay, TheFirstFaultOfAPlainReplyDecides) {
  PlainFrame frame = GoodPlain();
  frame.start = frame.command = frame.checksum = frame.stop = 0x00;
  EXPECT_EQ(MCU_CheckUart1Resp(&frame), -1);
  frame.start = 0xAA;
  EXPECT_EQ(MCU_CheckUart1Resp(&frame), -1);
  frame.command = 0x10;  // the request's own code
  EXPECT_EQ(MCU_CheckUart1Resp(&frame), -1);
  frame.command = 0x90;
  EXPECT_EQ(MCU_CheckUart1Resp(&frame), -1);
  frame.checksum = 0x5F;
  EXPECT_EQ(MCU_CheckUart1Resp(&frame), -1);
  EXPECT_THAT(os.Log(),
              ElementsAre(Err("UART1_CMD_START failed!"), Err("UART1 RESP CMD Code failed!"),
                          Err("UART1 RESP CMD Code failed!"), Err("Checksum failed!"), Err("_UART1_CMD_STOP failed!")));
}

TEST_F(Relay, TheRecordsHaveFixedSizes) {
  EXPECT_EQ(sizeof(ViscaRequestFrame), 26U);
  EXPECT_EQ(sizeof(ViscaReplyFrame), 25U);
  EXPECT_EQ(sizeof(PlainFrame), 21U);
  EXPECT_EQ(sizeof(tVisca), 20U);
  EXPECT_EQ(sizeof(RelayMessage), 40U);
}

}  // namespace
