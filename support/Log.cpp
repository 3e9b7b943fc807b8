// What LOG does before and after it calls syslog, the separator line, and the routines that log a failed result.
#include "support/Log.h"

#include "support/Results.h"

void BeginLogLine(sigset_t& before) {
  HoldSignals(&before);
  openlog("testZR4410", LOG_CONS | LOG_PID, LOG_USER);
}

void EndLogLine(const sigset_t& before) {
  closelog();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void LogSeparator() { LOG(LOG_INFO, "==================================================="); }

int LogFailure(int result, const char* line) {
  if (result < 0) {
    LOG(LOG_ERR, "%s", line);
  }
  return result;
}

int LogFailureUnlessStopped(int result, const char* line) {
  return result == RESULT_STOPPED ? result : LogFailure(result, line);
}
