/* Message-queue client: the way to the device daemon over two System V message queues. */
#ifndef ZR4410_LINK_MSGQCLIENT_H
#define ZR4410_LINK_MSGQCLIENT_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

enum {
  ZR4410_POLL_MS = 50,     /* how often ZR4410_MsgQ_Receive looks at the reply queue */
  ZR4410_TIMEOUT_MS = 2000 /* how long it waits: it gives up at the first look later than this */
};

/* 40 bytes on every platform; the kernel's own message starts with a native long, which only this module knows. */
typedef struct {
  int32_t type;     /* message type: the sender's process id */
  uint8_t body[36]; /* relay body, see link/Relay.h */
} RelayMessage;

extern int32_t giMsgIdTx; /* queue id of the requests, -1 until opened */
extern int32_t giMsgIdRx; /* queue id of the replies, -1 until opened */

/* The one outgoing and the one incoming message of camera and MCU exchanges. Cleared by ZR4410_MsgQ_Open only: the
   body keeps the sequence id, and the tail of a longer request, for the next request. */
extern RelayMessage gtZR4410MsgqCmdBuf, gtZR4410MsgqRespBuf;

/* Opens both queues by their keys (ftok on /defconf/conf.ptz, 'b' for requests, 'a' for replies) and creates what is
   missing: requests write-only (0222), replies read-only (0444). 0; -1 when a key or a queue cannot be made. */
int ZR4410_MsgQ_Open(void);

/* Throws away every message waiting on the reply queue, then sends without waiting.
   0; -15 stop flag set; -1 queue not open or send failed (a full queue is a failure, never a wait). */
int ZR4410_MsgQ_Send(const RelayMessage* message);

/* Waits for a message of any type: looks at the reply queue every ZR4410_POLL_MS, the first time after one interval,
   until more than ZR4410_TIMEOUT_MS have passed.
   0 a whole message was received; -15 stop flag set; -55 receive error or a message of another length; -56 time-out;
   -1 queue not open. A message longer than 36 bytes stays in the queue and makes every later call fail. */
int ZR4410_MsgQ_Receive(RelayMessage* message);

/* Does nothing: the queues outlive the process and the next run reuses them. Returns 0. */
int ZR4410_MsgQ_Close(void);

ZR4410_END_DECLS

#endif
