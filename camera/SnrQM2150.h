/* Converts the camera's numbers to physical values and names; start-up and higher-level settings of the camera. */
#ifndef ZR4410_CAMERA_SNRQM2150_H
#define ZR4410_CAMERA_SNRQM2150_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* The result of a conversion to double for a position that has no value. */
#define SNRQM2150_NO_VALUE (-99.0)

/* --- Conversions: pure functions that do not log. Unless noted otherwise they return 0; -59 if the position has no
   value: *out is then unchanged --- */

/* A calibration point. Each table is in ascending order of position. */
typedef struct {
  int32_t value; /* gtFocusPosTb: centimetres; the others: magnification */
  uint16_t position;
  uint8_t reserved[2]; /* zero */
} CalibrationEntry;

extern const CalibrationEntry gtFocusPosTb[15], gtDigitalZoomTb[12], gtOpticalZoomTb[20], gtCombineZoomTb[31];

/* Returns the denominator N of the shutter time 1/N s at position 0..21 for a mains frequency of 50 or 60 Hz; -59 for
   any other position or frequency. */
int32_t SnrQM2150_Pos2Shutter(int32_t frequency, uint32_t position);

/* Returns the F-number at iris position 0 (closed: 360.0) or 5..17; SNRQM2150_NO_VALUE for any other position. */
double SnrQM2150_IrisPos2Fno(uint32_t position);

/* Returns the gain in dB at position 0..15: -3.0..28.0. SNRQM2150_NO_VALUE for any other position. If highSensitivity
   is VISCA_ON of camera/QM2150.h, positions 11..15 give 6 to 12 dB more: up to 40.0. */
double SnrQM2150_GainPos2dB(uint32_t highSensitivity, int32_t position);

/* Exposure-compensation position 0..14 to -10.5..10.5 dB. */
int SnrQM2150_ExpCompPos2Db(uint32_t position, double* out);

/* Focus position 0x1000..0xF000 to centimetres; both ends give 1.0. */
int SnrQM2150_FocusPos(uint16_t position, double* out);

/* Digital zoom position 0..235 to magnification 1..12. */
int SnrQM2150_DigitalZoom(uint32_t position, double* out);

/* Optical zoom position 0..16384 to magnification 1..20. */
int SnrQM2150_OpticalZoom(uint32_t position, double* out);

/* Combined zoom position 0..31424 to magnification 1..240. */
int SnrQM2150_CombineZoom(uint32_t position, double* out);

enum { SNR_MODE_LAST = 0x12 }; /* the last sensor mode that has a name */

/* --- Mode names: copy the name of a code to text, at most 26 bytes with the terminating zero. They return 0; -59 for a
   code without a name: text is then unchanged --- */

int SnrQM2150_SnrMode2Str(uint32_t code, char* text); /* sensor mode, 0x00..SNR_MODE_LAST */
int SnrQM2150_AeMode2Str(uint32_t code, char* text);  /* exposure mode: 0x00, 0x03, 0x0A, 0x0B, 0x0D */
int SnrQM2150_WbMode2Str(uint32_t code, char* text);  /* white balance mode, 0x00..0x08 */

/* --- Operations: unless noted otherwise they return 0; -60 if an argument is not accepted: nothing is then sent; or
   the result of the camera or MCU routine that failed --- */

/* The values that the last start-up read; a field that could not be read is 0. SnrQM2150_SetSnrMode also sets
   snrMode. */
typedef struct {
  uint8_t mcuVersion;
  uint16_t model, romVersion;
  uint8_t snrMode, aeMode, wbMode, afMode;
  uint16_t shutter; /* position */
} StartupParams;

extern StartupParams gtParams;

int SnrQM2150_SetFocusMode(int32_t mode); /* 1 auto, 0 manual */

/* Sets backlight compensation 0..8: switches exposure compensation on and sets it to -10.5..10.5 dB. Index 4 gives
   0 dB, and so does an index out of range. */
int SnrQM2150_SetBlcIndex(int32_t index);

/* Mirrors the picture left to right: 1 on, 0 off. */
int SnrQM2150_SetMirror(int32_t on);

/* Each argument: 1 on, 0 off. flip turns the picture upside down and mirrors it left to right; mirror mirrors it once
   more. */
int SnrQM2150_SetMirrorFlip(int32_t mirror, int32_t flip);

int SnrQM2150_SetDnIsMode(void);    /* automatic: the camera switches between day and night itself */
int SnrQM2150_SetDnNightMode(void); /* night: automatic switching off, infra-red cut filter removed */
int SnrQM2150_SetDnDayMode(void);   /* day: automatic switching off, infra-red cut filter in place */

/* Sets the colour gain: index 124..138 gives 0..14; a lower one gives 0, a higher one 14. Prints the index, limited to
   0..255, and the gain to standard output first. */
int SnrQM2150_SetSaturation(int32_t index);

/* Sets the sensor mode for 50 Hz (1080p 25fps) or 60 Hz (1080p 30fps) mains. If the camera is not in this mode yet, it
   is switched off and on. This takes at least 9 seconds, about 19 if the camera wakes up at the last of ten attempts,
   and longer if it does not answer. Returns 0; -59 for another frequency, or if the camera does not accept the mode; or
   the result of the camera or MCU routine that failed. */
int SnrQM2150_SetSnrMode(int32_t hz);

/* Sends the raw VISCA command 81 01 04 <bytes> FF, see QM2150_Command. */
int SnrQM2150_Command(uint32_t count, const uint8_t* bytes);

/* Sends a raw VISCA inquiry and writes the reply to text as lower-case hex bytes separated by single spaces, such as
   "90 50 01 23 ff". text must hold 57 bytes, including the terminating zero. size: that many bytes of text are cleared
   first; it does not limit the output. On failure text is unchanged. */
int SnrQM2150_Inquiry(uint8_t category, uint32_t count, const uint8_t* bytes, uint32_t size, char* text);

/* Starts the camera up for 50 or 60 Hz mains: sets the sensor mode, and reads the versions and current settings into
   gtParams. Returns 0 even after failures, with two exceptions: -15 if the stop flag is set, and the last failure if
   the camera's version cannot be read in five attempts. */
int SnrQM2150_init(int32_t hz);

ZR4410_END_DECLS

#endif
