// Everything that can go wrong in one exchange, as tables: what to set up before it, the result, and the log lines of
// the exchange itself. What a caller adds to the lines is the caller's test's business.
#ifndef ZR4410_TESTS_SUPPORT_FAULTS_H
#define ZR4410_TESTS_SUPPORT_FAULTS_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/FakeOs.h"

struct Fault {
  std::string name;  // for a test's name: letters only
  // Makes the next exchange fail on a machine with open queues. good: the payload of a good reply.
  std::function<void(FakeOs& os, const Bytes& good)> arrange;
  int result;
  std::vector<LogLine> lines;
};
inline std::ostream& operator<<(std::ostream& out, const Fault& fault) { return out << fault.name; }

// Of a camera inquiry: QM2150_Inquiry, or QM2150_ProcessVisca with an inquiry.
const std::vector<Fault>& InquiryFaults();

// Of a camera command: QM2150_Command, or QM2150_ProcessVisca with a command.
const std::vector<Fault>& CommandFaults();

// Of MCU_ProcessUart1.
const std::vector<Fault>& McuFaults();

// As a generator of parameterised tests: INSTANTIATE_TEST_SUITE_P(Each, SomeTest, ValuesIn(InquiryFaults()), FaultName);
std::string FaultName(const auto& info) { return info.param.name; }

// The lines, and one more error line behind them unless the result is that of a stop (-15).
std::vector<LogLine> ThenUnlessStopped(const Fault& fault, std::initializer_list<const char*> errorLines);

// The lines and more error lines behind them.
std::vector<LogLine> Then(const Fault& fault, std::initializer_list<const char*> errorLines);

#endif
