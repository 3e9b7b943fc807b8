/* Message-queue client: exchanges messages with the device daemon over two System V message queues. */
#ifndef ZR4410_LINK_MSGQCLIENT_H
#define ZR4410_LINK_MSGQCLIENT_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

enum {
  ZR4410_POLL_MS = 50,     /* interval at which ZR4410_MsgQ_Receive polls the reply queue */
  ZR4410_TIMEOUT_MS = 2000 /* how long it waits: it gives up at the first poll later than this */
};

/* A message, 40 bytes on every platform. The kernel's own message starts with a native long; this module converts. */
typedef struct {
  int32_t type;     /* message type: in a request the sender's process id; ignored in a reply */
  uint8_t body[36]; /* relay body, see link/Relay.h */
} RelayMessage;

extern int32_t giMsgIdTx; /* id of the request queue, -1 until opened */
extern int32_t giMsgIdRx; /* id of the reply queue, -1 until opened */

/* The outgoing and the incoming message of all camera and MCU exchanges. Only ZR4410_MsgQ_Open clears them: the
   outgoing body keeps the sequence id and the end of an earlier, longer request until they are overwritten. */
extern RelayMessage gtZR4410MsgqCmdBuf, gtZR4410MsgqRespBuf;

/* Opens both queues by their keys (ftok on /defconf/conf.ptz, 'b' for requests, 'a' for replies). Creates a missing
   queue: requests write-only (0222), replies read-only (0444). On success also clears the two messages above and stores
   the process id in the outgoing one. Returns 0; -1 if a key cannot be computed, or a queue cannot be opened or
   created. */
int ZR4410_MsgQ_Open(void);

/* Discards the messages waiting on the reply queue, up to the first one longer than 36 bytes, then sends without
   waiting.
   Returns 0; -15 if the stop flag is set; -1 if the queue is not open or sending fails, for example on a full queue. */
int ZR4410_MsgQ_Send(const RelayMessage* message);

/* Waits for a message of any type: polls the reply queue every ZR4410_POLL_MS, for the first time after one interval,
   until more than ZR4410_TIMEOUT_MS have passed.
   Returns 0 if a message of 36 bytes was received; -15 if the stop flag is set; -55 for a receive error or a message of
   another length; -56 after a time-out; -1 if the queue is not open. *message is unchanged on failure, except that a
   shorter message is stored before -55 is returned. A message longer than 36 bytes stays in the queue and makes every
   later call fail. */
int ZR4410_MsgQ_Receive(RelayMessage* message);

/* Does nothing: the queues remain after the process ends, and the next run uses them again. Returns 0. */
int ZR4410_MsgQ_Close(void);

ZR4410_END_DECLS

#endif
