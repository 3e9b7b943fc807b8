/* A C program, like the device's other software: it refers to every routine and global of the shared library, with the
   signatures that other programs were compiled against, and calls a few of them. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <zr4410/zr4410.h>

/* The routines, in the order of the headers. clang-format would lay the pointers out as multiplications. */
/* clang-format off */
#define ROUTINES(R) \
  R(void, SetSigID, (int32_t value)) \
  R(int32_t, GetSigID, (void)) \
  R(void, SignalHandler, (int signal)) \
  R(void, SendZR4410Msgq, (uint8_t code)) \
  R(int, Thread, (void)) \
  R(int, GetMsFromStart, (uint64_t* milliseconds)) \
  R(int, GetCurrentDayTime, (char* text)) \
  R(int, IsRtcTime, (void)) \
  R(int, SetBitUint, (uint32_t bit, uint32_t value, uint32_t* word)) \
  R(int, GetBitUint, (uint32_t bit, uint32_t word)) \
  R(int, IsHexString, (const char* text)) \
  R(uint8_t, Hex2Byte, (const char* text)) \
  R(int, HexStr2Bytes, (const char* text, uint8_t* out)) \
  R(int, sysconf_fget, (const char* path, const char* key, char* out)) \
  R(int, sysconf_fset, (const char* path, const char* key, const char* value)) \
  R(uint32_t, DebugEnable, (uint32_t bit, uint32_t word)) \
  R(int, DumpData, (const uint8_t* bytes, int32_t count)) \
  R(int, ZR4410_MsgQ_Open, (void)) \
  R(int, ZR4410_MsgQ_Send, (const RelayMessage* message)) \
  R(int, ZR4410_MsgQ_Receive, (RelayMessage* message)) \
  R(int, ZR4410_MsgQ_Close, (void)) \
  R(uint8_t, QM2150_ChecksumViscaCmd, (const ViscaRequestFrame* frame)) \
  R(int, QM2150_FillZR4410, (const ViscaRequestFrame* frame, uint8_t* body)) \
  R(int, QM2150_CheckZR4410Packet, (const uint8_t* body)) \
  R(int, QM2150_FillUart1Resp, (const uint8_t* body, ViscaReplyFrame* frame)) \
  R(int, QM2150_CheckUart1Resp, (const ViscaReplyFrame* frame)) \
  R(uint8_t, MCU_ChecksumCmdResp, (const PlainFrame* frame)) \
  R(int, MCU_FillUart1Resp, (const uint8_t* body, PlainFrame* frame)) \
  R(int, MCU_CheckUart1Resp, (const PlainFrame* frame)) \
  R(const char*, MCU_StrError, (uint8_t code)) \
  R(int, MCU_ProcessUart1, (void)) \
  R(int, MCU_GetVersion, (uint8_t* version)) \
  R(int, MCU_LensPowerControl, (int32_t on)) \
  R(int, MCU_GetPTZ, (int32_t mode, uint32_t* pan, uint16_t* tilt, uint16_t* zoom)) \
  R(int, MCU_Cmd2Str, (uint32_t id, char* text)) \
  R(int, QM2150_Command, (uint32_t length, const uint8_t* data)) \
  R(int, QM2150_Inquiry, (uint8_t category, uint32_t length, const uint8_t* data, tVisca* out)) \
  R(int, QM2150_ProcessVisca, (void)) \
  R(int, QM2150_ChecRespVisca, (const tVisca* reply)) \
  R(int, QM2150_SetRegisterValue, (uint8_t number, uint8_t value)) \
  R(int, QM2150_GetRegisterValue, (uint8_t number, uint8_t* value)) \
  R(int, QM2150_GetSnrMode, (uint8_t* mode)) \
  R(int, QM2150_SetSnrMode, (uint8_t mode)) \
  R(int, QM2150_GetVersion, (uint16_t* model, uint16_t* romVersion)) \
  R(int, QM2150_WbOnePushTrigger, (void)) \
  R(int, QM2150_GetNR, (uint8_t* value)) \
  R(int, QM2150_SetNR, (uint8_t value)) \
  R(int, QM2150_GetWdrMode, (uint8_t* value)) \
  R(int, QM2150_SetWdrMode, (uint8_t value)) \
  R(int, QM2150_GetBgain, (uint8_t* value)) \
  R(int, QM2150_SetBgain, (uint8_t value)) \
  R(int, QM2150_GetRgain, (uint8_t* value)) \
  R(int, QM2150_SetRgain, (uint8_t value)) \
  R(int, QM2150_GetIrisPos, (uint8_t* value)) \
  R(int, QM2150_SetIrisPos, (uint8_t value)) \
  R(int, QM2150_GetGainPos, (uint8_t* value)) \
  R(int, QM2150_SetGainPos, (uint8_t value)) \
  R(int, QM2150_GetGainLimit, (uint8_t* value)) \
  R(int, QM2150_SetGainLimit, (uint8_t value)) \
  R(int, QM2150_GetHighSensitivity, (uint8_t* value)) \
  R(int, QM2150_SetHighSensitivity, (uint8_t value)) \
  R(int, QM2150_GetExpCompStep, (uint8_t* value)) \
  R(int, QM2150_SetExpCompStep, (uint8_t value)) \
  R(int, QM2150_GetExpComp, (uint8_t* value)) \
  R(int, QM2150_SetExpComp, (uint8_t value)) \
  R(int, QM2150_GetPictureFlip, (uint8_t* value)) \
  R(int, QM2150_SetPictureFlip, (uint8_t value)) \
  R(int, QM2150_GetLrReverse, (uint8_t* value)) \
  R(int, QM2150_SetLrReverse, (uint8_t value)) \
  R(int, QM2150_GetIcr, (uint8_t* value)) \
  R(int, QM2150_SetIcr, (uint8_t value)) \
  R(int, QM2150_GetAutoIcr, (uint8_t* value)) \
  R(int, QM2150_SetAutoIcr, (uint8_t value)) \
  R(int, QM2150_GetColorGain, (uint8_t* value)) \
  R(int, QM2150_SetColorGain, (uint8_t value)) \
  R(int, QM2150_GetAfMode, (uint8_t* value)) \
  R(int, QM2150_SetAfMode, (uint8_t value)) \
  R(int, QM2150_GetFocusMode, (uint8_t* value)) \
  R(int, QM2150_SetFocusMode, (uint8_t value)) \
  R(int, QM2150_GetAeMode, (uint8_t* value)) \
  R(int, QM2150_SetAeMode, (uint8_t value)) \
  R(int, QM2150_GetWbMode, (uint8_t* value)) \
  R(int, QM2150_SetWbMode, (uint8_t value)) \
  R(int, QM2150_GetShutter, (uint16_t* value)) \
  R(int, QM2150_SetShutter, (uint16_t value)) \
  R(int, QM2150_GetWdrParams, (tWdrParam* params)) \
  R(int, QM2150_SetWdrParams, (const tWdrParam* params)) \
  R(int, QM2150_CompareWdrParams, (const tWdrParam* first, const tWdrParam* second)) \
  R(int, QM2150_GetLensControl, (LensControlRecord* record)) \
  R(int, QM2150_GetCameraControl, (CameraControlRecord* record)) \
  R(int, QM2150_GetOtherControl, (OtherControlRecord* record)) \
  R(int, QM2150_GetEnlargeFunction1, (EnlargeFunction1Record* record)) \
  R(int, QM2150_GetEnlargeFunction2, (EnlargeFunction2Record* record)) \
  R(int, InterpolationX, (const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p)) \
  R(int, InterpolationY, (const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p)) \
  R(double, Gain2dB, (double gain)) \
  R(int, Gain2GainLevel, (double gain, int32_t* level)) \
  R(double, dB2Gain, (double dB)) \
  R(int, GainLevel2Gain, (uint32_t level, double* gain)) \
  R(int32_t, Ev2Value, (int32_t value, double ev)) \
  R(int32_t, SnrQM2150_Pos2Shutter, (int32_t frequency, uint32_t position)) \
  R(double, SnrQM2150_IrisPos2Fno, (uint32_t position)) \
  R(double, SnrQM2150_GainPos2dB, (uint32_t highSensitivity, int32_t position)) \
  R(int, SnrQM2150_ExpCompPos2Db, (uint32_t position, double* out)) \
  R(int, SnrQM2150_FocusPos, (uint16_t position, double* out)) \
  R(int, SnrQM2150_DigitalZoom, (uint32_t position, double* out)) \
  R(int, SnrQM2150_OpticalZoom, (uint32_t position, double* out)) \
  R(int, SnrQM2150_CombineZoom, (uint32_t position, double* out)) \
  R(int, SnrQM2150_SnrMode2Str, (uint32_t code, char* text)) \
  R(int, SnrQM2150_AeMode2Str, (uint32_t code, char* text)) \
  R(int, SnrQM2150_WbMode2Str, (uint32_t code, char* text)) \
  R(int, SnrQM2150_SetFocusMode, (int32_t mode)) \
  R(int, SnrQM2150_SetBlcIndex, (int32_t index)) \
  R(int, SnrQM2150_SetMirror, (int32_t on)) \
  R(int, SnrQM2150_SetMirrorFlip, (int32_t mirror, int32_t flip)) \
  R(int, SnrQM2150_SetDnIsMode, (void)) \
  R(int, SnrQM2150_SetDnNightMode, (void)) \
  R(int, SnrQM2150_SetDnDayMode, (void)) \
  R(int, SnrQM2150_SetSaturation, (int32_t index)) \
  R(int, SnrQM2150_SetSnrMode, (int32_t hz)) \
  R(int, SnrQM2150_Command, (uint32_t count, const uint8_t* bytes)) \
  R(int, SnrQM2150_Inquiry, (uint8_t category, uint32_t count, const uint8_t* bytes, uint32_t size, char* text)) \
  R(int, SnrQM2150_init, (int32_t hz))
