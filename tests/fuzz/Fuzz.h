// What the fuzz targets share. A target defines TestOneInput. It is linked with libFuzzer (script/fuzz) or with
// Replay.cpp, which runs the stored inputs as a normal test.
#ifndef ZR4410_TESTS_FUZZ_FUZZ_H
#define ZR4410_TESTS_FUZZ_FUZZ_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

void TestOneInput(const uint8_t* data, size_t size);

// The functions that libFuzzer or Replay.cpp calls.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Ends the process if a condition does not hold, so that the fuzzer stores the input. what: the condition in words.
void Require(bool holds, const std::string& what);

// Reads an input from front to back. Past its end it reads zeros.
class Input {
 public:
  // Stored inputs for targets that read bytes may be written in hex. Such an input begins with '#', and a '#' begins a
  // comment up to the end of the line. Any other input is used unchanged.
  static std::vector<uint8_t> FromHex(const uint8_t* data, size_t size);

  explicit Input(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  bool AtEnd() const { return next_ >= bytes_.size(); }
  uint8_t Byte() { return AtEnd() ? uint8_t{0} : bytes_[next_++]; }
  std::vector<uint8_t> Bytes(size_t count) {
    const size_t taken = std::min(count, bytes_.size() - std::min(next_, bytes_.size()));
    const auto begin = bytes_.begin() + static_cast<ptrdiff_t>(next_);
    next_ += taken;
    return {begin, begin + static_cast<ptrdiff_t>(taken)};
  }

 private:
  std::vector<uint8_t> bytes_;
  size_t next_ = 0;
};

// Removes the first line from text and returns it without its line feed.
std::string TakeLine(std::string_view& text);

#endif
