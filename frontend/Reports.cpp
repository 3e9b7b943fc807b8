// The raw inquiry and the five system reports. Intentional: many report lines are logged at error level although they
// are not errors, so a log that keeps only errors still contains them.
#include "frontend/Reports.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "camera/MainsModes.h"
#include "camera/Math.h"
#include "camera/QM2150.h"
#include "camera/SnrQM2150.h"
#include "frontend/Options.h"
#include "support/Log.h"
#include "support/Results.h"

namespace {

static_assert(static_cast<int>(SNRQM2150_NO_VALUE) == RESULT_NO_VALUE);

// Returns the word for a value, or an empty text if there is none.
template <size_t N>
const char* Word(const char* const (&words)[N], unsigned value) {
  return value < N ? words[value] : "";
}

constexpr const char* kOffOn[] = {"OFF", "ON"};

constexpr double kMaxOpticalZoom = 20.0;
constexpr double kCentimetresPerMetre = 100.0;

// --- Report 0: lens ---

void LogZoom(const LensControlRecord& lens) {
  switch (lens.dzoomMode) {
    case 0: {
      double total = 0.0;
      SnrQM2150_CombineZoom(lens.zoomPos, &total);  // a position without a value shows as 0.00
      const double optical = std::min(total, kMaxOpticalZoom);
      const double digital = total > kMaxOpticalZoom ? total / kMaxOpticalZoom : 1.0;
      LOG(LOG_ERR, "[Combine Zoom] Optical: x%.2lf, Digital: x%.2lf, Combine: x%.2lf\n", optical, digital, total);
      break;
    }
    case 1: {
      double optical = 0.0;
      SnrQM2150_OpticalZoom(lens.zoomPos, &optical);
      LOG(LOG_ERR, "[Separate Zoom] Optical: x%.2lf\n", optical);
      break;
    }
  }
}

void LogFocusMode(const LensControlRecord& lens) {
  static constexpr const char* kFocusModes[] = {"Manual,", "Auto,"};
  static constexpr const char* kAfModes[] = {" Normal,", " Interval,", " Zoom Trigger,"};
  static constexpr const char* kSensitivities[] = {" Slow Sensitivity.", " Normal Sensitivity."};
  // Intentional: afMode, not afSensitivity, selects the sensitivity word too, because scripts may read the report.
  LOG(LOG_ERR, "[AF] %s%s%s\n", Word(kFocusModes, lens.focusMode), Word(kAfModes, lens.afMode),
      Word(kSensitivities, lens.afMode));
}

int GetDistance(uint16_t focusPos, double* centimetres) {
  return LogFailure(SnrQM2150_FocusPos(focusPos, centimetres), "SnrQM2150_FocusPos failed!\n");
}

int ReportNearLimit(uint16_t focusPos) {
  double centimetres = 0.0;
  if (const int result = GetDistance(focusPos, &centimetres); result < 0) {
    return result;
  }
  if (centimetres < kCentimetresPerMetre) {
    LOG(LOG_ERR, "[Focus Near Limit] %.0lf cm\n", centimetres);
  } else {
    LOG(LOG_ERR, "[Focus Near Limit] %.2lf meter\n", centimetres / kCentimetresPerMetre);
  }
  return RESULT_OK;
}

int ReportObjectDistance(uint16_t focusPos) {
  double centimetres = 0.0;
  if (const int result = GetDistance(focusPos, &centimetres); result < 0) {
    return result;
  }
  if (centimetres < kCentimetresPerMetre) {
    LOG(LOG_ERR, "[Object Distance] %.0lf cm\n", centimetres);
  } else {
    LOG(LOG_ERR, "[Object Distance] %.2lf meter\n", centimetres / kCentimetresPerMetre);
  }
  return RESULT_OK;
}

int ReportLens() {
  const LensControlRecord& lens = gtLensControl;
  if (const int result = QM2150_GetLensControl(&gtLensControl); result < 0) {
    return LogFailure(result, "QM2150_GetLensControl failed!\n");
  }
  LogSeparator();
  LOG(LOG_ERR, "[Digital Zoom] %s\n", Word(kOffOn, lens.digitalZoom));
  LogZoom(lens);
  LogFocusMode(lens);
  // Intentional: only the near limit is limited to positions that have a distance. An object position without a
  // distance makes the report fail, because scripts may read the report.
  const uint16_t nearLimit =
      std::clamp(lens.focusNearLimit, std::begin(gtFocusPosTb)->position, std::rbegin(gtFocusPosTb)->position);
  if (const int result = ReportNearLimit(nearLimit); result < 0) {
    return result;
  }
  return ReportObjectDistance(lens.focusPos);
}

// --- Report 1: exposure and white balance ---

int32_t MainsFrequency(uint8_t snrMode) {
  for (const MainsMode& mains : kMainsModes) {
    if (mains.snrMode == snrMode) {
      return mains.hz;
    }
  }
  return 0;  // a frequency without shutter times
}

int ReportExposure() {
  const CameraControlRecord& camera = gtCamControl;
  uint8_t snrMode = 0;
  uint8_t highSensitivity = 0;
  // Intentional: all four failures log the same text, because scripts may read the log.
  static constexpr char kBlockFailed[] = "QM2150_GetCameraControl failed!\n";
  if (const int result = QM2150_GetCameraControl(&gtCamControl); result < 0) {
    return LogFailure(result, kBlockFailed);
  }
  if (const int result = QM2150_GetSnrMode(&snrMode); result < 0) {
    return LogFailure(result, kBlockFailed);
  }
  const int32_t shutter = SnrQM2150_Pos2Shutter(MainsFrequency(snrMode), camera.shutterPos);
  if (shutter < 0) {
    return LogFailure(shutter, kBlockFailed);
  }
  if (const int result = QM2150_GetHighSensitivity(&highSensitivity); result < 0) {
    return LogFailure(result, kBlockFailed);
  }

  LogSeparator();
  if (highSensitivity == VISCA_ON) {
    LOG(LOG_INFO, "[High Sensitivity] ON\n");
  } else if (highSensitivity == VISCA_OFF) {
    LOG(LOG_INFO, "[High Sensitivity] OFF\n");
  }

  const double dB = SnrQM2150_GainPos2dB(highSensitivity, camera.gainPos);
  if (dB == SNRQM2150_NO_VALUE) {
    return LogFailure(RESULT_NO_VALUE, "SnrQM2150_GainPos2dB failed!\n");
  }
  const double fNumber = SnrQM2150_IrisPos2Fno(camera.irisPos);
  if (fNumber == SNRQM2150_NO_VALUE) {
    return LogFailure(RESULT_NO_VALUE, "SnrQM2150_IrisPos2Fno failed!\n");
  }
  char aeMode[64] = {};
  if (const int result = SnrQM2150_AeMode2Str(camera.exposureMode, aeMode); result < 0) {
    return LogFailure(result, "SnrQM2150_AeMode2Str failed!\n");
  }
  LOG(LOG_INFO, "[AE] %s, 1/%ds, x%.2lf(%.1lfdB), F%.2lf\n", aeMode, shutter, dB2Gain(dB), dB, fNumber);

  double expCompDb = 0.0;
  if (const int result = SnrQM2150_ExpCompPos2Db(camera.expCompPos, &expCompDb); result < 0) {
    return LogFailure(result, "SnrQM2150_ExpCompPos2Db failed!\n");
  }
  LOG(LOG_INFO, "[ExpComp] %s, x%.2lf(%.1lfdB)\n", Word(kOffOn, camera.expComp), dB2Gain(expCompDb), expCompDb);

  char wbMode[64] = {};
  if (const int result = SnrQM2150_WbMode2Str(camera.wbMode, wbMode); result < 0) {
    return LogFailure(result, "SnrQM2150_WbMode2Str failed!\n");
  }
  LOG(LOG_INFO, "[AWB] %s, (Rgain, Bgain) = (0x%02x, 0x%02x)\n", wbMode, camera.rGain, camera.bGain);
  return RESULT_OK;
}

// --- Report 2: day/night ---

int ReportDayNight() {
  static constexpr const char* kAutoIcr[] = {" OFF,", " ON,"};
  static constexpr const char* kIcr[] = {" OFF (IR_CUT)", " ON (IR_PASS)"};
  if (const int result = QM2150_GetOtherControl(&gtOtherControl); result < 0) {
    return LogFailure(result, "QM2150_GetOtherControl failed!\n");
  }
  LogSeparator();
  LOG(LOG_ERR, "[DN] [Auto_ICR]%s [ICR]%s\n", Word(kAutoIcr, gtOtherControl.autoIcr), Word(kIcr, gtOtherControl.icr));
  return RESULT_OK;
}

}  // namespace

