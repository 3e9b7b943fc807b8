// The system calls on the queues and on the semaphore of the claim.
#include "simulator/connect/Queues.h"

#include <signal.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

#include "simulator/model/Error.h"

namespace sim {
namespace {

constexpr int kForAll = 0666;
constexpr long kProbeType = std::numeric_limits<std::int32_t>::max();  // the tool's types are smaller
constexpr std::size_t kProbeSize = 36;  // as relay messages, but they never start with zeros, as the probe does
constexpr int kProbeLooks = 50;         // how often to look whether a busy reader has taken the probe
constexpr auto kProbeLook = std::chrono::milliseconds(2);

// The kernel's message: a native long, then the body.
struct KernelMessage {
  long type;
  std::array<std::uint8_t, kMaxMessage> body;
};

// A tool that started first has created the queues write-only (0222) or read-only (0444) for everyone. Their owner may
// add permissions. The state of a write-only queue cannot be read; it is then set with the default limit.
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

Error NoQueues(const std::string& path) { return Error("no message queues on " + path + ": " + std::strerror(errno)); }

Error NoKey(const std::string& path) {
  return Error(std::string(NoQueues(path).what()) +
               " (the keys of the queues are derived from this file, which may be empty; clients other than testZR4410 "
               "may use another one: --key-path)");
}

// Returns whether the process exists and is not this one.
bool Exists(pid_t process) { return process > 0 && process != getpid() && (kill(process, 0) == 0 || errno == EPERM); }

// Returns whether somebody may wait for a message of that type. Clients other than the tool may use type 1, and process
// 1 always exists.
bool Waits(pid_t type) { return type != 1 && Exists(type); }

}  // namespace

Error QueuesTaken(const std::string& path, pid_t process) {
  return Error((process > 0 ? "process " + std::to_string(process) : "a process of another container") +
               " already serves the queues of " + path);
}

void Queue::Open(const std::string& path, int project) {
  const key_t key = ftok(path.c_str(), project);
  if (key == -1) {
    throw NoKey(path);  // id_ keeps its value: an open queue stays in use
  }
  id_ = msgget(key, IPC_CREAT | kForAll);
  if (id_ == -1 && errno == EACCES) {
    id_ = msgget(key, 0);
    if (id_ != -1 && !Widen(id_)) {
      id_ = -1;
      errno = EACCES;
    }
  }
  if (id_ == -1) {
    throw NoQueues(path);
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

std::size_t Queue::Empty() {
  KernelMessage message;
  std::size_t count = 0;
  std::vector<QueueMessage> kept;
  for (ssize_t size = 0; (size = msgrcv(id_, &message, kMaxMessage, 0, MSG_NOERROR | IPC_NOWAIT)) >= 0;) {
    if (Waits(static_cast<pid_t>(message.type))) {
      kept.push_back({static_cast<std::int32_t>(message.type), {message.body.begin(), message.body.begin() + size}});
    } else {
      ++count;
    }
  }
  for (const QueueMessage& one : kept) {
    count += Send(one) == QueueResult::Done ? 0 : 1;
  }
  return count;
}

// A process that waits in msgrcv takes the probe at once. A busy one takes it soon: that is worth waiting for only if
// the process that received the last message still exists.
bool Queue::HasReader() {
  KernelMessage probe{};
  probe.type = kProbeType;
  if (msgsnd(id_, &probe, kProbeSize, IPC_NOWAIT) != 0) {
    return false;  // the queue is full: nobody has read it for a while
  }
  const auto waits = [this] {
    msqid_ds state{};
    return msgctl(id_, IPC_STAT, &state) == 0 && state.msg_qnum != 0;
  };
  const bool exists = Exists(LastReader());
  for (int look = 0; exists && look < kProbeLooks && waits(); ++look) {
    std::this_thread::sleep_for(kProbeLook);
  }
  return msgrcv(id_, &probe, kMaxMessage, kProbeType, MSG_NOERROR | IPC_NOWAIT) < 0 && errno == ENOMSG;
}

pid_t Queue::LastReader() const {
  msqid_ds state{};
  return msgctl(id_, IPC_STAT, &state) == 0 ? state.msg_lrpid : 0;
}

void Claim::Take(const std::string& path) {
  const key_t key = ftok(path.c_str(), kRequestProject);
  if (key == -1) {
    throw NoKey(path);
  }
  for (;;) {
    const int id = semget(key, 1, IPC_CREAT | kForAll);
    if (id == -1) {
      throw NoQueues(path);
    }
    if (id == id_) {
      return;
    }
    // Adds one if it is zero. The kernel undoes this when the process ends (SEM_UNDO).
    sembuf wait_and_take[] = {{0, 0, IPC_NOWAIT}, {0, 1, IPC_NOWAIT | SEM_UNDO}};
    if (semop(id, wait_and_take, std::size(wait_and_take)) == 0) {
      Release();
      id_ = id;
      return;
    }
    if (errno == EAGAIN) {
      throw QueuesTaken(path, semctl(id, 0, GETPID));
    }
    if (errno != EIDRM && errno != EINVAL) {  // in these cases another simulator is exiting, so try again
      throw NoQueues(path);
    }
  }
}

void Claim::Release() {
  if (id_ != -1 && semctl(id_, 0, IPC_RMID) != 0) {
    sembuf give{0, -1, IPC_NOWAIT | SEM_UNDO};  // another user owns it, so it cannot be removed
    semop(id_, &give, 1);
  }
  id_ = -1;
}

}  // namespace sim
