// The camera settings: a table row for each, and one routine that reads and one that writes any of them.
#include <algorithm>
#include <initializer_list>

#include "camera/QM2150.h"
#include "camera/QM2150Transaction.h"
#include "support/Log.h"
#include "support/Results.h"

namespace {

// --- Where the value is in the reply's data bytes ---

uint8_t Byte0(const uint8_t* d) { return d[0]; }
uint8_t LowNibble0(const uint8_t* d) { return d[0] & 0x0F; }
uint8_t Byte3(const uint8_t* d) { return d[3]; }
uint8_t Nibbles2And3(const uint8_t* d) { return static_cast<uint8_t>(d[2] * 16 + d[3]); }
uint16_t Bytes2And3(const uint8_t* d) { return static_cast<uint16_t>(d[2] * 256 + d[3]); }

tWdrParam WdrFields(const uint8_t* d) {
  const auto nibble = [d](int k) { return static_cast<uint8_t>(d[k] & 0x0F); };
  return {nibble(0), nibble(1), nibble(2), nibble(3), static_cast<uint8_t>((d[4] << 4) + d[5])};
}

// --- How the command carries the value after the code. In the names: 0 is a zero byte, V the value in one byte, VV the
// value in two bytes, P and Q its high and low nibble. Each routine returns the number of bytes ---

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

// A row contains every text in full. Intentional: a text is kept even if it is misspelt or names another routine or
// byte, because scripts may read the log.
template <typename T>
struct Setting {
  uint8_t code;         // of inquiry and command
  uint8_t replyLength;  // data bytes
  struct {
    uint8_t first, count;
  } zero = {};                              // the reply bytes that must be 0x00
  T (*value)(const uint8_t* d);             // extracts the value from the reply's data bytes
  uint32_t (*data)(T value, uint8_t* d);    // writes the command's bytes after the code, returns their number
  const char* lengthFailure;                // logged for a reply of another length
  const char* zeroFailure = nullptr;        // logged if one of the `zero` bytes differs
  const char* readFailure;                  // logged if the first read-back fails
  const char* secondReadFailure = nullptr;  // logged if the second one fails; null: the same text
  const char* mismatch;                     // a format for the value written and the value read; may show neither
  int lengthResult = RESULT_BAD_REPLY;      // returned for a reply of another length
};

using Byte = Setting<uint8_t>;
using Word = Setting<uint16_t>;
using Wdr = Setting<tWdrParam>;

// One text per line.
// clang-format off
constexpr Byte kNR = {
    .code = 0x53, .replyLength = 1, .value = LowNibble0, .data = PutQ,
    .lengthFailure = "QM2150_GetNR len fail!\n",
    .readFailure = "QM2150_GetNR bReadValue fail\n",
    .mismatch = "QM2150_SetNR bValue(0x%02x) != bReadValue(0x%02x)\n"};
constexpr Wdr kWdrParams = {
    .code = 0x2D, .replyLength = 8, .zero = {6, 2}, .value = WdrFields, .data = PutWdr,
    .lengthFailure = "QM2150_GetWdrParams len fail!\n",
    .zeroFailure = "tVisca.bData[6] != 0x00 || tVisca.bData[7] != 0x00\n",
    .readFailure = "QM2150_GetWdrParams tReadWdrParams fail\n",
    .mismatch = "QM2150_SetWdrParams tWdrParam != tReadWdrParams\n"};
constexpr Byte kWdrMode = {
    .code = 0x3D, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetWdrMode len fail!\n",
    .readFailure = "QM2150_GetWdrMode bReadWdrMode fail!\n",
    .mismatch = "QM2150_SetWdrMode bWdrMode(0x%02x) != bReadWdrMode(0x%02x)\n"};
constexpr Byte kBgain = {
    .code = 0x44, .replyLength = 4, .zero = {0, 2}, .value = Nibbles2And3, .data = Put00PQ,
    .lengthFailure = "QM2150_GetBgain len fail!\n",
    .zeroFailure = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00\n",
    .readFailure = "QM2150_GetBgain bReadValue fail\n",
    .mismatch = "QM2150_SetBgain bValue(0x%02x) != bReadValue(0x%02x)\n"};
constexpr Byte kRgain = {
    .code = 0x43, .replyLength = 4, .zero = {0, 2}, .value = Nibbles2And3, .data = Put00PQ,
    .lengthFailure = "QM2150_GetRgain len fail!\n",
    .zeroFailure = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00\n",
    .readFailure = "QM2150_GetRgain bReadValue fail\n",
    .mismatch = "QM2150_SetRgain bValue(0x%02x) != bReadValue(0x%02x)\n"};
constexpr Byte kIrisPos = {
    .code = 0x4B, .replyLength = 4, .zero = {0, 2}, .value = Nibbles2And3, .data = Put00PQ,
    .lengthFailure = "QM2150_GetIrisPos len fail!\n",
    .zeroFailure = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00!\n",
    .readFailure = "QM2150_GetIrisPos bReadValue fail\n",
    .mismatch = "QM2150_SetIrisPos bValue(0x%02x) != bReadValue(0x%02x)\n"};
constexpr Byte kGainPos = {
    .code = 0x4C, .replyLength = 4, .zero = {0, 2}, .value = Nibbles2And3, .data = Put00PQ,
    .lengthFailure = "QM2150_GetGainPos len fail!\n",
    .zeroFailure = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00\n",
    .readFailure = "QM2150_GetGainPos bReadGainPos fail!\n",
    .mismatch = "QM2150_SetGainPos bGainPos(0x%02x) != bReadGainPos(0x%02x)\n"};
constexpr Byte kGainLimit = {
    .code = 0x2C, .replyLength = 1, .value = LowNibble0, .data = PutQ,
    .lengthFailure = "QM2150_GetGainLimit len fail!\n",
    .readFailure = "QM2150_GetGainLimit bReadGainLimit fail!\n",
    .mismatch = "QM2150_SetGainLimit bGainLimit(0x%02x) != bReadGainLimit(0x%02x)\n"};
constexpr Byte kHighSensitivity = {
    .code = 0x5E, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetHighSensitivity len fail!\n",
    .readFailure = "QM2150_GetHighSensitivity bReadOnOrOff fail!\n",
    .mismatch = "QM2150_SetHighSensitivity bOnOrOff != bReadOnOrOff.\n"};
// Intentional: sent as two nibbles but read back as one byte, as the camera expects, so only 0..15 can be confirmed.
constexpr Byte kExpCompStep = {
    .code = 0x4E, .replyLength = 4, .zero = {0, 3}, .value = Byte3, .data = Put00PQ,
    .lengthFailure = "QM2150_GetExpCompStep len fail!\n",
    .zeroFailure = "tVisca.bData[0] != 0x00 || tVisca.bData[0] != 0x00!\n",
    .readFailure = "QM2150_GetExpCompStep bReadExpCompStep fail!\n",
    .mismatch = "QM2150_SetExpCompStep bExpCompStep != bReadExpCompStep!\n"};
constexpr Byte kExpComp = {
    .code = 0x3E, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetExpComp len fail!\n",
    .readFailure = "QM2150_GetExpComp bReadExpComp fail!\n",
    .mismatch = "QM2150_SetExpComp bExpComp != bReadExpComp.\n"};
constexpr Byte kPictureFlip = {
    .code = 0x66, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetPictureFlip len fail!\n",
    .readFailure = "QM2150_GetPictureFlip bReadPictureFlip fail!\n",
    .mismatch = "QM2150_SetPictureFlip bPictureFlip != bReadPictureFlip.\n"};
constexpr Byte kLrReverse = {
    .code = 0x61, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetMirror len fail!\n",
    .readFailure = "QM2150_GetLrReverse bReadLrReverse fail!\n",
    .secondReadFailure = "QM2150_SetLrReverse bReadLrReverse fail!\n",
    .mismatch = "QM2150_GetMirror bLrReverse != bReadLrReverse.\n"};
constexpr Byte kIcr = {
    .code = 0x01, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetIcr len fail!\n",
    .readFailure = "QM2150_GetIcr bReadIcr fail!\n",
    .mismatch = "QM2150_SetIcr bIcr != bReadIcr.\n"};
constexpr Byte kAutoIcr = {
    .code = 0x51, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetAutoIcr len fail!\n",
    .readFailure = "QM2150_GetAutoIcr bReadAutoIcr fail!\n",
    .mismatch = "QM2150_SetAutoIcr bAutoIcr != bReadAutoIcr.\n"};
// Intentional: one whole byte in the last place, no nibbles, as the camera expects. Some texts name the shutter.
constexpr Byte kColorGain = {
    .code = 0x49, .replyLength = 4, .zero = {0, 3}, .value = Byte3, .data = Put000V,
    .lengthFailure = "QM2150_GetColorGain len fail!\n",
    .zeroFailure = "tVisca.bData[0] != 0x00 || tVisca.bData[0] != 0x00!\n",
    .readFailure = "QM2150_GetColorGain sReadShutter fail!\n",
    .secondReadFailure = "QM2150_GetColorGain bReadColorGain fail!\n",
    .mismatch = "QM2150_SetShutter bColorGain != bReadColorGain.\n"};
// Intentional: two whole bytes, no nibbles, as the camera expects.
constexpr Word kShutter = {
    .code = 0x4A, .replyLength = 4, .zero = {0, 2}, .value = Bytes2And3, .data = Put00VV,
    .lengthFailure = "QM2150_GetShtter len fail!\n",
    .zeroFailure = "tVisca.bData[0] != 0x00 || tVisca.bData[0] != 0x00!\n",
    .readFailure = "QM2150_GetShutter sReadShutter fail!\n",
    .mismatch = "QM2150_SetShutter sShutter != sReadShutter!\n"};
constexpr Byte kAfMode = {
    .code = 0x57, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "GetWbMode len fail!\n",
    .readFailure = "QM2150_GetAfMode bReadAfMode fail!\n",
    .mismatch = "QM2150_SetAfMode bAfMode != bReadAfMode!\n"};
constexpr Byte kFocusMode = {
    .code = 0x38, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "QM2150_GetFocusMode len fail!\n",
    .readFailure = "QM2150_GetFocusMode bReadFocusMode fail!\n",
    .mismatch = "QM2150_SetFocusMode bFocusMode != bReadFocusMode!\n"};
constexpr Byte kAeMode = {
    .code = 0x39, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "GetWbMode len fail!\n",
    .readFailure = "QM2150_GetAeMode bReadAeMode fail!\n",
    .mismatch = "QM2150_SetAeMode bAeMode != bReadAeMode!\n"};
// Intentional: -60 for a reply of a wrong length, in this row only, because the library's callers rely on it.
constexpr Byte kWbMode = {
    .code = 0x35, .replyLength = 1, .value = Byte0, .data = PutV,
    .lengthFailure = "GetWbMode len fail!\n",
    .readFailure = "QM2150_GetWbMode bReadWbMode fail!\n",
    .mismatch = "QM2150_SetWbMode bWbMode != bReadWbMode!\n",
    .lengthResult = RESULT_NOT_CONFIRMED};
// clang-format on

// --- Reading and writing ---

template <typename T>
int Get(const Setting<T>& setting, T* out) {
  tVisca reply;
  if (const int result = InquireAndJudge(kCategoryCamera, 1, &setting.code, &reply); result < 0) {
    return result;
  }
  if (reply.length != setting.replyLength) {
    return LogFailure(setting.lengthResult, setting.lengthFailure);
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

template <typename T>
void LogMismatch(const Setting<T>& setting, T written, T readBack) {
  LOG(LOG_ERR, setting.mismatch, unsigned{written}, unsigned{readBack});
}
void LogMismatch(const Wdr& setting, tWdrParam, tWdrParam) { LOG(LOG_ERR, "%s", setting.mismatch); }

// Intentional: the value read back is compared with the value as passed. So a value that is truncated in the command is
// never confirmed, and the result tells the caller.
template <typename T>
int Set(const Setting<T>& setting, T value) {
  uint8_t data[16] = {setting.code};
  const uint32_t count = 1 + setting.data(value, data + 1);
  if (const int result = QM2150_Command(count, data); result < 0) {
    return LogFailure(result, "QM2150_Command fail!\n");
  }
  T readBack{};
  const int result = ReadBackTwice([&](bool first) {
    if (const int failure = Get(setting, &readBack); failure < 0) {
      const bool ownText = !first && setting.secondReadFailure != nullptr;
      return LogFailure(failure, ownText ? setting.secondReadFailure : setting.readFailure);
    }
    return Same(value, readBack) ? RESULT_OK : kReadBackDiffers;
  });
  if (result != kReadBackDiffers) {
    return result;
  }
  LogMismatch(setting, value, readBack);
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
