// The program as a whole: what it prints, its options and its exit status.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "simulator/connect/Capture.h"
#include "simulator/connect/Files.h"
#include "tests/simulator/Live.h"
#include "tests/simulator/Running.h"
#include "tests/simulator/Support.h"

namespace {

const std::string kRecorded = sim::CaptureLine({0, sim::Direction::Request, 1, 1, Body(kVersion), ""}, "");

class Program : public testing::Test {
 protected:
  TestQueues queues_;
};

TEST_F(Program, PrintsEachMessageAndExitsOnASignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Running program({"--fast", "--key-path", queues_.path()});
    ASSERT_TRUE(program.Await("simZR4410: ready\n")) << program.output();
    queues_.Attach();
    queues_.Send(77, Body(kVersion));
    ASSERT_TRUE(queues_.Receive());
    ASSERT_TRUE(program.Await("Get Version → 0x21"));
    EXPECT_EQ(program.End(signal), 0);
    EXPECT_NE(program.output().find(" request #1   AA 10 01 01 44 55                 Get Version\n"),
              std::string::npos);
    EXPECT_NE(program.output().find(" reply   #1   AA 90 01 21 A4 55                 Get Version → 0x21\n"),
              std::string::npos);
    EXPECT_EQ(program.output().find('\x1b'), std::string::npos) << "no colour in a file";
  }
}

TEST_F(Program, ExitsOnASignalRightAfterItsStart) {
  for (int i = 0; i < 10; ++i) {
    Running program({"--fast", "--key-path", queues_.path()});
    ASSERT_TRUE(program.Await("simZR4410: ready\n"));
    EXPECT_EQ(program.End(SIGTERM), 0);
  }
}

TEST_F(Program, CapturesAndReplays) {
  const std::string capture = queues_.path() + ".jsonl";
  std::string then;
  std::uint8_t later = 0;  // sequence ids of a later run
  for (const char* mode : {"--capture", "--replay"}) {
    Running program({"--fast", "--key-path", queues_.path(), mode, capture});
    ASSERT_TRUE(program.Await("simZR4410: ready\n")) << program.output();
    queues_.Attach();
    std::string answers;
    for (const char* request : {kVersion.c_str(), kGetPtz.c_str(), "AA AA 02 0D AA 12 08 00 00 FA 00 01 2C 00 10 05 55",
                                "AA AA 03 06 AA 11 01 00 44 55", "AA AA 04 0B AA 02 06 81 09 7E 7E 01 FF C8 55"}) {
      Packet body = Body(request);
      body[2] = static_cast<std::uint8_t>(body[2] + later);
      queues_.Send(77, body);
      auto reply = queues_.Receive();
      ASSERT_TRUE(reply) << request;
      reply->body[2] = static_cast<std::uint8_t>(reply->body[2] - later);
      answers += Hex(reply->body) + "\n";
    }
    EXPECT_EQ(program.End(SIGTERM), 0);
    EXPECT_TRUE(then.empty() || then == answers) << then << answers;
    then = answers;
    later = 0x40;
  }
  unlink(capture.c_str());
}

TEST_F(Program, DoesNotStartWithAnInvalidScenario) {
  const std::string file = queues_.path() + ".toml";
  std::ofstream(file) << "[camera]\niris = 3\n";
  Running program({"--key-path", queues_.path(), "--scenario", file});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: " + file + ":2: camera.iris: no such variable\n");
  EXPECT_FALSE(queues_.Exist());
  unlink(file.c_str());
}

TEST_F(Program, DoesNotStartWithoutAKeyPath) {
  Running program({"--key-path", "/no/such/file"});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(),
            "simZR4410: no message queues on /no/such/file: No such file or directory (the keys of the queues are "
            "derived from this file, which may be empty; clients other than testZR4410 may use another one: "
            "--key-path)\n");
}

TEST_F(Program, RejectsAnInvalidFault) {
  Running program({"--fault", "late:ms=x"});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(),
            "simZR4410: --fault late:ms=x: ms: 'x' is not a whole number (0 to 86400000 milliseconds)\n");
}

