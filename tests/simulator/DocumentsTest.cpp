// Compares the documents about the simulator with the program.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "simulator/connect/Routes.h"
#include "simulator/model/Faults.h"
#include "simulator/model/Scenario.h"
#include "simulator/model/Setup.h"

namespace {

std::string File(const std::string& name) {
  std::ifstream file(std::string(SIM_SOURCE) + "/" + name);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string Output(const std::string& arguments) {
  std::string text;
  FILE* const pipe = popen(("\"" SIM_PROGRAM "\" " + arguments).c_str(), "r");
  std::array<char, 4096> buffer{};
  while (const std::size_t got = fread(buffer.data(), 1, buffer.size(), pipe)) {
    text.append(buffer.data(), got);
  }
  EXPECT_EQ(pclose(pipe), 0);
  return text;
}

// Returns the long options at the beginning of lines, after `before`, spaces and a short option.
std::set<std::string> Options(const std::string& text, const std::string& before) {
  std::set<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(before)) {
      const std::size_t at = line.find_first_not_of(' ', before.size());
      const std::size_t option = line.find("--", before.size());
      // "-h, --help"
      const bool after_short = line.find(',') == at + 2 && line.find_first_not_of(' ', at + 3) == option;
      if (option != std::string::npos && (option == at || after_short)) {
        found.insert(line.substr(option, line.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", option) - option));
      }
    }
  }
  found.erase("");
  return found;
}

// Returns the manual page, with plain hyphens.
std::string Manual() {
  std::string text = File("docs/simZR4410.1");
  for (std::size_t at; (at = text.find("\\-")) != std::string::npos;) {
    text.erase(at, 1);
  }
  return text;
}

TEST(Documents, ProtocolPageEndsWithTheTables) {
  const std::string page = File("docs/protocol.md");
  const std::string tables = Output("protocol");
  EXPECT_GT(tables.size(), 5000U);
  EXPECT_TRUE(page.ends_with(tables)) << "print them again: simZR4410 protocol";
}

TEST(Documents, ManualNamesTheOptionsOfTheHelpText) {
  // Versions of CLI11 indent their help differently.
  const std::set<std::string> help = Options(Output("--help"), " ");
  const std::set<std::string> manual = Options(Manual(), ".B ");
  EXPECT_GE(help.size(), 20U);
  EXPECT_EQ(manual, help);
}

TEST(Documents, ManualHasTheRangeAndDefaultOfEachOption) {
  const std::string manual = Manual();
  const sim::Setup setup;
  for (const sim::SetupKey& key : sim::SetupKeys()) {
    const std::size_t at = manual.find("\n.B " + std::string(key.option));
    ASSERT_NE(at, std::string::npos) << key.option;
    const std::string entry = manual.substr(at, manual.find("\n.", at + 1) + 1 - at);
    std::string expected = "Scenario key: " + std::string(key.key);
    if (!key.is_switch) {
      expected += ", " + std::to_string(key.least) + " to " + std::to_string(key.greatest) + ". Default " +
                  std::to_string(key.get(setup));
    }
    EXPECT_NE(entry.find("\n" + expected + ".\n"), std::string::npos) << key.option << ": " << expected;
  }
}

TEST(Documents, ManualHasTheTextsOfTheListOfFaults) {
  const std::string manual = Manual();
  std::istringstream list(Output("--faults"));
  std::multiset<std::string> listed;
  for (std::string line; std::getline(list, line);) {
    if (!line.starts_with("  ")) {
      continue;  // a heading
    }
    const std::string name = line.substr(2, line.find(' ', 2) - 2);
    const std::string text = line.substr(line.find_first_not_of(' ', 2 + name.size()));
    EXPECT_NE(manual.find("\n.B " + name + "\n" + text + "\n"), std::string::npos) << line;
    listed.insert(name);
  }
  EXPECT_EQ(listed.size(), sim::FaultTable().size() + sim::FaultKeys().size());

  std::multiset<std::string> described;
  const std::size_t begin = manual.find("\n.SH FAULTS"), end = manual.find("\n.SH SCENARIO FILES");
  std::istringstream section(manual.substr(begin, end - begin));
  for (std::string line; std::getline(section, line);) {
    if (line.starts_with(".B ")) {
      described.insert(line.substr(3));
    }
  }
  EXPECT_EQ(described, listed);
}

// The example in the manual has every kind of entry.
TEST(Documents, ManualHasAScenarioThatIsAccepted) {
  const std::string manual = Manual();
  const std::size_t section = manual.find("\n.SH SCENARIO FILES");
  const std::size_t begin = manual.find("\n.nf\n", section) + 5, end = manual.find("\n.fi\n", section);
  const sim::Setup setup = sim::ParseScenario(manual.substr(begin, end - begin), "manual");
  EXPECT_EQ(setup.faults.size(), 1U);
  ASSERT_EQ(setup.time_line.size(), 1U);
  EXPECT_EQ(setup.time_line[0].after, 60 * sim::kSecond);
  EXPECT_EQ(setup.time_line[0].change.supply, false);
  EXPECT_TRUE(setup.time_line[0].change.clear_faults);
  EXPECT_EQ(setup.time_line[0].change.variables.size(), 1U);
  EXPECT_EQ(setup.time_line[0].change.faults.size(), 1U);
}

TEST(Documents, ManualHasTheTextsOfTheControlInterface) {
  const std::string manual = Manual();
  const std::size_t begin = manual.find("\n.SH CONTROL INTERFACE");
  const std::string section = manual.substr(begin, manual.find("\n.SS ", begin) - begin);
  std::size_t routes = 0;
  for (std::size_t at = 0; (at = manual.find("\n.B ", at)) != std::string::npos; ++at) {
    routes += manual.find(" /", at) < manual.find('\n', at + 1) ? 1 : 0;
  }
  EXPECT_EQ(routes, sim::RouteTable().size());
  for (const sim::Route& route : sim::RouteTable()) {
    const std::string entry =
        std::string(route.method) + " " + std::string(route.path) + "\n" + std::string(route.text);
    EXPECT_NE(manual.find("\n.B " + entry + "\n"), std::string::npos) << entry;
    std::istringstream words{std::string(route.query)};
    for (std::string word; words >> word;) {
      EXPECT_NE(section.find(word), std::string::npos) << word;
    }
  }
}

// Returns the names of the commands, which the help text lists at its end.
std::set<std::string> Commands(const std::string& help) {
  std::set<std::string> found;
  std::string lower = help;
  std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  std::istringstream lines(lower.substr(lower.rfind("subcommands:")));
  std::string line;
  for (std::getline(lines, line); std::getline(lines, line);) {
    if (line.starts_with("  ") && line.find_first_not_of(' ') < 4) {
      std::string word;
      std::istringstream(line) >> word;
      found.insert(word);
    }
  }
  return found;
}

TEST(Documents, ManualNamesTheCommandsOfCtl) {
  const std::set<std::string> help = Commands(Output("ctl --help"));
  std::set<std::string> manual;
  std::istringstream lines(Manual());
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(".B ctl ")) {
      std::string word;
      std::istringstream(line.substr(7)) >> word;
      manual.insert(word);
    }
  }
  EXPECT_GE(help.size(), 9U);
  EXPECT_EQ(manual, help);
}

