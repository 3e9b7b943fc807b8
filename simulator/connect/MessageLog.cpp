// Keeps and selects the messages. They are described in portions, without the lock that Add waits for.
#include "simulator/connect/MessageLog.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::size_t kPortion = 64;                    // messages copied at a time; Add waits meanwhile
constexpr auto kLook = std::chrono::milliseconds(250);  // how often Wait calls `left`

bool Contains(ByteView bytes, ByteView part) {
  return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end() || part.empty();
}

}  // namespace

void MessageLog::Add(const Event& event) {
  const std::lock_guard lock(mutex_);
  entries_.push_back({{event, ""}, false});
  bytes_ += event.body.size();
  last_ = event.number;
  while (entries_.size() > most_ || bytes_ > most_bytes_) {
    bytes_ -= entries_.front().message.event.body.size();
    entries_.pop_front();
  }
  more_.notify_all();
}

// Returns the first message from `number` on; nullptr if there is none. mutex_ must be held.
MessageLog::Entry* MessageLog::Find(std::uint64_t number) {
  const auto it = std::lower_bound(entries_.begin(), entries_.end(), number,
                                   [](const Entry& entry, std::uint64_t n) { return entry.message.event.number < n; });
  return it == entries_.end() ? nullptr : &*it;
}

// Describes the messages added since the last call. The dissector sees each message once, in order, because
// the meaning of a reply depends on its request.
void MessageLog::Describe() {
  const std::lock_guard describing(describing_);
  const std::uint64_t last = Last();
  std::vector<Message> portion;
  do {
    portion.clear();
    {
      const std::lock_guard lock(mutex_);
      for (const Entry* entry; portion.size() < kPortion && (entry = Find(described_ + 1)) != nullptr;) {
        portion.push_back(entry->message);
        described_ = entry->message.event.number;
      }
    }
    for (Message& message : portion) {
      message.meaning = dissector_.Meaning(message.event);
    }
    const std::lock_guard lock(mutex_);
    for (Message& message : portion) {
      Entry* const entry = Find(message.event.number);
      if (entry != nullptr && entry->message.event.number == message.event.number) {
        entry->message.meaning = std::move(message.meaning);
        entry->described = true;
      }
    }
  } while (!portion.empty() && described_ < last);
}

MessageLog::List MessageLog::Select(const Filter& filter, std::size_t most) {
  Describe();
  List list;
  list.last = filter.since;
  for (bool more = true; more;) {
    const std::lock_guard lock(mutex_);
    more = false;
    for (std::size_t seen = 0; list.messages.size() < most; ++seen) {
      const Entry* const entry = Find(list.last + 1);
      if (entry == nullptr || !entry->described) {
        break;
      }
      if (seen == kPortion) {
        more = true;
        break;
      }
      const std::uint64_t number = entry->message.event.number;
      list.dropped += number - list.last - 1;
      list.last = number;
      if (Contains(entry->message.event.body, filter.match)) {
        list.messages.push_back(entry->message);
      }
    }
  }
  return list;
}

MessageLog::List MessageLog::After(const Filter& filter) { return Select(filter, most_); }

MessageLog::List MessageLog::Wait(const Filter& filter, std::size_t most, std::chrono::steady_clock::time_point end,
                                  const Left& left) {
  Filter next = filter;
  std::uint64_t dropped = 0;
  for (;;) {
    List list = Select(next, most);
    list.dropped = dropped += list.dropped;
    const auto now = std::chrono::steady_clock::now();
    if (!list.messages.empty() || now >= end || (left && left())) {
      return list;
    }
    std::unique_lock lock(mutex_);
    more_.wait_until(lock, std::min(end, now + kLook), [&] { return stopped_ || last_ > list.last; });
    if (stopped_) {
      return list;
    }
    next.since = list.last;
  }
}

std::vector<Event> MessageLog::Newest(std::uint64_t since, std::size_t most) const {
  const std::lock_guard lock(mutex_);
  std::vector<Event> events;
  for (auto it = entries_.rbegin(); it != entries_.rend() && events.size() < most; ++it) {
    if (it->message.event.number <= since) {
      break;
    }
    events.push_back(it->message.event);
  }
  std::ranges::reverse(events);
  return events;
}

bool MessageLog::WaitForStop(std::chrono::steady_clock::time_point end) {
  std::unique_lock lock(mutex_);
  return stop_.wait_until(lock, end, [this] { return stopped_; });
}

std::uint64_t MessageLog::Last() const {
  const std::lock_guard lock(mutex_);
  return last_;
}

void MessageLog::Stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  more_.notify_all();
  stop_.notify_all();
}

bool MessageLog::stopped() const {
  const std::lock_guard lock(mutex_);
  return stopped_;
}

}  // namespace sim
