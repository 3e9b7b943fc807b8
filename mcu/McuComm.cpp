// One exchange with the MCU, the three commands that use it, and the texts of all MCU commands and results.
#include "mcu/McuComm.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "link/Frame.h"
#include "link/MsgqClient.h"
#include "support/Debug.h"
#include "support/Log.h"
#include "support/Results.h"

PlainFrame gtUart1Cmd, gtUart1Resp;

namespace {

// The result texts. Intentional: writable and misspelt, because the device's other software may change and compare
// them.
char cAck[] = "ACK OK";
char cChecksumErr[] = "Checksum error";
char cCmdNotDefine[] = "Command not define";
char cValueOutRange[] = "Value out of range";
char cBausy[] = "Busy";
char cNull[] = "Null";

constexpr uint8_t kPtzLength = 8;  // data bytes of the reply to MCU_GET_PTZ

struct ResultText {
  uint8_t code;
  const char* text;
};

constexpr ResultText kResults[] = {
    {0x10, cAck}, {0x20, cChecksumErr}, {0x30, cCmdNotDefine}, {0x40, cValueOutRange}, {0x50, cBausy},
};

// By command id. Intentional: misspellings and uneven spaces are kept, because scripts read this list.
constexpr const char* kDescriptions[] = {
    /* 0x00 */ "[unknown]",
    /* 0x01 */ "[PelcoD] Data 4 Bytes",
    /* 0x02 */ "[Sony Lens] Visca Command",
    /* 0x03 */ "[Max Speed] 30~430 degree/s MSB first",
    /* 0x04 */ "[Scan Speed] 1~90 degree/s",
    /* 0x05 */ "[Tilt Angle] 0:Indoor 85 degree, 1:Outdoor 92 degree",
    /* 0x06 */ "[Auto Flip] 0:Off, 1:On",
    /* 0x07 */ "[Proportional P/T] 0:Off, 1:On",
    /* 0x08 */ "[Scan Angle] 1~90 degree",
    /* 0x09 */ "[Scan Limit Enable] 0:Off, 1:On",
    /* 0x0A */ "[Scan Right Limit] P,P,P,P (0~64000 steps)",
    /* 0x0B */ "[Scan Left Limit] P,P,P,P (0~64000 steps)",
    /* 0x0C */ "[Lens Power Control] 0:Off, 1:On",
    /* 0x0D */ "[Load Default] Clean Preset",
    /* 0x0E */ "[Get Alarm In State",
    /* 0x0F */ "[Get H/W Default I/O State]",
    /* 0x10 */ "[Get Version]",
    /* 0x11 */ "[Get PTZ] 0:Get, 1:Auto Response",
    /* 0x12 */ "[Set PTZ]  P,P,P,P,T,T,Z,Z",
    /* 0x13 */ "[Set Alarm Out] 0:Clean, 1:Set",
    /* 0x14 */ "[Get Motor State] 0:Get, 1:Auto Response",
    /* 0x15 */ "[Set Pan Tilt Angle] 0:Stop, 1:Start (default)",
};
static_assert(std::size(kDescriptions) == MCU_LAST_COMMAND + 1);

// Wraps gtUart1Cmd in the outgoing body.
int FillRequest(uint8_t* body) {
  FillRelayHeader(body);  // before the length check, because a refused request also uses an id
  gbUart1Command = gtUart1Cmd.command;
  if (gtUart1Cmd.length > kMaxPayload) {
    return LogFailure(RESULT_FAILED, "Len > DATA_MAX_LEN");
  }
  body[RELAY_FRAME_LENGTH] = static_cast<uint8_t>(gtUart1Cmd.length + kFrameOverhead);
  uint8_t* next =
      std::copy_n(FrameBytes(&gtUart1Cmd), offsetof(PlainFrame, data) + gtUart1Cmd.length, body + RELAY_START);
  *next++ = gtUart1Cmd.checksum;
  *next = gtUart1Cmd.stop;
  return RESULT_OK;
}

// Checks the header before QM2150_CheckZR4410Packet does, because that routine does not log a wrong one.
int CheckReplyHeader(const uint8_t* body) {
  if (body[0] != kFrameStart || body[1] != kFrameStart) {
    return LogFailure(RESULT_FAILED, "ZR4410_PACKET_HEADER failed!");
  }
  return QM2150_CheckZR4410Packet(body);
}

// Sends a command with one data byte and receives its reply.
int SendCommand(uint8_t command, uint8_t data) {
  gtUart1Cmd = {};
  gtUart1Resp = {};
  gtUart1Cmd.command = command;
  gtUart1Cmd.length = 1;
  gtUart1Cmd.data[0] = data;
  return LogFailureUnlessStopped(MCU_ProcessUart1(), "MCU_ProcessUart1 failed!");
}

}  // namespace

uint8_t MCU_ChecksumCmdResp(const PlainFrame* frame) {
  return static_cast<uint8_t>(
      -SumBytes(FrameBytes(frame), offsetof(PlainFrame, data) + std::min(frame->length, kMaxPayload)));
}

