// The relay header with the sequence id, the checksum, and the camera's frames in the relay body. Plain frames are in
// mcu/McuComm.cpp.
#include "link/Relay.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "link/Frame.h"
#include "support/Log.h"
#include "support/Results.h"

uint8_t gbSeqId, gbUart1Command;

static_assert(sizeof(ViscaRequestFrame) == 26 && sizeof(ViscaReplyFrame) == 25 && sizeof(PlainFrame) == 21);

namespace {

constexpr uint8_t kReplyOverhead = 3;  // bytes of a VISCA reply around `middle`: two before it, the terminator after it

}  // namespace

void FillRelayHeader(uint8_t* body) {
  body[0] = kFrameStart;
  body[1] = kFrameStart;
  gbSeqId = ++body[RELAY_SEQUENCE_ID];  // the counter is in the body of the last request; gbSeqId is a copy
}

uint8_t SumBytes(const uint8_t* bytes, size_t count) {
  return std::accumulate(bytes, bytes + count, uint8_t{0},
                         [](uint8_t sum, uint8_t byte) { return static_cast<uint8_t>(sum + byte); });
}

uint8_t QM2150_ChecksumViscaCmd(const ViscaRequestFrame* frame) {
  const int sum = SumBytes(FrameBytes(frame), offsetof(ViscaRequestFrame, count)) +
                  SumBytes(frame->data, std::min<size_t>(frame->count, sizeof frame->data)) + frame->terminator;
  return static_cast<uint8_t>(-sum);
}

int QM2150_FillZR4410(const ViscaRequestFrame* frame, uint8_t* body) {
  FillRelayHeader(body);  // before the length check, because a refused request also uses an id
  if (frame->length > kMaxPayload) {
    return LogFailure(RESULT_TOO_LONG, "Len > VISCA_PACKET_MAX_LEN");
  }
  body[RELAY_FRAME_LENGTH] = static_cast<uint8_t>(frame->length + kFrameOverhead);
  uint8_t* next = std::copy_n(FrameBytes(frame), offsetof(ViscaRequestFrame, count), body + RELAY_START);
  next = std::copy_n(frame->data, std::min<size_t>(frame->count, sizeof frame->data), next);
  *next++ = frame->terminator;
  *next++ = frame->checksum;
  *next = frame->stop;
  return RESULT_OK;
}

int QM2150_CheckZR4410Packet(const uint8_t* body) {
  if (body[0] != kFrameStart || body[1] != kFrameStart) {
    return RESULT_FAILED;
  }
  if (body[RELAY_SEQUENCE_ID] != gbSeqId) {
    return LogFailure(RESULT_FAILED, "SeqID failed!");
  }
  return RESULT_OK;
}

int QM2150_FillUart1Resp(const uint8_t* body, ViscaReplyFrame* frame) {
  const uint8_t* next = body + RELAY_START;
  frame->start = *next++;
  frame->command = *next++;
  frame->length = *next++;
  frame->first = *next++;
  frame->second = *next++;
  frame->count = static_cast<uint8_t>(frame->length - kReplyOverhead);  // wraps if the packet is shorter: refused below
  if (frame->count > sizeof frame->middle) {
    return LogFailure(RESULT_TOO_LONG, "Len > VISCA_PACKET_MAX_LEN");
  }
  memcpy(frame->middle, next, frame->count);
  next += frame->count;
  frame->terminator = *next++;
  frame->checksum = *next++;
  frame->stop = *next;
  return RESULT_OK;
}

int QM2150_CheckUart1Resp(const ViscaReplyFrame* frame) {
  if (frame->start != kFrameStart) {
    return LogFailure(RESULT_BAD_FRAME, "VISCA_UART1_CMD_START failed!");
  }
  if (frame->command != gbUart1Command + kReplyBit) {
    return LogFailure(RESULT_FAILED, "UART1 RESP CMD Code failed!");
  }
  const int sum = SumBytes(FrameBytes(frame), offsetof(ViscaReplyFrame, count)) +
                  SumBytes(frame->middle, std::min<size_t>(frame->count, sizeof frame->middle)) + frame->terminator;
  if (frame->checksum != static_cast<uint8_t>(-sum)) {
    return LogFailure(RESULT_BAD_FRAME, "Checksum failed!");
  }
  if (frame->stop != kFrameStop) {
    return LogFailure(RESULT_BAD_FRAME, "VISCA_UART1_CMD_STOP failed!");
  }
  return RESULT_OK;
}
