// The camera's calibration: physical values at raw positions. SnrQM2150Conversions.cpp interpolates between them.
#include "camera/SnrQM2150.h"

namespace {

constexpr CalibrationEntry At(uint16_t position, int32_t value) { return {value, position, {}}; }

}  // namespace

// Centimetres.
constexpr CalibrationEntry gtFocusPosTb[15] = {
    At(0x1000, 99999), At(0x2000, 2500), At(0x3000, 1100), At(0x4000, 700), At(0x5000, 490),
    At(0x6000, 370),   At(0x7000, 290),  At(0x8000, 230),  At(0x9000, 185), At(0xA000, 150),
    At(0xB000, 123),   At(0xC000, 100),  At(0xD000, 30),   At(0xE000, 8),   At(0xF000, 1),
};

// Magnification, here and below.
constexpr CalibrationEntry gtDigitalZoomTb[12] = {
    At(0, 1),   At(128, 2), At(170, 3), At(192, 4),  At(204, 5),  At(213, 6),
    At(219, 7), At(224, 8), At(227, 9), At(230, 10), At(232, 11), At(235, 12),
};

// The optical range is also the first part of the combined range.
#define OPTICAL_RANGE                                                                                         \
  At(0, 1), At(6225, 2), At(8894, 3), At(10486, 4), At(11589, 5), At(12422, 6), At(13088, 7), At(13641, 8),   \
      At(14110, 9), At(14515, 10), At(14866, 11), At(15170, 12), At(15431, 13), At(15653, 14), At(15839, 15), \
      At(15995, 16), At(16123, 17), At(16228, 18), At(16314, 19), At(16384, 20)

constexpr CalibrationEntry gtOpticalZoomTb[20] = {OPTICAL_RANGE};

constexpr CalibrationEntry gtCombineZoomTb[31] = {
    OPTICAL_RANGE,  // then the digital range
    At(24576, 40),  At(27264, 60),  At(28672, 80),  At(29440, 100), At(30016, 120), At(30400, 140),
    At(30720, 160), At(30912, 180), At(31104, 200), At(31232, 220), At(31424, 240),
};

#undef OPTICAL_RANGE
