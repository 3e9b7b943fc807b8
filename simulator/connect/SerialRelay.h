// The relay between the queues and hardware on a serial line, instead of the simulated device. It performs one
// exchange at a time.
#pragma once

#include <deque>
#include <string>

#include "simulator/connect/Splitters.h"
#include "simulator/connect/Trace.h"
#include "simulator/connect/Watched.h"
#include "simulator/model/McuModel.h"
#include "simulator/model/Peer.h"
#include "simulator/model/Relay.h"

struct sp_port;

namespace sim {

class SerialRelay : public Peer, public Watched {
 public:
  enum class Protocol : std::uint8_t {
    Uart1,  // the line carries UART1 frames
    Visca,  // it carries the VISCA packets of a bare camera; the MCU is simulated
  };
  SerialRelay(std::string device, std::uint32_t baud, Protocol protocol, LineSink sink);
  ~SerialRelay() override;
  SerialRelay(const SerialRelay&) = delete;
  SerialRelay& operator=(const SerialRelay&) = delete;

  // Opens the line. Throws Error. A line that is lost later is opened again as soon as possible.
  void Open();

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
  void OpenPort();
  void OpenTerminal();
  void Close();

  const std::string device_;
  const std::uint32_t baud_;
  const Protocol protocol_;
  const LineSink sink_;
  sp_port* port_ = nullptr;  // owns descriptor_, if there is one
  int descriptor_ = -1;      // negative while there is no line
  Time reopen_at_ = 0;
  FrameSplitter frames_;  // only one of these two is fed
  ViscaSplitter packets_;
  std::uint64_t dropped_ = 0;  // bytes of garbage that have been reported
  Time heard_at_ = 0;          // when the last bytes arrived
  std::deque<Asked> asked_;    // requests in order
  bool asking_ = false;        // the first request has been sent and waits for its answer until give_up_at_
  Time give_up_at_ = 0;
  std::int32_t type_ = 1;  // of the last request; unsolicited frames carry it
  State mcu_state_;
  McuModel mcu_{mcu_state_};
};

}  // namespace sim
