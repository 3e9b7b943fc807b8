// Fixtures: every test starts with a fresh FakeOs and with the product in its start-up state.
#ifndef ZR4410_TESTS_FAKEOS_FIXTURES_H
#define ZR4410_TESTS_FAKEOS_FIXTURES_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "camera/QM2150.h"
#include "camera/SnrQM2150.h"
#include "frontend/DeviceActions.h"
#include "frontend/Options.h"
#include "frontend/Reports.h"
#include "link/MsgqClient.h"
#include "link/Relay.h"
#include "mcu/McuComm.h"
#include "support/Debug.h"
#include "support/Signal.h"
#include "support/Thread.h"
#include "support/Utils.h"
#include "tests/fakeos/FakeOs.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// The poll interval, for tests that are not about it. MsgqClientTest checks the number itself.
inline constexpr int kPollMs = ZR4410_POLL_MS;
inline constexpr int kPollsUntilTimeOut = ZR4410_TIMEOUT_MS / ZR4410_POLL_MS + 1;
inline constexpr int kTimeOutMs = kPollsUntilTimeOut * kPollMs;

// A log line, and a message of these bytes padded with zeros, as they appear in FakeOs::Timeline().
inline std::string Logged(const LogLine& line) { return "log " + std::to_string(line.level) + ' ' + line.text; }
inline std::string Sent(Bytes body) {
  body.resize(36);
  return "send " + std::to_string(FakeOs::kPid) + ' ' + Hex(body);
}

inline std::vector<LogLine> operator+(std::vector<LogLine> first, const std::vector<LogLine>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// The reply of a completed inquiry: 90 50, the data bytes, FF.
Bytes Completed(Bytes data);

// A copy of data bytes with some of them replaced: With(kBlock, {{11, 0x20}}).
Bytes With(Bytes data, const std::map<size_t, uint8_t>& changes);

// Sets every global of the product to its value at the start of a program.
void ResetProduct();

// What the product stores in 32 bits for a number that does not fit: its lower half where a long has 64 bits, the
// nearest number that fits where a long has 32 bits, as on the device.
inline constexpr int32_t LowerHalfOrNearest(int32_t lowerHalf, int32_t nearest) {
  return sizeof(long) == 8 ? lowerHalf : nearest;
}

// How a run of the whole program ended.
struct Ended {
  int status;          // what main returned; the system turns -1 into the exit status 255
  std::string errors;  // standard error
  bool signalsHeld;    // whether SIGTERM was blocked at the end
};
Ended RunProgram(std::vector<std::string> arguments);

// The machine, with no queue open.
class Machine : public testing::Test {
 protected:
  Machine() { ResetProduct(); }
  FakeOs os;
};

// The machine with both queues open. What happened while they were opened is forgotten.
class Linked : public Machine {
 protected:
  Linked();

  // Starts over within a test, after a failed exchange: queues open and empty, no stop flag, nothing recorded.
  void StartOver();
};

// A record filled with one value, to see what a routine clears and what it leaves unchanged.
template <typename Record>
Record Filled(uint8_t value) {
  Record record;
  memset(&record, value, sizeof record);
  return record;
}

// The bytes of a record or an array.
template <typename Record>
Bytes BytesOf(const Record& record) {
  const auto* first = reinterpret_cast<const uint8_t*>(&record);
  return Bytes(first, first + sizeof record);
}

#endif
