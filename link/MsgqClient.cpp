// The message-queue client: opens the two queues, sends, receives.
#include "link/MsgqClient.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/Clock.h"
#include "support/Debug.h"
#include "support/Log.h"
#include "support/Results.h"
#include "support/Signal.h"

int32_t giMsgIdTx = -1, giMsgIdRx = -1;
RelayMessage gtZR4410MsgqCmdBuf, gtZR4410MsgqRespBuf;

static_assert(sizeof(RelayMessage) == 40);

namespace {

constexpr char kKeyPath[] = "/defconf/conf.ptz";
constexpr size_t kBodySize = sizeof(RelayMessage::body);

// The kernel's form of a message: its type word is a native long.
struct KernelMessage {
  long type;
  uint8_t body[kBodySize];
};

ssize_t ReceiveNow(KernelMessage& message) { return msgrcv(giMsgIdRx, &message, kBodySize, 0, IPC_NOWAIT); }

// Dumps the first count bytes of a message, from the type word on.
void Dump(const char* title, const RelayMessage* message, size_t count) {
  if (gfDebugFlag) {
    puts(title);
    DumpData(reinterpret_cast<const uint8_t*>(message), static_cast<int32_t>(count));
  }
}

// If the clock fails, logs it and leaves the time unchanged. Intentional: info, not error, because scripts may depend
// on the level.
void ReadClock(uint64_t& milliseconds) {
  if (GetMsFromStart(&milliseconds) < 0) {
    LOG(LOG_INFO, "GetMsFromStart failed!\n");
  }
}

}  // namespace

int ZR4410_MsgQ_Open(void) {
  const key_t keyTx = ftok(kKeyPath, 'b');
  if (keyTx == -1) {
    return LogFailure(RESULT_FAILED, "ftok keyTx failed!");
  }
  if (gfDebugFlag) {
    LOG(LOG_DEBUG, "MsgqClient keyTx = 0x%08x\n", static_cast<unsigned>(keyTx));
  }
  const key_t keyRx = ftok(kKeyPath, 'a');
  if (keyRx == -1) {
    return LogFailure(RESULT_FAILED, "ftok keyRx failed!");
  }
  if (gfDebugFlag) {
    LOG(LOG_DEBUG, "MsgqClient keyRx = 0x%08x\n", static_cast<unsigned>(keyRx));
  }
  // Intentional: each queue is created with only the permission that this side needs, write or read. The daemon, which
  // needs the other one too, adds it.
  giMsgIdTx = msgget(keyTx, IPC_CREAT | 0222);
  if (giMsgIdTx == -1) {
    return LogFailure(RESULT_FAILED, "msgget giMsgIdTx failed!");
  }
  giMsgIdRx = msgget(keyRx, IPC_CREAT | 0444);
  if (giMsgIdRx == -1) {
    return LogFailure(RESULT_FAILED, "msgget giMsgIdRx failed!");
  }
  gtZR4410MsgqCmdBuf = {getpid(), {}};
  gtZR4410MsgqRespBuf = {};
  return RESULT_OK;
}

int ZR4410_MsgQ_Send(const RelayMessage* message) {
  if (giMsgIdTx == -1) {
    return LogFailure(RESULT_FAILED, "SendMsgQ failed!");
  }
  // Discard what is on the reply queue: it cannot answer a request that has not been sent yet.
  KernelMessage stale;
  do {
    if (GetSigID() == 1) {
      return RESULT_STOPPED;
    }
  } while (ReceiveNow(stale) != -1);
  if (errno != ENOMSG) {  // not a failure: the request can be sent all the same
    LOG(LOG_DEBUG, "Reflush Receive Msqg (%d): %s", errno, strerror(errno));
  }

  KernelMessage request;
  request.type = message->type;
  memcpy(request.body, message->body, kBodySize);
  if (msgsnd(giMsgIdTx, &request, kBodySize, IPC_NOWAIT) == -1) {
    return LogFailure(RESULT_FAILED, "msgsnd failed!");
  }
  // Intentional: four bytes fewer than the whole message, because the programs that read the dump, such as
  // simZR4410 decode, expect this length. No frame reaches the last four bytes of the body.
  Dump("[testZR4410] client msgsnd:", message, kBodySize);
  return RESULT_OK;
}

int ZR4410_MsgQ_Receive(RelayMessage* message) {
  if (giMsgIdRx == -1) {
    return LogFailure(RESULT_FAILED, "ReceiveMsgQ failed!");
  }
  uint64_t start = 0;
  ReadClock(start);
  uint64_t now = start;
  for (;;) {
    usleep(ZR4410_POLL_MS * 1000);
    if (GetSigID() == 1) {
      return RESULT_STOPPED;
    }
    KernelMessage reply;
    const ssize_t count = ReceiveNow(reply);
    const int error = errno;
    if (count >= 0) {
      message->type = static_cast<int32_t>(reply.type);
      memcpy(message->body, reply.body, static_cast<size_t>(count));
    }
    if (count == static_cast<ssize_t>(kBodySize)) {
      Dump("[testZR4410] client msgrcv:", message, sizeof *message);
      return RESULT_OK;
    }
    if (count != -1 || error != ENOMSG) {
      LOG(LOG_ERR, "msgrcv len failed(%d)!%d:%s", static_cast<int>(count), error, strerror(error));
      return RESULT_RECEIVE;
    }
    if (gfDebugFlag) {
      LOG(LOG_INFO, "msgrcv len = 0\n");
    }
    ReadClock(now);
    // Signed, because a clock that goes back must not end the wait.
    if (static_cast<int64_t>(now - start) > ZR4410_TIMEOUT_MS) {
      if (gfDebugFlag) {  // without -g the callers' lines are enough
        LOG(LOG_ERR, "msgrcv timeout!");
      }
      return RESULT_TIMEOUT;
    }
  }
}

int ZR4410_MsgQ_Close(void) { return RESULT_OK; }
