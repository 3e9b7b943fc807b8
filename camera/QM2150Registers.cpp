// The camera's register bank, sensor mode and version, and the white-balance trigger.
#include "camera/QM2150.h"
#include "camera/QM2150Transaction.h"
#include "support/Log.h"
#include "support/Results.h"

namespace {

constexpr uint8_t kCodeRegister = 0x24;
constexpr uint8_t kRegisterSnrMode = 0x72;
constexpr uint8_t kCodeVersion = 0x02;
constexpr uint8_t kCodeWbTrigger = 0x10;
constexpr uint8_t kOnePush = 0x05;

}  // namespace

int QM2150_SetRegisterValue(uint8_t number, uint8_t value) {
  const uint8_t data[] = {kCodeRegister, number, static_cast<uint8_t>(value >> 4), static_cast<uint8_t>(value & 0x0F)};
  return QM2150_Command(sizeof data, data);
}

int QM2150_GetRegisterValue(uint8_t number, uint8_t* value) {
  const uint8_t data[] = {kCodeRegister, number};
  if (const int result = Transact(kSelectorInquiry, kCategoryCamera, sizeof data, data); result < 0) {
    return result;
  }
  // Intentional: neither checked nor masked, although a reply of another form then gives a wrong value. A check would
  // turn replies that the library's callers accept today into failures.
  *value = static_cast<uint8_t>((gtUart1ViscaResp.middle[0] << 4) + gtUart1ViscaResp.middle[1]);
  return RESULT_OK;
}

int QM2150_GetSnrMode(uint8_t* mode) { return QM2150_GetRegisterValue(kRegisterSnrMode, mode); }

int QM2150_SetSnrMode(uint8_t mode) {
  if (const int result = QM2150_SetRegisterValue(kRegisterSnrMode, mode); result < 0) {
    return LogFailure(result, "QM2150_SetRegisterValue failed!");
  }
  const int result = ReadBackTwice([mode](bool) {
    uint8_t readBack = 0;
    if (const int failure = QM2150_GetSnrMode(&readBack); failure < 0) {
      return LogFailure(failure, "QM2150_GetSnrMode failed!");
    }
    return readBack == mode ? RESULT_OK : kReadBackDiffers;
  });
  if (result != kReadBackDiffers) {
    return result;
  }
  // Intentional: a mode that does not read back is only logged, because callers (such as -s 2) continue after it.
  LOG(LOG_ERR, "QM2150_SetSnrMode bRegValue != bReadRegValue failed!");
  return RESULT_OK;
}

int QM2150_GetVersion(uint16_t* model, uint16_t* romVersion) {
  if (const int result = Transact(kSelectorInquiry, kCategoryInterface, 1, &kCodeVersion); result < 0) {
    return result;
  }
  // Vendor, model, ROM version and sockets. Intentional: not checked, like the reply of a register.
  const uint8_t* const m = gtUart1ViscaResp.middle;
  *model = static_cast<uint16_t>(m[2] << 8 | m[3]);
  *romVersion = static_cast<uint16_t>(m[4] << 8 | m[5]);
  return RESULT_OK;
}

int QM2150_WbOnePushTrigger(void) {
  const uint8_t data[] = {kCodeWbTrigger, kOnePush};
  return LogFailure(QM2150_Command(sizeof data, data), "QM2150_Command fail!\n");
}
