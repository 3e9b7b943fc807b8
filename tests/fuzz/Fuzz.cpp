// The entry points of a fuzz target, and how it fails.
#include "tests/fuzz/Fuzz.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "tests/fakeos/FakeOs.h"

// The fuzzer writes the failing input to a real file, so the fake operating system must be off by then.
extern "C" void __asan_on_error() { FakeOs::current = nullptr; }
extern "C" void __ubsan_on_report() { FakeOs::current = nullptr; }

namespace {

[[noreturn]] void Fail(const char* what) {
  FakeOs::current = nullptr;
  if (write(STDERR_FILENO, what, strlen(what)) < 0) {
    _exit(1);
  }
  abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // FakeOs reports a mistake as a failed gtest expectation; it must end the process too.
  GTEST_FLAG_SET(throw_on_failure, true);
  signal(SIGALRM, [](int) { Fail("one input takes too long\n"); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  alarm(20);  // libFuzzer's own time limit would read the fake clock
  TestOneInput(data, size);
  alarm(0);
  return 0;
}

void Require(bool holds, const std::string& what) {
  if (!holds) {
    Fail(("does not hold: " + what + '\n').c_str());
  }
}

std::vector<uint8_t> Input::FromHex(const uint8_t* data, size_t size) {
  if (size == 0 || data[0] != '#') {
    return {data, data + size};
  }
  std::vector<uint8_t> bytes;
  bool comment = false, half = false;
  for (const uint8_t* c = data; c != data + size; ++c) {
    comment = *c == '#' || (comment && *c != '\n');
    if (!comment && isxdigit(*c)) {
      const int digit = *c <= '9' ? *c - '0' : (*c & 0x0F) + 9;
      if (half) {
        bytes.back() = static_cast<uint8_t>(bytes.back() * 16 + digit);
      } else {
        bytes.push_back(static_cast<uint8_t>(digit));
      }
      half = !half;
    } else {
      half = false;
    }
  }
  return bytes;
}

std::string TakeLine(std::string_view& text) {
  const size_t end = std::min(text.find('\n'), text.size());
  const std::string line(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}
