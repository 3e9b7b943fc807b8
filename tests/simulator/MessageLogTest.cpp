// The message log: what it lists, drops, describes and waits for.
#include "simulator/connect/MessageLog.h"

#include <string>
#include <thread>

#include "tests/simulator/Support.h"

namespace {

using Clock = std::chrono::steady_clock;

sim::Event Message(std::uint64_t number, const std::string& body = kVersion) {
  sim::Event event;
  event.number = number;
  event.body = Body(body);
  return event;
}

// The numbers in a list, and what has been dropped: "3 4 (2 dropped)".
std::string Numbers(const sim::MessageLog::List& list) {
  std::string text;
  for (const sim::MessageLog::Message& message : list.messages) {
    text += (text.empty() ? "" : " ") + std::to_string(message.event.number);
  }
  return list.dropped == 0 ? text : text + " (" + std::to_string(list.dropped) + " dropped)";
}

TEST(MessageLog, ListsTheMessagesAfterANumber) {
  sim::MessageLog log;
  EXPECT_EQ(log.After({}).last, 0U);
  for (std::uint64_t number = 1; number <= 5; ++number) {
    log.Add(Message(number));
  }
  EXPECT_EQ(Numbers(log.After({})), "1 2 3 4 5");
  EXPECT_EQ(Numbers(log.After({.since = 3, .match = {}})), "4 5");
  EXPECT_EQ(Numbers(log.After({.since = 5, .match = {}})), "");
  EXPECT_EQ(Numbers(log.After({.since = 99, .match = {}})), "");
  EXPECT_EQ(log.After({.since = 3, .match = {}}).last, 5U);
}

TEST(MessageLog, ListsTheMessagesWithTheBytes) {
  sim::MessageLog log;
  log.Add(Message(1, kVersion));
  log.Add(Message(2, kGetPtz));
  log.Add(Message(3, kVersion));
  EXPECT_EQ(Numbers(log.After({.since = 0, .match = B("AA 10")})), "1 3");
  EXPECT_EQ(Numbers(log.After({.since = 0, .match = B("AA 11 01")})), "2");
  EXPECT_EQ(Numbers(log.After({.since = 0, .match = B("AA 12")})), "");
  EXPECT_EQ(log.After({.since = 0, .match = B("AA 12")}).last, 3U);  // all were examined
}

TEST(MessageLog, DropsTheOldestAndCountsThem) {
  sim::MessageLog log(3);
  for (std::uint64_t number = 1; number <= 10; ++number) {
    log.Add(Message(number));
  }
  EXPECT_EQ(Numbers(log.After({})), "8 9 10 (7 dropped)");
  EXPECT_EQ(Numbers(log.After({.since = 5, .match = {}})), "8 9 10 (2 dropped)");
  EXPECT_EQ(Numbers(log.After({.since = 8, .match = {}})), "9 10");
}

TEST(MessageLog, IsBoundedInBytesToo) {
  sim::MessageLog log(1000, 100);
  for (std::uint64_t number = 1; number <= 10; ++number) {
    log.Add(Message(number));  // 36 bytes each
  }
  EXPECT_EQ(Numbers(log.After({})), "9 10 (8 dropped)");
}

TEST(MessageLog, CopiesMoreThanOnePortion) {
  sim::MessageLog log;
  for (std::uint64_t number = 1; number <= 1000; ++number) {
    log.Add(Message(number));
  }
  EXPECT_EQ(log.After({}).messages.size(), 1000U);
  EXPECT_EQ(log.Wait({}, 10, Clock::now()).messages.size(), 10U);
  EXPECT_EQ(log.Wait({}, 10, Clock::now()).last, 10U);
}

TEST(MessageLog, DescribesEachMessageWithItsRequest) {
  sim::MessageLog log;
  sim::Event request = Message(1, kGetPtz);
  request.exchange = 1;
  log.Add(request);
  EXPECT_EQ(log.After({}).messages.at(0).meaning, "Get PTZ get");
  sim::Event reply = Message(2, kGetPtzReply);
  reply.direction = sim::Direction::Reply;
  reply.exchange = 1;
  log.Add(reply);
  EXPECT_EQ(log.After({.since = 1, .match = {}}).messages.at(0).meaning,
            "Get PTZ \xE2\x86\x92 pan 32000, tilt 450, zoom 0");
}

TEST(MessageLog, WaitsForAMessage) {
  sim::MessageLog log;
  log.Add(Message(1, kVersion));
  std::thread sender([&log] {
    log.Add(Message(2, kVersion));
    log.Add(Message(3, kGetPtz));
    log.Add(Message(4, kGetPtz));
  });
  const auto end = Clock::now() + std::chrono::minutes(1);
  EXPECT_EQ(Numbers(log.Wait({.since = 0, .match = B("AA 11")}, 1, end)), "3");
  EXPECT_EQ(Numbers(log.Wait({.since = 3, .match = B("AA 11")}, 1, end)), "4");
  sender.join();
}

TEST(MessageLog, ReturnsNothingIfNoMessageComes) {
  sim::MessageLog log;
  log.Add(Message(1));
  EXPECT_EQ(Numbers(log.Wait({.since = 1, .match = {}}, 1, Clock::now() + std::chrono::milliseconds(5))), "");
}

TEST(MessageLog, StopEndsAllWaits) {
  sim::MessageLog log;
  std::thread stopper([&log] { log.Stop(); });
  EXPECT_EQ(Numbers(log.Wait({}, 1, Clock::now() + std::chrono::hours(1))), "");
  stopper.join();
  EXPECT_TRUE(log.stopped());
  EXPECT_EQ(Numbers(log.Wait({}, 1, Clock::now() + std::chrono::hours(1))), "");
}

}  // namespace
