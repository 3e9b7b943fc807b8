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

ViscaTerminal::ViscaTerminal(Device& device, bool fast, LineSink sink)
    : device_(device), fast_(fast), sink_(std::move(sink)) {}

ViscaTerminal::~ViscaTerminal() {
  if (!link_.empty()) {
    unlink(link_.c_str());
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
  heard_at_ = now;
  splitter_.Feed(ByteView(buffer, static_cast<std::size_t>(got)));
  while (const auto packet = splitter_.Next()) {
    const Row* row = nullptr;
    sink_(ViscaLine(now, "visca <", *packet, ViscaRequestText(*packet, &row)));
    Time due = now;
    for (Bytes& reply : device_.Visca(*packet, now)) {
      if (!fast_) {
        due = std::max(due, line_free_) + device_.Field();
        line_free_ = due;
      }
      Send(std::move(reply), row, due);
    }
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
