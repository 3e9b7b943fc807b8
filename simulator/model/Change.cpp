// Looks up variables, registers and values by name, and composes the error messages for invalid ones.
#include "simulator/model/Change.h"

#include <algorithm>
#include <charconv>

#include "simulator/model/Error.h"
#include "simulator/model/Text.h"

namespace sim {
namespace {

constexpr std::string_view kCamera = "camera";
constexpr std::string_view kMcu = "mcu";
constexpr std::string_view kRegisters = "registers";
constexpr std::string_view kSensorMode = "sensor_mode";  // a register that files and requests name as a variable

[[noreturn]] void Refuse(std::string_view section, std::string_view key, const std::string& what) {
  throw Error(std::string(section) + "." + std::string(key) + ": " + what);
}

std::string NamesOf(const VarInfo& info) {
  std::string names;
  for (const ValueName& name : info.names) {
    names += (names.empty() ? "" : ", ") + std::string(name.name);
  }
  return names;
}

std::uint32_t Number(std::string_view section, std::string_view key, const Given& given, std::uint32_t greatest) {
  try {
    return static_cast<std::uint32_t>(WholeNumber(given, 0, greatest));
  } catch (const Error& error) {
    Refuse(section, key, error.what());
  }
}

std::uint8_t RegisterNumber(std::string_view key) {
  const bool hex = key.starts_with("0x") || key.starts_with("0X");
  const std::string_view digits = hex ? key.substr(2) : key;
  unsigned number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, hex ? 16 : 10);
  if (error != std::errc() || end != digits.data() + digits.size() || number > 0xFF) {
    Refuse(kRegisters, key, "no such register (0 to 255, or 0x00 to 0xFF)");
  }
  return static_cast<std::uint8_t>(number);
}

}  // namespace

std::string GivenText(const Given& given) {
  const std::string plain = GivenPlain(given);
  if (std::holds_alternative<std::string>(given)) {
    return "'" + Printable(plain) + "'";
  }
  // "1000.0" instead of "1000", which would look like a whole number
  const bool whole = plain.find_first_not_of("-0123456789") == std::string::npos;
  return std::holds_alternative<double>(given) && whole ? plain + ".0" : plain;
}

std::int64_t WholeNumber(const Given& given, std::int64_t least, std::int64_t greatest, std::string_view unit) {
  const auto* const number = std::get_if<std::int64_t>(&given);
  if (number != nullptr && *number >= least && *number <= greatest) {
    return *number;
  }
  throw Error(GivenText(given) + " is " + (number != nullptr ? "out of range" : "not a whole number") + " (" +
              std::to_string(least) + " to " + std::to_string(greatest) + std::string(unit) + ")");
}

bool OnOrOff(const Given& given) {
  if (const auto* on = std::get_if<bool>(&given)) {
    return *on;
  }
  throw Error(GivenText(given) + " is neither true nor false");
}

std::string GivenPlain(const Given& given) {
  if (const auto* text = std::get_if<std::string>(&given)) {
    return *text;
  }
  if (const auto* number = std::get_if<std::int64_t>(&given)) {
    return std::to_string(*number);
  }
  if (const auto* number = std::get_if<double>(&given)) {
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, *number).ptr};
  }
  return std::get<bool>(given) ? "true" : "false";
}

std::string_view VariableSection(Var var) { return var < kFirstMcu ? kCamera : var < kFirstTransient ? kMcu : ""; }

std::uint32_t VariableValue(Var var, const Given& given) {
  const VarInfo& info = Info(var);
  const std::string_view section = VariableSection(var);
  if (info.names.empty() || std::holds_alternative<std::int64_t>(given)) {
    return Number(section, info.name, given, info.wire);
  }
  std::optional<std::uint32_t> value;
  if (const auto* text = std::get_if<std::string>(&given)) {
    value = info.FromName(*text);
  } else if (const auto* on = std::get_if<bool>(&given)) {
    value = info.FromName(*on ? "on" : "off");
    value = value ? value : info.FromName(*on ? "yes" : "no");
  }
  if (!value) {
    const std::string noun = info.name.ends_with("_mode") ? "mode " : "value ";
    Refuse(section, info.name, "no such " + noun + GivenText(given) + " (" + NamesOf(info) + ")");
  }
  return *value;
}

void CheckSection(std::string_view section) {
  if (section != kCamera && section != kMcu && section != kRegisters) {
    throw Error(std::string(section) + ": no such section (camera, mcu, registers)");
  }
}

void SetVariable(Change& change, std::string_view section, std::string_view key, const Given& given) {
  CheckSection(section);
  if (section == kRegisters) {
    const std::uint8_t number = RegisterNumber(key);
    change.registers.emplace_back(number, static_cast<std::uint8_t>(Number(section, key, given, 0xFF)));
  } else if (section == kCamera && key == kSensorMode) {
    const std::uint32_t mode = Number(section, key, given, 0xFF);
    change.registers.emplace_back(static_cast<std::uint8_t>(kSensorModeRegister), static_cast<std::uint8_t>(mode));
  } else if (const auto var = FindVar(key); var && VariableSection(*var) == section) {
    change.variables.emplace_back(*var, VariableValue(*var, given));
  } else {
    Refuse(section, key, "no such variable");
  }
}

}  // namespace sim
