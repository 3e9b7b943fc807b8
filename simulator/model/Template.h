// Templates: the text form in which the protocol tables write a packet and the variables in it.
//
// A template is bytes, separated by blanks: two characters are two nibbles, eight are eight bits. Digits and capitals
// stand for themselves. A small letter stands for the field of that letter, whose digits are collected from left to
// right. ".." is one byte that is ignored and may be missing.
//
//   "04 4B 00 00 0v 0v"   after 04 4B 00 00 two bytes, whose low nibbles are the high and the low half of field v
//   "0000ddss"            one byte with two bits of field d and two of field s
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/model/Bytes.h"
#include "simulator/model/State.h"

namespace sim {

// How a variable's value is written in a template.
enum class Code : std::uint8_t {
  Plain,    // as it is; its low bits if the template has too few
  OnOff,    // 1 if the variable is kOn, else 0
  NotOff,   // 0 if the variable is kOff, else 1
  High8,    // the high byte of a 16-bit position
  WdrMode,  // the numbers by which the block inquiry tells the wide-dynamic-range modes
};

struct Field {
  char letter;  // kStepped: no template shows it
  Var var;
  Code code = Code::Plain;
};
constexpr char kStepped = '-';

struct FieldValue {
  const Field* field;
  std::uint32_t value;  // of the variable, decoded
};
using Values = std::vector<FieldValue>;

// The values of the fields in `data`, in the order of `fields`; nothing if `data` does not have the template's shape.
// Fields that the template does not show are left out. Values are not checked against their ranges.
std::optional<Values> Match(std::string_view text, std::span<const Field> fields, ByteView data);
// The bytes of the template, with the fields' values taken from the state.
Bytes Fill(std::string_view text, std::span<const Field> fields, const State& state);
// Whether each variable may be set to its value.
bool Accepted(const Values& values);
// One value alone: "manual"; several with their names: "pan 64000, tilt 300, zoom 16".
std::string ValuesText(const Values& values);

}  // namespace sim
