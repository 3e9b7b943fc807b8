#include "simulator/connect/Queues.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "simulator/model/Error.h"

namespace sim {
namespace {

constexpr int kForAll = 0666;

// The kernel's message: a native long, then the body.
struct KernelMessage {
  long type;
  std::array<std::uint8_t, kMaxMessage> body;
};

// A tool that started first has created the queues write-only (0222) or read-only (0444) for everyone. Their owner may
// add permissions. The queue's state may be unreadable, so it is set without being read first.
bool Widen(int id) {
  msqid_ds state{};
  if (msgctl(id, IPC_STAT, &state) != 0) {
    msginfo limits{};
    msgctl(id, IPC_INFO, reinterpret_cast<msqid_ds*>(&limits));
    state.msg_perm.uid = geteuid();
    state.msg_perm.gid = getegid();
    state.msg_qbytes = static_cast<msglen_t>(limits.msgmnb);
  }
  state.msg_perm.mode = kForAll;
  return msgctl(id, IPC_SET, &state) == 0;
}

// Returns the result of a call that failed with errno.
QueueResult Failure() {
  switch (errno) {
    case EAGAIN:
      return QueueResult::Full;
    case EINTR:
      return QueueResult::Interrupted;
    case EIDRM:
    case EINVAL:
      return QueueResult::Gone;
    default:
      return QueueResult::Failed;
  }
}

}  // namespace

void Queue::Open(const std::string& path, int project) {
  const key_t key = ftok(path.c_str(), project);
  if (key != -1) {  // otherwise a queue that is open stays in use
    id_ = msgget(key, IPC_CREAT | kForAll);
    if (id_ == -1 && errno == EACCES) {
      id_ = msgget(key, 0);
      if (id_ != -1 && !Widen(id_)) {
        id_ = -1;
        errno = EACCES;
      }
    }
  }
  if (key == -1 || id_ == -1) {
    throw Error("no message queues on " + path + ": " + std::strerror(errno));
  }
}

QueueResult Queue::Receive(QueueMessage& message) {
  static thread_local KernelMessage received;
  const ssize_t size = msgrcv(id_, &received, kMaxMessage, 0, MSG_NOERROR);
  if (size < 0) {
    return Failure();
  }
  message.type = static_cast<std::int32_t>(received.type);
  message.body.assign(received.body.begin(), received.body.begin() + size);
  return QueueResult::Done;
}

QueueResult Queue::Send(const QueueMessage& message) {
  KernelMessage out;
  out.type = message.type;
  const std::size_t size = std::min(message.body.size(), kMaxMessage);
  std::copy_n(message.body.begin(), size, out.body.begin());
  return msgsnd(id_, &out, size, IPC_NOWAIT) == 0 ? QueueResult::Done : Failure();
}

void Queue::Remove() {
  if (id_ != -1) {
    msgctl(id_, IPC_RMID, nullptr);
    id_ = -1;
  }
}

}  // namespace sim
