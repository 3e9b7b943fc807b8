// Conversions of raw positions to physical values: every table in full, and every position of the interpolated tables.
#include <cstddef>
#include <iterator>
#include <span>
#include <vector>

#include "camera/SnrQM2150.h"

#include <gtest/gtest.h>

namespace {

constexpr double kUntouched = -7.0;
constexpr int32_t kMost = 2147483647;
constexpr int32_t kLeast = -kMost - 1;

// --- Shutter ---

TEST(SnrQM2150ConversionsPos2Shutter, KnowsEveryPositionAt50Hz) {
  constexpr int32_t kDenominators[] = {1,   2,   3,   6,   12,   25,   50,   75,   100,  120,  150,
                                       215, 300, 425, 600, 1000, 1250, 1750, 2500, 3500, 6000, 10000};
  uint32_t position = 0;
  for (const int32_t expected : kDenominators) {
    EXPECT_EQ(SnrQM2150_Pos2Shutter(50, position), expected) << position;
    ++position;
  }
  EXPECT_EQ(position, 22U);
}

TEST(SnrQM2150ConversionsPos2Shutter, KnowsEveryPositionAt60Hz) {
  constexpr int32_t kDenominators[] = {1,   2,   4,   8,   15,   30,   60,   90,   100,  125,  180,
                                       250, 350, 500, 725, 1000, 1500, 2000, 3000, 4000, 6000, 10000};
  uint32_t position = 0;
  for (const int32_t expected : kDenominators) {
    EXPECT_EQ(SnrQM2150_Pos2Shutter(60, position), expected) << position;
    ++position;
  }
  EXPECT_EQ(position, 22U);
}

TEST(SnrQM2150ConversionsPos2Shutter, EndsAtPosition21) {
  EXPECT_EQ(SnrQM2150_Pos2Shutter(60, 21), 10000);
  EXPECT_EQ(SnrQM2150_Pos2Shutter(50, 22), -59);
  EXPECT_EQ(SnrQM2150_Pos2Shutter(60, 22), -59);
  for (const uint32_t position : {23U, 31U, 32U, 256U, 0x10000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(SnrQM2150_Pos2Shutter(50, position), -59) << position;
    EXPECT_EQ(SnrQM2150_Pos2Shutter(60, position), -59) << position;
  }
}

TEST(SnrQM2150ConversionsPos2Shutter, KnowsOnlyTwoFrequencies) {
  EXPECT_EQ(SnrQM2150_Pos2Shutter(55, 3), -59);
  for (const int32_t frequency : {0, 1, 49, 51, 59, 61, 100, 306, 316, -50, -60, kMost, kLeast}) {
    for (const uint32_t position : {0U, 3U, 21U, 22U}) {
      EXPECT_EQ(SnrQM2150_Pos2Shutter(frequency, position), -59) << frequency;
    }
  }
}

// --- Iris ---

TEST(SnrQM2150ConversionsIrisPos2Fno, KnowsEveryPosition) {
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(0), 360.0);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(5), 14.0);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(6), 11.0);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(7), 9.6);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(8), 8.0);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(9), 6.8);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(10), 5.6);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(11), 4.8);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(12), 4.0);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(13), 3.4);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(14), 2.8);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(15), 2.4);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(16), 2.0);
  EXPECT_EQ(SnrQM2150_IrisPos2Fno(17), 1.6);
}

