// Creates the pseudo-terminal and its link, and sends the camera's packets at their times.
#include "simulator/connect/ViscaTerminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "simulator/connect/RawMode.h"
#include "simulator/model/Dissector.h"
#include "simulator/model/Error.h"

namespace sim {
namespace {

constexpr std::size_t kReadSize = 512;
constexpr std::size_t kNameSize = 128;

}  // namespace

ViscaTerminal::ViscaTerminal(Device& device, LineSink sink) : device_(device), sink_(std::move(sink)) {}

ViscaTerminal::~ViscaTerminal() {
  char target[kNameSize] = "";
  if (!link_.empty() && readlink(link_.c_str(), target, sizeof target - 1) > 0 && name_ == target) {
    unlink(link_.c_str());  // unless another run has taken the name
  }
  if (slave_ >= 0) {
    close(slave_);
  }
  if (master_ >= 0) {
    close(master_);
  }
}

std::string ViscaTerminal::Open(const std::string& link) {
  const auto fail = [&link] {
    return Error("no pseudo-terminal" + (link.empty() ? "" : " on " + link) + ": " + std::strerror(errno));
  };
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  char name[kNameSize] = "";
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name, sizeof name) != 0) {
    throw fail();
  }
  slave_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave_ < 0 || !MakeRaw(slave_)) {
    throw fail();
  }
  if (!link.empty()) {
    struct stat old {};
    if (lstat(link.c_str(), &old) == 0 && S_ISLNK(old.st_mode)) {
      unlink(link.c_str());  // left behind by a simulator that was killed
    }
    if (symlink(name, link.c_str()) != 0) {
      throw fail();
    }
    link_ = link;
    name_ = name;
  }
  return name;
}

void ViscaTerminal::Send(Bytes packet, const Row* row, Time due) {
  const auto later =
      std::upper_bound(waiting_.begin(), waiting_.end(), due, [](Time time, const Waiting& w) { return time < w.due; });
  waiting_.insert(later, {due, std::move(packet), row});
}

void ViscaTerminal::OnReadable(Time now) {
  std::uint8_t buffer[kReadSize];
  const ssize_t got = read(master_, buffer, sizeof buffer);
  if (got <= 0) {
    return;
  }
  const bool fast = device_.setup().fast;  // a new scenario may change it
  heard_at_ = now;
  splitter_.Feed(ByteView(buffer, static_cast<std::size_t>(got)));
  while (const auto packet = splitter_.Next()) {
    const Row* row = nullptr;
    const std::string text = ViscaRequestText(*packet, &row);
    Device::LineAnswer answer = device_.Visca(*packet, now);
    sink_(ViscaLine(now, "visca <", *packet, text) + (answer.note.empty() ? "" : "  [" + answer.note + "]"));
    Time due = fast ? now : std::max(now, line_free_) + device_.OnTheWire(packet->size());
    for (Bytes& reply : answer.packets) {
      due += fast ? 0 : device_.Field() + device_.OnTheWire(reply.size());
      Send(std::move(reply), row, due + answer.late);
    }
    line_free_ = due;
  }
}

void ViscaTerminal::OnTime(Time now) {
  if (splitter_.Waiting() && now >= heard_at_ + kLongestPause) {
    splitter_.Idle();
  }
  for (Bytes& packet : device_.TakeVisca()) {
    Send(std::move(packet), nullptr, std::max(now, line_free_));
  }
  while (!waiting_.empty() && waiting_.front().due <= now) {
    const Waiting out = std::move(waiting_.front());
    waiting_.pop_front();
    const bool sent = write(master_, out.packet.data(), out.packet.size()) == static_cast<ssize_t>(out.packet.size());
    sink_(ViscaLine(now, "visca >", out.packet, ViscaReplyText(out.packet, out.row)) + (sent ? "" : "  [not read]"));
  }
}

std::optional<Time> ViscaTerminal::NextDue() const {
  return Earlier(waiting_.empty() ? std::nullopt : std::optional(waiting_.front().due),
                 splitter_.Waiting() ? std::optional(heard_at_ + kLongestPause) : std::nullopt);
}

}  // namespace sim
