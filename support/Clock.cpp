// Reads the system's clocks and the RTC driver's text file.
#include "support/Clock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "support/Log.h"
#include "support/SignalGuard.h"

namespace {

constexpr size_t kDayTimeSize = 16;    // bytes of the caller's text
constexpr size_t kDayTimeLength = 14;  // "YYYYMMDDhhmmss"

}  // namespace

int GetMsFromStart(uint64_t* milliseconds) {
  timespec now;
  const int result = clock_gettime(CLOCK_MONOTONIC, &now);
  if (result < 0) {
    puts("clock_gettime failed.");
    return result;
  }
  *milliseconds = static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
  return 0;
}

int GetCurrentDayTime(char* text) {
  const SignalGuard guard;  // localtime takes libc's time-zone lock, and so does syslog in the signal handler
  const time_t now = time(nullptr);
  tm local{};
  if (const tm* converted = localtime(&now)) {
    local = *converted;
  }
  char digits[72];  // room for six numbers of any size; if the year has more than four digits, the end is cut off
  snprintf(digits, sizeof digits, "%04d%02d%02d%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
           local.tm_hour, local.tm_min, local.tm_sec);
  memset(text, 0, kDayTimeSize);
  memcpy(text, digits, strnlen(digits, kDayTimeLength));
  return 0;
}

int IsRtcTime(void) {
  static constexpr char kPath[] = "/proc/driver/rtc";
  const int file = open(kPath, O_RDONLY);
  if (file < 0) {
    LOG(LOG_ERR, "Open %s failed", kPath);
    return -1;
  }
  char text[256] = {};
  const ssize_t count = read(file, text, sizeof text);
  if (count < 1) {
    LOG(LOG_ERR, "Read %s failed", kPath);
  }
  close(file);
  return strncmp(text, "rtc_time", 8) == 0 ? 0 : -1;
}
