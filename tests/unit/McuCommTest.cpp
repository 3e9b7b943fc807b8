// The motor microcontroller's commands and texts.
#include <cstring>
#include <limits>

#include "tests/fakeos/Faults.h"
#include "tests/fakeos/Fixtures.h"

namespace {

using testing::Each;
using testing::ValuesIn;

class McuCommTest : public Linked {};

// --- Texts ---

TEST_F(McuCommTest, EachResultCodeHasItsText) {
  EXPECT_STREQ(MCU_StrError(0x10), "ACK OK");
  EXPECT_STREQ(MCU_StrError(0x20), "Checksum error");
  EXPECT_STREQ(MCU_StrError(0x30), "Command not define");
  EXPECT_STREQ(MCU_StrError(0x40), "Value out of range");
  EXPECT_STREQ(MCU_StrError(0x50), "Busy");
}

TEST_F(McuCommTest, EveryOtherResultCodeIsNull) {
  int named = 0;
  for (unsigned code = 0; code <= 0xFF; ++code) {
    named += strcmp(MCU_StrError(static_cast<uint8_t>(code)), "Null") != 0;
  }
  EXPECT_EQ(named, 5);
  EXPECT_STREQ(MCU_StrError(0x11), "Null");
}

TEST_F(McuCommTest, TheResultTextsAreWritableArrays) {
  for (const uint8_t code : Bytes{0x10, 0x20, 0x30, 0x40, 0x50, 0x00}) {
    char* const text = const_cast<char*>(MCU_StrError(code));
    const char first = *text;
    *text = '?';
    EXPECT_EQ(*MCU_StrError(code), '?');
    *text = first;
  }
}

constexpr const char* kDescriptions[] = {
    "[unknown]",
    "[PelcoD] Data 4 Bytes",
    "[Sony Lens] Visca Command",
    "[Max Speed] 30~430 degree/s MSB first",
    "[Scan Speed] 1~90 degree/s",
    "[Tilt Angle] 0:Indoor 85 degree, 1:Outdoor 92 degree",
    "[Auto Flip] 0:Off, 1:On",
    "[Proportional P/T] 0:Off, 1:On",
    "[Scan Angle] 1~90 degree",
    "[Scan Limit Enable] 0:Off, 1:On",
    "[Scan Right Limit] P,P,P,P (0~64000 steps)",
    "[Scan Left Limit] P,P,P,P (0~64000 steps)",
    "[Lens Power Control] 0:Off, 1:On",
    "[Load Default] Clean Preset",
    "[Get Alarm In State",
    "[Get H/W Default I/O State]",
    "[Get Version]",
    "[Get PTZ] 0:Get, 1:Auto Response",
    "[Set PTZ]  P,P,P,P,T,T,Z,Z",
    "[Set Alarm Out] 0:Clean, 1:Set",
    "[Get Motor State] 0:Get, 1:Auto Response",
    "[Set Pan Tilt Angle] 0:Stop, 1:Start (default)",
};

TEST_F(McuCommTest, EachCommandHasItsDescription) {
  for (uint32_t id = 0x00; id <= 0x15; ++id) {
    char text[64] = {};
    EXPECT_EQ(MCU_Cmd2Str(id, text), 0);
    EXPECT_STREQ(text, kDescriptions[id]);
  }
}

TEST_F(McuCommTest, TheLongestDescriptionNeeds53Bytes) {
  char text[53];
  EXPECT_EQ(MCU_Cmd2Str(0x05, text), 0);  // a sanitizer detects a write past its end
  EXPECT_EQ(strlen(text), 52U);
  char junk[64];
  memset(junk, 'x', sizeof junk);
  EXPECT_EQ(MCU_Cmd2Str(0x00, junk), 0);
  EXPECT_EQ(std::string(junk, 11), std::string("[unknown]\0x", 11));
}

TEST_F(McuCommTest, AnUnknownCommandLeavesTheTextUnchanged) {
  for (const uint32_t id : {0x16U, 0x100U, 0x80000000U, 0xFFFFFFFFU}) {
    char text[] = "untouched";
    EXPECT_EQ(MCU_Cmd2Str(id, text), -1);
    EXPECT_STREQ(text, "untouched");
  }
}

// --- Get Version ---

TEST_F(McuCommTest, TheVersionIsTheFirstReplyByte) {
  uint8_t version = 0;
  os.Reply({0x23});
  EXPECT_EQ(MCU_GetVersion(&version), 0);
  EXPECT_EQ(version, 0x23);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x10, 0x01, 0x01, 0x44, 0x55}));
  EXPECT_EQ(Hex(Bytes(os.Requests()[0].body.begin(), os.Requests()[0].body.begin() + 11)),
            "AA AA 01 06 AA 10 01 01 44 55 00");
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(McuCommTest, TheLengthOfTheVersionReplyIsIgnored) {
  uint8_t version = 0xEE;
  os.Reply({});
  EXPECT_EQ(MCU_GetVersion(&version), 0);
  EXPECT_EQ(version, 0x00);
  os.Reply({0x05, 0x06, 0x07});
  EXPECT_EQ(MCU_GetVersion(&version), 0);
  EXPECT_EQ(version, 0x05);
  os.Reply(Bytes(16, 0x09));
  EXPECT_EQ(MCU_GetVersion(&version), 0);
  EXPECT_EQ(version, 0x09);
}

