// One end of a terminal, for the tests that play what is on its other end.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "tests/simulator/Support.h"

class TerminalLine {
 public:
  explicit TerminalLine(int file) : file_(file) {}
  ~TerminalLine() { close(file_); }
  void Write(const std::string& hex) const {
    const Packet bytes = B(hex);
    EXPECT_EQ(write(file_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // So many bytes, or what came within the time limit.
  std::string Read(std::size_t count) const {
    Packet bytes;
    while (bytes.size() < count) {
      pollfd wait{file_, POLLIN, 0};
      std::uint8_t byte = 0;
      if (poll(&wait, 1, kLimitMs) != 1 || read(file_, &byte, 1) != 1) {
        break;
      }
      bytes.push_back(byte);
    }
    return Hex(bytes);
  }

 private:
  static constexpr int kLimitMs = 20000;
  int file_;
};
