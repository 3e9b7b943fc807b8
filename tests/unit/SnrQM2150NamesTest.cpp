// The names of the sensor, exposure and white-balance modes: every code of each.
#include <cstring>
#include <map>

#include "tests/fakeos/Fixtures.h"

namespace {

using Names = std::map<uint32_t, const char*>;
using Lookup = int (*)(uint32_t, char*);

const Names kSensorModes = {
    {0x00, "unknown"},
    {0x01, "1080i 60fps (Default)"},
    {0x02, "1080i 59.94fps"},
    {0x03, "NTSC, Stop Digital Output"},
    {0x04, "1080i 50fps"},
    {0x05, "PAL, Stop Digital Output"},
    {0x06, "1080p 30fps"},
    {0x07, "1080p 29.97fps"},
    {0x08, "1080p 25fps"},
    {0x09, "720p 60fps"},
    {0x0A, "720p 59.94fps"},
    {0x0B, "NTSC, Stop Digital Output"},
    {0x0C, "720p 50fps"},
    {0x0D, "PAL, Stop Digital Output"},
    {0x0E, "720p 30fps"},
    {0x0F, "720p 29.97fps"},
    {0x10, "NTSC, Stop Digital Output"},
    {0x11, "720p 25fps"},
    {0x12, "PAL, Stop Digital Output"},
};

const Names kAeModes = {
    {0x00, "Fully Auto"}, {0x03, "Manual"}, {0x0A, "Shutter Priority"}, {0x0B, "Iris Priority"}, {0x0D, "Bright"},
};

const Names kWbModes = {
    {0x00, "Auto"},   {0x01, "Indoor"},       {0x02, "Outdoor"},          {0x03, "One Push WB"}, {0x04, "ATW"},
    {0x05, "Manual"}, {0x06, "Outdoor Auto"}, {0x07, "Sodium Lamp Auto"}, {0x08, "Sodium Lamp"},
};

// Expects for every code up to 0x1FF, and some far larger ones, its name, or -59 and an unchanged text.
void ExpectNames(Lookup lookup, const Names& names) {
  FakeOs os;
  std::vector<uint32_t> codes = {0x10000, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFF00, 0xFFFFFFFF};
  for (uint32_t code = 0; code < 0x200; ++code) {
    codes.push_back(code);
  }
  for (const uint32_t code : codes) {
    char text[64];
    memset(text, 'x', sizeof text);
    const auto name = names.find(code);
    if (name == names.end()) {
      EXPECT_EQ(lookup(code, text), -59) << code;
      EXPECT_EQ(std::string(text, sizeof text), std::string(64, 'x')) << code;
    } else {
      EXPECT_EQ(lookup(code, text), 0) << code;
      EXPECT_STREQ(text, name->second) << code;
      EXPECT_EQ(text[strlen(text) + 1], 'x') << code;
    }
  }
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST(SnrQM2150Names, EverySensorModeAndNoOther) { ExpectNames(SnrQM2150_SnrMode2Str, kSensorModes); }

TEST(SnrQM2150Names, EveryExposureModeAndNoOther) { ExpectNames(SnrQM2150_AeMode2Str, kAeModes); }

TEST(SnrQM2150Names, EveryWhiteBalanceModeAndNoOther) { ExpectNames(SnrQM2150_WbMode2Str, kWbModes); }

TEST(SnrQM2150Names, ANameNeeds26BytesAtMost) {
  char text[26];
  EXPECT_EQ(SnrQM2150_SnrMode2Str(0x03, text), 0);  // a sanitizer detects a write past its end
  EXPECT_EQ(strlen(text), 25U);
}

}  // namespace
