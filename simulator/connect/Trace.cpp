// Connects the two writers of a run, standard output and the capture, with the texts that they write.
#include "simulator/connect/Trace.h"

#include <cerrno>
#include <cstring>

#include "simulator/connect/Capture.h"
#include "simulator/model/Dissector.h"
#include "simulator/model/Error.h"

namespace sim {
namespace {

constexpr std::size_t kMessageBytes = 256;                 // memory per message, on average
constexpr auto kPatience = std::chrono::milliseconds(60);  // how long Finish waits for a reader that stalls

std::string Messages(std::uint64_t count) { return std::to_string(count) + (count == 1 ? " message" : " messages"); }

Writer::Limits Limits(std::size_t messages) { return {messages, messages * kMessageBytes}; }

Writer::Routines Shown(bool colour) {
  const auto dissector = std::make_shared<Dissector>();
  return {.message = [dissector, colour](const Event& event) { return dissector->Line(event, colour); },
          .dropped = [](std::uint64_t count) { return "\u2026 " + Messages(count) + " not shown"; },
          .failed =
              [](int error) {
                if (error != EPIPE) {  // the reader has exited, as `head` does
                  WriteLine(STDERR_FILENO, "simZR4410: standard output: " + std::string(std::strerror(error)));
                }
              }};
}

Writer::Routines Recorded(std::shared_ptr<CaptureFile> file, std::function<void()> failed) {
  const auto dissector = std::make_shared<Dissector>();
  return {.message = [dissector, file](const Event& event) { return CaptureLine(event, dissector->Meaning(event)); },
          .dropped = [](std::uint64_t count) { return CaptureGap(count); },
          .failed = [failed](int) { failed(); }};
}

}  // namespace

Trace::Trace(const Options& options, std::shared_ptr<CaptureFile> capture)
    : quiet_(options.quiet),
      capture_(std::move(capture)),
      shown_(options.output, Limits(options.shown), Shown(options.colour)) {
  if (capture_) {
    recorded_.emplace(capture_->descriptor(), Limits(options.recorded), Recorded(capture_, options.on_capture_failure));
  }
}

void Trace::Message(const Event& event) {
  if (!quiet_) {
    shown_.Put(event);
  }
  if (recorded_) {
    recorded_->Put(event);
  }
}

void Trace::Line(const std::string& line) {
  if (!quiet_) {
    shown_.Put(line);
  }
}

void Trace::Finish() {
  const auto deadline = Writer::Clock::now() + kPatience;
  if (recorded_) {
    recorded_->Close();
  }
  shown_.Finish(deadline);
  const Writer::Outcome recorded = recorded_ ? recorded_->Finish(deadline) : Writer::Outcome{};
  if (recorded.error != 0) {
    throw Error(capture_->path() + ": " + std::strerror(recorded.error) + "; the capture is not complete");
  }
  if (recorded.lost != 0) {
    throw Error(capture_->path() + ": " + Messages(recorded.lost) +
                " not recorded, because the file was written too slowly");
  }
}

}  // namespace sim
