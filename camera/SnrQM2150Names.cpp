// Names of the sensor, exposure and white-balance modes.
#include <cstring>
#include <iterator>
#include <span>

#include "camera/SnrQM2150.h"
#include "support/Results.h"

namespace {

struct ModeName {
  uint32_t code;
  const char* name;
};

// Intentional: the three analogue-only modes of a television standard have the same name, because scripts may read the
// list (-s 1 1). The code tells them apart.
constexpr ModeName kSnrModes[] = {
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
static_assert(std::size(kSnrModes) == SNR_MODE_LAST + 1);

constexpr ModeName kAeModes[] = {
    {0x00, "Fully Auto"}, {0x03, "Manual"}, {0x0A, "Shutter Priority"}, {0x0B, "Iris Priority"}, {0x0D, "Bright"},
};

constexpr ModeName kWbModes[] = {
    {0x00, "Auto"},   {0x01, "Indoor"},       {0x02, "Outdoor"},          {0x03, "One Push WB"}, {0x04, "ATW"},
    {0x05, "Manual"}, {0x06, "Outdoor Auto"}, {0x07, "Sodium Lamp Auto"}, {0x08, "Sodium Lamp"},
};

int CopyName(std::span<const ModeName> modes, uint32_t code, char* text) {
  for (const ModeName& mode : modes) {
    if (mode.code == code) {
      memcpy(text, mode.name, strlen(mode.name) + 1);
      return RESULT_OK;
    }
  }
  return RESULT_NO_ENTRY;
}

}  // namespace

int SnrQM2150_SnrMode2Str(uint32_t code, char* text) { return CopyName(kSnrModes, code, text); }

int SnrQM2150_AeMode2Str(uint32_t code, char* text) { return CopyName(kAeModes, code, text); }

int SnrQM2150_WbMode2Str(uint32_t code, char* text) { return CopyName(kWbModes, code, text); }