TEST(SnrQM2150ConversionsIrisPos2Fno, HasNoValueFor1To4AndAbove17) {
  for (const uint32_t position : {1U, 2U, 3U, 4U, 18U, 19U, 31U, 32U, 256U, 261U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(SnrQM2150_IrisPos2Fno(position), -99.0) << position;
  }
}

// --- Gain ---

TEST(SnrQM2150ConversionsGainPos2dB, KnowsEveryPosition) {
  constexpr double kDb[] = {-3.0, 0.0, 2.0, 4.0, 6.0, 8.0, 10.0, 12.0, 14.0, 16.0, 18.0, 20.0, 22.0, 24.0, 26.0, 28.0};
  for (const uint32_t state : {0U, 1U, 3U, 4U, 0x102U, 0x80000002U, 0xFFFFFFFFU}) {
    for (int32_t position = 0; position < 16; ++position) {
      EXPECT_EQ(SnrQM2150_GainPos2dB(state, position), kDb[position]) << state << ' ' << position;
    }
  }
}

TEST(SnrQM2150ConversionsGainPos2dB, HighSensitivityRaisesThePositionsFrom11) {
  constexpr double kDb[] = {-3.0, 0.0, 2.0, 4.0, 6.0, 8.0, 10.0, 12.0, 14.0, 16.0, 18.0, 26.0, 28.0, 33.0, 35.0, 40.0};
  for (int32_t position = 0; position < 16; ++position) {
    EXPECT_EQ(SnrQM2150_GainPos2dB(2, position), kDb[position]) << position;
  }
}

TEST(SnrQM2150ConversionsGainPos2dB, HasNoValueOutside0To15) {
  for (const int32_t position : {-1, -11, 16, 17, 256, 267, kMost, kLeast}) {
    EXPECT_EQ(SnrQM2150_GainPos2dB(2, position), -99.0) << position;
    EXPECT_EQ(SnrQM2150_GainPos2dB(3, position), -99.0) << position;
  }
}

// --- Exposure compensation ---

TEST(SnrQM2150ConversionsExpCompPos2Db, KnowsEveryPosition) {
  constexpr double kDb[] = {-10.5, -9.0, -7.5, -6.0, -4.5, -3.0, -1.5, 0.0, 1.5, 3.0, 4.5, 6.0, 7.5, 9.0, 10.5};
  uint32_t position = 0;
  for (const double expected : kDb) {
    double dB = kUntouched;
    EXPECT_EQ(SnrQM2150_ExpCompPos2Db(position, &dB), 0) << position;
    EXPECT_EQ(dB, expected) << position;
    ++position;
  }
  EXPECT_EQ(position, 15U);
}

TEST(SnrQM2150ConversionsExpCompPos2Db, RefusesAPositionAbove14) {
  for (const uint32_t position : {15U, 16U, 256U, 263U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    double dB = kUntouched;
    EXPECT_EQ(SnrQM2150_ExpCompPos2Db(position, &dB), -59) << position;
    EXPECT_EQ(dB, kUntouched) << position;
  }
}

// --- Calibration tables, written down here a second time ---

struct Row {
  uint32_t position;
  int32_t value;
};

constexpr Row kFocus[] = {{0x1000, 99999}, {0x2000, 2500}, {0x3000, 1100}, {0x4000, 700}, {0x5000, 490},
                          {0x6000, 370},   {0x7000, 290},  {0x8000, 230},  {0x9000, 185}, {0xA000, 150},
                          {0xB000, 123},   {0xC000, 100},  {0xD000, 30},   {0xE000, 8},   {0xF000, 1}};

constexpr Row kDigital[] = {{0, 1},   {128, 2}, {170, 3}, {192, 4},  {204, 5},  {213, 6},
                            {219, 7}, {224, 8}, {227, 9}, {230, 10}, {232, 11}, {235, 12}};

constexpr Row kOptical[] = {{0, 1},      {6225, 2},   {8894, 3},   {10486, 4},  {11589, 5},  {12422, 6},  {13088, 7},
                            {13641, 8},  {14110, 9},  {14515, 10}, {14866, 11}, {15170, 12}, {15431, 13}, {15653, 14},
                            {15839, 15}, {15995, 16}, {16123, 17}, {16228, 18}, {16314, 19}, {16384, 20}};

constexpr Row kCombined[] = {
    {0, 1},       {6225, 2},    {8894, 3},    {10486, 4},   {11589, 5},   {12422, 6},   {13088, 7},  {13641, 8},
    {14110, 9},   {14515, 10},  {14866, 11},  {15170, 12},  {15431, 13},  {15653, 14},  {15839, 15}, {15995, 16},
    {16123, 17},  {16228, 18},  {16314, 19},  {16384, 20},  {24576, 40},  {27264, 60},  {28672, 80}, {29440, 100},
    {30016, 120}, {30400, 140}, {30720, 160}, {30912, 180}, {31104, 200}, {31232, 220}, {31424, 240}};

template <size_t N, size_t M>
void ExpectSame(const CalibrationEntry (&table)[N], const Row (&rows)[M]) {
  static_assert(N == M);
  for (size_t k = 0; k < N; ++k) {
    EXPECT_EQ(table[k].value, rows[k].value) << k;
    EXPECT_EQ(table[k].position, rows[k].position) << k;
    EXPECT_EQ(table[k].reserved[0], 0) << k;
    EXPECT_EQ(table[k].reserved[1], 0) << k;
  }
}

TEST(SnrQM2150ConversionsCalibrationTables, HoldEveryPoint) {
  ExpectSame(gtFocusPosTb, kFocus);
  ExpectSame(gtDigitalZoomTb, kDigital);
  ExpectSame(gtOpticalZoomTb, kOptical);
  ExpectSame(gtCombineZoomTb, kCombined);
}

TEST(SnrQM2150ConversionsCalibrationTables, EntriesAreEightBytes) {
  static_assert(sizeof(CalibrationEntry) == 8);
  static_assert(offsetof(CalibrationEntry, value) == 0 && sizeof(CalibrationEntry::value) == 4);
  static_assert(offsetof(CalibrationEntry, position) == 4 && sizeof(CalibrationEntry::position) == 2);
  static_assert(offsetof(CalibrationEntry, reserved) == 6);
}

// The straight line between two rows, in the order that the results depend on: quotient, times the span, plus the base.
double Between(const Row& low, const Row& high, uint32_t position) {
  const double quotient =
      static_cast<double>(position - low.position) / static_cast<double>(high.position - low.position);
  const double rise = quotient * static_cast<double>(high.value - low.value);
  return low.value + rise;
}

// The value of a position according to the rows: a row's own value at its position, otherwise the point on the line to
// the next row.
double ByTheRows(std::span<const Row> rows, uint32_t position) {
  for (size_t k = rows.size(); k-- > 0;) {
    if (position == rows[k].position) {
      return rows[k].value;
    }
    if (position > rows[k].position) {
      return Between(rows[k], rows[k + 1], position);
    }
  }
  ADD_FAILURE() << "below the rows: " << position;
  return 0.0;
}

TEST(SnrQM2150ConversionsFocusPos, KnowsEveryPosition) {
  for (uint32_t position = 0; position <= 0xFFFF; ++position) {
    const bool inside = position >= 0x1000 && position <= 0xF000;
    double centimetres = kUntouched;
    ASSERT_EQ(SnrQM2150_FocusPos(static_cast<uint16_t>(position), &centimetres), inside ? 0 : -59) << position;
    const double expected = position == 0x1000 ? 1.0 : inside ? ByTheRows(kFocus, position) : kUntouched;
    ASSERT_EQ(centimetres, expected) << position;
  }
}

void ExpectZoom(int (*zoom)(uint32_t, double*), std::span<const Row> rows) {
  const uint32_t last = rows.back().position;
  for (uint32_t position = 0; position <= last; ++position) {
    double magnification = kUntouched;
    ASSERT_EQ(zoom(position, &magnification), 0) << position;
    ASSERT_EQ(magnification, ByTheRows(rows, position)) << position;
  }
  std::vector<uint32_t> outside = {0x7FFFFFFF, 0x80000000, 0x80000064, 0xFFFFFFFF};
  for (uint32_t position = last + 1; position <= 0x10000 + 100; ++position) {  // 65536 is not 0
    outside.push_back(position);
  }
  for (const uint32_t position : outside) {
    double magnification = kUntouched;
    ASSERT_EQ(zoom(position, &magnification), -59) << position;
    ASSERT_EQ(magnification, kUntouched) << position;
  }
}

TEST(SnrQM2150ConversionsDigitalZoom, KnowsEveryPosition) { ExpectZoom(SnrQM2150_DigitalZoom, kDigital); }

TEST(SnrQM2150ConversionsOpticalZoom, KnowsEveryPosition) { ExpectZoom(SnrQM2150_OpticalZoom, kOptical); }

TEST(SnrQM2150ConversionsCombineZoom, KnowsEveryPosition) { ExpectZoom(SnrQM2150_CombineZoom, kCombined); }

// --- Single points, written out ---

double Focus(uint16_t position) {
  double centimetres = kUntouched;
  EXPECT_EQ(SnrQM2150_FocusPos(position, &centimetres), 0);
  return centimetres;
}

double Zoom(int (*zoom)(uint32_t, double*), uint32_t position) {
  double magnification = kUntouched;
  EXPECT_EQ(zoom(position, &magnification), 0);
  return magnification;
}

TEST(SnrQM2150ConversionsFocusPos, BothEndsGiveOne) {
  EXPECT_EQ(Focus(0x1000), 1.0);  // not the table's 99999
  EXPECT_EQ(Focus(0xF000), 1.0);
}

TEST(SnrQM2150ConversionsFocusPos, IsLinearBetweenTwoPoints) {
  EXPECT_EQ(Focus(0x1800), 51249.5);
  EXPECT_EQ(Focus(0xC000), 100.0);
  EXPECT_EQ(Focus(0xC800), 65.0);
  EXPECT_EQ(Focus(0xE800), 4.5);
}

TEST(SnrQM2150ConversionsDigitalZoom, EndsAt235) {
  double magnification = kUntouched;
  EXPECT_EQ(Zoom(SnrQM2150_DigitalZoom, 0), 1.0);
  EXPECT_EQ(Zoom(SnrQM2150_DigitalZoom, 149), 2.5);
  EXPECT_EQ(Zoom(SnrQM2150_DigitalZoom, 235), 12.0);
  EXPECT_EQ(SnrQM2150_DigitalZoom(236, &magnification), -59);
  EXPECT_EQ(magnification, kUntouched);
}

TEST(SnrQM2150ConversionsOpticalZoom, EndsAt16384) {
  double magnification = kUntouched;
  EXPECT_EQ(Zoom(SnrQM2150_OpticalZoom, 0), 1.0);
  EXPECT_EQ(Zoom(SnrQM2150_OpticalZoom, 6225), 2.0);
  EXPECT_EQ(Zoom(SnrQM2150_OpticalZoom, 9690), 3.5);
  EXPECT_EQ(Zoom(SnrQM2150_OpticalZoom, 16384), 20.0);
  EXPECT_EQ(SnrQM2150_OpticalZoom(16385, &magnification), -59);
  EXPECT_EQ(magnification, kUntouched);
}

TEST(SnrQM2150ConversionsCombineZoom, ContinuesWithTheDigitalRange) {
  double magnification = kUntouched;
  EXPECT_EQ(Zoom(SnrQM2150_CombineZoom, 0), 1.0);
  EXPECT_EQ(Zoom(SnrQM2150_CombineZoom, 16384), 20.0);
  EXPECT_EQ(Zoom(SnrQM2150_CombineZoom, 20480), 30.0);
  EXPECT_EQ(Zoom(SnrQM2150_CombineZoom, 24576), 40.0);
  EXPECT_EQ(Zoom(SnrQM2150_CombineZoom, 31424), 240.0);
  EXPECT_EQ(SnrQM2150_CombineZoom(31425, &magnification), -59);
  EXPECT_EQ(magnification, kUntouched);
}

}  // namespace
