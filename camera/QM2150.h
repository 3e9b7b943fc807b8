/* Driver of the QM2150 camera block module: VISCA transactions, registers, settings and block inquiries.
 *
 * Unless noted otherwise a routine returns 0 on success and writes its output only then. On failure it returns:
 *   -1   request of more than 16 data bytes; queue not open, or send failed; wrong relay header, sequence id or command
 *        code of the reply; command not acknowledged, or its acknowledgement damaged
 *   -15  stop flag set
 *   -55  receive error
 *   -56  time-out
 *   -57  request of 13 to 16 data bytes; reply packet too long or too short
 *   -58  camera reply frame: wrong start, checksum or stop
 *   -59  VISCA error reply, or a reply of a wrong length or content
 *   -60  a written value did not read back
 */
#ifndef ZR4410_CAMERA_QM2150_H
#define ZR4410_CAMERA_QM2150_H

#include <stdint.h>

#include "link/Relay.h"
#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* The two values of a VISCA switch. */
enum {
  VISCA_ON = 2, /* or automatic */
  VISCA_OFF = 3 /* or manual */
};

/* VISCA reply, 20 bytes: what an inquiry returns to its caller. */
typedef struct {
  uint8_t header;     /* first reply byte, 0x90 expected */
  uint8_t replyType;  /* second reply byte: 0x50 completion with data, 0x60 error */
  uint8_t length;     /* number of data bytes, between reply type and terminator */
  uint8_t bData[16];  /* the first length bytes are the data, the rest is zero */
  uint8_t terminator; /* 0xFF expected */
} tVisca;

/* Wide-dynamic-range parameters; the first four are 0..15. The comments name the corresponding fields of
   EnlargeFunction2Record, where these four have only their low two bits. */
typedef struct {
  uint8_t parameter1; /* wideDScreenDisplay */
  uint8_t parameter2; /* wideDDetectionSensitivity */
  uint8_t parameter3; /* wideDShadowCorrectionLevel */
  uint8_t parameter4; /* wideDHighlightCorrectionLevel */
  uint8_t parameter5; /* wideDShortExposureRatio, 0..255 */
} tWdrParam;

extern ViscaRequestFrame gtUart1ViscaCmdInq; /* the request frame of every camera exchange */
extern ViscaReplyFrame gtUart1ViscaResp;     /* the reply frame of the last inquiry; zero after a command */

/* --- Transactions --- */

/* Sends the command 81 01 04 <data> FF and waits for the daemon's acknowledgement, not for the camera's completion.
   length: 0..16 data bytes; more than 12 are refused with -57. */
int QM2150_Command(uint32_t length, const uint8_t* data);

/* Sends the inquiry 81 09 <category> <data> FF and fills *out with the reply. The caller must still check the reply
   with QM2150_ChecRespVisca, and its length. length: as for QM2150_Command. */
int QM2150_Inquiry(uint8_t category, uint32_t length, const uint8_t* data, tVisca* out);

/* Sends gtUart1ViscaCmdInq, in which the caller has set selector, category, count and data, and stores the reply in
   gtUart1ViscaResp (inquiry) or gtUart1Resp (command). The VISCA content of the reply is not checked. */
int QM2150_ProcessVisca(void);

/* Checks a VISCA reply. Returns 0; -59 for a wrong header, a wrong terminator or an error reply (0x60): these are
   logged. Any other reply type is accepted, even an acknowledgement (0x4y) or an error with a socket number (0x61). */
int QM2150_ChecRespVisca(const tVisca* reply);

/* --- Register bank, sensor mode, version --- */

/* Writes a register: 81 01 04 24 <number> 0p 0q FF, where pq is the value. It is not read back. */
int QM2150_SetRegisterValue(uint8_t number, uint8_t value);

/* Reads a register: 81 09 04 24 <number> FF, answered with 90 50 0p 0q FF. The content of the reply is not checked, so
   an error reply gives a wrong value. */
int QM2150_GetRegisterValue(uint8_t number, uint8_t* value);

/* Reads register 0x72, the sensor mode, a code of SnrQM2150_SnrMode2Str. */
int QM2150_GetSnrMode(uint8_t* mode);

/* Writes register 0x72 and reads it back after 50 ms, and once more 50 ms later if it differs. A mode that still
   differs is only logged: the result is 0. */
int QM2150_SetSnrMode(uint8_t mode);

/* Reads model and ROM version: 81 09 00 02 FF, answered with 90 50 <vendor: 2 bytes> <model: 2> <ROM version: 2>
   <sockets: 1> FF, most significant byte first. The content of the reply is not checked. */
int QM2150_GetVersion(uint16_t* model, uint16_t* romVersion);

/* Triggers one white-balance adjustment: 81 01 04 10 05 FF. */
int QM2150_WbOnePushTrigger(void);

/* --- Settings: a getter sends one inquiry. A setter sends one command and confirms it by up to two read-backs, the
   first after 50 ms, the second 50 ms after the first. Values are not checked before they are sent; one that does not
   fit in the command is truncated there, so it is never confirmed (-60). On and off are VISCA_ON and VISCA_OFF.
   `simZR4410 protocol` prints the code and the bytes of each setting. --- */

