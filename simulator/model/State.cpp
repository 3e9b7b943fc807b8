// The table of variables, made from the rows in State.h, and the look-up in it.
#include "simulator/model/State.h"

#include <algorithm>
#include <cstdio>

namespace sim {
namespace {

constexpr std::uint8_t kStartSensorMode = 0x06;

constexpr VarInfo kVars[] = {
#define X(name, start, least, greatest, wire, names) {#name, start, least, greatest, wire, names},
    ZR4410_CAMERA_VARIABLES(X) ZR4410_MCU_VARIABLES(X) ZR4410_TRANSIENT_VARIABLES(X)
#undef X
};

}  // namespace

bool VarInfo::Accepts(std::uint32_t value) const {
  if (!names.empty()) {
    return std::any_of(names.begin(), names.end(), [value](const ValueName& n) { return n.value == value; });
  }
  return value >= least && value <= greatest;
}

std::optional<std::uint32_t> VarInfo::FromName(std::string_view text) const {
  for (const ValueName& n : names) {
    if (n.name == text) {
      return n.value;
    }
  }
  return std::nullopt;
}

const VarInfo& Info(Var var) { return kVars[static_cast<std::size_t>(var)]; }

std::optional<Var> FindVar(std::string_view name) {
  for (std::size_t i = 0; i < kVarCount; ++i) {
    if (kVars[i].name == name) {
      return static_cast<Var>(i);
    }
  }
  return std::nullopt;
}

std::string ValueText(Var var, std::uint32_t value) {
  for (const ValueName& n : Info(var).names) {
    if (n.value == value) {
      return std::string(n.name);
    }
  }
  const bool decimal = var > kFirstMcu && var < kFirstTransient;  // the MCU's variables except its version
  char text[16];
  std::snprintf(text, sizeof text, decimal ? "%u" : value > 0xFF ? "0x%04X" : "0x%02X", value);
  return text;
}

State::State() {
  std::transform(std::begin(kVars), std::end(kVars), values.begin(), [](const VarInfo& v) { return v.start; });
  registers[kSensorModeRegister] = kStartSensorMode;
}

}  // namespace sim
