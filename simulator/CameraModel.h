// The QM2150 as a pure machine: VISCA packets in, VISCA packets out, the time passed in. It numbers its answers
// with sockets as a camera does; whoever relays them may take the numbers off.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "simulator/Protocol.h"

namespace sim {

class CameraModel {
 public:
  struct Options {
    Time wake_up = 3 * kSecond;  // silent for so long after its supply came on
    bool travel = true;          // the lens takes its time
  };

  // The state at this moment is what a cut of the supply brings back.
  CameraModel(State& state, Options options);

  void SetSupply(bool on, Time now);
  bool Awake(Time now) const { return supply_ && now >= awake_at_; }
  bool Shows50Hz() const;  // else 60 Hz

  // Answers at once: a reply, or an acknowledgement that a completion follows, or an error. Nothing when the camera
  // is not awake or not addressed.
  std::vector<Bytes> Handle(ByteView packet, Time now);
  // What the camera says by itself until now: completions, and that it woke up.
  std::vector<Bytes> Advance(Time now);
  std::optional<Time> NextEvent() const;

 private:
  struct Axis {  // a motor: where it was when, how fast it goes, how far
    Var var;
    std::uint32_t least, greatest;
    std::int64_t from = 0, rate = 0, target = 0;  // positions and positions a second
    Time since = 0;
  };
  struct Socket {
    bool busy = false;
    Time until = 0;
    Axis* axes[2] = {};
  };

  Bytes Reply(std::initializer_list<std::uint8_t> bytes) const;
  Bytes Error(int socket, std::uint8_t code) const;
  std::vector<Bytes> Command(ByteView data, Time now);
  std::vector<Bytes> Inquiry(ByteView data);
  std::vector<Bytes> Cancel(int socket, Time now);
  bool Executable(Needs needs) const;
  // Carries the command out; how long it takes.
  Time Perform(const Row& row, const Values& values, Socket& socket, Time now);
  Time Drive(Axis& axis, std::uint32_t target, std::int64_t speed, Socket& socket, Time now);
  void Turn(Axis& axis, std::int64_t rate, Time now);
  void MoveTo(Time now);
  void SettleZoom();
  void Forget();

  State& state_;
  const State start_;
  const Options options_;
  bool supply_ = true;
  bool announced_ = true;
  Time awake_at_ = 0;
  std::uint8_t address_ = 1;
  std::uint8_t video_mode_;  // the mode written to the register takes effect when the supply comes on
  std::array<Socket, 2> sockets_;
  std::array<std::optional<State>, 16> memories_;
  Axis zoom_{.var = Var::zoom_pos, .least = 0, .greatest = 31424};
  Axis focus_{.var = Var::focus_pos, .least = 0x1000, .greatest = 0xF000};
};

// The VISCA error code in a camera's answer; 0 when it is no error.
std::uint8_t ViscaError(ByteView packet);

}  // namespace sim
