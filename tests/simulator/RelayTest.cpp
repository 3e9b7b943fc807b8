// The relay message and the frame in it.
#include "simulator/model/Relay.h"

#include "tests/simulator/Support.h"

namespace {

TEST(Relay, EncodesAFrameWithItsChecksum) {
  EXPECT_EQ(Hex(sim::Frame{0x10, {0x01}}.Encode()), "AA 10 01 01 44 55");
  EXPECT_EQ(Hex(sim::Frame{0x0C, {0x00}}.Encode()), "AA 0C 01 00 49 55");
  EXPECT_EQ(Hex(sim::Frame{0x0E, {}}.Encode()), "AA 0E 00 48 55");
}

TEST(Relay, IsReadUpToItsFirstFlaw) {
  const std::pair<const char*, sim::Flaw> bodies[] = {
      {"AA AA 01 06 AA 10 01 01 44 55", sim::Flaw::None},     {"AB AA 01 06 AA 10 01 01 44 55", sim::Flaw::Header},
      {"AA AB 01 06 AA 10 01 01 44 55", sim::Flaw::Header},   {"AA AA 01 07 AA 10 01 01 44 55", sim::Flaw::FrameLength},
      {"AA AA 01 06 AB 10 01 01 44 55", sim::Flaw::Start},    {"AA AA 01 16 AA 10 11 01 44 55", sim::Flaw::Length},
      {"AA AA 01 06 AA 10 01 01 45 55", sim::Flaw::Checksum}, {"AA AA 01 06 AA 10 01 01 44 56", sim::Flaw::Stop},
  };
  for (const auto& [body, flaw] : bodies) {
    EXPECT_EQ(sim::DecodeRelay(Body(body)).flaw, flaw) << body;
  }
  EXPECT_EQ(sim::DecodeRelay(B(kVersion)).flaw, sim::Flaw::Size);
  EXPECT_EQ(sim::DecodeRelay({}).flaw, sim::Flaw::Size);
  EXPECT_EQ(sim::DecodeRelay(Body(kSensorMode)).sequence, 5);
}

}  // namespace
