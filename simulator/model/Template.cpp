// Reads templates, matches packets with them, and fills them with values.
#include "simulator/model/Template.h"

#include <algorithm>

namespace sim {
namespace {

// Visits the characters of one template byte: visit(character, position of its lowest bit, width in bits).
template <typename Visit>
void EachDigit(std::string_view token, Visit visit) {
  const int width = static_cast<int>(8 / token.size());
  int shift = 8;
  for (const char c : token) {
    shift -= width;
    visit(c, shift, width);
  }
}

std::string_view NextToken(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const std::string_view token = text.substr(0, text.find(' '));
  text.remove_prefix(token.size());
  return token;
}

bool IsLetter(char c) { return c >= 'a' && c <= 'z'; }

unsigned Literal(char c) { return static_cast<unsigned>(c <= '9' ? c - '0' : c - 'A' + 10); }

// The numbers of the block inquiry for the wide-dynamic-range modes 0 to 4.
constexpr std::uint32_t kBlockWdrModes[] = {2, 3, 1, 0, 4};

std::uint32_t Encode(Code code, std::uint32_t value) {
  switch (code) {
    case Code::Plain:
      return value;
    case Code::OnOff:
      return value == kOn ? 1 : 0;
    case Code::NotOff:
      return value == kOff ? 0 : 1;
    case Code::High8:
      return value >> 8 & 0xFF;
    case Code::WdrMode:
      return value < std::size(kBlockWdrModes) ? kBlockWdrModes[value] : 0;
  }
  return value;
}

std::uint32_t Decode(Code code, std::uint32_t wire) {
  switch (code) {
    case Code::Plain:
      return wire;
    case Code::OnOff:
    case Code::NotOff:
      return wire == 1 ? kOn : kOff;
    case Code::High8:
      return wire << 8;
    case Code::WdrMode: {
      const auto* const found = std::ranges::find(kBlockWdrModes, wire);
      return found != std::end(kBlockWdrModes) ? static_cast<std::uint32_t>(found - kBlockWdrModes) : wire;
    }
  }
  return wire;
}

}  // namespace

Template::Template(const char* text) : text_(text) {
  for (std::string_view rest = text_, token; !(token = NextToken(rest)).empty();) {
    if (token == "..") {
      optional_ = true;
      continue;
    }
    const auto at = static_cast<std::uint8_t>(masks_.size());
    unsigned mask = 0, bits = 0;
    EachDigit(token, [&](char c, int shift, int width) {
      if (IsLetter(c)) {
        parts_.push_back({static_cast<std::uint8_t>(c - 'a'), at, static_cast<std::uint8_t>(shift),
                          static_cast<std::uint8_t>(width)});
        widths_[parts_.back().letter] = static_cast<std::uint8_t>(widths_[parts_.back().letter] + width);
      } else {
        mask |= ((1U << width) - 1) << shift;
        bits |= Literal(c) << shift;
      }
    });
    masks_.push_back(static_cast<std::uint8_t>(mask));
    bits_.push_back(static_cast<std::uint8_t>(bits));
  }
}

bool Template::Fits(ByteView data) const {
  if (data.size() != masks_.size() && !(optional_ && data.size() == masks_.size() + 1)) {
    return false;
  }
  for (std::size_t i = 0; i < masks_.size(); ++i) {
    if ((data[i] & masks_[i]) != bits_[i]) {
      return false;
    }
  }
  return true;
}

std::optional<std::uint8_t> Template::Fixed(std::size_t at) const {
  return at < masks_.size() && masks_[at] == 0xFF ? std::optional(bits_[at]) : std::nullopt;
}

std::optional<Values> Match(const Template& text, std::span<const Field> fields, ByteView data) {
  if (!text.Fits(data)) {
    return std::nullopt;
  }
  std::array<std::uint32_t, Template::kLetters> sums{};
  for (const Template::Part& part : text.parts_) {
    sums[part.letter] = sums[part.letter] << part.width | (data[part.at] >> part.shift & ((1U << part.width) - 1));
  }
  std::optional<Values> values(std::in_place);
  for (const Field& field : fields) {
    if (const auto letter = static_cast<std::size_t>(field.letter - 'a');
        IsLetter(field.letter) && text.widths_[letter] != 0) {
      values->push_back({&field, Decode(field.code, sums[letter])});
    }
  }
  return values;
}

Bytes Fill(const Template& text, std::span<const Field> fields, const State& state) {
  std::array<std::uint32_t, Template::kLetters> values{};
  for (const Field& field : fields) {
    if (IsLetter(field.letter)) {
      values[static_cast<std::size_t>(field.letter - 'a')] = Encode(field.code, state[field.var]);
    }
  }
  Bytes bytes = text.bits_;
  std::array<std::uint8_t, Template::kLetters> left = text.widths_;
  for (const Template::Part& part : text.parts_) {
    left[part.letter] = static_cast<std::uint8_t>(left[part.letter] - part.width);
    const unsigned digit = values[part.letter] >> left[part.letter] & ((1U << part.width) - 1);
    bytes[part.at] = static_cast<std::uint8_t>(bytes[part.at] | digit << part.shift);
  }
  return bytes;
}

bool Accepted(const Values& values) {
  return std::all_of(values.begin(), values.end(),
                     [](const FieldValue& v) { return Info(v.field->var).Accepts(v.value); });
}

bool Fits(const Values& values) {
  return std::all_of(values.begin(), values.end(),
                     [](const FieldValue& v) { return v.value <= Info(v.field->var).wire; });
}

std::string ValuesText(const Values& values) {
  std::string text;
  for (const FieldValue& v : values) {
    std::string name(Info(v.field->var).name);
    std::replace(name.begin(), name.end(), '_', ' ');
    text += (text.empty() ? "" : ", ") + (values.size() > 1 ? name + " " : "") + ValueText(v.field->var, v.value);
  }
  return text;
}

}  // namespace sim
