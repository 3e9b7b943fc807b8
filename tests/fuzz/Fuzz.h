// What the fuzz targets share. A target defines TestOneInput; it is linked with libFuzzer (script/fuzz) or with
// Replay.cpp, which runs the stored inputs as an ordinary test.
#ifndef ZR4410_TESTS_FUZZ_FUZZ_H
#define ZR4410_TESTS_FUZZ_FUZZ_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

void TestOneInput(const uint8_t* data, size_t size);

// What libFuzzer, or the replay, calls.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Ends the process, so that the fuzzer keeps the input, if something that always holds does not.
void Require(bool holds, const std::string& what);

// Takes an input apart from the front. At its end there are zeros.
class Input {
 public:
  // Stored inputs for targets that read bytes are written in hex: text that begins with '#', each '#' beginning
  // a comment that ends with the line. Anything else is taken as it is.
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

// The line that text begins with, without its line feed; text loses both.
std::string TakeLine(std::string_view& text);

#endif