TEST_F(Program, TakesFaultsFromItsOptions) {
  Running program({"--fast", "--key-path", queues_.path(), "--fault", "nak:nth=1", "--fault", "wrong-sequence:nth=2"});
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  queues_.Attach();
  queues_.Send(1, Body(kVersion));
  EXPECT_EQ(Hex(queues_.Receive().value_or(TestQueues::Message{}).body), Hex(Body("AA AA 01 06 AA 90 01 40 85 55")));
  queues_.Send(1, Body(kVersion));
  EXPECT_EQ(Hex(queues_.Receive().value_or(TestQueues::Message{}).body), Hex(Body("AA AA 02 06 AA 90 01 21 A4 55")));
  EXPECT_EQ(program.End(SIGINT), 0);
  EXPECT_NE(program.output().find("[fault nak]"), std::string::npos);
}

TEST_F(Program, DecodesADump) {
  Running program({"decode"},
                  "[testZR4410] client msgrcv:\n(40): \n01 00 00 00 AA AA 01 06 AA 90 01 21 A4 55 00 00\n"
                  "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n00 00 00 00 00 00 00 00\n");
  EXPECT_EQ(program.End(), 0);
  EXPECT_EQ(program.output(), "reply   #1   AA 90 01 21 A4 55                 Get Version → 0x21\n");
  Running nothing({"decode"}, "nothing\n");
  EXPECT_EQ(nothing.End(), 1);
  EXPECT_EQ(nothing.output(), "simZR4410: no message dump on standard input\n");
}

TEST_F(Program, RefusesOptionsWithoutAnEffect) {
  const std::string& file = queues_.path();
  const std::vector<std::pair<std::vector<std::string>, std::string>> kExamples = {
      {{"--serial", "/dev/null", "--fault", "late"}, "--fault: has no effect with --serial"},
      {{"--serial", "/dev/null", "--scenario", "night"}, "--scenario: has no effect with --serial"},
      {{"--serial", "/dev/null", "--fast"}, "--fast: has no effect with --serial"},
      {{"--serial", "/dev/null", "--visca-pty"}, " excludes "},
      {{"--replay", file, "--fault", "late"}, "--fault: has no effect with --replay"},
      {{"--replay", file, "--seed", "1"}, "--seed: has no effect with --replay"},
      {{"--replay", file, "--wake-up", "1"}, "--wake-up: has no effect with --replay"},
      {{"--replay", file, "--visca-pty"}, " excludes "},
      {{"--check", "--quiet"}, "--quiet: has no effect with --check"},
      {{"--faults", "--fast"}, "--fast: has no effect with --faults"},
      {{"--fast", "protocol"}, "--fast: has no effect with protocol"},
      {{"--capture", file, "decode"}, "--capture: has no effect with decode"},
      {{"--serial-protocol", "visca"}, "--serial-protocol requires --serial"},
      {{"--visca-link", file}, "--visca-link requires --visca-pty"},
      {{"--force"}, "--force requires --capture"},
      {{"--seed", "-1"}, "--seed: Value -1 not in range"},
      {{"--scenario", ""}, "--scenario: must not be empty"},
      {{"--capture", ""}, "--capture: must not be empty"},
      {{"--replay", ""}, "--replay: must not be empty"},
      {{"--serial", ""}, "--serial: must not be empty"},
      {{"--ready-file", ""}, "--ready-file: must not be empty"},
      {{"--key-path", ""}, "--key-path: must not be empty"},
      {{"--control", ""}, "--control: must not be empty"},
      {{"--control", file, "--control-anyone"}, "--control-anyone: has no effect with a path"},
      {{"--control", "127.0.0.1:0", "--control-anyone", "--key-path", file},
       "simZR4410: --control 127.0.0.1:0: --control-anyone has no effect with a loopback address"},
      {{"--fast", "--baud", "300"}, "simZR4410: --baud has no effect: the device answers without delay (--fast)"},
  };
  for (const auto& [arguments, text] : kExamples) {
    Running program(arguments);
    EXPECT_GT(program.End(), 0) << text;
    EXPECT_NE(program.output().find(text), std::string::npos) << program.output();
  }
}

