// The settings writer, killed or failing at any of its system calls, or at any two of them. Afterwards the file is
// either the complete old one or the complete new one, and the next write works. The first tests run in memory, the
// others in a real directory.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/fakeos/Fixtures.h"

namespace {

constexpr char kPath[] = "/sysconf/conf.img";
constexpr char kTemporary[] = "/sysconf/conf.img.tmp";
constexpr char kOld[] = "# 1\nEXT_DEBUG=5\nIP=10.0.0.1\nEXT_DEBUG_LEVEL=7\n";

// Larger than a stream's buffer, so that it is read and written in pieces.
std::string Large(const std::string& small) {
  std::string text = small;
  for (int line = 0; text.size() < 20000; ++line) {
    text += "KEY" + std::to_string(line) + "=" + std::string(100, 'v') + '\n';
  }
  return text;
}

struct Contents {
  std::string before, after;
};

class SettingsCrash : public testing::TestWithParam<Contents> {
 protected:
  SettingsCrash() { ResetProduct(); }

  static int Write() { return sysconf_fset(kPath, "EXT_DEBUG", "3"); }

  static bool OldOrNew(const std::string& content) {
    return content == GetParam().before || content == GetParam().after;
  }

  // A machine with the old settings.
  struct Device {
    Device() { os.files[kPath] = GetParam().before; }
    FakeOs os;
  };
  // Returns the file steps of a write that succeeds.
  static std::vector<std::string> Steps() {
    Device device;
    EXPECT_EQ(Write(), 0);
    EXPECT_EQ(device.os.files[kPath], GetParam().after);
    EXPECT_EQ(device.os.files.count(kTemporary), 0U);
    return device.os.FileSteps();
  }
};

const std::string kLargeOld = Large("EXT_DEBUG=5\n"), kLargeNew = Large("EXT_DEBUG=3\n");

INSTANTIATE_TEST_SUITE_P(Settings, SettingsCrash,
                         testing::Values(Contents{kOld, "# 1\nEXT_DEBUG=3\nIP=10.0.0.1\nEXT_DEBUG_LEVEL=3\n"},
                                         Contents{kLargeOld, kLargeNew}, Contents{"", ""}),
                         [](const auto& test) {
                           return std::string(test.index == 0 ? "Small" : test.index == 1 ? "Large" : "Empty");
                         });

TEST_P(SettingsCrash, TheNewFileIsOnTheDiskBeforeItReplacesTheOldOne) {
  const std::vector<std::string> steps = Steps();
  ASSERT_GE(steps.size(), 6U);
  EXPECT_EQ(steps[0], "open r /sysconf/conf.img");
  EXPECT_EQ(steps[1], "open w /sysconf/conf.img.tmp");
  EXPECT_EQ(steps.back(), "rename /sysconf/conf.img.tmp /sysconf/conf.img");
  const auto synced = std::find(steps.begin(), steps.end(), "fsync /sysconf/conf.img.tmp");
  ASSERT_NE(synced, steps.end());
  EXPECT_EQ(std::count(synced, steps.end(), "write /sysconf/conf.img.tmp"), 0);
  EXPECT_EQ(std::count(steps.begin(), steps.end(), "open w /sysconf/conf.img"), 0);
}

TEST_P(SettingsCrash, KilledAtAnyCall) {
  const int steps = static_cast<int>(Steps().size());
  for (int n = 1; n <= steps; ++n) {
    SCOPED_TRACE(n);
    std::map<std::string, std::string> left;
    {
      Device device;
      device.os.KillAtFileStep(n);
      Write();
      EXPECT_TRUE(device.os.Killed());
      EXPECT_EQ(device.os.files[kPath], GetParam().before);
      left = device.os.AfterPowerCut();
      EXPECT_EQ(left[kPath], GetParam().before);
    }
    // What the killed writer left behind does not disturb the next write.
    FakeOs os;
    os.files = left;
    EXPECT_EQ(Write(), 0);
    EXPECT_EQ(os.AfterPowerCut()[kPath], GetParam().after);
    EXPECT_EQ(os.files.count(kTemporary), 0U);
  }
}

TEST_P(SettingsCrash, AFailureAtAnyCallAndAnotherOrAKillAtAnyLaterOne) {
  const std::vector<std::string> calls = Steps();
  const int steps = static_cast<int>(calls.size());
  for (const int error : {EIO, ENOSPC, EACCES}) {
    for (int n = 1; n <= steps; ++n) {
      for (int m = n; m <= steps + 1; ++m) {
        for (const bool killed : {false, true}) {
          SCOPED_TRACE(testing::Message() << error << " at " << n << (killed ? ", killed at " : ", again at ") << m);
          Device device;
          device.os.FailFileStep(n, error);
          if (killed) {
            device.os.KillAtFileStep(m);
          } else {
            device.os.FailFileStep(m, error);
          }
          const int result = Write();
          const std::string found = device.os.files[kPath];
          EXPECT_TRUE(OldOrNew(found));
          EXPECT_EQ(device.os.AfterPowerCut()[kPath], found);
          if (!device.os.Killed()) {
            EXPECT_EQ(found, result == 0 ? GetParam().after : GetParam().before);
            EXPECT_EQ(device.os.Log().size(), result == 0 ? 0U : 1U);
            // Only a failure to close the file that was read is ignored.
            EXPECT_TRUE(result != 0 || calls.at(static_cast<size_t>(n) - 1) == "close /sysconf/conf.img");
          }
        }
      }
    }
  }
}

TEST_P(SettingsCrash, AFullDiskFromAnyCallOn) {
  const int steps = static_cast<int>(Steps().size());
  for (int n = 1; n <= steps; ++n) {
    SCOPED_TRACE(n);
    Device device;
    for (int m = n; m <= steps + 8; ++m) {
      device.os.FailFileStep(m, ENOSPC);
    }
    EXPECT_EQ(Write(), -1);
    EXPECT_EQ(device.os.files[kPath], GetParam().before);
    EXPECT_EQ(device.os.Log().size(), 1U);
  }
}

TEST_P(SettingsCrash, TheReaderFailsAtAnyCall) {
  int steps = 0;
  std::string expected;
  for (int n = 0; n <= steps; ++n) {  // 0: no failure
    SCOPED_TRACE(n);
    Device device;
    if (n > 0) {
      device.os.FailFileStep(n, EIO);
    }
    char found[256] = "unchanged";
    EXPECT_EQ(sysconf_fget(kPath, "EXT_DEBUG", found), n == 1 ? -1 : 0);  // only a failure to open is reported
    EXPECT_EQ(device.os.OpenFiles(), 0U);
    if (n == 0) {
      expected = found;
      steps = static_cast<int>(device.os.FileSteps().size());
    }
    EXPECT_TRUE(found == expected || std::string(found) == "unchanged") << found;
  }
  EXPECT_GE(steps, 3);
}

// --- A real directory ---

class SettingsCrashOnDisk : public testing::Test {
 protected:
  SettingsCrashOnDisk() {
    char name[] = "/tmp/settings.XXXXXX";
    directory_ = mkdtemp(name);
    path_ = directory_ + "/conf.img";
    Create(path_, kOld);
  }
  ~SettingsCrashOnDisk() override {
    chmod(directory_.c_str(), 0700);
    std::filesystem::remove_all(directory_);
  }

