/* The notice to the device daemon, and the worker that sends it. No run mode of the tool starts the worker. */
#ifndef ZR4410_SUPPORT_THREAD_H
#define ZR4410_SUPPORT_THREAD_H

#include <stdint.h>

#include "link/MsgqClient.h"
#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

extern RelayMessage gtMsgqTxBuf; /* the last notice; zero before the first one */

/* Sends the 36-byte notice AA AA 00 09 AA 02 04 <code> 22 33 44 <checksum> 55 on the request queue. The shared
   sequence counter is neither read nor advanced. The daemon does not reply. Like every send, it first discards the
   messages waiting on the reply queue. A failed send is only logged.
   code: the worker sends 1 or 2; any value is accepted. */
void SendZR4410Msgq(uint8_t code);

/* The worker's body: until the stop flag is set, checks every 100 ms whether SIGUSR1 was caught, and if so sends the
   notice with code 1. If SIGUSR1 is caught again after that notice, sends one with code 2 too. Returns 0. */
int Thread(void);

ZR4410_END_DECLS

#endif
