// How simZR4410 ends: on a signal, in every state, and without leaving anything behind. None of these tests measures
// time. A simulator that waits for a reader fails them because it does not end at all.
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/simulator/Live.h"
#include "tests/simulator/Running.h"
#include "tests/simulator/Support.h"

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

class Stop : public testing::Test {
 protected:
  Stop() {
    std::filesystem::create_directory(folder_);
    EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0);
    EXPECT_EQ(mkfifo(fifo_.c_str(), 0600), 0);
  }
  ~Stop() override {
    close(pipe_[0]);
    close(pipe_[1]);
    std::filesystem::remove_all(folder_);
  }
  std::vector<std::string> Arguments(const std::vector<std::string>& more) const {
    std::vector<std::string> all = {"--fast", "--key-path", queues_.path(), "--remove-queues", "--ready-file", ready_};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  // Waits until the simulator is ready, then sends `count` requests and receives the replies.
  void Exchange(int count) {
    ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(ready_); }));
    queues_.Attach();
    for (int i = 0; i < count; ++i) {
      queues_.Send(1, Body(kVersion));
      ASSERT_TRUE(queues_.Receive()) << i;
    }
  }
  static bool Sleeps(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::ostringstream text;
    text << file.rdbuf();
    const std::string all = text.str();
    const std::size_t end = all.rfind(") ");
    return end != std::string::npos && all.find("simZR4410") != std::string::npos && all[end + 2] == 'S';
  }

  TestQueues queues_;
  const std::string folder_ = queues_.path() + ".d";
  const std::string ready_ = folder_ + "/ready";
  const std::string fifo_ = folder_ + "/fifo";
  int pipe_[2] = {-1, -1};
};

TEST_F(Stop, EndsOnEachStopSignalAndLeavesNothingBehind) {
  for (const int signal : kStopSignals) {
    Running program(Arguments({"--visca-pty", "--visca-link", folder_ + "/visca"}));
    ASSERT_TRUE(program.Await("simZR4410: ready\n")) << program.output();
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ + "/visca"));
    EXPECT_EQ(program.End(signal), 0) << signal;
    EXPECT_FALSE(std::filesystem::is_symlink(folder_ + "/visca"));
    EXPECT_FALSE(std::filesystem::exists(ready_));
    EXPECT_FALSE(queues_.Exist());
  }
}

TEST_F(Stop, SurvivesAHangUpThatIsIgnored) {
  signal(SIGHUP, SIG_IGN);
  Running program(Arguments({}));
  signal(SIGHUP, SIG_DFL);
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  program.Signal(SIGHUP);
  Exchange(1);
  EXPECT_EQ(program.End(SIGTERM), 0);
}

TEST_F(Stop, IsNotDelayedByAnOutputThatNobodyReads) {
  for (const int signal : kStopSignals) {
    Running program(Arguments({}), "", pipe_[1]);
    Exchange(3000);  // more than a pipe holds, about 700 lines
    EXPECT_EQ(program.End(signal), 0);
    EXPECT_FALSE(queues_.Exist());
  }
}

TEST_F(Stop, IsNotDelayedByAStoppedTerminal) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  const int slave = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  {
    Running program(Arguments({}), "", slave);
    ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(ready_); }));
    ASSERT_EQ(tcflow(slave, TCOOFF), 0);  // as Ctrl-S does
    Exchange(3000);
    EXPECT_EQ(program.End(SIGTERM), 0);
    tcflow(slave, TCOON);
  }
  close(slave);
  close(terminal);
}

TEST_F(Stop, SurvivesAnOutputThatIsClosed) {
  Running program(Arguments({}));
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  program.Ignore();
  Exchange(100);
  EXPECT_EQ(program.End(SIGTERM), 0);
  EXPECT_FALSE(queues_.Exist());
}

