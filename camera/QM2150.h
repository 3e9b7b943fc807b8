/* Driver of the QM2150 camera block module: VISCA transactions, registers, settings and block inquiries.
 *
 * Unless told otherwise a routine returns 0 on success and writes its output only then, or a negative result:
 *   -1   request too long; queue not open, or send failed; relay header, sequence id or command code of the reply
 *        wrong; command not acknowledged, or its acknowledgement damaged
 *   -15  stop flag set    -55 receive error    -56 time-out    -57 packet too long, or reply too short
 *   -58  camera reply frame: start, checksum or stop wrong
 *   -59  VISCA error reply, or a reply of a wrong length or content
 *   -60  a written value did not read back
 */
#ifndef ZR4410_CAMERA_QM2150_H
#define ZR4410_CAMERA_QM2150_H

#include <stdint.h>

#include "link/Relay.h"
#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* VISCA reply, 20 bytes: what an inquiry hands to its caller. */
typedef struct {
  uint8_t header;     /* first reply byte, 0x90 expected */
  uint8_t replyType;  /* second reply byte: 0x50 completion with data, 0x60 error */
  uint8_t length;     /* data bytes between reply type and terminator */
  uint8_t bData[16];  /* the first length used, the rest zero */
  uint8_t terminator; /* 0xFF expected */
} tVisca;

/* Wide-dynamic-range parameters. */
typedef struct {
  uint8_t parameter1; /* 0..15, each of the first four sent as one nibble */
  uint8_t parameter2;
  uint8_t parameter3;
  uint8_t parameter4;
  uint8_t parameter5; /* 0..255, sent as two nibbles */
} tWdrParam;

extern ViscaRequestFrame gtUart1ViscaCmdInq; /* the request frame of every camera exchange */
extern ViscaReplyFrame gtUart1ViscaResp;     /* the reply frame of the last inquiry; zero after a command */

/* --- Transactions --- */

/* Sends the command 81 01 04 <data> FF and awaits the daemon's acknowledgement, not the camera's completion.
   length: 0..16 data bytes; more than 12 are refused with -57. */
int QM2150_Command(uint32_t length, const uint8_t* data);

/* Sends the inquiry 81 09 <category> <data> FF and fills *out with the reply, which the caller still has to judge
   with QM2150_ChecRespVisca and by its length. length: as for QM2150_Command. */
int QM2150_Inquiry(uint8_t category, uint32_t length, const uint8_t* data, tVisca* out);

/* One exchange of gtUart1ViscaCmdInq, in which the caller has set selector, category, count and data. The reply lands
   in gtUart1ViscaResp (inquiry) or gtUart1Resp (command); its VISCA content is not looked at. */
int QM2150_ProcessVisca(void);

/* Judges a VISCA reply: 0, or -59 for a wrong header or terminator or an error reply (0x60). */
int QM2150_ChecRespVisca(const tVisca* reply);

/* --- Register bank, sensor mode, version --- */

/* 81 01 04 24 <number> 0p 0q FF, pq the value. */
int QM2150_SetRegisterValue(uint8_t number, uint8_t value);

/* 81 09 04 24 <number> FF, answered 90 50 0p 0q FF. The reply is used as it stands, unchecked. */
int QM2150_GetRegisterValue(uint8_t number, uint8_t* value);

/* Register 0x72: sensor mode, a code of SnrQM2150_SnrMode2Str. */
int QM2150_GetSnrMode(uint8_t* mode);

/* Writes register 0x72 and reads it back, up to twice. A mode that does not take is logged, and 0 returned. */
int QM2150_SetSnrMode(uint8_t mode);

/* 81 09 00 02 FF, answered 90 50 <vendor: 2> <model: 2> <ROM version: 2> <sockets> FF, most significant byte first. */
int QM2150_GetVersion(uint16_t* model, uint16_t* romVersion);

/* 81 01 04 10 05 FF: triggers one white-balance adjustment. */
int QM2150_WbOnePushTrigger(void);

/* --- Settings: each is read by one inquiry and written by one command that is confirmed by up to two read-backs,
   50 ms apart. The codes and bytes of each stand in the table in QM2150Parameters.cpp. --- */

