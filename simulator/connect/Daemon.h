// The daemon: reads requests from one queue, passes them to the peer, and sends the peer's messages on the other queue.
//
// It has two threads. The receiving thread waits in msgrcv, passes each request to the peer and sends what is due at
// once, so that a fast device answers without a thread switch. The main thread waits in ppoll for everything else
// that has a time or a descriptor: late replies, reports, the watched lines, stop signals. One lock, mutex_, covers the
// peer, the watched lines and the sinks; a thread holds it whenever it is not waiting.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/connect/Queues.h"
#include "simulator/connect/Signals.h"
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
  // Called for each message received or sent, in the order of their numbers, by either thread with the lock held. It
  // must not wait for anything; work that takes time belongs to another thread.
  using Sink = std::function<void(const Event&)>;

  // `peer` and everything that is watched must outlive the daemon.
  Daemon(Peer& peer, Options options, Sink sink);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;
  // Before Run only.
  void Watch(Watched& watched) { watched_.push_back(&watched); }
  void AddSink(Sink sink) { sinks_.push_back(std::move(sink)); }

  // Claims and opens the queues. Throws Error, for example if another process serves them.
  void Open();
  // Removes the messages that an earlier run has left in the queues and returns how many. Before Run only.
  struct Leftovers {
    std::size_t requests;
    std::size_t replies;
  };
  Leftovers Empty() { return {requests_.Empty(), replies_.Empty()}; }
  // Returns after a stop signal or Stop. The stop signals must be blocked in every thread of the process, see
  // BlockSignals. Interrupts its receiving thread with SIGUSR2.
  void Run();
  // From any thread.
  void Stop();
  // From any thread: runs `routine` with the lock held, so that it may use the peer. It must neither wait nor call the
  // daemon. Afterwards the daemon asks the peer again what is due next, and resets itself if the peer was restarted.
  void Locked(const std::function<void(Time now)>& routine);

  static Time Now();  // microseconds since the first call
  // Blocks the stop signals in this thread and in those that it starts.
  static void BlockSignals() { BlockStopSignals(); }

 private:
  void Receive();  // the receiving thread
  void Wake();     // wakes the main thread; the lock need not be held
  // The lock must be held for the following.
  void Reset();
  void Tell(Event event);
  void Flush(Time now);
  void OpenQueues();
  void Reopen();
  void Close();
  void Pause(const Outgoing& out, Time now);
  std::optional<Time> NextDue(Time now) const;

  const Options options_;
  const int wake_fd_;  // an eventfd that the main thread watches
  std::atomic<bool> stop_ = false;
  std::atomic<bool> receiver_done_ = false;
  Claim claim_;
  bool opened_ = false;       // the queues are open, and ours to remove
  Queue requests_, replies_;  // the receiving thread waits on requests_ without the lock

  std::mutex mutex_;              // covers all members below
  std::condition_variable room_;  // the daemon is back, or fewer messages wait to be sent
  Peer& peer_;
  std::vector<Watched*> watched_;
  std::vector<Sink> sinks_;
  std::uint64_t events_ = 0;
  std::optional<Outgoing> stuck_;  // not sent because the reply queue was full; sent first, at retry_at_
  Time retry_at_ = 0;
  Time away_until_ = 0;  // set by a fault: until then nothing is read or sent
};

}  // namespace sim