int QM2150_GetNR(uint8_t* value); /* 0..15, noise reduction level */
int QM2150_SetNR(uint8_t value);
int QM2150_GetWdrParams(tWdrParam* params);
int QM2150_SetWdrParams(const tWdrParam* params);
/* 0 auto, 1 on (exposure ratio), 2 on, 3 off, 4 on (histogram); wideDMode uses other numbers */
int QM2150_GetWdrMode(uint8_t* value);
int QM2150_SetWdrMode(uint8_t value);
int QM2150_GetBgain(uint8_t* value); /* blue gain, 0..255 */
int QM2150_SetBgain(uint8_t value);
int QM2150_GetRgain(uint8_t* value); /* red gain, 0..255 */
int QM2150_SetRgain(uint8_t value);
int QM2150_GetIrisPos(uint8_t* value); /* position, see SnrQM2150_IrisPos2Fno */
int QM2150_SetIrisPos(uint8_t value);
int QM2150_GetGainPos(uint8_t* value); /* position, see SnrQM2150_GainPos2dB */
int QM2150_SetGainPos(uint8_t value);
int QM2150_GetGainLimit(uint8_t* value); /* position 0..15, see SnrQM2150_GainPos2dB */
int QM2150_SetGainLimit(uint8_t value);
int QM2150_GetHighSensitivity(uint8_t* value); /* on, off */
int QM2150_SetHighSensitivity(uint8_t value);
int QM2150_GetExpCompStep(uint8_t* value); /* 0..14, see SnrQM2150_ExpCompPos2Db; above 15 is never confirmed */
int QM2150_SetExpCompStep(uint8_t value);
int QM2150_GetExpComp(uint8_t* value); /* on, off */
int QM2150_SetExpComp(uint8_t value);
int QM2150_GetPictureFlip(uint8_t* value); /* on, off */
int QM2150_SetPictureFlip(uint8_t value);
int QM2150_GetLrReverse(uint8_t* value); /* on, off */
int QM2150_SetLrReverse(uint8_t value);
int QM2150_GetIcr(uint8_t* value); /* infra-red cut filter removed: on (night), off (day) */
int QM2150_SetIcr(uint8_t value);
int QM2150_GetAutoIcr(uint8_t* value); /* on, off */
int QM2150_SetAutoIcr(uint8_t value);
int QM2150_GetColorGain(uint8_t* value); /* 0..14 */
int QM2150_SetColorGain(uint8_t value);
int QM2150_GetShutter(uint16_t* value); /* position, see SnrQM2150_Pos2Shutter */
int QM2150_SetShutter(uint16_t value);
int QM2150_GetAfMode(uint8_t* value); /* 0 normal, 1 interval, 2 zoom trigger */
int QM2150_SetAfMode(uint8_t value);
int QM2150_GetFocusMode(uint8_t* value); /* VISCA_ON auto, VISCA_OFF manual */
int QM2150_SetFocusMode(uint8_t value);
int QM2150_GetAeMode(uint8_t* value); /* a code of SnrQM2150_AeMode2Str */
int QM2150_SetAeMode(uint8_t value);
int QM2150_GetWbMode(uint8_t* value); /* a code of SnrQM2150_WbMode2Str; -60 for a reply of a wrong length */
int QM2150_SetWbMode(uint8_t value);

/* Returns 0 if all five fields are equal, otherwise -60. */
int QM2150_CompareWdrParams(const tWdrParam* first, const tWdrParam* second);

/* --- Block inquiries: 81 09 7E 7E 0n FF, answered with 13 packed data bytes. On success the bytes are dumped to
   standard output and every field is logged; on failure the record is unchanged. `simZR4410 protocol` prints the bits
   of each field. --- */

/* A flag is 1 for yes or on, 0 for no or off, unless noted otherwise. Only the name of a field marked "undocumented" is
   known; docs/protocol.md says what the simulated camera sends there. */

/* Block 0: lens. */
typedef struct {
  uint16_t zoomPos;          /* 0..0x4000 optical, up to 0x7AC0 with digital zoom; see SnrQM2150_CombineZoom */
  uint16_t focusNearLimit;   /* position as in focusPos; the low byte is always 0 */
  uint16_t focusPos;         /* 0x1000 far .. 0xF000 near; see SnrQM2150_FocusPos */
  uint8_t dzoomMode;         /* 0 combined, 1 separate */
  uint8_t afMode;            /* 0 normal, 1 interval, 2 zoom trigger */
  uint8_t afSensitivity;     /* 0 slow, 1 normal; the lens report does not use it */
  uint8_t digitalZoom;       /* flag */
  uint8_t focusMode;         /* 0 manual, 1 auto */
  uint8_t lowContrastDetect; /* flag */
  uint8_t camMemoryRecall;   /* flag, undocumented */
  uint8_t focusCmd;          /* flag, undocumented */
  uint8_t zoomCmd;           /* flag, undocumented */
} LensControlRecord;

