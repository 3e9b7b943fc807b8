// The camera's register bank, sensor mode, version and white balance trigger.
#include "tests/fakeos/Faults.h"
#include "tests/fakeos/Fixtures.h"

namespace {

using testing::Each;
using testing::ValuesIn;

constexpr unsigned kPoll = kPollMs * 1000;
const Bytes kAck = {0x10};
const Bytes kMode8 = {0x90, 0x50, 0x00, 0x08, 0xFF};
const Bytes kMode6 = {0x90, 0x50, 0x00, 0x06, 0xFF};
const Bytes kReadMode = {0x81, 0x09, 0x04, 0x24, 0x72, 0xFF};

class QM2150Registers : public Linked {
 protected:
  // Fills the request frame and the reply frame with bytes that earlier exchanges could have left.
  void FillBothFrames() {
    gtUart1ViscaCmdInq = Filled<ViscaRequestFrame>(0x5A);
    gtUart1ViscaResp = Filled<ViscaReplyFrame>(0x5A);
  }
};

TEST_F(QM2150Registers, AWriteSendsTheValueInNibbles) {
  os.Reply(kAck);
  EXPECT_EQ(QM2150_SetRegisterValue(0x72, 0x1A), 0);
  os.Reply(kAck);
  EXPECT_EQ(QM2150_SetRegisterValue(0xFF, 0xF0), 0);
  os.Reply(kAck);
  EXPECT_EQ(QM2150_SetRegisterValue(0x00, 0x0F), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x24, 0x72, 0x01, 0x0A, 0xFF},
                                        Bytes{0x81, 0x01, 0x04, 0x24, 0xFF, 0x0F, 0x00, 0xFF},
                                        Bytes{0x81, 0x01, 0x04, 0x24, 0x00, 0x00, 0x0F, 0xFF}));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Registers, AWriteThatIsNotAcknowledgedFailsSilently) {
  os.Reply({0x40});
  EXPECT_EQ(QM2150_SetRegisterValue(0x72, 0x08), -1);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Registers, AWriteClearsBothFramesFirst) {
  FillBothFrames();
  os.Reply(kAck);
  EXPECT_EQ(QM2150_SetRegisterValue(0x72, 0x1A), 0);
  EXPECT_EQ(Hex(BytesOf(gtUart1ViscaCmdInq)),
            "AA 02 08 81 01 04 04 24 72 01 0A 00 00 00 00 00 00 00 00 00 00 00 00 FF 26 55");
  EXPECT_THAT(BytesOf(gtUart1ViscaResp), Each(0));
}

TEST_F(QM2150Registers, AReadClearsBothFramesFirst) {
  FillBothFrames();
  uint8_t value = 0;
  os.Reply({0x90, 0x50, 0x07, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  EXPECT_EQ(value, 0x70);
  EXPECT_EQ(Hex(BytesOf(gtUart1ViscaCmdInq)),
            "AA 02 06 81 09 04 02 24 72 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF 2B 55");
  EXPECT_THAT(gtUart1ViscaResp.middle, ElementsAre(0x07, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST_F(QM2150Registers, AReadJoinsTwoNibbles) {
  uint8_t value = 0;
  os.Reply({0x90, 0x50, 0x01, 0x0A, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  EXPECT_EQ(value, 0x1A);
  EXPECT_THAT(os.Packets(), ElementsAre(kReadMode));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Registers, AReadUsesTheReplyAsItIs) {
  struct Example {
    Bytes reply;
    uint8_t value;
  };
  for (const Example& example :
       {Example{{0x90, 0x50, 0x07, 0xFF}, 0x70},        // one data byte: the second counts as 0
        Example{{0x90, 0x50, 0xFF}, 0x00},              // no data byte
        Example{{0x90, 0x60, 0x02, 0xFF}, 0x20},        // an error reply is not checked
        Example{{0x12, 0x34, 0x01, 0x0A, 0x00}, 0x1A},  // neither header nor terminator
        Example{{0x90, 0x50, 0x12, 0x34, 0xFF}, 0x54},  // the nibbles are not masked
        Example{{0x90, 0x50, 0xFF, 0xFF, 0xFF}, 0xEF}, Example{{0x90, 0x50, 0x01, 0x0A, 0x0B, 0x0C, 0xFF}, 0x1A}}) {
    uint8_t value = 0xEE;
    os.Reply(example.reply);
    EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
    EXPECT_EQ(value, example.value) << Hex(example.reply);
  }
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Registers, AReadKeepsNothingOfAnEarlierReply) {
  uint8_t value = 0;
  os.Reply({0x90, 0x50, 0x01, 0x0A, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  os.Reply({0x90, 0x50, 0x03, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  EXPECT_EQ(value, 0x30);
}

// --- Sensor mode ---

TEST_F(QM2150Registers, TheSensorModeIsRegister0x72) {
  uint8_t mode = 0;
  os.Reply(kMode8);
  EXPECT_EQ(QM2150_GetSnrMode(&mode), 0);
  EXPECT_EQ(mode, 0x08);
  EXPECT_THAT(os.Packets(), ElementsAre(kReadMode));
}

TEST_F(QM2150Registers, AWrittenSensorModeIsReadBackAfter50Ms) {
  os.Reply(kAck);
  os.Reply(kMode8);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x24, 0x72, 0x00, 0x08, 0xFF}, kReadMode));
  EXPECT_THAT(os.Slept(), ElementsAre(kPoll, 50000U, kPoll));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Registers, ASensorModeMayBeConfirmedByTheSecondReadBack) {
  os.Reply(kAck);
  os.Reply(kMode6);
  os.Reply(kMode8);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), 0);
  EXPECT_EQ(os.Requests().size(), 3U);
  EXPECT_THAT(os.Slept(), ElementsAre(kPoll, 50000U, kPoll, 50000U, kPoll));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Registers, ASensorModeThatDoesNotReadBackIsOnlyLogged) {
  os.Reply(kAck);
  os.Reply(kMode6);
  os.Reply(kMode6);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), 0);
  EXPECT_EQ(os.Requests().size(), 3U);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_SetSnrMode bRegValue != bReadRegValue failed!")));
}

TEST_F(QM2150Registers, AnUnacknowledgedSensorModeIsNotReadBack) {
  os.Reply({0x40});
  EXPECT_EQ(QM2150_SetSnrMode(0x08), -1);
  EXPECT_EQ(os.Requests().size(), 1U);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_SetRegisterValue failed!")));
}

// --- Version ---

TEST_F(QM2150Registers, TheVersionReplyHoldsModelAndRomVersion) {
  uint16_t model = 0, romVersion = 0;
  os.Reply({0x90, 0x50, 0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02, 0xFF});
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), 0);
  EXPECT_EQ(model, 0x0506);
  EXPECT_EQ(romVersion, 0x0123);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x02, 0x05, 0x81, 0x09, 0x00, 0x02, 0xFF, 0xC4, 0x55}));
}

