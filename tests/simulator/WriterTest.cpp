// The writer, with readers that read, stall and go away; and the trace, which consists of two writers.
#include "simulator/connect/Writer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <optional>
#include <sstream>
#include <string>

#include "simulator/connect/Capture.h"
#include "simulator/connect/Trace.h"
#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

// A pipe that holds one page, and what has been read from it.
class Pipe {
 public:
  static constexpr int kRoom = 4096;

  Pipe() {
    EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
    EXPECT_GE(fcntl(ends_[1], F_SETPIPE_SZ, kRoom), kRoom);
  }
  ~Pipe() {
    CloseReader();
    CloseWriter();
  }
  int writer() const { return ends_[1]; }
  void CloseReader() { Close(ends_[0]); }
  void CloseWriter() { Close(ends_[1]); }
  void Fill() const {
    const int flags = fcntl(ends_[1], F_GETFL);
    fcntl(ends_[1], F_SETFL, flags | O_NONBLOCK);
    const std::string page(kRoom, '.');
    while (write(ends_[1], page.data(), page.size()) > 0) {
    }
    fcntl(ends_[1], F_SETFL, flags);
  }
  bool Full() const {
    pollfd ready{ends_[1], POLLOUT, 0};
    return poll(&ready, 1, 0) == 0;
  }
  std::string Read() const {
    char buffer[kRoom];
    const ssize_t got = read(ends_[0], buffer, sizeof buffer);
    return got > 0 ? std::string(buffer, static_cast<std::size_t>(got)) : "";
  }
  // To the end of the file; CloseWriter first.
  std::string ReadAll() const {
    std::string all;
    for (std::string part; !(part = Read()).empty();) {
      all += part;
    }
    return all;
  }

 private:
  static void Close(int& end) {
    if (end >= 0) {
      close(end);
      end = -1;
    }
  }
  int ends_[2] = {-1, -1};
};

sim::Event Numbered(std::uint64_t number) {
  sim::Event event;
  event.body = Body(kVersion);
  event.number = number;
  return event;
}

// Writes "1", "2", ... for messages, "(3)" for three that were dropped.
class Writer : public testing::Test {
 protected:
  static void SetUpTestSuite() { signal(SIGPIPE, SIG_IGN); }
  void Start(int descriptor, sim::Writer::Limits limits = {1000, 1000000}) {
    writer_.emplace(descriptor, limits,
                    sim::Writer::Routines{
                        .message = [](const sim::Event& event) { return std::to_string(event.number); },
                        .dropped = [](std::uint64_t count) { return "(" + std::to_string(count) + ")"; },
                        .failed = [this](int error) { failed_ = error; },
                    });
  }
  sim::Writer::Outcome Finish() { return writer_->Finish(sim::Writer::Clock::now()); }

  Pipe pipe_;
  std::atomic<int> failed_ = 0;
  std::optional<sim::Writer> writer_;
};

TEST_F(Writer, WritesEverythingInOrder) {
  Start(pipe_.writer());
  std::string expected;
  for (std::uint64_t i = 1; i <= 500; ++i) {
    writer_->Put(Numbered(i));
    writer_->Put("line");
    expected += std::to_string(i) + "\nline\n";
  }
  auto text = std::async(std::launch::async, [this] { return pipe_.ReadAll(); });
  const auto outcome = writer_->Finish(sim::Writer::Clock::now() + std::chrono::minutes(1));
  pipe_.CloseWriter();
  EXPECT_EQ(text.get(), expected);
  EXPECT_EQ(outcome.lost, 0U);
  EXPECT_EQ(outcome.error, 0);
}

