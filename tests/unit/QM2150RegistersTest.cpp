// The camera's register bank, sensor mode and version.
#include "tests/support/Faults.h"
#include "tests/support/Fixtures.h"

namespace {

using testing::Each;
using testing::ValuesIn;

const Bytes kAck = {0x10};
const Bytes kMode8 = {0x90, 0x50, 0x00, 0x08, 0xFF};
const Bytes kMode6 = {0x90, 0x50, 0x00, 0x06, 0xFF};
const Bytes kReadMode = {0x81, 0x09, 0x04, 0x24, 0x72, 0xFF};

class Registers : public Linked {
 protected:
  // What earlier exchanges may have left.
  void FillBothRecords() {
    gtUart1ViscaCmdInq = Filled<ViscaRequestFrame>(0x5A);
    gtUart1ViscaResp = Filled<ViscaReplyFrame>(0x5A);
  }
};

TEST_F(Registers, AWriteSendsTheValueInNibbles) {
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

TEST_F(Registers, AWriteThatIsNotAcknowledgedFailsSilently) {
  os.Reply({0x40});
  EXPECT_EQ(QM2150_SetRegisterValue(0x72, 0x08), -1);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Registers, AWriteClearsBothRecordsFirst) {
  FillBothRecords();
  os.Reply(kAck);
  EXPECT_EQ(QM2150_SetRegisterValue(0x72, 0x1A), 0);
  EXPECT_EQ(Hex(BytesOf(gtUart1ViscaCmdInq)),
            "AA 02 08 81 01 04 04 24 72 01 0A 00 00 00 00 00 00 00 00 00 00 00 00 FF 26 55");
  EXPECT_THAT(BytesOf(gtUart1ViscaResp), Each(0));
}

TEST_F(Registers, AReadClearsBothRecordsFirst) {
  FillBothRecords();
  uint8_t value = 0;
  os.Reply({0x90, 0x50, 0x07, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  EXPECT_EQ(value, 0x70);
  EXPECT_EQ(Hex(BytesOf(gtUart1ViscaCmdInq)),
            "AA 02 06 81 09 04 02 24 72 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF 2B 55");
  EXPECT_THAT(gtUart1ViscaResp.middle, ElementsAre(0x07, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST_F(Registers, AReadJoinsTwoNibbles) {
  uint8_t value = 0;
  os.Reply({0x90, 0x50, 0x01, 0x0A, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  EXPECT_EQ(value, 0x1A);
  EXPECT_THAT(os.Packets(), ElementsAre(kReadMode));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Registers, AReadUsesTheReplyAsItStands) {
  struct Example {
    Bytes reply;
    uint8_t value;
  };
  for (const Example& example :
       {Example{{0x90, 0x50, 0x07, 0xFF}, 0x70},        // one byte: the other counts as 0
        Example{{0x90, 0x50, 0xFF}, 0x00},              // none
        Example{{0x90, 0x60, 0x02, 0xFF}, 0x20},        // an error reply is not judged
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

TEST_F(Registers, AReadKeepsNothingOfAnEarlierReply) {
  uint8_t value = 0;
  os.Reply({0x90, 0x50, 0x01, 0x0A, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  os.Reply({0x90, 0x50, 0x03, 0xFF});
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), 0);
  EXPECT_EQ(value, 0x30);
}

// --- Sensor mode ---

TEST_F(Registers, TheSensorModeIsRegister0x72) {
  uint8_t mode = 0;
  os.Reply(kMode8);
  EXPECT_EQ(QM2150_GetSnrMode(&mode), 0);
  EXPECT_EQ(mode, 0x08);
  EXPECT_THAT(os.Packets(), ElementsAre(kReadMode));
}

TEST_F(Registers, AWrittenSensorModeIsReadBackAfter50Ms) {
  os.Reply(kAck);
  os.Reply(kMode8);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x24, 0x72, 0x00, 0x08, 0xFF}, kReadMode));
  EXPECT_THAT(os.Slept(), ElementsAre(50000U, 50000U, 50000U));  // reply, wait, reply
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Registers, ASensorModeMayTakeUntilTheSecondReadBack) {
  os.Reply(kAck);
  os.Reply(kMode6);
  os.Reply(kMode8);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), 0);
  EXPECT_EQ(os.Requests().size(), 3U);
  EXPECT_THAT(os.Slept(), ElementsAre(50000U, 50000U, 50000U, 50000U, 50000U));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Registers, ARefusedSensorModeIsLoggedButSucceeds) {
  os.Reply(kAck);
  os.Reply(kMode6);
  os.Reply(kMode6);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), 0);
  EXPECT_EQ(os.Requests().size(), 3U);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_SetSnrMode bRegValue != bReadRegValue failed!")));
}

TEST_F(Registers, AnUnacknowledgedSensorModeIsNotReadBack) {
  os.Reply({0x40});
  EXPECT_EQ(QM2150_SetSnrMode(0x08), -1);
  EXPECT_EQ(os.Requests().size(), 1U);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_SetRegisterValue failed!")));
}

// --- Version ---

TEST_F(Registers, TheVersionReplyHoldsModelAndRomVersion) {
  uint16_t model = 0, romVersion = 0;
  os.Reply({0x90, 0x50, 0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02, 0xFF});
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), 0);
  EXPECT_EQ(model, 0x0506);
  EXPECT_EQ(romVersion, 0x0123);
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x02, 0x05, 0x81, 0x09, 0x00, 0x02, 0xFF, 0xC4, 0x55}));
}

