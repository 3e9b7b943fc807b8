#include <array>
#include <string>

#include "tests/fakeos/Fixtures.h"

namespace {

// --- Bits ---

TEST(SetBitUint, SetsAndClearsOneBit) {
  uint32_t word = 0;
  EXPECT_EQ(SetBitUint(0, 1, &word), 0);
  EXPECT_EQ(word, 0x00000001U);
  EXPECT_EQ(SetBitUint(31, 1, &word), 0);
  EXPECT_EQ(word, 0x80000001U);
  EXPECT_EQ(SetBitUint(31, 1, &word), 0);
  EXPECT_EQ(word, 0x80000001U);
  EXPECT_EQ(SetBitUint(0, 0, &word), 0);
  EXPECT_EQ(word, 0x80000000U);
  word = 0xFFFFFFFF;
  EXPECT_EQ(SetBitUint(15, 0, &word), 0);
  EXPECT_EQ(word, 0xFFFF7FFFU);
}

TEST(SetBitUint, RefusesABitAbove31OrAValueAbove1) {
  uint32_t word = 0x12345678;
  EXPECT_EQ(SetBitUint(3, 2, &word), -1);
  EXPECT_EQ(SetBitUint(32, 1, &word), -1);
  EXPECT_EQ(SetBitUint(32, 0, &word), -1);
  EXPECT_EQ(SetBitUint(0xFFFFFFFF, 1, &word), -1);
  EXPECT_EQ(SetBitUint(0, 0xFFFFFFFF, &word), -1);
  EXPECT_EQ(word, 0x12345678U);
}

TEST(GetBitUint, TellsTheBit) {
  EXPECT_EQ(GetBitUint(0, 1), 1);
  EXPECT_EQ(GetBitUint(1, 1), 0);
  EXPECT_EQ(GetBitUint(31, 0x80000000), 1);
  EXPECT_EQ(GetBitUint(31, 0x7FFFFFFF), 0);
}

TEST(GetBitUint, ABitAbove31IsMinusOne) {
  EXPECT_EQ(GetBitUint(32, 0xFFFFFFFF), -1);
  EXPECT_EQ(GetBitUint(256, 0), -1);
  EXPECT_EQ(GetBitUint(0xFFFFFFFF, 0), -1);
}

// --- Hex texts ---

TEST(IsHexString, AcceptsDigitsOfBothCases) {
  EXPECT_EQ(IsHexString(""), 0);
  EXPECT_EQ(IsHexString("0a1F"), 0);
  EXPECT_EQ(IsHexString("0123456789abcdefABCDEF"), 0);
}

TEST(IsHexString, RefusesAnyOtherCharacterAnywhere) {
  EXPECT_EQ(IsHexString("12G4"), -1);
  EXPECT_EQ(IsHexString("0x12"), -1);
  EXPECT_EQ(IsHexString("+1"), -1);
  EXPECT_EQ(IsHexString("-1"), -1);
  EXPECT_EQ(IsHexString(" 1"), -1);
  EXPECT_EQ(IsHexString("1 "), -1);
  EXPECT_EQ(IsHexString("1234567g"), -1);
}

TEST(IsHexString, KnowsEveryCharacter) {
  int accepted = 0;
  for (int c = 1; c <= 255; ++c) {
    const char text[] = {static_cast<char>(c), 0};
    const bool digit = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
    EXPECT_EQ(IsHexString(text), digit ? 0 : -1) << c;
    accepted += IsHexString(text) == 0;
  }
  EXPECT_EQ(accepted, 22);
}

TEST(Hex2Byte, ReadsTwoCharacters) {
  EXPECT_EQ(Hex2Byte("00"), 0x00);
  EXPECT_EQ(Hex2Byte("ff"), 0xFF);
  EXPECT_EQ(Hex2Byte("A5"), 0xA5);
  EXPECT_EQ(Hex2Byte("123"), 0x12);
}

TEST(Hex2Byte, ReadsOneCharacterOrNone) {
  EXPECT_EQ(Hex2Byte("4"), 0x04);
  EXPECT_EQ(Hex2Byte(""), 0x00);
}

TEST(Hex2Byte, NeverReadsPastTheText) {
  const std::unique_ptr<char[]> one(new char[2]{'7', 0});  // the sanitizer watches its end
  EXPECT_EQ(Hex2Byte(one.get()), 0x07);
  const std::unique_ptr<char[]> none(new char[1]{0});
  EXPECT_EQ(Hex2Byte(none.get()), 0x00);
}

TEST(Hex2Byte, ReadsWhatItWasNotMadeForAsStrtolDoes) {
  EXPECT_EQ(Hex2Byte("g1"), 0x00);
  EXPECT_EQ(Hex2Byte("1g"), 0x01);
  EXPECT_EQ(Hex2Byte("-1"), 0xFF);
}

struct Converted {
  int result;
  std::array<uint8_t, 17> bytes;
};

Converted Convert(const char* text) {
  Converted converted;
  converted.bytes.fill(0xEE);
  converted.result = HexStr2Bytes(text, converted.bytes.data());
  return converted;
}

constexpr uint8_t E = 0xEE;  // not written

TEST(HexStr2Bytes, TakesTwoDigitsAByte) {
  const Converted converted = Convert("0002");
  EXPECT_EQ(converted.result, 0);
  EXPECT_THAT(converted.bytes, ElementsAre(0x00, 0x02, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E));
}

TEST(HexStr2Bytes, DropsAnOddLastDigit) {
  EXPECT_EQ(Convert("123").result, 0);
  EXPECT_THAT(Convert("123").bytes, ElementsAre(0x12, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E));
  EXPECT_EQ(Convert("1").result, 0);
  EXPECT_THAT(Convert("1").bytes, testing::Each(E));
}

TEST(HexStr2Bytes, AnEmptyTextGivesNothing) {
  EXPECT_EQ(Convert("").result, 0);
  EXPECT_THAT(Convert("").bytes, testing::Each(E));
}

TEST(HexStr2Bytes, SixteenBytesFit) {
  for (const char* text : {"00112233445566778899aAbBcCdDeEfF", "00112233445566778899aAbBcCdDeEfF0"}) {
    EXPECT_EQ(Convert(text).result, 0);
    EXPECT_THAT(Convert(text).bytes, ElementsAre(0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB,
                                                 0xCC, 0xDD, 0xEE, 0xFF, E));
  }
}

TEST(HexStr2Bytes, SeventeenBytesAreRefused) {
  EXPECT_EQ(Convert("0011223344556677889900112233445566").result, -1);
  EXPECT_THAT(Convert("0011223344556677889900112233445566").bytes, testing::Each(E));
  EXPECT_EQ(Convert(std::string(10000, '1').c_str()).result, -1);
  EXPECT_THAT(Convert(std::string(10000, '1').c_str()).bytes, testing::Each(E));
}

}  // namespace
