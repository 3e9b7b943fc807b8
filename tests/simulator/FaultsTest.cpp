// Faults: what each does to a reply, when it strikes, and how wrong ones are rejected.
#include "simulator/model/Faults.h"

#include <algorithm>
#include <set>

#include "tests/simulator/Support.h"

namespace {

sim::Setup With(std::initializer_list<std::string_view> faults) {
  sim::Setup setup{.fast = true};
  for (const std::string_view text : faults) {
    setup.faults.push_back(sim::ParseFault(text));
  }
  return setup;
}

// "x" for each request that is answered, "-" for each that is not.
std::string Answered(const sim::Setup& setup, int requests) {
  DeviceStory story(setup);
  std::string answered;
  for (int i = 0; i < requests; ++i) {
    answered += story.Ask(kVersion).empty() ? '-' : 'x';
  }
  return answered;
}

struct FaultCase {
  const char* name;
  const char* fault;
  std::string request;
  std::string answer;
};

const FaultCase kExamples[] = {
    {"NoReply", "no-reply", kVersion, ""},
    {"Duplicate", "duplicate", kVersion, kVersionReply + " | " + kVersionReply},
    {"StaleFirst", "stale-first", kVersion, "AA AA 00 06 AA 90 01 21 A4 55 | AA AA 01 06 AA 90 01 21 A4 55"},
    {"WrongSequence", "wrong-sequence", kVersion, "AA AA 02 06 AA 90 01 21 A4 55"},
    {"WrongSequenceByMany", "wrong-sequence:value=0xFF", kVersion, "AA AA 00 06 AA 90 01 21 A4 55"},
    {"WrongHeader", "wrong-header", kVersion, "55 AA 01 06 AA 90 01 21 A4 55"},
    {"WrongCode", "wrong-code", kVersion, "AA AA 01 06 AA 10 01 21 24 55"},
    {"BadChecksum", "bad-checksum", kVersion, "AA AA 01 06 AA 90 01 21 A5 55"},
    {"BadStart", "bad-start", kVersion, "AA AA 01 06 00 90 01 21 A4 55"},
    {"BadStop", "bad-stop:value=0x56", kVersion, "AA AA 01 06 AA 90 01 21 A4 56"},
    {"Truncated", "truncated", kVersion, "AA AA 01 03 AA 90 01"},
    {"OverLong", "over-long:value=17", kVersion,
     "AA AA 01 16 AA 90 11 21 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 94 55"},
    {"WrongSizeLong", "wrong-size", kVersion, "AA AA 01 06 AA 90 01 21 A4 55 (40 bytes)"},
    {"WrongSizeShort", "wrong-size:value=9", kVersion, "AA AA 01 06 AA 90 01 21 A4 (9 bytes)"},
    {"ShortReply", "short-reply", kSensorMode, "AA AA 05 09 AA 82 04 90 50 00 FF F1 55"},
    {"ShortMcuReply", "short-reply", kVersion, "AA AA 01 05 AA 90 00 C6 55"},
    {"LongReply", "long-reply", kSensorMode, "AA AA 05 0B AA 82 06 90 50 00 06 00 FF E9 55"},
    {"NakForACommand", "nak", kAeManual, "AA AA 09 06 AA 82 01 40 93 55"},
    {"NakForTheMcu", "nak:value=0x50", kVersion, "AA AA 01 06 AA 90 01 50 75 55"},
    {"ViscaLength", "visca-length", kSensorMode, "AA AA 05 09 AA 82 04 90 60 01 FF E0 55"},
    {"ViscaSyntax", "visca-syntax", kSensorMode, "AA AA 05 09 AA 82 04 90 60 02 FF DF 55"},
    {"ViscaBufferFull", "visca-buffer-full", kSensorMode, "AA AA 05 09 AA 82 04 90 60 03 FF DE 55"},
    {"ViscaCancelled", "visca-cancelled", kSensorMode, "AA AA 05 09 AA 82 04 90 60 04 FF DD 55"},
    {"ViscaNoSocket", "visca-no-socket", kSensorMode, "AA AA 05 09 AA 82 04 90 60 05 FF DC 55"},
    {"ViscaNotExecutable", "visca-not-executable", kSensorMode, "AA AA 05 09 AA 82 04 90 60 41 FF A0 55"},
    {"ViscaOther", "visca-error:value=0x7F", kSensorMode, "AA AA 05 09 AA 82 04 90 60 7F FF 62 55"},
    {"SocketNumber", "socket-number:value=2", kSensorMode, "AA AA 05 0A AA 82 05 90 52 00 06 FF E8 55"},
    {"PowerLoss", "power-loss", kSensorMode, ""},
    {"DaemonAway", "daemon-away:ms=1500", kVersion, "leaves for 1500 ms"},
    {"DaemonRestart", "daemon-restart", kVersion, "restarts for 100 ms"},
};

class FaultsExamples : public testing::TestWithParam<FaultCase> {};

TEST_P(FaultsExamples, ChangeTheReply) {
  const FaultCase& one = GetParam();
  EXPECT_EQ(DeviceStory(With({one.fault})).Ask(one.request), one.answer);
}

INSTANTIATE_TEST_SUITE_P(Rows, FaultsExamples, testing::ValuesIn(kExamples),
                         [](const testing::TestParamInfo<FaultCase>& one) { return std::string(one.param.name); });

TEST(Faults, DelayTheReply) {
  DeviceStory story(With({"late:ms=400"}));
  EXPECT_EQ(story.Ask(kVersion), "");
  EXPECT_EQ(story.Later(399_ms), "");
  EXPECT_EQ(story.Later(1_ms), kVersionReply);
}

TEST(Faults, LeaveTheCameraSilentAfterALossOfPower) {
  sim::Setup setup = With({"power-loss:nth=1,ms=500"});
  setup.fast = false;
  DeviceStory story(setup);
  EXPECT_EQ(story.Ask(kSensorMode), "");
  EXPECT_EQ(story.Later(3499_ms), "");
  EXPECT_EQ(story.Ask(kSensorMode), "");  // off for 500 ms, waking up for 3000
  EXPECT_EQ(story.note_, "camera silent");
  EXPECT_EQ(story.Later(1_ms), "");
  story.Ask(kSensorMode);
  EXPECT_EQ(story.Later(50_ms), kSensorModeReply);
}

TEST(Faults, StrikeOnTheListedMessages) { EXPECT_EQ(Answered(With({"no-reply:nth=2+4"}), 6), "x-x-xx"); }

TEST(Faults, StrikeEveryThirdTime) { EXPECT_EQ(Answered(With({"no-reply:every=3"}), 7), "xx-xx-x"); }

TEST(Faults, CountOnlyTheMessagesOfTheirFilter) {
  DeviceStory story(With({"no-reply:only=camera,nth=2"}));
  EXPECT_EQ(story.Ask(kSensorMode), kSensorModeReply);
  EXPECT_EQ(story.Ask(kVersion), kVersionReply);
  EXPECT_EQ(story.Ask(kSensorMode), "");
  EXPECT_EQ(story.Ask(kSensorMode), kSensorModeReply);
}

TEST(Faults, FilterCommandsInquiriesAndTheMcu) {
  DeviceStory mcu(With({"no-reply:only=mcu"}));
  EXPECT_EQ(mcu.Ask(kVersion), "");
  EXPECT_EQ(mcu.Ask(kSensorMode), kSensorModeReply);
  DeviceStory commands(With({"no-reply:only=commands"}));
  EXPECT_EQ(commands.Ask(kAeManual), "");
  EXPECT_EQ(commands.Ask(kSensorMode), kSensorModeReply);
  DeviceStory inquiries(With({"no-reply:only=inquiries"}));
  EXPECT_EQ(inquiries.Ask(kAeManual), kAcknowledged);
  EXPECT_EQ(inquiries.Ask(kSensorMode), "");
}

TEST(Faults, CanBeFilteredByBytes) {
  DeviceStory story(With({"no-reply:match=09 04 24"}));
  EXPECT_EQ(story.Ask(kSensorMode), "");
  EXPECT_EQ(story.Ask(kAeManual), kAcknowledged);
}

TEST(Faults, StrikeBySeededChance) {
  sim::Setup setup = With({"no-reply:chance=0.3"});
  const std::string first = Answered(setup, 1000);
  EXPECT_EQ(Answered(setup, 1000), first);
  const auto lost = std::count(first.begin(), first.end(), '-');
  EXPECT_GT(lost, 250);
  EXPECT_LT(lost, 350);
  setup.seed = 2;
  EXPECT_NE(Answered(setup, 1000), first);
}

TEST(Faults, NeverStrikeWithChance0AndAlwaysWithChance1) {
  EXPECT_EQ(Answered(With({"no-reply:chance=0"}), 100), std::string(100, 'x'));
  EXPECT_EQ(Answered(With({"no-reply:chance=1"}), 100), std::string(100, '-'));
}

TEST(Faults, StrikeInTheirOrder) {
  DeviceStory story(With({"no-reply:nth=2", "nak"}));
  EXPECT_EQ(story.Ask(kVersion), "AA AA 01 06 AA 90 01 40 85 55");
  EXPECT_EQ(story.Ask(kVersion), "");
}

TEST(Faults, AreRejectedWithTheReason) {
  const std::pair<const char*, const char*> wrong[] = {
      {"", "unknown fault ''"},
      {"lost", "unknown fault 'lost'"},
      {"late:3", "'3' is not key=value"},
      {"late:when=3", "unknown key 'when'"},
      {"late:nth=0", "nth must be message numbers from 1, such as 3 or 3+5, not '0'"},
      {"late:nth=", "nth must be message numbers from 1, such as 3 or 3+5, not ''"},
      {"late:nth=2+x", "nth must be message numbers from 1, such as 3 or 3+5, not '2+x'"},
      {"late:every=0", "every must be a whole number from 1, not '0'"},
      {"late:chance=1.5", "chance must be a number from 0 to 1, not '1.5'"},
      {"late:chance=nan", "chance must be a number from 0 to 1, not 'nan'"},
      {"late:only=lens", "only must be one of all, camera, mcu, commands, inquiries, not 'lens'"},
      {"late:match=0", "match must be bytes in hexadecimal, not '0'"},
      {"late:ms=-1", "ms must be a whole number of milliseconds, one day at most, not '-1'"},
      {"late:value=1", "fault late has no value"},
      {"nak:ms=1", "fault nak has no ms"},
      {"nak:value=256", "value must be a number from 0 to 255, not '256'"},
      {"over-long:value=28", "value must be a number from 0 to 27, not '28'"},
  };
  for (const auto& [text, error] : wrong) {
    EXPECT_EQ(ErrorOf([&text = text] { sim::ParseFault(text); }), error);
  }
}

TEST(Faults, HaveAnExampleEach) {
  const std::set<std::string_view> tested_below = {"late"};
  for (const sim::FaultKind& kind : sim::FaultTable()) {
    const bool shown = std::ranges::any_of(
        kExamples, [&kind](const FaultCase& one) { return sim::ParseFault(one.fault).kind == &kind; });
    EXPECT_TRUE(shown || tested_below.contains(kind.name)) << "no example of " << kind.name;
  }
}

// Under every fault, the device survives any bytes.
TEST(Faults, SurviveAnyBytes) {
  std::uint32_t random = 7;
  const auto next = [&random] { return static_cast<std::uint8_t>((random = random * 1664525 + 1013904223) >> 24); };
  for (const sim::FaultKind& kind : sim::FaultTable()) {
    sim::Setup setup = With({kind.name});
    setup.sockets = true;
    DeviceStory story(setup);
    for (int i = 0; i < 2000; ++i) {
      Packet data(next() % 18);
      std::ranges::generate(data, next);
      if (data.size() > 1) {
        data[0] = 0x81;
        data[1] = 0x01 + (next() & 8);
      }
      const std::uint8_t code = (next() & 1) != 0 ? sim::kCameraCode : next();
      Packet body = sim::EncodeRelay(1, sim::Frame{code, data}.Encode());
      body.resize(next() == 0 ? next() % 40 : kMessageSize);
      story.device_.Request(DeviceStory::kType, body, story.now_);
      story.now_ += 10_s;
      story.device_.Advance(story.now_);
      while (story.device_.Take(story.now_)) {
      }
    }
  }
}

}  // namespace
