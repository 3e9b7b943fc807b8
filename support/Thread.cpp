// Builds and sends the notice to the daemon, and turns SIGUSR1 into notices.
#include "support/Thread.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <iterator>

#include "link/Frame.h"
#include "support/Log.h"
#include "support/Signal.h"

RelayMessage gtMsgqTxBuf;  // not the buffer of the requests, because that one is also the sequence counter

namespace {

constexpr useconds_t kCheckInterval = 100000;  // microseconds

}  // namespace

void SendZR4410Msgq(uint8_t code) {
  const uint8_t frame[] = {kFrameStart, kCommandVisca, 0x04, code, 0x22, 0x33, 0x44};
  gtMsgqTxBuf = {getpid(), {kFrameStart, kFrameStart, 0x00, sizeof frame + 2}};
  uint8_t* next = std::copy(std::begin(frame), std::end(frame), gtMsgqTxBuf.body + RELAY_START);
  *next++ = static_cast<uint8_t>(-SumBytes(frame, sizeof frame));
  *next = kFrameStop;
  if (ZR4410_MsgQ_Send(&gtMsgqTxBuf) < 0) {
    LOG(LOG_ERR, "ZR4410_MsgQ_Send fail!\n");
  }
}

int Thread(void) {
  const std::atomic_ref caught(giUsr1SigID);
  LOG(LOG_INFO, "Start thread.");
  while (GetSigID() != 1) {
    // Intentional: both codes depend on SIGUSR1. Code 2 reports a second SIGUSR1 that arrived after the first notice;
    // SIGUSR2 never sends a notice.
    for (const uint8_t code : {uint8_t{1}, uint8_t{2}}) {
      if (caught.load() == 1) {
        SendZR4410Msgq(code);
        caught.store(0);
      }
    }
    usleep(kCheckInterval);
  }
  LOG(LOG_INFO, "Finish thread.");
  return 0;
}
