// The actions of -s and -m.
#include <limits>

#include "tests/fakeos/Faults.h"
#include "tests/fakeos/Fixtures.h"

namespace {

using testing::_;
using testing::SizeIs;
using testing::ValuesIn;

const Bytes kAck = {0x10};

class DeviceActions : public Linked {
 protected:
  int Camera(int32_t action, int32_t argument) {
    giArgv1 = action;
    giArgv2 = argument;
    return QM2150Process();
  }
  int Mcu(int32_t command, int32_t value) {
    giArgv1 = command;
    giArgv2 = value;
    return McuComm();
  }
};

// --- -s ---

TEST_F(DeviceActions, TheCamerasVersionIsPrinted) {
  for (const int32_t any : {0, 1, -5}) {
    os.Forget();
    os.Reply({0x90, 0x50, 0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02, 0xFF});
    EXPECT_EQ(Camera(0, any), 0);
    EXPECT_EQ(os.Output(), "[Model] 0x0506, [ROM Version] 0x0123\n");
    EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x00, 0x02, 0xFF}));
    EXPECT_THAT(os.Log(), IsEmpty());
  }
}

TEST_F(DeviceActions, AllSensorModesAreListedWithoutAskingTheCamera) {
  EXPECT_EQ(Camera(1, 1), 0);
  EXPECT_EQ(os.Output(),
            "0x00 = unknown\n"
            "0x01 = 1080i 60fps (Default)\n"
            "0x02 = 1080i 59.94fps\n"
            "0x03 = NTSC, Stop Digital Output\n"
            "0x04 = 1080i 50fps\n"
            "0x05 = PAL, Stop Digital Output\n"
            "0x06 = 1080p 30fps\n"
            "0x07 = 1080p 29.97fps\n"
            "0x08 = 1080p 25fps\n"
            "0x09 = 720p 60fps\n"
            "0x0a = 720p 59.94fps\n"
            "0x0b = NTSC, Stop Digital Output\n"
            "0x0c = 720p 50fps\n"
            "0x0d = PAL, Stop Digital Output\n"
            "0x0e = 720p 30fps\n"
            "0x0f = 720p 29.97fps\n"
            "0x10 = NTSC, Stop Digital Output\n"
            "0x11 = 720p 25fps\n"
            "0x12 = PAL, Stop Digital Output\n");
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

TEST_F(DeviceActions, TheSensorModeIsPrintedByItsName) {
  for (const int32_t other : {0, 2, -1, 257}) {
    os.Forget();
    os.Reply({0x90, 0x50, 0x00, 0x08, 0xFF});
    EXPECT_EQ(Camera(1, other), 0);
    EXPECT_EQ(os.Output(), "[GetSnrMode] 1080p 25fps\n");
    EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x09, 0x04, 0x24, 0x72, 0xFF}));
    EXPECT_THAT(os.Log(), IsEmpty());
  }
}

TEST_F(DeviceActions, ASensorModeWithoutANameIsLogged) {
  os.Reply({0x90, 0x50, 0x01, 0x03, 0xFF});
  EXPECT_EQ(Camera(1, 0), 0);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(os.Log(), ElementsAre(Err("SnrQM2150_SnrMode2Str fail!\n")));
}

TEST_F(DeviceActions, ASensorModeIsSetAndPrinted) {
  os.Reply(kAck);
  os.Reply({0x90, 0x50, 0x00, 0x06, 0xFF});
  EXPECT_EQ(Camera(2, 6), 0);
  EXPECT_EQ(os.Output(), "[SetSnrMode] 1080p 30fps\n");
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x81, 0x01, 0x04, 0x24, 0x72, 0x00, 0x06, 0xFF},
                                        Bytes{0x81, 0x09, 0x04, 0x24, 0x72, 0xFF}));
  EXPECT_THAT(os.Log(), IsEmpty());
  EXPECT_EQ(os.Calls("sleep"), 0);  // no power cycle
}

TEST_F(DeviceActions, TheSensorModeIsTheLowByte) {
  for (const int32_t mode : {264, 8, -248, std::numeric_limits<int32_t>::min() + 8}) {
    os.Forget();
    os.Reply(kAck);
    os.Reply({0x90, 0x50, 0x00, 0x08, 0xFF});
    EXPECT_EQ(Camera(2, mode), 0);
    EXPECT_EQ(os.Output(), "[SetSnrMode] 1080p 25fps\n");
    EXPECT_EQ(os.Packets()[0], (Bytes{0x81, 0x01, 0x04, 0x24, 0x72, 0x00, 0x08, 0xFF}));
  }
}

TEST_F(DeviceActions, ASensorModeWithoutANameIsSetNevertheless) {
  os.Reply(kAck);
  os.Reply({0x90, 0x50, 0x01, 0x03, 0xFF});
  EXPECT_EQ(Camera(2, 0x13), 0);
  EXPECT_EQ(os.Output(), "");
  EXPECT_EQ(os.Requests().size(), 2U);
  EXPECT_THAT(os.Log(), ElementsAre(Err("SnrQM2150_SnrMode2Str fail!\n")));
}