TEST_F(Registers, TheVersionInquiryClearsBothRecordsFirst) {
  FillBothRecords();
  uint16_t model = 0xEEEE, romVersion = 0xEEEE;
  os.Reply({0x90, 0x50, 0x00, 0x01, 0x05, 0xFF});
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), 0);
  EXPECT_EQ(model, 0x0500);
  EXPECT_EQ(romVersion, 0);
  EXPECT_EQ(Hex(BytesOf(gtUart1ViscaCmdInq)),
            "AA 02 05 81 09 00 01 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 FF C4 55");
}

TEST_F(Registers, TheVersionReplyIsNotChecked) {
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

TEST_F(Registers, TheWhiteBalanceTriggerIsACommand) {
  os.Reply(kAck);
  EXPECT_EQ(QM2150_WbOnePushTrigger(), 0);
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x10, 0x05, 0xFF}));
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Registers, AnUnacknowledgedTriggerIsLogged) {
  os.Reply({0x50});
  EXPECT_EQ(QM2150_WbOnePushTrigger(), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_Command fail!\n")));
}

// --- Whatever goes wrong ---

class RegisterReadFault : public Registers, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, RegisterReadFault, ValuesIn(InquiryFaults()), FaultName<testing::TestParamInfo<Fault>>);

TEST_P(RegisterReadFault, FailsARead) {
  GetParam().arrange(os, kMode8);
  uint8_t value = 0xEE;
  EXPECT_EQ(QM2150_GetRegisterValue(0x72, &value), GetParam().result);
  EXPECT_EQ(os.Log(), ThenUnlessStopped(GetParam(), {"QM2150_ProcessVisca failed!"}));
  EXPECT_EQ(value, 0xEE);
}

TEST_P(RegisterReadFault, FailsTheVersion) {
  GetParam().arrange(os, {0x90, 0x50, 0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02, 0xFF});
  uint16_t model = 0xEEEE, romVersion = 0xEEEE;
  EXPECT_EQ(QM2150_GetVersion(&model, &romVersion), GetParam().result);
  EXPECT_EQ(os.Log(), ThenUnlessStopped(GetParam(), {"QM2150_ProcessVisca failed!"}));
  EXPECT_EQ(model, 0xEEEE);
  EXPECT_EQ(romVersion, 0xEEEE);
}

// The first or the second read-back fails: told with one more line, also when it was a stop.
TEST_P(RegisterReadFault, FailsTheFirstReadBackOfASensorMode) {
  os.Reply(kAck);
  os.On("usleep", 2, [this] { GetParam().arrange(os, kMode8); });
  EXPECT_EQ(QM2150_SetSnrMode(0x08), GetParam().result);
  auto expected = ThenUnlessStopped(GetParam(), {"QM2150_ProcessVisca failed!"});
  expected.push_back(Err("QM2150_GetSnrMode failed!"));
  EXPECT_EQ(os.Log(), expected);
}

TEST_P(RegisterReadFault, FailsTheSecondReadBackOfASensorMode) {
  os.Reply(kAck);
  os.Reply(kMode6);
  os.On("usleep", 4, [this] { GetParam().arrange(os, kMode8); });
  EXPECT_EQ(QM2150_SetSnrMode(0x08), GetParam().result);
  auto expected = ThenUnlessStopped(GetParam(), {"QM2150_ProcessVisca failed!"});
  expected.push_back(Err("QM2150_GetSnrMode failed!"));
  EXPECT_EQ(os.Log(), expected);
}

class RegisterWriteFault : public Registers, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, RegisterWriteFault, ValuesIn(CommandFaults()), FaultName<testing::TestParamInfo<Fault>>);

TEST_P(RegisterWriteFault, FailsAWrite) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(QM2150_SetRegisterValue(0x72, 0x08), GetParam().result);
  EXPECT_EQ(os.Log(), ThenUnlessStopped(GetParam(), {"QM2150_ProcessVisca failed!"}));
}

TEST_P(RegisterWriteFault, FailsASensorMode) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(QM2150_SetSnrMode(0x08), GetParam().result);
  auto expected = ThenUnlessStopped(GetParam(), {"QM2150_ProcessVisca failed!"});
  expected.push_back(Err("QM2150_SetRegisterValue failed!"));
  EXPECT_EQ(os.Log(), expected);
}

TEST_P(RegisterWriteFault, FailsTheWhiteBalanceTrigger) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(QM2150_WbOnePushTrigger(), GetParam().result);
  auto expected = ThenUnlessStopped(GetParam(), {"QM2150_ProcessVisca failed!"});
  expected.push_back(Err("QM2150_Command fail!\n"));
  EXPECT_EQ(os.Log(), expected);
}

}  // namespace
