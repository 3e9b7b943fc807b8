// Fixtures: every test starts with a fresh FakeOs and with the product as it is when a program starts.
#ifndef ZR4410_TESTS_SUPPORT_FIXTURES_H
#define ZR4410_TESTS_SUPPORT_FIXTURES_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
#include "tests/support/FakeOs.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// Every global of the product as it is at the start of a program.
void ResetProduct();

// What strtol makes of a number that needs more than 32 bits is stored in 32: the number of that 64-bit pattern's lower
// half where a long has 64 bits, or the nearest one where it has 32, as on the device.
inline constexpr int32_t LowerHalfOrNearest(int32_t lowerHalf, int32_t nearest) {
  return sizeof(long) == 8 ? lowerHalf : nearest;
}

// How a run of the whole program ended.
struct Ended {
  int status;          // what main returned: the exit status, but for -1, which the system makes 255
  std::string errors;  // standard error
  bool signalsHeld;    // whether SIGTERM could not be caught any more
};
Ended RunProgram(std::vector<std::string> arguments);

// The machine, with nothing opened.
class Machine : public testing::Test {
 protected:
  Machine() { ResetProduct(); }
  FakeOs os;
};

// The machine with both queues open, and whatever that took forgotten.
class Linked : public Machine {
 protected:
  Linked();
};

// Records that hold recognisable junk, to see what a routine clears or leaves alone.
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
