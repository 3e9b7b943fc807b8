// The queues, and the claim of the simulator that serves them.
#include "simulator/connect/Queues.h"

#include <signal.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "simulator/connect/Daemon.h"
#include "simulator/model/Device.h"
#include "tests/simulator/Live.h"
#include "tests/simulator/Running.h"
#include "tests/simulator/Support.h"

namespace {

std::string Taken(pid_t process, const TestQueues& queues) {
  return "process " + std::to_string(process) + " already serves the queues of " + queues.path();
}

// A process that calls `routine` and then waits until it is killed.
class Process {
 public:
  template <typename Routine>
  explicit Process(Routine routine) {
    int done[2];
    EXPECT_EQ(pipe(done), 0);
    pid_ = fork();
    if (pid_ == 0) {
      routine([&done] { (void)!write(done[1], "", 1); });
      pause();
      _exit(0);
    }
    char byte = 0;
    EXPECT_EQ(read(done[0], &byte, 1), 1);
    close(done[0]);
    close(done[1]);
  }
  ~Process() { Kill(); }
  void Kill() {
    if (pid_ != 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
      pid_ = 0;
    }
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = 0;
};

class Queues : public testing::Test {
 protected:
  // Empty if the claim succeeds.
  std::string Claim() {
    return ErrorOf([this] { claim_.Take(queues_.path()); });
  }
  sim::Claim claim_;
  TestQueues queues_;
};

TEST_F(Queues, AreClaimedByOneProcess) {
  Process other([this](auto done) {
    claim_.Take(queues_.path());
    done();
  });
  EXPECT_EQ(Claim(), Taken(other.pid(), queues_));
}

TEST_F(Queues, AreFreeWhenTheirProcessIsKilled) {
  Process other([this](auto done) {
    claim_.Take(queues_.path());
    done();
  });
  other.Kill();
  EXPECT_EQ(Claim(), "");
}

TEST_F(Queues, AreFreeWhenTheClaimIsReleased) {
  EXPECT_EQ(Claim(), "");
  EXPECT_EQ(Claim(), "") << "it is still ours";
  claim_.Release();
  EXPECT_EQ(semget(ftok(queues_.path().c_str(), 'b'), 0, 0), -1) << "nothing is left behind";
  EXPECT_EQ(Claim(), "");
}

TEST_F(Queues, KnowWhetherTheyHaveAReader) {
  sim::Queue queue;
  queue.Open(queues_.path(), 'b');
  EXPECT_FALSE(queue.HasReader());
  EXPECT_EQ(queue.Empty(), 0U) << "no probe is left";
  Process other([&queue](auto done) {
    done();
    sim::QueueMessage message;
    queue.Receive(message);
  });
  // The other process waits in msgrcv soon.
  ASSERT_TRUE(Eventually([&queue] { return queue.HasReader(); }));
  EXPECT_EQ(queue.LastReader(), other.pid());
  // It has received the probe and no longer waits, but still exists.
  EXPECT_FALSE(queue.HasReader());
  EXPECT_EQ(queue.Empty(), 0U);
}

TEST_F(Queues, HaveNoReaderAfterItHasExited) {
  sim::Queue queue;
  queue.Open(queues_.path(), 'b');
  Process other([&queue](auto done) {
    queue.Send({1, Body(kVersion)});
    sim::QueueMessage message;
    queue.Receive(message);
    done();
  });
  other.Kill();
  EXPECT_FALSE(queue.HasReader());
}

TEST_F(Queues, AreEmptiedAndCounted) {
  sim::Queue queue;
  queue.Open(queues_.path(), 'b');
  for (const std::size_t size : {0U, 36U, unsigned{sim::kMaxMessage}}) {
    queue.Send({1, Packet(size, 0xAA)});
  }
  EXPECT_EQ(queue.Empty(), 3U);
  EXPECT_EQ(queue.Empty(), 0U);
}

TEST_F(Queues, KeepTheMessagesOfAToolThatWaits) {
  sim::Queue queue;
  queue.Open(queues_.path(), 'b');
  pid_t dead = 0;
  {
    const Process other([](auto done) { done(); });
    dead = other.pid();
  }
  const Process tool([](auto done) { done(); });
  for (const pid_t type : {tool.pid(), 1, dead, tool.pid()}) {
    queue.Send({type, Body(kVersion)});
  }
  EXPECT_EQ(queue.Empty(), 2U);
  sim::QueueMessage message;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(queue.Receive(message), sim::QueueResult::Done);
    EXPECT_EQ(message.type, tool.pid());
    EXPECT_EQ(Hex(message.body), Hex(Body(kVersion)));
  }
}

class Simulators : public Queues {};

TEST_F(Simulators, DoNotShareQueues) {
  Running first({"--fast", "--key-path", queues_.path()});
  ASSERT_TRUE(first.Await("simZR4410: ready\n"));
  queues_.Attach();
  Running second({"--fast", "--key-path", queues_.path(), "--remove-queues"});
  EXPECT_EQ(second.End(), 1);
  EXPECT_EQ(second.output(), "simZR4410: " + Taken(first.pid(), queues_) + "\n");
  queues_.Send(1, Body(kVersion));
  EXPECT_TRUE(queues_.Receive()) << "the queues of the first are still there";
}

TEST_F(Simulators, TakeOverTheQueuesOfOneThatWasKilled) {
  {
    Running first({"--fast", "--key-path", queues_.path()});
    ASSERT_TRUE(first.Await("simZR4410: ready\n"));
    EXPECT_EQ(first.End(SIGKILL), -SIGKILL);
  }
  queues_.Attach();
  queues_.Send(1, Body(kVersion));
  queues_.Send(1, Body(kVersion));
  Running second({"--fast", "--key-path", queues_.path()});
  ASSERT_TRUE(second.Await("simZR4410: ready\n")) << second.output();
  EXPECT_EQ(second.output(),
            "simZR4410: removed messages of an earlier run: 2 requests, 0 replies\nsimZR4410: ready\n");
  EXPECT_FALSE(queues_.Waiting());
}

TEST_F(Simulators, LeaveTheQueuesOfAnotherDaemonAlone) {
  sim::Queue requests;
  requests.Open(queues_.path(), 'b');
  Process other([&requests](auto done) {
    done();
    for (sim::QueueMessage message;;) {
      requests.Receive(message);
    }
  });
  ASSERT_TRUE(Eventually([&requests] { return requests.HasReader(); }));
  Running program({"--fast", "--key-path", queues_.path(), "--remove-queues"});
  EXPECT_EQ(program.End(), 1);
  EXPECT_EQ(program.output(), "simZR4410: " + Taken(other.pid(), queues_) + "\n");
  EXPECT_NE(queues_.Lookup('b'), -1);
}

}  // namespace
