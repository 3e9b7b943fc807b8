/* What the camera's numbers mean, and its start-up and higher-level settings. */
#ifndef ZR4410_CAMERA_SNRQM2150_H
#define ZR4410_CAMERA_SNRQM2150_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* What a conversion to a number returns for a position without a value. */
#define SNRQM2150_NO_VALUE (-99.0)

/* --- Conversions: pure, no logging; outputs are written on success only --- */

/* A calibration point, in ascending order of position in each table. */
typedef struct {
  int32_t value; /* centimetres, or magnification */
  uint16_t position;
  uint8_t reserved[2]; /* zero */
} CalibrationEntry;

extern const CalibrationEntry gtFocusPosTb[15], gtDigitalZoomTb[12], gtOpticalZoomTb[20], gtCombineZoomTb[31];

/* Shutter position 0..21 at 50 or 60 Hz to the denominator N of 1/N s; -59 for anything else. */
int32_t SnrQM2150_Pos2Shutter(int32_t frequency, uint32_t position);

/* Iris position 0 or 5..17 to the F-number; SNRQM2150_NO_VALUE for anything else. */
double SnrQM2150_IrisPos2Fno(uint32_t position);

/* Gain position 0..15 to dB; highSensitivity VISCA_ON raises positions 11..15. SNRQM2150_NO_VALUE for any other
   position. */
double SnrQM2150_GainPos2dB(uint32_t highSensitivity, int32_t position);

/* Exposure-compensation position 0..14 to -10.5..10.5 dB. 0 or -59. */
int SnrQM2150_ExpCompPos2Db(uint32_t position, double* out);

/* Focus position 0x1000..0xF000 to centimetres; both ends give 1.0. 0 or -59. */
int SnrQM2150_FocusPos(uint16_t position, double* out);

/* Digital zoom position 0..235 to magnification 1..12. 0 or -59. */
int SnrQM2150_DigitalZoom(uint32_t position, double* out);

/* Optical zoom position 0..16384 to magnification 1..20. 0 or -59. */
int SnrQM2150_OpticalZoom(uint32_t position, double* out);

/* Combined zoom position 0..31424 to magnification 1..240. 0 or -59. */
int SnrQM2150_CombineZoom(uint32_t position, double* out);

enum { SNR_MODE_LAST = 0x12 }; /* the last sensor mode that has a name */

/* --- Mode names: copy the name of a code into text (26 bytes suffice). 0; -59 for a code without a name --- */

int SnrQM2150_SnrMode2Str(uint32_t code, char* text); /* sensor mode, 0x00..SNR_MODE_LAST */
int SnrQM2150_AeMode2Str(uint32_t code, char* text);  /* exposure mode: 0x00, 0x03, 0x0A, 0x0B, 0x0D */
int SnrQM2150_WbMode2Str(uint32_t code, char* text);  /* white balance mode, 0x00..0x08 */

/* --- Operations: 0; -60 for an argument that is not accepted, with nothing sent; otherwise the result of the camera
   or MCU routine that failed --- */

/* What the last start-up read; a field whose read failed is 0. snrMode is the last sensor mode read, also by
   SnrQM2150_SetSnrMode. */
typedef struct {
  uint8_t mcuVersion;
  uint16_t model, romVersion;
  uint8_t snrMode, aeMode, wbMode, afMode;
  uint16_t shutter; /* position */
} StartupParams;

extern StartupParams gtParams;

int SnrQM2150_SetFocusMode(int32_t mode);                  /* 1 auto, 0 manual */
int SnrQM2150_SetBlcIndex(int32_t index);                  /* backlight compensation 0..8; any other acts as 4 */
int SnrQM2150_SetMirror(int32_t on);                       /* 1 or 0 */
int SnrQM2150_SetMirrorFlip(int32_t mirror, int32_t flip); /* 0 or 1 each */
int SnrQM2150_SetDnIsMode(void);                           /* automatic day/night */
int SnrQM2150_SetDnNightMode(void);
int SnrQM2150_SetDnDayMode(void);
int SnrQM2150_SetSaturation(int32_t index); /* 124..138 span colour gain 0..14, limited outside */

/* Changes the sensor mode for 50 Hz (1080p 25fps) or 60 Hz (1080p 30fps) mains, with a power cycle of the camera: at
   least 9 seconds, about 19 if the camera wakes up at the last try, more while it is silent; at once if the mode is
   set already. -59 for another frequency or a mode that was never accepted. */
int SnrQM2150_SetSnrMode(int32_t hz);

/* Raw VISCA command 81 01 04 <bytes> FF: QM2150_Command. */
int SnrQM2150_Command(uint32_t count, const uint8_t* bytes);

/* Raw VISCA inquiry; the reply as lower-case hex bytes with single blanks between, "90 50 01 23 ff".
   size: that many bytes of text are cleared first. It does not limit the writing: text must hold 57 bytes, its
   terminating zero included. On failure text is unchanged. */
int SnrQM2150_Inquiry(uint8_t category, uint32_t count, const uint8_t* bytes, uint32_t size, char* text);

/* Camera start-up for 50 or 60 Hz mains: sensor mode, versions and present settings into gtParams. Continues after
   failures, except of the camera's version, which is tried five times, and the stop flag (-15). */
int SnrQM2150_init(int32_t hz);

ZR4410_END_DECLS

#endif
