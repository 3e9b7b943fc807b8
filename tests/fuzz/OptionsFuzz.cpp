// Runs the whole program with any command line, on a device that never answers. Input: each line is an argument.
#include <csignal>
#include <optional>

#include "tests/fakeos/Fixtures.h"
#include "tests/fuzz/Fuzz.h"

namespace {

constexpr int kStopMs = 9000;  // when a signal ends the read loop

enum class Outcome { Usage, BadHex, Finished };

// --- The outcome of a command line whose only option is the first argument, in its short form ---

bool IsHex(const std::string& text) { return text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos; }

std::optional<Outcome> Expected(const std::vector<std::string>& arguments) {
  const size_t count = arguments.size();
  if (count == 0) {
    return Outcome::Usage;
  }
  const bool simple = std::none_of(arguments.begin() + 1, arguments.end(),
                                   [](const std::string& argument) { return argument.starts_with('-'); });
  const std::string option = arguments[0];
  if (!simple || option.size() != 2 || option[0] != '-' || option == "--") {
    return std::nullopt;
  }
  const auto between = [count](size_t least, size_t most) { return count >= least && count <= most; };
  const auto hex = [](const std::string& text) { return IsHex(text) && text.size() / 2 <= 16; };
  const auto finishedIf = [](bool good, Outcome otherwise) { return good ? Outcome::Finished : otherwise; };
  switch (option[1]) {
    case 'g':
      return Outcome::Finished;
    case 's':
    case 'm':
      return finishedIf(between(3, 4), Outcome::Usage);
    case 'r':
      return finishedIf(between(1, 2), Outcome::Usage);
    case 'y':
      return finishedIf(between(2, 3), Outcome::Usage);
    case 'c':
      return between(2, 3) ? finishedIf(hex(arguments[1]), Outcome::BadHex) : Outcome::Usage;
    case 'i':
      return between(3, 4) ? finishedIf(IsHex(arguments[1]) && hex(arguments[2]), Outcome::BadHex) : Outcome::Usage;
    default:
      return Outcome::Usage;
  }
}

bool IsHexFailure(const LogLine& line) {
  return line == Err("IsHexString failed!\n") || line == Err("HexStr2Bytes failed!\n");
}

}  // namespace

void TestOneInput(const uint8_t* data, size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> arguments;
  while (!rest.empty()) {
    const std::string line = TakeLine(rest);
    arguments.emplace_back(line.c_str());  // up to a zero byte
  }

  ResetProduct();
  FakeOs os;
  os.SignalAt(kStopMs, SIGTERM);
  const Ended run = RunProgram(arguments);

  const std::vector<LogLine> log = os.Log();
  const std::string output = os.Output();
  const bool usage = output.starts_with("Usage: testZR4410 [OPTION]\n\n -s 0 0") && output.ends_with(" -y 0 -g\n");
  Require(log.size() >= 3 && log[1] == Info("Start testZR4410 (v" ZR4410_VERSION ")."),
          "the log begins with the start banner");

  Outcome outcome = Outcome::Usage;
  if (run.status == -1) {
    outcome = Outcome::BadHex;
    Require(log.size() == 4 && IsHexFailure(log[3]), "rejected hex data is the only error that is logged");
    Require(output.empty(), "rejected hex data prints no usage");
  } else if (usage) {
    Require(log.size() == 3, "a run that prints the usage logs only the start banner");
  } else {
    outcome = Outcome::Finished;
    Require(log[log.size() - 2] == Info("Finish testZR4410 (v" ZR4410_VERSION ")."),
            "the log ends with the finish banner");
    Require(std::none_of(log.begin(), log.end(), IsHexFailure), "a finished run logs no rejected hex data");
  }
  Require(run.status == 0 || run.status == -1, "the status is 0 or -1");
  Require(os.Opened().size() == (outcome == Outcome::Finished ? 2 : 0), "queues are opened only for an action");
  Require(giOption >= MODE_NONE && giOption <= MODE_SYSTEM_INQUIRY, "giOption is one of the run modes");
  Require((giOption != MODE_COMMAND && giOption != MODE_INQUIRY) || (giArgv1 >= 0 && giArgv1 <= 16) ||
              outcome != Outcome::Finished,
          "the count of hex bytes is from 0 to 16");
  Require(os.ElapsedMs() <= kStopMs + 100, "the run ends soon after the signal");
  const auto expected = Expected(arguments);
  Require(!expected || *expected == outcome, "a simple command line has the expected outcome");
}