// --- Lens power ---

TEST_F(McuCommTest, LensPowerTakesTheLowByte) {
  for (const int32_t on : {1, 0, 257, -1, 0x7FFFFF02}) {
    os.Reply({0x10});
    EXPECT_EQ(MCU_LensPowerControl(on), 0);
  }
  EXPECT_THAT(os.Frames(),
              ElementsAre(Bytes{0xAA, 0x0C, 0x01, 0x01, 0x48, 0x55}, Bytes{0xAA, 0x0C, 0x01, 0x00, 0x49, 0x55},
                          Bytes{0xAA, 0x0C, 0x01, 0x01, 0x48, 0x55}, Bytes{0xAA, 0x0C, 0x01, 0xFF, 0x4A, 0x55},
                          Bytes{0xAA, 0x0C, 0x01, 0x02, 0x47, 0x55}));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(McuCommTest, LensPowerFailsSilentlyWithoutAnAcknowledgement) {
  for (const uint8_t code : Bytes{0x00, 0x11, 0x20, 0x30, 0x40, 0x50, 0xFF}) {
    os.Reply({code});
    EXPECT_EQ(MCU_LensPowerControl(1), -1);
  }
  os.Reply({0x10});
  EXPECT_EQ(MCU_LensPowerControl(1), 0);
  os.Reply({});  // the reply record is cleared before each command
  EXPECT_EQ(MCU_LensPowerControl(1), -1);
  EXPECT_THAT(os.Log(), IsEmpty());
}

// --- Get PTZ ---

struct Ptz {
  uint32_t pan = 0xEEEEEEEE;
  uint16_t tilt = 0xEEEE, zoom = 0xEEEE;
  int Get(int32_t mode = 0) { return MCU_GetPTZ(mode, &pan, &tilt, &zoom); }
};

TEST_F(McuCommTest, PositionsComeMostSignificantByteFirst) {
  Ptz ptz;
  os.Reply({0x00, 0x00, 0xFA, 0x00, 0x01, 0x2C, 0x00, 0x10});
  EXPECT_EQ(ptz.Get(), 0);
  EXPECT_EQ(ptz.pan, 64000U);
  EXPECT_EQ(ptz.tilt, 300);
  EXPECT_EQ(ptz.zoom, 16);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x11, 0x01, 0x00, 0x44, 0x55}));
  EXPECT_EQ(os.Output(), "");

  os.Reply({0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0xF2, 0x10});
  EXPECT_EQ(ptz.Get(), 0);
  EXPECT_EQ(ptz.pan, 0xFEDCBA98U);
  EXPECT_EQ(ptz.tilt, 0x7654);
  EXPECT_EQ(ptz.zoom, 0xF210);
}

TEST_F(McuCommTest, TheModeOfThePositionsIsTheLowByte) {
  Ptz ptz;
  for (const int32_t mode : {1, 256 + 2, -1}) {
    os.Reply(Bytes(8));
    EXPECT_EQ(ptz.Get(mode), 0);
  }
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x01}, Bytes{0x02}, Bytes{0xFF}));
}

