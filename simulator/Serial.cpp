#include "simulator/Serial.h"

#include <fcntl.h>
#include <libserialport.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sim {
namespace {

constexpr Time kPause = 100 * kMillisecond;      // no packet pauses longer between two bytes
constexpr Time kPatience = 1900 * kMillisecond;  // just less than the tool has
constexpr Time kReopen = kSecond;
constexpr std::size_t kMostAsked = 256;

std::string ViscaLine(Time now, const char* direction, ByteView packet, const std::string& meaning) {
  char head[64];
  std::snprintf(head, sizeof head, "%9.3f %-7s       ", static_cast<double>(now) / static_cast<double>(kSecond),
                direction);
  const std::string bytes = ToHex(packet);
  return head + bytes + std::string(bytes.size() < 32 ? 32 - bytes.size() : 0, ' ') + "  " + meaning;
}

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
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  char name[128] = "";
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name, sizeof name) != 0) {
    return "";
  }
  slave_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios raw{};
  if (slave_ < 0 || tcgetattr(slave_, &raw) != 0) {
    return "";
  }
  cfmakeraw(&raw);
  if (tcsetattr(slave_, TCSANOW, &raw) != 0) {
    return "";
  }
  if (!link.empty()) {
    struct stat old {};
    if (lstat(link.c_str(), &old) == 0 && S_ISLNK(old.st_mode)) {
      unlink(link.c_str());  // left behind by one that was killed
    }
    if (symlink(name, link.c_str()) != 0) {
      return "";
    }
    link_ = link;
  }
  return name;
}

void ViscaTerminal::Say(Bytes packet, const Row* row, Time due) {
  const auto later =
      std::upper_bound(waiting_.begin(), waiting_.end(), due, [](Time time, const Waiting& w) { return time < w.due; });
  waiting_.insert(later, {due, std::move(packet), row});
}

void ViscaTerminal::OnReadable(Time now) {
  std::uint8_t buffer[512];
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
      Say(std::move(reply), row, due);
    }
  }
}

void ViscaTerminal::OnTime(Time now) {
  if (splitter_.Waiting() && now >= heard_at_ + kPause) {
    splitter_.Idle();
  }
  for (Bytes& packet : device_.TakeVisca()) {
    Say(std::move(packet), nullptr, std::max(now, line_free_));
  }
  while (!waiting_.empty() && waiting_.front().due <= now) {
    const Waiting out = std::move(waiting_.front());
    waiting_.pop_front();
    const bool sent = write(master_, out.packet.data(), out.packet.size()) == static_cast<ssize_t>(out.packet.size());
    sink_(ViscaLine(now, "visca >", out.packet, ViscaReplyText(out.packet, out.row)) + (sent ? "" : "  [not read]"));
  }
}

std::optional<Time> ViscaTerminal::NextDue() const {
  std::optional<Time> next;
  if (!waiting_.empty()) {
    next = waiting_.front().due;
  }
  if (splitter_.Waiting()) {
    next = next ? std::min(*next, heard_at_ + kPause) : heard_at_ + kPause;
  }
  return next;
}

SerialRelay::SerialRelay(std::string device, std::uint32_t baud, Protocol protocol, LineSink sink)
    : device_(std::move(device)), baud_(baud), protocol_(protocol), sink_(std::move(sink)) {}

SerialRelay::~SerialRelay() { Close(); }