// --- Report 3: digital zoom, high sensitivity, gain limit, noise reduction ---

int GetEnlargeFun1Inquiry(void) {
  const EnlargeFunction1Record& enlarged = gtEnlargeFun1;
  if (const int result = QM2150_GetEnlargeFunction1(&gtEnlargeFun1); result < 0) {
    return LogFailure(result, "QM2150_GetEnlargeFunction1 failed!\n");
  }
  LogSeparator();

  double zoom = 0.0;
  if (const int result = SnrQM2150_DigitalZoom(enlarged.digitalZoomPos, &zoom); result < 0) {
    return LogFailure(result, "SnrQM2150_DigitalZoom failed!\n");
  }
  LOG(LOG_ERR, "[Digital Zoom] x%.2lf\n", zoom);

  LOG(LOG_INFO, "[High Sensitivity] %s\n", Word(kOffOn, enlarged.highSensitivityMode));
  const uint8_t state = enlarged.highSensitivityMode == 1 ? VISCA_ON : VISCA_OFF;
  const double dB = SnrQM2150_GainPos2dB(state, enlarged.gainLimit);
  if (dB == SNRQM2150_NO_VALUE) {
    return LogFailure(RESULT_NO_VALUE, "SnrQM2150_GainPos2dB failed!\n");
  }
  LOG(LOG_INFO, "[Gain Limit] x%.2lf(%.1lfdB)\n", dB2Gain(dB), dB);

  if (enlarged.nrLevel != 0) {
    LOG(LOG_INFO, "[NR] ON, Level: %d\n", enlarged.nrLevel);
  } else {
    LOG(LOG_INFO, "[NR] OFF\n");
  }
  return RESULT_OK;
}

