// The command line: what each stores, and when it is refused.
#include <getopt.h>

#include <cstring>
#include <limits>

#include "tests/fakeos/Fixtures.h"

namespace {

constexpr int32_t kMost = std::numeric_limits<int32_t>::max(), kLeast = std::numeric_limits<int32_t>::min();

using testing::Each;

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

class Options : public Machine {
 protected:
  using Words = std::vector<std::string>;

  // Parses the words behind the program's name; each ends where the sanitizer watches.
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
    stderr = fopencookie(nullptr, "w", {});  // the parser's complaints are looked at with the whole program
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

  Bytes Data() { return Bytes(gbArgv, gbArgv + 16); }

 private:
  char program_[11] = "testZR4410";
};

// --- Each option ---

TEST_F(Options, NoArgumentAtAllIsUsage) { ExpectUsage({}); }

TEST_F(Options, HelpIsUsageWhateverElseIsThere) {
  ExpectUsage({"-h"});
  ExpectUsage({"--help"});
  ExpectUsage({"-h", "1", "2", "3", "4", "5", "6"});
  ExpectUsage({"--help", "04", "00"});
  ExpectUsage({"-s", "1", "2", "-h"});
  EXPECT_EQ(giOption, 0);
}

TEST_F(Options, CameraActionsTakeTwoNumbers) {
  for (const char* option : {"-s", "--sony"}) {
    ExpectRun({option, "1", "2"}, 1);
    EXPECT_EQ(giArgv1, 1);
    EXPECT_EQ(giArgv2, 2);
    ExpectRun({option, "1", "2", "-g"}, 1);
    EXPECT_EQ(gfDebugFlag, 1);
    ExpectRun({option, "1", "2", "3"}, 1);
    EXPECT_EQ(gfDebugFlag, 0);
    ExpectUsage({option});
    ExpectUsage({option, "1"});
    ExpectUsage({option, "1", "2", "3", "4"});
  }
}

TEST_F(Options, McuCommandsTakeTwoNumbers) {
  for (const char* option : {"-m", "--mcu"}) {
    ExpectRun({option, "16", "-"}, 2);
    EXPECT_EQ(giArgv1, 16);
    EXPECT_EQ(giArgv2, 0);
    ExpectRun({option, "12", "1", "-g"}, 2);
    EXPECT_EQ(giArgv2, 1);
    ExpectUsage({option});
    ExpectUsage({option, "16"});
    ExpectUsage({option, "16", "0", "-g", "x"});
  }
}

TEST_F(Options, TheReadLoopTakesNothing) {
  for (const char* option : {"-r", "--read"}) {
    ExpectRun({option}, 3);
    ExpectRun({option, "-g"}, 3);
    EXPECT_EQ(gfDebugFlag, 1);
    ExpectUsage({option, "1", "2"});
  }
}

TEST_F(Options, CommandsTakeHexData) {
  for (const char* option : {"-c", "--cmd"}) {
    ExpectRun({option, "0002"}, 4);
    EXPECT_EQ(giArgv1, 2);
    EXPECT_EQ(Data(), (Bytes{0x00, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    ExpectRun({option, "aBcD", "-g"}, 4);
    EXPECT_EQ(Data(), (Bytes{0xAB, 0xCD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    ExpectUsage({option});
    ExpectUsage({option, "0002", "-g", "x"});
  }
}

TEST_F(Options, InquiriesTakeACategoryAndHexData) {
  for (const char* option : {"-i", "--inq"}) {
    ExpectRun({option, "04", "2472"}, 5);
    EXPECT_EQ(giCategoryCode, 0x04);
    EXPECT_EQ(giArgv1, 2);
    EXPECT_EQ(Data(), (Bytes{0x24, 0x72, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    ExpectRun({option, "7E", "7e", "-g"}, 5);
    EXPECT_EQ(giCategoryCode, 0x7E);
    ExpectUsage({option});
    ExpectUsage({option, "04"});
    ExpectUsage({option, "04", "00", "-g", "x"});
  }
}

TEST_F(Options, SystemInquiriesTakeANumber) {
  for (const char* option : {"-y", "--sys"}) {
    ExpectRun({option, "3"}, 6);
    EXPECT_EQ(giArgv1, 3);
    ExpectRun({option, "3", "-g"}, 6);
    EXPECT_EQ(gfDebugFlag, 1);
    ExpectUsage({option});
    ExpectUsage({option, "3", "-g", "x"});
  }
}

TEST_F(Options, DebugAloneChoosesNoMode) {
  for (const char* option : {"-g", "--debug"}) {
    ExpectRun({option}, 0);
    EXPECT_EQ(gfDebugFlag, 1);
  }
  ExpectRun({"-g", "1", "2", "3", "4", "5", "6", "7"}, 0);
}

TEST_F(Options, ALoneArgumentChoosesNoMode) {
  ExpectRun({"word"}, 0);
  ExpectRun({""}, 0);
  ExpectRun({"-"}, 0);
  ExpectRun({"--"}, 0);
  ExpectRun({"--", "-h"}, 0);
  EXPECT_EQ(gfDebugFlag, 0);
}

TEST_F(Options, AnUnknownOptionIsUsage) {
  for (const char* option : {"-x", "-S", "-1", "--unknown", "--sonyy", "-gx"}) {
    ExpectUsage({option});
    ExpectUsage({option, "1", "2"});
  }
  ExpectUsage({"--help=1"});
}

TEST_F(Options, AnUnknownOptionBehindAModeIsUsage) {
  ExpectUsage({"-m", "12", "-1"});
  ExpectUsage({"-s", "1", "2", "-x"});
  ExpectUsage({"-c", "00", "-1"});
}

// --- Numbers: 32 bits, saturated ---

TEST_F(Options, NumbersAreDecimalAndSaturate) {
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
  ExpectRun({"-s", "4294967296", "4294967297"}, 1);
  EXPECT_EQ(giArgv1, LowerHalfOrNearest(0, kMost));
  EXPECT_EQ(giArgv2, LowerHalfOrNearest(1, kMost));
}

TEST_F(Options, NumbersAreNotChecked) {
  ExpectRun({"-s", "abc", ""}, 1);
  EXPECT_EQ(giArgv1, 0);
  EXPECT_EQ(giArgv2, 0);
  ExpectRun({"-m", "0x10", "0"}, 2);
  EXPECT_EQ(giArgv1, 0);
  ExpectRun({"-y", "x"}, 6);
  EXPECT_EQ(giArgv1, 0);
}

TEST_F(Options, ANegativeNumberPassesWhereTheParserTakesItForAnArgument) {
  ExpectRun({"-y", "-1"}, 6);
  EXPECT_EQ(giArgv1, -1);
  ExpectRun({"--sony", "-1", "5"}, 1);
  EXPECT_EQ(giArgv1, -1);
}

// --- Values stand at fixed places, whatever the parser makes of them ---

TEST_F(Options, ValuesAreReadFromTheSecondAndThirdArgument) {
  ExpectRun({"-g", "-s", "1", "2"}, 1);
  EXPECT_EQ(giArgv1, 0);  // "-s"
  EXPECT_EQ(giArgv2, 1);
  EXPECT_EQ(gfDebugFlag, 1);
  ExpectUsage({"-g", "-s", "1", "2", "3"});
  ExpectRun({"-g", "-y", "5"}, 6);
  EXPECT_EQ(giArgv1, 0);  // "-y"
}

TEST_F(Options, OptionsMayShareOneDash) {
  ExpectRun({"-sg", "1", "2"}, 1);
  EXPECT_EQ(giArgv1, 1);
  EXPECT_EQ(giArgv2, 2);
  EXPECT_EQ(gfDebugFlag, 1);
  ExpectRun({"-gs", "1", "2"}, 1);
  EXPECT_EQ(giArgv1, 1);
  EXPECT_EQ(giArgv2, 2);
}

TEST_F(Options, AnOptionBehindItsValuesReadsThemAsTheyStandThen) {
  ExpectRun({"1", "2", "-s"}, 1);
  EXPECT_EQ(giArgv1, 2);
  EXPECT_EQ(giArgv2, 0);  // "-s"
}

TEST_F(Options, ALongOptionsOwnArgumentIsNotItsValue) {
  ExpectUsage({"--sony=1", "2"});  // one argument too few
  ExpectUsage({"--sys=0"});
  ExpectRun({"--sony=1", "2", "3"}, 1);
  EXPECT_EQ(giArgv1, 2);
  EXPECT_EQ(giArgv2, 3);
  ExpectRun({"--sys=0", "4"}, 6);
  EXPECT_EQ(giArgv1, 4);
  ExpectRun({"-y0", "4"}, 6);
  EXPECT_EQ(giArgv1, 4);
}

TEST_F(Options, LongOptionsMayBeAbbreviated) {
  ExpectRun({"--so", "1", "2"}, 1);
  EXPECT_EQ(giArgv1, 1);
  ExpectRun({"--sy", "3"}, 6);
  ExpectRun({"--r"}, 3);
  ExpectUsage({"--s", "1", "2"});  // sony or sys
  ExpectUsage({"--he"});
}

TEST_F(Options, TheLastModeWins) {
  ExpectRun({"-sm", "16", "1"}, 2);
  ExpectRun({"-mi", "04", "24"}, 5);
  EXPECT_EQ(giArgv1, 1);
  EXPECT_EQ(giArgv2, 24);  // of -m
  EXPECT_EQ(giCategoryCode, 0x04);
  ExpectRun({"-c", "77", "-s"}, 1);
  EXPECT_EQ(giArgv1, 77);
}

TEST_F(Options, AnEarlierModeIsCheckedAllTheSame) {
  ExpectUsage({"-c", "00", "-r"});
  ExpectUsage({"-s", "-r"});
  ExpectUsage({"-r", "-s"});
  ExpectBadHex({"-is", "1", "x"}, "IsHexString failed!\n");
}

// --- Hex data ---

TEST_F(Options, AnOddLastDigitIsDropped) {
  ExpectRun({"-c", "123"}, 4);
  EXPECT_EQ(giArgv1, 1);
  EXPECT_EQ(Data(), (Bytes{0x12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  ExpectRun({"-c", "1"}, 4);
  EXPECT_EQ(giArgv1, 0);
  EXPECT_THAT(Data(), Each(0));
}

TEST_F(Options, EmptyDataIsNoData) {
  ExpectRun({"-c", ""}, 4);
  EXPECT_EQ(giArgv1, 0);
  ExpectRun({"-i", "04", ""}, 5);
  EXPECT_EQ(giArgv1, 0);
  EXPECT_EQ(giCategoryCode, 0x04);
}

TEST_F(Options, EarlierDataIsCleared) {
  ExpectRun({"-ic", "11223344", "5566"}, 4);
  EXPECT_EQ(giArgv1, 4);
  EXPECT_EQ(Data(), (Bytes{0x11, 0x22, 0x33, 0x44, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  ExpectRun({"-ci", "11223344", "5566"}, 5);
  EXPECT_EQ(giArgv1, 2);
  EXPECT_EQ(Data(), (Bytes{0x55, 0x66, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(Options, ThirtyThreeDigitsAreTheMost) {
  const std::string digits = "00112233445566778899AABBCCDDEEFF0";
  const Bytes bytes = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
  for (const size_t count : {32U, 33U}) {
    ExpectRun({"-c", digits.substr(0, count)}, 4);
    EXPECT_EQ(giArgv1, 16);
    EXPECT_EQ(Data(), bytes);
    ExpectRun({"-i", "04", digits.substr(0, count)}, 5);
    EXPECT_EQ(giArgv1, 16);
    EXPECT_EQ(Data(), bytes);
  }
  for (const size_t count : {34U, 35U, 5000U}) {
    ExpectBadHex({"-c", std::string(count, '1')}, "HexStr2Bytes failed!\n");
    ExpectBadHex({"-i", "04", std::string(count, '1')}, "HexStr2Bytes failed!\n");
  }
}

TEST_F(Options, DataThatIsNotHexIsRefused) {
  for (const char* text : {"12G4", "0x12", "-1", " 12", "12 ", "1\n"}) {
    if (*text != '-') {
      ExpectBadHex({"-c", text}, "IsHexString failed!\n");
    }
    ExpectBadHex({"-i", text, "00"}, "IsHexString failed!\n");
    ExpectBadHex({"-i", "04", text}, "IsHexString failed!\n");
  }
  ExpectBadHex({"-c", "-1"}, "IsHexString failed!\n");
  ExpectBadHex({"-i", "xx", "yy"}, "IsHexString failed!\n");
  ExpectBadHex({"-i", "xx", std::string(34, '1')}, "IsHexString failed!\n");  // the category is looked at first
  ExpectBadHex({"-c", std::string(100, 'x')}, "IsHexString failed!\n");
}

TEST_F(Options, TheCategoryIsItsFirstTwoDigits) {
  ExpectRun({"-i", "4", "00"}, 5);
  EXPECT_EQ(giCategoryCode, 0x04);
  ExpectRun({"-i", "123", "00"}, 5);
  EXPECT_EQ(giCategoryCode, 0x12);
  ExpectRun({"-i", "ff", "00"}, 5);
  EXPECT_EQ(giCategoryCode, 0xFF);
  ExpectRun({"-i", "", "00"}, 5);  // read no further than its end
  EXPECT_EQ(giCategoryCode, 0x00);
  ExpectRun({"-i", std::string(1000, '7'), "00"}, 5);
  EXPECT_EQ(giCategoryCode, 0x77);
}

TEST_F(Options, TheUsageTextIsComplete) {
  usage();
  EXPECT_EQ(os.Output(), kUsage);
}

}  // namespace
