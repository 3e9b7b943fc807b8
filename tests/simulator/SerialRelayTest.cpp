// The relay to hardware on a serial line; the test plays the hardware on the other end of a pseudo-terminal.
#include "simulator/connect/SerialRelay.h"

#include <fcntl.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include "simulator/connect/Daemon.h"
#include "simulator/connect/RawMode.h"
#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

constexpr std::int32_t kType = 5;  // of the requests

// What is on the line for the messages of Support.h.
const std::string kVersionFrame = "AA 10 01 01 44 55";
const std::string kVersionReplyFrame = "AA 90 01 21 A4 55";
const std::string kSupplyOnFrame = "AA 0C 01 01 48 55";
const std::string kSupplyOnReplyFrame = "AA 8C 01 10 B9 55";
const std::string kSupplyOnReply = "AA AA 02 06 AA 8C 01 10 B9 55";
const std::string kSensorModePacket = "81 09 04 24 72 FF";
const std::string kSensorModeReplyPacket = "90 50 00 06 FF";

class SerialRelay : public testing::Test {
 protected:
  static void SetUpTestSuite() { sim::Daemon::BlockSignals(); }
  void Start(sim::SerialRelay::Protocol protocol) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    ASSERT_TRUE(sim::MakeRaw(master));
    hardware_.emplace(master);
    relay_.emplace(ptsname(master), 9600, protocol, [this](const std::string& line) {
      said_ += line + "\n";
      gone_ = gone_ || line == "simZR4410: the serial line is gone";
    });
    daemon_.emplace(*relay_, sim::Daemon::Options{.key_path = queues_.path(), .remove_queues = true},
                    [](const sim::Event&) {});
    relay_->Open();
    daemon_->Open();
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
  std::optional<TerminalLine> hardware_;
  std::optional<sim::SerialRelay> relay_;
  std::optional<sim::Daemon> daemon_;
  std::thread thread_;
};

constexpr auto kUart1 = sim::SerialRelay::Protocol::Uart1;
constexpr auto kVisca = sim::SerialRelay::Protocol::Visca;

TEST_F(SerialRelay, CarriesFramesBothWays) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(kType, Body(kVersion));
  EXPECT_EQ(hardware_->Read(6), kVersionFrame);
  hardware_->Write(kVersionReplyFrame);
  EXPECT_EQ(Reply(), kVersionReply);
}

TEST_F(SerialRelay, SendsOneRequestAfterTheOther) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(kType, Body(kVersion));
  queues_.Send(kType, Body(kSupplyOn));
  EXPECT_EQ(hardware_->Read(6), kVersionFrame);
  hardware_->Write(kVersionReplyFrame);
  EXPECT_EQ(Reply(), kVersionReply);
  EXPECT_EQ(hardware_->Read(6), kSupplyOnFrame);
  hardware_->Write(kSupplyOnReplyFrame);
  EXPECT_EQ(Reply(), kSupplyOnReply);
}

TEST_F(SerialRelay, FindsAReplyInGarbage) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(kType, Body(kVersion));
  hardware_->Read(6);
  hardware_->Write("00 FF AA 10 90");
  hardware_->Write("AA 90 01 21 A5 55 AA 90");  // a wrong checksum, then half a frame
  hardware_->Write("01 21 A4 55 AA 91 08 00 00 7D 00 01 C2 00 00 7D 55");
  EXPECT_EQ(Reply(), kVersionReply);
  EXPECT_EQ(Reply(), kReport) << "a report answers no request";
  Stop();
  EXPECT_NE(said_.find("bytes of garbage on the serial line"), std::string::npos);
}

TEST_F(SerialRelay, RecoversFromAFalseStartWhenTheLineFallsSilent) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(kType, Body(kVersion));
  hardware_->Read(6);
  hardware_->Write("AA 33 0F AA 90 01 21 A4 55");
  EXPECT_EQ(Reply(), kVersionReply);
}

TEST_F(SerialRelay, DropsDamagedRequests) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  queues_.Send(kType, Body("AA AA 06 06 AA 10 01 01 45 55"));
  queues_.Send(kType, Body("AB AA 06 06 AA 10 01 01 44 55"));
  queues_.Send(kType, Packet(7, 0xAA));
  queues_.Send(kType, Body(kSupplyOn));
  EXPECT_EQ(hardware_->Read(6), kSupplyOnFrame);
}

TEST_F(SerialRelay, DropsTheToolsNotice) {
  ASSERT_NO_FATAL_FAILURE(Start(kVisca));
  queues_.Send(kType, Body("AA AA 00 09 AA 02 04 01 22 33 44 B6 55"));
  queues_.Send(kType, Body(kSensorMode));
  EXPECT_EQ(hardware_->Read(6), kSensorModePacket);
  hardware_->Write(kSensorModeReplyPacket);
  EXPECT_EQ(Reply(), kSensorModeReply);
}

TEST_F(SerialRelay, GivesUpWaitingBeforeTheToolDoes) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  const auto start = std::chrono::steady_clock::now();
  queues_.Send(kType, Body(kVersion));
  queues_.Send(kType, Body(kSupplyOn));
  EXPECT_EQ(hardware_->Read(12), kVersionFrame + " " + kSupplyOnFrame);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1899));
  hardware_->Write(kSupplyOnReplyFrame);
  EXPECT_EQ(Reply(), kSupplyOnReply);
}

TEST_F(SerialRelay, RelaysToABareCamera) {
  ASSERT_NO_FATAL_FAILURE(Start(kVisca));
  queues_.Send(kType, Body(kSensorMode));
  EXPECT_EQ(hardware_->Read(6), kSensorModePacket);
  hardware_->Write(kSensorModeReplyPacket);
  EXPECT_EQ(Reply(), kSensorModeReply);

  queues_.Send(kType, Body(kAeManual));
  EXPECT_EQ(hardware_->Read(6), "81 01 04 39 03 FF");
  hardware_->Write("90 41 FF 90 51 FF");
  EXPECT_EQ(Reply(), kAcknowledged);

  queues_.Send(kType, Body(kVersion));  // there is no MCU on such a line
  EXPECT_EQ(Reply(), kVersionReply);
}

TEST_F(SerialRelay, DropsUnsolicitedPacketsOfABareCamera) {
  ASSERT_NO_FATAL_FAILURE(Start(kVisca));
  hardware_->Write("00 31 FF 90 38 FF 90 51 FF");
  queues_.Send(kType, Body(kSensorMode));
  EXPECT_EQ(hardware_->Read(6), kSensorModePacket);
  hardware_->Write("22 FF 90 50 00");
  hardware_->Write("06 FF");
  EXPECT_EQ(Reply(), kSensorModeReply);
}

TEST_F(SerialRelay, OutlivesItsLine) {
  ASSERT_NO_FATAL_FAILURE(Start(kUart1));
  hardware_.reset();  // the cable is pulled out
  EXPECT_TRUE(Eventually([this] { return gone_.load(); }));
  queues_.Send(kType, Body(kVersion));
  Stop();
}

TEST(SerialRelayWithoutALine, IsRejected) {
  sim::SerialRelay relay("/no/such/line", 9600, kUart1, [](const std::string&) {});
  EXPECT_EQ(ErrorOf([&relay] { relay.Open(); }), "/no/such/line: No such file or directory");
}

}  // namespace
