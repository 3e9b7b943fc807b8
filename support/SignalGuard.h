// Holds back the signals that SignalHandler handles.
#ifndef ZR4410_SUPPORT_SIGNALGUARD_H
#define ZR4410_SUPPORT_SIGNALGUARD_H

#include <signal.h>

// The signals that SignalHandler handles.
inline constexpr int kHandledSignals[] = {SIGINT, SIGTERM, SIGUSR1, SIGUSR2};

// Holds these signals back from now on. before: receives the signals that were already held back; may be null.
void HoldSignals(sigset_t* before);

// The handler logs, and syslog is not async-signal-safe: a handler that ran while the interrupted code held one of
// the locks that logging takes in libc (syslog's own, the time zone's, malloc's) would wait for it forever. So
// everything that takes one of these locks, including the handler's own logging, runs under this guard. A signal that
// arrives meanwhile is handled when the guard ends.
class SignalGuard {
 public:
  SignalGuard() { HoldSignals(&before_); }
  ~SignalGuard() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

 private:
  sigset_t before_;
};

#endif
