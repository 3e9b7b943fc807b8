#include "support/Log.h"

#include <cstdarg>

#include "support/Results.h"
#include "support/SignalGuard.h"

void Log(int level, const char* format, ...) {
  const SignalGuard guard;
  va_list arguments;
  va_start(arguments, format);
  openlog("testZR4410", LOG_CONS | LOG_PID, LOG_USER);
  vsyslog(level, format, arguments);
  closelog();
  va_end(arguments);
}

void LogSeparator() { Log(LOG_INFO, "==================================================="); }

int LogFailure(int result, const char* line) {
  if (result < 0) {
    Log(LOG_ERR, "%s", line);
  }
  return result;
}

int LogFailureUnlessStopped(int result, const char* line) {
  return result == RESULT_STOPPED ? result : LogFailure(result, line);
}
