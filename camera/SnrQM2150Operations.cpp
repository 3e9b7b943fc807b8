// Start-up, the sensor mode with its power cycle, the higher-level setters, and raw commands and inquiries.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "camera/MainsModes.h"
#include "camera/QM2150.h"
#include "camera/QM2150Transaction.h"
#include "camera/SnrQM2150.h"
#include "mcu/McuComm.h"
#include "support/Clock.h"
#include "support/Log.h"
#include "support/Results.h"

StartupParams gtParams;

namespace {

bool IsSwitch(int32_t value) { return value == 0 || value == 1; }

uint8_t OnOff(bool on) { return on ? VISCA_ON : VISCA_OFF; }

int32_t TargetMode(int32_t hz) {
  for (const MainsMode& mains : kMainsModes) {
    if (mains.hz == hz) {
      return mains.snrMode;
    }
  }
  return RESULT_NO_ENTRY;
}

// Reads the sensor mode and stores it in gtParams too. If that fails, mode is 0 and gtParams is unchanged.
int ReadSnrMode(uint8_t& mode) {
  mode = 0;
  const int result = QM2150_GetSnrMode(&mode);
  if (result >= 0) {
    gtParams.snrMode = mode;
  }
  return result;
}

// Returns RESULT_STOPPED if stopped, otherwise RESULT_OK: any other failure is logged and ignored.
int SwitchLensPower(int32_t on, const char* done) {
  sleep(1);
  if (LogFailureUnlessStopped(MCU_LensPowerControl(on), "[init] MCU_LensPowerControl failed!\n") == RESULT_STOPPED) {
    return RESULT_STOPPED;
  }
  LOG(LOG_INFO, "%s", done);
  return RESULT_OK;
}

void LogElapsed(uint64_t start) {
  uint64_t end = 0;
  GetMsFromStart(&end);
  LOG(LOG_INFO, "[init] Set SnrMode Time = %lld (ms)\n", static_cast<long long>(end - start));
}

}  // namespace

int SnrQM2150_SetFocusMode(int32_t mode) {
  if (!IsSwitch(mode)) {
    return RESULT_BAD_ARGUMENT;
  }
  return LogFailureUnlessStopped(QM2150_SetFocusMode(OnOff(mode == 1)), "QM2150_SetFocusMode failed!\n");
}

int SnrQM2150_SetBlcIndex(int32_t index) {
  static constexpr uint8_t kSteps[] = {0, 1, 3, 5, 7, 9, 11, 13, 14};  // steps of two, except at both ends
  static constexpr uint8_t kCentre = 7;                                // for an index out of range
  uint8_t expComp = 0;
  if (const int result = QM2150_GetExpComp(&expComp); result < 0) {
    return LogFailureUnlessStopped(result, "QM2150_GetExpComp failed!\n");
  }
  if (expComp != VISCA_ON) {
    if (const int result = QM2150_SetExpComp(VISCA_ON); result < 0) {
      return LogFailureUnlessStopped(result, "QM2150_SetExpComp failed!\n");
    }
  }
  const bool listed = index >= 0 && index < static_cast<int32_t>(std::size(kSteps));
  // Intentional: no line of its own for a failure, unlike above, because scripts may read the log.
  return QM2150_SetExpCompStep(listed ? kSteps[index] : kCentre);
}

int SnrQM2150_SetMirror(int32_t on) {
  if (!IsSwitch(on)) {
    return RESULT_BAD_ARGUMENT;
  }
  return LogFailureUnlessStopped(QM2150_SetLrReverse(OnOff(on == 1)), "QM2150_SetLrReverse failed!\n");
}

