// The VISCA terminal and the serial relay, over pseudo-terminals.
#include "simulator/Serial.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <optional>

#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

// One end of a terminal, raw.
class Line {
 public:
  explicit Line(int file) : file_(file) {}
  ~Line() { close(file_); }
  void Write(const std::string& hex) const {
    const Packet bytes = B(hex);
    EXPECT_EQ(write(file_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // That many bytes, or what came within a minute.
  std::string Read(std::size_t count) const {
    Packet bytes;
    while (bytes.size() < count) {
      pollfd wait{file_, POLLIN, 0};
      std::uint8_t byte = 0;
      if (poll(&wait, 1, 20000) != 1 || read(file_, &byte, 1) != 1) {
        break;
      }
      bytes.push_back(byte);
    }
    return Hex(bytes);
  }

 private:
  int file_;
};

class ViscaTerminal : public testing::Test {
 protected:
  static void SetUpTestSuite() { sim::Daemon::BlockSignals(); }
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(daemon_.Open(error)) << error;
    link_ = queues_.path() + ".visca";
    name_ = terminal_.Open(link_);
    ASSERT_NE(name_, "");
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
  sim::Setup setup_{.fast = true};
  sim::Device device_{setup_};
  sim::ViscaTerminal terminal_{device_, true, [](const std::string&) {}};
  sim::Daemon daemon_{device_, {.key_path = queues_.path(), .remove_queues = true}, [](const sim::Event&) {}};
  std::string link_, name_;
  std::thread thread_;
  std::optional<Line> line_;
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
  line_->Write("81 09 04 39 FF 81 09");  // two packets, split at an odd place
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
  queues_.Send(1, Body("AA AA 01 06 AA 0C 01 00 49 55"));
  ASSERT_TRUE(queues_.Receive());
  queues_.Send(1, Body("AA AA 02 06 AA 0C 01 01 48 55"));
  ASSERT_TRUE(queues_.Receive());
  EXPECT_EQ(line_->Read(3), "90 38 FF");
}

TEST_F(ViscaTerminal, TakesOverTheLinkOfOneThatWasKilledButNoFile) {
  const std::string link = queues_.path() + ".link";
  ASSERT_EQ(symlink("/dev/pts/no-such", link.c_str()), 0);
  {
    sim::ViscaTerminal next(device_, true, [](const std::string&) {});
    const std::string name = next.Open(link);
    char target[128] = "";
    EXPECT_EQ(readlink(link.c_str(), target, sizeof target - 1), static_cast<ssize_t>(name.size()));
    EXPECT_EQ(target, name);
  }
  EXPECT_NE(access(queues_.path().c_str(), F_OK), -1);
  sim::ViscaTerminal wrong(device_, true, [](const std::string&) {});
  EXPECT_EQ(wrong.Open(queues_.path()), "");
}

TEST_F(ViscaTerminal, OutlivesItsUser) {
  line_.reset();
  line_.emplace(open(name_.c_str(), O_RDWR | O_NOCTTY));
  EXPECT_EQ(Say("81 09 04 39 FF", 4), "90 50 00 FF");
}

// The relay on one end of a pseudo-terminal pair; the test plays the hardware on the other.
class SerialRelay : public testing::Test {
 protected:
  static void SetUpTestSuite() { sim::Daemon::BlockSignals(); }
  void Start(sim::SerialRelay::Protocol protocol) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    termios raw{};
    ASSERT_EQ(tcgetattr(master, &raw), 0);
    cfmakeraw(&raw);
    ASSERT_EQ(tcsetattr(master, TCSANOW, &raw), 0);
    hardware_.emplace(master);
    relay_.emplace(ptsname(master), 9600, protocol, [this](const std::string& line) {
      said_ += line + "\n";
      gone_ = gone_ || line == "simZR4410: the serial line is gone";
    });
    daemon_.emplace(*relay_, sim::Daemon::Options{.key_path = queues_.path(), .remove_queues = true},
                    [](const sim::Event&) {});
    std::string error;
    ASSERT_TRUE(relay_->Open(error)) << error;
    ASSERT_TRUE(daemon_->Open(error)) << error;
    daemon_->Watch(*relay_);
    thread_ = std::thread([this] { daemon_->Run(); });
    queues_.Attach();
  }
  void Stop() {
    if (thread_.joinable()) {
      daemon_->Stop();
      thread_.join();
    }
  }
  void TearDown() override { Stop(); }
  std::string Reply() {
    const auto reply = queues_.Receive();
    Packet body = reply ? reply->body : Packet{};
    while (!body.empty() && body.back() == 0) {
      body.pop_back();
    }
    return Hex(body);
  }

  TestQueues queues_;
  std::string said_;  // to be read when the daemon has stopped
  std::atomic<bool> gone_ = false;
  std::optional<Line> hardware_;
  std::optional<sim::SerialRelay> relay_;
  std::optional<sim::Daemon> daemon_;
  std::thread thread_;
};

constexpr auto kUart1 = sim::SerialRelay::Protocol::Uart1;
constexpr auto kVisca = sim::SerialRelay::Protocol::Visca;

TEST_F(SerialRelay, CarriesFramesBothWays) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(5, Body("AA AA 07 06 AA 10 01 01 44 55"));
  EXPECT_EQ(hardware_->Read(6), "AA 10 01 01 44 55");
  hardware_->Write("AA 90 01 21 A4 55");
  EXPECT_EQ(Reply(), "AA AA 07 06 AA 90 01 21 A4 55");
}

TEST_F(SerialRelay, AsksOneAfterTheOther) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(5, Body("AA AA 07 06 AA 10 01 01 44 55"));
  queues_.Send(5, Body("AA AA 08 06 AA 0C 01 01 48 55"));
  EXPECT_EQ(hardware_->Read(6), "AA 10 01 01 44 55");
  hardware_->Write("AA 90 01 21 A4 55");
  EXPECT_EQ(Reply(), "AA AA 07 06 AA 90 01 21 A4 55");
  EXPECT_EQ(hardware_->Read(6), "AA 0C 01 01 48 55");
  hardware_->Write("AA 8C 01 10 B9 55");
  EXPECT_EQ(Reply(), "AA AA 08 06 AA 8C 01 10 B9 55");
}

