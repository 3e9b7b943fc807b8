// The device between request and reply: relaying, timing, faults.
#include "simulator/Device.h"

#include "tests/simulator/Support.h"

namespace {

// What leaves the device, "at 12 ms: AA AA 01 ..." with the zeros at the end left out.
std::string Text(const sim::Outgoing& out) {
  if (out.kind != sim::Outgoing::Kind::Message) {
    return std::string(out.kind == sim::Outgoing::Kind::Leave ? "leaves" : "restarts") + " for " +
           std::to_string(out.pause / 1000) + " ms";
  }
  Packet body = out.body;
  const std::size_t size = body.size();
  while (body.size() > 4 && body.back() == 0) {
    body.pop_back();
  }
  return Hex(body) + (size == 36 ? "" : " (" + std::to_string(size) + " bytes)");
}

class DeviceStory {
 public:
  explicit DeviceStory(sim::Setup setup = {.fast = true}) : device_(setup) {}

  std::string Ask(const std::string& body) {
    note_ = device_.Request(77, Body(body), now_);
    return Take();
  }
  std::string Take() {
    std::string text;
    device_.Advance(now_);
    while (const auto out = device_.Take(now_)) {
      text += (text.empty() ? "" : " | ") + Text(*out);
      EXPECT_EQ(out->type, out->kind == sim::Outgoing::Kind::Message ? 77 : 1);
    }
    return text;
  }
  std::string Later(sim::Time by) {
    now_ += by;
    return Take();
  }

