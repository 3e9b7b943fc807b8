// Reads a scenario with toml++, and adds the file's name and the line to every error.
#include "simulator/model/Scenario.h"

#include <toml++/toml.h>

#include <algorithm>

#include "simulator/model/Error.h"

namespace sim {
namespace {

// The parser, and the destructors of its tables, are recursive. The parser limits the depth of nested values to 256 but
// not that of keys, in which each dot makes a level; a key cannot continue on the next line.
constexpr std::ptrdiff_t kMostDots = 32;  // in a line, including its strings and comments

// An error whose text does not yet contain the file's name and the line.
struct ErrorAt {
  std::string text;
  std::uint32_t line;
};

[[noreturn]] void Refuse(const toml::node& node, const std::string& text) {
  throw ErrorAt{text, node.source().begin.line};
}

const toml::table& Table(const toml::node& node, const std::string& path) {
  if (!node.is_table()) {
    Refuse(node, path + ": not a table");
  }
  return *node.as_table();
}

// The tables of [[path]].
std::vector<const toml::table*> Tables(const toml::node& node, const std::string& path) {
  if (!node.is_array()) {
    Refuse(node, path + ": not written as [[" + path + "]]");
  }
  std::vector<const toml::table*> tables;
  for (const toml::node& one : *node.as_array()) {
    tables.push_back(&Table(one, path));
  }
  return tables;
}

Given Value(const toml::node& node, const std::string& path) {
  if (node.is_string()) {
    return *node.value<std::string>();
  }
  if (node.is_integer()) {
    return *node.value<std::int64_t>();
  }
  if (node.is_floating_point()) {
    return *node.value<double>();
  }
  if (node.is_boolean()) {
    return *node.value<bool>();
  }
  Refuse(node, path + ": must be a number, a string, true or false");
}

// Calls a routine that may throw Error, and adds the place in the file to the error.
template <typename Routine>
auto At(const toml::node& node, const std::string& path, Routine routine) {
  try {
    return routine();
  } catch (const Error& error) {
    Refuse(node, path + error.what());
  }
}

// Reads a table of variables or registers. `path` ends with a dot unless it is empty.
void ReadVariables(const toml::table& table, const std::string& path, const std::string& section, Change& change) {
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    if (section == "camera" && name == "registers") {
      ReadVariables(Table(node, path + "camera.registers"), path + "camera.", name, change);
    } else {
      At(node, path,
         [&, &node = node] { SetVariable(change, section, name, Value(node, path + section + "." + name)); });
    }
  }
}

// Reads the table if it is one of variables or registers. Returns whether it is.
bool ReadSection(const toml::node& node, const std::string& path, const std::string& name, Change& change) {
  if (name != "camera" && name != "mcu" && name != "registers") {
    return false;
  }
  ReadVariables(Table(node, path + name), path, name, change);
  return true;
}

// Sets the key of Setup.h that has that name in that section. Returns whether there is one.
bool ReadKey(const toml::node& node, const std::string& section, const std::string& name, Setup& setup) {
  const std::string path = section + (section.empty() ? "" : ".") + name;
  for (const SetupKey& key : SetupKeys()) {
    if (key.section == section && key.key == name) {
      At(node, path + ": ", [&] { key.set(setup, SetupNumber(key, Value(node, path))); });
      return true;
    }
  }
  return false;
}

void ReadDevice(const toml::table& table, Setup& setup) {
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    if (!ReadKey(node, "device", name, setup)) {
      Refuse(node, "device." + name + ": no such key");
    }
  }
  if (const toml::node* const baud = table.get("baud"); setup.fast && baud != nullptr) {
    Refuse(*baud, "device.baud: has no effect: the device answers without delay (device.fast)");
  }
}

// Returns the value of a fault's key as the text that --fault takes: a list becomes 3+5.
std::string FaultValue(const toml::node& node, const std::string& path) {
  const toml::array* const list = node.as_array();
  if (list == nullptr) {
    return GivenPlain(Value(node, path));
  }
  std::string all;
  for (const toml::node& one : *list) {
    all += (all.empty() ? "" : "+") + GivenPlain(Value(one, path));
  }
  return all;
}

