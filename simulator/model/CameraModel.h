// The QM2150 camera as a machine: VISCA packets in, VISCA packets out, the time passed in. Its packets carry socket
// numbers as a camera's do; the device takes them off where the real one does.
#pragma once

#include <array>
#include <initializer_list>
#include <optional>
#include <vector>

#include "simulator/model/Protocol.h"
#include "simulator/model/Time.h"
#include "simulator/model/Visca.h"

namespace sim {

class CameraModel {
 public:
  struct Options {
    Time wake_up = 3 * kSecond;  // how long the camera is silent after its supply came on
    bool travel = true;          // zoom and focus take time to reach a position; false: they jump
  };

  // Keeps a reference to `state` and changes the camera's variables and registers in it. What others write to
  // zoom_pos or focus_pos is lost while that motor moves. What `state` holds now is what the camera returns to when its
  // supply comes back.
  CameraModel(State& state, Options options);

  // Times must not run backwards from call to call.
  void SetSupply(bool on, Time now);
  bool Awake(Time now) const { return supply_ && now >= awake_at_; }
  bool Shows50Hz() const;  // else 60 Hz

  // The camera's immediate answer to a packet: a reply; an acknowledgement, with the completion at once or later from
  // Advance; or an error. Nothing if the camera is not awake or not addressed.
  std::vector<Bytes> Handle(ByteView packet, Time now);
  // What the camera sends unasked up to `now`: completions, and the network change when it has woken up.
  std::vector<Bytes> Advance(Time now);
  // When Advance has something to send next.
  std::optional<Time> NextEvent() const;

 private:
  // A motor. While `rate` is not 0 it was at `from` at the time `since` and stops at `target`; its variable is brought
  // up to date by MoveTo before anything reads it.
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
  std::vector<Bytes> Command(ByteView data, Time now);
  std::vector<Bytes> Inquiry(ByteView data);
  std::vector<Bytes> Cancel(int socket, Time now);
  bool Executable(Needs needs) const;
  // Carries the command out and returns how long it takes.
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
  bool announced_ = true;  // the network change after the last wake-up has been sent
  Time awake_at_ = 0;      // of the last time that the supply came on
  std::uint8_t address_ = 1;
  std::uint8_t video_mode_;  // the sensor mode in effect: a mode written to the register waits for the next supply
  std::array<Socket, 2> sockets_;
  std::array<std::optional<State>, 16> memories_;
  Axis zoom_;  // its end depends on the digital zoom, see SettleZoom
  Axis focus_;
};

}  // namespace sim
