// The daemon: takes requests from one queue, asks the peer, and puts the peer's messages onto the other queue.
//
// Two threads. The receiving thread waits in msgrcv, hands each request to the peer and sends what is due at once; that
// keeps a fast device fast. The main thread waits in ppoll for everything else that has a time or a descriptor: late
// replies, reports, the watched lines, SIGINT and SIGTERM. One lock, mutex_, covers the peer, the watched lines and the
// sink; a thread holds it whenever it does not wait.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "simulator/connect/Queues.h"
#include "simulator/connect/Watched.h"
#include "simulator/model/Event.h"
#include "simulator/model/Peer.h"

namespace sim {

class Daemon {
 public:
  struct Options {
    std::string key_path = kDefaultKeyPath;
    bool remove_queues = false;  // when it ends
  };
  // Is given each message in the order in which it came or went, by either thread, with the lock held.
  using Sink = std::function<void(const Event&)>;

  // `peer`, and later what is watched, must outlive the daemon.
  Daemon(Peer& peer, Options options, Sink sink);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;
  // Before Run only.
  void Watch(Watched& watched) { watched_.push_back(&watched); }

  // Opens the queues. Throws Error.
  void Open();
  // Returns after SIGINT, SIGTERM or Stop. The two signals must be blocked in every thread of the process, see
  // BlockSignals. Uses SIGUSR2 for itself.
  void Run();
  // From any thread.
  void Stop();

  static Time Now();  // microseconds since the first call
  // Blocks SIGINT and SIGTERM in this thread and in those that it starts.
  static void BlockSignals();

 private:
  void Receive();  // the receiving thread
  void Wake();     // the main thread; without the lock too
  // The lock must be held for these.
  void Flush(Time now);
  void Reopen();
  void Pause(const Outgoing& out, Time now);
  std::optional<Time> NextDue(Time now) const;

  const Options options_;
  const Sink sink_;
  const int wake_fd_;  // an eventfd that the main thread watches
  std::atomic<bool> stop_ = false;
  std::atomic<bool> receiver_done_ = false;
  Queue requests_, replies_;  // the receiving thread waits on the former without the lock

  std::mutex mutex_;              // covers all that follows
  std::condition_variable room_;  // the daemon is back, or less waits to be sent
  Peer& peer_;
  std::vector<Watched*> watched_;
  std::optional<Outgoing> stuck_;  // goes first: the reply queue was full; tried again at retry_at_
  Time retry_at_ = 0;
  Time away_until_ = 0;  // by a fault: until then nothing is read or sent
};

}  // namespace sim
