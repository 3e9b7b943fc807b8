// Templates: the text form of a packet and the variables in it, as used in the protocol tables.
//
// A template consists of bytes separated by spaces: two characters are two nibbles, eight are eight bits. Digits and
// capitals stand for themselves. A small letter stands for part of the field of that letter, whose parts are read from
// left to right. ".." is one byte that is ignored and may be missing.
//
//   "04 4B 00 00 0v 0v"   04 4B 00 00, then two bytes, whose low nibbles are the high and the low half of field v
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
  Plain,    // as it is; only its low bits if the template has fewer bits
  OnOff,    // 1 if the variable is kOn, else 0
  NotOff,   // 0 if the variable is kOff, else 1
  High8,    // the high byte of a 16-bit position
  WdrMode,  // as the block inquiry numbers the wide-dynamic-range modes
};

struct Field {
  char letter;  // kStepped: it is in no template
  Var var;
  Code code = Code::Plain;
};
constexpr char kStepped = '-';

struct FieldValue {
  const Field* field;
  std::uint32_t value;  // of the variable, decoded
};
using Values = std::vector<FieldValue>;

// Returns the values of the fields in `data`, in the order of `fields`; nothing if `data` does not match the template.
// Fields that are not in the template are left out. Values are not checked against their ranges.
std::optional<Values> Match(std::string_view text, std::span<const Field> fields, ByteView data);
// Returns the bytes of the template, with the fields' values taken from the state.
Bytes Fill(std::string_view text, std::span<const Field> fields, const State& state);
// Returns whether a command may set each variable to its value.
bool Accepted(const Values& values);
// Describes one value without its name, "manual", and several with their names, "pan 64000, tilt 300, zoom 16".
std::string ValuesText(const Values& values);

}  // namespace sim
