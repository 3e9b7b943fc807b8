// Sets the handlers and the mask for each stage of the stop signals.
#include "simulator/connect/Signals.h"

#include <unistd.h>

#include <initializer_list>

namespace sim {
namespace {

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action {};  // without SA_RESTART, so that the signal interrupts system calls
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

void HandleStopSignals(void (*handler)(int)) {
  const sigset_t set = StopSignals();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (sigismember(&set, signal) == 1) {
      Handle(signal, handler);
    }
  }
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

sigset_t StopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  struct sigaction hangup {};
  sigaction(SIGHUP, nullptr, &hangup);
  if (hangup.sa_handler != SIG_IGN) {
    sigaddset(&set, SIGHUP);
  }
  return set;
}

void ExitOnStopSignals() {
  Handle(SIGPIPE, SIG_IGN);
  Handle(SIGXFSZ, SIG_IGN);  // write then fails with EFBIG
  HandleStopSignals([](int) { _exit(0); });
}

void BlockStopSignals() {
  const sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void DieOnStopSignals() { HandleStopSignals(SIG_DFL); }

void PrepareInterrupt() {
  Handle(SIGUSR2, [](int) {});
}

void Interrupt(pthread_t thread) { pthread_kill(thread, SIGUSR2); }

}  // namespace sim
