// Opens the serial line, sends one request at a time and matches the replies to them.
#include "simulator/connect/SerialRelay.h"

#include <fcntl.h>
#include <libserialport.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "simulator/connect/RawMode.h"
#include "simulator/model/Dissector.h"
#include "simulator/model/Error.h"
#include "simulator/model/Visca.h"

namespace sim {
namespace {

constexpr Time kPatience = 1900 * kMillisecond;  // a little less than the tool's 2 s
constexpr Time kReopen = kSecond;                // between two attempts to open a line again
constexpr std::size_t kMostAsked = 256;          // requests waiting for the line
constexpr std::size_t kReadSize = 512;
constexpr std::uint8_t kFromCamera = 0x88;  // the least address byte of a packet from a camera
constexpr int kDataBits = 8;
constexpr int kStopBits = 1;

}  // namespace

SerialRelay::SerialRelay(std::string device, std::uint32_t baud, Protocol protocol, LineSink sink)
    : device_(std::move(device)), baud_(baud), protocol_(protocol), sink_(std::move(sink)) {}

SerialRelay::~SerialRelay() { Close(); }

// libserialport opens the ports that it lists. Another terminal, such as a pseudo-terminal or the port of a bridge
// program, is opened as a plain terminal.
void SerialRelay::Open() {
  try {
    if (sp_get_port_by_name(device_.c_str(), &port_) == SP_OK) {
      OpenPort();
    } else {
      port_ = nullptr;
      OpenTerminal();
    }
  } catch (const Error&) {
    Close();
    throw;
  }
}

void SerialRelay::OpenPort() {
  if (sp_open(port_, SP_MODE_READ_WRITE) != SP_OK || sp_get_port_handle(port_, &descriptor_) != SP_OK ||
      sp_set_baudrate(port_, static_cast<int>(baud_)) != SP_OK || sp_set_bits(port_, kDataBits) != SP_OK ||
      sp_set_parity(port_, SP_PARITY_NONE) != SP_OK || sp_set_stopbits(port_, kStopBits) != SP_OK ||
      sp_set_flowcontrol(port_, SP_FLOWCONTROL_NONE) != SP_OK) {
    char* const reason = sp_last_error_message();
    const std::string text = device_ + ": " + (reason != nullptr ? reason : "cannot be set up");
    sp_free_error_message(reason);
    throw Error(text);
  }
}

void SerialRelay::OpenTerminal() {
  descriptor_ = open(device_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor_ < 0 || !MakeRaw(descriptor_)) {
    throw Error(device_ + ": " + std::strerror(errno));
  }
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
  type_ = ReplyType(type);
  ++exchange_;
  const Relay relay = DecodeRelay(body);
  if (relay.flaw != Flaw::None) {
    return std::string(FlawText(relay.flaw)) + ", dropped";
  }
  if (IsNotice(relay.frame)) {  // it is for the daemon only; on the line it would delay the next request
    return "";
  }
  if (asked_.size() >= kMostAsked) {
    return "too many requests, dropped";
  }
  asked_.push_back({type_, exchange_, relay.sequence, relay.frame});
  Ask(now);
  return descriptor_ < 0 ? "no serial line" : "";
}

// Sends the next request on the line if no other request is waiting for its answer.
void SerialRelay::Ask(Time now) {
  while (!asking_ && !asked_.empty()) {
    const Frame& frame = asked_.front().frame;
    if (protocol_ == Protocol::Visca && frame.code != kCameraCode) {
      Answer({ReplyCode(frame.code), mcu_.Handle(frame.code, frame.data, now)}, now);
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
  if (asking_ && frame.code == ReplyCode(asked_.front().frame.code)) {
    Answer(frame, now);
    Ask(now);
    return;
  }
  outbox_.Add(
      {.due = now, .type = type_, .exchange = 0, .body = EncodeRelay(0, frame.Encode()), .note = "unsolicited"});
}

// A command is acknowledged as soon as the camera has answered it, even if the camera rejects it. An inquiry is
// answered with the camera's reply.
void SerialRelay::OnPacket(const Bytes& packet, Time now) {
  const bool sound = packet.size() >= kViscaLeast && packet.size() <= kMaxData && packet[0] >= kFromCamera;
  const std::uint8_t kind = sound ? packet[1] & kViscaKind : 0;
  const ByteView request = asking_ ? ByteView(asked_.front().frame.data) : ByteView();
  const bool command = request.size() > 1 && request[1] == kViscaCommand;
  const bool plain = sound && packet[1] == kViscaCompleted;  // with a socket number it completes an earlier command
  if (asking_ && command && (kind == kViscaAccepted || kind == kViscaError || plain)) {
    Answer({ReplyCode(kCameraCode), {kMcuOk}}, now);
  } else if (asking_ && !command && (plain || (sound && packet[1] == kViscaError))) {
    Answer({ReplyCode(kCameraCode), packet}, now);
  } else {
    sink_(ViscaLine(now, "serial", packet, ViscaReplyText(packet, nullptr) + "  [not relayed]"));
    return;
  }
  Ask(now);
}

void SerialRelay::OnReadable(Time now) {
  std::uint8_t buffer[kReadSize];
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
    reopen_at_ = now + kReopen;
    try {
      Open();
      sink_("simZR4410: the serial line is back");
    } catch (const Error&) {
      // Still gone.
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
  if (now >= heard_at_ + kLongestPause) {
    // There may be whole frames after a start byte that was garbage.
    while (frames_.Waiting()) {
      frames_.Idle();
      deliver();
    }
    packets_.Idle();
  }
  if (const std::uint64_t dropped = frames_.Dropped() + packets_.Dropped(); dropped != dropped_) {
    const std::uint64_t count = dropped - dropped_;
    sink_("simZR4410: " + (count == 1 ? "1 byte of garbage on the serial line"
                                      : std::to_string(count) + " bytes of garbage on the serial line"));
    dropped_ = dropped;
  }
  if (asking_ && now >= give_up_at_) {
    asked_.pop_front();
    asking_ = false;
    Ask(now);
  }
}

std::optional<Time> SerialRelay::NextEvent() const {
  const bool begun = frames_.Waiting() || packets_.Waiting();
  const auto when = [](bool waiting, Time time) { return waiting ? std::optional(time) : std::nullopt; };
  return Earlier(Earlier(when(descriptor_ < 0, reopen_at_), when(asking_, give_up_at_)),
                 when(begun, heard_at_ + kLongestPause));
}

}  // namespace sim
