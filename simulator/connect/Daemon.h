// The daemon: reads requests from one queue, passes them to the peer, and sends the peer's messages on the other queue.
//
// It has two threads. The receiving thread waits in msgrcv, passes each request to the peer and sends what is due at
// once, so that a fast device answers without a change of threads. The main thread waits in ppoll for everything else
// that has a time or a descriptor: late replies, reports, the watched lines, SIGINT and SIGTERM. One lock, mutex_,
// covers the peer, the watched lines and the sink; a thread holds it whenever it is not waiting.
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
  // Called for each message received or sent, in this order, by either thread with the lock held.
  using Sink = std::function<void(const Event&)>;

  // `peer` and everything that is watched must outlive the daemon.
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
  void Wake();     // wakes the main thread; the lock need not be held
  // The lock must be held for the following.
  void Flush(Time now);
  void Reopen();
  void Pause(const Outgoing& out, Time now);
  std::optional<Time> NextDue(Time now) const;

  const Options options_;
  const Sink sink_;
  const int wake_fd_;  // an eventfd that the main thread watches
  std::atomic<bool> stop_ = false;
  std::atomic<bool> receiver_done_ = false;
  Queue requests_, replies_;  // the receiving thread waits on requests_ without the lock

  std::mutex mutex_;              // covers all members below
  std::condition_variable room_;  // the daemon is back, or fewer messages wait to be sent
  Peer& peer_;
  std::vector<Watched*> watched_;
  std::optional<Outgoing> stuck_;  // not sent because the reply queue was full; sent first, at retry_at_
  Time retry_at_ = 0;
  Time away_until_ = 0;  // set by a fault: until then nothing is read or sent
};

}  // namespace sim