TEST_F(McuCommTest, PositionsOfAnyOtherLengthFailSilently) {
  for (const size_t length : {0U, 1U, 7U, 9U, 16U}) {
    Ptz ptz;
    os.Reply(Bytes(length, 0x01));
    EXPECT_EQ(ptz.Get(), -1) << length;
    EXPECT_EQ(ptz.pan, 0xEEEEEEEE);
    EXPECT_EQ(ptz.tilt, 0xEEEE);
    EXPECT_EQ(ptz.zoom, 0xEEEE);
  }
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(McuCommTest, TheDebugFlagDumpsThePositions) {
  Ptz ptz;
  gfDebugFlag = 1;
  os.Reply({0x00, 0x00, 0xFA, 0x00, 0x01, 0x2C, 0x00, 0x10});
  EXPECT_EQ(ptz.Get(), 0);
  EXPECT_THAT(os.Output(), testing::EndsWith("\n[testZR4410] MCU_GetPTZ:\n(8): \n00 00 FA 00 01 2C 00 10 \n"));
}

TEST_F(McuCommTest, ABadPositionIsNotDumped) {
  Ptz ptz;
  gfDebugFlag = 1;
  os.Reply(Bytes(7));
  EXPECT_EQ(ptz.Get(), -1);
  EXPECT_THAT(os.Output(), testing::Not(testing::HasSubstr("MCU_GetPTZ")));
}

// --- The exchange ---

TEST_F(McuCommTest, EachCommandClearsRequestAndReplyFirst) {
  gtUart1Cmd = gtUart1Resp = Filled<PlainFrame>(0x5A);
  uint8_t version = 0;
  os.Reply({0x23});
  EXPECT_EQ(MCU_GetVersion(&version), 0);
  EXPECT_EQ(Hex(BytesOf(gtUart1Cmd)), "AA 10 01 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 44 55");
  EXPECT_EQ(Hex(BytesOf(gtUart1Resp)), "AA 90 01 23 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 A2 55");
}

TEST_F(McuCommTest, ARequestWithoutDataIsFiveBytes) {
  gtUart1Cmd = {};
  gtUart1Cmd.command = 0x0E;
  os.Reply({0x01});
  EXPECT_EQ(MCU_ProcessUart1(), 0);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x0E, 0x00, 0x48, 0x55}));
  EXPECT_EQ(os.Requests()[0].body[3], 5);
  EXPECT_EQ(gbUart1Command, 0x0E);
}

TEST_F(McuCommTest, ARequestTakesSixteenDataBytes) {
  gtUart1Cmd = {};
  gtUart1Cmd.command = 0x01;
  gtUart1Cmd.length = 16;
  memset(gtUart1Cmd.data, 0x11, 16);
  os.Reply({0x10});
  EXPECT_EQ(MCU_ProcessUart1(), 0);
  EXPECT_EQ(Hex(os.Requests()[0].body),
            "AA AA 01 15 AA 01 10 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 35 55 00 00 00 00 00 00 00 00 00 00 "
            "00");
}

TEST_F(McuCommTest, ALongerRequestIsRefusedButUsesUpAnId) {
  memset(gtZR4410MsgqCmdBuf.body + 3, 0x5A, 33);
  for (const uint8_t length : Bytes{17, 128, 255}) {
    os.Forget();
    gtUart1Cmd = {};
    gtUart1Cmd.command = 0x33;
    gtUart1Cmd.length = length;
    Bytes expected = BytesOf(gtZR4410MsgqCmdBuf.body);  // as the last request left it, except for header and id
    expected[0] = expected[1] = 0xAA;
    ++expected[2];
    EXPECT_EQ(MCU_ProcessUart1(), -1);
    EXPECT_EQ(BytesOf(gtZR4410MsgqCmdBuf.body), expected);
    EXPECT_THAT(os.Timeline(), ElementsAre(Logged(Err("Len > DATA_MAX_LEN")), Logged(Err("MCU_FillZR4410 failed!"))));
    EXPECT_EQ(gbUart1Command, 0x33);
  }
  EXPECT_EQ(gbSeqId, 3);
  EXPECT_EQ(gtZR4410MsgqCmdBuf.body[2], 3);
}

TEST_F(McuCommTest, TheTailOfALongerRequestIsSentAlong) {
  gtUart1Cmd = {};
  gtUart1Cmd.length = 4;
  memset(gtUart1Cmd.data, 0x11, 4);
  os.NoReply();
  EXPECT_EQ(MCU_ProcessUart1(), -56);
  uint8_t version = 0;
  os.Reply({0x23});
  EXPECT_EQ(MCU_GetVersion(&version), 0);
  EXPECT_EQ(Hex(Bytes(os.Requests()[1].body.begin(), os.Requests()[1].body.begin() + 14)),
            "AA AA 02 06 AA 10 01 01 44 55 11 0E 55 00");
}

