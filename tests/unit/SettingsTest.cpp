// Reading and writing the settings file: which line is used, what its value is, and every error.
// SettingsCrashTest interrupts the writer at each of its system calls.
#include <cerrno>
#include <cstring>
#include <string>

#include "tests/fakeos/Fixtures.h"

namespace {

constexpr char kPath[] = "/sysconf/conf.img";
constexpr char kTemporary[] = "/sysconf/conf.img.tmp";
constexpr char kUnchanged[] = "unchanged";  // what the caller's buffer holds before

class Settings : public Machine {
 protected:
  // Returns the value that the reader finds in a file with this content; kUnchanged if it finds none.
  std::string Value(std::string content, const char* key = "EXT_DEBUG") {
    os.files[kPath] = std::move(content);
    char value[256] = "unchanged";
    EXPECT_EQ(sysconf_fget(kPath, key, value), 0);
    EXPECT_EQ(os.OpenFiles(), 0U);
    return value;
  }

  // Returns the file's content after the writer has set the key's value.
  std::string Written(std::string content, const char* value, const char* key = "EXT_DEBUG") {
    os.files[kPath] = std::move(content);
    EXPECT_EQ(sysconf_fset(kPath, key, value), 0);
    EXPECT_EQ(os.OpenFiles(), 0U);
    EXPECT_EQ(os.files.count(kTemporary), 0U);
    return os.files[kPath];
  }
};

// --- Reader ---

struct Reading {
  const char* rule;
  std::string content;
  std::string value;
  const char* key = "EXT_DEBUG";
};

const Reading kReadings[] = {
    {"the value follows the equals sign", "EXT_DEBUG=5\n", "5"},
    {"the value follows the equals sign", "EXT_DEBUG=5", "5"},
    {"the value follows the equals sign", "OTHER=1\nEXT_DEBUG=5\nLAST=2\n", "5"},
    {"the value follows the equals sign", "EXT_DEBUG=a=b\n", "a=b"},
    {"spaces around the equals sign are ignored", "EXT_DEBUG = 5\n", "5"},
    {"spaces around the equals sign are ignored", "EXT_DEBUG=    5\n", "5"},
    {"spaces around the equals sign are ignored", "EXT_DEBUG    =5\n", "5"},
    {"spaces after the value belong to it", "EXT_DEBUG=5  \n", "5  "},
    {"a tab before the value is not skipped", "EXT_DEBUG=\t5\n", ""},
    {"quotes are removed", "EXT_DEBUG=\"7\"\n", "7"},
    {"quotes are removed", "EXT_DEBUG= \" 7 8 \" # note\n", " 7 8 "},
    {"quotes are removed", "EXT_DEBUG=\"\"\n", ""},
    {"quotes are removed", "EXT_DEBUG=\"7\n", "7"},
    {"quotes are removed", "EXT_DEBUG=\"\n", ""},
    {"quotes are removed", "EXT_DEBUG=\"", ""},
    {"quotes are removed", "EXT_DEBUG=7\"8\"\n", "7\"8\""},
    {"a value may be empty", "EXT_DEBUG=\n", ""},
    {"a value may be empty", "EXT_DEBUG=", ""},
    {"a value may be empty", "EXT_DEBUG=   \n", ""},
    {"a value may be empty", "EXT_DEBUG=   ", ""},
    {"a value ends at the first unprintable character", "EXT_DEBUG=5\r\n", "5"},
    {"a value ends at the first unprintable character", "EXT_DEBUG=5\t6\n", "5"},
    {"a value ends at the first unprintable character", "EXT_DEBUG=5\x1F\n", "5"},
    {"a value ends at the first unprintable character", "EXT_DEBUG=5\x7F\n", "5"},
    {"a value ends at the first unprintable character", "EXT_DEBUG=5\xE9\n", "5"},
    {"a value ends at the first unprintable character", "EXT_DEBUG=\"5\t6\"\n", "5"},
    {"a value ends at a zero byte", std::string("EXT_DEBUG=5\0006\n", 13), "5"},
    {"empty lines are skipped", "\n\nOTHER=1\n\nEXT_DEBUG=5\n", "5"},
    {"a key matches every line that begins with it", "EXT_DEBUGGING=1\nEXT_DEBUG=5\n", "1"},
    {"a key matches every line that begins with it", "EXT_DEBUG_X=2\nEXT_DEBUG=5\n", "2"},
    {"a key matches every line that begins with it", "first=3\n", "3", ""},
    {"a key may contain an equals sign", "A=B=C\n", "B=C", "A=B"},
    {"the first match counts", "EXT_DEBUG=1\nEXT_DEBUG=2\n", "1"},
    {"a key matches only at the beginning of a line", " EXT_DEBUG=5\n", kUnchanged},
    {"a key matches only at the beginning of a line", "X_EXT_DEBUG=5\n", kUnchanged},
    {"a key matches only as it is", "ext_debug=5\n", kUnchanged},
    {"a key matches only as it is", "EXT_DEBU=5\n", kUnchanged},
    {"comments are ignored", "#EXT_DEBUG=9\n", kUnchanged},
    {"comments are ignored", "#EXT_DEBUG=9\nEXT_DEBUG=5\n", "5"},
    {"comments are ignored", "#EXT_DEBUG=9\n", kUnchanged, "#EXT"},
    {"a match without equals sign is skipped", "EXT_DEBUG\nEXT_DEBUG 7\nEXT_DEBUG=5\n", "5"},
    {"a match without equals sign is skipped", "EXT_DEBUG", kUnchanged},
    {"without the key the buffer is unchanged", "OTHER=1\n", kUnchanged},
    {"without the key the buffer is unchanged", "\n\n\n", kUnchanged},
    {"without the key the buffer is unchanged", "", kUnchanged},
    {"the last line may end without a line feed", "EXT_DEBUG=" + std::string(244, 'v'), std::string(244, 'v')},
    {"a value may be as long as a line", "EXT_DEBUG=" + std::string(245, 'v') + "\n", std::string(245, 'v')},
    {"a value may be as long as a line", "EXT_DEBUG=" + std::string(245, 'v') + "cut", std::string(245, 'v')},
    {"a value may be as long as a line", "=" + std::string(254, 'v'), std::string(254, 'v'), ""},
    {"each 255 characters count as a line", std::string(255, 'x') + "EXT_DEBUG=7\n", "7"},
    {"each 255 characters count as a line", std::string(254, 'x') + "EXT_DEBUG=7\n", kUnchanged},
    {"each 255 characters count as a line", "#" + std::string(254, 'x') + "EXT_DEBUG=7\n", "7"},
    {"each 255 characters count as a line", std::string(254, 'x') + "\nEXT_DEBUG=7\n", "7"},
};

TEST_F(Settings, TheReaderFindsTheValue) {
  for (const Reading& reading : kReadings) {
    EXPECT_EQ(Value(reading.content, reading.key), reading.value) << reading.rule << ": " << reading.content;
  }
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Settings, EveryOtherPrintableCharacterBelongsToTheValue) {
  for (char c = '!'; c <= '~'; ++c) {
    if (c != '"') {
      EXPECT_EQ(Value(std::string("EXT_DEBUG= ") + c + "5\n"), (std::string{c, '5'}));
    }
  }
}

TEST_F(Settings, TheReaderRejectsANullPointer) {
  char value[256] = "unchanged";
  EXPECT_EQ(sysconf_fget(nullptr, "EXT_DEBUG", value), -1);
  EXPECT_EQ(sysconf_fget(kPath, nullptr, value), -1);
  EXPECT_EQ(sysconf_fget(kPath, "EXT_DEBUG", nullptr), -1);
  EXPECT_STREQ(value, kUnchanged);
  EXPECT_THAT(os.Log(), ElementsAre(Err("invalid args.\n"), Err("invalid args.\n"), Err("invalid args.\n")));
  EXPECT_THAT(os.FileSteps(), IsEmpty());
}

TEST_F(Settings, TheReaderLogsAFileThatDoesNotOpen) {
  char value[256] = "unchanged";
  EXPECT_EQ(sysconf_fget("/none", "EXT_DEBUG", value), -1);
  EXPECT_STREQ(value, kUnchanged);
  EXPECT_THAT(os.Log(), ElementsAre(Err("can not open sysconf file /none.\n")));
}

TEST_F(Settings, TheReaderStopsAtAReadError) {
  os.Fail("read", EIO, 1);
  EXPECT_EQ(Value("EXT_DEBUG=5\n"), kUnchanged);
  os.Fail("read", EIO, 2);
  EXPECT_EQ(Value("EXT_DEBUG=5"), kUnchanged);  // more digits might have followed
  EXPECT_THAT(os.Log(), IsEmpty());
}

TEST_F(Settings, AStreamThatCannotBeCreatedCountsAsAFileThatDoesNotOpen) {
  os.Fail("fdopen", ENOMEM, 1);
  char value[256] = "unchanged";
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
    EXPECT_EQ(os.OpenFiles(), 1U);  // the settings file of the first case, as the header says
  }
}

