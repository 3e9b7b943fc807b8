// The signal handler and the flags that it sets.
#include "support/Signal.h"

#include <atomic>
#include <cerrno>
#include <csignal>

#include "support/Log.h"

int32_t giSigID, giUsr1SigID, giUsr2SigID;

static_assert(std::atomic_ref<int32_t>::is_always_lock_free, "the handler must never wait for a lock");

// Atomic rather than guarded by a mutex: the handler interrupts the thread that could hold the mutex.
void SetSigID(int32_t value) { std::atomic_ref(giSigID).store(value); }

int32_t GetSigID(void) { return std::atomic_ref(giSigID).load(); }

void SignalHandler(int signal) {
  const int interruptedErrno = errno;
  switch (signal) {
    case SIGINT:
      LOG(LOG_DEBUG, "Catch SIGINT!");
      SetSigID(1);
      break;
    case SIGTERM:
      LOG(LOG_DEBUG, "Catch SIGTERM!");
      SetSigID(1);
      break;
    case SIGUSR1:
      LOG(LOG_DEBUG, "Catch SIGUSR1!");
      std::atomic_ref(giUsr1SigID).store(1);
      break;
    case SIGUSR2:
      LOG(LOG_DEBUG, "Catch SIGUSR2!");
      std::atomic_ref(giUsr2SigID).store(1);
      break;
    default:
      LOG(LOG_DEBUG, "Catch signal = %d!\n", signal);
  }
  errno = interruptedErrno;
}
