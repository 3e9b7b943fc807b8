#include <cerrno>
#include <cstring>
#include <string>

#include "tests/fakeos/Fixtures.h"

namespace {

constexpr char kPath[] = "/sysconf/conf.img";
constexpr char kTemporary[] = "/sysconf/conf.img.tmp";
constexpr char kUntouched[] = "untouched";

class Settings : public Machine {
 protected:
  // The value that the reader finds in a file of this content, kUntouched if it found none.
  std::string Value(std::string content, const char* key = "EXT_DEBUG") {
    os.files[kPath] = std::move(content);
    char value[256] = "untouched";
    EXPECT_EQ(sysconf_fget(kPath, key, value), 0);
    EXPECT_EQ(os.OpenFiles(), 0U);
    return value;
  }

  // The file after the writer set EXT_DEBUG in it.
  std::string Written(std::string content, const char* value, const char* key = "EXT_DEBUG") {
    os.files[kPath] = std::move(content);
    EXPECT_EQ(sysconf_fset(kPath, key, value), 0);
    EXPECT_EQ(os.OpenFiles(), 0U);
    EXPECT_EQ(os.files.count(kTemporary), 0U);
    return os.files[kPath];
  }
};

// --- Reader ---

TEST_F(Settings, AValueStandsBehindTheEqualsSign) {
  EXPECT_EQ(Value("EXT_DEBUG=5\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=5"), "5");
  EXPECT_EQ(Value("OTHER=1\nEXT_DEBUG=5\nLAST=2\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=a=b\n"), "a=b");
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Settings, BlanksAroundTheEqualsSignDoNotMatter) {
  EXPECT_EQ(Value("EXT_DEBUG = 5\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=    5\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG    =5\n"), "5");
}

TEST_F(Settings, BlanksBehindTheValueStayInIt) { EXPECT_EQ(Value("EXT_DEBUG=5  \n"), "5  "); }

TEST_F(Settings, QuotesAreDropped) {
  EXPECT_EQ(Value("EXT_DEBUG=\"7\"\n"), "7");
  EXPECT_EQ(Value("EXT_DEBUG= \" 7 8 \" # note\n"), " 7 8 ");
  EXPECT_EQ(Value("EXT_DEBUG=\"\"\n"), "");
  EXPECT_EQ(Value("EXT_DEBUG=\"7\n"), "7");
  EXPECT_EQ(Value("EXT_DEBUG=\"\n"), "");
  EXPECT_EQ(Value("EXT_DEBUG=\""), "");
  EXPECT_EQ(Value("EXT_DEBUG=7\"8\"\n"), "7\"8\"");
}

TEST_F(Settings, EveryOtherPrintableCharacterBelongsToTheValue) {
  for (char c = '!'; c <= '~'; ++c) {
    if (c != '"') {
      EXPECT_EQ(Value(std::string("EXT_DEBUG= ") + c + "5\n"), (std::string{c, '5'}));
    }
  }
}

TEST_F(Settings, EmptyLinesAreReadOver) {
  EXPECT_EQ(Value("\n\nOTHER=1\n\nEXT_DEBUG=5\n"), "5");
  EXPECT_EQ(Written("\nEXT_DEBUG=5\n\n", "3"), "\nEXT_DEBUG=3\n\n");
}

TEST_F(Settings, AnEmptyValueIsEmpty) {
  EXPECT_EQ(Value("EXT_DEBUG=\n"), "");
  EXPECT_EQ(Value("EXT_DEBUG="), "");
  EXPECT_EQ(Value("EXT_DEBUG=   \n"), "");
  EXPECT_EQ(Value("EXT_DEBUG=   "), "");
}

TEST_F(Settings, AValueEndsAtTheFirstUnprintableCharacter) {
  EXPECT_EQ(Value("EXT_DEBUG=5\r\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=5\t6\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=5\x01\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=5\x7F\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=5\xE9\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG=\"5\t6\"\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG= ~!\n"), "~!");
}

TEST_F(Settings, ATabBeforeTheValueIsNotSkipped) { EXPECT_EQ(Value("EXT_DEBUG=\t5\n"), ""); }

TEST_F(Settings, AKeyMatchesEveryLineThatBeginsWithIt) {
  EXPECT_EQ(Value("EXT_DEBUGGING=1\nEXT_DEBUG=5\n"), "1");
  EXPECT_EQ(Value("EXT_DEBUG_X=2\nEXT_DEBUG=5\n"), "2");
  EXPECT_EQ(Value("first=3\n", ""), "3");
}

TEST_F(Settings, TheFirstMatchWins) { EXPECT_EQ(Value("EXT_DEBUG=1\nEXT_DEBUG=2\n"), "1"); }

TEST_F(Settings, AKeyMatchesAtTheLinesBeginningOnly) {
  EXPECT_EQ(Value(" EXT_DEBUG=5\n"), kUntouched);
  EXPECT_EQ(Value("X_EXT_DEBUG=5\n"), kUntouched);
  EXPECT_EQ(Value("ext_debug=5\n"), kUntouched);
  EXPECT_EQ(Value("EXT_DEBU=5\n"), kUntouched);
}

TEST_F(Settings, AKeyMayHoldAnEqualsSign) { EXPECT_EQ(Value("A=B=C\n", "A=B"), "B=C"); }

TEST_F(Settings, CommentsAreIgnored) {
  EXPECT_EQ(Value("#EXT_DEBUG=9\n"), kUntouched);
  EXPECT_EQ(Value("#EXT_DEBUG=9\nEXT_DEBUG=5\n"), "5");
  EXPECT_EQ(Value("#EXT_DEBUG=9\n", "#EXT"), kUntouched);
}

TEST_F(Settings, AMatchWithoutEqualsSignIsSkipped) {
  EXPECT_EQ(Value("EXT_DEBUG\nEXT_DEBUG 7\nEXT_DEBUG=5\n"), "5");
  EXPECT_EQ(Value("EXT_DEBUG"), kUntouched);
}

TEST_F(Settings, WithoutTheKeyTheValueIsUntouched) {
  EXPECT_EQ(Value("OTHER=1\n"), kUntouched);
  EXPECT_EQ(Value("\n\n\n"), kUntouched);
  EXPECT_EQ(Value(""), kUntouched);
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Settings, AValueMayBeAsLongAsALine) {
  const std::string value(245, 'v');
  EXPECT_EQ(Value("EXT_DEBUG=" + value + "\n"), value);
  EXPECT_EQ(Value("EXT_DEBUG=" + value + "cut"), value);
  const std::string longest(254, 'v');
  EXPECT_EQ(Value("=" + longest, ""), longest);
}

TEST_F(Settings, EachPieceOf255CharactersCountsAsALine) {
  EXPECT_EQ(Value(std::string(255, 'x') + "EXT_DEBUG=7\n"), "7");
  EXPECT_EQ(Value(std::string(254, 'x') + "EXT_DEBUG=7\n"), kUntouched);
  EXPECT_EQ(Value("#" + std::string(254, 'x') + "EXT_DEBUG=7\n"), "7");
  EXPECT_EQ(Value(std::string(254, 'x') + "\nEXT_DEBUG=7\n"), "7");
}

TEST_F(Settings, AZeroByteEndsAValue) { EXPECT_EQ(Value(std::string("EXT_DEBUG=5\0006\n", 13)), "5"); }

TEST_F(Settings, TheReaderRefusesAMissingArgument) {
  char value[256] = "untouched";
  EXPECT_EQ(sysconf_fget(nullptr, "EXT_DEBUG", value), -1);
  EXPECT_EQ(sysconf_fget(kPath, nullptr, value), -1);
  EXPECT_EQ(sysconf_fget(kPath, "EXT_DEBUG", nullptr), -1);
  EXPECT_STREQ(value, kUntouched);
  EXPECT_THAT(os.Log(), ElementsAre(Err("invalid args.\n"), Err("invalid args.\n"), Err("invalid args.\n")));
  EXPECT_THAT(os.FileSteps(), IsEmpty());
}

TEST_F(Settings, TheReaderLogsAFileThatDoesNotOpen) {
  char value[256] = "untouched";
  EXPECT_EQ(sysconf_fget("/none", "EXT_DEBUG", value), -1);
  EXPECT_STREQ(value, kUntouched);
  EXPECT_THAT(os.Log(), ElementsAre(Err("can not open sysconf file /none.\n")));
}

TEST_F(Settings, TheReaderEndsWhereTheFileCannotBeReadOn) {
  os.Fail("read", EIO, 1);
  EXPECT_EQ(Value("EXT_DEBUG=5\n"), kUntouched);
  os.Fail("read", EIO, 2);
  EXPECT_EQ(Value("EXT_DEBUG=5"), kUntouched);  // perhaps of more digits
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Settings, AStreamThatCannotBeMadeCountsAsAFileThatDoesNotOpen) {
  os.Fail("fdopen", ENOMEM, 1);
  char value[256] = "untouched";
  EXPECT_EQ(sysconf_fget(kPath, "EXT_DEBUG", value), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("can not open sysconf file /sysconf/conf.img.\n")));
  EXPECT_EQ(os.OpenFiles(), 0U);
  for (const auto& [call, line] : {std::pair(1, "Can not create a temp file for write."),
                                   std::pair(2, "can not open sysconf file /sysconf/conf.img.\n")}) {
    os.Forget();
    os.Fail("fdopen", ENOMEM, call);
    EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), -1);
    EXPECT_THAT(os.Log(), ElementsAre(Err(line)));
    EXPECT_EQ(os.files[kPath], "EXT_DEBUG=0\n");
  }
}

