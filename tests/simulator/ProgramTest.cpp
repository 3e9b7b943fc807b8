// The program as a whole: what it prints, its options and its exit status.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

// The program itself.
class Running {
 public:
  explicit Running(std::vector<std::string> arguments, const std::string& input = "") {
    int out[2];
    int in[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    arguments.insert(arguments.begin(), SIM_PROGRAM);
    std::vector<char*> argv;
    std::ranges::transform(arguments, std::back_inserter(argv), [](std::string& argument) { return argument.data(); });
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      sigset_t none;  // other tests of this executable block SIGINT and SIGTERM
      sigemptyset(&none);
      sigprocmask(SIG_SETMASK, &none, nullptr);
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      dup2(out[1], STDERR_FILENO);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(out[1]);
    close(in[0]);
    EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    close(in[1]);
    out_ = out[0];
  }
  ~Running() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(out_);
  }
  // Reads until the text has come; false if the output ends before.
  bool Await(const std::string& text) {
    char buffer[4096];
    while (output_.find(text) == std::string::npos) {
      const ssize_t got = read(out_, buffer, sizeof buffer);
      if (got <= 0) {
        return false;
      }
      output_.append(buffer, static_cast<std::size_t>(got));
    }
    return true;
  }
  int End(int signal = 0) {
    if (signal != 0) {
      kill(pid_, signal);
    }
    Await(kNever);
    int status = -1;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const std::string& output() const { return output_; }

 private:
  static constexpr const char* kNever = "\1";  // no line contains it
  pid_t pid_ = 0;
  int out_ = -1;
  std::string output_;
};

class Program : public testing::Test {
 protected:
  TestQueues queues_;
};

TEST_F(Program, PrintsEachMessageAndEndsWithASignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Running program({"--fast", "--key-path", queues_.path(), "--ready-file", queues_.path() + ".ready"});
    ASSERT_TRUE(program.Await("simZR4410: ready\n")) << program.output();
    queues_.Attach();
    queues_.Send(77, Body(kVersion));
    ASSERT_TRUE(queues_.Receive());
    ASSERT_TRUE(program.Await("Get Version → 0x21"));
    EXPECT_EQ(program.End(signal), 0);
    EXPECT_NE(program.output().find(" request #1   AA 10 01 01 44 55                 Get Version\n"),
              std::string::npos);
    EXPECT_NE(program.output().find(" reply   #1   AA 90 01 21 A4 55                 Get Version → 0x21\n"),
              std::string::npos);
    EXPECT_EQ(program.output().find('\x1b'), std::string::npos) << "no colour in a file";
  }
  int pid = 0;
  std::ifstream(queues_.path() + ".ready") >> pid;
  EXPECT_GT(pid, 1);
  unlink((queues_.path() + ".ready").c_str());
}

TEST_F(Program, EndsOnASignalRightAfterItsStart) {
  for (int i = 0; i < 10; ++i) {
    Running program({"--fast", "--key-path", queues_.path()});
    ASSERT_TRUE(program.Await("simZR4410: ready\n"));
    EXPECT_EQ(program.End(SIGTERM), 0);
  }
}

TEST_F(Program, CapturesAndReplays) {
  const std::string capture = queues_.path() + ".jsonl";
  std::string then;
  std::uint8_t later = 0;  // sequence ids of a later run
  for (const char* mode : {"--capture", "--replay"}) {
    Running program({"--fast", "--key-path", queues_.path(), mode, capture});
    ASSERT_TRUE(program.Await("simZR4410: ready\n")) << program.output();
    queues_.Attach();
    std::string answers;
    for (const char* request : {kVersion.c_str(), kGetPtz.c_str(), "AA AA 02 0D AA 12 08 00 00 FA 00 01 2C 00 10 05 55",
                                "AA AA 03 06 AA 11 01 00 44 55", "AA AA 04 0B AA 02 06 81 09 7E 7E 01 FF C8 55"}) {
      Packet body = Body(request);
      body[2] = static_cast<std::uint8_t>(body[2] + later);
      queues_.Send(77, body);
      auto reply = queues_.Receive();
      ASSERT_TRUE(reply) << request;
      reply->body[2] = static_cast<std::uint8_t>(reply->body[2] - later);
      answers += Hex(reply->body) + "\n";
    }
    EXPECT_EQ(program.End(SIGTERM), 0);
    EXPECT_TRUE(then.empty() || then == answers) << then << answers;
    then = answers;
    later = 0x40;
  }
  unlink(capture.c_str());
}

TEST_F(Program, DoesNotStartWithAWrongScenario) {
  const std::string file = queues_.path() + ".toml";
  std::ofstream(file) << "[camera]\niris = 3\n";
  Running program({"--key-path", queues_.path(), "--scenario", file});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: " + file + ":2: unknown key 'iris' in [camera]\n");
  EXPECT_FALSE(queues_.Exist());
  unlink(file.c_str());
}

TEST_F(Program, DoesNotStartWithoutAKeyPath) {
  Running program({"--key-path", "/no/such/file"});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(),
            "simZR4410: no message queues on /no/such/file: No such file or directory (--key-path names another file "
            "to make the queue "
            "keys from)\n");
}

TEST_F(Program, RejectsAWrongFault) {
  Running program({"--fault", "late:ms=x"});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(),
            "simZR4410: --fault late:ms=x: ms must be a whole number of milliseconds, one "
            "day at most, not 'x'\n");
}

TEST_F(Program, TakesFaultsFromItsOptions) {
  Running program({"--fast", "--key-path", queues_.path(), "--fault", "nak:nth=1", "--fault", "wrong-sequence:nth=2"});
  ASSERT_TRUE(program.Await("simZR4410: ready\n"));
  queues_.Attach();
  queues_.Send(1, Body(kVersion));
  EXPECT_EQ(Hex(queues_.Receive().value_or(TestQueues::Message{}).body), Hex(Body("AA AA 01 06 AA 90 01 40 85 55")));
  queues_.Send(1, Body(kVersion));
  EXPECT_EQ(Hex(queues_.Receive().value_or(TestQueues::Message{}).body), Hex(Body("AA AA 02 06 AA 90 01 21 A4 55")));
  EXPECT_EQ(program.End(SIGINT), 0);
  EXPECT_NE(program.output().find("[fault nak]"), std::string::npos);
}

TEST_F(Program, DecodesADump) {
  Running program({"decode"},
                  "[testZR4410] client msgrcv:\n(40): \n01 00 00 00 AA AA 01 06 AA 90 01 21 A4 55 00 00\n"
                  "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n00 00 00 00 00 00 00 00\n");
  EXPECT_EQ(program.End(), 0);
  EXPECT_EQ(program.output(), "reply   #1   AA 90 01 21 A4 55                 Get Version → 0x21\n");
  Running nothing({"decode"}, "nothing\n");
  EXPECT_EQ(nothing.End(), 1);
  EXPECT_EQ(nothing.output(), "simZR4410: no message dump on standard input\n");
}

}  // namespace