// --- Report 4: wide dynamic range ---

int GetEnlargeFun2Inquiry(void) {
  static constexpr const char* kModes[] = {" OFF", " ON", " Auto ON/OFF", " ON (Exposure Ratio)", " ON (Histogram)"};
  static constexpr const char* kSensitivities[] = {" L", " M", " H"};
  static constexpr const char* kShadowLevels[] = {" L", " M", " H", " S"};
  static constexpr const char* kHighlightLevels[] = {" L", " M", " H"};
  const EnlargeFunction2Record& wideD = gtEnlargeFun2;
  if (const int result = QM2150_GetEnlargeFunction2(&gtEnlargeFun2); result < 0) {
    return LogFailure(result, "QM2150_GetEnlargeFunction2 failed!\n");
  }
  // Intentional: in this report only, the separator ends with a line feed, because scripts may read the report.
  LOG(LOG_INFO, "===================================================\n");
  LOG(LOG_INFO, "[WideD mode]%s\n", Word(kModes, wideD.wideDMode));
  // Intentional: no line for wideDScreenDisplay, because scripts may expect these five lines.
  LOG(LOG_INFO, "[WideD detection sensitivity]%s\n", Word(kSensitivities, wideD.wideDDetectionSensitivity));
  LOG(LOG_INFO, "[WideD blocked-up shadow correction level]%s\n",
      Word(kShadowLevels, wideD.wideDShadowCorrectionLevel));
  // Intentional: "hoghlight", because scripts may read the report.
  LOG(LOG_INFO, "[WideD blown-out hoghlight correction level]%s\n",
      Word(kHighlightLevels, wideD.wideDHighlightCorrectionLevel));
  LOG(LOG_INFO, "[WideD short exposure Exposure ratio] x%02d\n", wideD.wideDShortExposureRatio);
  return RESULT_OK;
}

// Intentional: most texts name other routines than the ones called, and report 4 has the text of report 3, because
// scripts may read the log.
int SystemInquiry(void) {
  switch (giArgv1) {
    case 0:
      return LogFailure(ReportLens(), "GetLensControlInquiry failed!\n");
    case 1:
      return LogFailure(ReportExposure(), "GetCameraControlInquiry failed!\n");
    case 2:
      return LogFailure(ReportDayNight(), "GetOthersControlInquiry failed!\n");
    case 3:
      return LogFailure(GetEnlargeFun1Inquiry(), "GetEnlargeFun1Inquiry failed!\n");
    case 4:
      return LogFailure(GetEnlargeFun2Inquiry(), "GetEnlargeFun1Inquiry failed!\n");
    default:
      return RESULT_FAILED;
  }
}

int Inquiry(void) {
  // The command line gives one byte at most. Without this check a larger value would be cut to its low byte below.
  if (giCategoryCode > UINT8_MAX) {
    return LogFailure(RESULT_FAILED, "Inquiry Category Code is not supported.\n");
  }
  char text[64] = {};
  if (SnrQM2150_Inquiry(static_cast<uint8_t>(giCategoryCode), static_cast<uint8_t>(giArgv1), gbArgv, sizeof text,
                        text) < 0) {
    return LogFailure(RESULT_FAILED, "SnrQM2150_Inquiry failed!\n");
  }
  printf("Inquiry Packet: %s\n", text);
  return RESULT_OK;
}