TEST_F(Settings, TheReaderNeverWrites) {
  Value("EXT_DEBUG=5\n");
  EXPECT_THAT(os.FileSteps(), testing::Not(testing::Contains(testing::HasSubstr("write"))));
  EXPECT_EQ(os.files[kPath], "EXT_DEBUG=5\n");
}

// --- Writer ---

TEST_F(Settings, TheWriterReplacesTheValue) {
  EXPECT_EQ(Written("EXT_DEBUG=5\n", "3"), "EXT_DEBUG=3\n");
  EXPECT_EQ(Written("EXT_DEBUG=5", "3"), "EXT_DEBUG=3\n");
  EXPECT_EQ(Written("A=1\nEXT_DEBUG=5\nB=2\n", "3"), "A=1\nEXT_DEBUG=3\nB=2\n");
  EXPECT_EQ(Written("EXT_DEBUG=5\n", ""), "EXT_DEBUG=\n");
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Settings, TheWriterKeepsWhatStandsBeforeTheEqualsSignOnly) {
  EXPECT_EQ(Written("EXT_DEBUG = 5 # note\n", "3"), "EXT_DEBUG =3\n");
  EXPECT_EQ(Written("EXT_DEBUG=\"5\"\r\n", "3"), "EXT_DEBUG=3\n");
  EXPECT_EQ(Written("EXT_DEBUG=a=b\n", "3"), "EXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterReplacesEveryMatch) {
  EXPECT_EQ(Written("EXT_DEBUG=1\nEXT_DEBUG_X=2\nOTHER=4\nEXT_DEBUG=5\n", "3"),
            "EXT_DEBUG=3\nEXT_DEBUG_X=3\nOTHER=4\nEXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterKeepsAllOtherLines) {
  for (const char* content : {"#EXT_DEBUG=9\n", "OTHER=1\n\n  EXT_DEBUG=2\n", "", "\r\n", "no line feed"}) {
    EXPECT_EQ(Written(content, "3"), content);
  }
  const std::string longLines = std::string(1000, 'x') + "\n" + std::string(254, 'y') + "\nend";
  EXPECT_EQ(Written(longLines, "3"), longLines);
  const std::string zeros("A=1\0B=2\n\0\n", 10);
  EXPECT_EQ(Written(zeros, "3"), zeros);
}

TEST_F(Settings, TheWriterKeepsAMatchWithoutEqualsSign) {
  EXPECT_EQ(Written("EXT_DEBUG\nEXT_DEBUG=5\n", "3"), "EXT_DEBUG\nEXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterTakesAKeyThatDoesNotOccur) {
  EXPECT_EQ(Written("OTHER=1\n", "3"), "OTHER=1\n");
  EXPECT_EQ(os.files.size(), 2U);
}

TEST_F(Settings, TheWriterTakesAValueOfAnyLength) {
  const std::string value(5000, 'v');
  EXPECT_EQ(Written("EXT_DEBUG=5\n", value.c_str()), "EXT_DEBUG=" + value + "\n");
}

TEST_F(Settings, TheWriterTakesAPercentSignAsItStands) {
  EXPECT_EQ(Written("EXT_DEBUG%s%n=5\nA%s\n", "%s%d"), "EXT_DEBUG%s%n=%s%d\nA%s\n");
}

TEST_F(Settings, TheWriterMakesTheNewFileDurableBeforeItReplacesTheOld) {
  os.files[kTemporary] = "left over from a run that was killed, and longer than what is written now\n";
  Written("EXT_DEBUG=5\n", "3");
  const auto steps = os.FileSteps();
  ASSERT_GE(steps.size(), 4U);
  EXPECT_EQ(steps[0], "open r /sysconf/conf.img");
  EXPECT_EQ(steps[1], "open w /sysconf/conf.img.tmp");
  EXPECT_EQ(steps.back(), "rename /sysconf/conf.img.tmp /sysconf/conf.img");
  EXPECT_THAT(steps, testing::Contains("fsync /sysconf/conf.img.tmp"));
  EXPECT_THAT(steps, testing::Contains("close /sysconf/conf.img.tmp"));
  EXPECT_EQ(os.AfterPowerCut()[kPath], "EXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterRefusesAMissingArgument) {
  EXPECT_EQ(sysconf_fset(nullptr, "EXT_DEBUG", "3"), -1);
  EXPECT_EQ(sysconf_fset(kPath, nullptr, "3"), -1);
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", nullptr), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("sysconf_fset invalid args"), Err("sysconf_fset invalid args"),
                                    Err("sysconf_fset invalid args")));
  EXPECT_THAT(os.FileSteps(), IsEmpty());
}

TEST_F(Settings, TheWriterLogsAFileThatDoesNotOpen) {
  EXPECT_EQ(sysconf_fset("/none", "EXT_DEBUG", "3"), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("can not open sysconf file /none.\n")));
  EXPECT_EQ(os.files.count("/none.tmp"), 0U);
}

TEST_F(Settings, TheWriterLogsATemporaryFileThatCannotBeMade) {
  os.Fail("open", EACCES, 2);
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("Can not create a temp file for write.")));
  EXPECT_EQ(os.files[kPath], "EXT_DEBUG=0\n");
  EXPECT_EQ(os.OpenFiles(), 1U);  // the settings file stays open
}