TEST_F(Writer, CountsDroppedMessagesAndReportsThemAtThatPlace) {
  pipe_.Fill();
  Start(pipe_.writer(), {10, 1000000});
  // The thread takes the first message and waits in write.
  writer_->Put(Numbered(1));
  ASSERT_TRUE(Eventually([this] {
    for (int i = 0; i < 300; ++i) {
      writer_->Put(Numbered(2));
    }
    return writer_->Lost() >= 312;
  }));
  const std::uint64_t lost = writer_->Lost();
  // Returns the sum of the numbers of dropped messages in the text.
  const auto reported = [](const std::string& text) {
    std::uint64_t sum = 0;
    for (std::size_t at = 0; (at = text.find("\n(", at)) != std::string::npos; ++at) {
      sum += std::stoul(text.substr(at + 2));
    }
    return sum;
  };
  std::string text;
  ASSERT_TRUE(Eventually([&] {
    text += pipe_.Read();
    return text.ends_with(")\n") && reported(text) == lost;
  })) << text;
  writer_->Put(Numbered(3));
  const auto outcome = writer_->Finish(sim::Writer::Clock::now() + std::chrono::minutes(1));
  pipe_.CloseWriter();
  text += pipe_.ReadAll();
  EXPECT_NE(text.find(".1\n"), std::string::npos);
  EXPECT_TRUE(text.ends_with(")\n3\n"));
  EXPECT_EQ(outcome.lost, lost);
}

TEST_F(Writer, IsBoundedInBytesToo) {
  pipe_.Fill();
  Start(pipe_.writer(), {1000000, 100000});
  sim::Event large = Numbered(1);
  large.body.resize(8192);
  for (int i = 0; i < 200; ++i) {
    writer_->Put(large);
  }
  EXPECT_GT(writer_->Lost(), 100U);
}