TEST_F(QM2150Registers, TheVersionInquiryClearsBothFramesFirst) {
  FillBothFrames();
  uint16_t model = 0xEEEE, romVersion = 0xEEEE;
  os.Reply({0x90, 0x50, 0x00, 0x01, 0x05, 0xFF});
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), 0);
  EXPECT_EQ(model, 0x0500);
  EXPECT_EQ(romVersion, 0);
  EXPECT_EQ(Hex(BytesOf(gtUart1ViscaCmdInq)),
            "AA 02 05 81 09 00 01 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF C4 55");
}

TEST_F(QM2150Registers, TheVersionReplyIsNotChecked) {
  uint16_t model = 0xEEEE, romVersion = 0xEEEE;
  os.Reply({0x90, 0x60, 0x41, 0xFF});
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), 0);
  EXPECT_EQ(model, 0);
  EXPECT_EQ(romVersion, 0);
  os.Reply({0x00, 0x00, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0x00});
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), 0);
  EXPECT_EQ(model, 0xFDFC);
  EXPECT_EQ(romVersion, 0xFBFA);
  EXPECT_THAT(os.Log(), IsEmpty());
}

// --- White balance trigger ---

TEST_F(QM2150Registers, TheWhiteBalanceTriggerIsACommand) {
  os.Reply(kAck);
  EXPECT_EQ(QM2150_WbOnePushTrigger(), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x10, 0x05, 0xFF}));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Registers, AnUnacknowledgedTriggerIsLogged) {
  os.Reply({0x50});
  EXPECT_EQ(QM2150_WbOnePushTrigger(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_Command fail!\n")));
}

// --- Every fault ---

class QM2150RegistersReadFault : public QM2150Registers, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, QM2150RegistersReadFault, ValuesIn(InquiryFaults()),
                         FaultName<testing::TestParamInfo<Fault>>);

TEST_P(QM2150RegistersReadFault, FailsARead) {
  GetParam().arrange(os, kMode8);
  uint8_t value = 0xEE;
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), IsEmpty());
  EXPECT_EQ(value, 0xEE);
}

TEST_P(QM2150RegistersReadFault, FailsTheVersion) {
  GetParam().arrange(os, {0x90, 0x50, 0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02, 0xFF});
  uint16_t model = 0xEEEE, romVersion = 0xEEEE;
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), IsEmpty());
  EXPECT_EQ(model, 0xEEEE);
  EXPECT_EQ(romVersion, 0xEEEE);
}

// QM2150_SetSnrMode adds its own line for a failed read-back, even after a stop request.
TEST_P(QM2150RegistersReadFault, FailsTheFirstReadBackOfASensorMode) {
  os.Reply(kAck);
  os.On("usleep", 2, [this] { GetParam().arrange(os, kMode8); });
  EXPECT_EQ(QM2150_SetSnrMode(0x08), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("QM2150_GetSnrMode failed!")));
}

TEST_P(QM2150RegistersReadFault, FailsTheSecondReadBackOfASensorMode) {
  os.Reply(kAck);
  os.Reply(kMode6);
  os.On("usleep", 4, [this] { GetParam().arrange(os, kMode8); });
  EXPECT_EQ(QM2150_SetSnrMode(0x08), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("QM2150_GetSnrMode failed!")));
}

class QM2150RegistersWriteFault : public QM2150Registers, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, QM2150RegistersWriteFault, ValuesIn(CommandFaults()),
                         FaultName<testing::TestParamInfo<Fault>>);

TEST_P(QM2150RegistersWriteFault, FailsAWrite) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(QM2150_SetRegisterValue(0x72, 0x08), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), IsEmpty());
}

TEST_P(QM2150RegistersWriteFault, FailsASensorMode) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("QM2150_SetRegisterValue failed!")));
}

TEST_P(QM2150RegistersWriteFault, FailsTheWhiteBalanceTrigger) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(QM2150_WbOnePushTrigger(), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("QM2150_Command fail!\n")));
}

}  // namespace
