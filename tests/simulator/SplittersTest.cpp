// Frames and packets cut out of byte streams.
#include "simulator/connect/Splitters.h"

#include "tests/simulator/Support.h"

namespace {

constexpr std::size_t kMostOfAPacket = 16;

std::string Frames(sim::FrameSplitter& splitter) {
  std::string text;
  while (const auto frame = splitter.Next()) {
    text += (text.empty() ? "" : " | ") + Hex(frame->Encode());
  }
  return text;
}

TEST(Splitters, AcceptSplitAndMergedFrames) {
  sim::FrameSplitter splitter;
  splitter.Feed(B("AA 90 01"));
  EXPECT_EQ(Frames(splitter), "");
  splitter.Feed(B("21 A4 55 AA 8C 01 10 B9 55 AA"));
  EXPECT_EQ(Frames(splitter), "AA 90 01 21 A4 55 | AA 8C 01 10 B9 55");
  splitter.Feed(B("8C 01 40 89 55"));
  EXPECT_EQ(Frames(splitter), "AA 8C 01 40 89 55");
  EXPECT_EQ(splitter.Dropped(), 0U);
}

TEST(Splitters, FindAFrameAfterGarbage) {
  sim::FrameSplitter splitter;
  splitter.Feed(B("00 55 AA 10 FF AA 8C 01 10 B8 55 AA 8C 01 10 B9 55"));  // too long; a wrong checksum; a frame
  EXPECT_EQ(Frames(splitter), "AA 8C 01 10 B9 55");
  EXPECT_EQ(splitter.Dropped(), 11U);
}

TEST(Splitters, FindAFrameAfterAFalseStartWhenTheLineIsSilent) {
  sim::FrameSplitter splitter;
  splitter.Feed(B("AA 33 0F AA 8C 01 10 B9 55"));  // announces fifteen bytes that never come
  EXPECT_EQ(Frames(splitter), "");
  splitter.Idle();
  EXPECT_EQ(Frames(splitter), "AA 8C 01 10 B9 55");
}

TEST(Splitters, CutPacketsAtTheirEnd) {
  sim::ViscaSplitter splitter;
  splitter.Feed(B("00 12 FF 90 50 02 FF 90 41"));
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "90 50 02 FF");
  EXPECT_FALSE(splitter.Next());
  splitter.Feed(B("FF 90 51 FF"));
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "90 41 FF");
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "90 51 FF");
  EXPECT_EQ(splitter.Dropped(), 3U);
}

TEST(Splitters, PassOnAPacketThatIsTooLong) {
  sim::ViscaSplitter splitter;
  splitter.Feed(Packet(100, 0x81));
  splitter.Feed(B("FF 81 09 04 00 FF"));
  EXPECT_EQ(splitter.Next().value_or(Packet{}).size(), kMostOfAPacket + 1);
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "81 09 04 00 FF");
}

TEST(Splitters, DropAnIncompletePacketWhenTheLineIsSilent) {
  sim::ViscaSplitter splitter;
  splitter.Feed(B("81 09"));
  splitter.Idle();
  splitter.Feed(B("81 09 04 00 FF"));
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "81 09 04 00 FF");
}

}  // namespace
