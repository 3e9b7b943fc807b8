// The block inquiries: the request, the meaning of each bit of the reply, the output, the log lines and the failures.
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <random>
#include <sstream>
#include <type_traits>

#include "tests/fakeos/Faults.h"
#include "tests/fakeos/Fixtures.h"

namespace {

using Values = std::vector<unsigned>;

// --- Records ---

Values FieldsOf(const LensControlRecord& r) {
  return {r.zoomPos,     r.focusNearLimit, r.focusPos,          r.dzoomMode,       r.afMode,   r.afSensitivity,
          r.digitalZoom, r.focusMode,      r.lowContrastDetect, r.camMemoryRecall, r.focusCmd, r.zoomCmd};
}
Values FieldsOf(const CameraControlRecord& r) {
  return {r.rGain,     r.bGain,   r.wbMode,      r.apertureGain, r.exposureMode, r.highRes, r.wideD,     r.spotAe,
          r.backLight, r.expComp, r.slowShutter, r.shutterPos,   r.irisPos,      r.gainPos, r.brightPos, r.expCompPos};
}
Values FieldsOf(const OtherControlRecord& r) {
  return {r.autoIcrAlarm,      r.autoIcr,     r.power,  r.icr,          r.freeze,
          r.lrReverse,         r.privacyZone, r.mute,   r.titleDisplay, r.display,
          r.pictureEffectMode, r.cameraId,    r.memory, r.icr1,         r.hz};
}
Values FieldsOf(const EnlargeFunction1Record& r) {
  return {r.digitalZoomPos, r.afActiveTime,        r.afIntervalTime,  r.spotAePos,      r.md,           r.alarm,
          r.pictureFlip,    r.colorGain,           r.advancedPrivacy, r.alarm1,         r.pictureFlip1, r.aeResponse,
          r.gamma,          r.highSensitivityMode, r.nrLevel,         r.chromaSuppress, r.gainLimit};
}
Values FieldsOf(const EnlargeFunction2Record& r) {
  return {r.wideDMode,
          r.wideDScreenDisplay,
          r.wideDDetectionSensitivity,
          r.wideDShadowCorrectionLevel,
          r.wideDHighlightCorrectionLevel,
          r.wideDShortExposureRatio};
}

// --- The five blocks ---

struct Shown {
  unsigned value;
  const char* text;  // the end of its log line
};

struct FieldCase {
  const char* name;
  const char* label;  // the beginning of its log line
  Shown example, ones, zeros;
};

struct BlockCase {
  const char* routine;
  Bytes requestFrame;
  std::function<int(Bytes*)> get;            // calls the routine on a record of these bytes
  std::function<Values(const Bytes&)> read;  // the fields of a record of these bytes
  size_t recordSize;
  Bytes example;  // D0..D12
  const char* exampleDump;
  std::vector<FieldCase> fields;
  const char* bits;  // a line for each of D0..D12, bits 7 to 0: the field that the bit adds to, and how much (hex)
  std::map<std::string, unsigned> always;  // bits that are always set
};

template <typename Record>
BlockCase Case(const char* routine, Bytes requestFrame, int (*get)(Record*), Bytes example, const char* exampleDump,
               std::vector<FieldCase> fields, const char* bits, std::map<std::string, unsigned> always = {}) {
  const auto call = [get](Bytes* bytes) {
    Record record;
    memcpy(&record, bytes->data(), sizeof record);
    const int result = get(&record);
    memcpy(bytes->data(), &record, sizeof record);
    return result;
  };
  const auto read = [](const Bytes& bytes) {
    Record record;
    memcpy(&record, bytes.data(), sizeof record);
    return FieldsOf(record);
  };
  return {routine, requestFrame, call, read, sizeof(Record), example, exampleDump, fields, bits, always};
}

const BlockCase kLens = Case<LensControlRecord>(
    "QM2150_GetLensControl", {0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x7E, 0x00, 0xFF, 0xC9, 0x55}, QM2150_GetLensControl,
    {0xF1, 0xE2, 0xD3, 0xC4, 0xB5, 0xA6, 0x97, 0x88, 0x79, 0x6A, 0x5B, 0xEE, 0x5A},
    "(13): \nF1 E2 D3 C4 B5 A6 97 88 79 6A 5B EE 5A \n",
    {
        {"zoomPos", "Zoom Pos\t\t=\t", {0x1234, "0x1234\n"}, {0xFFFF, "0xffff\n"}, {0, "0x0000\n"}},
        {"focusNearLimit", "Focus Near Limit\t=\t", {0x5600, "0x5600\n"}, {0xFF00, "0xff00\n"}, {0, "0x0000\n"}},
        {"focusPos", "Focus Pos\t\t=\t", {0x789A, "0x789a\n"}, {0xFFFF, "0xffff\n"}, {0, "0x00\n"}},
        {"dzoomMode", "DZoom Mode\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"afMode", "AF Mode\t\t=\t", {1, "0x01\n"}, {3, "0x03\n"}, {0, "0x00\n"}},
        {"afSensitivity", "AF Sensitivity  \t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"digitalZoom", "Digital Zoom\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"focusMode", "Focus Mode\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"lowContrastDetect", "Low Contrast Detect\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"camMemoryRecall", "Cam Memory Recall\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"focusCmd", "Focus Cmd\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"zoomCmd", "Zoom Cmd\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
    },
    R"(. . . . zoomPos+8000 zoomPos+4000 zoomPos+2000 zoomPos+1000
       . . . . zoomPos+800 zoomPos+400 zoomPos+200 zoomPos+100
       . . . . zoomPos+80 zoomPos+40 zoomPos+20 zoomPos+10
       . . . . zoomPos+8 zoomPos+4 zoomPos+2 zoomPos+1
       . . . . focusNearLimit+8000 focusNearLimit+4000 focusNearLimit+2000 focusNearLimit+1000
       . . . . focusNearLimit+800 focusNearLimit+400 focusNearLimit+200 focusNearLimit+100
       . . . . focusPos+8000 focusPos+4000 focusPos+2000 focusPos+1000
       . . . . focusPos+800 focusPos+400 focusPos+200 focusPos+100
       . . . . focusPos+80 focusPos+40 focusPos+20 focusPos+10
       . . . . focusPos+8 focusPos+4 focusPos+2 focusPos+1
       . . . . . . . .
       . . dzoomMode+1 afMode+2 afMode+1 afSensitivity+1 digitalZoom+1 focusMode+1
       . . . . lowContrastDetect+1 camMemoryRecall+1 focusCmd+1 zoomCmd+1)");

const BlockCase kCamera = Case<CameraControlRecord>(
    "QM2150_GetCameraControl", {0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x7E, 0x01, 0xFF, 0xC8, 0x55},
    QM2150_GetCameraControl, {0xA1, 0xB2, 0xC3, 0xD4, 0xF5, 0xE6, 0x9D, 0xEA, 0xF5, 0xEE, 0xF9, 0xB3, 0x7C},
    "(13): \nA1 B2 C3 D4 F5 E6 9D EA F5 EE F9 B3 7C \n",
    {
        {"rGain", "Rgain\t\t=\t", {0x12, "0x12\n"}, {0xFF, "0xff\n"}, {0, "0x00\n"}},
        {"bGain", "Bgain\t\t=\t", {0x34, "0x34\n"}, {0xFF, "0xff\n"}, {0, "0x00\n"}},
        {"wbMode", "WB Mode\t=\t", {5, "0x05\n"}, {0x0F, "0x0f\n"}, {0, "0x00\n"}},
        {"apertureGain", "Apture Gain\t=\t", {6, "0x06\n"}, {0x0F, "0x0f\n"}, {0, "0x00\n"}},
        {"exposureMode", "Exposure Mode\t=\t", {0x0D, "0x0d\n"}, {0x0F, "0x0f\n"}, {0, "0x00\n"}},
        {"highRes", "High Res\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"wideD", "Wide D\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"spotAe", "Spot AE\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"backLight", "BackLight\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"expComp", "ExpComp\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"slowShutter", "Slow Shutter\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"shutterPos", "Shutter Pos\t=\t", {0x15, "0x15\n"}, {0x1F, "0x1f\n"}, {0, "0x00\n"}},
        {"irisPos", "Iris Pos\t=\t", {0x0E, "0x0e\n"}, {0x1F, "0x1f\n"}, {0, "0x00\n"}},
        {"gainPos", "Gain Pos\t=\t", {9, "0x09\n"}, {0x0F, "0x0f\n"}, {0, "0x00\n"}},
        {"brightPos", "Bright Pos\t=\t", {0x13, "0x13\n"}, {0x1F, "0x1f\n"}, {0, "0x00\n"}},
        {"expCompPos", "ExpComp Pos\t=\t", {0x0C, "0x0c\n"}, {0x0F, "0x0f\n"}, {0, "0x00\n"}},
    },
    R"(. . . . rGain+80 rGain+40 rGain+20 rGain+10
       . . . . rGain+8 rGain+4 rGain+2 rGain+1
       . . . . bGain+80 bGain+40 bGain+20 bGain+10
       . . . . bGain+8 bGain+4 bGain+2 bGain+1
       . . . . wbMode+8 wbMode+4 wbMode+2 wbMode+1
       . . . . apertureGain+8 apertureGain+4 apertureGain+2 apertureGain+1
       . . . . exposureMode+8 exposureMode+4 exposureMode+2 exposureMode+1
       . . highRes+1 wideD+1 spotAe+1 backLight+1 expComp+1 slowShutter+1
       . . . shutterPos+10 shutterPos+8 shutterPos+4 shutterPos+2 shutterPos+1
       . . . irisPos+10 irisPos+8 irisPos+4 irisPos+2 irisPos+1
       . . . . gainPos+8 gainPos+4 gainPos+2 gainPos+1
       . . . brightPos+10 brightPos+8 brightPos+4 brightPos+2 brightPos+1
       . . . . expCompPos+8 expCompPos+4 expCompPos+2 expCompPos+1)");

const BlockCase kOther = Case<OtherControlRecord>(
    "QM2150_GetOtherControl", {0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x7E, 0x02, 0xFF, 0xC7, 0x55},
    QM2150_GetOtherControl, {0xF9, 0x74, 0xE8, 0xFD, 0x12, 0x34, 0xE1, 0x02, 0xD3, 0xC4, 0xFB, 0xFF, 0xFF},
    "(13): \nF9 74 E8 FD 12 34 E1 02 D3 C4 FB FF FF \n",
    {
        {"autoIcrAlarm", "Auto Icr Alarm\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"autoIcr", "Auto Icr\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"power", "Power\t\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"icr", "Icr\t\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"freeze", "Freeze\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"lrReverse", "LrReverse\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"privacyZone", "Privicy Zone\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"mute", "Mute\t\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"titleDisplay", "Title Display\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"display", "Display\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"pictureEffectMode", "Picture Effect Mode\t=\t", {5, "0x05\n"}, {7, "0x07\n"}, {0, "0x00\n"}},
        {"cameraId", "Camera ID\t\t=\t", {0x1F34, "0x1f34\n"}, {0xFFFF, "0xffff\n"}, {0x0F00, "0x0f00\n"}},
        {"memory", "Memory\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"icr1", "Icr1\t\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"hz", "Hz\t\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
    },
    R"(. . . . autoIcrAlarm+1 autoIcr+1 . power+1
       . . . icr+1 freeze+1 lrReverse+1 . .
       . . privacyZone+1 mute+1 titleDisplay+1 display+1 . .
       . . . . . pictureEffectMode+4 pictureEffectMode+2 pictureEffectMode+1
       . . . . . . . .
       . . . . . . . .
       . . . . cameraId+8000 cameraId+4000 cameraId+2000 cameraId+1000
       cameraId+8000 cameraId+4000 cameraId+2000 cameraId+1000 . . . .
       . . . . cameraId+80 cameraId+40 cameraId+20 cameraId+10
       . . . . cameraId+8 cameraId+4 cameraId+2 cameraId+1
       . . . memory+1 . icr1+1 . hz+1
       . . . . . . . .
       . . . . . . . .)",
    {{"cameraId", 0x0F00}});

const BlockCase kEnlarged1 = Case<EnlargeFunction1Record>(
    "QM2150_GetEnlargeFunction1", {0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x7E, 0x03, 0xFF, 0xC6, 0x55},
    QM2150_GetEnlargeFunction1, {0xA9, 0xB8, 0xC7, 0xD6, 0xE5, 0xF4, 0xFF, 0xA3, 0xFD, 0xEA, 0xF1, 0xDB, 0xB7},
    "(13): \nA9 B8 C7 D6 E5 F4 FF A3 FD EA F1 DB B7 \n",
    {
        {"digitalZoomPos", "Digital Zomm Pos\t=\t", {0x98, "0x98\n"}, {0xFF, "0xff\n"}, {0, "0x00\n"}},
        {"afActiveTime", "AF Active Time  \t=\t", {0x76, "0x76\n"}, {0xFF, "0xff\n"}, {0, "0x00\n"}},
        {"afIntervalTime", "AF Interval Time\t=\t", {0x54, "0x54\n"}, {0xFF, "0xff\n"}, {0, "0x00\n"}},
        {"spotAePos", "Spot AE Pos\t\t=\t", {3, "0x03\n"}, {0x0F, "0x0f\n"}, {0, "0x00\n"}},
        {"md", "MD\t\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"alarm", "Alarm\t\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"pictureFlip", "Picture Flip\t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"colorGain", "Color Gain\t\t=\t", {5, "0x05\n"}, {7, "0x07\n"}, {0, "0x00\n"}},
        {"advancedPrivacy", "Advanced Privacy\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"alarm1", "Alarm1  \t\t=\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"pictureFlip1", "Picture Flip1\t\t=\t", {0, "0x00\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"aeResponse", "AE Response\t\t=\t", {0x11, "0x11\n"}, {0x1F, "0x1f\n"}, {0, "0x00\n"}},
        {"gamma", "Gamma\t\t\t=\t", {5, "0x05\n"}, {7, "0x07\n"}, {0, "0x00\n"}},
        {"highSensitivityMode", "High Sensitivity Mode =\t", {1, "0x01\n"}, {1, "0x01\n"}, {0, "0x00\n"}},
        {"nrLevel", "NR Level\t\t=\t", {3, "0x03\n"}, {7, "0x07\n"}, {0, "0x00\n"}},
        {"chromaSuppress", "Choma Suppress  \t=\t", {3, "0x03\n"}, {7, "0x07\n"}, {0, "0x00\n"}},
        {"gainLimit", "Gain Limit\t\t=\t", {7, "0x07\n"}, {0x0F, "0x0f\n"}, {0, "0x00\n"}},
    },
    R"(. . . . digitalZoomPos+80 digitalZoomPos+40 digitalZoomPos+20 digitalZoomPos+10
       . . . . digitalZoomPos+8 digitalZoomPos+4 digitalZoomPos+2 digitalZoomPos+1
       . . . . afActiveTime+80 afActiveTime+40 afActiveTime+20 afActiveTime+10
       . . . . afActiveTime+8 afActiveTime+4 afActiveTime+2 afActiveTime+1
       . . . . afIntervalTime+80 afIntervalTime+40 afIntervalTime+20 afIntervalTime+10
       . . . . afIntervalTime+8 afIntervalTime+4 afIntervalTime+2 afIntervalTime+1
       . . . . . . . .
       . . . . spotAePos+8 spotAePos+4 spotAePos+2 spotAePos+1
       . . . . . md+1 alarm+1 pictureFlip+1
       . . colorGain+4 colorGain+2 colorGain+1 advancedPrivacy+1 alarm1+1 pictureFlip1+1
       . . . aeResponse+10 aeResponse+8 aeResponse+4 aeResponse+2 aeResponse+1
       . gamma+4 gamma+2 gamma+1 highSensitivityMode+1 nrLevel+4 nrLevel+2 nrLevel+1
       . chromaSuppress+4 chromaSuppress+2 chromaSuppress+1 gainLimit+8 gainLimit+4 gainLimit+2 gainLimit+1)");

const BlockCase kEnlarged2 = Case<EnlargeFunction2Record>(
    "QM2150_GetEnlargeFunction2", {0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x7E, 0x04, 0xFF, 0xC5, 0x55},
    QM2150_GetEnlargeFunction2, {0xFB, 0xF6, 0xED, 0xA4, 0xB7, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0x12, 0x34},
    "(13): \nFB F6 ED A4 B7 FF FE FD FC FB FA 12 34 \n",
    {
        {"mode", "WideD Mode = ", {3, "0x03\n"}, {7, "0x07\n"}, {0, "0x00\n"}},
        {"display", "WideD Screen Display = ", {1, "0x01\n"}, {3, "0x03\n"}, {0, "0x00\n"}},
        {"detection", "WideD Detection Sensitivity = ", {2, "0x02\n"}, {3, "0x03\n"}, {0, "0x00\n"}},
        {"shadow", "WideD Blocked-Up Shadow Correction Level = ", {3, "0x03\n"}, {3, "0x03\n"}, {0, "0x00\n"}},
        {"highlight", "WideD Blown-Out Highlight Correction Level = ", {1, "0x01\n"}, {3, "0x03\n"}, {0, "0x00\n"}},
        {"ratio", "WideD Short Exposure Ratio = ", {0x47, "0x47\n"}, {0xFF, "0xff\n"}, {0, "0x00\n"}},
    },
    R"(. . . . . mode+4 mode+2 mode+1
       . . . . display+2 display+1 detection+2 detection+1
       . . . . shadow+2 shadow+1 highlight+2 highlight+1
       . . . . ratio+80 ratio+40 ratio+20 ratio+10
       . . . . ratio+8 ratio+4 ratio+2 ratio+1
       . . . . . . . .
       . . . . . . . .
       . . . . . . . .
       . . . . . . . .
       . . . . . . . .
       . . . . . . . .
       . . . . . . . .
       . . . . . . . .)");

// --- The tests of every block ---

class QM2150Blocks : public Linked, public testing::WithParamInterface<const BlockCase*> {
 protected:
  const BlockCase& block = *GetParam();

  // Calls the routine with a record full of junk.
  int Get() {
    record.assign(block.recordSize, 0xA5);
    return block.get(&record);
  }
  Values Fields() const { return block.read(record); }

  int GetFrom(const Bytes& data) {
    os.Reply(Completed(data));
    return Get();
  }

  Values Expected(const Shown FieldCase::*which) const {
    Values values;
    for (const FieldCase& field : block.fields) {
      values.push_back((field.*which).value);
    }
    return values;
  }
  std::vector<LogLine> Lines(const Shown FieldCase::*which) const {
    std::vector<LogLine> lines;
    for (const FieldCase& field : block.fields) {
      lines.push_back(Info(std::string(field.label) + (field.*which).text));
    }
    return lines;
  }

  // Returns the fields that the bit table gives for these data bytes.
  Values ByTheBits(const Bytes& data) const {
    std::map<std::string, unsigned> fields = block.always;
    std::istringstream words(block.bits);
    std::string word;
    unsigned place = 0;
    for (; words >> word; ++place) {
      if (word != "." && data.at(place / 8) & 0x80 >> place % 8) {
        fields[word.substr(0, word.find('+'))] |=
            static_cast<unsigned>(stoul(word.substr(word.find('+')), nullptr, 16));
      }
    }
    EXPECT_EQ(place, 13U * 8);
    Values values;
    for (const FieldCase& field : block.fields) {
      values.push_back(fields[field.name]);
      fields.erase(field.name);
    }
    EXPECT_THAT(fields, IsEmpty()) << "a misspelt field in the bit table";
    return values;
  }

  void ExpectDecodedByTheBits(const Bytes& data) {
    if (HasFailure()) {
      return;  // one example is enough
    }
    os.Forget();
    EXPECT_EQ(GetFrom(data), 0);
    const Values expected = ByTheBits(data);
    EXPECT_EQ(Fields(), expected) << Hex(data);
    Values logged;
    for (const LogLine& line : os.Log()) {
      logged.push_back(static_cast<unsigned>(strtoul(line.text.c_str() + line.text.rfind("0x"), nullptr, 16)));
    }
    EXPECT_EQ(logged, expected) << Hex(data);
  }

  void ExpectNothingDone() {
    EXPECT_EQ(record, Bytes(block.recordSize, 0xA5));
    EXPECT_EQ(os.Output(), "");
  }

  Bytes record;
};

INSTANTIATE_TEST_SUITE_P(All, QM2150Blocks, testing::Values(&kLens, &kCamera, &kOther, &kEnlarged1, &kEnlarged2),
                         [](const auto& test) {
                           return std::string(test.param->routine).substr(strlen("QM2150_Get"));
                         });

TEST_P(QM2150Blocks, SendOneInquiry) {
  EXPECT_EQ(GetFrom(block.example), 0);
  EXPECT_THAT(os.Frames(), ElementsAre(block.requestFrame));
}

TEST_P(QM2150Blocks, DecodeAnExampleAllOnesAndAllZeros) {
  struct {
    Bytes data;
    const Shown FieldCase::*shown;
    std::string dump;
  } const cases[] = {
      {block.example, &FieldCase::example, block.exampleDump},
      {Bytes(13, 0xFF), &FieldCase::ones, "(13): \nFF FF FF FF FF FF FF FF FF FF FF FF FF \n"},
      {Bytes(13, 0x00), &FieldCase::zeros, "(13): \n00 00 00 00 00 00 00 00 00 00 00 00 00 \n"},
  };
  for (const auto& [data, shown, dump] : cases) {
    os.Forget();
    EXPECT_EQ(GetFrom(data), 0);
    EXPECT_EQ(Fields(), Expected(shown));
    EXPECT_EQ(os.Log(), Lines(shown));
    EXPECT_EQ(os.Output(), dump);
  }
}

TEST_P(QM2150Blocks, DecodeEachBitSetOrClearAlone) {
  for (size_t byte = 0; byte < 13; ++byte) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      ExpectDecodedByTheBits(With(Bytes(13, 0x00), {{byte, static_cast<uint8_t>(1U << bit)}}));
      ExpectDecodedByTheBits(With(Bytes(13, 0xFF), {{byte, static_cast<uint8_t>(~(1U << bit))}}));
    }
  }
}

TEST_P(QM2150Blocks, DecodeAnything) {
  std::mt19937 random(block.requestFrame[7]);
  for (int n = 0; n < 200; ++n) {
    Bytes data(13);
    for (uint8_t& byte : data) {
      byte = static_cast<uint8_t>(random());
    }
    ExpectDecodedByTheBits(data);
  }
}

TEST_P(QM2150Blocks, PrintTheDumpBeforeTheFieldLines) {
  std::string printed;
  os.On("syslog", 1, [&] { printed = os.Output(); });
  EXPECT_EQ(GetFrom(block.example), 0);
  EXPECT_EQ(printed, block.exampleDump);
}

TEST_P(QM2150Blocks, LogTheSameFieldsWithTheDebugFlag) {
  gfDebugFlag = 1;
  EXPECT_EQ(GetFrom(block.example), 0);
  EXPECT_EQ(os.Log(), Lines(&FieldCase::example));
}

TEST_P(QM2150Blocks, TakeAnyReplyTypeButAnError) {
  for (const int type : {0x00, 0x41, 0x51, 0x61, 0xFF}) {
    Bytes reply = Completed(block.example);
    reply[1] = static_cast<uint8_t>(type);
    os.Reply(reply);
    EXPECT_EQ(Get(), 0) << type;
    EXPECT_EQ(Fields(), Expected(&FieldCase::example)) << type;
  }
}

// --- Failures: the record stays unchanged, and nothing is printed ---

TEST_P(QM2150Blocks, RefuseAReplyOfAnyOtherCount) {
  for (size_t count = 0; count <= 16; ++count) {
    if (count != 13) {
      os.Forget();
      EXPECT_EQ(GetFrom(Bytes(count, 0x11)), -59) << count;
      EXPECT_THAT(os.Log(), ElementsAre(Err(std::string(block.routine) + " len fail!\n"))) << count;
      ExpectNothingDone();
    }
  }
}

TEST_P(QM2150Blocks, PassOnAFailedInquiry) {
  for (const Fault& fault : InquiryFaults()) {
    SCOPED_TRACE(fault.name);
    fault.arrange(os, Completed(block.example));
    EXPECT_EQ(Get(), fault.result);
    EXPECT_THAT(LinesAbove(os.Log(), fault, 2), IsEmpty());
    ExpectNothingDone();
    StartOver();
  }
}

TEST_P(QM2150Blocks, RefuseABadReply) {
  const Bytes good = Completed(block.example);
  for (const Bytes& bad : {With(good, {{0, 0x80}}), With(good, {{15, 0x80}}), With(good, {{1, 0x60}, {2, 0x41}}),
                           Bytes{0x90, 0x60, 0x41, 0xFF}}) {
    os.Forget();
    os.Reply(bad);
    EXPECT_EQ(Get(), -59);
    EXPECT_EQ(os.Log().size(), 2U) << Hex(bad);  // one by QM2150_ChecRespVisca, one about its failure
    ExpectNothingDone();
  }
}

// --- Oddities ---

class QM2150BlocksOddities : public Linked {
 protected:
  template <typename Record>
  Record From(int (*get)(Record*), const Bytes& data) {
    os.Reply(Completed(data));
    auto record = Filled<Record>(0xA5);
    EXPECT_EQ(get(&record), 0);
    return record;
  }
};

TEST_F(QM2150BlocksOddities, TheThirdDigitOfTheCameraIdIsAlwaysF) {
  for (unsigned d7 = 0; d7 < 256; ++d7) {
    const auto sent = static_cast<uint8_t>(d7);
    const unsigned id = From(QM2150_GetOtherControl, With(Bytes(13), {{7, sent}, {8, 0x05}, {9, 0x0A}})).cameraId;
    EXPECT_EQ(id & 0x0FFF, 0x0F5AU) << d7;
  }
}

TEST_F(QM2150BlocksOddities, TheHighNibbleOfD7ReachesTheTopOfTheCameraId) {
  EXPECT_EQ(From(QM2150_GetOtherControl, With(Bytes(13), {{6, 1}, {7, 0x20}, {8, 3}, {9, 4}})).cameraId, 0x3F34);
  EXPECT_EQ(From(QM2150_GetOtherControl, With(Bytes(13), {{6, 5}, {7, 0xA0}})).cameraId, 0xFF00);
}

TEST_F(QM2150BlocksOddities, TheLowByteOfTheFocusNearLimitIsAlwaysZero) {
  for (unsigned d4 = 0; d4 < 256; d4 += 17) {
    for (unsigned d5 = 0; d5 < 256; d5 += 17) {
      const Bytes data = With(Bytes(13, 0xFF), {{4, static_cast<uint8_t>(d4)}, {5, static_cast<uint8_t>(d5)}});
      EXPECT_EQ(From(QM2150_GetLensControl, data).focusNearLimit & 0xFF, 0);
    }
  }
}

TEST_F(QM2150BlocksOddities, FocusPosIsLoggedWithAtLeastTwoDigits) {
  struct {
    Bytes nibbles;
    const char* line;
  } const cases[] = {{{0, 0, 0, 5}, "Focus Pos\t\t=\t0x05\n"},
                     {{0, 0, 0xF, 5}, "Focus Pos\t\t=\t0xf5\n"},
                     {{0, 1, 0, 0}, "Focus Pos\t\t=\t0x100\n"},
                     {{1, 0, 0, 0}, "Focus Pos\t\t=\t0x1000\n"}};
  for (const auto& [nibbles, line] : cases) {
    os.Forget();
    From(QM2150_GetLensControl, With(Bytes(13), {{6, nibbles[0]}, {7, nibbles[1]}, {8, nibbles[2]}, {9, nibbles[3]}}));
    EXPECT_EQ(os.Log()[2], Info(line));
  }
}

// --- The records are a contract with other programs ---

// Returns a record whose bytes in memory are 0, 1, 2, ...
template <typename Record>
Record Counted() {
  Bytes bytes(sizeof(Record));
  for (size_t k = 0; k < bytes.size(); ++k) {
    bytes[k] = static_cast<uint8_t>(k);
  }
  Record record;
  memcpy(&record, bytes.data(), sizeof record);
  return record;
}

TEST(QM2150BlocksRecords, HaveOneBytePerFieldInOrder) {
  static_assert(sizeof(CameraControlRecord) == 16);
  static_assert(sizeof(EnlargeFunction1Record) == 17);
  static_assert(sizeof(EnlargeFunction2Record) == 6);
  EXPECT_THAT(FieldsOf(Counted<CameraControlRecord>()),
              ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  EXPECT_THAT(FieldsOf(Counted<EnlargeFunction1Record>()),
              ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
  EXPECT_THAT(FieldsOf(Counted<EnlargeFunction2Record>()), ElementsAre(0, 1, 2, 3, 4, 5));
}

TEST(QM2150BlocksRecords, HaveFourFieldsOfTwoBytes) {
  static_assert(std::is_same_v<decltype(LensControlRecord::zoomPos), uint16_t>);
  static_assert(std::is_same_v<decltype(LensControlRecord::focusNearLimit), uint16_t>);
  static_assert(std::is_same_v<decltype(LensControlRecord::focusPos), uint16_t>);
  static_assert(std::is_same_v<decltype(OtherControlRecord::cameraId), uint16_t>);
  static_assert(offsetof(LensControlRecord, zoomPos) == 0);
  static_assert(offsetof(LensControlRecord, focusNearLimit) == 2);
  static_assert(offsetof(LensControlRecord, focusPos) == 4);
  static_assert(sizeof(LensControlRecord) == 16);
  static_assert(offsetof(OtherControlRecord, cameraId) == 12);
  static_assert(sizeof(OtherControlRecord) == 18);
  const Values lens = FieldsOf(Counted<LensControlRecord>());
  EXPECT_THAT(Values(lens.begin() + 3, lens.end()), ElementsAre(6, 7, 8, 9, 10, 11, 12, 13, 14));
  const Values other = FieldsOf(Counted<OtherControlRecord>());
  EXPECT_THAT(Values(other.begin(), other.begin() + 11), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
  EXPECT_THAT(Values(other.begin() + 12, other.end()), ElementsAre(14, 15, 16));
}

}  // namespace
