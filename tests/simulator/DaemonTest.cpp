// The daemon on real queues, and the program as a whole.
#include "simulator/Daemon.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <optional>
#include <thread>

#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

const std::string kVersion = "AA AA 01 06 AA 10 01 01 44 55";
const std::string kVersionReply = "AA AA 01 06 AA 90 01 21 A4 55";

// A daemon with a device of its own, on queues of its own.
class RunningDaemon {
 public:
  explicit RunningDaemon(const sim::Setup& setup = {.fast = true}, bool remove = true)
      : device_(setup),
        daemon_(device_, {.key_path = queues_.path(), .remove_queues = remove}, [this](const sim::Event& e) {
          events_ += e.direction == sim::Direction::Request ? 'q' : 'r';
          not_sent_ += e.note.starts_with("not sent") ? 1 : 0;
        }) {}
  void Start() {
    std::string error;
    ASSERT_TRUE(daemon_.Open(error)) << error;
    thread_ = std::thread([this] { daemon_.Run(); });
    queues_.Attach();
  }
  ~RunningDaemon() { Stop(); }
  void Stop() {
    daemon_.Stop();
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  TestQueues queues_;
  std::string events_;
  std::atomic<int> not_sent_ = 0;
  sim::Device device_;
  sim::Daemon daemon_;
  std::thread thread_;
};

class Daemon : public testing::Test {
 protected:
  static void SetUpTestSuite() { sim::Daemon::BlockSignals(); }
};

TEST_F(Daemon, AnswersOnTheQueues) {
  RunningDaemon run;
  run.Start();
  run.queues_.Send(4711, Body(kVersion));
  const auto reply = run.queues_.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(Hex(reply->body), Hex(Body(kVersionReply)));
  EXPECT_EQ(reply->type, 4711);
  run.Stop();
  EXPECT_EQ(run.events_, "qr");
}

TEST_F(Daemon, MakesItsQueuesForEveryone) {
  RunningDaemon run;
  run.Start();
  EXPECT_EQ(run.queues_.Mode('b'), 0666U);
  EXPECT_EQ(run.queues_.Mode('a'), 0666U);
}

TEST_F(Daemon, TakesTheQueuesThatAToolMadeFirst) {
  RunningDaemon run;
  const int requests = msgget(ftok(run.queues_.path().c_str(), 'b'), IPC_CREAT | 0222);
  const int replies = msgget(ftok(run.queues_.path().c_str(), 'a'), IPC_CREAT | 0444);
  ASSERT_GE(requests, 0);
  ASSERT_GE(replies, 0);
  run.Start();
  EXPECT_EQ(run.queues_.id('b'), requests);
  EXPECT_EQ(run.queues_.id('a'), replies);
  run.queues_.Send(1, Body(kVersion));
  EXPECT_TRUE(run.queues_.Receive());
}

TEST_F(Daemon, LeavesItsQueuesUnlessAskedToRemoveThem) {
  std::optional<RunningDaemon> run;
  run.emplace(sim::Setup{.fast = true}, false);
  run->Start();
  run->Stop();
  EXPECT_TRUE(run->queues_.Exist());
  run.emplace(sim::Setup{.fast = true}, true);
  run->Start();
  run->Stop();
  EXPECT_FALSE(run->queues_.Exist());
}

TEST_F(Daemon, GoesOnWhenTheQueuesAreRemoved) {
  RunningDaemon run;
  run.Start();
  for (int round = 0; round < 3; ++round) {
    run.queues_.Remove();
    ASSERT_TRUE(Eventually([&run] { return run.queues_.Exist(); }));
    run.queues_.Attach();
    run.queues_.Send(1, Body(kVersion));
    const auto reply = run.queues_.Receive();
    ASSERT_TRUE(reply) << round;
    EXPECT_EQ(Hex(reply->body), Hex(Body(kVersionReply)));
  }
}

TEST_F(Daemon, TakesMessagesOfAnySize) {
  RunningDaemon run;
  run.Start();
  for (const std::size_t size : {0U, 1U, 35U, 37U, 100U, 8192U}) {
    run.queues_.Send(1, Packet(size, 0xAA));
  }
  run.queues_.Send(1, Body(kVersion));
  ASSERT_TRUE(run.queues_.Receive());
  run.Stop();
  EXPECT_EQ(run.events_, "qqqqqqqr");
}

TEST_F(Daemon, SendsWhatIsLateInItsTime) {
  sim::Setup setup{.fast = true};
  setup.faults = {*sim::ParseFault("late:nth=1,ms=200").fault};
  RunningDaemon run(setup);
  run.Start();
  const auto start = std::chrono::steady_clock::now();
  run.queues_.Send(1, Body(kVersion));
  ASSERT_TRUE(run.queues_.Receive());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(199));
}

TEST_F(Daemon, SendsReportsByItself) {
  RunningDaemon run(sim::Setup{.fast = true, .report_every = 20_ms});
  run.Start();
  run.queues_.Send(9, Body("AA AA 01 06 AA 11 01 01 43 55"));
  ASSERT_TRUE(run.queues_.Receive());
  for (int i = 0; i < 3; ++i) {
    const auto report = run.queues_.Receive();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->type, 9);
    EXPECT_EQ(Hex(report->body), Hex(Body("AA AA 00 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55")));
  }
}

TEST_F(Daemon, LeavesAndComesBack) {
  sim::Setup setup{.fast = true};
  setup.faults = {*sim::ParseFault("daemon-away:nth=1,ms=300").fault};
  RunningDaemon run(setup);
  run.Start();
  const auto start = std::chrono::steady_clock::now();
  run.queues_.Send(1, Body(kVersion));                         // taken along
  run.queues_.Send(1, Body("AA AA 02 06 AA 10 01 01 44 55"));  // waits in its queue
  const auto reply = run.queues_.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->body[2], 2);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(299));
}