/* clang-format on */

/* Declared again with these signatures: the compiler rejects what differs from the headers. */
#define DECLARE(result, name, parameters) result name parameters;
ROUTINES(DECLARE)

/* Records that are not the type of any global. The sizes of the globals are in cmake/libzr4410.map, and another test
   compares them. */
_Static_assert(sizeof(tVisca) == 20, "tVisca has changed");
_Static_assert(sizeof(tWdrParam) == 5, "tWdrParam has changed");
_Static_assert(sizeof(InterpolationPoint) == 2 * sizeof(double), "InterpolationPoint has changed");

typedef void (*Routine)(void);

#define ADDRESS(result, name, parameters) (Routine)(name),
/* volatile: some compilers know that no address is NULL, and would otherwise drop the tables and their references. */
static const Routine volatile kRoutines[] = {ROUTINES(ADDRESS)};

static const void* const volatile kGlobals[] = {
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
  good &= Check(giMsgIdTx == -1 && giMsgIdRx == -1, "the queues are open at the start");
  good &=
      Check(SnrQM2150_SnrMode2Str(0x08, text) == 0 && strcmp(text, "1080p 25fps") == 0, "the name of a mode is wrong");
  good &= Check(HexStr2Bytes("2472", bytes) == 0 && bytes[0] == 0x24 && bytes[1] == 0x72,
                "hex digits are converted wrongly");
  good &= Check(strcmp(MCU_StrError(0x50), "Busy") == 0, "the text of a result is wrong");
  good &= Check(SnrQM2150_ExpCompPos2Db(14, &dB) == 0 && dB == 10.5, "a conversion is wrong");
  return good ? 0 : 1;
}