  static void Create(const std::string& path, const std::string& content) { std::ofstream(path) << content; }
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  static int Write(const std::string& path, const char* value = "3") {
    return sysconf_fset(path.c_str(), "EXT_DEBUG", value);
  }

  // Runs the action in a child process and returns its result. If this is root, the child becomes another user, because
  // permissions do not stop root.
  template <typename Action>
  static int AsOrdinaryUser(Action action) {
    const pid_t child = fork();
    if (child == 0) {
      if (geteuid() == 0 && setuid(65534) != 0) {
        _exit(99);
      }
      _exit(action() == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? -WEXITSTATUS(status) : 1000;
  }

  std::string directory_, path_;
};

constexpr char kNewOnDisk[] = "# 1\nEXT_DEBUG=3\nIP=10.0.0.1\nEXT_DEBUG_LEVEL=3\n";

TEST_F(SettingsCrashOnDisk, AWriteReplacesTheFile) {
  EXPECT_EQ(Write(path_), 0);
  EXPECT_EQ(Read(path_), kNewOnDisk);
  EXPECT_FALSE(std::filesystem::exists(path_ + ".tmp"));
}

TEST_F(SettingsCrashOnDisk, TheNewFileHasThePermissionsThatTheUmaskLeaves) {
  const mode_t before = umask(0);
  EXPECT_EQ(Write(path_), 0);
  umask(before);
  EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(path_).permissions()), 0666U);
}

TEST_F(SettingsCrashOnDisk, AKillAtAnyTime) {
  const std::string one = Large("EXT_DEBUG=1\n"), two = Large("EXT_DEBUG=2\n");
  Create(path_, one);
  int ones = 0, twos = 0;
  for (int round = 0; round < 60; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (;;) {
        Write(path_, "1");
        Write(path_, "2");
      }
    }
    usleep(static_cast<useconds_t>(500 + 73 * round));
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    const std::string found = Read(path_);
    ASSERT_TRUE(found == one || found == two) << found.size() << " bytes";
    ++(found == one ? ones : twos);
  }
  EXPECT_EQ(ones + twos, 60);
  EXPECT_EQ(Write(path_, "2"), 0);
  EXPECT_EQ(Read(path_), two);
}

