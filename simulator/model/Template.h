// Templates: the text form of a packet and the variables in it, as used in the protocol tables.
//
// A template consists of bytes separated by spaces: two characters are two nibbles, eight are eight bits. Digits and
// capitals stand for themselves. A small letter stands for part of the field of that letter, whose parts are read from
// left to right. ".." at the end is one byte that is ignored and may be missing.
//
//   "04 4B 00 00 0v 0v"   04 4B 00 00, then two bytes, whose low nibbles are the high and the low half of field v
//   "0000ddss"            one byte with two bits of field d and two of field s
#pragma once

#include <array>
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
// The values of a packet. They are not on the heap, because every request needs them.
class Values {
 public:
  static constexpr std::size_t kMost = 20;

  void push_back(const FieldValue& value) { values_[size_++] = value; }
  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  const FieldValue& front() const { return values_[0]; }
  const FieldValue& operator[](std::size_t i) const { return values_[i]; }
  const FieldValue* begin() const { return values_.data(); }
  const FieldValue* end() const { return values_.data() + size_; }

 private:
  std::size_t size_ = 0;
  std::array<FieldValue, kMost> values_;
};

// A template, read once from its text.
class Template {
 public:
  Template(const char* text);  // NOLINT(google-explicit-constructor): the tables consist of texts

  operator std::string_view() const { return text_; }  // NOLINT(google-explicit-constructor)
  bool empty() const { return text_.empty(); }
  // Returns whether `data` has the template's length and its fixed bits.
  bool Fits(ByteView data) const;
  // Returns the byte at an offset if all its bits are fixed; nothing otherwise.
  std::optional<std::uint8_t> Fixed(std::size_t at) const;

 private:
  friend std::optional<Values> Match(const Template& text, std::span<const Field> fields, ByteView data);
  friend Bytes Fill(const Template& text, std::span<const Field> fields, const State& state);
  static constexpr std::size_t kLetters = 'z' - 'a' + 1;

  // The bits of one byte that belong to a field.
  struct Part {
    std::uint8_t letter;  // from 0
    std::uint8_t at;
    std::uint8_t shift, width;
  };

  std::string_view text_;
  Bytes masks_, bits_;     // of each byte, the fixed bits and their values
  bool optional_ = false;  // there may be one more byte
  std::vector<Part> parts_;
  std::array<std::uint8_t, kLetters> widths_{};  // bits of each letter
};

// Returns the values of the fields in `data`, in the order of `fields`; nothing if `data` does not match the template.
// Fields that are not in the template are left out. Values are not checked against their ranges.
std::optional<Values> Match(const Template& text, std::span<const Field> fields, ByteView data);
// Returns the bytes of the template, with the fields' values taken from the state.
Bytes Fill(const Template& text, std::span<const Field> fields, const State& state);
// Returns whether a command may set each variable to its value.
bool Accepted(const Values& values);
// Returns whether each value fits its variable's field.
bool Fits(const Values& values);
// Describes one value without its name, "manual", and several with their names, "pan 64000, tilt 300, zoom 16".
std::string ValuesText(const Values& values);

}  // namespace sim