int SnrQM2150_SetMirrorFlip(int32_t mirror, int32_t flip) {
  if (!IsSwitch(mirror) || !IsSwitch(flip)) {
    return RESULT_BAD_ARGUMENT;
  }
  // A flipped picture must also be reversed left to right, and mirroring reverses it once more.
  if (const int result = QM2150_SetLrReverse(OnOff(mirror != flip)); result < 0) {
    return LogFailureUnlessStopped(result, "QM2150_SetLrReverse failed!\n");
  }
  return LogFailureUnlessStopped(QM2150_SetPictureFlip(OnOff(flip == 1)), "QM2150_SetPictureFlip failed!\n");
}

int SnrQM2150_SetDnIsMode(void) {
  return LogFailureUnlessStopped(QM2150_SetAutoIcr(VISCA_ON), "QM2150_SetAutoIcr failed!\n");
}

int SnrQM2150_SetDnNightMode(void) {
  if (const int result = QM2150_SetAutoIcr(VISCA_OFF); result < 0) {
    return LogFailureUnlessStopped(result, "QM2150_SetAutoIcr failed!\n");
  }
  return LogFailureUnlessStopped(QM2150_SetIcr(VISCA_ON), "QM2150_SetIcr failed!\n");
}

int SnrQM2150_SetDnDayMode(void) {
  if (const int result = QM2150_SetAutoIcr(VISCA_OFF); result < 0) {
    // Intentional: unlike SnrQM2150_SetDnNightMode, logs the line even for a stop request, because scripts may read the
    // log.
    return LogFailure(result, "QM2150_SetAutoIcr failed!\n");
  }
  return LogFailureUnlessStopped(QM2150_SetIcr(VISCA_OFF), "QM2150_SetIcr failed!\n");
}

int SnrQM2150_SetSaturation(int32_t index) {
  static constexpr int32_t kMaxIndex = 255;
  static constexpr int32_t kIndexOfGain0 = 124;
  static constexpr int32_t kMaxGain = 14;
  index = std::clamp(index, 0, kMaxIndex);
  const int32_t saturation = std::clamp(index - kIndexOfGain0, 0, kMaxGain);
  const uint8_t colorGain = static_cast<uint8_t>(saturation);
  printf("iSaturationIndex = %d, iSaturation = %d, bColorGain = %d\n", index, saturation, colorGain);
  return LogFailureUnlessStopped(QM2150_SetColorGain(colorGain), "QM2150_SetColorGain failed!\n");
}

int SnrQM2150_SetSnrMode(int32_t hz) {
  const int32_t target = TargetMode(hz);
  if (target < 0) {
    return target;
  }
  uint8_t mode;
  int result = ReadSnrMode(mode);
  if (result < 0 && result != RESULT_STOPPED) {
    result = ReadSnrMode(mode);
  }
  if (result < 0) {
    return LogFailureUnlessStopped(result, "[init] QM2150_GetSnrMode failed!\n");
  }
  if (mode == target) {
    LOG(LOG_INFO, "[init] %d Hz SnrMode = 0x%02x\n", hz, mode);
    return RESULT_OK;
  }

  uint64_t start = 0;
  GetMsFromStart(&start);
  // Intentional: every failure is ignored, even a stop request. The reads after the power cycle show whether the camera
  // has the mode, and the next exchange returns the stop request.
  if (QM2150_SetSnrMode(static_cast<uint8_t>(target)) < 0) {
    LOG(LOG_ERR, "[init] QM2150_SetSnrMode failed!\n");
  }
  if (SwitchLensPower(0, "[init] QM2150 Power Off.\n") < 0 || SwitchLensPower(1, "[init] QM2150 Power On.\n") < 0) {
    return RESULT_STOPPED;
  }

  static constexpr int kAttempts = 10;
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    sleep(1);
    result = ReadSnrMode(mode);
    if (result == RESULT_STOPPED) {
      return result;
    }
    if (result < 0) {
      LOG(LOG_ERR, "[init] Waiting for QM2150 wake up: QM2150_GetSnrMode fail!\n");
    } else if (mode == target) {
      sleep(6);  // for the camera to settle
      LOG(LOG_INFO, "[init] %d Hz SnrQM2150_SetSnrMode = 0x%02x\n", hz, mode);
      LogElapsed(start);
      return RESULT_OK;
    }
  }
  if (result < 0) {
    LOG(LOG_ERR, "[init] %d Hz SnrQM2150_SetSnrMode = 0x%02x failed!\n", hz, mode);
    LogElapsed(start);
    return result;
  }
  return RESULT_BAD_REPLY;  // the last read succeeded, so nothing is logged here
}

