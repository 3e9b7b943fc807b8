// Recordings, and answers from them.
#include "simulator/Capture.h"

#include <sstream>

#include "simulator/Device.h"
#include "tests/simulator/Support.h"

namespace {

using enum sim::Direction;

const char* const kRequests[] = {
    "AA AA 01 06 AA 10 01 01 44 55",                       // version
    "AA AA 01 06 AA 11 01 00 44 55",                       // Get PTZ
    "AA AA 01 0D AA 12 08 00 00 FA 00 01 2C 00 10 05 55",  // Set PTZ
    "AA AA 01 06 AA 11 01 00 44 55",                       // Get PTZ again, another answer
    "AA AA 02 0B AA 02 06 81 01 04 39 03 FF 8D 55",        // AE manual
    "AA AA 03 0A AA 02 05 81 09 04 39 FF 89 55",           // AE?
    "AA AA 04 06 AA 16 01 00 3F 55",                       // unknown
    "AB AA 05 06 AA 16 01 00 3F 55",                       // no request at all
};

// Asks everything and writes it down as the program does.
std::string Record(sim::Peer& peer, std::string* answers) {
  std::string capture;
  std::uint32_t exchange = 0;
  for (const char* request : kRequests) {
    const sim::Time now = ++exchange * 1_s;
    capture +=
        sim::CaptureLine({now, Request, 77, exchange, Body(request), peer.Request(77, Body(request), now)}, "") + "\n";
    for (sim::Time at = now; at < now + 1_s; at += 1_ms) {
      while (const auto out = peer.Take(at)) {
        capture += sim::CaptureLine({at, Reply, out->type, out->exchange, out->body, out->note}, "") + "\n";
        *answers +=
            std::to_string(exchange) + " +" + std::to_string((at - now) / 1000) + " ms: " + Hex(out->body) + "\n";
      }
    }
  }
  return capture;
}

TEST(Capture, IsOneObjectALine) {
  EXPECT_EQ(
      sim::CaptureLine({552000, Request, 13, 1, B("AA AA 01"), "late"}, "Get \"it\""),
      R"({"us":552000,"direction":"request","exchange":1,"type":13,"body":"AA AA 01","meaning":"Get \"it\"","note":"late"})");
}

TEST(Capture, ReplaysTheSameAnswersAtTheSameTimes) {
  sim::Device device{sim::Setup{}};
  std::string then;
  const std::string capture = Record(device, &then);
  EXPECT_NE(then.find("4 +"), std::string::npos);
  EXPECT_NE(then.find("00 00 FA 00 01 2C 00 10"), std::string::npos);

  std::istringstream file(capture);
  const sim::CaptureOrError read = sim::ReadCapture(file, "x.jsonl");
  ASSERT_EQ(read.error, "");
  sim::Replay replay(read.events, false);
  std::string now;
  Record(replay, &now);
  EXPECT_EQ(now, then);
}

TEST(Capture, ReplaysFaultsToo) {
  sim::Setup setup{.fast = true};
  setup.faults = {*sim::ParseFault("wrong-sequence:nth=1").fault, *sim::ParseFault("no-reply:nth=2").fault,
                  *sim::ParseFault("duplicate:nth=4").fault, *sim::ParseFault("wrong-size:nth=6,value=3").fault};
  sim::Device device(setup);
  std::string then;
  const std::string capture = Record(device, &then);
  std::istringstream file(capture);
  sim::Replay replay(sim::ReadCapture(file, "x.jsonl").events, true);
  std::string now;
  Record(replay, &now);
  EXPECT_EQ(now, then);
}

TEST(Capture, AnswersWithTodaysSequenceId) {
  std::istringstream file(
      R"({"us":0,"direction":"request","exchange":1,"type":5,"body":"AA AA 01 06 AA 10 01 01 44 55 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}
{"us":5000,"direction":"reply","exchange":1,"type":5,"body":"AA AA 01 06 AA 90 01 21 A4 55 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}
)");
  const sim::CaptureOrError read = sim::ReadCapture(file, "x.jsonl");
  ASSERT_EQ(read.error, "");
  sim::Replay replay(read.events, false);
  for (const char* id : {"01", "7F", "00"}) {
    EXPECT_EQ(replay.Request(9, Body("AA AA " + std::string(id) + " 06 AA 10 01 01 44 55"), 1_s), "");
    EXPECT_FALSE(replay.Take(1_s));
    const auto out = replay.Take(1_s + 5_ms);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->type, 9);
    EXPECT_EQ(Hex(out->body), Hex(Body("AA AA " + std::string(id) + " 06 AA 90 01 21 A4 55")));
  }
  EXPECT_EQ(replay.Request(9, Body("AA AA 01 06 AA 11 01 00 44 55"), 2_s), "not in the capture");
  EXPECT_FALSE(replay.Take(60_s));
}

TEST(Capture, IsRefusedWithItsLine) {
  for (const char* line : {"x", "{", "[]", "3", "{\"direction\":\"request\"}", "{\"direction\":\"up\",\"body\":\"AA\"}",
                           "{\"direction\":\"reply\",\"body\":\"A\"}", "{\"direction\":1,\"body\":2}"}) {
    std::istringstream file("\n" + std::string(line) + "\n");
    EXPECT_EQ(sim::ReadCapture(file, "x.jsonl").error, "x.jsonl:2: not a line of a capture") << line;
  }
}

TEST(Capture, SurvivesOddNumbers) {
  std::istringstream file(
      "{\"us\":-9223372036854775808,\"direction\":\"request\",\"exchange\":4294967295,\"type\":-1,\"body\":\"\"}\n"
      "{\"us\":9223372036854775807,\"direction\":\"reply\",\"exchange\":4294967295,\"type\":0,\"body\":\"00\"}\n"
      "{\"us\":1e400,\"direction\":\"reply\",\"exchange\":-1,\"type\":1.5,\"body\":\"00\"}\n");
  const sim::CaptureOrError read = sim::ReadCapture(file, "x.jsonl");
  sim::Replay replay(read.events, false);
  replay.Request(0, {}, 1_s);
  replay.Take(100000_s);
}

}  // namespace
