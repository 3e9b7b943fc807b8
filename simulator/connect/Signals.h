// The signals that stop the simulator, and the one that interrupts one of its threads.
//
// The stop signals are SIGINT, SIGTERM and SIGHUP, but not a SIGHUP that is ignored from the start, as nohup does. They
// have three stages, each begun by a routine below.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace sim {

sigset_t StopSignals();

// While files and lines are opened, which may wait for another process: a stop signal ends the process with status 0.
// There is nothing to clean up yet. Ignores SIGPIPE and SIGXFSZ from now on.
void ExitOnStopSignals();
// While the simulator runs: blocked in this thread and in those that it starts. The daemon waits for them.
void BlockStopSignals();
// While the remaining messages are printed and recorded: a second stop signal kills the process.
void DieOnStopSignals();

// Makes SIGUSR2 interrupt a system call and do nothing else. A thread that is about to wait misses the signal, so it
// has to be sent again until the thread reacts.
void PrepareInterrupt();
void Interrupt(pthread_t thread);

}  // namespace sim
