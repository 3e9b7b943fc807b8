// The QM2150 camera: it takes VISCA packets and returns VISCA packets; the caller passes the time. The packets carry
// socket numbers, as a real camera's do; Device removes them where the real device does.
#pragma once

#include <array>
#include <initializer_list>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "simulator/model/Protocol.h"
#include "simulator/model/Time.h"
#include "simulator/model/Visca.h"

namespace sim {

class CameraModel {
 public:
  struct Options {
    Time wake_up = 3 * kSecond;  // how long the camera does not answer after its supply has been switched on
    bool travel = true;          // zoom and focus take time to reach a position; false: they reach it at once
    bool strict = true;          // a command may set allowed values only; false: any value that fits the field
  };

  // Keeps a reference to `state` and changes the camera's variables and registers in it. While a motor moves, the
  // model overwrites what others write to its variable, zoom_pos or focus_pos. When the supply is switched off and on,
  // the settings return to the values that `state` has at construction.
  CameraModel(State& state, Options options);

  // In all routines `now` must not decrease from call to call.
  void SetSupply(bool on, Time now);
  bool Supplied() const { return supply_; }
  bool Awake(Time now) const { return supply_ && now >= awake_at_; }
  bool Shows50Hz() const;  // false: 60 Hz
  // Sets variables without a command. A motor whose position is set stops there.
  void Override(std::span<const std::pair<Var, std::uint32_t>> variables, Time now);

  // Returns the camera's immediate answer to a packet: a reply; an acknowledgement, with the completion at once or
  // later from Advance; or an error. Empty if the camera is not awake or not addressed. `line`: where the packet comes
  // from.
  std::vector<Bytes> Handle(ByteView packet, Line line, Time now);
  // Returns the packets that the camera sends on its own up to `now`: completions, and the network change after it has
  // woken up.
  std::vector<Bytes> Advance(Time now);
  // Returns when Advance has something to send next.
  std::optional<Time> NextEvent() const;

 private:
  // A motor. While `rate` is not 0, the motor moves: it was at `from` at the time `since` and stops at `target`. MoveTo
  // updates its variable before anything reads it.
  struct Axis {
    Var var;
    std::uint32_t least, greatest;
    std::int64_t from = 0, rate = 0, target = 0;  // positions, and positions per second
    Time since = 0;
  };
  // A command in progress; `axes` are the motors that it drives.
  struct Socket {
    bool busy = false;
    Time until = 0;
    Axis* axes[2] = {};
  };

  Bytes Reply(std::initializer_list<std::uint8_t> bytes) const;
  Bytes Error(int socket, std::uint8_t code) const;
  std::vector<Bytes> Command(ByteView data, Line line, Time now);
  std::vector<Bytes> Inquiry(ByteView data, Line line);
  bool Takes(const Found& command) const;
  std::vector<Bytes> Cancel(int socket, Time now);
  bool Executable(Needs needs) const;
  // Executes the command and returns how long it takes.
  Time Perform(const Row& row, const Values& values, Socket& socket, Time now);
  Time Drive(Axis& axis, std::uint32_t target, std::int64_t speed, Socket& socket, Time now);
  void Turn(Axis& axis, std::int64_t rate, Time now);
  void MoveTo(Time now);
  void SettleZoom();
  // Ends the commands in progress and stops the motors.
  void Forget();

  State& state_;
  const State start_;
  const Options options_;
  bool supply_ = true;
  bool announced_ = true;  // the network change after the last wake-up has been sent
  Time awake_at_ = 0;      // after the supply was last switched on
  std::uint8_t address_ = kViscaFirstAddress;
  std::uint8_t video_mode_;  // the sensor mode in effect; a new one takes effect when the supply returns
  std::array<Socket, 2> sockets_;
  std::array<std::optional<State>, 16> memories_;
  Axis zoom_;  // its range depends on the digital zoom, see SettleZoom
  Axis focus_;
};

}  // namespace sim
