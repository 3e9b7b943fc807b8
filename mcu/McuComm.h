/* The motor microcontroller (MCU): pan/tilt head, camera power, positions. */
#ifndef ZR4410_MCU_MCUCOMM_H
#define ZR4410_MCU_MCUCOMM_H

#include <stdint.h>

#include "link/Relay.h"
#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Command ids that the routines below send; the last one that has a description. */
enum { MCU_LENS_POWER_CONTROL = 0x0C, MCU_GET_VERSION = 0x10, MCU_GET_PTZ = 0x11, MCU_LAST_COMMAND = 0x15 };

/* Request and reply of the last exchange. Each command clears both first; the reply of a camera command lands in
   gtUart1Resp too. */
extern PlainFrame gtUart1Cmd, gtUart1Resp;

/* The checksum of a plain frame; a length above 16 sums 16 data bytes. */
uint8_t MCU_ChecksumCmdResp(const PlainFrame* frame);

/* Unwraps a plain reply frame from a received 36-byte body. 0; -1 when its length is above 16. */
int MCU_FillUart1Resp(const uint8_t* body, PlainFrame* frame);

/* Checks start, command code, checksum and stop of a plain reply frame. 0 or -1. */
int MCU_CheckUart1Resp(const PlainFrame* frame);

/* The text of a result code (first data byte of the reply to a set command): 0x10 "ACK OK", 0x20 "Checksum error",
   0x30 "Command not define", 0x40 "Value out of range", 0x50 "Busy", any other "Null". The texts are static. */
const char* MCU_StrError(uint8_t code);

/* One exchange of the request prepared in gtUart1Cmd (command, length, data); the reply lands in gtUart1Resp.
   0; -1 for a bad length or reply; otherwise the queue client's result (-15 stop, -55 receive error, -56 time-out). */
int MCU_ProcessUart1(void);

/* MCU_GET_VERSION. *version: the first reply byte. 0 or the result of MCU_ProcessUart1. */
int MCU_GetVersion(uint8_t* version);

/* MCU_LENS_POWER_CONTROL: switches the camera module's power by the low byte of on (0 off, 1 on).
   0 when the MCU answered 0x10 ("ACK OK"); -1 when it did not, or the result of MCU_ProcessUart1. */
int MCU_LensPowerControl(int32_t on);

/* MCU_GET_PTZ with the low byte of mode (0 get once, 1 automatic response). Positions, most significant byte first:
   pan in reply bytes 0..3 (steps), tilt in 4..5, zoom in 6..7.
   0; -1 when the reply does not have 8 data bytes, or the result of MCU_ProcessUart1. */
int MCU_GetPTZ(int32_t mode, uint32_t* pan, uint16_t* tilt, uint16_t* zoom);

/* Copies the description of command id 0x00..MCU_LAST_COMMAND into text (53 bytes at most). 0; -1 for any other id. */
int MCU_Cmd2Str(uint32_t id, char* text);

ZR4410_END_DECLS

#endif
