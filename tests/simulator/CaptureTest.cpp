// The lines of a capture, written and read.
#include "simulator/connect/Capture.h"

#include <sstream>

#include "tests/simulator/Support.h"

namespace {

using enum sim::Direction;

TEST(Capture, IsOneObjectPerLine) {
  EXPECT_EQ(sim::CaptureLine({552000, Request, 13, 1, B("AA AA 01"), "late"}, "Get \"it\""),
            R"({"us":552000,"direction":"request","exchange":1,"type":13,"body":"AA AA 01",)"
            R"("meaning":"Get \"it\"","note":"late"})");
}

TEST(Capture, IsRejectedWithTheLine) {
  for (const char* line : {"x", "{", "[]", "3", "{\"direction\":\"request\"}", "{\"direction\":\"up\",\"body\":\"AA\"}",
                           "{\"direction\":\"reply\",\"body\":\"A\"}", "{\"direction\":1,\"body\":2}",
                           "{\"us\":1e400,\"direction\":\"reply\",\"body\":\"00\"}"}) {
    std::istringstream file("\n" + std::string(line) + "\n");
    EXPECT_EQ(ErrorOf([&file] { sim::ReadCapture(file, "x.jsonl"); }), "x.jsonl:2: not a line of a capture") << line;
  }
}

const std::string kMessage = sim::CaptureLine({5, Request, 1, 1, B("AA"), ""}, "") + "\n";

sim::Recording Read(const std::string& text) {
  std::istringstream file(text);
  return sim::ReadCapture(file, "x.jsonl");
}

TEST(Capture, BeginsWithAHeader) {
  const std::string header = sim::CaptureHeader({"simZR4410 1.2", 1795000000123456, {"--fast", "\"\n"}, "seed = 1\n"});
  EXPECT_EQ(header, R"({"capture":1,"program":"simZR4410 1.2","started":"2026-11-18T11:06:40.123Z",)"
                    R"("setup":{"arguments":["--fast","\"\n"],"scenario":"seed = 1\n"}})");
  const sim::Recording recording = Read(header + "\n" + kMessage + header + "\n" + kMessage);
  EXPECT_EQ(recording.events.size(), 2U);
  EXPECT_TRUE(recording.warnings.empty());
}

TEST(Capture, NeedsNoHeader) {
  const sim::Recording recording = Read(kMessage);
  ASSERT_EQ(recording.events.size(), 1U);
  EXPECT_EQ(recording.events[0].time, 5);
  EXPECT_TRUE(recording.warnings.empty());
}

TEST(Capture, OfAnotherFormatIsRejected) {
  EXPECT_EQ(ErrorOf([] { Read("{\"capture\":2}\n"); }), "x.jsonl:1: unknown capture format 2");
}

TEST(Capture, ReportsHowManyMessagesAreMissing) {
  EXPECT_EQ(sim::CaptureGap(312), R"({"lost":312})");
  const sim::Recording recording = Read(kMessage + sim::CaptureGap(312) + "\n" + kMessage);
  EXPECT_EQ(recording.events.size(), 2U);
  EXPECT_EQ(recording.warnings, std::vector<std::string>{"x.jsonl:2: 312 messages are missing here"});
}

TEST(Capture, MayBeCutOffAnywhereInItsLastLine) {
  for (std::size_t size = 1; size + 2 < kMessage.size(); ++size) {
    const sim::Recording recording = Read(kMessage + kMessage.substr(0, size));
    EXPECT_EQ(recording.events.size(), 1U);
    EXPECT_EQ(recording.warnings, std::vector<std::string>{"x.jsonl:2: the last line is cut off and is left out"});
  }
  EXPECT_EQ(Read(kMessage + kMessage.substr(0, kMessage.size() - 1)).events.size(), 2U) << "only the line feed";
  const std::string header = sim::CaptureHeader({});
  for (std::size_t size = 1; size < header.size(); ++size) {
    const sim::Recording recording = Read(header.substr(0, size));
    EXPECT_TRUE(recording.events.empty());
    EXPECT_EQ(recording.warnings, std::vector<std::string>{"x.jsonl:1: the last line is cut off and is left out"});
  }
  EXPECT_EQ(ErrorOf([] { Read("no capture"); }), "x.jsonl:1: not a line of a capture");
}

}  // namespace
