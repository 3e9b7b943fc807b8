// The block inquiries: a table of fields for each block, and one routine that reads any block.
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

#include "camera/QM2150.h"
#include "camera/QM2150Transaction.h"
#include "support/Debug.h"
#include "support/Log.h"
#include "support/Results.h"

LensControlRecord gtLensControl;
CameraControlRecord gtCamControl;
OtherControlRecord gtOtherControl;
EnlargeFunction1Record gtEnlargeFun1;
EnlargeFunction2Record gtEnlargeFun2;

namespace {

constexpr uint8_t kDataBytes = 13;

// Which bits of the data bytes D0..D12 make up a field.
struct Bits {
  uint8_t first;     // index of the first byte
  uint8_t bytes;     // number of bytes, most significant first; if there are several, each holds one nibble
  uint8_t mask;      // for each byte; the selected bits are shifted down to bit 0
  uint8_t shift;     // the whole value is shifted up by this
  bool wholeSecond;  // ORs the whole second byte into the value, with its low nibble set: see CameraId
};

constexpr Bits Masked(uint8_t byte, uint8_t mask) { return {byte, 1, mask, 0, false}; }
constexpr Bits Bit(uint8_t byte, uint8_t bit) { return Masked(byte, static_cast<uint8_t>(1 << bit)); }
constexpr Bits Nibbles(uint8_t first, uint8_t count, uint8_t shift = 0) { return {first, count, 0x0F, shift, false}; }

// Four nibbles, except that the second byte is ORed with 0x0F where one expects AND: bits 8..11 are always 1, and the
// byte's high nibble is ORed into bits 12..15. Intentional: other software may have stored camera ids in this form.
constexpr Bits CameraId(uint8_t first) { return {first, 4, 0x0F, 0, true}; }

uint16_t Extract(const Bits& bits, const uint8_t* d) {
  unsigned value = 0;
  for (int k = 0; k < bits.bytes; ++k) {
    value = value << 4 | (d[bits.first + k] & bits.mask) >> std::countr_zero(bits.mask);
  }
  if (bits.wholeSecond) {
    value |= (d[bits.first + 1] | 0x0FU) << 8;
  }
  return static_cast<uint16_t>(value << bits.shift);
}

struct Field {
  size_t offset;  // in the record
  size_t width;   // in bytes, 1 or 2
  Bits bits;
  const char* label;  // the log line; uneven spaces and misspellings are kept, because scripts may read the log
};

#define FIELD(record, name) offsetof(record, name), sizeof(record::name)

constexpr Field kLensControl[] = {
    {FIELD(LensControlRecord, zoomPos), Nibbles(0, 4), "Zoom Pos\t\t=\t0x%04x\n"},
    {FIELD(LensControlRecord, focusNearLimit), Nibbles(4, 2, 8), "Focus Near Limit\t=\t0x%04x\n"},
    // Intentional: %02x although the value has four digits, because scripts may read the log.
    {FIELD(LensControlRecord, focusPos), Nibbles(6, 4), "Focus Pos\t\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, dzoomMode), Bit(11, 5), "DZoom Mode\t\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, afMode), Masked(11, 0x18), "AF Mode\t\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, afSensitivity), Bit(11, 2), "AF Sensitivity  \t=\t0x%02x\n"},
    {FIELD(LensControlRecord, digitalZoom), Bit(11, 1), "Digital Zoom\t\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, focusMode), Bit(11, 0), "Focus Mode\t\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, lowContrastDetect), Bit(12, 3), "Low Contrast Detect\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, camMemoryRecall), Bit(12, 2), "Cam Memory Recall\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, focusCmd), Bit(12, 1), "Focus Cmd\t\t=\t0x%02x\n"},
    {FIELD(LensControlRecord, zoomCmd), Bit(12, 0), "Zoom Cmd\t\t=\t0x%02x\n"},
};

