// The two System V queues between the daemon and the tool.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "simulator/model/Bytes.h"

namespace sim {

struct QueueMessage {
  std::int32_t type = 0;
  Bytes body;
};

// Longer messages are cut to this size, the kernel's default limit.
constexpr std::size_t kMaxMessage = 8192;

// The result of a call on a queue.
enum class QueueResult : std::uint8_t {
  Done,
  Full,         // Send: there is no room
  Interrupted,  // Receive: a signal arrived
  Gone,         // the queue has been removed
  Failed,       // another error, in errno
};

// One queue. One thread may wait in Receive while another one opens, sends or removes.
class Queue {
 public:
  // Opens the queue whose key ftok derives from `path` and `project`; creates it if there is none. Throws Error.
  void Open(const std::string& path, int project);
  // Waits for a message.
  QueueResult Receive(QueueMessage& message);
  // Never waits.
  QueueResult Send(const QueueMessage& message);
  void Remove();
  // The kernel's id of the queue; -1 before Open and after Remove.
  int id() const { return id_; }

 private:
  std::atomic<int> id_ = -1;
};

constexpr int kRequestProject = 'b';
constexpr int kReplyProject = 'a';
constexpr const char* kDefaultKeyPath = "/defconf/conf.ptz";

}  // namespace sim