/* Block 1: exposure and white balance. */
typedef struct {
  uint8_t rGain;        /* red gain, 0..255 */
  uint8_t bGain;        /* blue gain, 0..255 */
  uint8_t wbMode;       /* a code of SnrQM2150_WbMode2Str */
  uint8_t apertureGain; /* 0..15 */
  uint8_t exposureMode; /* a code of SnrQM2150_AeMode2Str */
  uint8_t highRes;      /* flag */
  uint8_t wideD;        /* flag: wide dynamic range */
  uint8_t spotAe;       /* flag: spot exposure */
  uint8_t backLight;    /* flag: backlight compensation */
  uint8_t expComp;      /* flag: exposure compensation */
  uint8_t slowShutter;  /* flag */
  uint8_t shutterPos;   /* position, see SnrQM2150_Pos2Shutter */
  uint8_t irisPos;      /* position, see SnrQM2150_IrisPos2Fno */
  uint8_t gainPos;      /* position, see SnrQM2150_GainPos2dB */
  uint8_t brightPos;    /* 0..31 */
  uint8_t expCompPos;   /* position, see SnrQM2150_ExpCompPos2Db */
} CameraControlRecord;

/* Block 2: everything else. */
typedef struct {
  uint8_t autoIcrAlarm;      /* flag */
  uint8_t autoIcr;           /* flag: the camera switches the infra-red cut filter automatically */
  uint8_t power;             /* flag */
  uint8_t icr;               /* infra-red cut filter: 0 in place (IR_CUT), 1 removed (IR_PASS) */
  uint8_t freeze;            /* flag: still picture */
  uint8_t lrReverse;         /* flag: mirrored left to right */
  uint8_t privacyZone;       /* flag */
  uint8_t mute;              /* flag: picture muted */
  uint8_t titleDisplay;      /* flag */
  uint8_t display;           /* flag */
  uint8_t pictureEffectMode; /* 0..7, undocumented */
  uint16_t cameraId;         /* its third hexadecimal digit is always F */
  uint8_t memory;            /* flag (data byte 10, bit 4), undocumented */
  uint8_t icr1;              /* flag (data byte 10, bit 2), undocumented; simulated as a copy of icr */
  uint8_t hz;                /* flag (data byte 10, bit 0), undocumented; simulated as 1 at 50 Hz, 0 at 60 Hz */
} OtherControlRecord;

/* Block 3: enlarged functions. */
typedef struct {
  uint8_t digitalZoomPos;      /* 0..235, see SnrQM2150_DigitalZoom */
  uint8_t afActiveTime;        /* 0..255 */
  uint8_t afIntervalTime;      /* 0..255 */
  uint8_t spotAePos;           /* 0..15 */
  uint8_t md;                  /* flag (data byte 8, bit 2), undocumented */
  uint8_t alarm;               /* flag (data byte 8, bit 1), undocumented */
  uint8_t pictureFlip;         /* flag: turned upside down */
  uint8_t colorGain;           /* 0..7 */
  uint8_t advancedPrivacy;     /* flag */
  uint8_t alarm1;              /* flag (data byte 9, bit 1), undocumented; simulated as a copy of alarm */
  uint8_t pictureFlip1;        /* flag (data byte 9, bit 0), undocumented; simulated as a copy of pictureFlip */
  uint8_t aeResponse;          /* 0..31 */
  uint8_t gamma;               /* 0..7, undocumented */
  uint8_t highSensitivityMode; /* flag */
  uint8_t nrLevel;             /* noise reduction: 0 off, 1..7 level */
  uint8_t chromaSuppress;      /* 0..7, undocumented */
  uint8_t gainLimit;           /* position, see SnrQM2150_GainPos2dB */
} EnlargeFunction1Record;

/* Block 4: wide dynamic range. */
typedef struct {
  uint8_t wideDMode;                     /* 0 off, 1 on, 2 auto on/off, 3 on (exposure ratio), 4 on (histogram) */
  uint8_t wideDScreenDisplay;            /* 0 combined image, 1 long/short division, 2 long-time, 3 short-time */
  uint8_t wideDDetectionSensitivity;     /* reported as 0 L, 1 M, 2 H */
  uint8_t wideDShadowCorrectionLevel;    /* reported as 0 L, 1 M, 2 H, 3 S */
  uint8_t wideDHighlightCorrectionLevel; /* reported as 0 L, 1 M, 2 H */
  uint8_t wideDShortExposureRatio;       /* 0..255 */
} EnlargeFunction2Record;

extern LensControlRecord gtLensControl;
extern CameraControlRecord gtCamControl;
extern OtherControlRecord gtOtherControl;
extern EnlargeFunction1Record gtEnlargeFun1;
extern EnlargeFunction2Record gtEnlargeFun2;

/* Read block 0 to block 4 into *record. */
int QM2150_GetLensControl(LensControlRecord* record);
int QM2150_GetCameraControl(CameraControlRecord* record);
int QM2150_GetOtherControl(OtherControlRecord* record);
int QM2150_GetEnlargeFunction1(EnlargeFunction1Record* record);
int QM2150_GetEnlargeFunction2(EnlargeFunction2Record* record);

ZR4410_END_DECLS

#endif