TEST_F(Stop, LeavesTheOutputsFlagsAlone) {
  Running program(Arguments({}), "", pipe_[1]);
  Exchange(10);
  EXPECT_EQ(fcntl(pipe_[1], F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(program.End(SIGTERM), 0);
}

TEST_F(Stop, EndsAStartThatWaitsForAPeer) {
  for (const char* option : {"--capture", "--replay", "--scenario", "--ready-file"}) {
    for (const int signal : kStopSignals) {
      Running program({"--fast", "--key-path", queues_.path(), option, fifo_});
      ASSERT_TRUE(Eventually([&program] { return Sleeps(program.pid()); }));
      EXPECT_EQ(program.End(signal), 0) << option;
      EXPECT_FALSE(queues_.Exist());
    }
  }
}

TEST_F(Stop, EndsAStartThatWaitsForANameServer) {
  const char* const given = getenv("ASAN_OPTIONS");
  const std::string sanitizer = given != nullptr ? given : "";
  const std::string library = folder_ + "/slow_lookup.so";  // LD_PRELOAD takes no path with a space
  std::filesystem::create_symlink(SLOW_LOOKUP, library);
  for (const int signal : kStopSignals) {
    setenv("LD_PRELOAD", library.c_str(), 1);
    setenv("ASAN_OPTIONS", (sanitizer + ":verify_asan_link_order=0").c_str(), 1);  // it is not loaded first
    Running program({"--fast", "--key-path", queues_.path(), "--control", "sim.example:0"});
    unsetenv("LD_PRELOAD");
    setenv("ASAN_OPTIONS", sanitizer.c_str(), 1);
    ASSERT_TRUE(program.Await("lookup\n")) << program.output();
    EXPECT_EQ(program.End(signal), 0) << signal;
    EXPECT_EQ(program.output(), "lookup\n");
    EXPECT_FALSE(queues_.Exist());
  }
}

TEST_F(Stop, IsNotDelayedByACaptureThatNobodyReads) {
  const int reader = open(fifo_.c_str(), O_RDWR | O_CLOEXEC);
  Running program(Arguments({"--quiet", "--capture", fifo_}));
  Exchange(3000);
  EXPECT_EQ(program.End(SIGTERM), 1);
  EXPECT_NE(program.output().find("simZR4410: " + fifo_ + ": "), std::string::npos) << program.output();
  EXPECT_NE(program.output().find(" messages not recorded, because the file was written too slowly\n"),
            std::string::npos);
  EXPECT_FALSE(queues_.Exist());
  close(reader);
}

TEST_F(Stop, IsNotDelayedByAFullReplyQueue) {
  Running program(Arguments({}));
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  queues_.Attach();
  for (int i = 0; i < 10000 && !queues_.Full(); ++i) {
    queues_.Send(1, Body(kVersion));
  }
  queues_.Send(1, Body(kVersion));
  EXPECT_EQ(program.End(SIGTERM), 0);
  EXPECT_FALSE(queues_.Exist());
}

TEST_F(Stop, IsNotDelayedByErrorsThatNobodyReads) {
  const std::string page(4096, '.');
  fcntl(pipe_[1], F_SETFL, O_NONBLOCK);
  while (write(pipe_[1], page.data(), page.size()) > 0) {
  }
  fcntl(pipe_[1], F_SETFL, 0);
  Running program(Arguments({"--capture", "/dev/full"}), "", pipe_[1], pipe_[1]);
  EXPECT_EQ(program.End(), 1);
}

TEST_F(Stop, AFullDiskEndsTheRun) {
  Running start(Arguments({"--capture", "/dev/full"}));
  EXPECT_EQ(start.End(), 1);
  EXPECT_EQ(start.output(), "simZR4410: /dev/full: No space left on device\n");
  EXPECT_FALSE(queues_.Exist());
  // Later in the run, a FIFO whose reader goes away has the same effect as a full disk.
  int reader = open(fifo_.c_str(), O_RDWR | O_CLOEXEC);
  Running program(Arguments({"--quiet", "--capture", fifo_}));
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  close(reader);
  queues_.Attach();
  queues_.Send(1, Body(kVersion));
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: ready\nsimZR4410: " + fifo_ + ": Broken pipe; the capture is not complete\n");
  EXPECT_FALSE(queues_.Exist());
}

// The reader leaves as soon as the run has ended: the capture then fails while what is left is written. If the
// simulator has given up before, it says that messages are missing.
TEST_F(Stop, ACaptureThatFailsAtTheEndIsReportedOnce) {
  const int reader = open(fifo_.c_str(), O_RDWR | O_CLOEXEC);
  Running program(Arguments({"--quiet", "--capture", fifo_}));
  Exchange(3000);
  program.Signal(SIGTERM);
  ASSERT_TRUE(Eventually([this] { return !std::filesystem::exists(ready_); }));
  close(reader);
  EXPECT_EQ(program.End(), 1);
  const std::string& text = program.output();
  EXPECT_NE(text.find("\nsimZR4410: " + fifo_ + ": "), std::string::npos) << text;
  EXPECT_EQ(std::ranges::count(text, '\n'), 2) << text;
  EXPECT_FALSE(queues_.Exist());
}

TEST_F(Stop, EndsAStartWhoseCaptureHeaderNobodyReads) {
  const std::string scenario = folder_ + "/long.toml";
  std::ofstream(scenario) << '#' << std::string(300000, '-') << '\n';
  for (const int signal : kStopSignals) {
    const int reader = open(fifo_.c_str(), O_RDWR | O_CLOEXEC);
    const int size = fcntl(reader, F_GETPIPE_SZ);
    Running program(Arguments({"--scenario", scenario, "--capture", fifo_}));
    ASSERT_TRUE(Eventually([&] {
      int held = 0;
      return ioctl(reader, FIONREAD, &held) == 0 && held == size;
    }));
    EXPECT_EQ(program.End(signal), 0) << signal;
    EXPECT_EQ(program.output(), "");
    EXPECT_FALSE(std::filesystem::exists(ready_));
    EXPECT_FALSE(queues_.Exist());
    close(reader);
  }
}

TEST_F(Stop, AFileSizeLimitEndsTheRun) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{2000, before.rlim_max};
  const std::string capture = folder_ + "/capture";
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  Running program(Arguments({"--quiet", "--capture", capture}));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  Exchange(0);
  for (int i = 0; i < 20; ++i) {  // it may end before it has answered all
    queues_.Send(1, Body(kVersion));
  }
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(),
            "simZR4410: ready\nsimZR4410: " + capture + ": File too large; the capture is not complete\n");
  EXPECT_FALSE(std::filesystem::exists(ready_));
  EXPECT_FALSE(queues_.Exist());
}

TEST_F(Stop, AStartThatFailsLeavesNothingBehind) {
  std::ofstream(folder_ + "/taken") << "precious";
  std::ofstream(ready_) << "1\n";
  Running program(Arguments({"--visca-pty", "--visca-link", folder_ + "/taken", "--capture", folder_ + "/capture"}));
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: no pseudo-terminal on " + folder_ + "/taken: File exists\n");
  EXPECT_FALSE(std::filesystem::exists(ready_));
  EXPECT_FALSE(std::filesystem::exists(folder_ + "/capture"));
  EXPECT_FALSE(queues_.Exist());
}

TEST_F(Stop, AReadyFileThatCannotBeWrittenIsAnErrorBeforeTheStart) {
  const std::string path = folder_ + "/no/such/folder";
  Running program({"--fast", "--key-path", queues_.path(), "--ready-file", path});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: " + path + ": No such file or directory\n");
}

}  // namespace