int SnrQM2150_Command(uint32_t count, const uint8_t* bytes) { return QM2150_Command(count, bytes); }

int SnrQM2150_Inquiry(uint8_t category, uint32_t count, const uint8_t* bytes, uint32_t size, char* text) {
  tVisca reply;
  if (const int result = InquireAndJudge(category, count, bytes, &reply); result < 0) {
    return result;
  }
  memset(text, 0, size);
  text += sprintf(text, "%02x %02x ", reply.header, reply.replyType);
  for (int k = 0; k < reply.length; ++k) {
    text += sprintf(text, "%02x ", reply.bData[k]);
  }
  sprintf(text, "%02x", reply.terminator);
  return RESULT_OK;
}

int SnrQM2150_init(int32_t hz) {
  gtParams = {};
  int result = LogFailureUnlessStopped(SnrQM2150_SetSnrMode(hz), "[init] SnrQM2150_SetSnrMode failed!\n");
  if (result == RESULT_STOPPED) {
    return result;
  }

  result = LogFailureUnlessStopped(MCU_GetVersion(&gtParams.mcuVersion), "[init] MCU_GetVersion failed!\n");
  if (result == RESULT_STOPPED) {
    return result;
  }

  static constexpr int kAttempts = 5;
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    result = LogFailureUnlessStopped(QM2150_GetVersion(&gtParams.model, &gtParams.romVersion),
                                     "[init] QM2150_GetVersion fail!\n");
    if (result >= 0) {
      LOG(LOG_ERR, "[init] QM2150_GetVersion OK.\n");  // at error level: kept because scripts may read the log
      break;
    }
    if (result == RESULT_STOPPED || attempt == kAttempts) {
      return result;
    }
  }

  if (LogFailureUnlessStopped(QM2150_GetAeMode(&gtParams.aeMode), "[init] QM2150_GetAeMode fail!\n") ==
          RESULT_STOPPED ||
      LogFailureUnlessStopped(QM2150_GetShutter(&gtParams.shutter), "[init] QM2150_GetShutter fail!\n") ==
          RESULT_STOPPED ||
      LogFailureUnlessStopped(QM2150_GetWbMode(&gtParams.wbMode), "[init] QM2150_GetWbMode fail!\n") ==
          RESULT_STOPPED ||
      LogFailureUnlessStopped(QM2150_GetAfMode(&gtParams.afMode), "[init] QM2150_GetAfMode fail!\n") ==
          RESULT_STOPPED) {
    return RESULT_STOPPED;
  }

  LOG(LOG_INFO, "MCU Ver           \t=\t0x%02x\n", gtParams.mcuVersion);
  LOG(LOG_INFO, "[QM2150] Model    \t=\t0x%04x\n", gtParams.model);
  LOG(LOG_INFO, "[QM2150] ROM Ver  \t=\t0x%04x\n", gtParams.romVersion);
  LOG(LOG_INFO, "[QM2150] Snr Mode \t=\t0x%02x\n", gtParams.snrMode);
  LOG(LOG_INFO, "[QM2150] AE Mode  \t=\t0x%02x\n", gtParams.aeMode);
  LOG(LOG_INFO, "[QM2150] Shutter  \t=\t0x%04x\n", gtParams.shutter);
  LOG(LOG_INFO, "[QM2150] WB Mode  \t=\t0x%02x\n", gtParams.wbMode);
  LOG(LOG_INFO, "[QM2150] AF Mode  \t=\t0x%02x\n", gtParams.afMode);
  return RESULT_OK;
}
