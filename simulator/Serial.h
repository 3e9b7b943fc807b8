// Serial lines: the simulated camera on a pseudo-terminal, and real hardware in place of the models.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "simulator/Daemon.h"
#include "simulator/Device.h"

struct sp_port;

namespace sim {

using LineSink = std::function<void(const std::string&)>;

// The camera as a plain VISCA camera on a pseudo-terminal.
class ViscaTerminal : public Watched {
 public:
  ViscaTerminal(Device& device, bool fast, LineSink sink);
  ~ViscaTerminal() override;

  // The terminal's name; empty, with errno set, when there is none to be had. With a link, that leads there too.
  std::string Open(const std::string& link);

  int Descriptor() const override { return master_; }
  void OnReadable(Time now) override;
  void OnTime(Time now) override;
  std::optional<Time> NextDue() const override;

 private:
  struct Waiting {
    Time due;
    Bytes packet;
    const Row* row;
  };
  void Say(Bytes packet, const Row* row, Time due);

  Device& device_;
  const bool fast_;
  const LineSink sink_;
  int master_ = -1;
  int slave_ = -1;  // held open, so that the terminal outlives its users
  std::string link_;
  ViscaSplitter splitter_;
  Time heard_at_ = 0;
  Time line_free_ = 0;
  std::deque<Waiting> waiting_;
};

// The relay between the queues and hardware on a serial port, one exchange at a time. The line carries UART1 frames,
// or plain VISCA packets when a bare camera is on it; then the MCU is simulated.
class SerialRelay : public Peer, public Watched {
 public:
  enum class Protocol : std::uint8_t { Uart1, Visca };
  SerialRelay(std::string device, std::uint32_t baud, Protocol protocol, LineSink sink);
  ~SerialRelay() override;

  bool Open(std::string& error);

  std::string Request(std::int32_t type, ByteView body, Time now) override;
  void Advance(Time now) override;
  std::optional<Time> NextEvent() const override;

  int Descriptor() const override { return descriptor_; }
  void OnReadable(Time now) override;
  void OnTime(Time now) override { Advance(now); }
  std::optional<Time> NextDue() const override { return NextEvent(); }

 private:
  struct Asked {
    std::int32_t type;
    std::uint32_t exchange;
    std::uint8_t sequence;
    Frame frame;
  };
  void Ask(Time now);
  void Answer(const Frame& frame, Time now);
  void OnFrame(const Frame& frame, Time now);
  void OnPacket(const Bytes& packet, Time now);
  void Close();

  const std::string device_;
  const std::uint32_t baud_;
  const Protocol protocol_;
  const LineSink sink_;
  sp_port* port_ = nullptr;
  int descriptor_ = -1;
  Time reopen_at_ = 0;
  FrameSplitter frames_;
  ViscaSplitter packets_;
  std::uint64_t dropped_ = 0;
  Time heard_at_ = 0;
  std::deque<Asked> asked_;  // the first is on the line
  bool asking_ = false;
  Time give_up_at_ = 0;
  std::int32_t type_ = 1;
  State mcu_state_;
  McuModel mcu_{mcu_state_};
};

}  // namespace sim
