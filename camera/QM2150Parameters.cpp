// The camera settings: a table row each, one read routine, one write routine.
#include <unistd.h>

#include <algorithm>
#include <initializer_list>

#include "camera/QM2150.h"
#include "camera/QM2150Transaction.h"
#include "support/Log.h"
#include "support/Results.h"

namespace {

// --- Where the value stands in the reply's data bytes ---

uint8_t Byte0(const uint8_t* d) { return d[0]; }
uint8_t LowNibble0(const uint8_t* d) { return d[0] & 0x0F; }
uint8_t Byte3(const uint8_t* d) { return d[3]; }
uint8_t Nibbles2And3(const uint8_t* d) { return static_cast<uint8_t>(d[2] * 16 + d[3]); }
uint16_t Bytes2And3(const uint8_t* d) { return static_cast<uint16_t>(d[2] * 256 + d[3]); }

tWdrParam WdrFields(const uint8_t* d) {
  const auto nibble = [d](int k) { return static_cast<uint8_t>(d[k] & 0x0F); };
  return {nibble(0), nibble(1), nibble(2), nibble(3), static_cast<uint8_t>((d[4] << 4) + d[5])};
}

// --- How the command carries the value v after the code: 0 a zero byte, V the whole value, VV
// its two bytes, P and Q its nibbles. Each returns the number of bytes ---

uint32_t Put(uint8_t* d, std::initializer_list<int> bytes) {
  std::transform(bytes.begin(), bytes.end(), d, [](int byte) { return static_cast<uint8_t>(byte); });
  return static_cast<uint32_t>(bytes.size());
}

uint32_t PutV(uint8_t v, uint8_t* d) { return Put(d, {v}); }
uint32_t PutQ(uint8_t v, uint8_t* d) { return Put(d, {v & 0x0F}); }
uint32_t Put00PQ(uint8_t v, uint8_t* d) { return Put(d, {0x00, 0x00, v >> 4, v & 0x0F}); }
uint32_t Put000V(uint8_t v, uint8_t* d) { return Put(d, {0x00, 0x00, 0x00, v}); }
uint32_t Put00VV(uint16_t v, uint8_t* d) { return Put(d, {0x00, 0x00, v >> 8, v & 0xFF}); }

uint32_t PutWdr(tWdrParam v, uint8_t* d) {
  return Put(d, {v.parameter1 & 0x0F, v.parameter2 & 0x0F, v.parameter3 & 0x0F, v.parameter4 & 0x0F, v.parameter5 >> 4,
                 v.parameter5 & 0x0F, 0x00, 0x00});
}

// --- The settings ---

// The texts are kept as they stand, misspelt or naming another routine as some are. Length and mismatch texts
// are formats: the first is given the getter's name, the second the setter's name, the value written and the
// value read; a text may leave them unused.
template <typename T>
struct Setting {
  uint8_t code;         // of inquiry and command
  uint8_t replyLength;  // data bytes
  struct {
    uint8_t first, count;
  } zero;  // reply bytes that must be 0x00
  T (*value)(const uint8_t* d);
  uint32_t (*data)(T value, uint8_t* d);
  const char* getter;
  const char* setter;
  const char* lengthFailure;
  const char* zeroFailure;
  const char* readFailure;  // of the first read-back
  const char* mismatch;
  const char* secondReadFailure = nullptr;  // none: as the first
  int lengthResult = RESULT_BAD_REPLY;
};

constexpr char kLen[] = "%s len fail!\n";  // with the getter's name
constexpr char kWbLen[] = "GetWbMode len fail!\n";
constexpr char kZ1[] = "tVisca.bData[6] != 0x00 || tVisca.bData[7] != 0x00\n";
constexpr char kZ2[] = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00\n";
constexpr char kZ3[] = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00!\n";
constexpr char kZ4[] = "tVisca.bData[0] != 0x00 || tVisca.bData[0] != 0x00!\n";  // byte 0 twice, whatever is checked
constexpr char kBValue[] = "%s bValue(0x%02x) != bReadValue(0x%02x)\n";

// clang-format off
using Byte = Setting<uint8_t>;
using Word = Setting<uint16_t>;
using Wdr = Setting<tWdrParam>;

//                                 code, reply, zero, value,   command,
//                                 getter, setter, length failure, zero failure,
//                                 read failure, mismatch[, second read failure[, length result]]
constexpr Byte kNR              = {0x53, 1, {},     LowNibble0,   PutQ,
    "QM2150_GetNR", "QM2150_SetNR", kLen, nullptr,
    "QM2150_GetNR bReadValue fail\n", kBValue};
constexpr Wdr  kWdrParams       = {0x2D, 8, {6, 2}, WdrFields,    PutWdr,
    "QM2150_GetWdrParams", "QM2150_SetWdrParams", kLen, kZ1,
    "QM2150_GetWdrParams tReadWdrParams fail\n", "%s tWdrParam != tReadWdrParams\n"};
constexpr Byte kWdrMode         = {0x3D, 1, {},     Byte0,        PutV,
    "QM2150_GetWdrMode", "QM2150_SetWdrMode", kLen, nullptr,
    "QM2150_GetWdrMode bReadWdrMode fail!\n", "%s bWdrMode(0x%02x) != bReadWdrMode(0x%02x)\n"};
constexpr Byte kBgain           = {0x44, 4, {0, 2}, Nibbles2And3, Put00PQ,
    "QM2150_GetBgain", "QM2150_SetBgain", kLen, kZ2,
    "QM2150_GetBgain bReadValue fail\n", kBValue};
constexpr Byte kRgain           = {0x43, 4, {0, 2}, Nibbles2And3, Put00PQ,
    "QM2150_GetRgain", "QM2150_SetRgain", kLen, kZ2,
    "QM2150_GetRgain bReadValue fail\n", kBValue};
constexpr Byte kIrisPos         = {0x4B, 4, {0, 2}, Nibbles2And3, Put00PQ,
    "QM2150_GetIrisPos", "QM2150_SetIrisPos", kLen, kZ3,
    "QM2150_GetIrisPos bReadValue fail\n", kBValue};
constexpr Byte kGainPos         = {0x4C, 4, {0, 2}, Nibbles2And3, Put00PQ,
    "QM2150_GetGainPos", "QM2150_SetGainPos", kLen, kZ2,
    "QM2150_GetGainPos bReadGainPos fail!\n", "%s bGainPos(0x%02x) != bReadGainPos(0x%02x)\n"};
constexpr Byte kGainLimit       = {0x2C, 1, {},     LowNibble0,   PutQ,
    "QM2150_GetGainLimit", "QM2150_SetGainLimit", kLen, nullptr,
    "QM2150_GetGainLimit bReadGainLimit fail!\n", "%s bGainLimit(0x%02x) != bReadGainLimit(0x%02x)\n"};
constexpr Byte kHighSensitivity = {0x5E, 1, {},     Byte0,        PutV,
    "QM2150_GetHighSensitivity", "QM2150_SetHighSensitivity", kLen, nullptr,
    "QM2150_GetHighSensitivity bReadOnOrOff fail!\n", "QM2150_SetHighSensitivity bOnOrOff != bReadOnOrOff.\n"};
constexpr Byte kExpCompStep     = {0x4E, 4, {0, 3}, Byte3,        Put00PQ,    // sent as two nibbles, read as one byte, on purpose
    "QM2150_GetExpCompStep", "QM2150_SetExpCompStep", kLen, kZ4,
    "QM2150_GetExpCompStep bReadExpCompStep fail!\n", "QM2150_SetExpCompStep bExpCompStep != bReadExpCompStep!\n"};
constexpr Byte kExpComp         = {0x3E, 1, {},     Byte0,        PutV,
    "QM2150_GetExpComp", "QM2150_SetExpComp", kLen, nullptr,
    "QM2150_GetExpComp bReadExpComp fail!\n", "QM2150_SetExpComp bExpComp != bReadExpComp.\n"};
constexpr Byte kPictureFlip     = {0x66, 1, {},     Byte0,        PutV,
    "QM2150_GetPictureFlip", "QM2150_SetPictureFlip", kLen, nullptr,
    "QM2150_GetPictureFlip bReadPictureFlip fail!\n", "QM2150_SetPictureFlip bPictureFlip != bReadPictureFlip.\n"};
constexpr Byte kLrReverse       = {0x61, 1, {},     Byte0,        PutV,
    "QM2150_GetLrReverse", "QM2150_SetLrReverse", "QM2150_GetMirror len fail!\n", nullptr,
    "QM2150_GetLrReverse bReadLrReverse fail!\n", "QM2150_GetMirror bLrReverse != bReadLrReverse.\n", "QM2150_SetLrReverse bReadLrReverse fail!\n"};
constexpr Byte kIcr             = {0x01, 1, {},     Byte0,        PutV,
    "QM2150_GetIcr", "QM2150_SetIcr", kLen, nullptr,
    "QM2150_GetIcr bReadIcr fail!\n", "QM2150_SetIcr bIcr != bReadIcr.\n"};
constexpr Byte kAutoIcr         = {0x51, 1, {},     Byte0,        PutV,
    "QM2150_GetAutoIcr", "QM2150_SetAutoIcr", kLen, nullptr,
    "QM2150_GetAutoIcr bReadAutoIcr fail!\n", "QM2150_SetAutoIcr bAutoIcr != bReadAutoIcr.\n"};
constexpr Byte kColorGain       = {0x49, 4, {0, 3}, Byte3,        Put000V,    // one whole byte, on purpose
    "QM2150_GetColorGain", "QM2150_SetColorGain", kLen, kZ4,
    "QM2150_GetColorGain sReadShutter fail!\n", "QM2150_SetShutter bColorGain != bReadColorGain.\n", "QM2150_GetColorGain bReadColorGain fail!\n"};
constexpr Word kShutter         = {0x4A, 4, {0, 2}, Bytes2And3,   Put00VV,    // two whole bytes, no nibbles, on purpose
    "QM2150_GetShutter", "QM2150_SetShutter", "QM2150_GetShtter len fail!\n", kZ4,
    "QM2150_GetShutter sReadShutter fail!\n", "QM2150_SetShutter sShutter != sReadShutter!\n"};
constexpr Byte kAfMode          = {0x57, 1, {},     Byte0,        PutV,
    "QM2150_GetAfMode", "QM2150_SetAfMode", kWbLen, nullptr,
    "QM2150_GetAfMode bReadAfMode fail!\n", "QM2150_SetAfMode bAfMode != bReadAfMode!\n"};
constexpr Byte kFocusMode       = {0x38, 1, {},     Byte0,        PutV,
    "QM2150_GetFocusMode", "QM2150_SetFocusMode", kLen, nullptr,
    "QM2150_GetFocusMode bReadFocusMode fail!\n", "%s bFocusMode != bReadFocusMode!\n"};
constexpr Byte kAeMode          = {0x39, 1, {},     Byte0,        PutV,
    "QM2150_GetAeMode", "QM2150_SetAeMode", kWbLen, nullptr,
    "QM2150_GetAeMode bReadAeMode fail!\n", "QM2150_SetAeMode bAeMode != bReadAeMode!\n"};
constexpr Byte kWbMode          = {0x35, 1, {},     Byte0,        PutV,
    "QM2150_GetWbMode", "QM2150_SetWbMode", kWbLen, nullptr,
    "QM2150_GetWbMode bReadWbMode fail!\n", "QM2150_SetWbMode bWbMode != bReadWbMode!\n", nullptr, RESULT_NOT_CONFIRMED};  // -60 for a wrong length: this one alone, on purpose
// clang-format on

// --- Reading and writing ---

template <typename T>
int Get(const Setting<T>& setting, T* out) {
  tVisca reply;
  if (const int result = InquireAndJudge(kCategoryCamera, 1, &setting.code, &reply); result < 0) {
    return result;
  }
  if (reply.length != setting.replyLength) {
    Log(LOG_ERR, setting.lengthFailure, setting.getter);
    return setting.lengthResult;
  }
  const uint8_t* const zero = reply.bData + setting.zero.first;
  if (std::any_of(zero, zero + setting.zero.count, [](uint8_t byte) { return byte != 0x00; })) {
    return LogFailure(RESULT_BAD_REPLY, setting.zeroFailure);
  }
  *out = setting.value(reply.bData);
  return RESULT_OK;
}

template <typename T>
bool Same(T first, T second) {
  return first == second;
}
bool Same(tWdrParam first, tWdrParam second) { return QM2150_CompareWdrParams(&first, &second) == 0; }

// A value as the mismatch texts show it; the text of the parameters shows none.
template <typename T>
unsigned Shown(T value) {
  return value;
}
unsigned Shown(tWdrParam) { return 0; }

// The value read back is compared with the value as passed: one that the command does not carry whole is
// never confirmed, on purpose.
template <typename T>
int Set(const Setting<T>& setting, T value) {
  uint8_t data[16] = {setting.code};
  const uint32_t count = 1 + setting.data(value, data + 1);
  if (const int result = QM2150_Command(count, data); result < 0) {
    return LogFailure(result, "QM2150_Command fail!\n");
  }
  T readBack{};
  for (const bool first : {true, false}) {
    usleep(50000);
    if (const int result = Get(setting, &readBack); result < 0) {
      const bool ownLine = !first && setting.secondReadFailure != nullptr;
      return LogFailure(result, ownLine ? setting.secondReadFailure : setting.readFailure);
    }
    if (Same(value, readBack)) {
      return RESULT_OK;
    }
  }
  Log(LOG_ERR, setting.mismatch, setting.setter, Shown(value), Shown(readBack));
  return RESULT_NOT_CONFIRMED;
}

}  // namespace

