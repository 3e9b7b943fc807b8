// The last messages of a run, for the control interface: listed, waited for, and described in words.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/model/Dissector.h"
#include "simulator/model/Event.h"

namespace sim {

// All routines may be called from any thread.
class MessageLog {
 public:
  // The oldest messages are dropped when there are more than `most`, or more than `most_bytes` in their bodies.
  explicit MessageLog(std::size_t most = 4096, std::size_t most_bytes = std::size_t{1} << 20)
      : most_(most), most_bytes_(most_bytes) {}

  // Adds a message; its number must be greater than that of the one before. Takes a short time, so that it can be
  // called with the daemon's lock held: a message is described only when a client lists it.
  void Add(const Event& event);

  // Selects messages: those with a greater number than `since`, and with `match` among their bytes.
  struct Filter {
    std::uint64_t since = 0;
    Bytes match;
  };
  struct Message {
    Event event;
    std::string meaning;
  };
  struct List {
    std::vector<Message> messages;
    std::uint64_t last = 0;     // number of the last message that was examined: the next `since`
    std::uint64_t dropped = 0;  // how many messages after `since` have been dropped, matching or not
  };
  // Returns the messages that the filter selects, in order.
  List After(const Filter& filter);
  // The same, but at most `most` messages; if there are none, waits for one until `end` or Stop, or until `left`
  // returns true because the client has left. `left` is called several times per second, without a lock; it may be
  // empty.
  using Left = std::function<bool()>;
  List Wait(const Filter& filter, std::size_t most, std::chrono::steady_clock::time_point end, const Left& left = {});
  // Returns the newest messages after `since`, at most `most`, in order. Takes a short time, because it describes none.
  std::vector<Event> Newest(std::uint64_t since, std::size_t most) const;
  // Waits until `end` or Stop, regardless of messages. Returns whether the log has been stopped.
  bool WaitForStop(std::chrono::steady_clock::time_point end);
  // The number of the last message; 0 if there was none.
  std::uint64_t Last() const;
  // Ends all waits. From now on Wait returns at once.
  void Stop();
  bool stopped() const;

 private:
  struct Entry {
    Message message;
    bool described = false;
  };
  List Select(const Filter& filter, std::size_t most);
  void Describe();
  Entry* Find(std::uint64_t number);

  const std::size_t most_, most_bytes_;

  std::mutex describing_;  // locked before mutex_; covers the next two members
  Dissector dissector_;
  std::uint64_t described_ = 0;  // number of the last message that the dissector has seen

  mutable std::mutex mutex_;  // covers the members below; held for a short time only, because Add waits for it
  std::condition_variable more_, stop_;
  std::deque<Entry> entries_;
  std::size_t bytes_ = 0;   // in the bodies of entries_
  std::uint64_t last_ = 0;  // number of the last message added
  bool stopped_ = false;
};

}  // namespace sim
