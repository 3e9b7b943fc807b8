// The bits of the debug level, and hex dumps.
#include "tests/fakeos/Fixtures.h"

namespace {

TEST(DebugEnable, ReturnsTheBit) {
  EXPECT_EQ(DebugEnable(15, 0x8000), 1U);
  EXPECT_EQ(DebugEnable(15, 0xFFFF7FFF), 0U);
  EXPECT_EQ(DebugEnable(0, 1), 1U);
  EXPECT_EQ(DebugEnable(31, 0x80000000), 1U);
}

TEST(DebugEnable, ABitAbove31IsZero) {
  for (uint32_t bit = 32; bit <= 255; ++bit) {
    EXPECT_EQ(DebugEnable(bit, 0xFFFFFFFF), 0U) << bit;
  }
}

TEST(DebugEnable, TheBitNumberIsItsLow8Bits) {
  EXPECT_EQ(DebugEnable(256 + 15, 0x8000), 1U);
  EXPECT_EQ(DebugEnable(0xFFFFFF00, 1), 1U);
  EXPECT_EQ(DebugEnable(0xFFFFFFFF, 0xFFFFFFFF), 0U);
}

class DebugDumpData : public Machine {
 protected:
  static constexpr uint8_t kBytes[] = {0x00, 0x01, 0x0A, 0xAA, 0xFF, 0x10, 0x20, 0x30, 0x40,
                                       0x50, 0x60, 0x70, 0x80, 0x90, 0xA0, 0xB0, 0xC0};
};

TEST_F(DebugDumpData, SixteenBytesAreOneLine) {
  EXPECT_EQ(DumpData(kBytes, 16), '\n');
  EXPECT_EQ(os.Output(), "(16): \n00 01 0A AA FF 10 20 30 40 50 60 70 80 90 A0 B0 \n");
}

TEST_F(DebugDumpData, SeventeenBytesAreTwoLines) {
  EXPECT_EQ(DumpData(kBytes, 17), '\n');
  EXPECT_EQ(os.Output(), "(17): \n00 01 0A AA FF 10 20 30 40 50 60 70 80 90 A0 B0 \nC0 \n");
}

TEST_F(DebugDumpData, ThirtySixBytesAreThreeLines) {
  const uint8_t zeros[36] = {};
  EXPECT_EQ(DumpData(zeros, 36), '\n');
  EXPECT_EQ(os.Output(),
            "(36): \n00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n00 00 00 00 \n");
}

TEST_F(DebugDumpData, OneByteIsOneLine) {
  EXPECT_EQ(DumpData(kBytes + 3, 1), '\n');
  EXPECT_EQ(os.Output(), "(1): \nAA \n");
}

TEST_F(DebugDumpData, WithoutBytesOnlyTheCountIsPrinted) {
  EXPECT_EQ(DumpData(kBytes, 0), '\n');
  EXPECT_EQ(DumpData(nullptr, 0), '\n');
  EXPECT_EQ(DumpData(kBytes, -1), '\n');
  EXPECT_EQ(DumpData(kBytes, -2147483647 - 1), '\n');
  EXPECT_EQ(os.Output(), "(0): \n(0): \n(-1): \n(-2147483648): \n");
}

}  // namespace