int QM2150_CompareWdrParams(const tWdrParam* first, const tWdrParam* second) {
  const bool equal = first->parameter1 == second->parameter1 && first->parameter2 == second->parameter2 &&
                     first->parameter3 == second->parameter3 && first->parameter4 == second->parameter4 &&
                     first->parameter5 == second->parameter5;
  return equal ? RESULT_OK : RESULT_NOT_CONFIRMED;
}

int QM2150_GetNR(uint8_t* value) { return Get(kNR, value); }
int QM2150_SetNR(uint8_t value) { return Set(kNR, value); }
int QM2150_GetWdrParams(tWdrParam* params) { return Get(kWdrParams, params); }
int QM2150_SetWdrParams(const tWdrParam* params) { return Set(kWdrParams, *params); }
int QM2150_GetWdrMode(uint8_t* value) { return Get(kWdrMode, value); }
int QM2150_SetWdrMode(uint8_t value) { return Set(kWdrMode, value); }
int QM2150_GetBgain(uint8_t* value) { return Get(kBgain, value); }
int QM2150_SetBgain(uint8_t value) { return Set(kBgain, value); }
int QM2150_GetRgain(uint8_t* value) { return Get(kRgain, value); }
int QM2150_SetRgain(uint8_t value) { return Set(kRgain, value); }
int QM2150_GetIrisPos(uint8_t* value) { return Get(kIrisPos, value); }
int QM2150_SetIrisPos(uint8_t value) { return Set(kIrisPos, value); }
int QM2150_GetGainPos(uint8_t* value) { return Get(kGainPos, value); }
int QM2150_SetGainPos(uint8_t value) { return Set(kGainPos, value); }
int QM2150_GetGainLimit(uint8_t* value) { return Get(kGainLimit, value); }
int QM2150_SetGainLimit(uint8_t value) { return Set(kGainLimit, value); }
int QM2150_GetHighSensitivity(uint8_t* value) { return Get(kHighSensitivity, value); }
int QM2150_SetHighSensitivity(uint8_t value) { return Set(kHighSensitivity, value); }
int QM2150_GetExpCompStep(uint8_t* value) { return Get(kExpCompStep, value); }
int QM2150_SetExpCompStep(uint8_t value) { return Set(kExpCompStep, value); }
int QM2150_GetExpComp(uint8_t* value) { return Get(kExpComp, value); }
int QM2150_SetExpComp(uint8_t value) { return Set(kExpComp, value); }
int QM2150_GetPictureFlip(uint8_t* value) { return Get(kPictureFlip, value); }
int QM2150_SetPictureFlip(uint8_t value) { return Set(kPictureFlip, value); }
int QM2150_GetLrReverse(uint8_t* value) { return Get(kLrReverse, value); }
int QM2150_SetLrReverse(uint8_t value) { return Set(kLrReverse, value); }
int QM2150_GetIcr(uint8_t* value) { return Get(kIcr, value); }
int QM2150_SetIcr(uint8_t value) { return Set(kIcr, value); }
int QM2150_GetAutoIcr(uint8_t* value) { return Get(kAutoIcr, value); }
int QM2150_SetAutoIcr(uint8_t value) { return Set(kAutoIcr, value); }
int QM2150_GetColorGain(uint8_t* value) { return Get(kColorGain, value); }
int QM2150_SetColorGain(uint8_t value) { return Set(kColorGain, value); }
int QM2150_GetShutter(uint16_t* value) { return Get(kShutter, value); }
int QM2150_SetShutter(uint16_t value) { return Set(kShutter, value); }
int QM2150_GetAfMode(uint8_t* value) { return Get(kAfMode, value); }
int QM2150_SetAfMode(uint8_t value) { return Set(kAfMode, value); }
int QM2150_GetFocusMode(uint8_t* value) { return Get(kFocusMode, value); }
int QM2150_SetFocusMode(uint8_t value) { return Set(kFocusMode, value); }
int QM2150_GetAeMode(uint8_t* value) { return Get(kAeMode, value); }
int QM2150_SetAeMode(uint8_t value) { return Set(kAeMode, value); }
int QM2150_GetWbMode(uint8_t* value) { return Get(kWbMode, value); }
int QM2150_SetWbMode(uint8_t value) { return Set(kWbMode, value); }