TEST_F(Settings, TheFileMayGetDescriptor0) {
  os.nextFile = 0;
  EXPECT_EQ(Value("EXT_DEBUG=5\n"), "5");
  os.nextFile = 0;
  EXPECT_EQ(Written("EXT_DEBUG=5\n", "3"), "EXT_DEBUG=3\n");
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

TEST_F(Settings, TheWriterReplacesEverythingAfterTheEqualsSign) {
  EXPECT_EQ(Written("EXT_DEBUG = 5 # note\n", "3"), "EXT_DEBUG =3\n");
  EXPECT_EQ(Written("EXT_DEBUG=\"5\"\r\n", "3"), "EXT_DEBUG=3\n");
  EXPECT_EQ(Written("EXT_DEBUG=a=b\n", "3"), "EXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterReplacesEveryMatch) {
  EXPECT_EQ(Written("EXT_DEBUG=1\nEXT_DEBUG_X=2\nOTHER=4\nEXT_DEBUG=5\n", "3"),
            "EXT_DEBUG=3\nEXT_DEBUG_X=3\nOTHER=4\nEXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterKeepsAllOtherLines) {
  for (const char* content : {"#EXT_DEBUG=9\n", "\n\n", "OTHER=1\n\n  EXT_DEBUG=2\n", "", "\r\n", "no line feed"}) {
    EXPECT_EQ(Written(content, "3"), content);
  }
  const std::string longLines = std::string(1000, 'x') + "\n" + std::string(254, 'y') + "\n" + std::string(254, 'z');
  EXPECT_EQ(Written(longLines, "3"), longLines);
  const std::string zeros("A=1\0B=2\n\0\n", 10);
  EXPECT_EQ(Written(zeros, "3"), zeros);
}

TEST_F(Settings, TheWriterKeepsAMatchWithoutEqualsSign) {
  EXPECT_EQ(Written("EXT_DEBUG\nEXT_DEBUG=5\n", "3"), "EXT_DEBUG\nEXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterDoesNotAddAMissingKey) {
  EXPECT_EQ(Written("OTHER=1\n", "3"), "OTHER=1\n");
  EXPECT_EQ(os.files.size(), 2U);
}

TEST_F(Settings, TheWriterAcceptsAValueOfAnyLength) {
  const std::string value(5000, 'v');
  EXPECT_EQ(Written("EXT_DEBUG=5\n", value.c_str()), "EXT_DEBUG=" + value + "\n");
}

TEST_F(Settings, TheWriterGivesAPercentSignNoMeaning) {
  EXPECT_EQ(Written("EXT_DEBUG%s%n=5\nA%s\n", "%s%d"), "EXT_DEBUG%s%n=%s%d\nA%s\n");
}

TEST_F(Settings, TheWriterRejectsANullPointer) {
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

TEST_F(Settings, TheWriterLogsATemporaryFileThatCannotBeCreated) {
  os.Fail("open", EACCES, 2);
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("Can not create a temp file for write.")));
  EXPECT_EQ(os.files[kPath], "EXT_DEBUG=0\n");
  EXPECT_EQ(os.OpenFiles(), 1U);  // the settings file stays open: existing behaviour
}

TEST_F(Settings, TheWriterLogsAFailedRename) {
  os.Fail("rename", EACCES);
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("moving file error.")));
  EXPECT_EQ(os.files[kPath], "EXT_DEBUG=0\n");
  EXPECT_EQ(os.files[kTemporary], "EXT_DEBUG=3\n");
}

TEST_F(Settings, TheWriterKeepsAFileThatCannotBeReadToItsEnd) {
  os.files[kPath] = "EXT_DEBUG=5";
  os.Fail("read", EIO, 2);
  EXPECT_EQ(sysconf_fset(kPath, "EXT_DEBUG", "3"), -1);
  EXPECT_THAT(os.Log(), ElementsAre(Err("moving file error.")));
  EXPECT_EQ(os.files[kPath], "EXT_DEBUG=5");
  EXPECT_EQ(os.files[kTemporary], "");  // the partial line is not written either
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

}  // namespace