TEST_F(Writer, EndsEvenIfItsReaderStalls) {
  pipe_.Fill();
  Start(pipe_.writer());
  for (std::uint64_t i = 1; i <= 200; ++i) {
    writer_->Put(Numbered(i));
  }
  const auto outcome = Finish();
  EXPECT_EQ(outcome.lost, 200U);
  EXPECT_FALSE(outcome.stuck);
  EXPECT_EQ(failed_, 0);
  EXPECT_EQ(fcntl(pipe_.writer(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(Writer, ReportsAFailureOnce) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  Start(full);
  writer_->Put(Numbered(1));
  ASSERT_TRUE(Eventually([this] { return failed_ != 0; }));
  failed_ = 0;
  writer_->Put(Numbered(2));
  const auto outcome = Finish();
  EXPECT_EQ(failed_, 0);
  EXPECT_EQ(outcome.error, ENOSPC);
  close(full);
}

TEST_F(Writer, SurvivesAReaderThatGoesAway) {
  Start(pipe_.writer());
  pipe_.CloseReader();
  writer_->Put(Numbered(1));
  EXPECT_TRUE(Eventually([this] { return failed_ == EPIPE; }));
}

TEST_F(Writer, WaitsForADescriptorThatOthersHaveMadeNonBlocking) {
  pipe_.Fill();
  fcntl(pipe_.writer(), F_SETFL, fcntl(pipe_.writer(), F_GETFL) | O_NONBLOCK);
  Start(pipe_.writer());
  writer_->Put("line");
  auto outcome = std::async(std::launch::async,
                            [this] { return writer_->Finish(sim::Writer::Clock::now() + std::chrono::minutes(1)); });
  std::string text;
  while (text.find("line") == std::string::npos && !(text += pipe_.Read()).empty()) {
  }
  EXPECT_EQ(outcome.get().lost, 0U);
}

std::string Content(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

class Trace : public testing::Test {
 protected:
  std::shared_ptr<sim::CaptureFile> Capture(const std::string& path) {
    auto file = std::make_shared<sim::CaptureFile>(path, true);
    file->Begin("header");
    return file;
  }
  TestQueues queues_;  // for its file
  Pipe pipe_;
};

TEST_F(Trace, ReportsHowManyMessagesAreNotShown) {
  pipe_.Fill();
  sim::Trace trace({.output = pipe_.writer(), .shown = 4}, nullptr);
  for (std::uint64_t i = 1; i <= 1000; ++i) {
    trace.Message(Numbered(i));
  }
  std::string text;
  ASSERT_TRUE(Eventually([&] {
    text += pipe_.Read();
    return text.find(" not shown\n") != std::string::npos;
  }));
  EXPECT_NE(text.find("\n\u2026 "), std::string::npos) << text;
  EXPECT_NE(text.find(" messages not shown\n"), std::string::npos);
}

TEST_F(Trace, PrintsOnlyAnnouncementsIfQuiet) {
  sim::Trace trace({.quiet = true, .output = pipe_.writer()}, nullptr);
  trace.Message(Numbered(1));
  trace.Line("line");
  trace.Announce("ready");
  trace.Finish();
  pipe_.CloseWriter();
  EXPECT_EQ(pipe_.ReadAll(), "ready\n");
}

TEST_F(Trace, RecordsEvenIfNobodyReadsTheOutput) {
  pipe_.Fill();
  sim::Trace trace({.output = pipe_.writer(), .shown = 4}, Capture(queues_.path()));
  for (std::uint64_t i = 1; i <= 1000; ++i) {
    trace.Message(Numbered(i));
  }
  ASSERT_TRUE(Eventually([this] { return std::ranges::count(Content(queues_.path()), '\n') == 1001; }));
  trace.Finish();
  const std::string text = Content(queues_.path());
  EXPECT_EQ(std::ranges::count(text, '\n'), 1001);
  EXPECT_EQ(text.find("lost"), std::string::npos);
}

// A reader that stalls takes the place of a slow disk.
TEST_F(Trace, RecordsHowManyMessagesAreMissing) {
  const std::string path = queues_.path() + ".fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(fcntl(reader, F_SETPIPE_SZ, Pipe::kRoom), Pipe::kRoom);
  sim::Trace trace({.quiet = true, .recorded = 4}, Capture(path));
  constexpr std::uint64_t kMessages = 1000;
  for (std::uint64_t i = 1; i <= kMessages; ++i) {
    trace.Message(Numbered(i));
  }
  std::string text;
  std::uint64_t recorded = 0;
  std::uint64_t lost = 0;
  ASSERT_TRUE(Eventually([&] {
    char buffer[Pipe::kRoom];
    text.append(buffer, static_cast<std::size_t>(read(reader, buffer, sizeof buffer)));
    std::istringstream capture(text.substr(text.find('\n') + 1));
    const sim::Recording recording = sim::ReadCapture(capture, "x");
    recorded = recording.events.size();
    lost = 0;
    for (const std::string& warning : recording.warnings) {  // "x:27: 312 messages are missing here"
      lost += warning.find("missing") == std::string::npos ? 0 : std::stoul(warning.substr(warning.rfind(": ") + 2));
    }
    return text.ends_with('\n') && recorded + lost == kMessages;
  })) << recorded
      << " and " << lost;
  EXPECT_GT(lost, 0U);
  EXPECT_EQ(ErrorOf([&trace] { trace.Finish(); }),
            path + ": " + std::to_string(lost) + " messages not recorded, because the file was written too slowly");
  close(reader);
  unlink(path.c_str());
}

TEST_F(Trace, ReportsAFullDisk) {
  const auto file = std::make_shared<sim::CaptureFile>("/dev/full", false);
  std::atomic<int> failures = 0;
  sim::Trace trace({.quiet = true, .on_capture_failure = [&failures] { ++failures; }}, file);
  for (std::uint64_t i = 1; i <= 1000; ++i) {
    trace.Message(Numbered(i));
  }
  EXPECT_TRUE(Eventually([&failures] { return failures == 1; }));
  EXPECT_EQ(ErrorOf([&trace] { trace.Finish(); }), "/dev/full: No space left on device; the capture is not complete");
  EXPECT_EQ(failures, 1);
}

}  // namespace