// libserialport knows the ports of the machine; a terminal that it does not list, such as a pseudo-terminal or the
// port of a bridge program, is opened as a plain terminal.
bool SerialRelay::Open(std::string& error) {
  if (sp_get_port_by_name(device_.c_str(), &port_) == SP_OK) {
    if (sp_open(port_, SP_MODE_READ_WRITE) == SP_OK && sp_get_port_handle(port_, &descriptor_) == SP_OK &&
        sp_set_baudrate(port_, static_cast<int>(baud_)) == SP_OK && sp_set_bits(port_, 8) == SP_OK &&
        sp_set_parity(port_, SP_PARITY_NONE) == SP_OK && sp_set_stopbits(port_, 1) == SP_OK &&
        sp_set_flowcontrol(port_, SP_FLOWCONTROL_NONE) == SP_OK) {
      return true;
    }
    char* const text = sp_last_error_message();
    error = device_ + ": " + (text != nullptr ? text : "cannot be set up");
    sp_free_error_message(text);
    Close();
    return false;
  }
  port_ = nullptr;
  descriptor_ = open(device_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  termios raw{};
  if (descriptor_ >= 0 && tcgetattr(descriptor_, &raw) == 0) {
    cfmakeraw(&raw);
    if (tcsetattr(descriptor_, TCSANOW, &raw) == 0) {
      return true;
    }
  }
  error = device_ + ": " + std::strerror(errno);
  Close();
  return false;
}

void SerialRelay::Close() {
  if (port_ != nullptr) {
    sp_close(port_);
    sp_free_port(port_);
    port_ = nullptr;
  } else if (descriptor_ >= 0) {
    close(descriptor_);
  }
  descriptor_ = -1;
}

std::string SerialRelay::Request(std::int32_t type, ByteView body, Time now) {
  type_ = type > 0 ? type : 1;
  ++exchange_;
  const Relay relay = DecodeRelay(body);
  if (relay.flaw != Flaw::None) {
    return std::string(FlawText(relay.flaw)) + ", dropped";
  }
  if (IsNotice(relay.frame)) {  // for the daemon; on the line it would hold up what comes next
    return "";
  }
  if (asked_.size() >= kMostAsked) {
    return "too many requests, dropped";
  }
  asked_.push_back({type_, exchange_, relay.sequence, relay.frame});
  Ask(now);
  return descriptor_ < 0 ? "no serial line" : "";
}

// Puts the next request onto the line when nobody waits for an answer.
void SerialRelay::Ask(Time now) {
  while (!asking_ && !asked_.empty()) {
    const Frame& frame = asked_.front().frame;
    if (protocol_ == Protocol::Visca && frame.code != kCameraCode) {
      Answer({static_cast<std::uint8_t>(frame.code + kReplyBit), mcu_.Handle(frame.code, frame.data, now)}, now);
      continue;
    }
    const Bytes bytes = protocol_ == Protocol::Visca ? frame.data : frame.Encode();
    if (descriptor_ >= 0) {
      (void)!write(descriptor_, bytes.data(), bytes.size());
    }
    asking_ = true;
    give_up_at_ = now + kPatience;
  }
}

void SerialRelay::Answer(const Frame& frame, Time now) {
  const Asked asked = asked_.front();
  asked_.pop_front();
  asking_ = false;
  outbox_.Add({.due = now,
               .type = asked.type,
               .exchange = asked.exchange,
               .body = EncodeRelay(asked.sequence, frame.Encode()),
               .note = ""});
}

void SerialRelay::OnFrame(const Frame& frame, Time now) {
  if (asking_ && frame.code == static_cast<std::uint8_t>(asked_.front().frame.code + kReplyBit)) {
    Answer(frame, now);
    Ask(now);
    return;
  }
  outbox_.Add(
      {.due = now, .type = type_, .exchange = 0, .body = EncodeRelay(0, frame.Encode()), .note = "not asked for"});
}

// A command is answered when the camera has taken it, whatever it thinks of it; an inquiry with its reply.
void SerialRelay::OnPacket(const Bytes& packet, Time now) {
  const bool sound = packet.size() >= 3 && packet.size() <= kMaxData && packet[0] >= 0x88;
  const int kind = sound ? packet[1] >> 4 : 0;
  const bool command = asking_ && asked_.front().frame.data.size() > 1 && asked_.front().frame.data[1] == 0x01;
  const std::uint8_t code = kCameraCode + kReplyBit;
  const bool plain = sound && packet[1] == 0x50;  // with a socket number it completes an earlier command
  if (asking_ && command && (kind == 4 || kind == 6 || plain)) {
    Answer({code, {kMcuOk}}, now);
  } else if (asking_ && !command && sound && (plain || packet[1] == 0x60)) {
    Answer({code, packet}, now);
  } else {
    sink_(ViscaLine(now, "serial", packet, ViscaReplyText(packet, nullptr) + "  [not relayed]"));
    return;
  }
  Ask(now);
}

void SerialRelay::OnReadable(Time now) {
  std::uint8_t buffer[512];
  const ssize_t got = read(descriptor_, buffer, sizeof buffer);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
    return;
  }
  if (got <= 0) {
    sink_("simZR4410: the serial line is gone");
    Close();
    reopen_at_ = now + kReopen;
    return;
  }
  heard_at_ = now;
  const ByteView bytes(buffer, static_cast<std::size_t>(got));
  if (protocol_ == Protocol::Uart1) {
    frames_.Feed(bytes);
  } else {
    packets_.Feed(bytes);
  }
  Advance(now);
}

void SerialRelay::Advance(Time now) {
  if (descriptor_ < 0 && now >= reopen_at_) {
    std::string error;
    reopen_at_ = now + kReopen;
    if (Open(error)) {
      sink_("simZR4410: the serial line is back");
    }
  }
  const auto deliver = [this, now] {
    while (const auto frame = frames_.Next()) {
      OnFrame(*frame, now);
    }
    while (const auto packet = packets_.Next()) {
      OnPacket(*packet, now);
    }
  };
  deliver();
  if (now >= heard_at_ + kPause) {
    // A silent line ends what was begun; there may be whole frames behind a start byte that was garbage.
    while (frames_.Waiting()) {
      frames_.Idle();
      deliver();
    }
    packets_.Idle();
  }
  if (const std::uint64_t dropped = frames_.Dropped() + packets_.Dropped(); dropped != dropped_) {
    sink_("simZR4410: " + std::to_string(dropped - dropped_) + " bytes of garbage on the serial line");
    dropped_ = dropped;
  }
  if (asking_ && now >= give_up_at_) {
    asked_.pop_front();
    asking_ = false;
    Ask(now);
  }
}

std::optional<Time> SerialRelay::NextEvent() const {
  std::optional<Time> next;
  const auto earlier = [&next](Time t) { next = next ? std::min(*next, t) : t; };
  if (descriptor_ < 0) {
    earlier(reopen_at_);
  }
  if (asking_) {
    earlier(give_up_at_);
  }
  if (frames_.Waiting() || packets_.Waiting()) {
    earlier(heard_at_ + kPause);
  }
  return next;
}

}  // namespace sim