TEST_F(Settings, TheWriterLogsAFailedRename) {
  os.Fail("rename", EACCES);
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("moving file error.")));
  EXPECT_EQ(os.files[kPath], "EXT_DEBUG=0\n");
  EXPECT_EQ(os.files[kTemporary], "EXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterKeepsAFileThatCannotBeReadOn) {
  os.files[kPath] = "EXT_DEBUG=5";
  os.Fail("read", EIO, 2);
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("moving file error.")));
  EXPECT_EQ(os.files[kPath], "EXT_DEBUG=5");
  EXPECT_EQ(os.files[kTemporary], "");  // the piece of a line is not written either
  EXPECT_EQ(os.OpenFiles(), 0U);
}

TEST_F(Settings, TheTemporaryPathIsAtMost127Characters) {
  const std::string fits = "/" + std::string(122, 'p');  // 123, and 4 for ".tmp"
  os.files[fits] = "EXT_DEBUG=5\n";
  EXPECT_EQ(sysconf_fset(fits.c_str(), "EXT_DEBUG", "3"), 0);
  EXPECT_EQ(os.files[fits], "EXT_DEBUG=3\n");
  EXPECT_THAT(os.Log(), IsEmpty());

  for (const size_t length : {123U, 127U, 128U, 4000U}) {
    const std::string tooLong = "/" + std::string(length, 'p');
    os.files[tooLong] = "EXT_DEBUG=5\n";
    const size_t count = os.files.size();
    os.Forget();
    EXPECT_EQ(sysconf_fset(tooLong.c_str(), "EXT_DEBUG", "3"), -1);
    EXPECT_THAT(os.Log(), ElementsAre(Err("Can not create a temp file for write.")));
    EXPECT_EQ(os.files[tooLong], "EXT_DEBUG=5\n");
    EXPECT_EQ(os.files.size(), count);
  }
}

