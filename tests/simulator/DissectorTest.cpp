// Messages described in words.
#include "simulator/model/Dissector.h"

#include "tests/simulator/Support.h"

namespace {

using enum sim::Direction;

class Dissector : public testing::Test {
 protected:
  std::string Said(sim::Direction direction, const std::string& body) {
    return dissector_.Meaning(Dumped(direction, Body(body)));
  }
  // A message of a dump.
  static sim::Event Dumped(sim::Direction direction, const Packet& body) { return {-1, direction, 1, 0, body, ""}; }
  // A message of an exchange.
  std::string Said(std::uint32_t exchange, sim::Direction direction, const std::string& body) {
    return dissector_.Meaning({0, direction, 1, exchange, Body(body), ""});
  }
  sim::Dissector dissector_;
};

const std::string kGetAe = "AA AA 01 0A AA 02 05 81 09 04 39 FF 89 55";
const std::string kAeReply = "AA AA 01 09 AA 82 04 90 50 03 FF EE 55";

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
  EXPECT_EQ(dissector_.Meaning(Dumped(Reply, B("AA AA 01"))), "wrong message size");
}

TEST_F(Dissector, MatchesALateReplyWithTheRequestOfItsExchange) {
  EXPECT_EQ(Said(1, Request, kGetAe), "CAM_AE?");
  EXPECT_EQ(Said(2, Request, "AA AA 01 0A AA 02 05 81 09 04 35 FF 8D 55"), "CAM_WB?");  // another run, the same id
  EXPECT_EQ(Said(1, Reply, kAeReply), "CAM_AE? → manual");
  EXPECT_EQ(Said(1, Reply, "AA AA 07 09 AA 82 04 90 50 03 FF EE 55"), "CAM_AE? → manual") << "a wrong sequence id";
  EXPECT_EQ(Said(2, Reply, kAeReply), "CAM_WB? → one push");
}

TEST_F(Dissector, KeepsTheLastRequestsOnly) {
  Said(1, Request, kGetAe);
  for (std::uint32_t i = 2; i <= sim::Dissector::kExchanges; ++i) {
    Said(i, Request, kVersion);
  }
  EXPECT_EQ(Said(1, Reply, kAeReply), "CAM_AE? → manual");
  Said(sim::Dissector::kExchanges + 1, Request, kVersion);
  EXPECT_EQ(Said(1, Reply, kAeReply), "VISCA 90 50 03 FF");
}

TEST_F(Dissector, DoesNotTakeAReportForAReply) {
  Said(1, Request, kGetAe);
  EXPECT_EQ(Said(0, Reply, "AA AA 01 06 AA 94 01 01 C0 55"), "Get Motor State → 1");
}

TEST_F(Dissector, ReadsAResultOfTheMcuAsAResult) {
  EXPECT_EQ(Said(1, Request, "AA AA 01 06 AA 10 01 01 45 55"), "Get Version (wrong checksum)");
  EXPECT_EQ(Said(1, Reply, "AA AA 01 06 AA 90 01 20 A5 55"), "Get Version → checksum error");
  EXPECT_EQ(Said(2, Request, "AA AA 01 06 AA 11 01 07 3D 55"), "Get PTZ 7");
  EXPECT_EQ(Said(2, Reply, "AA AA 01 06 AA 91 01 40 84 55"), "Get PTZ → value out of range");
  EXPECT_EQ(Said(3, Request, "AA AA 01 06 AA 14 01 02 3F 55"), "Get Motor State 2");
  EXPECT_EQ(Said(3, Reply, "AA AA 01 06 AA 94 01 40 81 55"), "Get Motor State → value out of range");
  EXPECT_EQ(Said(4, Request, kVersion), "Get Version");
  EXPECT_EQ(Said(4, Reply, "AA AA 01 06 AA 90 01 50 75 55"), "Get Version → 0x50 (or busy)");
  EXPECT_EQ(Said(5, Request, "AA AA 01 0A AA 02 05 81 09 04 39 FF 8A 55"), "CAM_AE? (wrong checksum)");
  EXPECT_EQ(Said(5, Reply, "AA AA 01 06 AA 82 01 20 B3 55"), "CAM_AE? → refused: checksum error");
}

TEST_F(Dissector, NamesAWrongCommandCode) {
  Said(1, Request, kVersion);
  EXPECT_EQ(Said(1, Reply, "AA AA 01 06 AA 10 01 21 24 55"), "Get Version → 0x21 (wrong command code)");
  Said(2, Request, kGetAe);
  EXPECT_EQ(Said(2, Reply, "AA AA 01 09 AA 02 04 90 50 03 FF 6E 55"), "CAM_AE? → manual (wrong command code)");
}

TEST_F(Dissector, NamesThePacketsOfAViscaLine) {
  const sim::Row* row = nullptr;
  EXPECT_EQ(sim::ViscaReplyText(B("90 38 FF"), nullptr), "network change: the camera has started");
  EXPECT_EQ(sim::ViscaRequestText(B("88 30 01 FF"), &row), "Address Set 1");
  EXPECT_EQ(sim::ViscaReplyText(B("88 30 02 FF"), nullptr), "Address Set 2");
  EXPECT_EQ(sim::ViscaRequestText(B("88 01 00 01 FF"), &row), "Interface Clear (to all cameras)");
  EXPECT_EQ(sim::ViscaReplyText(B("88 01 00 01 FF"), nullptr), "Interface Clear (to all cameras)");
  EXPECT_EQ(sim::ViscaRequestText(B("81 01 00 01 FF"), &row), "Interface Clear");
  EXPECT_EQ(sim::ViscaRequestText(B("88 01 04 00 02 FF"), &row), "CAM_Power on (to all cameras)");
  EXPECT_EQ(sim::ViscaRequestText(B("82 09 04 39 FF"), &row), "CAM_AE? (to camera 2)");
  EXPECT_EQ(sim::ViscaRequestText(B("81 21 FF"), &row), "Cancel socket 1");
  EXPECT_EQ(Said(1, Reply, "AA AA 00 08 AA 82 03 90 38 FF 0A 55"), "network change: the camera has started");
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
