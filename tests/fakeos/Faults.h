// Everything that can go wrong in one exchange, as tables: how to cause it, the result, and the log lines of the
// exchange itself. Only the tests of the exchange (QM2150Transaction and McuComm) check these texts.
#ifndef ZR4410_TESTS_FAKEOS_FAULTS_H
#define ZR4410_TESTS_FAKEOS_FAULTS_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/fakeos/FakeOs.h"

struct Fault {
  std::string name;  // part of a test's name: letters and digits only
  // Makes the next exchange fail on a machine with open queues. good: the payload of a good reply.
  std::function<void(FakeOs& os, const Bytes& good)> arrange;
  int result;
  std::vector<LogLine> lines;
};
inline std::ostream& operator<<(std::ostream& out, const Fault& fault) { return out << fault.name; }

// The faults of a camera inquiry: QM2150_Inquiry, or QM2150_ProcessVisca with an inquiry.
const std::vector<Fault>& InquiryFaults();

// The faults of a camera command: QM2150_Command, or QM2150_ProcessVisca with a command.
const std::vector<Fault>& CommandFaults();

// The faults of MCU_ProcessUart1.
const std::vector<Fault>& McuFaults();

// For tests with one instance per fault:
//   INSTANTIATE_TEST_SUITE_P(Each, Suite, ValuesIn(InquiryFaults()), FaultName<...>);
std::string FaultName(const auto& info) { return info.param.name; }

// The lines of the log after those of the fault and `between` further lines. `between` is the number of lines that the
// routines between the exchange and the routine under test log unless they are stopped; the test does not depend on
// their texts.
std::vector<LogLine> LinesAbove(const std::vector<LogLine>& log, const Fault& fault, size_t between = 0);

#endif
