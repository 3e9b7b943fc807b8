// The two System V queues between the daemon and the tool, and the claim of the daemon that serves them.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "simulator/model/Bytes.h"
#include "simulator/model/Error.h"

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
  // Waits for a message. Sets `message` only if the result is Done.
  QueueResult Receive(QueueMessage& message);
  // Never waits.
  QueueResult Send(const QueueMessage& message);
  // Removes the queue from the system.
  void Remove();
  // Removes the messages that nobody waits for and returns how many there were. A message of the tool carries the
  // tool's process id as its type, and so does its reply: while that process exists, neither is removed.
  std::size_t Empty();
  // Returns whether a process reads this queue: it waits for a message, or will take one soon. Finds out with a probe,
  // a message that is not a request.
  bool HasReader();
  // The process that has received the last message; 0 if there is none, or it is in another container.
  pid_t LastReader() const;
  // The kernel's id of the queue; -1 before Open and after Remove.
  int id() const { return id_; }

 private:
  std::atomic<int> id_ = -1;
};

// At most one simulator serves a pair of queues. The claim is a System V semaphore beside the request queue, with the
// same key. It is visible where the queues are, in the same IPC namespace and to every user, and the kernel releases it
// when the process ends, even if it is killed.
class Claim {
 public:
  Claim() = default;
  ~Claim() { Release(); }
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;
  // Claims the queues of that key file. Throws Error if another process has claimed them, and names it.
  void Take(const std::string& path);
  void Release();

 private:
  int id_ = -1;
};

// Returns the error for queues that another process serves; `process` is 0 if it is not known.
Error QueuesTaken(const std::string& path, pid_t process);

constexpr int kRequestProject = 'b';
constexpr int kReplyProject = 'a';
constexpr const char* kDefaultKeyPath = "/defconf/conf.ptz";

}  // namespace sim
