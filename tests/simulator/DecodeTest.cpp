// Messages read from a dump of the tool.
#include "simulator/connect/Decode.h"

#include <sstream>

#include "tests/simulator/Support.h"

namespace {

constexpr const char* kDump =
    "[testZR4410] client msgsnd:\n"
    "(36): \n"
    "4D 00 00 00 AA AA 01 06 AA 11 01 00 44 55 00 00 \n"
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
    "00 00 00 00 \n"
    "[testZR4410] client msgrcv:\n"
    "(40): \n"
    "4D 00 00 00 AA AA 01 0D AA 91 08 00 00 FA 00 01 \n"
    "2C 00 10 86 55 00 00 00 00 00 00 00 00 00 00 00 \n"
    "00 00 00 00 00 00 00 00 \n"
    "[testZR4410] MCU_GetPTZ:\n"
    "(8): \n"
    "00 00 FA 00 01 2C 00 10 \n"
    "Pan = 64000, Tilt = 300, Zoom = 16\n";

std::string Decoded(const std::string& dump) {
  std::istringstream in(dump);
  std::ostringstream out;
  sim::Decode(in, out, false);
  return out.str();
}

TEST(Decode, ReadsADumpOfTheTool) {
  EXPECT_EQ(Decoded(kDump),
            "request #1   AA 11 01 00 44 55                 Get PTZ get\n"
            "reply   #1   AA 91 08 00 00 FA 00 01 2C 00 10 86 55  Get PTZ → pan 64000, tilt 300, zoom 16\n");
}

TEST(Decode, SkipsWhatIsNotADump) {
  EXPECT_EQ(Decoded(""), "");
  EXPECT_EQ(Decoded("Version = 0x21\n(13): \n00 01\n"), "");
  EXPECT_EQ(Decoded("[testZR4410] client msgsnd:\n(36): \n4D 00 XX\n"), "");
}

TEST(Decode, ReadsTheWholeFrameOfACutDump) {
  const std::string reply = "[testZR4410] client msgrcv:\n(40): \n4D 00 00 00 AA AA 01 06 AA 90 01 21 A4 55 00 00 \n";
  const std::string line = "reply   #1   AA 90 01 21 A4 55                 Get Version → 0x21  [cut]\n";
  EXPECT_EQ(Decoded(reply), line);
  EXPECT_EQ(Decoded(reply + "Terminated\n"), line);
  EXPECT_EQ(Decoded(reply + reply), line + line);
  EXPECT_EQ(Decoded(reply.substr(0, reply.find("A4"))), "");
}

TEST(Decode, ReadsOnAfterACutDump) {
  const std::string dump = kDump;
  for (std::size_t cut = 0; cut < dump.size(); ++cut) {
    const std::string text = Decoded(dump.substr(0, cut) + "\n" + dump);
    EXPECT_NE(text.find("pan 64000, tilt 300, zoom 16\n"), std::string::npos) << cut;
  }
}

}  // namespace