TEST_F(DeviceActions, ARejectedSensorModeIsPrintedAsIfItWereSet) {
  os.Reply(kAck);
  os.Reply({0x90, 0x50, 0x00, 0x06, 0xFF});
  os.Reply({0x90, 0x50, 0x00, 0x06, 0xFF});
  EXPECT_EQ(Camera(2, 8), 0);
  EXPECT_EQ(os.Output(), "[SetSnrMode] 1080p 25fps\n");
  EXPECT_THAT(os.Log(), SizeIs(1));
}

TEST_F(DeviceActions, AnyOtherCameraActionIsNotSupported) {
  for (const int32_t action : {3, -1, 256, std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min()}) {
    os.Forget();
    EXPECT_EQ(Camera(action, 0), 0);
    EXPECT_EQ(os.Output(), "");
    EXPECT_THAT(os.Timeline(), ElementsAre(Logged(Err("Command ID is not supported.\n"))));
  }
}

class DeviceActionsReadFault : public DeviceActions, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, DeviceActionsReadFault, ValuesIn(InquiryFaults()),
                         FaultName<testing::TestParamInfo<Fault>>);

TEST_P(DeviceActionsReadFault, IsLoggedForTheVersionEvenWhenStopped) {
  GetParam().arrange(os, {0x90, 0x50, 0x00, 0x01, 0x05, 0x06, 0x01, 0x23, 0x02, 0xFF});
  EXPECT_EQ(Camera(0, 0), 0);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("QM2150_VersionInq fail!\n")));
}

TEST_P(DeviceActionsReadFault, IsLoggedForTheSensorModeEvenWhenStopped) {
  GetParam().arrange(os, {0x90, 0x50, 0x00, 0x08, 0xFF});
  EXPECT_EQ(Camera(1, 0), 0);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("QM2150_GetSnrMode fail!\n")));
}

TEST_P(DeviceActionsReadFault, IsLoggedForAReadBackEvenWhenStopped) {
  os.Reply(kAck);
  os.On("usleep", 2, [this] { GetParam().arrange(os, {0x90, 0x50, 0x00, 0x08, 0xFF}); });
  EXPECT_EQ(Camera(2, 8), 0);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(_, Err("QM2150_SetSnrMode fail!\n")));
}

class DeviceActionsWriteFault : public DeviceActions, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, DeviceActionsWriteFault, ValuesIn(CommandFaults()),
                         FaultName<testing::TestParamInfo<Fault>>);

TEST_P(DeviceActionsWriteFault, IsLoggedForTheSensorModeEvenWhenStopped) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(Camera(2, 8), 0);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(_, Err("QM2150_SetSnrMode fail!\n")));
}

TEST_F(DeviceActions, AnUnacknowledgedSensorModeIsLogged) {
  os.Reply({0x40});
  EXPECT_EQ(Camera(2, 8), 0);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(os.Log(), ElementsAre(_, Err("QM2150_SetSnrMode fail!\n")));
}

// --- -m ---

TEST_F(DeviceActions, TheMcusVersionIsPrinted) {
  for (const int32_t other : {0, 2, -1}) {
    os.Forget();
    os.Reply({0x0A});
    EXPECT_EQ(Mcu(16, other), 0);
    EXPECT_EQ(os.Output(), "Version = 0x0a\n");
    EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x10, 0x01, 0x01, 0x44, 0x55}));
    EXPECT_THAT(os.Log(), IsEmpty());
  }
}

