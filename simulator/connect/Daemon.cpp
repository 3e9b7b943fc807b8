// The daemon's two threads: receiving requests, and everything that has a time or a descriptor.
#include "simulator/connect/Daemon.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "simulator/model/Error.h"

namespace sim {
namespace {

constexpr std::size_t kMostWaiting = 1024;                 // messages to be sent; with more, no request is read
constexpr Time kRetry = 5 * kMillisecond;                  // delay before a full reply queue is tried again
constexpr auto kNudge = std::chrono::milliseconds(10);     // polling interval for what cannot be waited for
constexpr auto kStopNudge = std::chrono::milliseconds(1);  // the same while the daemon stops

}  // namespace

Time Daemon::Now() {
  using Clock = std::chrono::steady_clock;
  static const Clock::time_point start = Clock::now();
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
}

Daemon::Daemon(Peer& peer, Options options, Sink sink)
    : options_(std::move(options)),
      wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      peer_(peer),
      sinks_{std::move(sink)} {
  PrepareInterrupt();
}

Daemon::~Daemon() {
  Close();
  close(wake_fd_);
}

void Daemon::Open() {
  OpenQueues();
  if (requests_.HasReader()) {
    throw QueuesTaken(options_.key_path, requests_.LastReader());
  }
  opened_ = true;
}

void Daemon::OpenQueues() {
  claim_.Take(options_.key_path);
  requests_.Open(options_.key_path, kRequestProject);
  replies_.Open(options_.key_path, kReplyProject);
}

// Releases the claim last: otherwise the next simulator could claim the queues and then lose them.
void Daemon::Close() {
  if (std::exchange(opened_, false) && options_.remove_queues) {
    requests_.Remove();
    replies_.Remove();
  }
  claim_.Release();
}

void Daemon::Wake() {
  const std::uint64_t one = 1;
  (void)!write(wake_fd_, &one, sizeof one);
}

void Daemon::Stop() {
  stop_ = true;
  Wake();
}

void Daemon::Locked(const std::function<void(Time now)>& routine) {
  {
    const std::lock_guard lock(mutex_);
    const std::uint32_t restarts = peer_.Restarts();
    routine(Now());
    if (peer_.Restarts() != restarts) {
      Reset();
    }
  }
  Wake();
}

// Cancels what faults before the peer's restart have begun: the daemon is no longer away, and no old reply is sent.
void Daemon::Reset() {
  away_until_ = 0;
  stuck_.reset();
  room_.notify_all();
}

void Daemon::Tell(Event event) {
  event.number = ++events_;
  for (const Sink& sink : sinks_) {
    sink(event);
  }
}

// A queue has been removed: creates it again, as the tool does at its next start.
void Daemon::Reopen() {
  try {
    OpenQueues();
  } catch (const Error&) {
    std::this_thread::sleep_for(kNudge);  // the key path does not exist; it may be created again
  }
}

void Daemon::Receive() {
  QueueMessage message;
  while (!stop_) {
    const QueueResult result = requests_.Receive(message);
    std::unique_lock lock(mutex_);
    if (result != QueueResult::Done) {
      if (result != QueueResult::Interrupted && !stop_) {
        Reopen();
      }
    } else {
      const Time now = Now();
      std::string note = peer_.Request(message.type, message.body, now);
      Tell({now, Direction::Request, message.type, peer_.LastExchange(), message.body, std::move(note)});
      Flush(now);
      if (NextDue(now)) {
        Wake();
      }
    }
    // While the daemon is away, or too many messages wait to be sent, no request is read.
    while (!stop_ && (Now() < away_until_ || peer_.Waiting() > kMostWaiting)) {
      room_.wait_for(lock, kNudge);
    }
  }
  receiver_done_ = true;
}

void Daemon::Pause(const Outgoing& out, Time now) {
  if (out.kind == Outgoing::Kind::Restart) {
    requests_.Remove();
    replies_.Remove();
  }
  away_until_ = now + out.pause;
}

void Daemon::Flush(Time now) {
  if (now < away_until_ || (stuck_ && now < retry_at_)) {
    return;
  }
  if (replies_.id() == -1) {
    Reopen();
  }
  for (;;) {
    std::optional<Outgoing> out = stuck_ ? std::exchange(stuck_, std::nullopt) : peer_.Take(now);
    if (!out) {
      return;
    }
    if (out->kind != Outgoing::Kind::Message) {
      Pause(*out, now);
      return;
    }
    const QueueMessage message{out->type, out->body};
    QueueResult result = replies_.Send(message);
    if (result == QueueResult::Gone) {
      Reopen();
      result = replies_.Send(message);
    }
    if (result == QueueResult::Full && out->exchange != 0) {  // reports are dropped if the queue is full
      stuck_ = std::move(out);
      retry_at_ = now + kRetry;
      return;
    }
    Tell({now, Direction::Reply, out->type, out->exchange, std::move(out->body),
          result == QueueResult::Done ? out->note : "not sent: " + std::string(std::strerror(errno))});
  }
}

std::optional<Time> Daemon::NextDue(Time now) const {
  std::optional<Time> next = stuck_ ? retry_at_ : peer_.NextDue();
  for (const Watched* watched : watched_) {
    next = Earlier(next, watched->NextDue());
  }
  if (now < away_until_) {
    next = next ? std::max(*next, away_until_) : away_until_;
  }
  return next;
}

void Daemon::Run() {
  const sigset_t set = StopSignals();
  const int signal_fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  std::thread receiver([this] { Receive(); });
  std::unique_lock lock(mutex_);
  while (!stop_) {
    const Time now = Now();
    peer_.Advance(now);
    for (Watched* watched : watched_) {
      watched->OnTime(now);
    }
    Flush(now);
    room_.notify_all();
    const std::optional<Time> next = NextDue(now);
    timespec wait{};
    if (next) {
      const Time left = std::max<Time>(*next - now, 0);
      wait = {.tv_sec = left / kSecond, .tv_nsec = left % kSecond * 1000};
    }
    std::vector<pollfd> fds = {{signal_fd, POLLIN, 0}, {wake_fd_, POLLIN, 0}};
    const std::size_t own = fds.size();
    for (const Watched* watched : watched_) {
      fds.push_back({watched->Descriptor(), POLLIN, 0});
    }
    lock.unlock();
    ppoll(fds.data(), fds.size(), next ? &wait : nullptr, nullptr);
    lock.lock();
    std::uint64_t woken = 0;
    (void)!read(wake_fd_, &woken, sizeof woken);
    signalfd_siginfo info{};
    // Takes all pending signals: one that stayed pending would kill the process in DieOnStopSignals.
    while (read(signal_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
      stop_ = true;
    }
    for (std::size_t i = 0; i < watched_.size(); ++i) {
      if (fds[own + i].revents != 0) {
        watched_[i]->OnReadable(Now());
      }
    }
  }
  lock.unlock();
  // The receiving thread may be about to enter msgrcv when the signal arrives, so repeat it until the thread has ended.
  while (!receiver_done_) {
    Interrupt(receiver.native_handle());
    room_.notify_all();
    std::this_thread::sleep_for(kStopNudge);
  }
  receiver.join();
  close(signal_fd);
  Close();
}

}  // namespace sim