constexpr Field kCameraControl[] = {
    {FIELD(CameraControlRecord, rGain), Nibbles(0, 2), "Rgain\t\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, bGain), Nibbles(2, 2), "Bgain\t\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, wbMode), Masked(4, 0x0F), "WB Mode\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, apertureGain), Masked(5, 0x0F), "Apture Gain\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, exposureMode), Masked(6, 0x0F), "Exposure Mode\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, highRes), Bit(7, 5), "High Res\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, wideD), Bit(7, 4), "Wide D\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, spotAe), Bit(7, 3), "Spot AE\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, backLight), Bit(7, 2), "BackLight\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, expComp), Bit(7, 1), "ExpComp\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, slowShutter), Bit(7, 0), "Slow Shutter\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, shutterPos), Masked(8, 0x1F), "Shutter Pos\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, irisPos), Masked(9, 0x1F), "Iris Pos\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, gainPos), Masked(10, 0x0F), "Gain Pos\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, brightPos), Masked(11, 0x1F), "Bright Pos\t=\t0x%02x\n"},
    {FIELD(CameraControlRecord, expCompPos), Masked(12, 0x0F), "ExpComp Pos\t=\t0x%02x\n"},
};

constexpr Field kOtherControl[] = {
    {FIELD(OtherControlRecord, autoIcrAlarm), Bit(0, 3), "Auto Icr Alarm\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, autoIcr), Bit(0, 2), "Auto Icr\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, power), Bit(0, 0), "Power\t\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, icr), Bit(1, 4), "Icr\t\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, freeze), Bit(1, 3), "Freeze\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, lrReverse), Bit(1, 2), "LrReverse\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, privacyZone), Bit(2, 5), "Privicy Zone\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, mute), Bit(2, 4), "Mute\t\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, titleDisplay), Bit(2, 3), "Title Display\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, display), Bit(2, 2), "Display\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, pictureEffectMode), Masked(3, 0x07), "Picture Effect Mode\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, cameraId), CameraId(6), "Camera ID\t\t=\t0x%04x\n"},
    {FIELD(OtherControlRecord, memory), Bit(10, 4), "Memory\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, icr1), Bit(10, 2), "Icr1\t\t\t=\t0x%02x\n"},
    {FIELD(OtherControlRecord, hz), Bit(10, 0), "Hz\t\t\t=\t0x%02x\n"},
};

constexpr Field kEnlargeFunction1[] = {
    {FIELD(EnlargeFunction1Record, digitalZoomPos), Nibbles(0, 2), "Digital Zomm Pos\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, afActiveTime), Nibbles(2, 2), "AF Active Time  \t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, afIntervalTime), Nibbles(4, 2), "AF Interval Time\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, spotAePos), Masked(7, 0x0F), "Spot AE Pos\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, md), Bit(8, 2), "MD\t\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, alarm), Bit(8, 1), "Alarm\t\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, pictureFlip), Bit(8, 0), "Picture Flip\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, colorGain), Masked(9, 0x38), "Color Gain\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, advancedPrivacy), Bit(9, 2), "Advanced Privacy\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, alarm1), Bit(9, 1), "Alarm1  \t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, pictureFlip1), Bit(9, 0), "Picture Flip1\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, aeResponse), Masked(10, 0x1F), "AE Response\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, gamma), Masked(11, 0x70), "Gamma\t\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, highSensitivityMode), Bit(11, 3), "High Sensitivity Mode =\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, nrLevel), Masked(11, 0x07), "NR Level\t\t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, chromaSuppress), Masked(12, 0x70), "Choma Suppress  \t=\t0x%02x\n"},
    {FIELD(EnlargeFunction1Record, gainLimit), Masked(12, 0x0F), "Gain Limit\t\t=\t0x%02x\n"},
};

constexpr Field kEnlargeFunction2[] = {
    {FIELD(EnlargeFunction2Record, wideDMode), Masked(0, 0x07), "WideD Mode = 0x%02x\n"},
    {FIELD(EnlargeFunction2Record, wideDScreenDisplay), Masked(1, 0x0C), "WideD Screen Display = 0x%02x\n"},
    {FIELD(EnlargeFunction2Record, wideDDetectionSensitivity), Masked(1, 0x03),
     "WideD Detection Sensitivity = 0x%02x\n"},
    {FIELD(EnlargeFunction2Record, wideDShadowCorrectionLevel), Masked(2, 0x0C),
     "WideD Blocked-Up Shadow Correction Level = 0x%02x\n"},
    {FIELD(EnlargeFunction2Record, wideDHighlightCorrectionLevel), Masked(2, 0x03),
     "WideD Blown-Out Highlight Correction Level = 0x%02x\n"},
    {FIELD(EnlargeFunction2Record, wideDShortExposureRatio), Nibbles(3, 2), "WideD Short Exposure Ratio = 0x%02x\n"},
};

