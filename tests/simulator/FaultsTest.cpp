// Faults: what each does to a reply, when it strikes, and how invalid ones are rejected.
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
    {"Tail", "tail:value=0x01", kVersion,
     "AA AA 01 06 AA 90 01 21 A4 55 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01"},
    {"PatchOfTheRelayHeader", "patch:at=3,value=7", kVersion, "AA AA 01 07 AA 90 01 21 A4 55"},
    {"PatchOfADataByte", "patch:at=7,value=0x22", kVersion, "AA AA 01 06 AA 90 01 22 A3 55"},
    {"PatchOfBits", "patch:at=7,xor=0x81", kVersion, "AA AA 01 06 AA 90 01 A0 25 55"},
    {"PatchOfTheTerminator", "patch:at=-3,value=0xFE", kSensorMode, "AA AA 05 0A AA 82 05 90 50 00 06 FE EB 55"},
    {"PatchOfTheChecksum", "patch:at=-2,xor=1", kVersion, "AA AA 01 06 AA 90 01 21 A5 55"},
    {"PatchOfTheStopByte", "patch:at=-1,value=0", kVersion, "AA AA 01 06 AA 90 01 21 A4"},
    {"PatchOfTheLastByte", "patch:at=35,value=1", kVersion,
     "AA AA 01 06 AA 90 01 21 A4 55 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01"},
    {"PatchBeforeTheMessage", "patch:at=-11,value=1", kVersion, kVersionReply},
    {"PatchThatInserts", "patch:at=2,insert=01 02", kVersion, "AA AA 01 02 01 06 AA 90 01 21 A4 55"},
    {"PatchThatCuts", "patch:at=2,cut=2", kVersion, "AA AA AA 90 01 21 A4 55"},
    {"PatchThatReplaces", "patch:cut=2,insert=55 55,xor=1", kVersion, "54 55 01 06 AA 90 01 21 A4 55"},
    {"PatchThatCutsAll", "patch:cut=36,value=3", kVersion, "03 00 00 00"},
    {"PatchThatInsertsAtTheEnd", "patch:at=35,insert=01 02", kVersion,
     "AA AA 01 06 AA 90 01 21 A4 55 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01"},
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

TEST(Faults, StrikeNotMoreThanCountTimes) {
  EXPECT_EQ(Answered(With({"no-reply:count=2"}), 5), "--xxx");
  EXPECT_EQ(Answered(With({"no-reply:every=2,count=2"}), 8), "x-x-xxxx");
}

// "x" for each request whose reply is changed, "-" for any other; then how often the first fault has struck.
std::string Changed(const std::string& fault, const std::vector<std::pair<std::string, std::string>>& exchanges) {
  DeviceStory story(With({fault}));
  std::string changed;
  for (const auto& [request, reply] : exchanges) {
    const bool good = story.Ask(request) == reply;
    EXPECT_EQ(story.note_.find("fault") == std::string::npos, good) << story.note_;
    changed += good ? '-' : 'x';
  }
  return changed + " " + std::to_string(story.device_.Faults().at(0).struck);
}

TEST(Faults, StrikeOnlyIfTheyChangeSomething) {
  const std::pair<std::string, std::string> version(kVersion, kVersionReply);     // a frame of 6 bytes
  const std::pair<std::string, std::string> position(kGetPtz, kGetPtzReply);      // 13 bytes
  const std::pair<std::string, std::string> mode(kSensorMode, kSensorModeReply);  // from the camera
  EXPECT_EQ(Changed("patch:at=-11,value=1,count=1", {version, position, position}), "-x- 1");
  EXPECT_EQ(Changed("patch:at=7,value=0x21", {version, position}), "-x 1");
  EXPECT_EQ(Changed("patch:at=30,cut=2", {version}), "- 0");
  EXPECT_EQ(Changed("tail:value=0", {version}), "- 0");
  EXPECT_EQ(Changed("socket-number:count=1", {version, mode}), "-x 1");
  EXPECT_EQ(Changed("short-reply", {{kSupplyOff, "AA AA 01 06 AA 8C 01 10 B9 55"}, {kSensorMode, ""}}), "x- 1");
}

TEST(Faults, StrikeInTheirTime) {
  DeviceStory story(With({"no-reply:from_ms=100,until_ms=300,nth=1+3"}));
  story.device_.Start(story.now_);
  EXPECT_EQ(story.Ask(kVersion), kVersionReply);  // not counted
  EXPECT_EQ(story.Later(99_ms), "");
  EXPECT_EQ(story.Ask(kVersion), kVersionReply);
  EXPECT_EQ(story.Later(1_ms), "");
  EXPECT_EQ(story.Ask(kVersion), "");
  EXPECT_EQ(story.Ask(kVersion), kVersionReply);
  EXPECT_EQ(story.Later(199_ms), "");
  EXPECT_EQ(story.Ask(kVersion), "");
  DeviceStory late(With({"no-reply:until_ms=300"}));
  late.device_.Start(late.now_);
  EXPECT_EQ(late.Later(300_ms), "");
  EXPECT_EQ(late.Ask(kVersion), kVersionReply);
}

