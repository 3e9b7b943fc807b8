// The gain, dB and EV formulas and the interpolation, to the last bit.
#include "camera/Math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// --- Interpolation ---

struct Line {
  double value0, position0, value1, position1;  // two points
  double position, value;                       // a third
};

// The values are chosen so that any other order of operations, or a fused multiply-add, changes the last bit.
constexpr Line kLines[] = {
    {455.0, 15625.0, 1311.0, 22939.0, 20569.0, 0x1.026801ae18c7ep+10},
    {1501.0, 6911.0, 66.0, 8460.0, 8403.0, 0x1.db385b3a56ef0p+6},
    {161.0, 16706.0, 1219.0, 17210.0, 16945.0, 0x1.4b5aebaebaebap+9},
    {82.0, 16727.0, 706.0, 19180.0, 17423.0, 0x1.030cd6269d2b4p+8},
    {99999.0, 4096.0, 2500.0, 8192.0, 6144.0, 51249.5},  // halfway
    {2.0, 128.0, 3.0, 170.0, 128.0, 2.0},                // at the ends
    {2.0, 128.0, 3.0, 170.0, 170.0, 3.0},
    {2.0, 100.0, 3.0, 200.0, 300.0, 4.0},  // beyond the ends
    {2.0, 100.0, 3.0, 200.0, 0.0, 1.0},
    {5.0, 100.0, 5.0, 200.0, 150.0, 5.0},  // a horizontal line
};

TEST(MathInterpolationX, FollowsTheLineToTheLastBit) {
  for (const Line& line : kLines) {
    const InterpolationPoint p0{line.value0, line.position0}, p1{line.value1, line.position1};
    InterpolationPoint p{-1.0, line.position};
    EXPECT_EQ(InterpolationX(&p0, &p1, &p), 0);
    EXPECT_EQ(p.x, line.value);
    EXPECT_EQ(p.y, line.position);
  }
}

TEST(MathInterpolationY, ReversesInterpolationX) {
  for (const Line& line : kLines) {
    const InterpolationPoint p0{line.position0, line.value0}, p1{line.position1, line.value1};
    InterpolationPoint p{line.position, -1.0};
    EXPECT_EQ(InterpolationY(&p0, &p1, &p), 0);
    EXPECT_EQ(p.y, line.value);
    EXPECT_EQ(p.x, line.position);
  }
}

TEST(MathInterpolation, DoesNotCheckForEqualEndPoints) {
  const InterpolationPoint p0{1.0, 1.0}, p1{1.0, 1.0};
  InterpolationPoint p{7.0, 1.0};
  EXPECT_EQ(InterpolationX(&p0, &p1, &p), 0);
  EXPECT_TRUE(std::isnan(p.x));
  p = {1.0, 7.0};
  EXPECT_EQ(InterpolationY(&p0, &p1, &p), 0);
  EXPECT_TRUE(std::isnan(p.y));
}

// --- Gain and dB ---

TEST(MathGain2dB, TakesTheNaturalLogarithm) {
  EXPECT_EQ(Gain2dB(1.0), 0.0);
  EXPECT_DOUBLE_EQ(Gain2dB(2.0), 13.862943611198906);  // the decimal logarithm would give 6.02
  EXPECT_DOUBLE_EQ(Gain2dB(10.0), 46.05170185988092);  // the decimal logarithm would give 20
  EXPECT_DOUBLE_EQ(Gain2dB(0.5), -13.862943611198906);
  EXPECT_DOUBLE_EQ(Gain2dB(128.0), 97.04060527839233);
  EXPECT_EQ(Gain2dB(0.0), -kInfinity);
  EXPECT_TRUE(std::isnan(Gain2dB(-1.0)));
}

