// The stages of the stop signals, each in a process of its own.
#include "simulator/connect/Signals.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <initializer_list>
#include <thread>

#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

constexpr int kSurvived = 42;

// Calls `routine` in a child whose signals are as in a new process. Returns its exit status, or less than zero if a
// signal has ended it.
template <typename Routine>
int StatusOf(Routine routine) {
  const pid_t child = fork();
  if (child == 0) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    routine();
    _exit(kSurvived);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

constexpr int kStop[] = {SIGINT, SIGTERM, SIGHUP};

TEST(Signals, EndTheProcessDuringItsStart) {
  for (const int signal : kStop) {
    EXPECT_EQ(StatusOf([signal] {
                sim::ExitOnStopSignals();
                raise(signal);
              }),
              0);
  }
}

TEST(Signals, AreHeldBackWhileTheSimulatorRuns) {
  for (const int signal : kStop) {
    EXPECT_EQ(StatusOf([signal] {
                sim::ExitOnStopSignals();
                sim::BlockStopSignals();
                raise(signal);
              }),
              kSurvived);
  }
}

TEST(Signals, KillWhenTheyArriveASecondTime) {
  for (const int signal : kStop) {
    EXPECT_EQ(StatusOf([signal] {
                sim::ExitOnStopSignals();
                sim::BlockStopSignals();
                raise(signal);
                const sigset_t set = sim::StopSignals();
                int taken = 0;
                sigwait(&set, &taken);
                sim::DieOnStopSignals();
                raise(taken);
              }),
              -signal);
  }
}

TEST(Signals, DoNotEndAProcessThatIgnoresHangUps) {
  EXPECT_EQ(StatusOf([] {
              signal(SIGHUP, SIG_IGN);
              sim::ExitOnStopSignals();
              raise(SIGHUP);
              sim::BlockStopSignals();
              sim::DieOnStopSignals();
              raise(SIGHUP);
            }),
            kSurvived);
}

TEST(Signals, InterruptAThread) {
  sim::PrepareInterrupt();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::atomic<bool> interrupted = false;
  std::thread reader([&] {
    char byte = 0;
    interrupted = read(ends[0], &byte, 1) == -1 && errno == EINTR;
  });
  EXPECT_TRUE(Eventually([&] {
    sim::Interrupt(reader.native_handle());
    return interrupted.load();
  }));
  close(ends[1]);
  reader.join();
  close(ends[0]);
}

}  // namespace