TEST_F(Program, TakesEveryOptionThatHasAnEffect) {
  Running check({"--check", "--scenario", "night", "--fault", "late", "--seed", "3", "--fast", "--wake-up", "9"});
  EXPECT_EQ(check.End(), 0) << check.output();
  Running decode({"--colour", "always", "decode"},
                 "[testZR4410] client msgrcv:\n(40): \n01 00 00 00 AA AA 01 06 AA 90 01 21 A4 55 00 00\n"
                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n00 00 00 00 00 00 00 00\n");
  EXPECT_EQ(decode.End(), 0);
  EXPECT_TRUE(decode.output().starts_with("\x1b["));
}

TEST_F(Program, TakesTheGivenTimeToWakeUpEvenIfFast) {
  Running program({"--fast", "--wake-up", "300", "--key-path", queues_.path()});
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  queues_.Attach();
  for (const char* request : {kSupplyOff.c_str(), kSupplyOn.c_str(), kSensorMode.c_str()}) {
    queues_.Send(1, Body(request));
  }
  EXPECT_TRUE(program.Await("[camera silent]")) << program.output();
}

TEST_F(Program, FindsTheInstalledScenarios) {
  for (const char* name : {"night", "night.toml"}) {
    Running program({"--check", "--scenario", name});
    EXPECT_EQ(program.End(), 0) << program.output();
  }
  Running none({"--check", "--scenario", "nigth"});
  EXPECT_EQ(none.End(), 1);
  EXPECT_TRUE(none.output().starts_with("simZR4410: nigth: no such file, and no installed scenario (camera-off, "))
      << none.output();
  EXPECT_NE(none.output().find(", night, "), std::string::npos) << none.output();
  Running path({"--check", "--scenario", "./night"});
  EXPECT_EQ(path.End(), 1);
  EXPECT_EQ(path.output(), "simZR4410: ./night: No such file or directory\n");
}

TEST_F(Program, TreatsAnEmptyScenarioAsTheDefaultDevice) {
  Running program({"--check", "--scenario", queues_.path()});
  EXPECT_EQ(program.End(), 0) << program.output();
}

TEST_F(Program, EscapesControlCharactersOfAFile) {
  const std::string file = queues_.path() + ".toml";
  std::ofstream(file) << "\"\\u001b[31mred\\u0007\\u009b\" = 1\n";
  Running program({"--check", "--scenario", file});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: " + file + ":1: \\x1b[31mred\\x07\\x9b: no such key\n");
  unlink(file.c_str());
}

TEST_F(Program, ControlSocketMustNotBeAnotherFile) {
  const std::string path = queues_.path() + ".socket";
  Running program({"--key-path", queues_.path(), "--control", path, "--ready-file", path});
  if (program.End() != 1) {
    ADD_FAILURE() << "starts";
  }
  EXPECT_EQ(program.output(), "simZR4410: --ready-file and --control name the same file, " + path + "\n");
  EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST_F(Program, EscapesControlCharactersOfTheControlPath) {
  const std::string path = queues_.path() + ".\x1b[31m";
  Running program({"--fast", "--key-path", queues_.path(), "--control", path});
  EXPECT_TRUE(program.Await("simZR4410: control on " + queues_.path() + ".\\x1b[31m\n"));
  EXPECT_EQ(program.End(SIGTERM), 0);
}

TEST_F(Program, FindsAnInstalledScenarioDespiteAFolderWithItsName) {
  const std::string folder = queues_.path() + ".d";
  std::filesystem::create_directories(folder + "/night");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  Running program({"--check", "--scenario", "night"});
  std::filesystem::current_path(before);
  EXPECT_EQ(program.End(), 0) << program.output();
  std::filesystem::remove_all(folder);
}

// None of these command lines changes the recording in `file`.
TEST_F(Program, DoesNotOverwriteACapture) {
  const std::string recording = kRecorded + "\n";
  const std::string file = queues_.path() + ".jsonl";
  std::ofstream(file) << recording;
  const std::vector<std::pair<std::vector<std::string>, std::string>> kExamples = {
      {{"--replay", file, "--capture", file, "--force"}, "--replay and --capture name the same file, " + file},
      {{"--replay", file, "--capture", "/tmp/../" + file, "--force"},
       "--replay and --capture name the same file, /tmp/../" + file},
      {{"--replay", file, "--ready-file", file}, "--replay and --ready-file name the same file, " + file},
      {{"--capture", file}, file + ": the file exists (--force overwrites it)"},
      {{"--capture", file, "--force", "--scenario", "/no/such"}, "/no/such: No such file or directory"},
      {{"--capture", file, "--force", "--key-path", "/no/such"}, "no message queues on /no/such: "},
      {{"--capture", file, "--force", "--key-path", queues_.path(), "--ready-file", "/no/such"}, "/no/such: "},
  };
  for (const auto& [arguments, text] : kExamples) {
    Running program(arguments);
    if (program.End() != 1) {
      ADD_FAILURE() << text;
    }
    EXPECT_TRUE(program.output().starts_with("simZR4410: " + text)) << program.output();
    EXPECT_EQ(sim::ReadFile(file), recording) << text;
  }
  unlink(file.c_str());
}

TEST_F(Program, CapturesItsSetup) {
  const std::string scenario = queues_.path() + ".toml";
  const std::string capture = queues_.path() + ".jsonl";
  std::ofstream(scenario) << "seed = 7\n";
  Running program({"--fast", "--key-path", queues_.path(), "--capture", capture, "--scenario", scenario});
  ASSERT_TRUE(program.Await("simZR4410: ready\n")) << program.output();
  EXPECT_EQ(program.End(SIGTERM), 0);
  const std::string header = sim::ReadFile(capture);
  EXPECT_TRUE(header.starts_with("{\"capture\":1,\"program\":\"simZR4410 " ZR4410_VERSION "\",\"started\":\"20"))
      << header;
  EXPECT_TRUE(header.ends_with("\"setup\":{\"arguments\":[\"--fast\",\"--key-path\",\"" + queues_.path() +
                               "\",\"--capture\",\"" + capture + "\",\"--scenario\",\"" + scenario +
                               "\"],\"scenario\":\"seed = 7\\n\"}}\n"))
      << header;
  unlink(scenario.c_str());
  unlink(capture.c_str());
}

TEST_F(Program, RecordsNoTraceIfAStandardDescriptorIsClosed) {
  const std::string file = queues_.path() + ".jsonl";
  const std::string ready = queues_.path() + ".ready";
  for (const auto& [output, errors] : {std::pair(Running::kClosed, -1), std::pair(-1, Running::kClosed),
                                       std::pair(Running::kClosed, Running::kClosed)}) {
    std::ofstream(file) << "";
    Running program({"--fast", "--key-path", queues_.path(), "--capture", file, "--force", "--ready-file", ready}, "",
                    output, errors);
    ASSERT_TRUE(Eventually([&ready] { return access(ready.c_str(), F_OK) == 0; }));
    queues_.Attach();
    queues_.Send(1, Body(kVersion));
    ASSERT_TRUE(queues_.Receive());
    EXPECT_EQ(program.End(SIGTERM), 0);
    const std::string text = sim::ReadFile(file);
    EXPECT_EQ(std::ranges::count(text, '\n'), 3) << text;
    EXPECT_EQ(text.find("simZR4410: "), std::string::npos) << text;
  }
  unlink(file.c_str());
}

TEST_F(Program, ReplaysACaptureThatIsCutOff) {
  const std::string file = queues_.path() + ".jsonl";
  std::ofstream(file) << kRecorded << "\n{\"us\":1,\"dir";
  Running program({"--key-path", queues_.path(), "--replay", file});
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  EXPECT_EQ(program.output(),
            "simZR4410: " + file + ":2: the last line is cut off and is left out\nsimZR4410: ready\n");
  EXPECT_EQ(program.End(SIGTERM), 0);
  unlink(file.c_str());
}

}  // namespace
