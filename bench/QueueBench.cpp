// Measures how long a request and its reply take: with the shipped program and its trace on, with a daemon in this
// process, with a thread that only echoes messages over two System V queues, and with the model alone. script/bench
// pins everything to one processor, so each time is the work of both sides together.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "simulator/connect/Daemon.h"
#include "simulator/model/Device.h"
#include "simulator/model/Error.h"

namespace {

struct Message {
  long type;
  std::array<std::uint8_t, sim::kBodySize> body;
};

// The MCU's "Get Version", and the camera's inquiry of block 3.
constexpr Message kGetVersion = {1, {0xAA, 0xAA, 0x01, 0x06, 0xAA, 0x10, 0x01, 0x01, 0x44, 0x55}};
constexpr Message kBlock3Inquiry = {
    1, {0xAA, 0xAA, 0x01, 0x0B, 0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x7E, 0x03, 0xFF, 0xC6, 0x55}};

void Exchange(int requests, int replies, const Message& request, benchmark::State& state) {
  Message reply{};
  for (auto _ : state) {
    if (msgsnd(requests, &request, sizeof request.body, 0) != 0 ||
        msgrcv(replies, &reply, sizeof reply.body, 0, 0) != static_cast<ssize_t>(sizeof reply.body)) {
      state.SkipWithError("a queue failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

// The baseline: another thread sends every message back unchanged.
void BarePingPong(benchmark::State& state) {
  const int requests = msgget(IPC_PRIVATE, 0600);
  const int replies = msgget(IPC_PRIVATE, 0600);
  std::thread echo([requests, replies] {
    Message message{};
    while (msgrcv(requests, &message, sizeof message.body, 0, 0) >= 0 &&
           msgsnd(replies, &message, sizeof message.body, 0) == 0) {
    }
  });
  Exchange(requests, replies, kGetVersion, state);
  msgctl(requests, IPC_RMID, nullptr);
  msgctl(replies, IPC_RMID, nullptr);
  echo.join();
}
BENCHMARK(BarePingPong)->UseRealTime();

void SimulatedDevice(benchmark::State& state, const Message& request) {
  char path[] = "/tmp/queue_bench.XXXXXX";
  close(mkstemp(path));
  sim::Device device(sim::Setup{.fast = true});
  sim::Daemon daemon(device, {.key_path = path, .remove_queues = true}, [](const sim::Event&) {});
  try {
    daemon.Open();
    std::thread thread([&daemon] { daemon.Run(); });
    Exchange(msgget(ftok(path, sim::kRequestProject), 0), msgget(ftok(path, sim::kReplyProject), 0), request, state);
    daemon.Stop();
    thread.join();
  } catch (const sim::Error& error) {
    state.SkipWithError(error.what());
  }
  unlink(path);
}
BENCHMARK_CAPTURE(SimulatedDevice, GetVersion, kGetVersion)->UseRealTime();
BENCHMARK_CAPTURE(SimulatedDevice, Block3, kBlock3Inquiry)->UseRealTime();

// The program as it is shipped, in its own process. Its trace goes to /dev/null.
void ShippedProgram(benchmark::State& state, const Message& request) {
  char path[] = "/tmp/queue_bench.XXXXXX";
  close(mkstemp(path));
  const std::string ready = std::string(path) + ".ready";
  std::string arguments[] = {SIM_PROGRAM, "--fast", "--remove-queues", "--key-path", path, "--ready-file", ready};
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  struct stat status {};
  if (posix_spawn(&pid, SIM_PROGRAM, &actions, nullptr, pointers.data(), environ) != 0) {
    state.SkipWithError("simZR4410 does not start");
  } else {
    bool runs = true;
    while (runs && stat(ready.c_str(), &status) != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      runs = waitpid(pid, nullptr, WNOHANG) == 0;
    }
    if (runs) {
      Exchange(msgget(ftok(path, sim::kRequestProject), 0), msgget(ftok(path, sim::kReplyProject), 0), request, state);
      kill(pid, SIGTERM);
      waitpid(pid, nullptr, 0);
    } else {
      state.SkipWithError("simZR4410 has ended");
    }
  }
  posix_spawn_file_actions_destroy(&actions);
  unlink(path);
  unlink(ready.c_str());
}
BENCHMARK_CAPTURE(ShippedProgram, GetVersion, kGetVersion)->UseRealTime();
BENCHMARK_CAPTURE(ShippedProgram, Block3, kBlock3Inquiry)->UseRealTime();

// The model alone, without queues and threads.
void ModelAlone(benchmark::State& state, const Message& request) {
  sim::Device device(sim::Setup{.fast = true});
  sim::Time now = 0;
  for (auto _ : state) {
    device.Request(1, request.body, ++now);
    benchmark::DoNotOptimize(device.Take(now));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(ModelAlone, GetVersion, kGetVersion)->UseRealTime();
BENCHMARK_CAPTURE(ModelAlone, Block3, kBlock3Inquiry)->UseRealTime();

}  // namespace
