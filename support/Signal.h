/* The process-wide stop flag and the signal handler that sets it. */
#ifndef ZR4410_SUPPORT_SIGNAL_H
#define ZR4410_SUPPORT_SIGNAL_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Written by the handler, accessed atomically. */
extern int32_t giSigID;     /* 1: stop; never reset by the program */
extern int32_t giUsr1SigID; /* 1: SIGUSR1 was caught; cleared by the worker (Thread) */
extern int32_t giUsr2SigID; /* 1: SIGUSR2 was caught; nothing reads it */

/* Stores the stop flag; 1 makes every waiting loop stop. Async-signal-safe. */
void SetSigID(int32_t value);

/* Returns the stop flag: 1 after SIGINT or SIGTERM. */
int32_t GetSigID(void);

/* The signal handler. SIGINT and SIGTERM set the stop flag, SIGUSR1 and SIGUSR2 set giUsr1SigID and giUsr2SigID; any
   other signal is only logged. Logs each signal at debug level. Leaves errno unchanged.
   Install it for these four signals only: the library blocks them while it logs and around its other calls that take
   the same locks, so the handler never waits for a lock that the interrupted code holds. A program must also block them
   around its own calls of syslog, localtime and malloc. */
void SignalHandler(int signal);

ZR4410_END_DECLS

#endif
