// The documents about the simulator agree with it.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "simulator/model/Faults.h"
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

// The long options at the beginning of lines, behind `before`, blanks and a short option.
std::set<std::string> Options(const std::string& text, const std::string& before) {
  std::set<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(before)) {
      const std::size_t at = line.find_first_not_of(' ', before.size());
      const std::size_t option = line.find("--", before.size());
      if (option == at || (option != std::string::npos && line.find(',') < option && option - at < 5)) {
        found.insert(line.substr(option, line.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", option) - option));
      }
    }
  }
  found.erase("");
  return found;
}

// The manual page, with plain hyphens and each entry ended by a line feed.
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

TEST(Documents, ManualIsOfThisVersion) {
  const std::string output = Output("--version");
  const std::string name = "simZR4410 ";
  ASSERT_TRUE(output.starts_with(name) && output.ends_with('\n')) << output;
  const std::string version = output.substr(name.size(), output.size() - name.size() - 1);
  EXPECT_NE(Manual().find("\"testZR4410 " + version + "\""), std::string::npos) << output;
}

TEST(Documents, ManualSaysWhatTheListOfFaultsSays) {
  const std::string manual = Manual();
  std::istringstream list(Output("--faults"));
  std::size_t count = 0;
  for (std::string line; std::getline(list, line);) {
    if (!line.starts_with("  ")) {
      continue;  // the heading
    }
    const std::string name = line.substr(2, line.find(' ', 2) - 2);
    const std::string text = line.substr(line.find_first_not_of(' ', 2 + name.size()));
    EXPECT_NE(manual.find("\n.B " + name + "\n" + text + "\n"), std::string::npos) << line;
    ++count;
  }
  EXPECT_EQ(count, sim::FaultTable().size());
}

// What docs/architecture.md promises of the model.
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
