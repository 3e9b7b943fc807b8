// Measures requests per second through the queues of simZR4410, and for comparison through a thread that only echoes
// messages over two System V queues. The difference is the cost of the simulated device.
#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <thread>

#include "simulator/connect/Daemon.h"
#include "simulator/model/Device.h"
#include "simulator/model/Error.h"

namespace {

struct Message {
  long type;
  std::array<std::uint8_t, 36> body;
};

constexpr Message kVersion = {1, {0xAA, 0xAA, 0x01, 0x06, 0xAA, 0x10, 0x01, 0x01, 0x44, 0x55}};
constexpr Message kBlock = {1,
                            {0xAA, 0xAA, 0x01, 0x0B, 0xAA, 0x02, 0x06, 0x81, 0x09, 0x7E, 0x7E, 0x03, 0xFF, 0xC6, 0x55}};

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
  Exchange(requests, replies, kVersion, state);
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
BENCHMARK_CAPTURE(SimulatedDevice, GetVersion, kVersion)->UseRealTime();
BENCHMARK_CAPTURE(SimulatedDevice, Block3, kBlock)->UseRealTime();

// The model alone, without queues and threads.
void ModelAlone(benchmark::State& state) {
  sim::Device device(sim::Setup{.fast = true});
  sim::Time now = 0;
  for (auto _ : state) {
    device.Request(1, kBlock.body, ++now);
    benchmark::DoNotOptimize(device.Take(now));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ModelAlone);

}  // namespace