int MCU_FillUart1Resp(const uint8_t* body, PlainFrame* frame) {
  const uint8_t* next = body + RELAY_START;
  frame->start = *next++;
  frame->command = *next++;
  frame->length = *next++;
  if (frame->length > kMaxPayload) {
    return LogFailure(RESULT_FAILED, "Len > DATA_MAX_LEN");
  }
  memcpy(frame->data, next, frame->length);
  next += frame->length;
  frame->checksum = *next++;
  frame->stop = *next;
  return RESULT_OK;
}

int MCU_CheckUart1Resp(const PlainFrame* frame) {
  if (frame->start != kFrameStart) {
    return LogFailure(RESULT_FAILED, "UART1_CMD_START failed!");
  }
  // Intentional: compared as integers, not as bytes. So no reply matches a request code of 0x80 or above, which the MCU
  // does not have.
  if (frame->command != gbUart1Command + kReplyBit) {
    return LogFailure(RESULT_FAILED, "UART1 RESP CMD Code failed!");
  }
  if (frame->checksum != MCU_ChecksumCmdResp(frame)) {
    return LogFailure(RESULT_FAILED, "Checksum failed!");
  }
  if (frame->stop != kFrameStop) {
    return LogFailure(RESULT_FAILED, "_UART1_CMD_STOP failed!");
  }
  return RESULT_OK;
}

const char* MCU_StrError(uint8_t code) {
  for (const ResultText& result : kResults) {
    if (result.code == code) {
      return result.text;
    }
  }
  return cNull;
}

// Intentional: two of the texts name other routines than the ones called, because scripts may read the log.
int MCU_ProcessUart1(void) {
  gtUart1Cmd.start = kFrameStart;
  gtUart1Cmd.checksum = MCU_ChecksumCmdResp(&gtUart1Cmd);
  gtUart1Cmd.stop = kFrameStop;
  if (FillRequest(gtZR4410MsgqCmdBuf.body) < 0) {
    return LogFailure(RESULT_FAILED, "MCU_FillZR4410 failed!");
  }
  if (const int result = ZR4410_MsgQ_Send(&gtZR4410MsgqCmdBuf); result < 0) {
    return LogFailure(result, "ZR4410_MsgQ_Send failed!");
  }
  if (const int result = ZR4410_MsgQ_Receive(&gtZR4410MsgqRespBuf); result < 0) {
    return LogFailureUnlessStopped(result, "ZR4410_MsgQ_Receive failed!");
  }
  if (CheckReplyHeader(gtZR4410MsgqRespBuf.body) < 0) {
    return LogFailure(RESULT_FAILED, "MCU_CheckZR4410Packet failed!");
  }
  if (MCU_FillUart1Resp(gtZR4410MsgqRespBuf.body, &gtUart1Resp) < 0) {
    return LogFailure(RESULT_FAILED, "MCU_FillUart1Resp failed!");
  }
  return LogFailure(MCU_CheckUart1Resp(&gtUart1Resp), "MCU_CheckUart1Resp failed!");
}

int MCU_GetVersion(uint8_t* version) {
  const int result = SendCommand(MCU_GET_VERSION, 1);
  if (result < 0) {
    return result;
  }
  *version = gtUart1Resp.data[0];
  return RESULT_OK;
}

int MCU_LensPowerControl(int32_t on) {
  const int result = SendCommand(MCU_LENS_POWER_CONTROL, static_cast<uint8_t>(on));
  if (result < 0) {
    return result;
  }
  return gtUart1Resp.data[0] == kAcknowledged ? RESULT_OK : RESULT_FAILED;
}

int MCU_GetPTZ(int32_t mode, uint32_t* pan, uint16_t* tilt, uint16_t* zoom) {
  const int result = SendCommand(MCU_GET_PTZ, static_cast<uint8_t>(mode));
  if (result < 0) {
    return result;
  }
  if (gtUart1Resp.length != kPtzLength) {
    return RESULT_FAILED;
  }
  const uint8_t* const d = gtUart1Resp.data;
  *pan =
      static_cast<uint32_t>(d[0]) << 24 | static_cast<uint32_t>(d[1]) << 16 | static_cast<uint32_t>(d[2]) << 8 | d[3];
  *tilt = static_cast<uint16_t>(d[4] << 8 | d[5]);
  *zoom = static_cast<uint16_t>(d[6] << 8 | d[7]);
  if (gfDebugFlag) {
    puts("[testZR4410] MCU_GetPTZ:");
    DumpData(d, gtUart1Resp.length);
  }
  return RESULT_OK;
}

int MCU_Cmd2Str(uint32_t id, char* text) {
  if (id >= std::size(kDescriptions)) {
    return RESULT_FAILED;
  }
  memcpy(text, kDescriptions[id], strlen(kDescriptions[id]) + 1);
  return RESULT_OK;
}
