// testZR4410: performs one action on the camera module or the motor microcontroller. This file contains the main
// program, the read loop and the raw command; the other actions are in DeviceActions.cpp and Reports.cpp.
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>

#include "camera/SnrQM2150.h"
#include "frontend/DeviceActions.h"
#include "frontend/Options.h"
#include "frontend/Reports.h"
#include "link/MsgqClient.h"
#include "support/Clock.h"
#include "support/Debug.h"
#include "support/Log.h"
#include "support/Settings.h"
#include "support/Signal.h"
#include "support/SignalGuard.h"

extern "C" {
RelayMessage gtMsgqRxBuf;  // the last message of the read loop
}

namespace {

constexpr char kProgram[] = "testZR4410";
constexpr char kVersion[] = ZR4410_VERSION;  // of the project, see CMakeLists.txt
constexpr char kSettingsPath[] = "/sysconf/conf.img";
constexpr int kExitBadHex = -1;          // exit status 255
constexpr useconds_t kReadPause = 1000;  // microseconds; limits the CPU load if receiving returns at once

void LogBanner(const char* word) {
  LogSeparator();
  LOG(LOG_INFO, "%s %s (v%s).", word, kProgram, kVersion);
  LogSeparator();
}

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};  // an empty mask is enough: LOG holds the other handled signals back
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

void InstallSignalHandlers() {
  for (const int signal : kHandledSignals) {
    Handle(signal, SignalHandler);
  }
  Handle(SIGPIPE, SIG_IGN);  // if the reader of the output exits early, the output is lost but the action completes
}

void ReadDebugLevel() {
  char value[256] = {};  // as long as a settings line
  if (sysconf_fget(kSettingsPath, "EXT_DEBUG", value) < 0) {
    LOG(LOG_ERR, "sysconf_fget failed!\n");
  }
  giDebug = ParseDecimal(value);
}

// Returns the monotonic time in milliseconds, or 0 if the clock fails.
int64_t ReadClock() {
  uint64_t milliseconds = 0;
  if (GetMsFromStart(&milliseconds) < 0) {
    LOG(LOG_INFO, "GetMsFromStart failed!\n");  // Intentional: info, not error, because scripts may depend on the level
  }
  return static_cast<int64_t>(milliseconds);
}

// Receives messages from the reply queue until the stop flag is set; with -g the queue client dumps them.
void ReadLoop() {
  LOG(LOG_INFO, "Start main loop.");
  while (GetSigID() != 1) {
    gtMsgqRxBuf = {};
    const int result = ZR4410_MsgQ_Receive(&gtMsgqRxBuf);
    if (GetSigID() == 1) {
      break;
    }
    if (result < 0) {
      LOG(LOG_ERR, "ZR4410_MsgQ_Receive fail!\n");
    }
    usleep(kReadPause);
  }
  LOG(LOG_INFO, "Finish main loop.");
}

void RawCommand() {
  if (SnrQM2150_Command(static_cast<uint8_t>(giArgv1), gbArgv) < 0) {
    LOG(LOG_ERR, "SnrQM2150_Command failed!\n");
  } else {
    LOG(LOG_INFO, "Send Command OK!\n");
  }
}

// The results are ignored, so they do not change the exit status. Each action logs its own failures; an unknown report
// number alone is not logged.
void RunAction() {
  switch (giOption) {
    case MODE_CAMERA:
      QM2150Process();
      break;
    case MODE_MCU:
      McuComm();
      break;
    case MODE_READ:
      ReadLoop();
      break;
    case MODE_COMMAND:
      RawCommand();
      break;
    case MODE_INQUIRY:
      Inquiry();
      break;
    case MODE_SYSTEM_INQUIRY:
      SystemInquiry();
      break;
  }
}

void RunTimed() {
  const int64_t start = ReadClock();
  RunAction();
  const int64_t end = ReadClock();
  LOG(LOG_INFO, "Delta Time (ms) : %lld\n", static_cast<long long>(end - start));
}

int Run(int argc, char** argv) {
  LogBanner("Start");
  InstallSignalHandlers();
  switch (ParseCommandLine(argc, argv)) {
    case CommandLine::Usage:
      return 0;
    case CommandLine::BadHex:
      return kExitBadHex;
    case CommandLine::Run:
      break;
  }
  ReadDebugLevel();
  if (ZR4410_MsgQ_Open() < 0) {
    LOG(LOG_ERR, "ZR4410_MsgQ_Open fail!\n");
  } else {
    RunTimed();
    if (ZR4410_MsgQ_Close() < 0) {
      LOG(LOG_ERR, "ZR4410_MsgQ_Close fail!\n");
    }
  }
  LogBanner("Finish");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Line-buffered even into a pipe or a file, so that no complete line is lost if the tool is killed. The buffer is
  // static because it is still used in exit, after main has returned.
  static char outputBuffer[1024];
  setvbuf(stdout, outputBuffer, _IOLBF, sizeof outputBuffer);

  const int status = Run(argc, argv);
  // The handled signals are held back from here on: during exit the handler could wait forever for a lock of libc.
  HoldSignals(nullptr);
  return status;
}