TEST_F(SerialRelay, FindsTheReplyInGarbageSplitAndMerged) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(5, Body("AA AA 07 06 AA 10 01 01 44 55"));
  hardware_->Read(6);
  hardware_->Write("00 FF AA 10 90");
  hardware_->Write("AA 90 01 21 A5 55 AA 90");  // a wrong checksum, then half a frame
  hardware_->Write("01 21 A4 55 AA 91 08 00 00 7D 00 01 C2 00 00 7D 55");
  EXPECT_EQ(Reply(), "AA AA 07 06 AA 90 01 21 A4 55");
  EXPECT_EQ(Reply(), "AA AA 00 0D AA 91 08 00 00 7D 00 01 C2 00 00 7D 55") << "a report belongs to nobody";
  Stop();
  EXPECT_NE(said_.find("bytes of garbage on the serial line"), std::string::npos);
}

TEST_F(SerialRelay, RecoversFromAFalseStartWhenTheLineFallsSilent) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(5, Body("AA AA 07 06 AA 10 01 01 44 55"));
  hardware_->Read(6);
  hardware_->Write("AA 33 0F AA 90 01 21 A4 55");
  EXPECT_EQ(Reply(), "AA AA 07 06 AA 90 01 21 A4 55");
}

TEST_F(SerialRelay, LetsNoDamagedRequestOntoTheLine) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(5, Body("AA AA 06 06 AA 10 01 01 45 55"));
  queues_.Send(5, Body("AB AA 06 06 AA 10 01 01 44 55"));
  queues_.Send(5, Packet(7, 0xAA));
  queues_.Send(5, Body("AA AA 07 06 AA 0C 01 01 48 55"));
  EXPECT_EQ(hardware_->Read(6), "AA 0C 01 01 48 55");
}