TEST(Faults, AreWrittenBackAsTheOptionTakesThem) {
  for (const char* const text : {
           "no-reply",
           "late:ms=2500",
           "patch:value=0,at=-3,insert=01 FF,cut=2",
           "patch:xor=128",
           "nak:nth=3+5,every=7,chance=0.125,count=2,only=commands,match=04 39,from_ms=0,until_ms=5000,value=32",
       }) {
    EXPECT_EQ(sim::FaultText(sim::ParseFault(text)), text);
  }
  EXPECT_EQ(sim::FaultText(sim::ParseFault("late")), "late:ms=2500");
}

TEST(Faults, ComeAndGoWithoutDisturbingTheOthers) {
  DeviceStory story(With({"no-reply:nth=3", "nak:chance=0.5"}));
  DeviceStory alone(With({"no-reply:nth=3", "nak:chance=0.5"}));
  const auto both = [&] { EXPECT_EQ(story.Ask(kVersion), alone.Ask(kVersion)); };
  both();
  const std::uint32_t id = story.device_.AddFault(sim::ParseFault("duplicate:match=04 39"), story.now_);
  EXPECT_EQ(id, 3U);
  both();
  both();
  EXPECT_TRUE(story.device_.RemoveFault(id));
  EXPECT_FALSE(story.device_.RemoveFault(id));
  for (int i = 0; i < 50; ++i) {
    both();
  }
  EXPECT_EQ(story.device_.AddFault(sim::ParseFault("no-reply"), story.now_), 4U);
  ASSERT_EQ(story.device_.Faults().size(), 3U);
  const sim::ActiveFault& first = story.device_.Faults()[0];
  EXPECT_EQ(first.id, 1U);
  EXPECT_EQ(first.counted, 53U);
  EXPECT_EQ(first.struck, 1U);
  story.device_.ClearFaults();
  EXPECT_TRUE(story.device_.Faults().empty());
  EXPECT_EQ(story.Ask(kVersion), kVersionReply);
}

TEST(Faults, AreRejectedWithTheReason) {
  const std::pair<const char*, const char*> wrong[] = {
      {"", "no such fault '' (--faults lists them)"},
      {"lost", "no such fault 'lost' (--faults lists them)"},
      {"late:3", "'3' is not key=value"},
      {"late:", "'' is not key=value"},
      {"late:ms=3,", "'' is not key=value"},
      {"late:when=3",
       "when: no such key (nth, every, chance, count, only, match, from_ms, until_ms, ms, value, at, xor, insert, "
       "cut)"},
      {"late:nth=0", "nth: '0' is not a list of message numbers from 1 (3, or 3+5)"},
      {"late:nth=", "nth: '' is not a list of message numbers from 1 (3, or 3+5)"},
      {"late:nth=1+", "nth: '1+' is not a list of message numbers from 1 (3, or 3+5)"},
      {"late:nth=1++2", "nth: '1++2' is not a list of message numbers from 1 (3, or 3+5)"},
      {"late:nth=2+x", "nth: '2+x' is not a list of message numbers from 1 (3, or 3+5)"},
      {"late:every=0", "every: 0 is out of range (1 to 4294967295)"},
      {"late:count=-1", "count: -1 is out of range (1 to 4294967295)"},
      {"late:chance=1.5", "chance: '1.5' is not a probability (0 to 1)"},
      {"late:chance=nan", "chance: 'nan' is not a probability (0 to 1)"},
      {"late:only=lens", "only: 'lens' is not a kind of messages (all, camera, mcu, commands, inquiries)"},
      {"late:match=0", "match: '0' is not a sequence of 1 to 36 bytes in hexadecimal (09 04 24)"},
      {"patch", "patch: nothing to do (value, xor, insert or cut)"},
      {"patch:value=1,xor=1", "xor: not together with value"},
      {"late:ms=5,ms=6", "ms: given twice"},
      {"late:nth=1,ms=5,nth=1", "nth: given twice"},
      {"patch:at=36", "at: 36 is out of range (-25 to 35)"},
      {"patch:at=-26,value=1", "at: -26 is out of range (-25 to 35)"},
      {"patch:cut=0", "cut: 0 is out of range (1 to 36)"},
      {"patch:insert=1", "insert: '1' is not a sequence of 1 to 36 bytes in hexadecimal (09 04 24)"},
      {"late:at=1", "at: not a key of fault late"},
      {"nak:xor=1", "xor: not a key of fault nak"},
      {"late:from_ms=5,until_ms=5", "until_ms: 5 is not after from_ms (5)"},
      {"late:ms=-1", "ms: -1 is out of range (0 to 86400000 milliseconds)"},
      {"late:ms=1.5", "ms: '1.5' is not a whole number (0 to 86400000 milliseconds)"},
      {"late:from_ms=x", "from_ms: 'x' is not a whole number (0 to 86400000 milliseconds)"},
      {"late:until_ms=86400001", "until_ms: 86400001 is out of range (0 to 86400000 milliseconds)"},
      {"late:value=1", "value: not a key of fault late"},
      {"nak:ms=1", "ms: not a key of fault nak"},
      {"nak:value=256", "value: 256 is out of range (0 to 255)"},
      {"over-long:value=28", "value: 28 is out of range (0 to 27)"},
  };
  for (const auto& [text, error] : wrong) {
    EXPECT_EQ(ErrorOf([&fault = text] { sim::ParseFault(fault); }), error);
  }
}

TEST(Faults, EachHaveAnExample) {
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
    const std::string example = kind.name == "patch" ? "patch:at=-3,xor=255,cut=30,insert=01" : std::string(kind.name);
    sim::Setup setup = With({example});
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
