// Performs each action of -s and -m: calls the driver, prints the answer, logs a failure.
#include "frontend/DeviceActions.h"

#include <cstdint>
#include <cstdio>

#include "camera/QM2150.h"
#include "camera/SnrQM2150.h"
#include "frontend/Options.h"
#include "mcu/McuComm.h"
#include "support/Log.h"
#include "support/Results.h"

namespace {

// The first number of -s. The first number of -m is the MCU's command id, see mcu/McuComm.h.
enum CameraAction : int32_t { CAMERA_VERSION = 0, CAMERA_SENSOR_MODE = 1, CAMERA_SET_SENSOR_MODE = 2 };

constexpr int32_t kList = 1;  // as the second number: print a list of names instead

void ShowVersion() {
  uint16_t model = 0;
  uint16_t romVersion = 0;
  if (QM2150_GetVersion(&model, &romVersion) < 0) {
    LOG(LOG_ERR, "QM2150_VersionInq fail!\n");  // Intentional: not the routine's name; scripts may read the log
    return;
  }
  printf("[Model] 0x%04x, [ROM Version] 0x%04x\n", model, romVersion);
}

// Looks up the name of a sensor mode. Returns false, after logging, if it has none.
bool NameSensorMode(uint32_t mode, char (&name)[64]) {
  if (SnrQM2150_SnrMode2Str(mode, name) < 0) {
    LOG(LOG_ERR, "SnrQM2150_SnrMode2Str fail!\n");
    return false;
  }
  return true;
}

void ListSensorModes() {
  for (uint32_t mode = 0x00; mode <= SNR_MODE_LAST; ++mode) {
    char name[64] = {};
    if (!NameSensorMode(mode, name)) {
      return;
    }
    printf("0x%02x = %s\n", mode, name);
  }
}

void ShowSensorMode() {
  uint8_t mode = 0;
  if (QM2150_GetSnrMode(&mode) < 0) {
    LOG(LOG_ERR, "QM2150_GetSnrMode fail!\n");
    return;
  }
  char name[64] = {};
  if (NameSensorMode(mode, name)) {
    printf("[GetSnrMode] %s\n", name);
  }
}

void SetSensorMode(uint8_t mode) {
  if (QM2150_SetSnrMode(mode) < 0) {
    LOG(LOG_ERR, "QM2150_SetSnrMode fail!\n");
    return;
  }
  char name[64] = {};
  if (NameSensorMode(mode, name)) {
    printf("[SetSnrMode] %s\n", name);
  }
}

int ListMcuCommands() {
  puts("MCU Command:");
  puts("Start(0xaa)+Command(1 Byte)+Data Len(1 Byte)+Data+Checksum+Stop(0x55)");
  for (uint32_t id = 0x00; id <= MCU_LAST_COMMAND; ++id) {
    char description[64] = {};
    if (MCU_Cmd2Str(id, description) < 0) {
      LOG(LOG_ERR, "MCU_Cmd2Str fail!\n");
      // Intentional: a second line, and one that names the version, because scripts may read the log.
      return LogFailure(RESULT_FAILED, "MCU_GetVersion fail!\n");
    }
    printf("0x%02x = %s\n", id, description);
  }
  return RESULT_OK;
}

int ShowMcuVersion() {
  uint8_t version = 0;
  if (const int result = MCU_GetVersion(&version); result < 0) {
    LOG(LOG_ERR, "MCU_GetVersion fail!\n");
    return LogFailure(result, "MCU_GetVersion fail!\n");  // Intentional: twice, because scripts may read the log
  }
  printf("Version = 0x%02x\n", version);
  return RESULT_OK;
}

int ShowPtz(int32_t mode) {
  uint32_t pan = 0;
  uint16_t tilt = 0;
  uint16_t zoom = 0;
  if (const int result = MCU_GetPTZ(mode, &pan, &tilt, &zoom); result < 0) {
    return LogFailure(result, "MCU_GetPTZ fail!\n");
  }
  printf("Pan = %d, Tilt = %d, Zoom = %d\n", static_cast<int32_t>(pan), tilt, zoom);
  return RESULT_OK;
}

int SwitchLensPower(int32_t on) { return LogFailure(MCU_LensPowerControl(on), "MCU_LensPowerControl fail!\n"); }

}  // namespace

int QM2150Process(void) {
  switch (giArgv1) {
    case CAMERA_VERSION:
      ShowVersion();
      break;
    case CAMERA_SENSOR_MODE:
      giArgv2 == kList ? ListSensorModes() : ShowSensorMode();
      break;
    case CAMERA_SET_SENSOR_MODE:
      SetSensorMode(static_cast<uint8_t>(giArgv2));
      break;
    default:
      LOG(LOG_ERR, "Command ID is not supported.\n");
  }
  return RESULT_OK;
}

int McuComm(void) {
  switch (giArgv1) {
    case MCU_GET_VERSION:
      return giArgv2 == kList ? ListMcuCommands() : ShowMcuVersion();
    case MCU_GET_PTZ:
      return ShowPtz(giArgv2 & 0xFF);
    case MCU_LENS_POWER_CONTROL:
      return SwitchLensPower(giArgv2 & 0xFF);
    default:
      LOG(LOG_ERR, "Command ID is not supported.\n");
      return RESULT_OK;
  }
}
