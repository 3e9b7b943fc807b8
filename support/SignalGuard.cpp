#include "support/SignalGuard.h"

void HoldSignals(sigset_t* before) {
  static sigset_t handled;
  static bool built;  // built only once, because every log line calls this
  if (!built) {
    sigemptyset(&handled);
    for (const int signal : kHandledSignals) {
      sigaddset(&handled, signal);
    }
    built = true;
  }
  pthread_sigmask(SIG_BLOCK, &handled, before);
}
