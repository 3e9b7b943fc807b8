// Frames and packets cut out of byte streams.
#include "simulator/Wire.h"

#include "tests/simulator/Support.h"

namespace {

TEST(Frame, IsEncodedWithItsChecksum) {
  EXPECT_EQ(Hex(sim::Frame{0x10, {0x01}}.Encode()), "AA 10 01 01 44 55");
  EXPECT_EQ(Hex(sim::Frame{0x0C, {0x00}}.Encode()), "AA 0C 01 00 49 55");
  EXPECT_EQ(Hex(sim::Frame{0x0E, {}}.Encode()), "AA 0E 00 48 55");
}

TEST(Relay, IsReadToItsFirstFlaw) {
  const std::pair<const char*, sim::Flaw> bodies[] = {
      {"AA AA 01 06 AA 10 01 01 44 55", sim::Flaw::None},     {"AB AA 01 06 AA 10 01 01 44 55", sim::Flaw::Header},
      {"AA AB 01 06 AA 10 01 01 44 55", sim::Flaw::Header},   {"AA AA 01 07 AA 10 01 01 44 55", sim::Flaw::FrameLength},
      {"AA AA 01 06 AB 10 01 01 44 55", sim::Flaw::Start},    {"AA AA 01 16 AA 10 11 01 44 55", sim::Flaw::Length},
      {"AA AA 01 06 AA 10 01 01 45 55", sim::Flaw::Checksum}, {"AA AA 01 06 AA 10 01 01 44 56", sim::Flaw::Stop},
  };
  for (const auto& [body, flaw] : bodies) {
    EXPECT_EQ(sim::DecodeRelay(Body(body)).flaw, flaw) << body;
  }
  EXPECT_EQ(sim::DecodeRelay(B("AA AA 01 06 AA 10 01 01 44 55")).flaw, sim::Flaw::Size);
  EXPECT_EQ(sim::DecodeRelay({}).flaw, sim::Flaw::Size);
  EXPECT_EQ(sim::DecodeRelay(Body("AA AA 07 06 AA 10 01 01 44 55")).sequence, 7);
}

std::string Frames(sim::FrameSplitter& splitter) {
  std::string text;
  while (const auto frame = splitter.Next()) {
    text += (text.empty() ? "" : " | ") + Hex(frame->Encode());
  }
  return text;
}

TEST(FrameSplitter, TakesSplitAndMergedFrames) {
  sim::FrameSplitter splitter;
  splitter.Feed(B("AA 90 01"));
  EXPECT_EQ(Frames(splitter), "");
  splitter.Feed(B("21 A4 55 AA 8C 01 10 B9 55 AA"));
  EXPECT_EQ(Frames(splitter), "AA 90 01 21 A4 55 | AA 8C 01 10 B9 55");
  splitter.Feed(B("8C 01 40 89 55"));
  EXPECT_EQ(Frames(splitter), "AA 8C 01 40 89 55");
  EXPECT_EQ(splitter.Dropped(), 0U);
}

TEST(FrameSplitter, FindsTheFrameBehindGarbage) {
  sim::FrameSplitter splitter;
  splitter.Feed(B("00 55 AA 10 FF AA 8C 01 10 B8 55 AA 8C 01 10 B9 55"));  // too long; a wrong checksum; a frame
  EXPECT_EQ(Frames(splitter), "AA 8C 01 10 B9 55");
  EXPECT_EQ(splitter.Dropped(), 11U);
}

TEST(FrameSplitter, FindsTheFrameThatAFalseStartSwallowed) {
  sim::FrameSplitter splitter;
  splitter.Feed(B("AA 33 0F AA 8C 01 10 B9 55"));  // promises fifteen bytes that never come
  EXPECT_EQ(Frames(splitter), "");
  splitter.Idle();
  EXPECT_EQ(Frames(splitter), "AA 8C 01 10 B9 55");
}

TEST(ViscaSplitter, CutsAtTheTerminator) {
  sim::ViscaSplitter splitter;
  splitter.Feed(B("00 12 FF 90 50 02 FF 90 41"));
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "90 50 02 FF");
  EXPECT_FALSE(splitter.Next());
  splitter.Feed(B("FF 90 51 FF"));
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "90 41 FF");
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "90 51 FF");
  EXPECT_EQ(splitter.Dropped(), 3U);
}

TEST(ViscaSplitter, PassesOnThatAPacketWasTooLong) {
  sim::ViscaSplitter splitter;
  splitter.Feed(Packet(100, 0x81));
  splitter.Feed(B("FF 81 09 04 00 FF"));
  EXPECT_EQ(splitter.Next().value_or(Packet{}).size(), 17U);
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "81 09 04 00 FF");
}

TEST(ViscaSplitter, ForgetsWhatTheLineDidNotFinish) {
  sim::ViscaSplitter splitter;
  splitter.Feed(B("81 09"));
  splitter.Idle();
  splitter.Feed(B("81 09 04 00 FF"));
  EXPECT_EQ(Hex(splitter.Next().value_or(Packet{})), "81 09 04 00 FF");
}

}  // namespace