  sim::Device device_;
  sim::Time now_ = 1_s;
  std::string note_;
};

class DeviceTest : public testing::Test, public DeviceStory {};

constexpr const char* kVersion = "AA AA 01 06 AA 10 01 01 44 55";
constexpr const char* kVersionReply = "AA AA 01 06 AA 90 01 21 A4 55";
constexpr const char* kSensorMode = "AA AA 05 0B AA 02 06 81 09 04 24 72 FF 2B 55";
constexpr const char* kSensorModeReply = "AA AA 05 0A AA 82 05 90 50 00 06 FF EA 55";
constexpr const char* kAeManual = "AA AA 09 0B AA 02 06 81 01 04 39 03 FF 8D 55";
constexpr const char* kAcknowledged = "AA AA 09 06 AA 82 01 10 C3 55";

TEST_F(DeviceTest, AnswersTheMcusCommands) {
  EXPECT_EQ(Ask(kVersion), kVersionReply);
  EXPECT_EQ(Ask("AA AA 02 06 AA 11 01 00 44 55"), "AA AA 02 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55");
  EXPECT_EQ(Ask("AA AA 03 06 AA 16 01 00 3F 55"), "AA AA 03 06 AA 96 01 30 8F 55");
  EXPECT_EQ(Ask("AA AA 04 06 AA 0C 01 02 47 55"), "AA AA 04 06 AA 8C 01 40 89 55");
}

TEST_F(DeviceTest, RelaysTheCamerasReplies) {
  EXPECT_EQ(Ask(kSensorMode), kSensorModeReply);
  EXPECT_EQ(Ask("AA AA 01 0A AA 02 05 81 09 00 02 FF C4 55"),
            "AA AA 01 0F AA 82 0A 90 50 00 20 07 20 01 03 02 FF 9E 55");
  EXPECT_EQ(Ask("AA AA 07 0B AA 02 06 81 09 04 EE 00 FF D3 55"), "AA AA 07 09 AA 82 04 90 60 02 FF DF 55");
}

TEST_F(DeviceTest, AcknowledgesCommandsWithAPlainFrameWhateverTheCameraThinks) {
  EXPECT_EQ(Ask(kAeManual), kAcknowledged);
  EXPECT_EQ(note_, "");
  EXPECT_EQ(Ask("AA AA 09 0B AA 02 06 81 01 04 39 01 FF 8F 55"), kAcknowledged);
  EXPECT_EQ(note_, "camera: syntax error");
  EXPECT_EQ(Ask("AA AA 09 0E AA 02 09 81 01 04 43 00 00 00 01 FF 82 55"), kAcknowledged);
  EXPECT_EQ(note_, "camera: command not executable");
}

TEST_F(DeviceTest, ShowsAeManualInBlock1) {
  Ask(kAeManual);
  EXPECT_EQ(Ask("AA AA 0A 0B AA 02 06 81 09 7E 7E 01 FF C8 55"),
            "AA AA 0A 15 AA 82 10 90 50 0C 08 0B 04 00 08 03 00 06 0E 01 11 07 FF 8A 55");
}

TEST_F(DeviceTest, SwitchesTheCameraOffAndOn) {
  EXPECT_EQ(Ask("AA AA 01 06 AA 0C 01 00 49 55"), "AA AA 01 06 AA 8C 01 10 B9 55");
  EXPECT_EQ(Ask(kSensorMode), "");
  EXPECT_EQ(Ask(kAeManual), "");
  EXPECT_EQ(Ask("AA AA 02 06 AA 0C 01 01 48 55"), "AA AA 02 06 AA 8C 01 10 B9 55");
  EXPECT_EQ(Ask(kSensorMode), kSensorModeReply);
}

TEST_F(DeviceTest, LeavesANoticeUnanswered) { EXPECT_EQ(Ask("AA AA 00 09 AA 02 04 01 22 33 44 B6 55"), ""); }

TEST_F(DeviceTest, DropsWhatIsNoRequest) {
  EXPECT_EQ(Ask("AB AA 01 06 AA 10 01 01 44 55"), "");
  EXPECT_EQ(Ask("AA AA 01 06 AB 10 01 01 44 55"), "");
  EXPECT_EQ(Ask("AA AA 01 06 AA 10 01 01 44 00"), "");
  EXPECT_EQ(Ask("AA AA 01 16 AA 10 11 01 44 55"), "");
  EXPECT_EQ(device_.Request(77, B("AA AA 01 06 AA 10 01 01 44 55"), now_), "message of a wrong size, dropped");
  EXPECT_EQ(device_.Request(77, {}, now_), "message of a wrong size, dropped");
  EXPECT_EQ(Take(), "");
}

TEST_F(DeviceTest, ReportsAWrongChecksumAsTheMcuDoes) {
  EXPECT_EQ(Ask("AA AA 01 06 AA 10 01 01 45 55"), "AA AA 01 06 AA 90 01 20 A5 55");
}

TEST_F(DeviceTest, SendsReportsByItselfInAutomaticResponseMode) {
  EXPECT_EQ(Ask("AA AA 01 06 AA 11 01 01 43 55"), "AA AA 01 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55");
  EXPECT_EQ(Later(999_ms), "");
  EXPECT_EQ(device_.NextDue(), 2_s);
  const char* const report = "AA AA 00 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55";
  EXPECT_EQ(Later(1_ms), report);
  EXPECT_EQ(Later(1_s), report);
  EXPECT_EQ(Ask("AA AA 02 06 AA 11 01 00 44 55"), "AA AA 02 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55");
  EXPECT_EQ(Later(5_s), "");
}

TEST(DeviceTiming, FollowsTheWire) {
  DeviceStory story{sim::Setup{}};
  story.now_ = 1000_ms;
  // Six bytes there, a millisecond of thought, six bytes back, at 9600 8N1: 6.25 + 1 + 6.25 ms.
  EXPECT_EQ(story.Ask(kVersion), "");
  EXPECT_EQ(story.device_.NextDue(), 1000_ms + 13500);
  EXPECT_EQ(story.Later(13500), kVersionReply);
  // Eleven bytes there: 11458 us; the next field of 16666 us begins at 61 * 16666; ten bytes back: 10416 us.
  story.now_ = 1005_ms;
  EXPECT_EQ(story.Ask(kSensorMode), "");
  EXPECT_EQ(story.device_.NextDue(), sim::Time{62 * 16666 + 10416});
}

TEST(DeviceTiming, LetsTheCameraTakeOneCommandAField) {
  DeviceStory story{sim::Setup{.baud = 4000000}};
  story.now_ = 1_s;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(story.Ask(kSensorMode), "");
  }
  std::vector<sim::Time> dues;
  while (dues.size() < 3) {
    story.now_ = story.device_.NextDue().value_or(story.now_ + 1);
    if (story.Take() == kSensorModeReply) {
      dues.push_back(story.now_);
    }
    ASSERT_LT(story.now_, 2_s);
  }
  EXPECT_EQ(dues[1] - dues[0], 16666);
  EXPECT_EQ(dues[2] - dues[1], 16666);
}

