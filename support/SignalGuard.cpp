// The set of the handled signals, and the call that holds them back.
#include "support/SignalGuard.h"

namespace {

sigset_t SetOfHandledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : kHandledSignals) {
    sigaddset(&set, signal);
  }
  return set;
}

// Made once, because every log line needs it, and before any handler or thread can need it.
const sigset_t kHandledSet = SetOfHandledSignals();

}  // namespace

void HoldSignals(sigset_t* before) { pthread_sigmask(SIG_BLOCK, &kHandledSet, before); }
