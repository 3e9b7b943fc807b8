#include "simulator/Daemon.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace sim {
namespace {

constexpr std::size_t kMostWaiting = 1024;  // then requests stay in their queue
constexpr Time kRetry = 5 * kMillisecond;   // a full reply queue is tried again
constexpr auto kNudge = std::chrono::milliseconds(10);

sigset_t StopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

Time Daemon::Now() {
  using Clock = std::chrono::steady_clock;
  static const Clock::time_point start = Clock::now();
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
}

void Daemon::BlockSignals() {
  const sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Daemon::Daemon(Peer& peer, Options options, Sink sink)
    : peer_(peer),
      options_(std::move(options)),
      sink_(std::move(sink)),
      wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  // Ends a msgrcv: does nothing, but without SA_RESTART the call returns.
  struct sigaction nudge {};
  nudge.sa_handler = [](int) {};
  sigaction(SIGUSR2, &nudge, nullptr);
}

Daemon::~Daemon() { close(wake_fd_); }

bool Daemon::Open(std::string& error) {
  if (requests_.Open(options_.key_path, kRequestProject) && replies_.Open(options_.key_path, kReplyProject)) {
    return true;
  }
  error = "no message queues on " + options_.key_path + ": " + std::strerror(errno);
  return false;
}

void Daemon::Wake() {
  const std::uint64_t one = 1;
  (void)!write(wake_fd_, &one, sizeof one);
}

void Daemon::Stop() {
  stop_ = true;
  Wake();
}

// Somebody removed a queue: make it anew, as the tool does at its next start.
void Daemon::Reopen() {
  std::string error;
  if (!Open(error)) {
    std::this_thread::sleep_for(kNudge);  // the key path is gone; it may come back
  }
}

void Daemon::Receive() {
  while (!stop_) {
    const std::optional<QueueMessage> message = requests_.Receive();
    const int error = errno;
    std::unique_lock lock(mutex_);
    if (!message) {
      if (error != EINTR && !stop_) {
        Reopen();
      }
    } else {
      const Time now = Now();
      Event event{now, Direction::Request, message->type, 0, message->body, ""};
      event.note = peer_.Request(message->type, message->body, now);
      event.exchange = peer_.LastExchange();
      sink_(event);
      Flush(now);
      if (NextDue(now)) {
        Wake();
      }
    }
    // While the daemon is away, or too much waits to be sent, requests stay where they are.
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
    bool sent = replies_.Send(message);
    if (!sent && (errno == EIDRM || errno == EINVAL)) {
      Reopen();
      sent = replies_.Send(message);
    }
    if (!sent && errno == EAGAIN && out->exchange != 0) {  // what nobody asked for is not worth waiting for
      stuck_ = std::move(out);
      retry_at_ = now + kRetry;
      return;
    }
    sink_({now, Direction::Reply, out->type, out->exchange, std::move(out->body),
           sent ? out->note : "not sent: " + std::string(std::strerror(errno))});
  }
}

std::optional<Time> Daemon::NextDue(Time now) const {
  std::optional<Time> next = peer_.NextDue();
  if (stuck_) {
    next = retry_at_;
  }
  for (const Watched* watched : watched_) {
    const auto due = watched->NextDue();
    next = next && due ? std::min(*next, *due) : next ? next : due;
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
    for (const Watched* watched : watched_) {
      fds.push_back({watched->Descriptor(), POLLIN, 0});
    }
    lock.unlock();
    ppoll(fds.data(), fds.size(), next ? &wait : nullptr, nullptr);
    lock.lock();
    std::uint64_t woken = 0;
    (void)!read(wake_fd_, &woken, sizeof woken);
    signalfd_siginfo info{};
    if (read(signal_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
      stop_ = true;
    }
    for (std::size_t i = 0; i < watched_.size(); ++i) {
      if (fds[i + 2].revents != 0) {
        watched_[i]->OnReadable(Now());
      }
    }
  }
  lock.unlock();
  // The receiver may be about to enter msgrcv when the signal comes: again until it has gone.
  while (!receiver_done_) {
    pthread_kill(receiver.native_handle(), SIGUSR2);
    room_.notify_all();
    std::this_thread::sleep_for(kNudge / 10);
  }
  receiver.join();
  close(signal_fd);
  if (options_.remove_queues) {
    requests_.Remove();
    replies_.Remove();
  }
}

}  // namespace sim