TEST(DeviceTiming, KeepsAFieldOf20MsAt50Hz) {
  sim::Setup setup;
  setup.state.registers[0x72] = 0x08;
  EXPECT_EQ(sim::Device(setup).Field(), 20_ms);
  EXPECT_EQ(sim::Device(sim::Setup{}).Field(), 16666);
}

TEST(DeviceTiming, WaitsForNothingWhenFast) {
  DeviceStory story;
  story.Ask("AA AA 01 06 AA 0C 01 00 49 55");
  story.Ask("AA AA 02 06 AA 0C 01 01 48 55");
  EXPECT_EQ(story.Ask(kSensorMode), kSensorModeReply);
}

TEST(DeviceSockets, ForwardsTheCamerasOwnWordsWhenAsked) {
  DeviceStory story{sim::Setup{.fast = true, .sockets = true}};
  EXPECT_EQ(story.Ask(kAeManual), std::string(kAcknowledged) +
                                      " | AA AA 09 08 AA 82 03 90 41 FF 01 55 | AA AA 09 08 AA 82 03 90 51 FF F1 55");
  EXPECT_EQ(story.Ask("AA AA 09 0E AA 02 09 81 01 04 43 00 00 00 01 FF 82 55"),
            std::string(kAcknowledged) + " | AA AA 09 09 AA 82 04 90 61 41 FF 9F 55");
}

struct FaultCase {
  const char* name;
  const char* fault;
  const char* request;
  const char* answer;
};

class DeviceFault : public testing::TestWithParam<FaultCase> {};

TEST_P(DeviceFault, SpoilsTheReplyAsItSays) {
  const FaultCase& one = GetParam();
  sim::Setup setup{.fast = true};
  const sim::FaultOrError parsed = sim::ParseFault(one.fault);
  ASSERT_TRUE(parsed.fault) << parsed.error;
  setup.faults = {*parsed.fault};
  DeviceStory story(setup);
  EXPECT_EQ(story.Ask(one.request), one.answer);
}

INSTANTIATE_TEST_SUITE_P(
    All, DeviceFault,
    testing::Values(
        FaultCase{"NoReply", "no-reply", kVersion, ""},
        FaultCase{"Duplicate", "duplicate", kVersion, "AA AA 01 06 AA 90 01 21 A4 55 | AA AA 01 06 AA 90 01 21 A4 55"},
        FaultCase{"StaleFirst", "stale-first", kVersion,
                  "AA AA 00 06 AA 90 01 21 A4 55 | AA AA 01 06 AA 90 01 21 A4 55"},
        FaultCase{"WrongSequence", "wrong-sequence", kVersion, "AA AA 02 06 AA 90 01 21 A4 55"},
        FaultCase{"WrongSequenceByMany", "wrong-sequence:value=0xFF", kVersion, "AA AA 00 06 AA 90 01 21 A4 55"},
        FaultCase{"WrongHeader", "wrong-header", kVersion, "55 AA 01 06 AA 90 01 21 A4 55"},
        FaultCase{"WrongCode", "wrong-code", kVersion, "AA AA 01 06 AA 10 01 21 24 55"},
        FaultCase{"BadChecksum", "bad-checksum", kVersion, "AA AA 01 06 AA 90 01 21 A5 55"},
        FaultCase{"BadStart", "bad-start", kVersion, "AA AA 01 06 00 90 01 21 A4 55"},
        FaultCase{"BadStop", "bad-stop:value=0x56", kVersion, "AA AA 01 06 AA 90 01 21 A4 56"},
        FaultCase{"Truncated", "truncated", kVersion, "AA AA 01 03 AA 90 01"},
        FaultCase{"OverLong", "over-long:value=17", kVersion,
                  "AA AA 01 16 AA 90 11 21 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 94 55"},
        FaultCase{"WrongSizeLong", "wrong-size", kVersion, "AA AA 01 06 AA 90 01 21 A4 55 (40 bytes)"},
        FaultCase{"WrongSizeShort", "wrong-size:value=9", kVersion, "AA AA 01 06 AA 90 01 21 A4 (9 bytes)"},
        FaultCase{"ShortReply", "short-reply", kSensorMode, "AA AA 05 09 AA 82 04 90 50 00 FF F1 55"},
        FaultCase{"ShortMcuReply", "short-reply", kVersion, "AA AA 01 05 AA 90 00 C6 55"},
        FaultCase{"LongReply", "long-reply", kSensorMode, "AA AA 05 0B AA 82 06 90 50 00 06 00 FF E9 55"},
        FaultCase{"NakForACommand", "nak", kAeManual, "AA AA 09 06 AA 82 01 40 93 55"},
        FaultCase{"NakForTheMcu", "nak:value=0x50", kVersion, "AA AA 01 06 AA 90 01 50 75 55"},
        FaultCase{"ViscaLength", "visca-length", kSensorMode, "AA AA 05 09 AA 82 04 90 60 01 FF E0 55"},
        FaultCase{"ViscaSyntax", "visca-syntax", kSensorMode, "AA AA 05 09 AA 82 04 90 60 02 FF DF 55"},
        FaultCase{"ViscaBufferFull", "visca-buffer-full", kSensorMode, "AA AA 05 09 AA 82 04 90 60 03 FF DE 55"},
        FaultCase{"ViscaCancelled", "visca-cancelled", kSensorMode, "AA AA 05 09 AA 82 04 90 60 04 FF DD 55"},
        FaultCase{"ViscaNoSocket", "visca-no-socket", kSensorMode, "AA AA 05 09 AA 82 04 90 60 05 FF DC 55"},
        FaultCase{"ViscaNotExecutable", "visca-not-executable", kSensorMode, "AA AA 05 09 AA 82 04 90 60 41 FF A0 55"},
        FaultCase{"ViscaOther", "visca-error:value=0x7F", kSensorMode, "AA AA 05 09 AA 82 04 90 60 7F FF 62 55"},
        FaultCase{"SocketNumber", "socket-number:value=2", kSensorMode, "AA AA 05 0A AA 82 05 90 52 00 06 FF E8 55"},
        FaultCase{"PowerLoss", "power-loss", kSensorMode, ""},
        FaultCase{"DaemonAway", "daemon-away:ms=1500", kVersion, "leaves for 1500 ms"},
        FaultCase{"DaemonRestart", "daemon-restart", kVersion, "restarts for 100 ms"}),
    [](const testing::TestParamInfo<FaultCase>& one) { return std::string(one.param.name); });

