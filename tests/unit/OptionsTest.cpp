// The command line: what each option stores, and which command lines are rejected.
#include <getopt.h>

#include <cstring>
#include <limits>

#include "tests/fakeos/Fixtures.h"

namespace {

constexpr int32_t kMost = std::numeric_limits<int32_t>::max(), kLeast = std::numeric_limits<int32_t>::min();

constexpr char kUsage[] =
    "Usage: testZR4410 [OPTION]\n"
    "\n"
    " -s 0 0 QM2150 Get Version\n"
    " -s 1 0 QM2150 Get Sensor Mode\n"
    " -s 1 1 QM2150 List Sensor Mode\n"
    " -s 2 6 QM2150 Set Sensor Mode 1080p 30fps\n"
    "\n"
    " --mcu MCU Command.\n"
    " -m [Cmd ID] [Value]\n"
    " -m 16 0 MCU Get Version\n"
    " -m 12 0 MCU Power Off QM2150\n"
    " -m 12 1 MCU Power ON QM2150\n"
    "\n"
    " --cmd SONY Visca Command.\n"
    " -c [Cmd Hex ID + Value]\n"
    " -c 0002 CAM_Power On\n"
    " -c 0003 CAM_Power Off\n"
    "\n"
    " --inq SONY Visca Inquiry.\n"
    " -i [Inquiry Hex Category Code] [Inquiry Hex Data]\n"
    " -i 04 00 CAM_PowerInq\n"
    " -i 04 2472 Get Sensor Mode\n"
    "\n"
    " --sys system inquiry\n"
    " -y [Inquiry Data]\n"
    " -y 0\n"
    "\n"
    " system inquiry for debug mode.\n"
    " -y 0 -g\n";

using Words = std::vector<std::string>;

class Options : public Machine {
 protected:
  // Parses these arguments. Each is copied into a buffer of exactly its size, so a sanitizer detects a read past its
  // end.
  CommandLine Parse(const Words& words) {
    ResetProduct();
    os.Forget();
    std::vector<std::unique_ptr<char[]>> copies;
    std::vector<char*> argv;
    argv.push_back(program_);
    for (const std::string& word : words) {
      copies.emplace_back(new char[word.size() + 1]);
      memcpy(copies.back().get(), word.c_str(), word.size() + 1);
      argv.push_back(copies.back().get());
    }
    argv.push_back(nullptr);
    FILE* const errors = stderr;
    stderr = fopencookie(nullptr, "w", {});  // ProgramTest checks the parser's messages
    optind = 0;
    const CommandLine parsed = ParseCommandLine(static_cast<int>(argv.size()) - 1, argv.data());
    fclose(stderr);
    stderr = errors;
    return parsed;
  }

  void ExpectRun(const Words& words, int32_t option) {
    EXPECT_EQ(Parse(words), CommandLine::Run) << testing::PrintToString(words);
    EXPECT_EQ(giOption, option) << testing::PrintToString(words);
    EXPECT_EQ(os.Output(), "");
    EXPECT_THAT(os.Timeline(), IsEmpty());
  }

  void ExpectUsage(const Words& words) {
    EXPECT_EQ(Parse(words), CommandLine::Usage) << testing::PrintToString(words);
    EXPECT_EQ(os.Output(), kUsage);
    EXPECT_THAT(os.Timeline(), IsEmpty());
  }

  void ExpectBadHex(const Words& words, const char* line) {
    EXPECT_EQ(Parse(words), CommandLine::BadHex) << testing::PrintToString(words);
    EXPECT_EQ(os.Output(), "");
    EXPECT_THAT(os.Log(), ElementsAre(Err(line)));
  }

  // Expects these bytes as the hex data of the command line, followed by zeros.
  static void ExpectData(const Bytes& data) {
    EXPECT_EQ(giArgv1, static_cast<int32_t>(data.size()));
    Bytes padded = data;
    padded.resize(16);
    EXPECT_THAT(Bytes(gbArgv, gbArgv + padded.size()), ElementsAreArray(padded));
  }

