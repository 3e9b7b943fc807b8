/* A C program of the device's other software: it names every routine and global of the shared library, with the
   signatures that other programs were compiled against, and calls a few. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "camera/Math.h"
#include "camera/QM2150.h"
#include "camera/SnrQM2150.h"
#include "link/MsgqClient.h"
#include "link/Relay.h"
#include "mcu/McuComm.h"
#include "support/Debug.h"
#include "support/Results.h"
#include "support/Signal.h"
#include "support/Thread.h"
#include "support/Utils.h"

/* Declared once more: the compiler refuses what differs from the headers. */
void SetSigID(int32_t value);
int32_t GetSigID(void);
void SignalHandler(int signal);
void SendZR4410Msgq(uint8_t code);
int Thread(void);
int GetMsFromStart(uint64_t* milliseconds);
int GetCurrentDayTime(char* text);
int IsRtcTime(void);
int SetBitUint(uint32_t bit, uint32_t value, uint32_t* word);
int GetBitUint(uint32_t bit, uint32_t word);
int IsHexString(const char* text);
uint8_t Hex2Byte(const char* text);
int HexStr2Bytes(const char* text, uint8_t* out);
int sysconf_fget(const char* path, const char* key, char* out);
int sysconf_fset(const char* path, const char* key, const char* value);
uint32_t DebugEnable(uint32_t bit, uint32_t word);
int DumpData(const uint8_t* bytes, int32_t count);
int ZR4410_MsgQ_Open(void);
int ZR4410_MsgQ_Send(const RelayMessage* message);
int ZR4410_MsgQ_Receive(RelayMessage* message);
int ZR4410_MsgQ_Close(void);
uint8_t QM2150_ChecksumViscaCmd(const ViscaRequestFrame* frame);
int QM2150_FillZR4410(const ViscaRequestFrame* frame, uint8_t* body);
int QM2150_CheckZR4410Packet(const uint8_t* body);
int QM2150_FillUart1Resp(const uint8_t* body, ViscaReplyFrame* frame);
int QM2150_CheckUart1Resp(const ViscaReplyFrame* frame);
uint8_t MCU_ChecksumCmdResp(const PlainFrame* frame);
int MCU_FillUart1Resp(const uint8_t* body, PlainFrame* frame);
int MCU_CheckUart1Resp(const PlainFrame* frame);
const char* MCU_StrError(uint8_t code);
int MCU_ProcessUart1(void);
int MCU_GetVersion(uint8_t* version);
int MCU_LensPowerControl(int32_t on);
int MCU_GetPTZ(int32_t mode, uint32_t* pan, uint16_t* tilt, uint16_t* zoom);
int MCU_Cmd2Str(uint32_t id, char* text);
int QM2150_Command(uint32_t length, const uint8_t* data);
int QM2150_Inquiry(uint8_t category, uint32_t length, const uint8_t* data, tVisca* out);
int QM2150_ProcessVisca(void);
int QM2150_ChecRespVisca(const tVisca* reply);
int QM2150_SetRegisterValue(uint8_t number, uint8_t value);
int QM2150_GetRegisterValue(uint8_t number, uint8_t* value);
int QM2150_GetSnrMode(uint8_t* mode);
int QM2150_SetSnrMode(uint8_t mode);
int QM2150_GetVersion(uint16_t* model, uint16_t* romVersion);
int QM2150_WbOnePushTrigger(void);
int QM2150_GetNR(uint8_t* value);
int QM2150_SetNR(uint8_t value);
int QM2150_GetWdrMode(uint8_t* value);
int QM2150_SetWdrMode(uint8_t value);
int QM2150_GetBgain(uint8_t* value);
int QM2150_SetBgain(uint8_t value);
int QM2150_GetRgain(uint8_t* value);
int QM2150_SetRgain(uint8_t value);
int QM2150_GetIrisPos(uint8_t* value);
int QM2150_SetIrisPos(uint8_t value);
int QM2150_GetGainPos(uint8_t* value);
int QM2150_SetGainPos(uint8_t value);
int QM2150_GetGainLimit(uint8_t* value);
int QM2150_SetGainLimit(uint8_t value);
int QM2150_GetHighSensitivity(uint8_t* value);
int QM2150_SetHighSensitivity(uint8_t value);
int QM2150_GetExpCompStep(uint8_t* value);
int QM2150_SetExpCompStep(uint8_t value);
int QM2150_GetExpComp(uint8_t* value);
int QM2150_SetExpComp(uint8_t value);
int QM2150_GetPictureFlip(uint8_t* value);
int QM2150_SetPictureFlip(uint8_t value);
int QM2150_GetLrReverse(uint8_t* value);
int QM2150_SetLrReverse(uint8_t value);
int QM2150_GetIcr(uint8_t* value);
int QM2150_SetIcr(uint8_t value);
int QM2150_GetAutoIcr(uint8_t* value);
int QM2150_SetAutoIcr(uint8_t value);
int QM2150_GetColorGain(uint8_t* value);
int QM2150_SetColorGain(uint8_t value);
int QM2150_GetAfMode(uint8_t* value);
int QM2150_SetAfMode(uint8_t value);
int QM2150_GetFocusMode(uint8_t* value);
int QM2150_SetFocusMode(uint8_t value);
int QM2150_GetAeMode(uint8_t* value);
int QM2150_SetAeMode(uint8_t value);
int QM2150_GetWbMode(uint8_t* value);
int QM2150_SetWbMode(uint8_t value);
int QM2150_GetShutter(uint16_t* value);
int QM2150_SetShutter(uint16_t value);
int QM2150_GetWdrParams(tWdrParam* params);
int QM2150_SetWdrParams(const tWdrParam* params);
int QM2150_CompareWdrParams(const tWdrParam* first, const tWdrParam* second);
int QM2150_GetLensControl(LensControlRecord* record);
int QM2150_GetCameraControl(CameraControlRecord* record);
int QM2150_GetOtherControl(OtherControlRecord* record);
int QM2150_GetEnlargeFunction1(EnlargeFunction1Record* record);
int QM2150_GetEnlargeFunction2(EnlargeFunction2Record* record);
int InterpolationX(const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p);
int InterpolationY(const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p);
double Gain2dB(double gain);
int Gain2GainLevel(double gain, int32_t* level);
double dB2Gain(double dB);
int GainLevel2Gain(uint32_t level, double* gain);
int32_t Ev2Value(int32_t value, double ev);
int32_t SnrQM2150_Pos2Shutter(int32_t frequency, uint32_t position);
double SnrQM2150_IrisPos2Fno(uint32_t position);
double SnrQM2150_GainPos2dB(uint32_t highSensitivity, int32_t position);
int SnrQM2150_ExpCompPos2Db(uint32_t position, double* out);
int SnrQM2150_FocusPos(uint16_t position, double* out);
int SnrQM2150_DigitalZoom(uint32_t position, double* out);
int SnrQM2150_OpticalZoom(uint32_t position, double* out);
int SnrQM2150_CombineZoom(uint32_t position, double* out);
int SnrQM2150_SnrMode2Str(uint32_t code, char* text);
int SnrQM2150_AeMode2Str(uint32_t code, char* text);
int SnrQM2150_WbMode2Str(uint32_t code, char* text);
int SnrQM2150_SetFocusMode(int32_t mode);
int SnrQM2150_SetBlcIndex(int32_t index);
int SnrQM2150_SetMirror(int32_t on);
int SnrQM2150_SetMirrorFlip(int32_t mirror, int32_t flip);
int SnrQM2150_SetDnIsMode(void);
int SnrQM2150_SetDnNightMode(void);
int SnrQM2150_SetDnDayMode(void);
int SnrQM2150_SetSaturation(int32_t index);
int SnrQM2150_SetSnrMode(int32_t hz);
int SnrQM2150_Command(uint32_t count, const uint8_t* bytes);
int SnrQM2150_Inquiry(uint8_t category, uint32_t count, const uint8_t* bytes, uint32_t size, char* text);
int SnrQM2150_init(int32_t hz);