TEST_F(SettingsCrashOnDisk, NoRoomForTheNewFile) {
  const std::string old = Large("EXT_DEBUG=5\n");
  Create(path_, old);
  for (const rlim_t room : {rlim_t{0}, rlim_t{1}, rlim_t{4096}, rlim_t{old.size() - 1}}) {
    const int result = AsOrdinaryUser([&] {
      chmod(directory_.c_str(), 0777);
      signal(SIGXFSZ, SIG_IGN);  // writing fails instead, as on a full disk
      const rlimit limit{room, room};
      return setrlimit(RLIMIT_FSIZE, &limit) == 0 ? Write(path_) : 0;
    });
    EXPECT_EQ(result, -1) << room;
    EXPECT_EQ(Read(path_), old);
  }
}

TEST_F(SettingsCrashOnDisk, ADirectoryWithoutWritePermission) {
  chmod(directory_.c_str(), 0555);
  EXPECT_EQ(AsOrdinaryUser([&] { return Write(path_); }), -1);
  EXPECT_EQ(Read(path_), kOld);
}

TEST_F(SettingsCrashOnDisk, AFileWithoutReadPermission) {
  chmod(directory_.c_str(), 0777);
  chmod(path_.c_str(), 0000);
  EXPECT_EQ(AsOrdinaryUser([&] { return Write(path_); }), -1);
  char value[256] = "unchanged";
  EXPECT_EQ(AsOrdinaryUser([&] { return sysconf_fget(path_.c_str(), "EXT_DEBUG", value); }), -1);
  chmod(path_.c_str(), 0600);
  EXPECT_EQ(Read(path_), kOld);
  EXPECT_FALSE(std::filesystem::exists(path_ + ".tmp"));
}

TEST_F(SettingsCrashOnDisk, ASymbolicLinkIsReplacedAndItsTargetStays) {
  const std::string link = directory_ + "/link";
  std::filesystem::create_symlink(path_, link);
  EXPECT_EQ(Write(link), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
  EXPECT_EQ(Read(link), kNewOnDisk);
  EXPECT_EQ(Read(path_), kOld);
}

TEST_F(SettingsCrashOnDisk, ABrokenLinkIsAFileThatDoesNotOpen) {
  const std::string link = directory_ + "/link";
  std::filesystem::create_symlink(directory_ + "/none", link);
  EXPECT_EQ(Write(link), -1);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(SettingsCrashOnDisk, WhatIsAtTheTemporaryPathIsOverwrittenUnlessItIsADirectory) {
  Create(path_ + ".tmp", Large("left over\n"));
  EXPECT_EQ(Write(path_), 0);
  EXPECT_EQ(Read(path_), kNewOnDisk);

  Create(path_, kOld);
  std::filesystem::create_directory(path_ + ".tmp");
  EXPECT_EQ(Write(path_), -1);
  EXPECT_EQ(Read(path_), kOld);
}

TEST_F(SettingsCrashOnDisk, ADirectoryInPlaceOfTheFile) {
  const std::string inner = directory_ + "/inner";
  std::filesystem::create_directory(inner);
  EXPECT_EQ(Write(inner), -1);
  EXPECT_TRUE(std::filesystem::is_directory(inner));
}

TEST_F(SettingsCrashOnDisk, PathsUpToTheLongestOne) {
  // At most 127 characters with ".tmp": the buffer's 128 bytes include the terminating zero.
  for (const size_t length : {size_t{122}, size_t{123}, size_t{124}, size_t{127}, size_t{128}, size_t{250}}) {
    const std::string path = directory_ + "/" + std::string(length - directory_.size() - 1, 'p');
    ASSERT_EQ(path.size(), length);
    Create(path, kOld);
    EXPECT_EQ(Write(path), length <= 123 ? 0 : -1) << length;
    EXPECT_EQ(Read(path), length <= 123 ? kNewOnDisk : kOld) << length;
  }
  size_t files = 0;
  for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator(directory_)) {
    ++files;
  }
  EXPECT_EQ(files, 7U);  // nothing else
}

}  // namespace
