// Compares the settings reader and writer with a second implementation of the file format. Input: a line with the key,
// a line with the value to write, then the file.
#include <limits>
#include <memory>

#include "tests/fakeos/Fixtures.h"
#include "tests/fuzz/Fuzz.h"

namespace {

constexpr char kPath[] = "/sysconf/conf.img";

// --- The file format, implemented a second time ---

// The lines with their line feeds. One of more than 255 bytes counts as several.
std::vector<std::string> Lines(const std::string& file) {
  std::vector<std::string> lines(1);
  for (const char c : file) {
    if (lines.back().size() == 255 || lines.back().ends_with('\n')) {
      lines.emplace_back();
    }
    lines.back() += c;
  }
  return lines;
}

// The text of a line ends at a zero byte.
std::string Text(const std::string& line) { return line.substr(0, line.find('\0')); }

// The position of the '=' in a line with this key, npos in any other line.
size_t Assignment(const std::string& line, const std::string& key) {
  const std::string text = Text(line);
  return text.starts_with('#') || !text.starts_with(key) ? std::string::npos : text.find('=');
}

std::string Value(std::string text) {
  text.erase(0, text.find_first_not_of(' '));
  if (text.starts_with('"')) {
    text = text.substr(1, text.find('"', 1) - 1);
  }
  const auto end = std::find_if(text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; });
  return {text.begin(), end};
}

std::string ReadValue(const std::string& file, const std::string& key, const std::string& otherwise) {
  for (const std::string& line : Lines(file)) {
    const size_t equals = Assignment(line, key);
    if (equals != std::string::npos) {
      return Value(Text(line).substr(equals + 1));
    }
  }
  return otherwise;
}

std::string WithValue(const std::string& file, const std::string& key, const std::string& value) {
  std::string changed;
  for (const std::string& line : Lines(file)) {
    const size_t equals = Assignment(line, key);
    changed += equals == std::string::npos ? line : line.substr(0, equals) + '=' + value + '\n';
  }
  return changed;
}

// The low 32 bits of a decimal number that saturates as a long; 0 if there is no number.
int32_t Number(const std::string& text) {
  size_t next = std::min(text.find_first_not_of(' '), text.size());
  const bool negative = text.substr(next).starts_with('-');
  next += negative || text.substr(next).starts_with('+');
  using Limits = std::numeric_limits<long>;
  long number = 0;  // negative, because there is one more negative number than positive ones
  for (; next < text.size() && text[next] >= '0' && text[next] <= '9'; ++next) {
    const long digit = text[next] - '0';
    number = number < (Limits::min() + digit) / 10 ? Limits::min() : number * 10 - digit;
  }
  return static_cast<int32_t>(negative ? number : number == Limits::min() ? Limits::max() : -number);
}

}  // namespace

void TestOneInput(const uint8_t* data, size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  const std::string key = Text(TakeLine(rest));
  const std::string value = Text(TakeLine(rest));
  const std::string file(rest);

  ResetProduct();
  FakeOs os;
  os.files = {{kPath, file}, {"/sysconf/other", "EXT_DEBUG=1\n"}, {"/defconf/conf.ptz", ""}};

  const auto out = std::make_unique<char[]>(256);  // the most that a value can need
  strcpy(out.get(), "untouched");
  Require(sysconf_fget(kPath, key.c_str(), out.get()) == 0, "the reader succeeds");
  Require(out.get() == ReadValue(file, key, "untouched"), "the value read");
  Require(os.files.at(kPath) == file, "the reader changes nothing");

  RunProgram({"-g"});
  Require(giDebug == Number(ReadValue(file, "EXT_DEBUG", "")), "the program's debug level");

  os.Forget();
  Require(sysconf_fset(kPath, key.c_str(), value.c_str()) == 0, "the writer succeeds");
  auto expected = os.files;
  expected[kPath] = WithValue(file, key, value);
  expected["/sysconf/other"] = "EXT_DEBUG=1\n";
  expected.erase("/sysconf/conf.img.tmp");
  Require(os.files == expected, "the writer changes the values of matching lines, nothing else");
  Require(os.AfterPowerCut() == expected, "the new file is on the disk");
  Require(os.Log().empty() && os.OpenFiles() == 0, "nothing is logged or left open");
}
