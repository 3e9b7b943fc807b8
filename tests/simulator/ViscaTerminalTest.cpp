// The camera on a pseudo-terminal.
#include "simulator/connect/ViscaTerminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <thread>

#include "simulator/connect/Daemon.h"
#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

class ViscaTerminal : public testing::Test {
 protected:
  explicit ViscaTerminal(const sim::Setup& setup = {.fast = true}) : setup_(setup) {}
  static void SetUpTestSuite() { sim::Daemon::BlockSignals(); }
  void SetUp() override {
    daemon_.Open();
    link_ = queues_.path() + ".visca";
    name_ = terminal_.Open(link_);
    daemon_.Watch(terminal_);
    thread_ = std::thread([this] { daemon_.Run(); });
    line_.emplace(open(link_.c_str(), O_RDWR | O_NOCTTY));
  }
  void TearDown() override {
    daemon_.Stop();
    thread_.join();
  }
  std::string Say(const std::string& packet, std::size_t count) {
    line_->Write(packet);
    return line_->Read(count);
  }

  TestQueues queues_;
  const sim::Setup setup_;
  sim::Device device_{setup_};
  sim::ViscaTerminal terminal_{device_, [](const std::string&) {}};
  sim::Daemon daemon_{device_, {.key_path = queues_.path(), .remove_queues = true}, [](const sim::Event&) {}};
  std::string link_, name_;
  std::thread thread_;
  std::optional<TerminalLine> line_;
};

TEST_F(ViscaTerminal, SpeaksVisca) {
  EXPECT_EQ(Say("88 30 01 FF", 4), "88 30 02 FF");
  EXPECT_EQ(Say("88 01 00 01 FF", 5), "88 01 00 01 FF");
  EXPECT_EQ(Say("81 09 00 02 FF", 10), "90 50 00 20 07 20 01 03 02 FF");
  EXPECT_EQ(Say("81 01 04 39 03 FF", 6), "90 41 FF 90 51 FF");
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 03 FF");
  EXPECT_EQ(Say("81 01 04 07 02 FF", 6), "90 41 FF 90 51 FF");
  EXPECT_EQ(Say("81 01 04 07 00 FF", 6), "90 41 FF 90 51 FF");
  EXPECT_EQ(Say("81 21 FF", 4), "90 61 05 FF");
  EXPECT_EQ(Say("81 09 EE FF", 4), "90 60 02 FF");
}

TEST_F(ViscaTerminal, ResynchronisesAfterGarbage) {
  line_->Write("00 11 22 FF 55");
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 00 FF");
  line_->Write("81 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 FF");
  EXPECT_EQ(line_->Read(4), "90 60 01 FF");
  line_->Write("81 09 04 39 FF 81 09");  // a packet and the beginning of another
  EXPECT_EQ(line_->Read(4), "90 50 00 FF");
  EXPECT_EQ(Say("04 35 FF", 4), "90 50 00 FF");
}

TEST_F(ViscaTerminal, ShowsTheSameCameraAsTheQueues) {
  EXPECT_EQ(Say("81 01 04 53 01 FF", 6), "90 41 FF 90 51 FF");
  queues_.Attach();
  queues_.Send(1, Body("AA AA 01 0A AA 02 05 81 09 04 53 FF 6F 55"));
  const auto reply = queues_.Receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(Hex(reply->body), Hex(Body("AA AA 01 09 AA 82 04 90 50 01 FF F0 55")));
}

TEST_F(ViscaTerminal, AnnouncesTheCamerasReturn) {
  queues_.Attach();
  queues_.Send(1, Body(kSupplyOff));
  ASSERT_TRUE(queues_.Receive());
  queues_.Send(1, Body(kSupplyOn));
  ASSERT_TRUE(queues_.Receive());
  EXPECT_EQ(line_->Read(3), "90 38 FF");
}

TEST_F(ViscaTerminal, ReplacesALinkButNotAFile) {
  const std::string link = queues_.path() + ".link";
  ASSERT_EQ(symlink("/dev/pts/no-such", link.c_str()), 0);
  {
    sim::ViscaTerminal next(device_, [](const std::string&) {});
    const std::string name = next.Open(link);
    char target[128] = "";
    EXPECT_EQ(readlink(link.c_str(), target, sizeof target - 1), static_cast<ssize_t>(name.size()));
    EXPECT_EQ(target, name);
  }
  EXPECT_NE(access(queues_.path().c_str(), F_OK), -1);
  sim::ViscaTerminal wrong(device_, [](const std::string&) {});
  EXPECT_EQ(ErrorOf([&] { wrong.Open(queues_.path()); }), "no pseudo-terminal on " + queues_.path() + ": File exists");
}

TEST_F(ViscaTerminal, OutlivesItsUser) {
  line_.reset();
  line_.emplace(open(name_.c_str(), O_RDWR | O_NOCTTY));
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 00 FF");
}

TEST_F(ViscaTerminal, TakesItsSpeedFromTheScenarioOfARestart) {
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 00 FF");
  daemon_.Locked([this](sim::Time now) { device_.Restart({.baud = 300}, now); });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 00 FF");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300)) << "nine bytes of ten bits";
}

class SlowViscaTerminal : public ViscaTerminal {
 protected:
  SlowViscaTerminal() : ViscaTerminal({.baud = 300}) {}
};

TEST_F(SlowViscaTerminal, TakesTheTimeOfItsBytes) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 00 FF");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300)) << "nine bytes of ten bits";
}

class FaultyViscaTerminal : public ViscaTerminal {
 protected:
  static sim::Setup Faulty() {
    sim::Setup setup{.fast = true};
    setup.faults = {sim::ParseFault("visca-syntax:nth=1"), sim::ParseFault("late:ms=50,nth=2")};
    return setup;
  }
  FaultyViscaTerminal() : ViscaTerminal(Faulty()) {}
};

TEST_F(FaultyViscaTerminal, HasTheDevicesFaults) {
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 60 02 FF");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 00 FF");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

}  // namespace
