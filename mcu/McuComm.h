/* Commands of the motor microcontroller (MCU), which drives the pan/tilt head and switches the camera's power. */
#ifndef ZR4410_MCU_MCUCOMM_H
#define ZR4410_MCU_MCUCOMM_H

#include <stdint.h>

#include "link/Relay.h"
#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* The command ids that the routines below send, and the last id that has a description. */
enum { MCU_LENS_POWER_CONTROL = 0x0C, MCU_GET_VERSION = 0x10, MCU_GET_PTZ = 0x11, MCU_LAST_COMMAND = 0x15 };

/* Request and reply of the last exchange. MCU_GetVersion, MCU_LensPowerControl and MCU_GetPTZ clear both first. The
   acknowledgement of a camera command is stored in gtUart1Resp too. */
extern PlainFrame gtUart1Cmd, gtUart1Resp;

/* Returns the checksum of a plain frame. If its length is above 16, the checksum covers 16 data bytes. */
uint8_t MCU_ChecksumCmdResp(const PlainFrame* frame);

/* Unwraps a plain reply frame from a received 36-byte body. Returns 0; -1 if its length is above 16: then only start,
   command and length are written. */
int MCU_FillUart1Resp(const uint8_t* body, PlainFrame* frame);

/* Checks start, command code (gbUart1Command plus 0x80), checksum and stop of a plain reply frame. Returns 0; -1 if one
   of them is wrong. */
int MCU_CheckUart1Resp(const PlainFrame* frame);

/* Returns the text of a result code, the first data byte of the reply to a set command: 0x10 "ACK OK",
   0x20 "Checksum error", 0x30 "Command not define", 0x40 "Value out of range", 0x50 "Busy", any other "Null". The texts
   are static. */
const char* MCU_StrError(uint8_t code);

/* Sends the request prepared in gtUart1Cmd (command, length, data) and stores the reply in gtUart1Resp.
   Returns 0; -1 for a length above 16, a failed send or a bad reply; -15 if the stop flag is set; -55 for a receive
   error; -56 after a time-out. */
int MCU_ProcessUart1(void);

/* MCU_GetVersion, MCU_LensPowerControl and MCU_GetPTZ return a failure of MCU_ProcessUart1 unchanged, and then write no
   output. */

/* Sends MCU_GET_VERSION with the value 1. *version receives the first data byte of the reply. Returns 0. */
int MCU_GetVersion(uint8_t* version);

/* Switches the camera module's power: sends MCU_LENS_POWER_CONTROL with the low byte of on (0 off, 1 on).
   Returns 0 if the MCU answers 0x10 ("ACK OK"); -1 if it answers anything else. */
int MCU_LensPowerControl(int32_t on);

/* Sends MCU_GET_PTZ with the low byte of mode (0 get once, 1 automatic response). Reply, most significant byte first:
   pan in bytes 0..3 (steps), tilt in 4..5, zoom in 6..7.
   If gfDebugFlag is set, also dumps the data bytes to standard output. Returns 0; -1 if the reply does not have 8 data
   bytes: the outputs are then unchanged. */
int MCU_GetPTZ(int32_t mode, uint32_t* pan, uint16_t* tilt, uint16_t* zoom);

/* Copies the description of command id 0x00..MCU_LAST_COMMAND to text, at most 53 bytes with the terminating zero.
   Returns 0; -1 for any other id: text is then unchanged. */
int MCU_Cmd2Str(uint32_t id, char* text);

ZR4410_END_DECLS

#endif
