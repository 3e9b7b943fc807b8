// Runs simZR4410 as a process of its own, and reads what it prints.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulator/Live.h"

class Running {
 public:
  static constexpr int kClosed = -2;
  // `output`, `errors`: descriptors to print to instead of this object; kClosed: the program starts without it.
  explicit Running(std::vector<std::string> arguments, const std::string& input = "", int output = -1,
                   int errors = -1) {
    int out[2];
    int in[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    arguments.insert(arguments.begin(), SIM_PROGRAM);
    std::vector<char*> argv;
    std::ranges::transform(arguments, std::back_inserter(argv), [](std::string& argument) { return argument.data(); });
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      sigset_t none;  // other tests of this executable block the stop signals
      sigemptyset(&none);
      sigprocmask(SIG_SETMASK, &none, nullptr);
      dup2(in[0], STDIN_FILENO);
      dup2(output >= 0 ? output : out[1], STDOUT_FILENO);
      dup2(errors >= 0 ? errors : out[1], STDERR_FILENO);
      for (const auto& [given, descriptor] : {std::pair(output, STDOUT_FILENO), std::pair(errors, STDERR_FILENO)}) {
        if (given == kClosed) {
          close(descriptor);
        }
      }
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(out[1]);
    close(in[0]);
    EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    close(in[1]);
    out_ = out[0];
  }
  ~Running() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(out_);
  }
  // Reads until the text has arrived. Returns false if the output ends first, or nothing arrives for a minute.
  bool Await(const std::string& text) {
    char buffer[4096];
    while (out_ >= 0 && output_.find(text) == std::string::npos) {
      pollfd wait{out_, POLLIN, 0};
      const ssize_t got = poll(&wait, 1, kLimitMs) == 1 ? read(out_, buffer, sizeof buffer) : -1;
      if (got <= 0) {
        return false;
      }
      output_.append(buffer, static_cast<std::size_t>(got));
    }
    return true;
  }
  // Sends the signal, if one is given, and returns the exit status; less than zero if a signal has ended the program,
  // or it has not ended in time.
  int End(int signal = 0) {
    if (signal != 0) {
      kill(pid_, signal);
    }
    Await(kNever);
    int status = 0;
    if (!Eventually([this, &status] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
      return kHangs;
    }
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  void Signal(int signal) const { kill(pid_, signal); }
  // Stops reading what it prints, so that its output ends only with the process.
  void Ignore() {
    close(out_);
    out_ = -1;
  }
  pid_t pid() const { return pid_; }
  const std::string& output() const { return output_; }

 private:
  static constexpr int kLimitMs = 60000;
  static constexpr int kHangs = -1000;
  static constexpr const char* kNever = "\1";  // no line contains it
  pid_t pid_ = 0;
  int out_ = -1;
  std::string output_;
};