 private:
  char program_[11] = "testZR4410";
};

// --- Each option ---

TEST_F(Options, NoArgumentAtAllIsUsage) { ExpectUsage({}); }

TEST_F(Options, HelpIsUsageWithAnyOtherArguments) {
  ExpectUsage({"-h"});
  ExpectUsage({"--help"});
  ExpectUsage({"-h", "1", "2", "3", "4", "5", "6"});
  ExpectUsage({"--help", "04", "00"});
  ExpectUsage({"-s", "1", "2", "-h"});
  EXPECT_EQ(giOption, 0);
}

struct ModeOption {
  const char *shortName, *longName;
  int32_t mode;  // written as a number, to check the MODE_... constants
  Words values;
  int32_t first;  // giArgv1: the first number or, for hex data, the count of bytes
};

TEST_F(Options, AModeTakesItsValuesAndOneMoreArgument) {
  for (const ModeOption& option :
       {ModeOption{"-s", "--sony", 1, {"1", "2"}, 1}, ModeOption{"-m", "--mcu", 2, {"16", "-"}, 16},
        ModeOption{"-r", "--read", 3, {}, 0}, ModeOption{"-c", "--cmd", 4, {"aBcD"}, 2},
        ModeOption{"-i", "--inq", 5, {"04", "2472"}, 2}, ModeOption{"-y", "--sys", 6, {"3"}, 3}}) {
    for (const char* name : {option.shortName, option.longName}) {
      Words words = {name};
      for (const std::string& value : option.values) {
        ExpectUsage(words);
        words.push_back(value);
      }
      ExpectRun(words, option.mode);
      EXPECT_EQ(giArgv1, option.first) << name;
      EXPECT_EQ(gfDebugFlag, 0) << name;
      words.emplace_back("-g");
      ExpectRun(words, option.mode);
      EXPECT_EQ(giArgv1, option.first) << name;
      EXPECT_EQ(gfDebugFlag, 1) << name;
      words.back() = "3";
      ExpectRun(words, option.mode);
      EXPECT_EQ(gfDebugFlag, 0) << name;
      words.emplace_back("x");
      ExpectUsage(words);
    }
  }
}

TEST_F(Options, CameraActionsAndMcuCommandsTakeASecondNumber) {
  for (const auto& [option, mode] :
       {std::pair{"-s", MODE_CAMERA}, {"--sony", MODE_CAMERA}, {"-m", MODE_MCU}, {"--mcu", MODE_MCU}}) {
    ExpectRun({option, "16", "-"}, mode);
    EXPECT_EQ(giArgv2, 0);
    ExpectRun({option, "12", "1", "-g"}, mode);
    EXPECT_EQ(giArgv2, 1);
  }
}

TEST_F(Options, CommandsTakeHexData) {
  ExpectRun({"-c", "0002"}, MODE_COMMAND);
  ExpectData({0x00, 0x02});
  ExpectRun({"--cmd", "aBcD", "-g"}, MODE_COMMAND);
  ExpectData({0xAB, 0xCD});
}

TEST_F(Options, InquiriesTakeACategoryAndHexData) {
  ExpectRun({"-i", "04", "2472"}, MODE_INQUIRY);
  EXPECT_EQ(giCategoryCode, 0x04);
  ExpectData({0x24, 0x72});
  ExpectRun({"--inq", "7E", "7e", "-g"}, MODE_INQUIRY);
  EXPECT_EQ(giCategoryCode, 0x7E);
  ExpectData({0x7E});
}

TEST_F(Options, DebugAloneChoosesNoMode) {
  for (const char* option : {"-g", "--debug"}) {
    ExpectRun({option}, MODE_NONE);
    EXPECT_EQ(gfDebugFlag, 1);
  }
  ExpectRun({"-g", "1", "2", "3", "4", "5", "6", "7"}, MODE_NONE);
}

TEST_F(Options, AnArgumentThatIsNotAnOptionChoosesNoMode) {
  ExpectRun({"word"}, MODE_NONE);
  ExpectRun({""}, MODE_NONE);
  ExpectRun({"-"}, MODE_NONE);
  ExpectRun({"--"}, MODE_NONE);
  ExpectRun({"--", "-h"}, MODE_NONE);
  EXPECT_EQ(gfDebugFlag, 0);
}

TEST_F(Options, AnUnknownOptionIsUsage) {
  for (const char* option : {"-x", "-S", "-1", "--unknown", "--sonyy", "-gx"}) {
    ExpectUsage({option});
    ExpectUsage({option, "1", "2"});
  }
  ExpectUsage({"--help=1"});
}

TEST_F(Options, AnUnknownOptionAfterAModeIsUsage) {
  ExpectUsage({"-m", "12", "-1"});
  ExpectUsage({"-s", "1", "2", "-x"});
  ExpectUsage({"-c", "00", "-1"});
}

// --- Numbers: decimal, 32 bits ---

TEST_F(Options, NumbersAreDecimalAndStoredIn32Bits) {
  struct Example {
    const char* text;
    int32_t number;
  };
  for (const Example& example : {Example{"0", 0},
                                 Example{"7", 7},
                                 Example{"007", 7},
                                 Example{"+7", 7},
                                 Example{" 7", 7},
                                 Example{"7x", 7},
                                 Example{"x7", 0},
                                 Example{"", 0},
                                 Example{"0x10", 0},
                                 Example{"0x8000", 0},
                                 Example{"1e3", 1},
                                 Example{"2147483647", 2147483647},
                                 Example{"2147483648", LowerHalfOrNearest(kLeast, kMost)},
                                 Example{"4294934527", LowerHalfOrNearest(-32769, kMost)},
                                 Example{"4294967295", LowerHalfOrNearest(-1, kMost)},
                                 Example{"4294967296", LowerHalfOrNearest(0, kMost)},
                                 Example{"99999999999999999999", LowerHalfOrNearest(-1, kMost)},
                                 Example{"-1", -1},
                                 Example{"-2147483648", kLeast},
                                 Example{"-2147483649", LowerHalfOrNearest(kMost, kLeast)},
                                 Example{"-4294967296", LowerHalfOrNearest(0, kLeast)},
                                 Example{"-99999999999999999999", LowerHalfOrNearest(0, kLeast)}}) {
    EXPECT_EQ(ParseDecimal(example.text), example.number) << example.text;
  }
}

TEST_F(Options, BothNumbersAreStoredIn32Bits) {
  ExpectRun({"-s", "4294967296", "4294967297"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, LowerHalfOrNearest(0, kMost));
  EXPECT_EQ(giArgv2, LowerHalfOrNearest(1, kMost));
}

TEST_F(Options, TextThatIsNotANumberIsZero) {
  ExpectRun({"-s", "abc", ""}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 0);
  EXPECT_EQ(giArgv2, 0);
  ExpectRun({"-m", "0x10", "0"}, MODE_MCU);
  EXPECT_EQ(giArgv1, 0);
  ExpectRun({"-y", "x"}, MODE_SYSTEM_INQUIRY);
  EXPECT_EQ(giArgv1, 0);
}

TEST_F(Options, ANegativeNumberIsAcceptedAsTheArgumentOfAnOption) {
  ExpectRun({"-y", "-1"}, MODE_SYSTEM_INQUIRY);
  EXPECT_EQ(giArgv1, -1);
  ExpectRun({"--sony", "-1", "5"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, -1);
}

// --- Values are always the second and third argument ---

TEST_F(Options, ValuesAreReadFromTheSecondAndThirdArgument) {
  ExpectRun({"-g", "-s", "1", "2"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 0);  // "-s"
  EXPECT_EQ(giArgv2, 1);
  EXPECT_EQ(gfDebugFlag, 1);
  ExpectUsage({"-g", "-s", "1", "2", "3"});
  ExpectRun({"-g", "-y", "5"}, MODE_SYSTEM_INQUIRY);
  EXPECT_EQ(giArgv1, 0);  // "-y"
}

TEST_F(Options, OptionsMayShareADash) {
  ExpectRun({"-sg", "1", "2"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 1);
  EXPECT_EQ(giArgv2, 2);
  EXPECT_EQ(gfDebugFlag, 1);
  ExpectRun({"-gs", "1", "2"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 1);
  EXPECT_EQ(giArgv2, 2);
}

TEST_F(Options, TheValuesAreReadAtTheirPlacesInTheCommandLine) {
  ExpectRun({"1", "2", "-s"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 2);
  EXPECT_EQ(giArgv2, 0);  // "-s"
}

TEST_F(Options, TheArgumentOfALongOptionIsNotItsValue) {
  ExpectUsage({"--sony=1", "2"});  // one argument too few
  ExpectUsage({"--sys=0"});
  ExpectRun({"--sony=1", "2", "3"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 2);
  EXPECT_EQ(giArgv2, 3);
  ExpectRun({"--sys=0", "4"}, MODE_SYSTEM_INQUIRY);
  EXPECT_EQ(giArgv1, 4);
  ExpectRun({"-y0", "4"}, MODE_SYSTEM_INQUIRY);
  EXPECT_EQ(giArgv1, 4);
}

TEST_F(Options, LongOptionsMayBeAbbreviated) {
  ExpectRun({"--so", "1", "2"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 1);
  ExpectRun({"--sy", "3"}, MODE_SYSTEM_INQUIRY);
  ExpectRun({"--r"}, MODE_READ);
  ExpectUsage({"--s", "1", "2"});  // ambiguous: sony or sys
  ExpectUsage({"--he"});
}

TEST_F(Options, TheLastModeWins) {
  ExpectRun({"-sm", "16", "1"}, MODE_MCU);
  ExpectRun({"-mi", "04", "24"}, MODE_INQUIRY);
  EXPECT_EQ(giArgv1, 1);
  EXPECT_EQ(giArgv2, 24);  // left over from -m
  EXPECT_EQ(giCategoryCode, 0x04);
  ExpectRun({"-c", "77", "-s"}, MODE_CAMERA);
  EXPECT_EQ(giArgv1, 77);
}

TEST_F(Options, AnEarlierModeIsCheckedToo) {
  ExpectUsage({"-c", "00", "-r"});
  ExpectUsage({"-s", "-r"});
  ExpectUsage({"-r", "-s"});
  ExpectBadHex({"-is", "1", "x"}, "IsHexString failed!\n");
}

// --- Hex data ---

TEST_F(Options, AnOddLastDigitIsDropped) {
  ExpectRun({"-c", "123"}, MODE_COMMAND);
  ExpectData({0x12});
  ExpectRun({"-c", "1"}, MODE_COMMAND);
  ExpectData({});
}

TEST_F(Options, EmptyDataIsNoData) {
  ExpectRun({"-c", ""}, MODE_COMMAND);
  ExpectData({});
  ExpectRun({"-i", "04", ""}, MODE_INQUIRY);
  ExpectData({});
  EXPECT_EQ(giCategoryCode, 0x04);
}

TEST_F(Options, EarlierDataIsCleared) {
  ExpectRun({"-ic", "11223344", "5566"}, MODE_COMMAND);
  ExpectData({0x11, 0x22, 0x33, 0x44});
  ExpectRun({"-ci", "11223344", "5566"}, MODE_INQUIRY);
  ExpectData({0x55, 0x66});
}

TEST_F(Options, AtMostThirtyThreeDigits) {
  const std::string digits = "00112233445566778899AABBCCDDEEFF0";
  const Bytes bytes = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
  for (const size_t count : {32U, 33U}) {
    ExpectRun({"-c", digits.substr(0, count)}, MODE_COMMAND);
    ExpectData(bytes);
    ExpectRun({"-i", "04", digits.substr(0, count)}, MODE_INQUIRY);
    ExpectData(bytes);
  }
  for (const size_t count : {34U, 35U, 5000U}) {
    ExpectBadHex({"-c", std::string(count, '1')}, "HexStr2Bytes failed!\n");
    ExpectBadHex({"-i", "04", std::string(count, '1')}, "HexStr2Bytes failed!\n");
  }
}

TEST_F(Options, DataThatIsNotHexIsRejected) {
  for (const char* text : {"12G4", "0x12", "-1", " 12", "12 ", "1\n"}) {
    if (*text != '-') {
      ExpectBadHex({"-c", text}, "IsHexString failed!\n");
    }
    ExpectBadHex({"-i", text, "00"}, "IsHexString failed!\n");
    ExpectBadHex({"-i", "04", text}, "IsHexString failed!\n");
  }
  ExpectBadHex({"-c", "-1"}, "IsHexString failed!\n");
  ExpectBadHex({"-i", "xx", "yy"}, "IsHexString failed!\n");
  ExpectBadHex({"-i", "xx", std::string(34, '1')}, "IsHexString failed!\n");  // the category is checked first
  ExpectBadHex({"-c", std::string(100, 'x')}, "IsHexString failed!\n");
}

TEST_F(Options, TheCategoryIsItsFirstTwoDigits) {
  ExpectRun({"-i", "4", "00"}, MODE_INQUIRY);
  EXPECT_EQ(giCategoryCode, 0x04);
  ExpectRun({"-i", "123", "00"}, MODE_INQUIRY);
  EXPECT_EQ(giCategoryCode, 0x12);
  ExpectRun({"-i", "ff", "00"}, MODE_INQUIRY);
  EXPECT_EQ(giCategoryCode, 0xFF);
  ExpectRun({"-i", "", "00"}, MODE_INQUIRY);  // nothing is read past its end
  EXPECT_EQ(giCategoryCode, 0x00);
  ExpectRun({"-i", std::string(1000, '7'), "00"}, MODE_INQUIRY);
  EXPECT_EQ(giCategoryCode, 0x77);
}

TEST_F(Options, TheUsageTextIsComplete) {
  usage();
  EXPECT_EQ(os.Output(), kUsage);
}

}  // namespace
