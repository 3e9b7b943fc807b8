// The device behind the queues: the daemon's relay, and the camera and the MCU on their serial line. It takes relay
// messages and returns relay messages; the caller passes the time.
#pragma once

#include "simulator/model/CameraModel.h"
#include "simulator/model/Faults.h"
#include "simulator/model/McuModel.h"
#include "simulator/model/Peer.h"
#include "simulator/model/Relay.h"
#include "simulator/model/Setup.h"

namespace sim {

class Device : public Peer, private FaultTarget {
 public:
  explicit Device(const Setup& setup);

  std::string Request(std::int32_t type, ByteView body, Time now) override;
  void Advance(Time now) override;
  std::optional<Time> NextEvent() const override;

  // The camera on a VISCA line. Visca returns the answer to a packet. TakeVisca returns what the camera has sent
  // without a request since the last call; only the first few packets are kept.
  std::vector<Bytes> Visca(ByteView packet, Time now);
  std::vector<Bytes> TakeVisca();
  const State& state() const { return state_; }
  // The duration of one field of the picture. The camera accepts one command per field.
  Time Field() const;

 private:
  struct Answer {
    std::vector<Frame> frames;
    std::string note;
  };
  Answer Ask(const Frame& request, Time now);
  void Deliver(const Relay& request, const Answer& answer, const Fault* fault, Time now);
  void CutSupply(Time duration) override;
  void StopDaemon(Outgoing::Kind how, Time duration) override;
  Time OnTheWire(std::size_t bytes) const;
  Time AnswerTime(const Relay& request, std::size_t reply_bytes, Time now);

  const Setup setup_;
  State state_;
  CameraModel camera_;
  McuModel mcu_;
  FaultPicker faults_;
  std::vector<Bytes> unasked_;       // what the camera has sent without a request, for a VISCA line
  std::int32_t type_ = 1;            // of the last request; reports carry it too
  std::uint8_t sequence_ = 0;        // of the last request; completions carry it
  Time now_ = 0;                     // of the last Request or Advance
  Time line_free_ = 0;               // when UART1 becomes free
  Time next_report_ = 0;             // valid only while a report is switched on
  std::optional<Time> supply_back_;  // set while a fault has cut the supply: lens_power then has no effect
};

}  // namespace sim
