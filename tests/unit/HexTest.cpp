// Bits of a word, and bytes written in hexadecimal.
#include <array>
#include <string>

#include "tests/fakeos/Fixtures.h"

namespace {

// --- Bits ---

TEST(HexSetBitUint, SetsAndClearsOneBit) {
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

TEST(HexSetBitUint, RejectsABitAbove31OrAValueAbove1) {
  uint32_t word = 0x12345678;
  EXPECT_EQ(SetBitUint(3, 2, &word), -1);
  EXPECT_EQ(SetBitUint(32, 1, &word), -1);
  EXPECT_EQ(SetBitUint(32, 0, &word), -1);
  EXPECT_EQ(SetBitUint(0xFFFFFFFF, 1, &word), -1);
  EXPECT_EQ(SetBitUint(0, 0xFFFFFFFF, &word), -1);
  EXPECT_EQ(word, 0x12345678U);
}

TEST(HexGetBitUint, ReturnsTheBit) {
  EXPECT_EQ(GetBitUint(0, 1), 1);
  EXPECT_EQ(GetBitUint(1, 1), 0);
  EXPECT_EQ(GetBitUint(31, 0x80000000), 1);
  EXPECT_EQ(GetBitUint(31, 0x7FFFFFFF), 0);
}

TEST(HexGetBitUint, ABitAbove31IsMinusOne) {
  EXPECT_EQ(GetBitUint(32, 0xFFFFFFFF), -1);
  EXPECT_EQ(GetBitUint(256, 0), -1);
  EXPECT_EQ(GetBitUint(0xFFFFFFFF, 0), -1);
}

// --- Hex texts ---

TEST(HexIsHexString, AcceptsDigitsOfBothCases) {
  for (const char* text : {"", "0a1F", "0123456789abcdefABCDEF"}) {
    EXPECT_EQ(IsHexString(text), 0) << text;
  }
}

TEST(HexIsHexString, RejectsAnyOtherCharacterAnywhere) {
  for (const char* text : {"12G4", "0x12", "+1", "-1", " 1", "1 ", "1234567g"}) {
    EXPECT_EQ(IsHexString(text), -1) << text;
  }
}

TEST(HexIsHexString, AcceptsNoOtherCharacterAlone) {
  for (int c = 1; c <= 255; ++c) {
    const char text[] = {static_cast<char>(c), 0};
    const bool digit = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
    EXPECT_EQ(IsHexString(text), digit ? 0 : -1) << c;
  }
}

TEST(HexHex2Byte, ReadsTwoCharacters) {
  EXPECT_EQ(Hex2Byte("00"), 0x00);
  EXPECT_EQ(Hex2Byte("ff"), 0xFF);
  EXPECT_EQ(Hex2Byte("A5"), 0xA5);
  EXPECT_EQ(Hex2Byte("123"), 0x12);
}

TEST(HexHex2Byte, ReadsOneCharacterOrNone) {
  EXPECT_EQ(Hex2Byte("4"), 0x04);
  EXPECT_EQ(Hex2Byte(""), 0x00);
}

TEST(HexHex2Byte, NeverReadsPastTheEnd) {
  const std::unique_ptr<char[]> one(new char[2]{'7', 0});  // a sanitizer detects a read past its end
  EXPECT_EQ(Hex2Byte(one.get()), 0x07);
  const std::unique_ptr<char[]> none(new char[1]{0});
  EXPECT_EQ(Hex2Byte(none.get()), 0x00);
}

TEST(HexHex2Byte, ReadsOtherTextAsStrtolDoes) {
  EXPECT_EQ(Hex2Byte("g1"), 0x00);
  EXPECT_EQ(Hex2Byte("1g"), 0x01);
  EXPECT_EQ(Hex2Byte("-1"), 0xFF);
}

// Expects that HexStr2Bytes returns `result` and writes these bytes at the front of its output, nothing else.
void ExpectConverted(const std::string& text, int result, const Bytes& written) {
  constexpr uint8_t kJunk = 0xEE;
  std::array<uint8_t, 17> out;
  out.fill(kJunk);
  EXPECT_EQ(HexStr2Bytes(text.c_str(), out.data()), result) << text;
  Bytes expected = written;
  expected.resize(out.size(), kJunk);
  EXPECT_THAT(out, ElementsAreArray(expected)) << text;
}

TEST(HexStr2Bytes, ConvertsTwoDigitsPerByte) { ExpectConverted("0002", 0, {0x00, 0x02}); }

TEST(HexStr2Bytes, DropsAnOddLastDigit) {
  ExpectConverted("123", 0, {0x12});
  ExpectConverted("1", 0, {});
}

TEST(HexStr2Bytes, AnEmptyTextWritesNothing) { ExpectConverted("", 0, {}); }

TEST(HexStr2Bytes, SixteenBytesFit) {
  for (const char* text : {"00112233445566778899aAbBcCdDeEfF", "00112233445566778899aAbBcCdDeEfF0"}) {
    ExpectConverted(text, 0,
                    {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF});
  }
}

TEST(HexStr2Bytes, SeventeenBytesAreRejected) {
  ExpectConverted("0011223344556677889900112233445566", -1, {});
  ExpectConverted(std::string(10000, '1'), -1, {});
}

}  // namespace
