// One command or inquiry: completes the request, exchanges it for a reply, unwraps and checks the reply. What the data
// bytes mean is left to the callers.
#include "camera/QM2150Transaction.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "link/Frame.h"
#include "link/MsgqClient.h"
#include "link/Relay.h"
#include "mcu/McuComm.h"
#include "support/Debug.h"
#include "support/Log.h"
#include "support/Results.h"

ViscaRequestFrame gtUart1ViscaCmdInq;
ViscaReplyFrame gtUart1ViscaResp;

static_assert(sizeof(tVisca) == 20);

namespace {

constexpr uint8_t kRequestOverhead = 4;  // bytes of a VISCA request around its data: three before, the terminator after
constexpr uint8_t kDebugBitCompletions = 15;  // of giDebug
constexpr uint8_t kAddress = 0x81;            // from the controller to the camera at address 1
constexpr uint8_t kReplyHeader = 0x90;
constexpr uint8_t kTerminator = 0xFF;
constexpr uint8_t kCompletion = 0x50;
constexpr uint8_t kError = 0x60;

// Completes and sends the prepared request, and receives a reply body. Checks its header and sequence id.
int Exchange() {
  ViscaRequestFrame& request = gtUart1ViscaCmdInq;
  request.length = static_cast<uint8_t>(request.count + kRequestOverhead);
  request.address = kAddress;
  request.terminator = kTerminator;
  request.start = kFrameStart;
  request.command = kCommandVisca;
  request.checksum = QM2150_ChecksumViscaCmd(&request);
  gbUart1Command = kCommandVisca;
  request.stop = kFrameStop;
  if (const int result = QM2150_FillZR4410(&request, gtZR4410MsgqCmdBuf.body); result < 0) {
    return LogFailure(result, "QM2150_FillZR4410 failed!");
  }
  if (const int result = ZR4410_MsgQ_Send(&gtZR4410MsgqCmdBuf); result < 0) {
    return LogFailure(result, "ZR4410_MsgQ_Send failed!");
  }
  if (const int result = ZR4410_MsgQ_Receive(&gtZR4410MsgqRespBuf); result < 0) {
    switch (result) {
      case RESULT_STOPPED:
        return result;
      case RESULT_TIMEOUT:
        return LogFailure(result, "ZR4410_MsgQ_Receive timeout!");
      default:
        return LogFailure(result, "ZR4410_MsgQ_Receive failed!");
    }
  }
  return LogFailure(QM2150_CheckZR4410Packet(gtZR4410MsgqRespBuf.body), "QM2150_CheckZR4410Packet failed!");
}

int UnwrapVisca() {
  if (const int result = QM2150_FillUart1Resp(gtZR4410MsgqRespBuf.body, &gtUart1ViscaResp); result < 0) {
    return LogFailure(result, "QM2150_FillUart1Resp failed!");
  }
  return LogFailure(QM2150_CheckUart1Resp(&gtUart1ViscaResp), "QM2150_CheckUart1Resp failed!");
}

int UnwrapAcknowledgement() {
  if (const int result = MCU_FillUart1Resp(gtZR4410MsgqRespBuf.body, &gtUart1Resp); result < 0) {
    // Intentional: this text names the camera's routine here too. Kept because scripts may read the log.
    return LogFailure(result, "QM2150_FillUart1Resp failed!");
  }
  return LogFailure(MCU_CheckUart1Resp(&gtUart1Resp), "MCU_CheckUart1Resp failed!");
}

// Adds one more log line to those of a failed exchange.
int LogExchangeFailure(int result) { return LogFailureUnlessStopped(result, "QM2150_ProcessVisca failed!"); }

struct ViscaError {
  uint8_t code;
  const char* line;
};

constexpr ViscaError kViscaErrors[] = {
    {0x01, "VISCA RESP: Message length error.\n"},
    {0x02, "VISCA RESP: Syntax error.\n"},
    {0x03, "VISCA RESP: Command buffer full.\n"},
    {0x04, "VISCA RESP: Command cancelled.\n"},
    {0x05, "VISCA RESP: No Socket.\n"},
    {0x41, "VISCA RESP: Command not executable.\n"},
};

void PrepareRequest(uint8_t selector, uint8_t category, uint32_t count, const uint8_t* data) {
  gtUart1ViscaCmdInq = {};
  gtUart1ViscaResp = {};
  gtUart1ViscaCmdInq.selector = selector;
  gtUart1ViscaCmdInq.category = category;
  gtUart1ViscaCmdInq.count = static_cast<uint8_t>(count);
  std::copy_n(data, count, gtUart1ViscaCmdInq.data);
}

const char* ViscaErrorLine(uint8_t code) {
  for (const ViscaError& error : kViscaErrors) {
    if (error.code == code) {
      return error.line;
    }
  }
  return "VISCA RESP: Others code.\n";
}

}  // namespace

