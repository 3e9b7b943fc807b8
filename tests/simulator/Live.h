// Message queues of a test's own, seen from the tool's side, and waiting for what happens in another thread.
#pragma once

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// Waits until the condition holds; false after a minute, which is for very busy machines.
template <typename Condition>
bool Eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

class TestQueues {
 public:
  struct Message {
    std::int32_t type = 0;
    std::vector<std::uint8_t> body;
  };

  // Makes a key file whose keys nobody uses.
  TestQueues() {
    do {
      if (!path_.empty()) {
        spare_.push_back(path_);
      }
      char name[] = "/tmp/simZR4410.XXXXXX";
      const int file = mkstemp(name);
      path_ = name;
      close(file);
    } while (Exist());
    for (const std::string& path : spare_) {
      unlink(path.c_str());
    }
  }
  ~TestQueues() {
    Remove();
    unlink(path_.c_str());
  }
  TestQueues(const TestQueues&) = delete;
  TestQueues& operator=(const TestQueues&) = delete;

  const std::string& path() const { return path_; }
  int Lookup(int project) const { return msgget(ftok(path_.c_str(), project), 0); }
  bool Exist() const { return Lookup('b') != -1 && Lookup('a') != -1; }
  void Attach() {
    requests_ = Lookup('b');
    replies_ = Lookup('a');
  }
  int id(int project) const { return project == 'b' ? requests_ : replies_; }
  unsigned Mode(int project) const {
    msqid_ds state{};
    msgctl(id(project), IPC_STAT, &state);
    return state.msg_perm.mode & 0777U;
  }
  void Remove() const {
    for (const char project : {'a', 'b'}) {
      msgctl(Lookup(project), IPC_RMID, nullptr);
    }
  }
  bool Waiting() const {
    msqid_ds state{};
    return msgctl(replies_, IPC_STAT, &state) == 0 && state.msg_qnum != 0;
  }

  void Send(std::int32_t type, const std::vector<std::uint8_t>& body) const {
    Kernel message{type, {}};
    std::copy(body.begin(), body.end(), message.body);
    while (msgsnd(requests_, &message, body.size(), 0) != 0 && errno == EINTR) {
    }
  }
  // Waits for a minute at most.
  std::optional<Message> Receive() const {
    Kernel message{};
    ssize_t size = -1;
    for (int spin = 0; spin < 1000 && size < 0; ++spin) {
      size = msgrcv(replies_, &message, sizeof message.body, 0, IPC_NOWAIT);
    }
    if (size < 0) {
      Eventually([&] {
        return (size = msgrcv(replies_, &message, sizeof message.body, 0, IPC_NOWAIT)) >= 0 || errno != ENOMSG;
      });
    }
    if (size < 0) {
      return std::nullopt;
    }
    return Message{static_cast<std::int32_t>(message.type), {message.body, message.body + size}};
  }

 private:
  struct Kernel {
    long type;
    std::uint8_t body[8192];
  };
  std::string path_;
  std::vector<std::string> spare_;
  int requests_ = -1;
  int replies_ = -1;
};
