// The files that the simulator reads and writes.
#include "simulator/connect/Files.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "tests/simulator/Support.h"

namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/simZR4410.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    file_ = folder_ + "/file";
  }
  void TearDown() override { fs::remove_all(folder_); }
  static std::string Content(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  std::size_t Count() const { return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_), {})); }

  std::string folder_, file_;
};

TEST_F(Files, AreReadWhole) {
  for (const std::size_t size : {0U, 1U, 65536U, 200000U}) {
    std::ofstream(file_) << std::string(size, 'x');
    EXPECT_EQ(sim::ReadFile(file_), std::string(size, 'x'));
  }
}

TEST_F(Files, ThatCannotBeReadAreReportedWithTheReason) {
  EXPECT_EQ(ErrorOf([&] { sim::ReadFile(file_); }), file_ + ": No such file or directory");
  EXPECT_EQ(ErrorOf([&] { sim::ReadFile(folder_); }), folder_ + ": Is a directory");
}

TEST_F(Files, CaptureIsNewAndBeginsWithItsHeader) {
  sim::CaptureFile capture(file_, false);
  EXPECT_FALSE(fs::exists(file_));
  capture.Begin("header");
  capture.Keep();
  EXPECT_EQ(Content(file_), "header\n");
}

TEST_F(Files, CaptureIsRemovedIfTheStartFails) {
  {
    sim::CaptureFile capture(file_, false);
    capture.Begin("header");
  }
  EXPECT_EQ(Count(), 0U);
}

TEST_F(Files, CaptureOverwritesAFileOnlyIfForced) {
  std::ofstream(file_) << "precious recording";
  EXPECT_EQ(ErrorOf([&] { sim::CaptureFile(file_, false); }), file_ + ": the file exists (--force overwrites it)");
  {
    sim::CaptureFile forced(file_, true);
    EXPECT_EQ(Content(file_), "precious recording") << "until everything is opened";
    forced.Begin("header");
  }
  EXPECT_EQ(Content(file_), "header\n");
}

TEST_F(Files, CaptureDoesNotOverwriteAFileCreatedMeanwhile) {
  sim::CaptureFile capture(file_, false);
  std::ofstream(file_) << "precious recording";
  EXPECT_EQ(ErrorOf([&] { capture.Begin("header"); }), file_ + ": File exists");
  EXPECT_EQ(Content(file_), "precious recording");
}

TEST_F(Files, CaptureTakesADevice) {
  sim::CaptureFile null("/dev/null", false);
  EXPECT_EQ(ErrorOf([&] { null.Begin("header"); }), "");
  sim::CaptureFile full("/dev/full", false);
  EXPECT_EQ(ErrorOf([&] { full.Begin("header"); }), "/dev/full: No space left on device");
  EXPECT_EQ(ErrorOf([&] { sim::CaptureFile(folder_, true); }), folder_ + ": Is a directory");
}

TEST_F(Files, ReadyFileExistsWhileTheSimulatorIsReady) {
  std::ofstream(file_) << "1\n";  // of a simulator that was killed
  {
    sim::ReadyFile ready(file_);
    EXPECT_TRUE(fs::exists(file_));
    ready.Prepare();
    EXPECT_FALSE(fs::exists(file_));
    ready.Announce();
    EXPECT_EQ(Content(file_), std::to_string(getpid()) + "\n");
    EXPECT_EQ(Count(), 1U);
  }
  EXPECT_EQ(Count(), 0U);
}

TEST_F(Files, ReadyFileDoesNotOutliveAStartThatFails) {
  {
    sim::ReadyFile ready(file_);
    ready.Prepare();
    EXPECT_FALSE(fs::exists(file_));
  }
  EXPECT_EQ(Count(), 0U);
}

TEST_F(Files, ReadyFileThatCannotBeWrittenIsAnErrorBeforeTheStart) {
  const std::string path = folder_ + "/no/such/folder";
  sim::ReadyFile ready(path);
  EXPECT_EQ(ErrorOf([&] { ready.Prepare(); }), path + ": No such file or directory");
  EXPECT_EQ(ErrorOf([&] { sim::ReadyFile folder(folder_); }), folder_ + ": Is a directory");
}

TEST_F(Files, ReadyFileOfALaterRunIsNotRemoved) {
  sim::ReadyFile first(file_);
  first.Prepare();
  first.Announce();
  sim::ReadyFile second(file_);
  second.Prepare();
  second.Announce();
  first.Remove();
  EXPECT_TRUE(fs::exists(file_));
}

TEST_F(Files, ReadyFileMayBeADevice) {
  sim::ReadyFile ready("/dev/null");
  ready.Prepare();
  EXPECT_EQ(ErrorOf([&] { ready.Announce(); }), "");
  ready.Remove();
  EXPECT_TRUE(fs::exists("/dev/null"));
}

}  // namespace
