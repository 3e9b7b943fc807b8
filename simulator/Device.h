// The device behind the queues: the daemon's relay, the camera and the MCU on their serial line. Pure: relay bodies in,
// relay bodies out, the clock passed in.
#pragma once

#include "simulator/CameraModel.h"
#include "simulator/Faults.h"
#include "simulator/McuModel.h"
#include "simulator/Peer.h"

namespace sim {

// How the device starts. A scenario file and the command line fill it in.
struct Setup {
  State state{};
  std::vector<Fault> faults{};
  std::uint64_t seed = 1;
  bool fast = false;            // no waiting of any kind
  Time wake_up = 3 * kSecond;   // of the camera, after its supply comes on
  Time report_every = kSecond;  // in automatic response mode
  std::uint32_t baud = 9600;    // of UART1, 8N1
  bool sockets = false;         // forward a command's VISCA acknowledgement and completion too
};

class Device : public Peer {
 public:
  explicit Device(const Setup& setup);

  std::string Request(std::int32_t type, ByteView body, Time now) override;
  void Advance(Time now) override;
  std::optional<Time> NextEvent() const override;

  // The camera straight on a VISCA line.
  std::vector<Bytes> Visca(ByteView packet, Time now);
  std::vector<Bytes> TakeVisca();  // what it says by itself
  const State& state() const { return state_; }
  Time Field() const;  // of the picture: the camera takes one command in each

 private:
  struct Answer {
    std::vector<Frame> frames;
    std::string note;
  };
  Answer Ask(const Frame& request, Time now);
  void Deliver(const Relay& request, Answer answer, const Fault* fault, Time now);
  Time OnTheWire(std::size_t bytes) const;
  Time AnswerTime(const Relay& request, std::size_t reply_bytes, Time now);
  void Send(Bytes body, Time due, std::string note);
  void SupplyCamera(bool on, Time now);

  const Setup setup_;
  State state_;
  CameraModel camera_;
  McuModel mcu_;
  FaultPicker faults_;
  std::vector<Bytes> said_;  // by the camera, for a VISCA line
  std::int32_t type_ = 1;    // of the last requester
  std::uint8_t sequence_ = 0;
  Time line_free_ = 0;
  Time next_report_ = 0;
  std::optional<Time> supply_back_;
};

}  // namespace sim