TEST(MathDB2Gain, IsAPowerOfTen) {
  EXPECT_EQ(dB2Gain(0.0), 1.0);
  EXPECT_DOUBLE_EQ(dB2Gain(20.0), 10.0);
  EXPECT_DOUBLE_EQ(dB2Gain(40.0), 100.0);
  EXPECT_DOUBLE_EQ(dB2Gain(-20.0), 0.1);
  EXPECT_DOUBLE_EQ(dB2Gain(6.0), 1.9952623149688795);
  EXPECT_DOUBLE_EQ(dB2Gain(-3.0), 0.7079457843841379);
  EXPECT_DOUBLE_EQ(dB2Gain(28.0), 25.118864315095795);
  EXPECT_DOUBLE_EQ(dB2Gain(-10.5), 0.29853826189179594);
  EXPECT_DOUBLE_EQ(dB2Gain(10.5), 3.3496543915782766);
}

// --- Gain levels ---

TEST(MathGain2GainLevel, HasEightLevelsPerDoubling) {
  constexpr struct {
    double gain;
    int32_t level;
  } kCases[] = {{1.0, 0},  {1.0905, 0}, {1.0906, 1}, {1.5, 4},   {2.0, 8},    {3.0, 12},   {4.0, 16},
                {5.0, 18}, {10.0, 26},  {16.0, 32},  {32.0, 40}, {100.0, 53}, {127.9, 55}, {128.5, 56}};
  for (const auto& [gain, level] : kCases) {
    int32_t got = -7;
    EXPECT_EQ(Gain2GainLevel(gain, &got), 0) << gain;
    EXPECT_EQ(got, level) << gain;
  }
}

TEST(MathGain2GainLevel, RoundsDownOneLevelAt8And64And128) {
  int32_t level = -7;
  EXPECT_EQ(Gain2GainLevel(8.0, &level), 0);
  EXPECT_EQ(level, 23);
  EXPECT_EQ(Gain2GainLevel(8.001, &level), 0);
  EXPECT_EQ(level, 24);
  EXPECT_EQ(Gain2GainLevel(64.0, &level), 0);
  EXPECT_EQ(level, 47);
  EXPECT_EQ(Gain2GainLevel(64.001, &level), 0);
  EXPECT_EQ(level, 48);
  EXPECT_EQ(Gain2GainLevel(128.0, &level), 0);
  EXPECT_EQ(level, 55);
  EXPECT_EQ(Gain2GainLevel(128.001, &level), 0);
  EXPECT_EQ(level, 56);
}

TEST(MathGain2GainLevel, RefusesAGainOutsideItsLimits) {
  for (const double gain : {std::nextafter(1.0, 0.0), std::nextafter(128.5, 200.0), 0.0, -0.0, -1.0, -100.0, 0.5, 1e300,
                            kInfinity, -kInfinity, kNaN, -kNaN}) {
    int32_t level = -7;
    EXPECT_EQ(Gain2GainLevel(gain, &level), -18) << gain;
    EXPECT_EQ(level, -7) << gain;
  }
}

TEST(MathGainLevel2Gain, KnowsEveryLevel) {
  constexpr double kGains[] = {1.0,
                               1.0905077326652577,
                               1.189207115002721,
                               1.2968395546510096,
                               1.4142135623730951,
                               1.5422108254079407,
                               1.681792830507429,
                               1.8340080864093424,
                               2.0,
                               2.1810154653305154,
                               2.378414230005442,
                               2.5936791093020193,
                               2.8284271247461903,
                               3.0844216508158815,
                               3.363585661014858,
                               3.668016172818685,
                               4.0,
                               4.362030930661031,
                               4.756828460010884,
                               5.187358218604039,
                               5.656854249492381,
                               6.168843301631763,
                               6.727171322029716,
                               7.33603234563737,
                               8.0,
                               8.724061861322062,
                               9.513656920021768,
                               10.374716437208077,
                               11.313708498984761,
                               12.337686603263526,
                               13.454342644059432,
                               14.67206469127474,
                               16.0,
                               17.448123722644123,
                               19.027313840043536,
                               20.749432874416154,
                               22.627416997969522,
                               24.675373206527052,
                               26.908685288118864,
                               29.34412938254948,
                               32.0,
                               34.896247445288246,
                               38.05462768008707,
                               41.49886574883231,
                               45.254833995939045,
                               49.350746413054104,
                               53.81737057623773,
                               58.68825876509896,
                               64.0,
                               69.79249489057649,
                               76.10925536017415,
                               82.99773149766462,
                               90.50966799187809,
                               98.70149282610821,
                               107.63474115247546,
                               117.37651753019792,
                               128.0};
  uint32_t level = 0;
  for (const double expected : kGains) {
    double gain = -7.0;
    EXPECT_EQ(GainLevel2Gain(level, &gain), 0) << level;
    EXPECT_DOUBLE_EQ(gain, expected) << level;
    ++level;
  }
  EXPECT_EQ(level, 57U);
}