Fault ReadFault(const toml::table& table, const std::string& path) {
  const toml::node* kind = table.get("kind");
  if (kind == nullptr || !kind->is_string()) {
    Refuse(kind != nullptr ? *kind : table, path + ".kind: must be the name of a fault, such as \"no-reply\"");
  }
  Fault fault = At(*kind, path + ".kind: ", [kind] { return MakeFault(*kind->value<std::string>()); });
  for (const auto& [key, node] : table) {
    if (const std::string name(key.str()); name != "kind") {
      const std::string text = FaultValue(node, path + "." + name);
      At(node, path + ".", [&] { SetFaultKey(fault, name, text); });
    }
  }
  At(table, path + ".", [&fault] { CheckFault(fault); });
  return fault;
}

void ReadFaults(const toml::node& node, const std::string& path, std::vector<Fault>& faults) {
  for (const toml::table* table : Tables(node, path)) {
    faults.push_back(ReadFault(*table, path));
  }
}

bool Switch(const toml::node& node, const std::string& path) {
  return At(node, path + ": ", [&] { return OnOrOff(Value(node, path)); });
}

Moment ReadMoment(const toml::table& table) {
  Moment moment;
  bool timed = false;
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    const std::string path = "at." + name;
    if (name == "ms") {
      timed = true;
      moment.after = kMillisecond * At(node, path + ": ", [&, &node = node] {
                       return WholeNumber(Value(node, path), 0, kGreatestFaultMs, " milliseconds");
                     });
    } else if (name == "supply") {
      moment.change.supply = Switch(node, path);
    } else if (name == "clear_faults") {
      moment.change.clear_faults = Switch(node, path);
    } else if (name == "fault") {
      ReadFaults(node, path, moment.change.faults);
    } else if (!ReadSection(node, "at.", name, moment.change)) {
      Refuse(node, path + ": no such key");
    }
  }
  if (!timed) {
    Refuse(table, "at.ms: not given (milliseconds after \"ready\")");
  }
  return moment;
}

void CheckLines(std::string_view text) {
  std::uint32_t line = 1;
  for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1, ++line) {
    end = std::min(text.find('\n', begin), text.size());
    if (std::ranges::count(text.substr(begin, end - begin), '.') > kMostDots) {
      throw ErrorAt{"more than " + std::to_string(kMostDots) + " dots in a line", line};
    }
  }
}

void Read(const toml::table& root, Setup& setup) {
  Change start;
  for (const auto& [key, node] : root) {
    const std::string name(key.str());
    if (name == "description") {
      if (!node.is_string()) {
        Refuse(node, "description: must be a string");
      }
      setup.description = node.ref<std::string>();
    } else if (name == "device") {
      ReadDevice(Table(node, name), setup);
    } else if (name == "fault") {
      ReadFaults(node, name, setup.faults);
    } else if (name == "at") {
      for (const toml::table* table : Tables(node, name)) {
        setup.time_line.push_back(ReadMoment(*table));
      }
    } else if (!ReadSection(node, "", name, start) && !ReadKey(node, "", name, setup)) {
      Refuse(node, name + ": no such key");
    }
  }
  for (const auto& [var, value] : start.variables) {
    setup.state[var] = value;
  }
  for (const auto& [number, value] : start.registers) {
    setup.state.registers[number] = value;
  }
}

}  // namespace

Setup ParseScenario(std::string_view text, const std::string& name) {
  const auto fail = [&name](std::uint32_t line, std::string error) {
    std::ranges::replace_if(
        error, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return Error(name + ":" + std::to_string(line) + ": " + error);
  };
  try {
    CheckLines(text);
    Setup setup;
    Read(toml::parse(text), setup);
    return setup;
  } catch (const toml::parse_error& error) {
    throw fail(error.source().begin.line, std::string(error.description()));
  } catch (const ErrorAt& error) {
    throw fail(error.line, error.text);
  }
}

}  // namespace sim
