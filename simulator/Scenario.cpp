#include "simulator/Scenario.h"

#include <toml++/toml.h>

#include <charconv>
#include <fstream>
#include <sstream>

namespace sim {
namespace {

// The first thing wrong, and where.
struct Wrong {
  std::string text;
  std::uint32_t line;
};

[[noreturn]] void Refuse(const toml::node& node, const std::string& text) {
  throw Wrong{text, node.source().begin.line};
}

std::int64_t Integer(const toml::node& node, const std::string& key, std::int64_t least, std::int64_t greatest) {
  const auto value = node.is_integer() ? node.value<std::int64_t>() : std::nullopt;
  if (!value || *value < least || *value > greatest) {
    Refuse(node, key + " takes a whole number from " + std::to_string(least) + " to " + std::to_string(greatest));
  }
  return *value;
}

bool Boolean(const toml::node& node, const std::string& key) {
  const auto value = node.is_boolean() ? node.value<bool>() : std::nullopt;
  if (!value) {
    Refuse(node, key + " takes true or false");
  }
  return *value;
}

const toml::table& Table(const toml::node& node, std::string_view key) {
  if (!node.is_table()) {
    Refuse(node, std::string(key) + " is a table");
  }
  return *node.as_table();
}

// A variable's value: a number that the wire can carry, one of its names, or true and false for on and off.
std::uint32_t Value(const toml::node& node, const std::string& key, Var var) {
  const VarInfo& info = Info(var);
  if (node.is_integer()) {
    return static_cast<std::uint32_t>(Integer(node, key, 0, info.wire));
  }
  std::string names;
  for (const ValueName& name : info.names) {
    names += (names.empty() ? "" : ", ") + std::string(name.name);
  }
  const std::string text = node.is_boolean()  ? (*node.value<bool>() ? "on" : "off")
                           : node.is_string() ? *node.value<std::string>()
                                              : "";
  const auto value = info.FromName(text);
  if (!value) {
    Refuse(node, key + " takes a number" + (names.empty() ? "" : " or one of: " + names));
  }
  return *value;
}

void ReadVariables(const toml::table& table, const std::string& section, Var from, Var to, Setup& setup) {
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    if (section == "camera" && name == "registers") {
      for (const auto& [number_key, value] : Table(node, "registers")) {
        const std::string text(number_key.str());
        unsigned number = 0;
        const bool hex = text.starts_with("0x");
        const char* const begin = text.data() + (hex ? 2 : 0);
        const char* const end = text.data() + text.size();
        const auto parsed = std::from_chars(begin, end, number, hex ? 16 : 10);
        if (parsed.ec != std::errc() || parsed.ptr != end || number > 0xFF) {
          Refuse(value, "'" + text + "' is no register number");
        }
        setup.state.registers[number] = static_cast<std::uint8_t>(Integer(value, text, 0, 0xFF));
      }
      continue;
    }
    if (section == "camera" && name == "sensor_mode") {
      setup.state.registers[kSensorModeRegister] = static_cast<std::uint8_t>(Integer(node, name, 0, 0xFF));
      continue;
    }
    const auto var = FindVar(name);
    if (!var || *var < from || *var >= to) {
      Refuse(node, "unknown key '" + name + "' in [" + section + "]");
    }
    setup.state[*var] = Value(node, name, *var);
  }
}

void ReadDevice(const toml::table& table, Setup& setup) {
  constexpr std::int64_t kHour = 3600000;
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    if (name == "wake_up_ms") {
      setup.wake_up = Integer(node, name, 0, kHour) * kMillisecond;
    } else if (name == "report_ms") {
      setup.report_every = Integer(node, name, 1, kHour) * kMillisecond;
    } else if (name == "baud") {
      setup.baud = static_cast<std::uint32_t>(Integer(node, name, 300, 4000000));
    } else if (name == "fast") {
      setup.fast = Boolean(node, name);
    } else if (name == "sockets") {
      setup.sockets = Boolean(node, name);
    } else {
      Refuse(node, "unknown key '" + name + "' in [device]");
    }
  }
}

// A fault's value as the command line would have it.
std::string Plain(const toml::node& node, const std::string& key) {
  if (node.is_string()) {
    return *node.value<std::string>();
  }
  if (node.is_integer()) {
    return std::to_string(*node.value<std::int64_t>());
  }
  if (node.is_floating_point()) {
    return std::to_string(*node.value<double>());
  }
  std::string all;
  if (const toml::array* array = node.as_array(); array != nullptr && key == "nth") {
    for (const toml::node& one : *array) {
      all += (all.empty() ? "" : "+") + std::to_string(Integer(one, key, 1, UINT32_MAX));
    }
  }
  if (all.empty()) {
    Refuse(node, key + " takes a number or a text" + (key == "nth" ? " or a list of numbers" : ""));
  }
  return all;
}

Fault ReadFault(const toml::node& node) {
  const toml::table& table = Table(node, "fault");
  const toml::node* kind = table.get("kind");
  if (kind == nullptr || !kind->is_string()) {
    Refuse(kind != nullptr ? *kind : node, "a fault takes a kind, such as \"no-reply\"");
  }
  FaultOrError parsed = ParseFault(*kind->value<std::string>());
  if (!parsed.fault) {
    Refuse(*kind, parsed.error);
  }
  for (const auto& [key, value] : table) {
    if (key.str() == "kind") {
      continue;
    }
    const std::string name(key.str());
    if (const std::string error = SetFaultKey(*parsed.fault, name, Plain(value, name)); !error.empty()) {
      Refuse(value, error);
    }
  }
  return *parsed.fault;
}

void Read(const toml::table& root, Setup& setup) {
  for (const auto& [key, node] : root) {
    const std::string name(key.str());
    if (name == "description") {
      if (!node.is_string()) {
        Refuse(node, "description takes a text");
      }
    } else if (name == "seed") {
      setup.seed = static_cast<std::uint64_t>(Integer(node, name, 0, INT64_MAX));
    } else if (name == "device") {
      ReadDevice(Table(node, name), setup);
    } else if (name == "camera") {
      ReadVariables(Table(node, name), name, Var{}, kFirstMcu, setup);
    } else if (name == "mcu") {
      ReadVariables(Table(node, name), name, kFirstMcu, kFirstTransient, setup);
    } else if (name == "fault") {
      const toml::array* faults = node.as_array();
      if (faults == nullptr) {
        Refuse(node, "faults are written [[fault]]");
      }
      for (const toml::node& fault : *faults) {
        setup.faults.push_back(ReadFault(fault));
      }
    } else {
      Refuse(node, "unknown key '" + name + "'");
    }
  }
}

}  // namespace

SetupOrError ParseScenario(std::string_view text, const std::string& name, const Setup& base) {
  SetupOrError result{base, ""};
  const auto where = [&name](std::uint32_t line) { return name + ":" + std::to_string(line) + ": "; };
  try {
    Read(toml::parse(text), result.setup);
  } catch (const toml::parse_error& error) {
    result.error = where(error.source().begin.line) + std::string(error.description());
  } catch (const Wrong& wrong) {
    result.error = where(wrong.line) + wrong.text;
  }
  for (char& c : result.error) {
    c = c == '\n' || c == '\r' ? ' ' : c;
  }
  return result;
}

SetupOrError LoadScenario(const std::string& path, const Setup& base) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) {
    return {base, path + ": cannot be read"};
  }
  return ParseScenario(text.str(), path, base);
}

}  // namespace sim
