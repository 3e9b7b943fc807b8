// Writes messages and lines to a descriptor on a thread of its own, so that a reader that stalls delays nobody else.
//
// The number of waiting items and their size are limited. Items that do not fit are dropped and counted, and a line at
// that place says how many. The descriptor's flags stay as they are, because other processes may share them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <variant>

#include "simulator/model/Event.h"

namespace sim {

class Writer {
 public:
  using Clock = std::chrono::steady_clock;
  using Item = std::variant<std::string, Event>;
  struct Limits {
    std::size_t items;
    std::size_t bytes;
  };
  // All of these are called on the writer's thread.
  struct Routines {
    std::function<std::string(const Event&)> message;    // a line, without its line feed
    std::function<std::string(std::uint64_t)> dropped;   // the line that says how many were dropped
    std::function<void(int error)> failed = [](int) {};  // writing has failed; nothing more is written
  };
  // `descriptor` must stay open until Finish returns; if it returns Outcome::stuck, until the process ends.
  Writer(int descriptor, Limits limits, Routines routines);
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // From any thread. Never waits.
  void Put(Item item);
  std::uint64_t Lost() const;  // items so far

  struct Outcome {
    std::uint64_t lost = 0;  // items that were never written
    int error = 0;           // why writing failed; 0: it did not
    bool stuck = false;      // the thread could not be interrupted and is left behind
  };
  // From now on nothing more is accepted.
  void Close();
  // Closes, and waits until everything is written. After `deadline`, continues only for a short time, while the
  // descriptor accepts more at once.
  Outcome Finish(Clock::time_point deadline);

 private:
  struct Shared;
  static void Work(const std::shared_ptr<Shared>& shared);

  std::shared_ptr<Shared> shared_;  // shared with the thread, which may outlive the writer
  std::thread thread_;
};

// Writes a line to the descriptor, unless its reader stalls. For standard error.
void WriteLine(int descriptor, std::string_view line);

}  // namespace sim
