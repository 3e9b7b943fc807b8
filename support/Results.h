/* Result codes shared by all routines: 0 is success, a negative number says what failed. */
#ifndef ZR4410_SUPPORT_RESULTS_H
#define ZR4410_SUPPORT_RESULTS_H

enum {
  RESULT_OK = 0,
  RESULT_FAILED = -1,         /* generic failure */
  RESULT_STOPPED = -15,       /* SIGINT or SIGTERM was caught; most layers pass it on without logging */
  RESULT_BAD_LEVEL = -18,     /* gain or gain level out of range */
  RESULT_RECEIVE = -55,       /* error, or message of a wrong length, on the reply queue */
  RESULT_TIMEOUT = -56,       /* no reply within ZR4410_TIMEOUT_MS */
  RESULT_TOO_LONG = -57,      /* VISCA packet too long, or a reply shorter than 3 bytes */
  RESULT_BAD_FRAME = -58,     /* camera reply frame: start, checksum or stop wrong */
  RESULT_BAD_REPLY = -59,     /* VISCA error reply, or a reply of a wrong length or content */
  RESULT_NOT_CONFIRMED = -60, /* a written value did not read back */
  RESULT_NO_VALUE = -99,      /* a conversion has no value for its argument (its result is -99.0) */

  /* These two share the numbers of two codes above. */
  RESULT_NO_ENTRY = RESULT_BAD_REPLY,        /* a value has no entry in a table */
  RESULT_BAD_ARGUMENT = RESULT_NOT_CONFIRMED /* an argument is not accepted */
};

#endif