// Whatever fails or ends the writer wherever: the settings are the old ones or the new ones.

constexpr char kOld[] = "A=1\nEXT_DEBUG=5\nB=2\n";
constexpr char kNew[] = "A=1\nEXT_DEBUG=3\nB=2\n";

int StepsOfTheWriter(const std::string& content = kOld) {
  ResetProduct();
  FakeOs os;
  os.files[kPath] = content;
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), 0);
  return static_cast<int>(os.FileSteps().size());
}

TEST(SettingsWriter, AFailureAtAnyStepLeavesTheOldFile) {
  const int steps = StepsOfTheWriter();
  int failures = 0;
  for (int step = 1; step <= steps; ++step) {
    FakeOs os;
    os.files[kPath] = kOld;
    os.FailFileStep(step, ENOSPC);
    const int result = sysconf_fset(kPath, "EXT_DEBUG", "3");
    SCOPED_TRACE(os.FileSteps().at(static_cast<size_t>(step) - 1));
    EXPECT_EQ(os.files[kPath], result == 0 ? kNew : kOld);
    EXPECT_EQ(os.Log().size(), result == 0 ? 0U : 1U);
    failures += result != 0;
  }
  EXPECT_GE(failures, steps - 1);  // only closing the file that was read may fail unnoticed
}

