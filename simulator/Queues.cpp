#include "simulator/Queues.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace sim {
namespace {

constexpr std::size_t kMaxBody = 8192;  // the kernel's own default limit; where it was raised, the rest is cut off

// The kernel's message: a native long, 64 bits on most hosts, then the body.
struct KernelMessage {
  long type;
  std::array<std::uint8_t, kMaxBody> body;
};

// A tool that came first made the queues write-only (0222) or read-only (0444) for everyone. Their owner may widen
// that; the state may be unreadable, so it is written from scratch.
bool Widen(int id) {
  msqid_ds state{};
  if (msgctl(id, IPC_STAT, &state) != 0) {
    msginfo limits{};
    msgctl(id, IPC_INFO, reinterpret_cast<msqid_ds*>(&limits));
    state.msg_perm.uid = geteuid();
    state.msg_perm.gid = getegid();
    state.msg_qbytes = static_cast<msglen_t>(limits.msgmnb);
  }
  state.msg_perm.mode = 0666;
  return msgctl(id, IPC_SET, &state) == 0;
}

}  // namespace

bool Queue::Open(const std::string& path, int project) {
  const key_t key = ftok(path.c_str(), project);
  if (key == -1) {
    return false;
  }
  id_ = msgget(key, IPC_CREAT | 0666);
  if (id_ == -1 && errno == EACCES) {
    id_ = msgget(key, 0);
    if (id_ != -1 && !Widen(id_)) {
      id_ = -1;
      errno = EACCES;
    }
  }
  return id_ != -1;
}

std::optional<QueueMessage> Queue::Receive() {
  static thread_local KernelMessage message;
  const ssize_t size = msgrcv(id_, &message, kMaxBody, 0, MSG_NOERROR);
  if (size < 0) {
    return std::nullopt;
  }
  return QueueMessage{static_cast<std::int32_t>(message.type),
                      Bytes(message.body.begin(), message.body.begin() + size)};
}

bool Queue::Send(const QueueMessage& message) {
  KernelMessage out;
  out.type = message.type;
  const std::size_t size = std::min(message.body.size(), kMaxBody);
  std::copy_n(message.body.begin(), size, out.body.begin());
  return msgsnd(id_, &out, size, IPC_NOWAIT) == 0;
}

void Queue::Remove() {
  if (id_ != -1) {
    msgctl(id_, IPC_RMID, nullptr);
    id_ = -1;
  }
}

}  // namespace sim