#undef FIELD

// Converts to any type, so a record can be initialised with as many AnyFields as it has fields.
struct AnyField {
  template <typename T>
  operator T() const;
};

// The number of fields of a record: tries one more until the record cannot be initialised with that many.
template <typename Record, typename... Fields>
consteval size_t CountFields() {
  if constexpr (requires { Record{Fields{}..., AnyField{}}; }) {
    return CountFields<Record, Fields..., AnyField>();
  } else {
    return sizeof...(Fields);
  }
}

// Whether there is a row for every field, in the record's order, which is also the order of the log lines.
template <typename Record>
consteval bool CoversRecord(std::span<const Field> rows) {
  for (size_t k = 1; k < rows.size(); ++k) {
    if (rows[k].offset <= rows[k - 1].offset) {
      return false;
    }
  }
  return rows.size() == CountFields<Record>();
}

static_assert(CoversRecord<LensControlRecord>(kLensControl), "a field of LensControlRecord lacks its row");
static_assert(CoversRecord<CameraControlRecord>(kCameraControl), "a field of CameraControlRecord lacks its row");
static_assert(CoversRecord<OtherControlRecord>(kOtherControl), "a field of OtherControlRecord lacks its row");
static_assert(CoversRecord<EnlargeFunction1Record>(kEnlargeFunction1),
              "a field of EnlargeFunction1Record lacks its row");
static_assert(CoversRecord<EnlargeFunction2Record>(kEnlargeFunction2),
              "a field of EnlargeFunction2Record lacks its row");

// Sends the inquiry of a block and checks the reply; stores and logs its fields. lengthFailure: logged for a reply of a
// wrong length.
int GetBlock(uint8_t block, const char* lengthFailure, std::span<const Field> fields, void* record) {
  const uint8_t body[] = {kCategoryBlock, block};
  tVisca reply;
  if (const int result = InquireAndJudge(kCategoryBlock, sizeof body, body, &reply); result < 0) {
    return result;
  }
  if (reply.length != kDataBytes) {
    return LogFailure(RESULT_BAD_REPLY, lengthFailure);
  }
  for (const Field& field : fields) {
    const uint16_t value = Extract(field.bits, reply.bData);
    const uint8_t low = static_cast<uint8_t>(value);
    uint8_t* const place = static_cast<uint8_t*>(record) + field.offset;
    if (field.width == sizeof value) {
      memcpy(place, &value, sizeof value);
    } else {
      memcpy(place, &low, sizeof low);
    }
  }
  DumpData(reply.bData, reply.length);
  for (const Field& field : fields) {
    LOG(LOG_INFO, field.label, static_cast<unsigned>(Extract(field.bits, reply.bData)));
  }
  return RESULT_OK;
}

}  // namespace

int QM2150_GetLensControl(LensControlRecord* record) {
  return GetBlock(0x00, "QM2150_GetLensControl len fail!\n", kLensControl, record);
}

int QM2150_GetCameraControl(CameraControlRecord* record) {
  return GetBlock(0x01, "QM2150_GetCameraControl len fail!\n", kCameraControl, record);
}

int QM2150_GetOtherControl(OtherControlRecord* record) {
  return GetBlock(0x02, "QM2150_GetOtherControl len fail!\n", kOtherControl, record);
}

int QM2150_GetEnlargeFunction1(EnlargeFunction1Record* record) {
  return GetBlock(0x03, "QM2150_GetEnlargeFunction1 len fail!\n", kEnlargeFunction1, record);
}

int QM2150_GetEnlargeFunction2(EnlargeFunction2Record* record) {
  return GetBlock(0x04, "QM2150_GetEnlargeFunction2 len fail!\n", kEnlargeFunction2, record);
}
