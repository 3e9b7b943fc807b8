// The program's only way to log.
#ifndef ZR4410_SUPPORT_LOG_H
#define ZR4410_SUPPORT_LOG_H

#include <syslog.h>

// One line to syslog: openlog (ident "testZR4410", LOG_CONS | LOG_PID, LOG_USER), syslog, closelog.
// level: LOG_ERR (3) for failures, LOG_INFO (6) for progress and reports, LOG_DEBUG (7) for traces.
// Holds the handled signals back meanwhile, so that SignalHandler may log at any time.
[[gnu::format(printf, 2, 3)]] void Log(int level, const char* format, ...);

// The line between sections of the log, 51 '=' at LOG_INFO.
void LogSeparator();

// Logs the line at LOG_ERR if the result is a failure (negative). Returns the result.
int LogFailure(int result, const char* line);

// The same, but logs nothing for a stop request (RESULT_STOPPED).
int LogFailureUnlessStopped(int result, const char* line);

#endif