TEST_F(McuCommTest, TheIdWrapsFrom255To0) {
  os.device = [this](const Request& request) { os.Answer(request, {0x10}); };
  for (int i = 1; i <= 520; ++i) {
    ASSERT_EQ(MCU_LensPowerControl(1), 0);
    ASSERT_EQ(os.Requests().back().Id(), i % 256);
  }
}

TEST_F(McuCommTest, ARequestCodeOf0x80IsNeverAnswered) {
  gtUart1Cmd = {};
  gtUart1Cmd.command = 0x80;
  os.Reply({0x10}).Code(0x00);
  EXPECT_EQ(MCU_ProcessUart1(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("UART1 RESP CMD Code failed!"), Err("MCU_CheckUart1Resp failed!")));
}

TEST_F(McuCommTest, AWrongHeaderIsLoggedBeforeAWrongId) {
  gtUart1Cmd = {};
  os.Reply({0x10}).Header(0x00, 0xAA).Id(0x77);
  EXPECT_EQ(MCU_ProcessUart1(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("ZR4410_PACKET_HEADER failed!"), Err("MCU_CheckZR4410Packet failed!")));
}

TEST_F(McuCommTest, TheMessageTypeAndFrameLengthOfAReplyAreIgnored) {
  gtUart1Cmd = {};
  os.Reply({0x10}).Type(1).FrameLength(0xFF);
  EXPECT_EQ(MCU_ProcessUart1(), 0);
}

TEST_F(McuCommTest, AFailedExchangeIsLoggedByTheCommandToo) {
  uint8_t version = 0;
  os.NoReply();
  EXPECT_EQ(MCU_GetVersion(&version), -56);
  EXPECT_EQ(os.Log().back(), Err("MCU_ProcessUart1 failed!"));
}

class McuCommFault : public McuCommTest, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, McuCommFault, ValuesIn(McuFaults()), FaultName<testing::TestParamInfo<Fault>>);

TEST_P(McuCommFault, FailsTheExchangeWithItsOwnLinesOnly) {
  gtUart1Cmd = {};
  gtUart1Cmd.command = 0x10;
  GetParam().arrange(os, {0x23});
  EXPECT_EQ(MCU_ProcessUart1(), GetParam().result);
  EXPECT_EQ(os.Log(), GetParam().lines);
}

TEST_P(McuCommFault, FailsTheVersionWithASecondLineUnlessStopped) {
  uint8_t version = 0xEE;
  GetParam().arrange(os, {0x23});
  EXPECT_EQ(MCU_GetVersion(&version), GetParam().result);
  EXPECT_EQ(LinesAbove(os.Log(), GetParam()).size(), GetParam().result == -15 ? 0U : 1U);
  EXPECT_EQ(version, 0xEE);
}

TEST_P(McuCommFault, FailsLensPowerWithASecondLineUnlessStopped) {
  GetParam().arrange(os, {0x10});
  EXPECT_EQ(MCU_LensPowerControl(1), GetParam().result);
  EXPECT_EQ(LinesAbove(os.Log(), GetParam()).size(), GetParam().result == -15 ? 0U : 1U);
}

TEST_P(McuCommFault, FailsThePositionsWithASecondLineUnlessStopped) {
  Ptz ptz;
  GetParam().arrange(os, Bytes(8));
  EXPECT_EQ(ptz.Get(), GetParam().result);
  EXPECT_EQ(LinesAbove(os.Log(), GetParam()).size(), GetParam().result == -15 ? 0U : 1U);
  EXPECT_EQ(ptz.pan, 0xEEEEEEEE);
}

TEST_F(McuCommTest, AMalformedReplyIsRefusedWithoutReadingBeyondIt) {
  for (unsigned length = 0; length <= 36; ++length) {
    for (const uint8_t fill : Bytes{0x00, 0x55, 0xAA, 0xFF}) {
      os.Reply({}).Raw(Bytes(length, fill));
      EXPECT_LT(MCU_LensPowerControl(1), 0);
    }
  }
}

}  // namespace
