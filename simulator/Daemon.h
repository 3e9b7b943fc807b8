// The daemon between the queues and whoever answers.
//
// One thread waits in msgrcv and answers at once what is due at once; the main thread waits in poll for everything
// that has a time or a descriptor: late replies, reports, the VISCA terminal, the serial line, SIGINT and SIGTERM.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/Dissector.h"
#include "simulator/Peer.h"
#include "simulator/Queues.h"

namespace sim {

// Something with a descriptor that the main thread watches. OnReadable is called with the peer locked.
class Watched {
 public:
  virtual ~Watched() = default;
  virtual int Descriptor() const = 0;
  virtual void OnReadable(Time now) = 0;
  virtual void OnTime(Time now) = 0;  // after every wake-up
  virtual std::optional<Time> NextDue() const = 0;
};

class Daemon {
 public:
  struct Options {
    std::string key_path = kDefaultKeyPath;
    bool remove_queues = false;  // when it ends
  };
  using Sink = std::function<void(const Event&)>;

  Daemon(Peer& peer, Options options, Sink sink);
  ~Daemon();
  void Watch(Watched& watched) { watched_.push_back(&watched); }

  // False, with the reason in `error`, when the queues cannot be had.
  bool Open(std::string& error);
  // Until SIGINT, SIGTERM or Stop(). Those two signals must be blocked in the whole process before.
  void Run();
  void Stop();

  static Time Now();  // microseconds since the first call
  static void BlockSignals();

 private:
  void Receive();        // the receiving thread
  void Flush(Time now);  // sends what is due; the lock is held
  void Wake();
  void Reopen();
  void Pause(const Outgoing& out, Time now);
  std::optional<Time> NextDue(Time now) const;

  Peer& peer_;
  const Options options_;
  const Sink sink_;
  std::vector<Watched*> watched_;
  Queue requests_, replies_;
  std::mutex mutex_;
  std::condition_variable room_;
  std::optional<Outgoing> stuck_;  // the reply queue was full
  Time retry_at_ = 0;
  Time away_until_ = 0;
  std::atomic<bool> stop_ = false;
  std::atomic<bool> receiver_done_ = false;
  int wake_fd_ = -1;
};

}  // namespace sim
