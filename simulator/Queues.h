// The two System V queues, seen from the daemon's side.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "simulator/Wire.h"

namespace sim {

struct QueueMessage {
  std::int32_t type = 0;
  Bytes body;
};

// One queue, made when it is missing. Every call that fails leaves errno as it found the reason.
class Queue {
 public:
  // The key is ftok's of the path; false when there is none or the queue cannot be had.
  bool Open(const std::string& path, int project);
  // Waits; nothing after a signal (EINTR) or when the queue is gone (EIDRM, EINVAL).
  std::optional<QueueMessage> Receive();
  // Never waits: EAGAIN when the queue is full.
  bool Send(const QueueMessage& message);
  void Remove();
  int id() const { return id_; }

 private:
  std::atomic<int> id_ = -1;  // one thread may wait on the queue while another makes it anew
};

constexpr int kRequestProject = 'b';
constexpr int kReplyProject = 'a';
constexpr const char* kDefaultKeyPath = "/defconf/conf.ptz";

}  // namespace sim