typedef void (*Routine)(void);

static const Routine kRoutines[] = {
    (Routine)SetSigID,
    (Routine)GetSigID,
    (Routine)SignalHandler,
    (Routine)SendZR4410Msgq,
    (Routine)Thread,
    (Routine)GetMsFromStart,
    (Routine)GetCurrentDayTime,
    (Routine)IsRtcTime,
    (Routine)SetBitUint,
    (Routine)GetBitUint,
    (Routine)IsHexString,
    (Routine)Hex2Byte,
    (Routine)HexStr2Bytes,
    (Routine)sysconf_fget,
    (Routine)sysconf_fset,
    (Routine)DebugEnable,
    (Routine)DumpData,
    (Routine)ZR4410_MsgQ_Open,
    (Routine)ZR4410_MsgQ_Send,
    (Routine)ZR4410_MsgQ_Receive,
    (Routine)ZR4410_MsgQ_Close,
    (Routine)QM2150_ChecksumViscaCmd,
    (Routine)QM2150_FillZR4410,
    (Routine)QM2150_CheckZR4410Packet,
    (Routine)QM2150_FillUart1Resp,
    (Routine)QM2150_CheckUart1Resp,
    (Routine)MCU_ChecksumCmdResp,
    (Routine)MCU_FillUart1Resp,
    (Routine)MCU_CheckUart1Resp,
    (Routine)MCU_StrError,
    (Routine)MCU_ProcessUart1,
    (Routine)MCU_GetVersion,
    (Routine)MCU_LensPowerControl,
    (Routine)MCU_GetPTZ,
    (Routine)MCU_Cmd2Str,
    (Routine)QM2150_Command,
    (Routine)QM2150_Inquiry,
    (Routine)QM2150_ProcessVisca,
    (Routine)QM2150_ChecRespVisca,
    (Routine)QM2150_SetRegisterValue,
    (Routine)QM2150_GetRegisterValue,
    (Routine)QM2150_GetSnrMode,
    (Routine)QM2150_SetSnrMode,
    (Routine)QM2150_GetVersion,
    (Routine)QM2150_WbOnePushTrigger,
    (Routine)QM2150_GetNR,
    (Routine)QM2150_SetNR,
    (Routine)QM2150_GetWdrMode,
    (Routine)QM2150_SetWdrMode,
    (Routine)QM2150_GetBgain,
    (Routine)QM2150_SetBgain,
    (Routine)QM2150_GetRgain,
    (Routine)QM2150_SetRgain,
    (Routine)QM2150_GetIrisPos,
    (Routine)QM2150_SetIrisPos,
    (Routine)QM2150_GetGainPos,
    (Routine)QM2150_SetGainPos,
    (Routine)QM2150_GetGainLimit,
    (Routine)QM2150_SetGainLimit,
    (Routine)QM2150_GetHighSensitivity,
    (Routine)QM2150_SetHighSensitivity,
    (Routine)QM2150_GetExpCompStep,
    (Routine)QM2150_SetExpCompStep,
    (Routine)QM2150_GetExpComp,
    (Routine)QM2150_SetExpComp,
    (Routine)QM2150_GetPictureFlip,
    (Routine)QM2150_SetPictureFlip,
    (Routine)QM2150_GetLrReverse,
    (Routine)QM2150_SetLrReverse,
    (Routine)QM2150_GetIcr,
    (Routine)QM2150_SetIcr,
    (Routine)QM2150_GetAutoIcr,
    (Routine)QM2150_SetAutoIcr,
    (Routine)QM2150_GetColorGain,
    (Routine)QM2150_SetColorGain,
    (Routine)QM2150_GetAfMode,
    (Routine)QM2150_SetAfMode,
    (Routine)QM2150_GetFocusMode,
    (Routine)QM2150_SetFocusMode,
    (Routine)QM2150_GetAeMode,
    (Routine)QM2150_SetAeMode,
    (Routine)QM2150_GetWbMode,
    (Routine)QM2150_SetWbMode,
    (Routine)QM2150_GetShutter,
    (Routine)QM2150_SetShutter,
    (Routine)QM2150_GetWdrParams,
    (Routine)QM2150_SetWdrParams,
    (Routine)QM2150_CompareWdrParams,
    (Routine)QM2150_GetLensControl,
    (Routine)QM2150_GetCameraControl,
    (Routine)QM2150_GetOtherControl,
    (Routine)QM2150_GetEnlargeFunction1,
    (Routine)QM2150_GetEnlargeFunction2,
    (Routine)InterpolationX,
    (Routine)InterpolationY,
    (Routine)Gain2dB,
    (Routine)Gain2GainLevel,
    (Routine)dB2Gain,
    (Routine)GainLevel2Gain,
    (Routine)Ev2Value,
    (Routine)SnrQM2150_Pos2Shutter,
    (Routine)SnrQM2150_IrisPos2Fno,
    (Routine)SnrQM2150_GainPos2dB,
    (Routine)SnrQM2150_ExpCompPos2Db,
    (Routine)SnrQM2150_FocusPos,
    (Routine)SnrQM2150_DigitalZoom,
    (Routine)SnrQM2150_OpticalZoom,
    (Routine)SnrQM2150_CombineZoom,
    (Routine)SnrQM2150_SnrMode2Str,
    (Routine)SnrQM2150_AeMode2Str,
    (Routine)SnrQM2150_WbMode2Str,
    (Routine)SnrQM2150_SetFocusMode,
    (Routine)SnrQM2150_SetBlcIndex,
    (Routine)SnrQM2150_SetMirror,
    (Routine)SnrQM2150_SetMirrorFlip,
    (Routine)SnrQM2150_SetDnIsMode,
    (Routine)SnrQM2150_SetDnNightMode,
    (Routine)SnrQM2150_SetDnDayMode,
    (Routine)SnrQM2150_SetSaturation,
    (Routine)SnrQM2150_SetSnrMode,
    (Routine)SnrQM2150_Command,
    (Routine)SnrQM2150_Inquiry,
    (Routine)SnrQM2150_init,
};

