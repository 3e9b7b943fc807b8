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

// A message is cut to so many bytes: the kernel's own default limit.
constexpr std::size_t kMaxMessage = 8192;

// What came of a call on a queue.
enum class QueueResult : std::uint8_t {
  Done,
  Full,         // Send: there is no room
  Interrupted,  // Receive: by a signal
  Gone,         // the queue has been removed
  Failed,       // for another reason, in errno
};

// One queue. One thread may wait in Receive while another one opens, sends or removes.
class Queue {
 public:
  // Opens the queue of the key that ftok makes of `path` and `project`; makes it if there is none. Throws Error.
  void Open(const std::string& path, int project);
  // Waits for a message.
  QueueResult Receive(QueueMessage& message);
  // Never waits.
  QueueResult Send(const QueueMessage& message);
  void Remove();
  // The kernel's number of the queue; -1 before Open and after Remove.
  int id() const { return id_; }

 private:
  std::atomic<int> id_ = -1;
};

constexpr int kRequestProject = 'b';
constexpr int kReplyProject = 'a';
constexpr const char* kDefaultKeyPath = "/defconf/conf.ptz";

}  // namespace sim