TEST(MathGainLevel2Gain, RefusesALevelAbove56) {
  for (const uint32_t level : {57U, 64U, 256U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    double gain = -7.0;
    EXPECT_EQ(GainLevel2Gain(level, &gain), -18) << level;
    EXPECT_EQ(gain, -7.0) << level;
  }
}

// --- EV ---

constexpr int32_t kMost = 2147483647;
constexpr int32_t kLeast = -kMost - 1;

TEST(MathEv2Value, DoublesForEachEv) {
  EXPECT_EQ(Ev2Value(100, 0.0), 100);
  EXPECT_EQ(Ev2Value(100, 1.0), 200);
  EXPECT_EQ(Ev2Value(100, -1.0), 50);
  EXPECT_EQ(Ev2Value(-100, 3.0), -800);
  EXPECT_EQ(Ev2Value(1, 30.0), 1 << 30);
  EXPECT_EQ(Ev2Value(kLeast, -31.0), -1);
  EXPECT_EQ(Ev2Value(0, 12.0), 0);
  EXPECT_EQ(Ev2Value(kMost, 0.0), kMost);
  EXPECT_EQ(Ev2Value(kLeast, 0.0), kLeast);
  EXPECT_EQ(Ev2Value(-1, 31.0), kLeast);
}

TEST(MathEv2Value, TruncatesTowardZero) {
  EXPECT_EQ(Ev2Value(7, -1.0), 3);
  EXPECT_EQ(Ev2Value(-7, -1.0), -3);
  EXPECT_EQ(Ev2Value(10, 0.5), 14);
  EXPECT_EQ(Ev2Value(-10, 0.5), -14);
  EXPECT_EQ(Ev2Value(1000, 1.0 / 3.0), 1259);
  EXPECT_EQ(Ev2Value(1, -1.0), 0);
  EXPECT_EQ(Ev2Value(-1, -1.0), 0);
  EXPECT_EQ(Ev2Value(kMost, -1.0), 1073741823);
  EXPECT_EQ(Ev2Value(-kMost, -1.0), -1073741823);
}

TEST(MathEv2Value, SaturatesBothWays) {
  EXPECT_EQ(Ev2Value(1, 31.0), kMost);
  EXPECT_EQ(Ev2Value(1, 32.0), kMost);
  EXPECT_EQ(Ev2Value(-1, 32.0), kLeast);
  EXPECT_EQ(Ev2Value(kMost, 1e-9), kMost);
  EXPECT_EQ(Ev2Value(kLeast, 1e-9), kLeast);
  EXPECT_EQ(Ev2Value(kMost, 1.0), kMost);
  EXPECT_EQ(Ev2Value(kLeast, 1.0), kLeast);
  EXPECT_EQ(Ev2Value(3, 1e9), kMost);
  EXPECT_EQ(Ev2Value(-3, 1e9), kLeast);
  EXPECT_EQ(Ev2Value(3, -1e9), 0);
  EXPECT_EQ(Ev2Value(-3, -1e9), 0);
}

TEST(MathEv2Value, IsDefinedForInfinitiesAndNaN) {
  EXPECT_EQ(Ev2Value(1, kInfinity), kMost);
  EXPECT_EQ(Ev2Value(-1, kInfinity), kLeast);
  EXPECT_EQ(Ev2Value(5, -kInfinity), 0);
  EXPECT_EQ(Ev2Value(-5, -kInfinity), 0);
  EXPECT_EQ(Ev2Value(0, kInfinity), 0);
  EXPECT_EQ(Ev2Value(0, 1e9), 0);
  EXPECT_EQ(Ev2Value(5, kNaN), 0);
}

}  // namespace
