// The 21 camera settings: each is read with one inquiry, and written with one command and then read back.
//
// kSettings describes the wire protocol a second time, independently of the product's table.
#include <algorithm>
#include <functional>
#include <string>

#include "tests/fakeos/Faults.h"
#include "tests/fakeos/Fixtures.h"
#include "tests/unit/CameraStory.h"

namespace {

constexpr uint8_t kJunk = 0xE5;  // what an output holds before a call

using ByteGetter = int (*)(uint8_t*);
using ByteSetter = int (*)(uint8_t);

// The two routines of a setting; both take the value as an unsigned.
struct Pair {
  std::function<int(unsigned&)> get;
  std::function<int(unsigned)> set;
};

Pair Byte(ByteGetter get, ByteSetter set) {
  return {[get](unsigned& value) {
            uint8_t byte = kJunk;
            const int result = get(&byte);
            value = byte;
            return result;
          },
          [set](unsigned value) { return set(static_cast<uint8_t>(value)); }};
}

Pair Shutter() {
  return {[](unsigned& value) {
            uint16_t word = kJunk;
            const int result = QM2150_GetShutter(&word);
            value = word;
            return result;
          },
          [](unsigned value) { return QM2150_SetShutter(static_cast<uint16_t>(value)); }};
}

// Parameter 5 is the value; parameters 1 to 4 are 1 to 4. The tests at the end vary those.
Pair WdrParams() {
  return {[](unsigned& value) {
            auto params = Filled<tWdrParam>(kJunk);
            const int result = QM2150_GetWdrParams(&params);
            const Bytes expected = result == 0 ? Bytes{1, 2, 3, 4, params.parameter5} : Bytes(5, kJunk);
            EXPECT_EQ(Hex(BytesOf(params)), Hex(expected));
            value = params.parameter5;
            return result;
          },
          [](unsigned value) {
            const tWdrParam params{1, 2, 3, 4, static_cast<uint8_t>(value)};
            return QM2150_SetWdrParams(&params);
          }};
}

// The value that the data bytes of a reply carry.
unsigned LowNibbleOf0(const Bytes& data) { return data[0] & 0x0F; }
unsigned Byte0(const Bytes& data) { return data[0]; }
unsigned Byte3(const Bytes& data) { return data[3]; }
unsigned Nibbles2And3(const Bytes& data) { return (data[2] * 16U + data[3]) % 256; }
unsigned Bytes2And3(const Bytes& data) { return data[2] * 256U + data[3]; }
unsigned Nibbles4And5(const Bytes& data) { return (data[4] * 16U + data[5]) % 256; }

struct Setting {
  const char* name;
  Pair pair;
  // p and q: the high and the low nibble of the value; vv: its low byte; hh: its high byte
  const char* command;
  const char* inquiry;
  const char* reply;
  unsigned (*value)(const Bytes& data);
  unsigned confirmed;  // the largest value that a camera can confirm
  std::vector<size_t> zero;
  const char* lengthLine;
  const char* zeroLine;
  const char* firstReadLine;
  const char* secondReadLine;
  const char* mismatchLine;  // VV: the value passed, RR: the last one read
  int lengthResult = -59;
  unsigned top = 0xFF;  // the largest value that can be passed
};

constexpr char kNotZero[] = "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00\n";
constexpr char kNotZeroMisprinted[] = "tVisca.bData[0] != 0x00 || tVisca.bData[0] != 0x00!\n";

// clang-format off
const std::vector<Setting> kSettings = {
    {"NR", Byte(QM2150_GetNR, QM2150_SetNR),
     "81 01 04 53 0q FF", "81 09 04 53 FF", "90 50 0q FF", LowNibbleOf0, 15, {},
     "QM2150_GetNR len fail!\n", "",
     "QM2150_GetNR bReadValue fail\n", "QM2150_GetNR bReadValue fail\n",
     "QM2150_SetNR bValue(0xVV) != bReadValue(0xRR)\n"},
    {"WdrParams", WdrParams(),
     "81 01 04 2D 01 02 03 04 0p 0q 00 00 FF", "81 09 04 2D FF", "90 50 01 02 03 04 0p 0q 00 00 FF",
     Nibbles4And5, 255, {6, 7},
     "QM2150_GetWdrParams len fail!\n", "tVisca.bData[6] != 0x00 || tVisca.bData[7] != 0x00\n",
     "QM2150_GetWdrParams tReadWdrParams fail\n", "QM2150_GetWdrParams tReadWdrParams fail\n",
     "QM2150_SetWdrParams tWdrParam != tReadWdrParams\n"},
    {"WdrMode", Byte(QM2150_GetWdrMode, QM2150_SetWdrMode),
     "81 01 04 3D vv FF", "81 09 04 3D FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetWdrMode len fail!\n", "",
     "QM2150_GetWdrMode bReadWdrMode fail!\n", "QM2150_GetWdrMode bReadWdrMode fail!\n",
     "QM2150_SetWdrMode bWdrMode(0xVV) != bReadWdrMode(0xRR)\n"},
    {"Bgain", Byte(QM2150_GetBgain, QM2150_SetBgain),
     "81 01 04 44 00 00 0p 0q FF", "81 09 04 44 FF", "90 50 00 00 0p 0q FF", Nibbles2And3, 255, {0, 1},
     "QM2150_GetBgain len fail!\n", kNotZero,
     "QM2150_GetBgain bReadValue fail\n", "QM2150_GetBgain bReadValue fail\n",
     "QM2150_SetBgain bValue(0xVV) != bReadValue(0xRR)\n"},
    {"Rgain", Byte(QM2150_GetRgain, QM2150_SetRgain),
     "81 01 04 43 00 00 0p 0q FF", "81 09 04 43 FF", "90 50 00 00 0p 0q FF", Nibbles2And3, 255, {0, 1},
     "QM2150_GetRgain len fail!\n", kNotZero,
     "QM2150_GetRgain bReadValue fail\n", "QM2150_GetRgain bReadValue fail\n",
     "QM2150_SetRgain bValue(0xVV) != bReadValue(0xRR)\n"},
    {"IrisPos", Byte(QM2150_GetIrisPos, QM2150_SetIrisPos),
     "81 01 04 4B 00 00 0p 0q FF", "81 09 04 4B FF", "90 50 00 00 0p 0q FF", Nibbles2And3, 255, {0, 1},
     "QM2150_GetIrisPos len fail!\n", "tVisca.bData[0] != 0x00 || tVisca.bData[1] != 0x00!\n",
     "QM2150_GetIrisPos bReadValue fail\n", "QM2150_GetIrisPos bReadValue fail\n",
     "QM2150_SetIrisPos bValue(0xVV) != bReadValue(0xRR)\n"},
    {"GainPos", Byte(QM2150_GetGainPos, QM2150_SetGainPos),
     "81 01 04 4C 00 00 0p 0q FF", "81 09 04 4C FF", "90 50 00 00 0p 0q FF", Nibbles2And3, 255, {0, 1},
     "QM2150_GetGainPos len fail!\n", kNotZero,
     "QM2150_GetGainPos bReadGainPos fail!\n", "QM2150_GetGainPos bReadGainPos fail!\n",
     "QM2150_SetGainPos bGainPos(0xVV) != bReadGainPos(0xRR)\n"},
    {"GainLimit", Byte(QM2150_GetGainLimit, QM2150_SetGainLimit),
     "81 01 04 2C 0q FF", "81 09 04 2C FF", "90 50 0q FF", LowNibbleOf0, 15, {},
     "QM2150_GetGainLimit len fail!\n", "",
     "QM2150_GetGainLimit bReadGainLimit fail!\n", "QM2150_GetGainLimit bReadGainLimit fail!\n",
     "QM2150_SetGainLimit bGainLimit(0xVV) != bReadGainLimit(0xRR)\n"},
    {"HighSensitivity", Byte(QM2150_GetHighSensitivity, QM2150_SetHighSensitivity),
     "81 01 04 5E vv FF", "81 09 04 5E FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetHighSensitivity len fail!\n", "",
     "QM2150_GetHighSensitivity bReadOnOrOff fail!\n", "QM2150_GetHighSensitivity bReadOnOrOff fail!\n",
     "QM2150_SetHighSensitivity bOnOrOff != bReadOnOrOff.\n"},
    {"ExpCompStep", Byte(QM2150_GetExpCompStep, QM2150_SetExpCompStep),
     "81 01 04 4E 00 00 0p 0q FF", "81 09 04 4E FF", "90 50 00 00 00 vv FF", Byte3, 15, {0, 1, 2},
     "QM2150_GetExpCompStep len fail!\n", kNotZeroMisprinted,
     "QM2150_GetExpCompStep bReadExpCompStep fail!\n", "QM2150_GetExpCompStep bReadExpCompStep fail!\n",
     "QM2150_SetExpCompStep bExpCompStep != bReadExpCompStep!\n"},
    {"ExpComp", Byte(QM2150_GetExpComp, QM2150_SetExpComp),
     "81 01 04 3E vv FF", "81 09 04 3E FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetExpComp len fail!\n", "",
     "QM2150_GetExpComp bReadExpComp fail!\n", "QM2150_GetExpComp bReadExpComp fail!\n",
     "QM2150_SetExpComp bExpComp != bReadExpComp.\n"},
    {"PictureFlip", Byte(QM2150_GetPictureFlip, QM2150_SetPictureFlip),
     "81 01 04 66 vv FF", "81 09 04 66 FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetPictureFlip len fail!\n", "",
     "QM2150_GetPictureFlip bReadPictureFlip fail!\n", "QM2150_GetPictureFlip bReadPictureFlip fail!\n",
     "QM2150_SetPictureFlip bPictureFlip != bReadPictureFlip.\n"},
    {"LrReverse", Byte(QM2150_GetLrReverse, QM2150_SetLrReverse),
     "81 01 04 61 vv FF", "81 09 04 61 FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetMirror len fail!\n", "",
     "QM2150_GetLrReverse bReadLrReverse fail!\n", "QM2150_SetLrReverse bReadLrReverse fail!\n",
     "QM2150_GetMirror bLrReverse != bReadLrReverse.\n"},
    {"Icr", Byte(QM2150_GetIcr, QM2150_SetIcr),
     "81 01 04 01 vv FF", "81 09 04 01 FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetIcr len fail!\n", "",
     "QM2150_GetIcr bReadIcr fail!\n", "QM2150_GetIcr bReadIcr fail!\n",
     "QM2150_SetIcr bIcr != bReadIcr.\n"},
    {"AutoIcr", Byte(QM2150_GetAutoIcr, QM2150_SetAutoIcr),
     "81 01 04 51 vv FF", "81 09 04 51 FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetAutoIcr len fail!\n", "",
     "QM2150_GetAutoIcr bReadAutoIcr fail!\n", "QM2150_GetAutoIcr bReadAutoIcr fail!\n",
     "QM2150_SetAutoIcr bAutoIcr != bReadAutoIcr.\n"},
    {"ColorGain", Byte(QM2150_GetColorGain, QM2150_SetColorGain),
     "81 01 04 49 00 00 00 vv FF", "81 09 04 49 FF", "90 50 00 00 00 vv FF", Byte3, 255, {0, 1, 2},
     "QM2150_GetColorGain len fail!\n", kNotZeroMisprinted,
     "QM2150_GetColorGain sReadShutter fail!\n", "QM2150_GetColorGain bReadColorGain fail!\n",
     "QM2150_SetShutter bColorGain != bReadColorGain.\n"},
    {"Shutter", Shutter(),
     "81 01 04 4A 00 00 hh vv FF", "81 09 04 4A FF", "90 50 00 00 hh vv FF", Bytes2And3, 65535, {0, 1},
     "QM2150_GetShtter len fail!\n", kNotZeroMisprinted,
     "QM2150_GetShutter sReadShutter fail!\n", "QM2150_GetShutter sReadShutter fail!\n",
     "QM2150_SetShutter sShutter != sReadShutter!\n", -59, 0xFFFF},
    {"AfMode", Byte(QM2150_GetAfMode, QM2150_SetAfMode),
     "81 01 04 57 vv FF", "81 09 04 57 FF", "90 50 vv FF", Byte0, 255, {},
     "GetWbMode len fail!\n", "",
     "QM2150_GetAfMode bReadAfMode fail!\n", "QM2150_GetAfMode bReadAfMode fail!\n",
     "QM2150_SetAfMode bAfMode != bReadAfMode!\n"},
    {"FocusMode", Byte(QM2150_GetFocusMode, QM2150_SetFocusMode),
     "81 01 04 38 vv FF", "81 09 04 38 FF", "90 50 vv FF", Byte0, 255, {},
     "QM2150_GetFocusMode len fail!\n", "",
     "QM2150_GetFocusMode bReadFocusMode fail!\n", "QM2150_GetFocusMode bReadFocusMode fail!\n",
     "QM2150_SetFocusMode bFocusMode != bReadFocusMode!\n"},
    {"AeMode", Byte(QM2150_GetAeMode, QM2150_SetAeMode),
     "81 01 04 39 vv FF", "81 09 04 39 FF", "90 50 vv FF", Byte0, 255, {},
     "GetWbMode len fail!\n", "",
     "QM2150_GetAeMode bReadAeMode fail!\n", "QM2150_GetAeMode bReadAeMode fail!\n",
     "QM2150_SetAeMode bAeMode != bReadAeMode!\n"},
    {"WbMode", Byte(QM2150_GetWbMode, QM2150_SetWbMode),
     "81 01 04 35 vv FF", "81 09 04 35 FF", "90 50 vv FF", Byte0, 255, {},
     "GetWbMode len fail!\n", "",
     "QM2150_GetWbMode bReadWbMode fail!\n", "QM2150_GetWbMode bReadWbMode fail!\n",
     "QM2150_SetWbMode bWbMode != bReadWbMode!\n", -60},
};

// One value of each setting, written out in full, to check the table above and the letters in it.
struct Sample {
  const char* name;
  unsigned value;
  const char* command;
  const char* reply;
};
const std::vector<Sample> kSamples = {
    {"NR",              0x05,   "81 01 04 53 05 FF",                      "90 50 05 FF"},
    {"WdrParams",       0xB7,   "81 01 04 2D 01 02 03 04 0B 07 00 00 FF", "90 50 01 02 03 04 0B 07 00 00 FF"},
    {"WdrMode",         0x02,   "81 01 04 3D 02 FF",                      "90 50 02 FF"},
    {"Bgain",           0xC3,   "81 01 04 44 00 00 0C 03 FF",             "90 50 00 00 0C 03 FF"},
    {"Rgain",           0x9D,   "81 01 04 43 00 00 09 0D FF",             "90 50 00 00 09 0D FF"},
    {"IrisPos",         0x11,   "81 01 04 4B 00 00 01 01 FF",             "90 50 00 00 01 01 FF"},
    {"GainPos",         0xF0,   "81 01 04 4C 00 00 0F 00 FF",             "90 50 00 00 0F 00 FF"},
    {"GainLimit",       0x0E,   "81 01 04 2C 0E FF",                      "90 50 0E FF"},
    {"HighSensitivity", 0x03,   "81 01 04 5E 03 FF",                      "90 50 03 FF"},
    {"ExpCompStep",     0x0D,   "81 01 04 4E 00 00 00 0D FF",             "90 50 00 00 00 0D FF"},
    {"ExpComp",         0x02,   "81 01 04 3E 02 FF",                      "90 50 02 FF"},
    {"PictureFlip",     0x03,   "81 01 04 66 03 FF",                      "90 50 03 FF"},
    {"LrReverse",       0x02,   "81 01 04 61 02 FF",                      "90 50 02 FF"},
    {"Icr",             0x03,   "81 01 04 01 03 FF",                      "90 50 03 FF"},
    {"AutoIcr",         0x02,   "81 01 04 51 02 FF",                      "90 50 02 FF"},
    {"ColorGain",       0x2A,   "81 01 04 49 00 00 00 2A FF",             "90 50 00 00 00 2A FF"},
    {"Shutter",         0xA1B2, "81 01 04 4A 00 00 A1 B2 FF",             "90 50 00 00 A1 B2 FF"},
    {"AfMode",          0x01,   "81 01 04 57 01 FF",                      "90 50 01 FF"},
    {"FocusMode",       0x03,   "81 01 04 38 03 FF",                      "90 50 03 FF"},
    {"AeMode",          0x0A,   "81 01 04 39 0A FF",                      "90 50 0A FF"},
    {"WbMode",          0x80,   "81 01 04 35 80 FF",                      "90 50 80 FF"},
};
// clang-format on

void Replace(std::string& text, const std::string& what, unsigned value, size_t digits, bool capitals) {
  if (const size_t at = text.find(what); at != std::string::npos) {
    const char* const kDigits = capitals ? "0123456789ABCDEF" : "0123456789abcdef";
    text[at + digits - 1] = kDigits[value % 16];
    if (digits == 2) {
      text[at] = kDigits[value / 16 % 16];
    }
  }
}

// Returns a packet of the table with its letters replaced by the value's digits.
std::string Packet(std::string text, unsigned value) {
  Replace(text, "p", value / 16, 1, true);
  Replace(text, "q", value, 1, true);
  Replace(text, "hh", value / 256, 2, true);
  Replace(text, "vv", value, 2, true);
  return text;
}

LogLine Mismatch(const Setting& setting, unsigned passed, unsigned read) {
  std::string text = setting.mismatchLine;
  Replace(text, "VV", passed, 2, false);
  Replace(text, "RR", read, 2, false);
  return Err(text);
}

using QM2150Parameters = Linked;

class QM2150ParametersEach : public Linked, public testing::WithParamInterface<Setting> {
 protected:
  const Setting& setting = GetParam();
  const Story command{Packet(setting.command, 5)};  // most tests write the value 5
  const Story wait{"50 ms"};
  const Story inquiry{setting.inquiry};

