// What the tests with other threads or processes share: waiting for a condition, message queues of their own as the
// tool sees them, and one end of a terminal.
#pragma once

#include <poll.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
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

#include "tests/simulator/Support.h"

// Waits until the condition holds. Returns false if it does not within a minute, which is long even on a busy machine.
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

  // Creates a key file whose keys are not in use.
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
    semctl(semget(ftok(path_.c_str(), 'b'), 0, 0), 0, IPC_RMID);  // the claim of a simulator that was killed
  }
  // Return the state of the reply queue.
  bool Waiting() const { return ReplyState().msg_qnum != 0; }
  bool Full() const {
    const msqid_ds state = ReplyState();
    return state.__msg_cbytes + kMessageSize > state.msg_qbytes;
  }

  void Send(std::int32_t type, const std::vector<std::uint8_t>& body) const {
    Kernel message{type, {}};
    std::copy(body.begin(), body.end(), message.body);
    while (msgsnd(requests_, &message, body.size(), 0) != 0 && errno == EINTR) {
    }
  }
  // Waits for at most a minute.
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
  msqid_ds ReplyState() const {
    msqid_ds state{};
    msgctl(replies_, IPC_STAT, &state);
    return state;
  }

  struct Kernel {
    long type;
    std::uint8_t body[8192];
  };
  std::string path_;
  std::vector<std::string> spare_;
  int requests_ = -1;
  int replies_ = -1;
};

// One end of a terminal.
class TerminalLine {
 public:
  explicit TerminalLine(int file) : file_(file) {}
  ~TerminalLine() { close(file_); }
  void Write(const std::string& hex) const {
    const Packet bytes = B(hex);
    EXPECT_EQ(write(file_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // Reads `count` bytes, or what comes within the time limit.
  std::string Read(std::size_t count) const {
    Packet bytes;
    while (bytes.size() < count) {
      pollfd wait{file_, POLLIN, 0};
      std::uint8_t byte = 0;
      if (poll(&wait, 1, kLimitMs) != 1 || read(file_, &byte, 1) != 1) {
        break;
      }
      bytes.push_back(byte);
    }
    return Hex(bytes);
  }

 private:
  static constexpr int kLimitMs = 20000;
  int file_;
};
