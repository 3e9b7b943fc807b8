// The device behind the queues: the daemon's relay, and the camera and the MCU on their serial line. It takes relay
// messages and returns relay messages; the caller passes the time.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <vector>

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

  // Makes the device ready: its timeline and the times of its faults start. The first call of any other routine that
  // takes a time does the same.
  void Start(Time now);
  // Applies all of a change at once.
  void Apply(const Change& change, Time now);
  // Returns the id of the new fault, which comes after the others.
  std::uint32_t AddFault(Fault fault, Time now);
  // Returns whether there was a fault of that id.
  bool RemoveFault(std::uint32_t id) { return faults_.Remove(id); }
  void ClearFaults() { faults_.Clear(); }
  const std::vector<ActiveFault>& Faults() const { return faults_.Faults(); }
  // Restarts the device from `setup`; it is ready at once. Replies that are not yet due are lost; the numbering of the
  // requests continues.
  void Restart(const Setup& setup, Time now);

  std::string Request(std::int32_t type, ByteView body, Time now) override;
  void Advance(Time now) override;
  std::optional<Time> NextEvent() const override;

  // The camera on a VISCA line. Visca returns the answer to a packet. TakeVisca returns the packets that the
  // camera has sent on its own since the last call; only the first few are kept.
  struct LineAnswer {
    std::vector<Bytes> packets;
    Time late = 0;     // how much later than usual the packets are sent
    std::string note;  // for the packet's line of the trace
  };
  LineAnswer Visca(ByteView packet, Time now);
  std::vector<Bytes> TakeVisca();
  // The state as of the last call that passed a time; see Advance.
  const State& state() const { return state_; }
  const Setup& setup() const { return setup_; }
  // Whether the camera's cable is connected: false after a Change that cut its supply.
  bool CableConnected() const { return cable_; }
  // Whether the camera has its supply and has woken up.
  bool CameraAwake(Time now) const { return camera_->Awake(now); }
  // Whether the camera has its supply: its cable is connected, the MCU has switched it on, and no fault has cut it.
  bool CameraSupplied() const { return camera_->Supplied(); }
  // The duration of one field of the picture. The camera accepts one command per field.
  Time Field() const;
  // How long that many bytes take on a serial line.
  Time OnTheWire(std::size_t bytes) const;

 private:
  // The parts of a command that its completion repeats.
  struct Asked {
    std::int32_t type;
    std::uint32_t exchange;
    std::uint8_t sequence;
  };
  std::optional<Asked>* CommandOf(const Bytes& packet);
  struct Answer {
    std::vector<Frame> frames;
    std::string note;
  };
  Answer Ask(const Frame& request, std::uint8_t sequence, Time now);
  // Returns whether the fault has changed anything.
  bool Deliver(const Relay& request, const Answer& answer, const Fault* fault, Time now);
  void CutSupply(Time duration) override;
  void StopDaemon(Outgoing::Kind how, Time duration) override;
  Time AnswerTime(const Relay& request, Time now) const;

  void Build(Time now);
  void AdvanceTo(Time now);
  void Make(const Change& change, Time now);
  bool Reporting() const { return mcu_->Reports(kGetPtz) || mcu_->Reports(kGetMotorState); }
  void UpdateSupply(Time now);
  std::optional<Time> NextMoment() const;

  Setup setup_;
  State state_;
  std::unique_ptr<CameraModel> camera_;  // never empty
  std::unique_ptr<McuModel> mcu_;        // never empty
  FaultPicker faults_;
  std::optional<Time> ready_;    // when the device became ready and its faults were added
  std::size_t next_moment_ = 0;  // of the timeline, which Build has sorted
  bool cable_ = true;            // see CableConnected
  std::vector<Bytes> unasked_;   // packets that the camera has sent on its own, for a VISCA line
  std::int32_t type_ = 1;        // message type of the last request; reports use it too
  // The last command in each of the camera's sockets; empty if it came from a VISCA line.
  std::array<std::optional<Asked>, 2> commands_;
  Time now_ = 0;                     // of the last Request or Advance
  Time line_free_ = 0;               // when UART1 becomes free
  Time next_report_ = 0;             // valid only while a report is switched on
  std::optional<Time> supply_back_;  // set while a fault has cut the supply
};

}  // namespace sim