int QM2150_GetNR(uint8_t* value); /* 0..15, noise reduction level */
int QM2150_SetNR(uint8_t value);
int QM2150_GetWdrParams(tWdrParam* params);
int QM2150_SetWdrParams(const tWdrParam* params);
int QM2150_GetWdrMode(uint8_t* value);
int QM2150_SetWdrMode(uint8_t value);
int QM2150_GetBgain(uint8_t* value); /* 0..255 */
int QM2150_SetBgain(uint8_t value);
int QM2150_GetRgain(uint8_t* value); /* 0..255 */
int QM2150_SetRgain(uint8_t value);
int QM2150_GetIrisPos(uint8_t* value); /* position, see SnrQM2150_IrisPos2Fno */
int QM2150_SetIrisPos(uint8_t value);
int QM2150_GetGainPos(uint8_t* value); /* position, see SnrQM2150_GainPos2dB */
int QM2150_SetGainPos(uint8_t value);
int QM2150_GetGainLimit(uint8_t* value); /* 0..15 */
int QM2150_SetGainLimit(uint8_t value);
int QM2150_GetHighSensitivity(uint8_t* value); /* 2 on, 3 off */
int QM2150_SetHighSensitivity(uint8_t value);
int QM2150_GetExpCompStep(uint8_t* value); /* 0..14, see SnrQM2150_ExpCompPos2Db; above 15 never confirmed */
int QM2150_SetExpCompStep(uint8_t value);
int QM2150_GetExpComp(uint8_t* value); /* 2 on, 3 off */
int QM2150_SetExpComp(uint8_t value);
int QM2150_GetPictureFlip(uint8_t* value); /* 2 on, 3 off */
int QM2150_SetPictureFlip(uint8_t value);
int QM2150_GetLrReverse(uint8_t* value); /* 2 on, 3 off */
int QM2150_SetLrReverse(uint8_t value);
int QM2150_GetIcr(uint8_t* value); /* infra-red cut filter removed: 2 on (night), 3 off (day) */
int QM2150_SetIcr(uint8_t value);
int QM2150_GetAutoIcr(uint8_t* value); /* 2 on, 3 off */
int QM2150_SetAutoIcr(uint8_t value);
int QM2150_GetColorGain(uint8_t* value); /* 0..14 */
int QM2150_SetColorGain(uint8_t value);
int QM2150_GetShutter(uint16_t* value); /* position, see SnrQM2150_Pos2Shutter */
int QM2150_SetShutter(uint16_t value);
int QM2150_GetAfMode(uint8_t* value);
int QM2150_SetAfMode(uint8_t value);
int QM2150_GetFocusMode(uint8_t* value); /* 2 auto, 3 manual */
int QM2150_SetFocusMode(uint8_t value);
int QM2150_GetAeMode(uint8_t* value); /* a code of SnrQM2150_AeMode2Str */
int QM2150_SetAeMode(uint8_t value);
int QM2150_GetWbMode(uint8_t* value); /* a code of SnrQM2150_WbMode2Str; -60 for a reply of a wrong length */
int QM2150_SetWbMode(uint8_t value);

/* 0 when all five fields are equal, otherwise -60. */
int QM2150_CompareWdrParams(const tWdrParam* first, const tWdrParam* second);

/* --- Block inquiries: 81 09 7E 7E 0n FF, answered with thirteen packed data bytes. On success the bytes are dumped
   to standard output and every field is logged; on failure the record is left as it was. Where each field stands in
   the reply is told by the tables in QM2150Blocks.cpp. --- */

/* Block 0. One-bit fields hold 0 or 1, here and below. */
typedef struct {
  uint16_t zoomPos;        /* 0..0x4000 optical, to 0x7AC0 combined with digital */
  uint16_t focusNearLimit; /* low byte always 0 */
  uint16_t focusPos;       /* 0x1000 far .. 0xF000 near */
  uint8_t dzoomMode;       /* 0 combined, 1 separate */
  uint8_t afMode;          /* 0 normal, 1 interval, 2 zoom trigger */
  uint8_t afSensitivity;
  uint8_t digitalZoom;
  uint8_t focusMode; /* 0 manual, 1 auto */
  uint8_t lowContrastDetect;
  uint8_t camMemoryRecall;
  uint8_t focusCmd;
  uint8_t zoomCmd;
} LensControlRecord;

/* Block 1. */
typedef struct {
  uint8_t rGain;
  uint8_t bGain;
  uint8_t wbMode;
  uint8_t apertureGain;
  uint8_t exposureMode;
  uint8_t highRes;
  uint8_t wideD;
  uint8_t spotAe;
  uint8_t backLight;
  uint8_t expComp;
  uint8_t slowShutter;
  uint8_t shutterPos;
  uint8_t irisPos;
  uint8_t gainPos;
  uint8_t brightPos;
  uint8_t expCompPos;
} CameraControlRecord;

/* Block 2. */
typedef struct {
  uint8_t autoIcrAlarm;
  uint8_t autoIcr;
  uint8_t power;
  uint8_t icr;
  uint8_t freeze;
  uint8_t lrReverse;
  uint8_t privacyZone;
  uint8_t mute;
  uint8_t titleDisplay;
  uint8_t display;
  uint8_t pictureEffectMode;
  uint16_t cameraId;
  uint8_t memory;
  uint8_t icr1;
  uint8_t hz;
} OtherControlRecord;

/* Block 3. */
typedef struct {
  uint8_t digitalZoomPos; /* 0..235 */
  uint8_t afActiveTime;
  uint8_t afIntervalTime;
  uint8_t spotAePos;
  uint8_t md;
  uint8_t alarm;
  uint8_t pictureFlip;
  uint8_t colorGain;
  uint8_t advancedPrivacy;
  uint8_t alarm1;
  uint8_t pictureFlip1;
  uint8_t aeResponse;
  uint8_t gamma;
  uint8_t highSensitivityMode;
  uint8_t nrLevel;
  uint8_t chromaSuppress;
  uint8_t gainLimit;
} EnlargeFunction1Record;

/* Block 4. */
typedef struct {
  uint8_t wideDMode;
  uint8_t wideDScreenDisplay;
  uint8_t wideDDetectionSensitivity;
  uint8_t wideDShadowCorrectionLevel;
  uint8_t wideDHighlightCorrectionLevel;
  uint8_t wideDShortExposureRatio;
} EnlargeFunction2Record;

extern LensControlRecord gtLensControl;
extern CameraControlRecord gtCamControl;
extern OtherControlRecord gtOtherControl;
extern EnlargeFunction1Record gtEnlargeFun1;
extern EnlargeFunction2Record gtEnlargeFun2;

int QM2150_GetLensControl(LensControlRecord* record);
int QM2150_GetCameraControl(CameraControlRecord* record);
int QM2150_GetOtherControl(OtherControlRecord* record);
int QM2150_GetEnlargeFunction1(EnlargeFunction1Record* record);
int QM2150_GetEnlargeFunction2(EnlargeFunction2Record* record);

ZR4410_END_DECLS

#endif
