// One example of each system report: what the camera answers, and what the report sends, logs and prints. The log lines
// of the block's fields, which come first, are left to QM2150BlocksTest.
#ifndef ZR4410_TESTS_UNIT_REPORTEXAMPLES_H
#define ZR4410_TESTS_UNIT_REPORTEXAMPLES_H

#include <algorithm>

#include "tests/fakeos/Fixtures.h"

struct ReportExample {
  int number;
  std::vector<Bytes> replies;
  std::vector<Bytes> packets;
  std::vector<LogLine> lines;
  std::string output;
};

// Makes the device answer the next requests as in the example.
inline void Answer(FakeOs& os, const ReportExample& report) {
  for (const Bytes& reply : report.replies) {
    os.Reply(reply);
  }
}

inline void PrintTo(const ReportExample& report, std::ostream* out) { *out << "report " << report.number; }

inline const LogLine kSeparator = Info("===================================================");

// A log without the lines of a block's fields.
inline std::vector<LogLine> WithoutFields(std::vector<LogLine> lines) {
  std::erase_if(lines, [](const LogLine& line) {
    return line.text.find("=\t0x") != std::string::npos || line.text.find(" = 0x") != std::string::npos;
  });
  return lines;
}
inline std::vector<LogLine> ReportLines(const FakeOs& os) { return WithoutFields(os.Log()); }

// --- Data bytes of the blocks ---

inline const Bytes kLensData = {0x02, 0x00, 0x00, 0x00, 0x0D, 0x00, 0x05, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00};
inline const Bytes kCameraData = {0x0C, 0x05, 0x03, 0x0A, 0x00, 0x08, 0x00, 0x02, 0x06, 0x0E, 0x05, 0x1F, 0x09};
inline const Bytes kOtherData = {0x05, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x02, 0x01, 0x00, 0x00};
inline const Bytes kEnlarged1Data = {0x09, 0x05, 0x01, 0x0E, 0x02, 0x00, 0x00, 0x00, 0x00, 0x20, 0x01, 0x0D, 0x0F};
inline const Bytes kEnlarged2Data = {0x02, 0x09, 0x0E, 0x00, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

inline const Bytes kSnrMode60Hz = {0x90, 0x50, 0x00, 0x06, 0xFF};
inline const Bytes kSnrMode50Hz = {0x90, 0x50, 0x00, 0x08, 0xFF};
inline const Bytes kHighSensitivityOn = {0x90, 0x50, 0x02, 0xFF};
inline const Bytes kHighSensitivityOff = {0x90, 0x50, 0x03, 0xFF};

// --- The reports ---

inline const ReportExample kReports[] = {
    {0,
     {Completed(kLensData)},
     {{0x81, 0x09, 0x7E, 0x7E, 0x00, 0xFF}},
     {
         Info("==================================================="),
         Err("[Digital Zoom] ON\n"),
         Err("[Combine Zoom] Optical: x2.74, Digital: x1.00, Combine: x2.74\n"),
         Err("[AF] Auto, Normal, Slow Sensitivity.\n"),
         Err("[Focus Near Limit] 30 cm\n"),
         Err("[Object Distance] 4.90 meter\n"),
     },
     "(13): \n02 00 00 00 0D 00 05 00 00 00 00 03 00 \n"},
    {1,
     {Completed(kCameraData), kSnrMode60Hz, kHighSensitivityOff},
     {{0x81, 0x09, 0x7E, 0x7E, 0x01, 0xFF}, {0x81, 0x09, 0x04, 0x24, 0x72, 0xFF}, {0x81, 0x09, 0x04, 0x5E, 0xFF}},
     {
         Info("==================================================="),
         Info("[High Sensitivity] OFF\n"),
         Info("[AE] Fully Auto, 1/60s, x2.51(8.0dB), F2.80\n"),
         Info("[ExpComp] ON, x1.41(3.0dB)\n"),
         Info("[AWB] Auto, (Rgain, Bgain) = (0xc5, 0x3a)\n"),
     },
     "(13): \n0C 05 03 0A 00 08 00 02 06 0E 05 1F 09 \n"},
    {2,
     {Completed(kOtherData)},
     {{0x81, 0x09, 0x7E, 0x7E, 0x02, 0xFF}},
     {
         Info("==================================================="),
         Err("[DN] [Auto_ICR] ON, [ICR] OFF (IR_CUT)\n"),
     },
     "(13): \n05 00 04 00 00 00 00 00 07 02 01 00 00 \n"},
    {3,
     {Completed(kEnlarged1Data)},
     {{0x81, 0x09, 0x7E, 0x7E, 0x03, 0xFF}},
     {
         Info("==================================================="),
         Err("[Digital Zoom] x2.50\n"),
         Info("[High Sensitivity] ON\n"),
         Info("[Gain Limit] x100.00(40.0dB)\n"),
         Info("[NR] ON, Level: 5\n"),
     },
     "(13): \n09 05 01 0E 02 00 00 00 00 20 01 0D 0F \n"},
    {4,
     {Completed(kEnlarged2Data)},
     {{0x81, 0x09, 0x7E, 0x7E, 0x04, 0xFF}},
     {
         Info("===================================================\n"),  // with a line feed, only here
         Info("[WideD mode] Auto ON/OFF\n"),
         Info("[WideD detection sensitivity] M\n"),
         Info("[WideD blocked-up shadow correction level] S\n"),
         Info("[WideD blown-out hoghlight correction level] H\n"),
         Info("[WideD short exposure Exposure ratio] x07\n"),
     },
     "(13): \n02 09 0E 00 07 00 00 00 00 00 00 00 00 \n"},
};

#endif