TEST(SettingsWriter, BeingKilledAtAnyStepLeavesTheOldOrTheNewFile) {
  const int steps = StepsOfTheWriter();
  ASSERT_GE(steps, 8);
  for (int step = 1; step <= steps + 1; ++step) {
    FakeOs os;
    os.files[kPath] = kOld;
    os.KillAtFileStep(step);
    sysconf_fset(kPath, "EXT_DEBUG", "3");
    EXPECT_EQ(os.files[kPath], step <= steps ? kOld : kNew) << step;
    EXPECT_EQ(os.AfterPowerCut()[kPath], step <= steps ? kOld : kNew) << step;
  }
}

TEST(SettingsWriter, WritesFilesLargerThanABufferSafelyToo) {
  std::string content;
  for (int line = 0; line < 2000; ++line) {
    content += "KEY" + std::to_string(line) + "=" + std::string(50, 'v') + "\n";
  }
  const int steps = StepsOfTheWriter(content + "EXT_DEBUG=5\n");
  EXPECT_GT(steps, 20);
  for (int step = 1; step <= steps; ++step) {
    FakeOs os;
    os.files[kPath] = content + "EXT_DEBUG=5\n";
    os.FailFileStep(step, ENOSPC);
    const int result = sysconf_fset(kPath, "EXT_DEBUG", "3");
    EXPECT_EQ(os.files[kPath], content + (result == 0 ? "EXT_DEBUG=3\n" : "EXT_DEBUG=5\n")) << step;
  }
}

}  // namespace
