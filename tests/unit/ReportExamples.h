// One example of each system report in full: what the camera answers, and everything the report sends, logs and prints.
#ifndef ZR4410_TESTS_UNIT_REPORTEXAMPLES_H
#define ZR4410_TESTS_UNIT_REPORTEXAMPLES_H

#include "tests/unit/BlockReply.h"

struct ReportExample {
  int number;
  std::vector<Bytes> replies;
  std::vector<Bytes> packets;
  std::vector<LogLine> lines;
  std::string output;
};

inline void PrintTo(const ReportExample& report, std::ostream* out) { *out << "report " << report.number; }

inline std::vector<LogLine> operator+(std::vector<LogLine> first, const std::vector<LogLine>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

inline const LogLine kSeparator = Info("===================================================");

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
         Info("Zoom Pos\t\t=\t0x2000\n"),
         Info("Focus Near Limit\t=\t0xd000\n"),
         Info("Focus Pos\t\t=\t0x5000\n"),
         Info("DZoom Mode\t\t=\t0x00\n"),
         Info("AF Mode\t\t=\t0x00\n"),
         Info("AF Sensitivity  \t=\t0x00\n"),
         Info("Digital Zoom\t\t=\t0x01\n"),
         Info("Focus Mode\t\t=\t0x01\n"),
         Info("Low Contrast Detect\t=\t0x00\n"),
         Info("Cam Memory Recall\t=\t0x00\n"),
         Info("Focus Cmd\t\t=\t0x00\n"),
         Info("Zoom Cmd\t\t=\t0x00\n"),
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
         Info("Rgain\t\t=\t0xc5\n"),
         Info("Bgain\t\t=\t0x3a\n"),
         Info("WB Mode\t=\t0x00\n"),
         Info("Apture Gain\t=\t0x08\n"),
         Info("Exposure Mode\t=\t0x00\n"),
         Info("High Res\t=\t0x00\n"),
         Info("Wide D\t=\t0x00\n"),
         Info("Spot AE\t=\t0x00\n"),
         Info("BackLight\t=\t0x00\n"),
         Info("ExpComp\t=\t0x01\n"),
         Info("Slow Shutter\t=\t0x00\n"),
         Info("Shutter Pos\t=\t0x06\n"),
         Info("Iris Pos\t=\t0x0e\n"),
         Info("Gain Pos\t=\t0x05\n"),
         Info("Bright Pos\t=\t0x1f\n"),
         Info("ExpComp Pos\t=\t0x09\n"),
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
         Info("Auto Icr Alarm\t=\t0x00\n"),
         Info("Auto Icr\t\t=\t0x01\n"),
         Info("Power\t\t\t=\t0x01\n"),
         Info("Icr\t\t\t=\t0x00\n"),
         Info("Freeze\t\t=\t0x00\n"),
         Info("LrReverse\t\t=\t0x00\n"),
         Info("Privicy Zone\t\t=\t0x00\n"),
         Info("Mute\t\t\t=\t0x00\n"),
         Info("Title Display\t\t=\t0x00\n"),
         Info("Display\t\t=\t0x01\n"),
         Info("Picture Effect Mode\t=\t0x00\n"),
         Info("Camera ID\t\t=\t0x0f72\n"),
         Info("Memory\t\t=\t0x00\n"),
         Info("Icr1\t\t\t=\t0x00\n"),
         Info("Hz\t\t\t=\t0x01\n"),
         Info("==================================================="),
         Err("[DN] [Auto_ICR] ON, [ICR] OFF (IR_CUT)\n"),
     },
     "(13): \n05 00 04 00 00 00 00 00 07 02 01 00 00 \n"},
    {3,
     {Completed(kEnlarged1Data)},
     {{0x81, 0x09, 0x7E, 0x7E, 0x03, 0xFF}},
     {
         Info("Digital Zomm Pos\t=\t0x95\n"),
         Info("AF Active Time  \t=\t0x1e\n"),
         Info("AF Interval Time\t=\t0x20\n"),
         Info("Spot AE Pos\t\t=\t0x00\n"),
         Info("MD\t\t\t=\t0x00\n"),
         Info("Alarm\t\t\t=\t0x00\n"),
         Info("Picture Flip\t\t=\t0x00\n"),
         Info("Color Gain\t\t=\t0x04\n"),
         Info("Advanced Privacy\t=\t0x00\n"),
         Info("Alarm1  \t\t=\t0x00\n"),
         Info("Picture Flip1\t\t=\t0x00\n"),
         Info("AE Response\t\t=\t0x01\n"),
         Info("Gamma\t\t\t=\t0x00\n"),
         Info("High Sensitivity Mode =\t0x01\n"),
         Info("NR Level\t\t=\t0x05\n"),
         Info("Choma Suppress  \t=\t0x00\n"),
         Info("Gain Limit\t\t=\t0x0f\n"),
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
         Info("WideD Mode = 0x02\n"),
         Info("WideD Screen Display = 0x02\n"),
         Info("WideD Detection Sensitivity = 0x01\n"),
         Info("WideD Blocked-Up Shadow Correction Level = 0x03\n"),
         Info("WideD Blown-Out Highlight Correction Level = 0x02\n"),
         Info("WideD Short Exposure Ratio = 0x07\n"),
         Info("===================================================\n"),  // with a line feed, here alone
         Info("[WideD mode] Auto ON/OFF\n"),
         Info("[WideD detection sensitivity] M\n"),
         Info("[WideD blocked-up shadow correction level] S\n"),
         Info("[WideD blown-out hoghlight correction level] H\n"),
         Info("[WideD short exposure Exposure ratio] x07\n"),
     },
     "(13): \n02 09 0E 00 07 00 00 00 00 00 00 00 00 \n"},
};

#endif