static const void* const kGlobals[] = {
    &giSigID,         &giUsr1SigID,        &giUsr2SigID,         &gfDebugFlag,      &giDebug,         &giMsgIdTx,
    &giMsgIdRx,       &gtZR4410MsgqCmdBuf, &gtZR4410MsgqRespBuf, &gtMsgqTxBuf,      &gbSeqId,         &gbUart1Command,
    &gtUart1Cmd,      &gtUart1Resp,        &gtUart1ViscaCmdInq,  &gtUart1ViscaResp, &gtLensControl,   &gtCamControl,
    &gtOtherControl,  &gtEnlargeFun1,      &gtEnlargeFun2,       &gtFocusPosTb,     &gtDigitalZoomTb, &gtOpticalZoomTb,
    &gtCombineZoomTb, &gtParams,
};

static int Check(int good, const char* what) {
  if (!good) {
    printf("%s\n", what);
  }
  return good;
}

int main(void) {
  int good = 1;
  for (size_t i = 0; i < sizeof kRoutines / sizeof *kRoutines; ++i) {
    good &= Check(kRoutines[i] != NULL, "a routine is missing");
  }
  for (size_t i = 0; i < sizeof kGlobals / sizeof *kGlobals; ++i) {
    good &= Check(kGlobals[i] != NULL, "a global is missing");
  }
  char text[64] = "";
  uint8_t bytes[16] = {0};
  double dB = 0;
  good &= Check(giMsgIdTx == -1 && giMsgIdRx == -1, "the queues start open");
  good &= Check(SnrQM2150_SnrMode2Str(0x08, text) == 0 && strcmp(text, "1080p 25fps") == 0, "a mode's name");
  good &= Check(HexStr2Bytes("2472", bytes) == 0 && bytes[0] == 0x24 && bytes[1] == 0x72, "a hex text");
  good &= Check(strcmp(MCU_StrError(0x50), "Busy") == 0, "a result's text");
  good &= Check(SnrQM2150_ExpCompPos2Db(14, &dB) == 0 && dB == 10.5, "a conversion");
  return good ? 0 : 1;
}
