#include "support/Thread.h"

#include <unistd.h>

#include <atomic>
#include <initializer_list>
#include <numeric>

#include "support/Log.h"
#include "support/Signal.h"

RelayMessage gtMsgqTxBuf;  // apart from the requests' buffer, so that the shared sequence counter stays as it is

void SendZR4410Msgq(uint8_t code) {
  gtMsgqTxBuf = {getpid(), {0xAA, 0xAA, 0x00, 0x09, 0xAA, 0x02, 0x04, code, 0x22, 0x33, 0x44, 0x00, 0x55}};
  uint8_t* const frame = gtMsgqTxBuf.body + 4;
  frame[7] = static_cast<uint8_t>(-std::accumulate(frame, frame + 7, 0));
  if (ZR4410_MsgQ_Send(&gtMsgqTxBuf) < 0) {
    LOG(LOG_ERR, "ZR4410_MsgQ_Send fail!\n");
  }
}

int Thread(void) {
  const std::atomic_ref caught(giUsr1SigID);
  LOG(LOG_INFO, "Start thread.");
  while (GetSigID() != 1) {
    // Intentional: both tests read the SIGUSR1 latch. Code 2 reports a second SIGUSR1 that arrived in between, and
    // SIGUSR2 never sends a notice.
    for (const uint8_t code : {uint8_t{1}, uint8_t{2}}) {
      if (caught.load() == 1) {
        SendZR4410Msgq(code);
        caught.store(0);
      }
    }
    usleep(100000);
  }
  LOG(LOG_INFO, "Finish thread.");
  return 0;
}
