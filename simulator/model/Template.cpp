#include "simulator/model/Template.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::size_t kLetters = 'z' - 'a' + 1;

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

// The wide-dynamic-range modes 0 to 4 in the numbers of the block inquiry.
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

// Returns how many bits the template has for a letter.
int WidthOf(std::string_view text, char letter) {
  int bits = 0;
  for (std::string_view rest = text, token; !(token = NextToken(rest)).empty();) {
    EachDigit(token, [&](char c, int, int width) { bits += c == letter ? width : 0; });
  }
  return bits;
}

}  // namespace

std::optional<Values> Match(std::string_view text, std::span<const Field> fields, ByteView data) {
  std::uint32_t sums[kLetters] = {};
  bool seen[kLetters] = {};
  bool same = true;
  std::size_t at = 0;
  for (std::string_view rest = text, token; !(token = NextToken(rest)).empty(); ++at) {
    if (token == "..") {
      at -= at >= data.size() ? 1 : 0;  // the optional byte is missing
      continue;
    }
    if (at >= data.size()) {
      return std::nullopt;
    }
    const unsigned byte = data[at];
    EachDigit(token, [&](char c, int shift, int width) {
      const unsigned digit = byte >> shift & ((1U << width) - 1);
      if (IsLetter(c)) {
        sums[c - 'a'] = sums[c - 'a'] << width | digit;
        seen[c - 'a'] = true;
      } else {
        same = same && digit == Literal(c);
      }
    });
  }
  if (!same || at != data.size()) {
    return std::nullopt;
  }
  Values values;
  for (const Field& field : fields) {
    if (IsLetter(field.letter) && seen[field.letter - 'a']) {
      values.push_back({&field, Decode(field.code, sums[field.letter - 'a'])});
    }
  }
  return values;
}

Bytes Fill(std::string_view text, std::span<const Field> fields, const State& state) {
  int left[kLetters] = {};
  std::uint32_t value[kLetters] = {};
  for (const Field& field : fields) {
    if (IsLetter(field.letter)) {
      left[field.letter - 'a'] = WidthOf(text, field.letter);
      value[field.letter - 'a'] = Encode(field.code, state[field.var]);
    }
  }
  Bytes bytes;
  for (std::string_view rest = text, token; !(token = NextToken(rest)).empty();) {
    unsigned byte = 0;
    EachDigit(token, [&](char c, int, int width) {
      unsigned digit = 0;
      if (IsLetter(c)) {
        left[c - 'a'] -= width;
        digit = value[c - 'a'] >> left[c - 'a'] & ((1U << width) - 1);
      } else {
        digit = Literal(c);
      }
      byte = byte << width | digit;
    });
    bytes.push_back(static_cast<std::uint8_t>(byte));
  }
  return bytes;
}

bool Accepted(const Values& values) {
  return std::all_of(values.begin(), values.end(),
                     [](const FieldValue& v) { return Info(v.field->var).Accepts(v.value); });
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
