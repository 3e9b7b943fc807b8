// The usage text, and ParseCommandLine with its table of mode options. Hex text is checked here; numbers are stored
// unchecked, and the actions check their range.
#include "frontend/Options.h"

#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "support/Debug.h"
#include "support/Hex.h"
#include "support/Log.h"

int32_t giOption, giArgv1, giArgv2, giCategoryCode;
uint8_t gbArgv[16];

namespace {

// Intentional: of the short options only y is declared with an argument, and the values are read from argv[2] and
// argv[3], not taken from the parser, because the device's scripts depend on both.
constexpr char kShortOptions[] = "hgrmciy:s";

constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"debug", no_argument, nullptr, 'g'},
    {"read", no_argument, nullptr, 'r'},
    {"sony", required_argument, nullptr, 's'},
    {"mcu", required_argument, nullptr, 'm'},
    {"cmd", required_argument, nullptr, 'c'},
    {"inq", required_argument, nullptr, 'i'},
    {"sys", required_argument, nullptr, 'y'},
    {nullptr, 0, nullptr, 0},
};

enum class Values { None, Number, TwoNumbers, Hex, CategoryAndHex };

struct ModeOption {
  int letter;
  int32_t mode;
  int minArgc;  // the smallest argc accepted; one more is accepted, for a trailing -g
  Values values;
};

constexpr ModeOption kModeOptions[] = {
    {'s', MODE_CAMERA, 4, Values::TwoNumbers},
    {'m', MODE_MCU, 4, Values::TwoNumbers},
    {'r', MODE_READ, 2, Values::None},
    {'c', MODE_COMMAND, 3, Values::Hex},
    {'i', MODE_INQUIRY, 4, Values::CategoryAndHex},
    {'y', MODE_SYSTEM_INQUIRY, 3, Values::Number},
};

const ModeOption* FindModeOption(int letter) {
  const auto* const found = std::find_if(std::begin(kModeOptions), std::end(kModeOptions),
                                         [letter](const ModeOption& mode) { return mode.letter == letter; });
  return found == std::end(kModeOptions) ? nullptr : found;
}

bool CheckHex(const char* text) {
  if (IsHexString(text) < 0) {
    LOG(LOG_ERR, "IsHexString failed!\n");
    return false;
  }
  return true;
}

// Stores the bytes of a hex text in gbArgv and their count in giArgv1. Returns false, after logging, if it is refused.
bool StoreHex(const char* text) {
  if (!CheckHex(text)) {
    return false;
  }
  memset(gbArgv, 0, sizeof gbArgv);
  giArgv1 = static_cast<int32_t>(strlen(text) / 2);
  if (HexStr2Bytes(text, gbArgv) < 0) {
    LOG(LOG_ERR, "HexStr2Bytes failed!\n");
    return false;
  }
  return true;
}

// Stores the values of an option in the globals. Logs a failure and returns false if a hex text is refused; numbers are
// not checked.
bool StoreValues(Values values, char** argv) {
  switch (values) {
    case Values::None:
      break;
    case Values::TwoNumbers:
      giArgv2 = ParseDecimal(argv[3]);
      [[fallthrough]];
    case Values::Number:
      giArgv1 = ParseDecimal(argv[2]);
      break;
    case Values::CategoryAndHex:
      if (!CheckHex(argv[2])) {
        return false;
      }
      giCategoryCode = Hex2Byte(argv[2]);
      return StoreHex(argv[3]);
    case Values::Hex:
      return StoreHex(argv[2]);
  }
  return true;
}

}  // namespace

// Intentional: -s has no heading, and -h and -r are missing, because scripts may read the text.
void usage(void) {
  printf("Usage: %s [OPTION]\n\n", "testZR4410");
  fputs(
      " -s 0 0 QM2150 Get Version\n"
      " -s 1 0 QM2150 Get Sensor Mode\n"
      " -s 1 1 QM2150 List Sensor Mode\n"
      " -s 2 6 QM2150 Set Sensor Mode 1080p 30fps\n\n"
      " --mcu MCU Command.\n"
      " -m [Cmd ID] [Value]\n"
      " -m 16 0 MCU Get Version\n"
      " -m 12 0 MCU Power Off QM2150\n"
      " -m 12 1 MCU Power ON QM2150\n\n"
      " --cmd SONY Visca Command.\n"
      " -c [Cmd Hex ID + Value]\n"
      " -c 0002 CAM_Power On\n"
      " -c 0003 CAM_Power Off\n\n"
      " --inq SONY Visca Inquiry.\n"
      " -i [Inquiry Hex Category Code] [Inquiry Hex Data]\n"
      " -i 04 00 CAM_PowerInq\n"
      " -i 04 2472 Get Sensor Mode\n\n"
      " --sys system inquiry\n"
      " -y [Inquiry Data]\n"
      " -y 0\n\n"
      " system inquiry for debug mode.\n"
      " -y 0 -g\n",
      stdout);
}

int32_t ParseDecimal(const char* text) { return static_cast<int32_t>(strtol(text, nullptr, 10)); }

CommandLine ParseCommandLine(int argc, char** argv) {
  int letter;
  while ((letter = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
    if (letter == 'g') {
      gfDebugFlag = 1;
      continue;
    }
    const ModeOption* const mode = FindModeOption(letter);
    if (mode == nullptr || argc < mode->minArgc || argc > mode->minArgc + 1) {
      usage();
      giOption = MODE_NONE;
      return CommandLine::Usage;
    }
    if (!StoreValues(mode->values, argv)) {
      return CommandLine::BadHex;
    }
    giOption = mode->mode;
  }
  if (argc <= 1) {
    usage();
    return CommandLine::Usage;
  }
  return CommandLine::Run;
}
