// Writes log lines to syslog. The program and the library log only through this header.
#ifndef ZR4410_SUPPORT_LOG_H
#define ZR4410_SUPPORT_LOG_H

#include <syslog.h>

#include "support/SignalGuard.h"

// Logs one line with openlog (ident "testZR4410", LOG_CONS | LOG_PID, LOG_USER), syslog and closelog, and with no other
// call, so that a program that wraps these three sees every line. The four handled signals are held back until the line
// is logged, so SignalHandler may log at any time.
//   LOG(level, format, arguments...)
// level: LOG_ERR (3) for failures, LOG_INFO (6) for progress and reports, LOG_DEBUG (7) for traces.
// format: as for printf. The compiler checks a literal format; only tests check a format from a table.
#define LOG(level, ...)               \
  do {                                \
    if (false) {                      \
      CheckLogFormat(__VA_ARGS__);    \
    }                                 \
    WriteLogLine(level, __VA_ARGS__); \
  } while (false)

// Never called: it lets the compiler check the format against the arguments.
[[gnu::format(printf, 1, 2)]] void CheckLogFormat(const char* format, ...);

// Called before and after the call of syslog. `before`: the signals that were already held back.
void BeginLogLine(sigset_t& before);
void EndLogLine(const sigset_t& before);

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"  // CheckLogFormat has seen the format
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename... Arguments>
void WriteLogLine(int level, const char* format, Arguments... arguments) {
  sigset_t before;
  BeginLogLine(before);
  syslog(level, format, arguments...);
  EndLogLine(before);
}
#pragma GCC diagnostic pop

// Logs the line that separates sections of the log: 51 '=' at LOG_INFO.
void LogSeparator();

// Logs the line at LOG_ERR if the result is a failure (negative). Returns the result.
int LogFailure(int result, const char* line);

// The same, but logs nothing for a stop request (RESULT_STOPPED).
int LogFailureUnlessStopped(int result, const char* line);

#endif
