// Messages described in words.
#include "simulator/model/Dissector.h"

#include "tests/simulator/Support.h"

namespace {

using enum sim::Direction;

class Dissector : public testing::Test {
 protected:
  std::string Said(sim::Direction direction, const std::string& body) {
    return dissector_.Meaning(direction, Body(body));
  }
  sim::Dissector dissector_;
};

TEST_F(Dissector, ReadsTheMcusMessages) {
  EXPECT_EQ(Said(Request, "AA AA 01 06 AA 10 01 01 44 55"), "Get Version");
  EXPECT_EQ(Said(Reply, "AA AA 01 06 AA 90 01 21 A4 55"), "Get Version → 0x21");
  EXPECT_EQ(Said(Request, "AA AA 02 06 AA 11 01 00 44 55"), "Get PTZ get");
  EXPECT_EQ(Said(Reply, "AA AA 02 0D AA 91 08 00 00 FA 00 01 2C 00 10 86 55"),
            "Get PTZ → pan 64000, tilt 300, zoom 16");
  EXPECT_EQ(Said(Request, "AA AA 03 06 AA 0C 01 00 49 55"), "Lens Power Control off");
  EXPECT_EQ(Said(Reply, "AA AA 03 06 AA 8C 01 10 B9 55"), "Lens Power Control off → OK");
  EXPECT_EQ(Said(Reply, "AA AA 03 06 AA 8C 01 40 89 55"), "Lens Power Control off → value out of range");
  EXPECT_EQ(Said(Request, "AA AA 04 06 AA 16 01 00 3F 55"), "unknown MCU command 0x16");
  EXPECT_EQ(Said(Reply, "AA AA 04 06 AA 96 01 30 8F 55"), "unknown MCU command 0x16 → command not defined");
}

TEST_F(Dissector, ReadsAReport) {
  EXPECT_EQ(Said(Reply, "AA AA 00 0D AA 91 08 00 00 FA 00 01 2C 00 10 86 55"),
            "Get PTZ → pan 64000, tilt 300, zoom 16");
}

TEST_F(Dissector, ReadsTheCamerasMessages) {
  EXPECT_EQ(Said(Request, "AA AA 01 0B AA 02 06 81 01 04 39 03 FF 8D 55"), "CAM_AE manual");
  EXPECT_EQ(Said(Reply, "AA AA 01 06 AA 82 01 10 C3 55"), "CAM_AE manual → acknowledged");
  EXPECT_EQ(Said(Reply, "AA AA 01 06 AA 82 01 40 93 55"), "CAM_AE manual → refused: value out of range");
  EXPECT_EQ(Said(Request, "AA AA 02 0A AA 02 05 81 09 04 39 FF 89 55"), "CAM_AE?");
  EXPECT_EQ(Said(Reply, "AA AA 02 09 AA 82 04 90 50 03 FF EE 55"), "CAM_AE? → manual");
  EXPECT_EQ(Said(Reply, "AA AA 02 09 AA 82 04 90 60 41 FF A0 55"), "CAM_AE? → command not executable");
  EXPECT_EQ(Said(Reply, "AA AA 02 08 AA 82 03 90 51 FF F1 55"), "CAM_AE? → completed (socket 1)");
  EXPECT_EQ(Said(Request, "AA AA 03 0A AA 02 05 81 09 00 02 FF C4 55"), "CAM_Version?");
  EXPECT_EQ(Said(Reply, "AA AA 03 0F AA 82 0A 90 50 00 20 07 20 01 03 02 FF 9E 55"),
            "CAM_Version? → model 0x0720, rom version 0x0103");
  EXPECT_EQ(Said(Request, "AA AA 04 0B AA 02 06 81 01 04 EE 03 FF D8 55"), "VISCA 81 01 04 EE 03 FF");
  EXPECT_EQ(Said(Request, "AA AA 00 09 AA 02 04 01 22 33 44 B6 55"), "notice 1");
}

TEST_F(Dissector, ReadsTheBlocksBitByBit) {
  Said(Request, "AA AA 01 0B AA 02 06 81 09 7E 7E 04 FF C5 55");
  EXPECT_EQ(Said(Reply, "AA AA 01 15 AA 82 10 90 50 01 0E 0D 02 00 00 00 00 00 00 00 00 00 FF C7 55"),
            "Block 4 Enlarge 2? → wdr mode on, wdr display 0x03, wdr sensitivity 0x02, wdr shadow 0x03, "
            "wdr highlight 0x01, "
            "wdr ratio 0x20");
}

TEST_F(Dissector, NamesWhatIsWrong) {
  EXPECT_EQ(Said(Reply, "AB AA 01 06 AA 90 01 21 A4 55"), "wrong relay header");
  EXPECT_EQ(Said(Reply, "AA AA 01 06 AA 90 01 21 A5 55"), "Get Version → 0x21 (wrong checksum)");
  EXPECT_EQ(dissector_.Meaning(Reply, B("AA AA 01")), "message of a wrong size");
}

TEST_F(Dissector, PutsEachMessageOnOneLine) {
  const sim::Event event{12345678, Request, 77, 3, Body("AA AA 03 06 AA 0C 01 00 49 55"), ""};
  EXPECT_EQ(dissector_.Line(event, false),
            "   12.346 request #3   AA 0C 01 00 49 55                 Lens Power Control off");
  const sim::Event noted{0, Reply, 77, 3, Body("AA AA 03 06 AA 8C 01 10 B9 55"), "fault duplicate"};
  EXPECT_EQ(dissector_.Line(noted, false),
            "    0.000 reply   #3   AA 8C 01 10 B9 55                 "
            "Lens Power Control off → OK  [fault duplicate]");
  EXPECT_NE(dissector_.Line(event, true).find("\x1b["), std::string::npos);
}

}  // namespace