  void Acknowledge() { os.Reply({0x10}); }
  void Holds(unsigned value) { os.Reply(FromHex(Packet(setting.reply, value))); }
  Bytes GoodData() const {
    const Bytes packet = FromHex(Packet(setting.reply, 5));
    return {packet.begin() + 2, packet.end() - 1};
  }

  // Expects that a read fails and leaves its output unchanged.
  void ExpectReadFails(int result) {
    unsigned value = 0;
    EXPECT_EQ(setting.pair.get(value), result);
    EXPECT_EQ(value, kJunk);
  }
  // The same for data that the getter itself refuses, with its log line.
  void ExpectRefused(const Bytes& data, int result, const char* line) {
    os.Reply(Completed(data));
    ExpectReadFails(result);
    EXPECT_THAT(os.Log(), ElementsAre(Err(line)));
    os.Forget();
  }
};

TEST_P(QM2150ParametersEach, IsReadByOneInquiry) {
  Holds(5);
  unsigned value = 0;
  EXPECT_EQ(setting.pair.get(value), 0);
  EXPECT_EQ(value, 5U);
  EXPECT_EQ(StoryOf(os), inquiry);
}

TEST_P(QM2150ParametersEach, EveryReplyValueIsRead) {
  const Bytes good = GoodData();
  const Bytes others = {0x00, 0x01, 0x05, 0x0F, 0x10, 0xF0, 0xFF};
  // Two neighbouring bytes at a time, so that some sums overflow.
  for (size_t i = 0; i < good.size(); ++i) {
    const auto required = [this](size_t place) {
      return std::find(setting.zero.begin(), setting.zero.end(), place) != setting.zero.end();
    };
    if (required(i) || (setting.name == std::string("WdrParams") && i < 4)) {
      continue;
    }
    for (const uint8_t other : others) {
      for (unsigned byte = 0; byte < 256; ++byte) {
        Bytes data = good;
        data[i] = static_cast<uint8_t>(byte);
        if (i + 1 < good.size() && !required(i + 1)) {
          data[i + 1] = other;
        }
        os.Reply(Completed(data));
        unsigned value = 0;
        ASSERT_EQ(setting.pair.get(value), 0) << Hex(data);
        ASSERT_EQ(value, setting.value(data)) << Hex(data);
      }
    }
    os.Forget();
  }
}

TEST_P(QM2150ParametersEach, EveryOtherLengthIsRefused) {
  const size_t expected = GoodData().size();
  for (size_t length = 0; length <= 16; ++length) {
    if (length != expected) {
      ExpectRefused(Bytes(length, 0x01), setting.lengthResult, setting.lengthLine);  // checked before any zero byte
      ExpectRefused(Bytes(length, 0x00), setting.lengthResult, setting.lengthLine);
    }
  }
}

TEST_P(QM2150ParametersEach, ANonZeroByteWhereZeroIsRequiredIsRefused) {
  const Bytes good = GoodData();
  for (const size_t place : setting.zero) {
    for (unsigned byte = 1; byte < 256; ++byte) {
      ExpectRefused(With(good, {{place, static_cast<uint8_t>(byte)}}), -59, setting.zeroLine);
    }
  }
}

TEST_P(QM2150ParametersEach, ABadReplyIsNotAValue) {
  const Bytes good = FromHex(Packet(setting.reply, 5));
  for (const Bytes& bad :
       {Bytes{0x90, 0x60, 0x41, 0xFF}, With(good, {{0, 0xA0}}), With(good, {{good.size() - 1, 0xFE}})}) {
    os.Reply(bad);
    ExpectReadFails(-59);
    EXPECT_EQ(os.Log().size(), 2U) << Hex(bad);  // one by QM2150_ChecRespVisca, one about its failure
    os.Forget();
  }
}

TEST_P(QM2150ParametersEach, AFailedInquiryIsPassedOn) {
  for (const Fault& fault : InquiryFaults()) {
    SCOPED_TRACE(fault.name);
    fault.arrange(os, FromHex(Packet(setting.reply, 5)));
    ExpectReadFails(fault.result);
    EXPECT_THAT(LinesAbove(os.Log(), fault, 2), IsEmpty());
    StartOver();
  }
}

TEST_P(QM2150ParametersEach, EveryValueIsSentAndConfirmedOrRefused) {
  unsigned passed = 0;
  std::string wrong;
  os.device = [&](const Request& request) {
    const std::string packet = Hex(request.Payload());
    if (packet == setting.inquiry) {
      // a camera that keeps a nibble keeps the low one
      os.Answer(request, FromHex(Packet(setting.reply, passed <= setting.confirmed ? passed : passed % 16)));
    } else {
      wrong = packet == Packet(setting.command, passed) ? wrong : packet;
      os.Answer(request, {0x10});
    }
  };
  for (passed = 0; passed <= setting.top; ++passed) {
    const int result = setting.pair.set(passed);
    ASSERT_EQ(wrong, "") << passed;
    if (passed <= setting.confirmed) {
      ASSERT_EQ(result, 0) << passed;
      ASSERT_EQ(os.Requests().size(), 2U) << passed;
      ASSERT_THAT(os.Log(), IsEmpty()) << passed;
    } else {
      ASSERT_EQ(result, -60) << passed;
      ASSERT_EQ(StoryOf(os), (Story{Packet(setting.command, passed), "50 ms", setting.inquiry, "50 ms", setting.inquiry,
                                    Mismatch(setting, passed, passed % 16)}));
    }
    os.Forget();
  }
}

TEST_P(QM2150ParametersEach, IsConfirmedByTheFirstReadBack) {
  Acknowledge();
  Holds(5);
  EXPECT_EQ(setting.pair.set(5), 0);
  EXPECT_EQ(StoryOf(os), command + wait + inquiry);
}

TEST_P(QM2150ParametersEach, IsConfirmedByTheSecondReadBack) {
  Acknowledge();
  Holds(9);
  Holds(5);
  EXPECT_EQ(setting.pair.set(5), 0);
  EXPECT_EQ(StoryOf(os), command + wait + inquiry + wait + inquiry);
}

TEST_P(QM2150ParametersEach, IsGivenUpAfterTwoReadBacks) {
  Acknowledge();
  Holds(9);
  Holds(2);
  EXPECT_EQ(setting.pair.set(5), -60);
  EXPECT_EQ(StoryOf(os), (command + wait + inquiry + wait + inquiry + Story{Mismatch(setting, 5, 2)}));
}

TEST_P(QM2150ParametersEach, ARefusedCommandIsNotReadBack) {
  os.Reply({0x40});
  EXPECT_EQ(setting.pair.set(5), -1);
  EXPECT_EQ(os.Requests().size(), 1U);
  EXPECT_EQ(os.Log().size(), 1U);
}

TEST_P(QM2150ParametersEach, AFailedCommandIsNotReadBack) {
  for (const Fault& fault : CommandFaults()) {
    SCOPED_TRACE(fault.name);
    fault.arrange(os, {0x10});
    EXPECT_EQ(setting.pair.set(5), fault.result);
    EXPECT_LE(os.Requests().size(), 1U);
    EXPECT_EQ(LinesAbove(os.Log(), fault, 1).size(), 1U);
    StartOver();
  }
}

// The getter does not log a stop; the setter logs it like any other failure.
TEST_P(QM2150ParametersEach, AFailedReadBackEndsTheSetter) {
  for (const bool first : {true, false}) {
    for (const Fault& fault : InquiryFaults()) {
      SCOPED_TRACE(fault.name);
      Acknowledge();
      if (!first) {
        Holds(9);
      }
      os.On("usleep", first ? 2 : 4, [&] { fault.arrange(os, FromHex(Packet(setting.reply, 5))); });  // in the wait
      EXPECT_EQ(setting.pair.set(5), fault.result);
      EXPECT_THAT(LinesAbove(os.Log(), fault, 2),
                  ElementsAre(Err(first ? setting.firstReadLine : setting.secondReadLine)));
      StartOver();
    }
  }
}

TEST_P(QM2150ParametersEach, AReadBackOfAnotherLengthEndsTheSetterWithItsOwnResult) {
  Acknowledge();
  Holds(9);
  os.Reply(Completed(Bytes(3, 0x00)));  // no setting has three data bytes
  EXPECT_EQ(setting.pair.set(5), setting.lengthResult);
  EXPECT_THAT(os.Log(), ElementsAre(Err(setting.lengthLine), Err(setting.secondReadLine)));
}

INSTANTIATE_TEST_SUITE_P(All, QM2150ParametersEach, testing::ValuesIn(kSettings),
                         [](const auto& test) { return std::string(test.param.name); });

void PrintTo(const Setting& setting, std::ostream* out) { *out << setting.name; }

// --- What only some of the settings do ---

TEST_F(QM2150Parameters, AFailedCommandIsLogged) {
  const tWdrParam params{};
  EXPECT_EQ((os.Reply({0x40}), QM2150_SetNR(1)), -1);
  EXPECT_EQ((os.Reply({0x40}), QM2150_SetShutter(1)), -1);
  EXPECT_EQ((os.Reply({0x40}), QM2150_SetWdrParams(&params)), -1);
  EXPECT_THAT(os.Log(), testing::AllOf(testing::SizeIs(3), testing::Each(Err("QM2150_Command fail!\n"))));
}

TEST_F(QM2150Parameters, ASampleOfEachWrittenOutInFull) {
  ASSERT_EQ(kSamples.size(), kSettings.size());
  for (size_t i = 0; i < kSamples.size(); ++i) {
    const Sample& sample = kSamples[i];
    ASSERT_STREQ(sample.name, kSettings[i].name);
    os.Reply({0x10});
    os.Reply(FromHex(sample.reply));
    EXPECT_EQ(kSettings[i].pair.set(sample.value), 0) << sample.name;
    EXPECT_EQ(StoryOf(os), (Story{sample.command, "50 ms", kSettings[i].inquiry})) << sample.name;
    os.Forget();
    os.Reply(FromHex(sample.reply));
    unsigned value = 0;
    EXPECT_EQ(kSettings[i].pair.get(value), 0) << sample.name;
    EXPECT_EQ(value, sample.value) << sample.name;
    os.Forget();
  }
}

TEST_F(QM2150Parameters, MismatchesShowTheValuePassedAndTheLastRead) {
  struct Case {
    int (*set)(uint8_t);
    const char* first;
    const char* second;
    const char* line;
  };
  const Case cases[] = {
      {QM2150_SetNR, "90 50 01 FF", "90 50 0C FF", "QM2150_SetNR bValue(0xab) != bReadValue(0x0c)\n"},
      {QM2150_SetWdrMode, "90 50 01 FF", "90 50 CD FF", "QM2150_SetWdrMode bWdrMode(0xab) != bReadWdrMode(0xcd)\n"},
      {QM2150_SetBgain, "90 50 00 00 01 01 FF", "90 50 00 00 0C 0D FF",
       "QM2150_SetBgain bValue(0xab) != bReadValue(0xcd)\n"},
      {QM2150_SetRgain, "90 50 00 00 01 01 FF", "90 50 00 00 0C 0D FF",
       "QM2150_SetRgain bValue(0xab) != bReadValue(0xcd)\n"},
      {QM2150_SetIrisPos, "90 50 00 00 01 01 FF", "90 50 00 00 0C 0D FF",
       "QM2150_SetIrisPos bValue(0xab) != bReadValue(0xcd)\n"},
      {QM2150_SetGainPos, "90 50 00 00 01 01 FF", "90 50 00 00 0C 0D FF",
       "QM2150_SetGainPos bGainPos(0xab) != bReadGainPos(0xcd)\n"},
      {QM2150_SetGainLimit, "90 50 01 FF", "90 50 0C FF",
       "QM2150_SetGainLimit bGainLimit(0xab) != bReadGainLimit(0x0c)\n"},
  };
  for (const Case& item : cases) {
    os.Reply({0x10});
    os.Reply(FromHex(item.first));
    os.Reply(FromHex(item.second));
    EXPECT_EQ(item.set(0xAB), -60) << item.line;
    EXPECT_THAT(os.Log(), ElementsAre(Err(item.line)));
    os.Forget();
  }
}

// A value read back is masked too: a camera that reports all of 0x1A does not confirm it either.
TEST_F(QM2150Parameters, NibblesAreMaskedWhenRead) {
  uint8_t value = kJunk;
  os.Reply({0x90, 0x50, 0x12, 0xFF});
  EXPECT_EQ(QM2150_GetNR(&value), 0);
  EXPECT_EQ(value, 0x02);
  os.Reply({0x90, 0x50, 0xFE, 0xFF});
  EXPECT_EQ(QM2150_GetGainLimit(&value), 0);
  EXPECT_EQ(value, 0x0E);
  os.Forget();
  os.Reply({0x10});
  os.Reply({0x90, 0x50, 0x1A, 0xFF});
  os.Reply({0x90, 0x50, 0x1A, 0xFF});
  EXPECT_EQ(QM2150_SetGainLimit(0x1A), -60);
  EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_SetGainLimit bGainLimit(0x1a) != bReadGainLimit(0x0a)\n")));
}

// A camera that keeps both nibbles reports them where zero is required.
TEST_F(QM2150Parameters, ExposureCompensationStepInTwoNibblesIsNotRead) {
  os.Reply({0x10});
  os.Reply({0x90, 0x50, 0x00, 0x00, 0x02, 0x00, 0xFF});
  EXPECT_EQ(QM2150_SetExpCompStep(0x20), -59);
  EXPECT_EQ(StoryOf(os), (Story{"81 01 04 4E 00 00 02 00 FF", "50 ms", "81 09 04 4E FF",
                                Err("tVisca.bData[0] != 0x00 || tVisca.bData[0] != 0x00!\n"),
                                Err("QM2150_GetExpCompStep bReadExpCompStep fail!\n")}));
}

TEST_F(QM2150Parameters, NibbleSumsAreNotMaskedButCutToTheWidth) {
  uint8_t value = 0;
  os.Reply({0x90, 0x50, 0x00, 0x00, 0x12, 0x34, 0xFF});  // 0x120 + 0x34 = 0x154
  EXPECT_EQ(QM2150_GetBgain(&value), 0);
  EXPECT_EQ(value, 0x54);
  os.Reply({0x90, 0x50, 0x00, 0x00, 0x01, 0xFF, 0xFF});  // 0x10 + 0xFF = 0x10F
  EXPECT_EQ(QM2150_GetIrisPos(&value), 0);
  EXPECT_EQ(value, 0x0F);
  tWdrParam params{};
  os.Reply({0x90, 0x50, 0x00, 0x00, 0x00, 0x00, 0x12, 0x34, 0x00, 0x00, 0xFF});
  EXPECT_EQ(QM2150_GetWdrParams(&params), 0);
  EXPECT_EQ(params.parameter5, 0x54);
}

// Only the reply type 0x60 is an error: one with a socket number is read as a value.
TEST_F(QM2150Parameters, AnErrorReplyWithASocketNumberIsReadAsAValue) {
  uint8_t value = kJunk;
  os.Reply({0x90, 0x61, 0x41, 0xFF});
  EXPECT_EQ(QM2150_GetAfMode(&value), 0);
  EXPECT_EQ(value, 0x41);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(QM2150Parameters, CompletionsAreTracedWithDebugBit15) {
  giDebug = 0x8000;
  uint8_t value = kJunk;
  os.Reply({0x90, 0x50, 0x03, 0xFF});
  EXPECT_EQ(QM2150_GetAfMode(&value), 0);
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 57 FF", Debug("VISCA RESP ACK!\n")}));
}

// --- Wide dynamic range ---

TEST_F(QM2150Parameters, WideDynamicRangeParametersAreComparedFieldByField) {
  const tWdrParam params{1, 2, 3, 4, 5};
  const tWdrParam same = params;
  EXPECT_EQ(QM2150_CompareWdrParams(&params, &same), 0);
  for (size_t field = 0; field < 5; ++field) {
    for (unsigned bit = 1; bit < 256; bit *= 2) {
      tWdrParam other = params;
      reinterpret_cast<uint8_t*>(&other)[field] ^= static_cast<uint8_t>(bit);
      EXPECT_EQ(QM2150_CompareWdrParams(&params, &other), -60) << "field " << field << " bit " << bit;
      EXPECT_EQ(QM2150_CompareWdrParams(&other, &params), -60) << "field " << field << " bit " << bit;
      EXPECT_EQ(QM2150_CompareWdrParams(&other, &other), 0);
    }
  }
  EXPECT_THAT(os.Timeline(), IsEmpty());
}

TEST_F(QM2150Parameters, WideDynamicRangeParametersAreReadFieldByField) {
  auto params = Filled<tWdrParam>(kJunk);
  os.Reply(FromHex("90 50 0A 0B 0C 0D 0E 0F 00 00 FF"));
  EXPECT_EQ(QM2150_GetWdrParams(&params), 0);
  EXPECT_EQ(Hex(BytesOf(params)), "0A 0B 0C 0D EF");
  os.Reply(FromHex("90 50 F1 E2 D3 C4 01 00 00 00 FF"));  // the first four are masked
  EXPECT_EQ(QM2150_GetWdrParams(&params), 0);
  EXPECT_EQ(Hex(BytesOf(params)), "01 02 03 04 10");
  EXPECT_EQ(StoryOf(os), (Story{"81 09 04 2D FF", "81 09 04 2D FF"}));
}

TEST_F(QM2150Parameters, EachWideDynamicRangeParameterIsConfirmedUpToItsWidth) {
  for (size_t field = 0; field < 5; ++field) {
    for (unsigned value = 0; value < 256; ++value) {
      Bytes fields = {1, 2, 3, 4, 5};
      fields[field] = static_cast<uint8_t>(value);
      // The command carries these as nibbles, and the camera keeps them so.
      const auto nibble = [](unsigned number) { return static_cast<uint8_t>(number % 16); };
      const Bytes sent = {nibble(fields[0]),
                          nibble(fields[1]),
                          nibble(fields[2]),
                          nibble(fields[3]),
                          nibble(fields[4] / 16U),
                          nibble(fields[4]),
                          0x00,
                          0x00};
      const bool fits = field == 4 || value < 16;
      os.Reply({0x10});
      for (int readBacks = fits ? 1 : 2; readBacks > 0; --readBacks) {
        os.Reply(FromHex("90 50 " + Hex(sent) + " FF"));
      }
      const tWdrParam params{fields[0], fields[1], fields[2], fields[3], fields[4]};
      ASSERT_EQ(QM2150_SetWdrParams(&params), fits ? 0 : -60) << Hex(fields);
      const Story once{"50 ms", "81 09 04 2D FF"};
      ASSERT_EQ(StoryOf(os),
                Story{"81 01 04 2D " + Hex(sent) + " FF"} + once +
                    (fits ? Story{} : once + Story{Err("QM2150_SetWdrParams tWdrParam != tReadWdrParams\n")}));
      os.Forget();
    }
  }
}

TEST_F(QM2150Parameters, EachWideDynamicRangeParameterMustReadBack) {
  const tWdrParam params{1, 2, 3, 4, 0x56};
  const char* const kOthers[] = {"90 50 00 02 03 04 05 06 00 00 FF", "90 50 01 00 03 04 05 06 00 00 FF",
                                 "90 50 01 02 00 04 05 06 00 00 FF", "90 50 01 02 03 00 05 06 00 00 FF",
                                 "90 50 01 02 03 04 00 06 00 00 FF", "90 50 01 02 03 04 05 00 00 00 FF"};
  for (const char* const other : kOthers) {
    os.Reply({0x10});
    os.Reply(FromHex(other));
    os.Reply(FromHex(other));
    EXPECT_EQ(QM2150_SetWdrParams(&params), -60) << other;
    EXPECT_THAT(os.Log(), ElementsAre(Err("QM2150_SetWdrParams tWdrParam != tReadWdrParams\n"))) << other;
    os.Forget();
  }
}

}  // namespace