TEST_F(Daemon, RestartsWithNewQueues) {
  sim::Setup setup{.fast = true};
  setup.faults = {*sim::ParseFault("daemon-restart:nth=1,ms=50").fault};
  RunningDaemon run(setup);
  run.Start();
  const int before = run.queues_.id('b');
  run.queues_.Send(1, Body(kVersion));
  ASSERT_TRUE(Eventually([&run, before] { return run.queues_.Exist() && run.queues_.Lookup('b') != before; }));
  run.queues_.Attach();
  run.queues_.Send(1, Body(kVersion));
  EXPECT_TRUE(run.queues_.Receive());
}

TEST_F(Daemon, WaitsUntilSomebodyReadsAFullQueue) {
  RunningDaemon run;
  run.Start();
  // Each reply is 36 bytes and the queue takes 16384 by default: far more requests than replies fit.
  std::thread asker([&run] {
    for (int i = 0; i < 3000; ++i) {
      Packet request = Body("AA AA 00 06 AA 10 01 01 44 55");
      request[2] = static_cast<std::uint8_t>(i);
      run.queues_.Send(1, request);
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // lets the reply queue fill; nothing depends on it
  for (int i = 0; i < 3000; ++i) {
    const auto reply = run.queues_.Receive();
    ASSERT_TRUE(reply) << i;
    ASSERT_EQ(reply->body[2], i & 0xFF);
  }
  asker.join();
}

TEST_F(Daemon, DropsReportsThatNobodyReads) {
  RunningDaemon run(sim::Setup{.fast = true, .report_every = 1_ms});
  run.Start();
  run.queues_.Send(9, Body("AA AA 01 06 AA 11 01 01 43 55"));
  ASSERT_TRUE(Eventually([&run] { return run.not_sent_ > 20; }));
  run.Stop();
  EXPECT_EQ(run.device_.Waiting(), 0U);
}

std::size_t OpenFiles() {
  std::size_t count = 0;
  DIR* const folder = opendir("/proc/self/fd");
  while (readdir(folder) != nullptr) {
    ++count;
  }
  closedir(folder);
  return count;
}

TEST_F(Daemon, Answers100000RequestsInOrderWithoutALeak) {
  RunningDaemon run;
  run.Start();
  std::size_t heap = 0;
  std::size_t files = 0;
  constexpr int kWindow = 16;
  constexpr int kRequests = 100000;
  int sent = 0;
  for (int received = 0; received < kRequests; ++received) {
    for (; sent < kRequests && sent < received + kWindow; ++sent) {
      Packet request =
          Body(sent % 2 == 0 ? "AA AA 00 06 AA 10 01 01 44 55" : "AA AA 00 0B AA 02 06 81 09 04 24 72 FF 2B 55");
      request[2] = static_cast<std::uint8_t>(sent);
      run.queues_.Send(1 + sent, request);
    }
    const auto reply = run.queues_.Receive();
    ASSERT_TRUE(reply) << received;
    ASSERT_EQ(reply->type, 1 + received);
    ASSERT_EQ(reply->body.size(), 36U);
    ASSERT_EQ(reply->body[2], received & 0xFF);
    ASSERT_EQ(reply->body[5], received % 2 == 0 ? 0x90 : 0x82);
    if (received == kRequests / 10) {
      heap = mallinfo2().uordblks;
      files = OpenFiles();
    }
  }
  // The test's own record of events grows by two bytes a request; nothing else may.
  EXPECT_LT(mallinfo2().uordblks, heap + 2 * 2 * 2 * kRequests + 65536);
  EXPECT_EQ(OpenFiles(), files);
  EXPECT_FALSE(run.queues_.Waiting());
}

// The program itself.
class Running {
 public:
  explicit Running(std::vector<std::string> arguments, const std::string& input = "") {
    int out[2];
    int in[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, out[1], 2);
    arguments.insert(arguments.begin(), SIM_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    // The test blocks SIGINT and SIGTERM; the program starts with nothing blocked.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    EXPECT_EQ(posix_spawn(&pid_, SIM_PROGRAM, &actions, &attributes, argv.data(), environ), 0);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
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
  // Reads until the text came, or the end.
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
    Await("\1 never comes");
    int status = -1;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void Signal(int signal) const { kill(pid_, signal); }
  const std::string& output() const { return output_; }

 private:
  pid_t pid_ = 0;
  int out_ = -1;
  std::string output_;
};

class Program : public Daemon {
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

TEST_F(Program, EndsAtOnceWhenTheSignalComesWithItsStart) {
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
    for (const char* request : {"AA AA 01 06 AA 10 01 01 44 55", "AA AA 01 06 AA 11 01 00 44 55",
                                "AA AA 02 0D AA 12 08 00 00 FA 00 01 2C 00 10 05 55", "AA AA 03 06 AA 11 01 00 44 55",
                                "AA AA 04 0B AA 02 06 81 09 7E 7E 01 FF C8 55"}) {
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
  EXPECT_EQ(
      program.output(),
      "simZR4410: no message queues on /no/such/file: No such file or directory (--key-path takes another file)\n");
}

TEST_F(Program, RefusesAWrongFault) {
  Running program({"--fault", "late:ms=x"});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: --fault late:ms=x: ms takes milliseconds of a day at most, not 'x'\n");
}

TEST_F(Program, StrikesWithTheFaultsOfItsOptions) {
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