TEST_F(DeviceActions, AllMcuCommandsAreListedWithoutAskingTheMcu) {
  EXPECT_EQ(Mcu(16, 1), 0);
  EXPECT_EQ(os.Output(),
            "MCU Command:\n"
            "Start(0xaa)+Command(1 Byte)+Data Len(1 Byte)+Data+Checksum+Stop(0x55)\n"
            "0x00 = [unknown]\n"
            "0x01 = [PelcoD] Data 4 Bytes\n"
            "0x02 = [Sony Lens] Visca Command\n"
            "0x03 = [Max Speed] 30~430 degree/s MSB first\n"
            "0x04 = [Scan Speed] 1~90 degree/s\n"
            "0x05 = [Tilt Angle] 0:Indoor 85 degree, 1:Outdoor 92 degree\n"
            "0x06 = [Auto Flip] 0:Off, 1:On\n"
            "0x07 = [Proportional P/T] 0:Off, 1:On\n"
            "0x08 = [Scan Angle] 1~90 degree\n"
            "0x09 = [Scan Limit Enable] 0:Off, 1:On\n"
            "0x0a = [Scan Right Limit] P,P,P,P (0~64000 steps)\n"
            "0x0b = [Scan Left Limit] P,P,P,P (0~64000 steps)\n"
            "0x0c = [Lens Power Control] 0:Off, 1:On\n"
            "0x0d = [Load Default] Clean Preset\n"
            "0x0e = [Get Alarm In State\n"
            "0x0f = [Get H/W Default I/O State]\n"
            "0x10 = [Get Version]\n"
            "0x11 = [Get PTZ] 0:Get, 1:Auto Response\n"
            "0x12 = [Set PTZ]  P,P,P,P,T,T,Z,Z\n"
            "0x13 = [Set Alarm Out] 0:Clean, 1:Set\n"
            "0x14 = [Get Motor State] 0:Get, 1:Auto Response\n"
            "0x15 = [Set Pan Tilt Angle] 0:Stop, 1:Start (default)\n");
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

TEST_F(DeviceActions, ThePositionsArePrinted) {
  os.Reply({0x00, 0x00, 0xFA, 0x00, 0x01, 0x2C, 0x00, 0x10});
  EXPECT_EQ(Mcu(17, 0), 0);
  EXPECT_EQ(os.Output(), "Pan = 64000, Tilt = 300, Zoom = 16\n");
  EXPECT_THAT(os.Frames(), ElementsAre(Bytes{0xAA, 0x11, 0x01, 0x00, 0x44, 0x55}));
}

TEST_F(DeviceActions, PanIsSignedTiltAndZoomAreNot) {
  os.Reply({0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0x80, 0x00});
  EXPECT_EQ(Mcu(17, 1), 0);
  os.Reply({0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
  EXPECT_EQ(Mcu(17, 257), 0);
  EXPECT_EQ(os.Output(), "Pan = -2, Tilt = 65535, Zoom = 32768\nPan = -2147483648, Tilt = 0, Zoom = 0\n");
  EXPECT_THAT(os.Packets(), ElementsAre(Bytes{0x01}, Bytes{0x01}));
}

TEST_F(DeviceActions, PositionsOfAWrongLengthAreLogged) {
  os.Reply(Bytes(7));
  EXPECT_EQ(Mcu(17, 0), -1);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(os.Log(), ElementsAre(Err("MCU_GetPTZ fail!\n")));
}

TEST_F(DeviceActions, LensPowerIsSwitchedSilently) {
  for (const int32_t on : {1, 0, 256}) {
    os.Reply(kAck);
    EXPECT_EQ(Mcu(12, on), 0);
  }
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(os.Log(), IsEmpty());
  EXPECT_THAT(os.Frames(),
              ElementsAre(Bytes{0xAA, 0x0C, 0x01, 0x01, 0x48, 0x55}, Bytes{0xAA, 0x0C, 0x01, 0x00, 0x49, 0x55},
                          Bytes{0xAA, 0x0C, 0x01, 0x00, 0x49, 0x55}));
}

TEST_F(DeviceActions, UnacknowledgedLensPowerIsLogged) {
  for (const uint8_t code : Bytes{0x20, 0x30, 0x40, 0x50}) {
    os.Forget();
    os.Reply({code});
    EXPECT_EQ(Mcu(12, 1), -1);
    EXPECT_THAT(os.Log(), ElementsAre(Err("MCU_LensPowerControl fail!\n")));
  }
}

TEST_F(DeviceActions, AnyOtherMcuCommandIsNotSupported) {
  for (const int32_t command : {0, 0x0C + 256, 13, 15, 18, -1, std::numeric_limits<int32_t>::min()}) {
    os.Forget();
    EXPECT_EQ(Mcu(command, 1), 0);
    EXPECT_EQ(os.Output(), "");
    EXPECT_THAT(os.Timeline(), ElementsAre(Logged(Err("Command ID is not supported.\n"))));
  }
}

class DeviceActionsMcuFault : public DeviceActions, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Each, DeviceActionsMcuFault, ValuesIn(McuFaults()), FaultName<testing::TestParamInfo<Fault>>);

TEST_P(DeviceActionsMcuFault, IsLoggedTwiceForTheVersion) {
  GetParam().arrange(os, {0x23});
  EXPECT_EQ(Mcu(16, 0), GetParam().result);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1),
              ElementsAre(Err("MCU_GetVersion fail!\n"), Err("MCU_GetVersion fail!\n")));
}

TEST_P(DeviceActionsMcuFault, IsLoggedForThePositions) {
  GetParam().arrange(os, Bytes(8));
  EXPECT_EQ(Mcu(17, 0), GetParam().result);
  EXPECT_EQ(os.Output(), "");
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("MCU_GetPTZ fail!\n")));
}

TEST_P(DeviceActionsMcuFault, IsLoggedForLensPower) {
  GetParam().arrange(os, kAck);
  EXPECT_EQ(Mcu(12, 1), GetParam().result);
  EXPECT_THAT(LinesAbove(os.Log(), GetParam(), 1), ElementsAre(Err("MCU_LensPowerControl fail!\n")));
}

}  // namespace