TEST_F(SerialRelay, KeepsTheToolsNoticeOffTheLine) {
  ASSERT_NO_FATAL_FAILURE(Start(kVisca));
  queues_.Send(5, Body("AA AA 00 09 AA 02 04 01 22 33 44 B6 55"));
  queues_.Send(5, Body("AA AA 05 0B AA 02 06 81 09 04 24 72 FF 2B 55"));
  EXPECT_EQ(hardware_->Read(6), "81 09 04 24 72 FF");
  hardware_->Write("90 50 00 06 FF");
  EXPECT_EQ(Reply(), "AA AA 05 0A AA 82 05 90 50 00 06 FF EA 55");
}

TEST_F(SerialRelay, GivesUpWaitingBeforeTheToolDoes) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  const auto start = std::chrono::steady_clock::now();
  queues_.Send(5, Body("AA AA 07 06 AA 10 01 01 44 55"));
  queues_.Send(5, Body("AA AA 08 06 AA 0C 01 01 48 55"));
  EXPECT_EQ(hardware_->Read(12), "AA 10 01 01 44 55 AA 0C 01 01 48 55");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1899));
  hardware_->Write("AA 8C 01 10 B9 55");
  EXPECT_EQ(Reply(), "AA AA 08 06 AA 8C 01 10 B9 55");
}

TEST_F(SerialRelay, TalksToABareCamera) {
  ASSERT_NO_FATAL_FAILURE(Start(kVisca));
  queues_.Send(5, Body("AA AA 05 0B AA 02 06 81 09 04 24 72 FF 2B 55"));
  EXPECT_EQ(hardware_->Read(6), "81 09 04 24 72 FF");
  hardware_->Write("90 50 00 06 FF");
  EXPECT_EQ(Reply(), "AA AA 05 0A AA 82 05 90 50 00 06 FF EA 55");

  queues_.Send(5, Body("AA AA 09 0B AA 02 06 81 01 04 39 03 FF 8D 55"));
  EXPECT_EQ(hardware_->Read(6), "81 01 04 39 03 FF");
  hardware_->Write("90 41 FF 90 51 FF");
  EXPECT_EQ(Reply(), "AA AA 09 06 AA 82 01 10 C3 55");

  queues_.Send(5, Body("AA AA 0A 06 AA 10 01 01 44 55"));  // there is no MCU on such a line
  EXPECT_EQ(Reply(), "AA AA 0A 06 AA 90 01 21 A4 55");
}

TEST_F(SerialRelay, PassesOverWhatABareCameraSaysUnasked) {
  ASSERT_NO_FATAL_FAILURE(Start(kVisca));
  hardware_->Write("00 31 FF 90 38 FF 90 51 FF");
  queues_.Send(5, Body("AA AA 05 0B AA 02 06 81 09 04 24 72 FF 2B 55"));
  EXPECT_EQ(hardware_->Read(6), "81 09 04 24 72 FF");
  hardware_->Write("22 FF 90 50 00");
  hardware_->Write("06 FF");
  EXPECT_EQ(Reply(), "AA AA 05 0A AA 82 05 90 50 00 06 FF EA 55");
}

TEST_F(SerialRelay, OutlivesItsLine) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  hardware_.reset();  // pulled out
  EXPECT_TRUE(Eventually([this] { return gone_.load(); }));
  queues_.Send(5, Body("AA AA 07 06 AA 10 01 01 44 55"));
  Stop();
}

TEST(SerialLine, IsRefusedWhenThereIsNone) {
  sim::SerialRelay relay("/no/such/line", 9600, kUart1, [](const std::string&) {});
  std::string error;
  EXPECT_FALSE(relay.Open(error));
  EXPECT_EQ(error.substr(0, 16), "/no/such/line: N") << error;
}

}  // namespace
