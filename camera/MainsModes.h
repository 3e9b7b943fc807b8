// The sensor modes that the device uses, one for each mains frequency.
#ifndef ZR4410_CAMERA_MAINSMODES_H
#define ZR4410_CAMERA_MAINSMODES_H

#include <cstdint>

struct MainsMode {
  int32_t hz;
  uint8_t snrMode;  // the code of a sensor mode, as SnrQM2150_SnrMode2Str takes it
};

inline constexpr MainsMode kMainsModes[] = {
    {50, 0x08},  // 1080p 25fps
    {60, 0x06},  // 1080p 30fps
};

#endif
