/* Result codes shared by all routines: 0 is success, a negative number says what failed. */
#ifndef ZR4410_SUPPORT_RESULTS_H
#define ZR4410_SUPPORT_RESULTS_H

enum {
  RESULT_OK = 0,
  RESULT_FAILED = -1,         /* generic failure */
  RESULT_STOPPED = -15,       /* SIGINT or SIGTERM was caught; passed up silently by most layers */
  RESULT_BAD_LEVEL = -18,     /* gain or gain level out of range */
  RESULT_RECEIVE = -55,       /* error or message of a wrong length on the reply queue */
  RESULT_TIMEOUT = -56,       /* no reply within 2000 ms */
  RESULT_TOO_LONG = -57,      /* VISCA packet longer, or as a reply shorter, than its frame allows */
  RESULT_BAD_FRAME = -58,     /* camera reply frame: start, checksum or stop wrong */
  RESULT_BAD_REPLY = -59,     /* VISCA reply bad or of a wrong length */
  RESULT_NOT_CONFIRMED = -60, /* a written value does not read back */
  RESULT_NO_VALUE = -99,      /* a conversion had no value (its result was -99.0) */

  /* Two numbers mean two things each. */
  RESULT_NO_ENTRY = RESULT_BAD_REPLY,        /* a value has no entry in a table */
  RESULT_BAD_ARGUMENT = RESULT_NOT_CONFIRMED /* an argument is not accepted */
};

#endif