TEST(Documents, ManualNamesTheOptionsOfTheCommandsOfCtl) {
  std::istringstream lines(Manual());
  std::size_t options = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(".B ctl ")) {
      continue;
    }
    std::string command;
    std::istringstream(line.substr(7)) >> command;
    std::set<std::string> manual;
    for (std::size_t at = 0; (at = line.find("--", at)) != std::string::npos; at += 2) {
      manual.insert(line.substr(at, line.find_first_of(" ]", at) - at));
    }
    std::set<std::string> help = Options(Output("ctl --control x " + command + " --help"), " ");
    help.erase("--help");
    EXPECT_EQ(manual, help) << command;
    options += help.size();
  }
  EXPECT_GE(options, 5U);
}

// docs/architecture.md says that the model makes no system call and reads no clock.
TEST(Documents, ModelIncludesNothingThatTouchesTheSystem) {
  const std::set<std::string> forbidden = {"<fstream>", "<iostream>", "<filesystem>", "<chrono>",
                                           "<ctime>",   "<thread>",   "<mutex>",      "<atomic>"};
  const auto allowed = [&forbidden](const std::string& name) {
    const bool standard = name.starts_with('<') && name.find('.') == std::string::npos && !forbidden.contains(name);
    return standard || name == "<toml++/toml.h>" || name.starts_with("\"simulator/model/");
  };
  std::size_t includes = 0;
  for (const auto& file : std::filesystem::directory_iterator(SIM_SOURCE "/simulator/model")) {
    std::ifstream lines(file.path());
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("#include")) {
        EXPECT_TRUE(allowed(line.substr(line.find(' ') + 1))) << file.path() << line;
        ++includes;
      }
    }
  }
  EXPECT_GT(includes, 50U);
}

}  // namespace
