// The daemon on real queues.
#include "simulator/connect/Daemon.h"

#include <dirent.h>
#include <malloc.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include "simulator/model/Device.h"
#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

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
    daemon_.Open();
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

TEST_F(Daemon, CreatesItsQueuesForAllUsers) {
  RunningDaemon run;
  run.Start();
  EXPECT_EQ(run.queues_.Mode('b'), 0666U);
  EXPECT_EQ(run.queues_.Mode('a'), 0666U);
}

TEST_F(Daemon, WidensTheQueuesThatAToolHasCreated) {
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

TEST_F(Daemon, RemovesItsQueuesOnlyIfAsked) {
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

TEST_F(Daemon, CreatesRemovedQueuesAgain) {
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
  for (const std::size_t size : {0U, 1U, 35U, 37U, 100U, unsigned{sim::kMaxMessage}}) {
    run.queues_.Send(1, Packet(size, 0xAA));
  }
  run.queues_.Send(1, Body(kVersion));
  ASSERT_TRUE(run.queues_.Receive());
  run.Stop();
  EXPECT_EQ(run.events_, "qqqqqqqr");
}

TEST_F(Daemon, SendsALateReplyAtItsTime) {
  sim::Setup setup{.fast = true};
  setup.faults = {sim::ParseFault("late:nth=1,ms=200")};
  RunningDaemon run(setup);
  run.Start();
  const auto start = std::chrono::steady_clock::now();
  run.queues_.Send(1, Body(kVersion));
  ASSERT_TRUE(run.queues_.Receive());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(199));
}

TEST_F(Daemon, SendsReports) {
  RunningDaemon run(sim::Setup{.fast = true, .report_every = 20_ms});
  run.Start();
  run.queues_.Send(9, Body(kReportPtz));
  ASSERT_TRUE(run.queues_.Receive());
  for (int i = 0; i < 3; ++i) {
    const auto report = run.queues_.Receive();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->type, 9);
    EXPECT_EQ(Hex(report->body), Hex(Body(kReport)));
  }
}

TEST_F(Daemon, LeavesAndComesBack) {
  sim::Setup setup{.fast = true};
  setup.faults = {sim::ParseFault("daemon-away:nth=1,ms=300")};
  RunningDaemon run(setup);
  run.Start();
  const auto start = std::chrono::steady_clock::now();
  run.queues_.Send(1, Body(kVersion));                         // lost with the daemon
  run.queues_.Send(1, Body("AA AA 02 06 AA 10 01 01 44 55"));  // waits in its queue
  const auto reply = run.queues_.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->body[2], 2);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(299));
}

TEST_F(Daemon, RestartsWithNewQueues) {
  sim::Setup setup{.fast = true};
  setup.faults = {sim::ParseFault("daemon-restart:nth=1,ms=50")};
  RunningDaemon run(setup);
  run.Start();
  const int before = run.queues_.id('b');
  run.queues_.Send(1, Body(kVersion));
  ASSERT_TRUE(Eventually([&run, before] { return run.queues_.Exist() && run.queues_.Lookup('b') != before; }));
  run.queues_.Attach();
  run.queues_.Send(1, Body(kVersion));
  EXPECT_TRUE(run.queues_.Receive());
}

TEST_F(Daemon, IsBackWhenTheDeviceIsRestarted) {
  sim::Setup setup{.fast = true};
  for (const char* const fault : {"daemon-away:nth=1,ms=3600000", "daemon-restart:nth=1,ms=3600000"}) {
    setup.faults = {sim::ParseFault(fault)};
    RunningDaemon run(setup);
    run.Start();
    run.queues_.Send(1, Body(kVersion));
    ASSERT_TRUE(Eventually([&] {
      bool away = false;
      run.daemon_.Locked(
          [&](sim::Time) { away = !run.device_.Faults().empty() && run.device_.Faults().at(0).struck == 1; });
      return away;
    }));
    run.daemon_.Locked([&](sim::Time now) { run.device_.Restart({.fast = true}, now); });
    ASSERT_TRUE(Eventually([&] { return run.queues_.Exist(); }));
    run.queues_.Attach();
    run.queues_.Send(1, Body(kVersion));
    EXPECT_TRUE(run.queues_.Receive()) << fault;
  }
}

TEST_F(Daemon, WaitsUntilAFullQueueIsRead) {
  RunningDaemon run;
  run.Start();
  // Each reply has 36 bytes and the queue holds 16384 by default, so most replies do not fit.
  constexpr int kRequests = 3000;
  std::atomic<bool> asked = false;  // the limits may be higher on this machine
  std::thread asker([&] {
    for (int i = 0; i < kRequests; ++i) {
      Packet request = Body(kVersion);
      request[2] = static_cast<std::uint8_t>(i);
      run.queues_.Send(1, request);
    }
    asked = true;
  });
  EXPECT_TRUE(Eventually([&] { return run.queues_.Full() || asked; }));
  for (int i = 0; i < kRequests; ++i) {
    const auto reply = run.queues_.Receive();
    ASSERT_TRUE(reply) << i;
    ASSERT_EQ(reply->body[2], i & 0xFF);
  }
  asker.join();
}

TEST_F(Daemon, DropsReportsThatNobodyReads) {
  RunningDaemon run(sim::Setup{.fast = true, .report_every = 1_ms});
  run.Start();
  run.queues_.Send(9, Body(kReportPtz));
  ASSERT_TRUE(Eventually([&run] { return run.not_sent_ > 20; }));
  run.Stop();
  EXPECT_EQ(run.device_.Waiting(), 0U);
}

TEST_F(Daemon, NumbersItsMessagesForEverySink) {
  std::vector<std::uint64_t> numbers;
  RunningDaemon run;
  run.daemon_.AddSink([&numbers](const sim::Event& event) { numbers.push_back(event.number); });
  run.Start();
  for (int i = 0; i < 2; ++i) {
    run.queues_.Send(1, Body(kVersion));
    ASSERT_TRUE(run.queues_.Receive());
  }
  run.Stop();
  EXPECT_EQ(run.events_, "qrqr");
  EXPECT_EQ(numbers, (std::vector<std::uint64_t>{1, 2, 3, 4}));
}

TEST_F(Daemon, WakesUpForWhatAnotherThreadHasChanged) {
  RunningDaemon run;
  run.Start();
  run.daemon_.Locked([&run](sim::Time now) { run.device_.Request(9, Body(kVersion), now); });
  const auto reply = run.queues_.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(Hex(reply->body), Hex(Body(kVersionReply)));
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
      Packet request = Body(sent % 2 == 0 ? kVersion : kSensorMode);
      request[2] = static_cast<std::uint8_t>(sent);
      run.queues_.Send(1 + sent, request);
    }
    const auto reply = run.queues_.Receive();
    ASSERT_TRUE(reply) << received;
    ASSERT_EQ(reply->type, 1 + received);
    ASSERT_EQ(reply->body.size(), kMessageSize);
    ASSERT_EQ(reply->body[2], received & 0xFF);
    ASSERT_EQ(reply->body[5], received % 2 == 0 ? 0x90 : 0x82);
    if (received == kRequests / 10) {
      heap = mallinfo2().uordblks;
      files = OpenFiles();
    }
  }
  // The test's own record of events grows by two bytes per request; nothing else may.
  EXPECT_LT(mallinfo2().uordblks, heap + 2 * 2 * 2 * kRequests + 65536);
  EXPECT_EQ(OpenFiles(), files);
  EXPECT_FALSE(run.queues_.Waiting());
}

}  // namespace
