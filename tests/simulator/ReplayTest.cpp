// Answers from a capture.
#include "simulator/connect/Replay.h"

#include <sstream>

#include "simulator/connect/Capture.h"
#include "simulator/model/Device.h"
#include "tests/simulator/Support.h"

namespace {

using enum sim::Direction;

std::vector<sim::Event> Read(const std::string& capture) {
  std::istringstream file(capture);
  return sim::ReadCapture(file, "x.jsonl").events;
}

const std::string kSetPtz = "AA AA 01 0D AA 12 08 00 00 FA 00 01 2C 00 10 05 55";
const std::string kAeInquiry = "AA AA 03 0A AA 02 05 81 09 04 39 FF 89 55";
const std::string kNotARequest = "AB AA 05 06 AA 16 01 00 3F 55";
// The second kGetPtz has another answer than the first.
const std::string kRequests[] = {kVersion,  kGetPtz,    kSetPtz,      kGetPtz,
                                 kAeManual, kAeInquiry, kUnsupported, kNotARequest};

// Sends all requests and adds the answers to `answers`. Returns the capture, as the program writes it.
std::string Record(sim::Peer& peer, std::string* answers) {
  std::string capture;
  std::uint32_t exchange = 0;
  for (const std::string& request : kRequests) {
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

// Checks that a replay of the device's capture gives the device's answers.
void ExpectSameAnswers(const sim::Setup& setup) {
  sim::Device device(setup);
  std::string then;
  const std::string capture = Record(device, &then);
  EXPECT_NE(then.find("00 00 FA 00 01 2C 00 10"), std::string::npos);
  sim::Replay replay(Read(capture), setup.fast);
  std::string now;
  Record(replay, &now);
  EXPECT_EQ(now, then);
}

TEST(Replay, GivesTheSameAnswersAtTheSameTimes) { ExpectSameAnswers({}); }

TEST(Replay, RepeatsFaultsToo) {
  sim::Setup setup{.fast = true};
  for (const char* fault : {"wrong-sequence:nth=1", "no-reply:nth=2", "duplicate:nth=4", "wrong-size:nth=6,value=3"}) {
    setup.faults.push_back(sim::ParseFault(fault));
  }
  ExpectSameAnswers(setup);
}

TEST(Replay, AnswersWithTheRequestsOwnSequenceId) {
  const std::string request = Hex(Body(kVersion));
  const std::string reply = Hex(Body(kVersionReply));
  sim::Replay replay(Read(R"({"us":0,"direction":"request","exchange":1,"type":5,"body":")" + request + "\"}\n" +
                          R"({"us":5000,"direction":"reply","exchange":1,"type":5,"body":")" + reply + "\"}\n"),
                     false);
  for (const char* id : {"01", "7F", "00"}) {
    EXPECT_EQ(replay.Request(9, Body("AA AA " + std::string(id) + " 06 AA 10 01 01 44 55"), 1_s), "");
    EXPECT_FALSE(replay.Take(1_s));
    const auto out = replay.Take(1_s + 5_ms);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->type, 9);
    EXPECT_EQ(Hex(out->body), Hex(Body("AA AA " + std::string(id) + " 06 AA 90 01 21 A4 55")));
  }
  EXPECT_EQ(replay.Request(9, Body(kGetPtz), 2_s), "not in the capture");
  EXPECT_FALSE(replay.Take(60_s));
}

TEST(Replay, SurvivesOddNumbers) {
  sim::Replay replay(
      Read("{\"us\":-9223372036854775808,\"direction\":\"request\",\"exchange\":4294967295,\"type\":-1,\"body\":\"\"}\n"
           "{\"us\":9223372036854775807,\"direction\":\"reply\",\"exchange\":4294967295,\"type\":0,\"body\":\"00\"}\n"
           "{\"us\":1.5,\"direction\":\"reply\",\"exchange\":-1,\"type\":1.5,\"body\":\"00\"}\n"),
      false);
  replay.Request(0, {}, 1_s);
  replay.Take(100000_s);
}

}  // namespace
