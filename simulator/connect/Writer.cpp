// Buffers the items, writes them on a thread, and stops that thread.
#include "simulator/connect/Writer.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "simulator/connect/Signals.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kBatch = 64;                // items that are written together
constexpr auto kLook = milliseconds(2);           // how often Finish checks whether the thread has ended
constexpr auto kMostPatience = milliseconds(50);  // after the deadline, while the descriptor accepts more
constexpr auto kInterrupting = milliseconds(30);  // how long to interrupt a thread before it is left behind
constexpr int kShortWait = 20;                    // ms

std::size_t Size(const Writer::Item& item) {
  if (const auto* const event = std::get_if<Event>(&item)) {
    return sizeof item + event->body.size() + event->note.size();
  }
  return sizeof item + std::get<std::string>(item).size();
}

// Waits up to `wait_ms` until the descriptor accepts some bytes. Returns whether it does.
bool Takes(int descriptor, int wait_ms) {
  pollfd ready{descriptor, POLLOUT, 0};
  return poll(&ready, 1, wait_ms) == 1;
}

}  // namespace

struct Writer::Shared {
  Shared(int descriptor_, Limits limits_, Routines routines_)
      : descriptor(descriptor_), limits(limits_), routines(std::move(routines_)) {}

  struct Entry {
    Item item;
    std::uint64_t dropped;  // items just before it
  };
  void WriteAll(const std::string& text, const std::vector<std::size_t>& ends, std::unique_lock<std::mutex>& lock);

  const int descriptor;
  const Limits limits;
  const Routines routines;

  std::mutex mutex;  // covers all members below
  std::condition_variable work;
  std::condition_variable end;
  std::deque<Entry> waiting;
  std::size_t bytes = 0;
  bool full = false;          // an item did not fit: only half of each limit applies until one fits again
  std::uint64_t dropped = 0;  // items after the last entry
  bool closed = false;
  bool abandoned = false;
  bool done = false;
  Outcome outcome;
};

Writer::Writer(int descriptor, Limits limits, Routines routines)
    : shared_(std::make_shared<Shared>(descriptor, limits, std::move(routines))) {
  PrepareInterrupt();
  thread_ = std::thread([shared = shared_] { Work(shared); });
}

Writer::~Writer() { Finish(Clock::now()); }

void Writer::Put(Item item) {
  Shared& my = *shared_;
  const std::size_t size = Size(item);
  const std::lock_guard lock(my.mutex);
  if (my.closed || my.outcome.error != 0) {
    return;
  }
  const std::size_t part = my.full ? 2 : 1;
  if (my.waiting.size() >= my.limits.items / part || my.bytes + size > my.limits.bytes / part) {
    my.full = true;
    ++my.dropped;
    ++my.outcome.lost;
    return;
  }
  my.full = false;
  my.bytes += size;
  my.waiting.push_back({std::move(item), std::exchange(my.dropped, 0)});
  if (my.waiting.size() == 1) {
    my.work.notify_one();
  }
}

// Called and returns with the lock held; releases it while it writes. `ends`: where each item in `text` ends.
void Writer::Shared::WriteAll(const std::string& text, const std::vector<std::size_t>& ends,
                              std::unique_lock<std::mutex>& lock) {
  std::size_t written = 0;
  int error = 0;
  while (written < text.size() && error == 0 && !abandoned) {
    lock.unlock();
    const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {  // another process has made the descriptor non-blocking
      Takes(descriptor, kShortWait);
    } else if (errno != EINTR) {
      error = errno;
    }
    lock.lock();
  }
  for (const std::size_t item_end : ends) {
    outcome.lost += item_end > written ? 1 : 0;
  }
  if (error != 0) {
    outcome.error = error;
    outcome.lost += waiting.size();
    waiting.clear();
    if (!abandoned) {
      lock.unlock();
      routines.failed(error);
      lock.lock();
    }
  }
}

void Writer::Work(const std::shared_ptr<Shared>& shared) {
  Shared& my = *shared;
  std::unique_lock lock(my.mutex);
  for (;;) {
    my.work.wait(lock, [&my] { return !my.waiting.empty() || my.dropped != 0 || my.closed; });
    if (my.abandoned || (my.waiting.empty() && my.dropped == 0)) {
      break;
    }
    std::vector<Shared::Entry> batch;
    for (; !my.waiting.empty() && batch.size() < kBatch; my.waiting.pop_front()) {
      batch.push_back(std::move(my.waiting.front()));
      my.bytes -= Size(batch.back().item);
    }
    const std::uint64_t dropped_after = my.waiting.empty() ? std::exchange(my.dropped, 0) : 0;
    lock.unlock();
    std::string text;
    std::vector<std::size_t> ends;
    const auto add_dropped = [&my, &text](std::uint64_t count) {
      if (count != 0) {
        text += my.routines.dropped(count) + '\n';
      }
    };
    for (const auto& [item, dropped] : batch) {
      add_dropped(dropped);
      const auto* const event = std::get_if<Event>(&item);
      text += (event != nullptr ? my.routines.message(*event) : std::get<std::string>(item)) + '\n';
      ends.push_back(text.size());
    }
    add_dropped(dropped_after);
    lock.lock();
    my.WriteAll(text, ends, lock);
  }
  my.outcome.lost += my.waiting.size();
  my.waiting.clear();
  my.done = true;
  my.end.notify_all();
}

std::uint64_t Writer::Lost() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->outcome.lost;
}

void Writer::Close() {
  const std::lock_guard lock(shared_->mutex);
  shared_->closed = true;
  shared_->work.notify_one();
}

Writer::Outcome Writer::Finish(Clock::time_point deadline) {
  Close();
  std::unique_lock lock(shared_->mutex);
  std::optional<Clock::time_point> interrupted;
  while (thread_.joinable() && !shared_->done) {
    shared_->end.wait_for(lock, kLook);
    const auto now = Clock::now();
    if (shared_->done || now < deadline) {
      continue;
    }
    if (!interrupted && (now > deadline + kMostPatience || !Takes(shared_->descriptor, 0))) {
      shared_->abandoned = true;
      interrupted = now;
    }
    if (interrupted && now > *interrupted + kInterrupting) {
      shared_->outcome.stuck = true;
      thread_.detach();
    } else if (interrupted) {
      Interrupt(thread_.native_handle());
    }
  }
  const Outcome outcome = shared_->outcome;
  lock.unlock();
  if (thread_.joinable()) {
    thread_.join();
  }
  return outcome;
}

void WriteLine(int descriptor, std::string_view line) {
  const std::string text = std::string(line) + '\n';
  if (Takes(descriptor, kShortWait)) {
    (void)!write(descriptor, text.data(), text.size());
  }
}

}  // namespace sim
