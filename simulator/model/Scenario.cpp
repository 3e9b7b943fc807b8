#include "simulator/model/Scenario.h"

#include <toml++/toml.h>

#include <algorithm>
#include <charconv>

#include "simulator/model/Error.h"

namespace sim {
namespace {

// An error before the file's name and the line are added to its text.
struct ErrorAt {
  std::string text;
  std::uint32_t line;
};

[[noreturn]] void Refuse(const toml::node& node, const std::string& text) {
  throw ErrorAt{text, node.source().begin.line};
}

std::int64_t Integer(const toml::node& node, const std::string& key, std::int64_t least, std::int64_t greatest) {
  const auto value = node.is_integer() ? node.value<std::int64_t>() : std::nullopt;
  if (!value || *value < least || *value > greatest) {
    Refuse(node, key + " must be a whole number from " + std::to_string(least) + " to " + std::to_string(greatest));
  }
  return *value;
}

bool Boolean(const toml::node& node, const std::string& key) {
  const auto value = node.is_boolean() ? node.value<bool>() : std::nullopt;
  if (!value) {
    Refuse(node, key + " must be true or false");
  }
  return *value;
}

const toml::table& Table(const toml::node& node, std::string_view key) {
  if (!node.is_table()) {
    Refuse(node, std::string(key) + " must be a table");
  }
  return *node.as_table();
}

std::uint8_t Register(const toml::node& node, const std::string& key) {
  return static_cast<std::uint8_t>(Integer(node, key, 0, 0xFF));
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
    Refuse(node, key + " must be a number" + (names.empty() ? "" : " or one of: " + names));
  }
  return *value;
}

void ReadRegisters(const toml::table& table, Setup& setup) {
  for (const auto& [key, node] : table) {
    const std::string text(key.str());
    const bool hex = text.starts_with("0x");
    const char* const begin = text.data() + (hex ? 2 : 0);
    const char* const end = text.data() + text.size();
    unsigned number = 0;
    const auto parsed = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != end || number >= setup.state.registers.size()) {
      Refuse(node, "'" + text + "' is not a register number");
    }
    setup.state.registers[number] = Register(node, text);
  }
}

// Reads the variables from `from` up to but not including `to`, and in [camera] the registers.
void ReadVariables(const toml::table& table, const std::string& section, Var from, Var to, Setup& setup) {
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    const auto var = FindVar(name);
    if (section == "camera" && name == "registers") {
      ReadRegisters(Table(node, name), setup);
    } else if (section == "camera" && name == "sensor_mode") {
      setup.state.registers[kSensorModeRegister] = Register(node, name);
    } else if (var && *var >= from && *var < to) {
      setup.state[*var] = Value(node, name, *var);
    } else {
      Refuse(node, "unknown key '" + name + "' in [" + section + "]");
    }
  }
}

// Sets the key of Setup.h that has that name in that section. Returns whether there is one.
bool ReadKey(const toml::node& node, std::string_view section, const std::string& name, Setup& setup) {
  for (const SetupKey& key : SetupKeys()) {
    if (key.section == section && key.key == name) {
      key.set(setup, key.is_switch ? std::int64_t{Boolean(node, name)} : Integer(node, name, key.least, key.greatest));
      return true;
    }
  }
  return false;
}

void ReadDevice(const toml::table& table, Setup& setup) {
  for (const auto& [key, node] : table) {
    const std::string name(key.str());
    if (!ReadKey(node, "device", name, setup)) {
      Refuse(node, "unknown key '" + name + "' in [device]");
    }
  }
}

// Returns the value of a fault's key as the text that --fault takes.
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
    Refuse(node, key + " must be a number or a text" + (key == "nth" ? " or a list of numbers" : ""));
  }
  return all;
}

Fault ReadFault(const toml::node& node) {
  const toml::table& table = Table(node, "fault");
  const toml::node* kind = table.get("kind");
  if (kind == nullptr || !kind->is_string()) {
    Refuse(kind != nullptr ? *kind : node, "a fault must have a kind, such as \"no-reply\"");
  }
  const auto at = [](const toml::node& where, auto read) {
    try {
      return read();
    } catch (const Error& error) {
      Refuse(where, error.what());
    }
  };
  Fault fault = at(*kind, [kind] { return ParseFault(*kind->value<std::string>()); });
  for (const auto& [key, value] : table) {
    if (const std::string name(key.str()); name != "kind") {
      const std::string text = Plain(value, name);
      at(value, [&] { SetFaultKey(fault, name, text); });
    }
  }
  return fault;
}

void Read(const toml::table& root, Setup& setup) {
  for (const auto& [key, node] : root) {
    const std::string name(key.str());
    if (name == "description") {
      if (!node.is_string()) {
        Refuse(node, "description must be a text");
      }
    } else if (name == "device") {
      ReadDevice(Table(node, name), setup);
    } else if (name == "camera") {
      ReadVariables(Table(node, name), name, Var{}, kFirstMcu, setup);
    } else if (name == "mcu") {
      ReadVariables(Table(node, name), name, kFirstMcu, kFirstTransient, setup);
    } else if (name == "fault") {
      const toml::array* faults = node.as_array();
      if (faults == nullptr) {
        Refuse(node, "a fault must be written as [[fault]]");
      }
      for (const toml::node& fault : *faults) {
        setup.faults.push_back(ReadFault(fault));
      }
    } else if (!ReadKey(node, "", name, setup)) {
      Refuse(node, "unknown key '" + name + "'");
    }
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