sim::Setup With(std::initializer_list<const char*> faults) {
  sim::Setup setup{.fast = true};
  for (const char* text : faults) {
    const sim::FaultOrError parsed = sim::ParseFault(text);
    EXPECT_TRUE(parsed.fault) << parsed.error;
    setup.faults.push_back(parsed.fault.value_or(sim::Fault{}));
  }
  return setup;
}

TEST(Faults, ComeLateByTheirTime) {
  DeviceStory story(With({"late:ms=400"}));
  EXPECT_EQ(story.Ask(kVersion), "");
  EXPECT_EQ(story.Later(399_ms), "");
  EXPECT_EQ(story.Later(1_ms), kVersionReply);
}

TEST(Faults, LeaveTheCameraSilentAfterItsPowerWasLost) {
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

TEST(Faults, StrikeOnTheListedMessages) {
  DeviceStory story(With({"no-reply:nth=2+4"}));
  std::string answered;
  for (int i = 0; i < 6; ++i) {
    answered += story.Ask(kVersion).empty() ? '-' : 'x';
  }
  EXPECT_EQ(answered, "x-x-xx");
}

TEST(Faults, StrikeEveryThirdTime) {
  DeviceStory story(With({"no-reply:every=3"}));
  std::string answered;
  for (int i = 0; i < 7; ++i) {
    answered += story.Ask(kVersion).empty() ? '-' : 'x';
  }
  EXPECT_EQ(answered, "xx-xx-x");
}

TEST(Faults, CountOnlyTheMessagesThatAreMeant) {
  DeviceStory story(With({"no-reply:only=camera,nth=2"}));
  EXPECT_EQ(story.Ask(kSensorMode), kSensorModeReply);
  EXPECT_EQ(story.Ask(kVersion), kVersionReply);
  EXPECT_EQ(story.Ask(kSensorMode), "");
  EXPECT_EQ(story.Ask(kSensorMode), kSensorModeReply);
}

TEST(Faults, TellCommandsInquiriesAndTheMcuApart) {
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

TEST(Faults, CanBeMeantForCertainBytes) {
  DeviceStory story(With({"no-reply:match=09 04 24"}));
  EXPECT_EQ(story.Ask(kSensorMode), "");
  EXPECT_EQ(story.Ask(kAeManual), kAcknowledged);
}

TEST(Faults, StrikeBySeededChance) {
  const auto run = [](std::uint64_t seed) {
    sim::Setup setup = With({"no-reply:chance=0.3"});
    setup.seed = seed;
    DeviceStory story(setup);
    std::string answered;
    for (int i = 0; i < 1000; ++i) {
      answered += story.Ask(kVersion).empty() ? '-' : 'x';
    }
    return answered;
  };
  const std::string first = run(1);
  EXPECT_EQ(run(1), first);
  EXPECT_NE(run(2), first);
  const auto lost = std::count(first.begin(), first.end(), '-');
  EXPECT_GT(lost, 250);
  EXPECT_LT(lost, 350);
}

TEST(Faults, StrikeNeverByNoChanceAndAlwaysByACertainOne) {
  DeviceStory never(With({"no-reply:chance=0"}));
  DeviceStory always(With({"no-reply:chance=1"}));
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(never.Ask(kVersion), kVersionReply);
    EXPECT_EQ(always.Ask(kVersion), "");
  }
}

TEST(Faults, AreTakenInTheirOrder) {
  DeviceStory story(With({"no-reply:nth=2", "nak"}));
  EXPECT_EQ(story.Ask(kVersion), "AA AA 01 06 AA 90 01 40 85 55");
  EXPECT_EQ(story.Ask(kVersion), "");
}

TEST(Faults, AreRefusedWithTheReason) {
  const std::pair<const char*, const char*> wrong[] = {
      {"", "unknown fault ''"},
      {"lost", "unknown fault 'lost'"},
      {"late:3", "'3' is not key=value"},
      {"late:when=3", "unknown key 'when'"},
      {"late:nth=0", "nth takes message numbers from 1, not '0'"},
      {"late:nth=", "nth takes message numbers from 1, not ''"},
      {"late:nth=2+x", "nth takes message numbers from 1, not '2+x'"},
      {"late:every=0", "every takes a number from 1, not '0'"},
      {"late:chance=1.5", "chance takes a number from 0 to 1, not '1.5'"},
      {"late:chance=nan", "chance takes a number from 0 to 1, not 'nan'"},
      {"late:only=lens", "only takes all, camera, mcu, commands or inquiries, not 'lens'"},
      {"late:match=0", "match takes bytes in hexadecimal, not '0'"},
      {"late:ms=-1", "ms takes milliseconds of a day at most, not '-1'"},
      {"late:value=1", "value means nothing to late"},
      {"nak:ms=1", "ms means nothing to nak"},
      {"nak:value=256", "value takes a number from 0 to 255, not '256'"},
      {"over-long:value=28", "value takes a number from 0 to 27, not '28'"},
  };
  for (const auto& [text, error] : wrong) {
    const sim::FaultOrError parsed = sim::ParseFault(text);
    EXPECT_FALSE(parsed.fault) << text;
    EXPECT_EQ(parsed.error, error) << text;
  }
}

// Whatever bytes come, under every fault.
TEST(Faults, SurviveAnyBytes) {
  std::uint32_t random = 7;
  const auto next = [&random] { return static_cast<std::uint8_t>((random = random * 1664525 + 1013904223) >> 24); };
  for (const sim::FaultInfo& info : sim::FaultTable()) {
    sim::Setup setup = With({std::string(info.name).c_str()});
    setup.sockets = true;
    DeviceStory story(setup);
    for (int i = 0; i < 2000; ++i) {
      Packet body = Body("AA AA 01 06 AA");
      const std::uint8_t length = next() % 18;
      body[3] = static_cast<std::uint8_t>(length + 5);
      body[5] = (next() & 1) != 0 ? 0x02 : next();
      body[6] = length;
      std::uint8_t sum = static_cast<std::uint8_t>(0xAA + body[5] + length);
      for (std::size_t at = 7; at < 7U + length; ++at) {
        body[at] = at == 7 ? 0x81 : at == 8 ? 0x01 + (next() & 8) : next();
        sum = static_cast<std::uint8_t>(sum + body[at]);
      }
      body[7U + length] = static_cast<std::uint8_t>(-sum);
      body[8U + length] = 0x55;
      body.resize(next() == 0 ? next() % 40 : 36);
      story.device_.Request(77, body, story.now_);
      story.now_ += 10_s;
      story.device_.Advance(story.now_);
      while (story.device_.Take(story.now_)) {
      }
    }
  }
}

}  // namespace