int Transact(uint8_t selector, uint8_t category, uint32_t count, const uint8_t* data) {
  PrepareRequest(selector, category, count, data);
  return LogExchangeFailure(QM2150_ProcessVisca());
}

int QM2150_ProcessVisca(void) {
  if (const int result = Exchange(); result < 0) {
    return result;
  }
  return gtUart1ViscaCmdInq.selector == kSelectorInquiry ? UnwrapVisca() : UnwrapAcknowledgement();
}

int QM2150_Command(uint32_t length, const uint8_t* data) {
  if (length > sizeof gtUart1ViscaCmdInq.data) {  // QM2150_FillZR4410 refuses 13 to 16, with another result
    return RESULT_FAILED;
  }
  if (const int result = Transact(kSelectorCommand, kCategoryCamera, length, data); result < 0) {
    return result;
  }
  return gtUart1Resp.data[0] == kAcknowledged ? RESULT_OK : RESULT_FAILED;
}

int QM2150_Inquiry(uint8_t category, uint32_t length, const uint8_t* data, tVisca* out) {
  if (length > sizeof gtUart1ViscaCmdInq.data) {
    return RESULT_FAILED;
  }
  PrepareRequest(kSelectorInquiry, category, length, data);
  if (const int result = LogExchangeFailure(Exchange()); result < 0) {
    return result;
  }
  // The request record is global, so a signal handler or another thread of the caller could have changed it during the
  // exchange. The reply may be read as an inquiry's only if the request is still an inquiry.
  if (gtUart1ViscaCmdInq.selector != kSelectorInquiry) {
    return LogExchangeFailure(RESULT_BAD_FRAME);
  }
  if (const int result = LogExchangeFailure(UnwrapVisca()); result < 0) {
    return result;
  }
  // From the first reply byte through the terminator the record has the layout of a tVisca.
  static_assert(offsetof(ViscaReplyFrame, terminator) - offsetof(ViscaReplyFrame, first) ==
                offsetof(tVisca, terminator));
  memcpy(out, FrameBytes(&gtUart1ViscaResp) + offsetof(ViscaReplyFrame, first), sizeof *out);
  return RESULT_OK;
}

int QM2150_ChecRespVisca(const tVisca* reply) {
  if (reply->header != kReplyHeader) {
    return LogFailure(RESULT_BAD_REPLY, "VISCA RESP Header fail!\n");
  }
  if (reply->terminator != kTerminator) {
    return LogFailure(RESULT_BAD_REPLY, "VISCA RESP Terminator fail!\n");
  }
  // Intentional: only these two values are compared, so an acknowledgement or an error with a socket number passes. The
  // header promises that, and callers of the library may depend on it.
  if (reply->replyType == kCompletion && DebugEnable(kDebugBitCompletions, static_cast<uint32_t>(giDebug)) == 1) {
    LOG(LOG_DEBUG, "VISCA RESP ACK!\n");  // a completion; the text is kept because scripts may read the log
  }
  if (reply->replyType == kError) {
    return LogFailure(RESULT_BAD_REPLY, ViscaErrorLine(reply->bData[0]));
  }
  return RESULT_OK;
}

int InquireAndJudge(uint8_t category, uint32_t length, const uint8_t* data, tVisca* reply) {
  *reply = {};
  if (const int result = QM2150_Inquiry(category, length, data, reply); result < 0) {
    return LogFailureUnlessStopped(result, "QM2150_Inquiry fail!\n");
  }
  return LogFailure(QM2150_ChecRespVisca(reply), "QM2150_ChecRespVisca fail!\n");
}
