#include "simulator/Wire.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

namespace sim {
namespace {

constexpr std::uint8_t kStart = 0xAA;
constexpr std::uint8_t kStop = 0x55;
constexpr std::uint8_t kTerminator = 0xFF;
constexpr std::size_t kMaxPacket = 16;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

std::uint8_t Checksum(ByteView bytes) {
  return static_cast<std::uint8_t>(-std::accumulate(bytes.begin(), bytes.end(), 0));
}

Bytes Frame::Encode() const {
  Bytes bytes = {kStart, code, static_cast<std::uint8_t>(data.size())};
  bytes.insert(bytes.end(), data.begin(), data.end());
  bytes.push_back(Checksum(bytes));
  bytes.push_back(kStop);
  return bytes;
}

bool IsNotice(const Frame& frame) {
  return frame.code == kCameraCode && frame.data.size() == 4 && frame.data[1] == 0x22 && frame.data[2] == 0x33 &&
         frame.data[3] == 0x44;
}

std::string_view FlawText(Flaw flaw) {
  switch (flaw) {
    case Flaw::None:
      return "good";
    case Flaw::Size:
      return "message of a wrong size";
    case Flaw::Header:
      return "wrong relay header";
    case Flaw::FrameLength:
      return "frame length and payload length disagree";
    case Flaw::Start:
      return "wrong start byte";
    case Flaw::Length:
      return "payload longer than 16 bytes";
    case Flaw::Checksum:
      return "wrong checksum";
    case Flaw::Stop:
      return "wrong stop byte";
  }
  return "";
}

Relay DecodeRelay(ByteView body) {
  Relay relay;
  const auto flawed = [&relay](Flaw flaw) {
    relay.flaw = relay.flaw == Flaw::None ? flaw : relay.flaw;
    return relay;
  };
  if (body.size() > 2) {
    relay.sequence = body[2];
  }
  if (body.size() > 5) {
    relay.frame.code = body[5];
  }
  if (body.size() != kBodySize) {
    return flawed(Flaw::Size);
  }
  if (body[0] != 0xAA || body[1] != 0xAA) {
    return flawed(Flaw::Header);
  }
  if (body[4] != kStart) {
    return flawed(Flaw::Start);
  }
  const std::size_t length = body[6];
  if (length > kMaxData) {
    return flawed(Flaw::Length);
  }
  const ByteView frame = body.subspan(4, length + 5);
  relay.frame.data.assign(frame.begin() + 3, frame.end() - 2);
  if (body[3] != length + 5) {
    return flawed(Flaw::FrameLength);
  }
  if (frame.back() != kStop) {
    return flawed(Flaw::Stop);
  }
  if (frame[length + 3] != Checksum(frame.first(length + 3))) {
    return flawed(Flaw::Checksum);
  }
  return relay;
}

Bytes EncodeRelay(std::uint8_t sequence, ByteView frame) {
  Bytes body(kBodySize, 0);
  const std::size_t size = std::min(frame.size(), kBodySize - 4);
  body[0] = body[1] = 0xAA;
  body[2] = sequence;
  body[3] = static_cast<std::uint8_t>(frame.size());
  std::copy_n(frame.begin(), size, body.begin() + 4);
  return body;
}

std::string ToHex(ByteView bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X", byte);
    text += (text.empty() ? "" : " ") + std::string(digits);
  }
  return text;
}

std::optional<Bytes> FromHex(std::string_view text) {
  Bytes bytes;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    const int high = HexDigit(text[i]);
    const int low = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    i += 2;
  }
  return bytes;
}

void FrameSplitter::Feed(ByteView bytes) { pending_.insert(pending_.end(), bytes.begin(), bytes.end()); }

std::optional<Frame> FrameSplitter::Next() {
  std::size_t at = 0;
  std::optional<Frame> found;
  while (at < pending_.size() && !found) {
    const ByteView rest = ByteView(pending_).subspan(at);
    if (rest[0] == kStart && rest.size() < 3) {
      break;  // may become a frame
    }
    if (rest[0] != kStart || rest[2] > kMaxData) {
      ++at;
      ++dropped_;
      continue;
    }
    const std::size_t size = rest[2] + 5U;
    if (rest.size() < size) {
      break;
    }
    if (rest[size - 1] != kStop || rest[size - 2] != Checksum(rest.first(size - 2))) {
      ++at;  // a start byte inside garbage: look again from the next byte
      ++dropped_;
      continue;
    }
    found = Frame{rest[1], Bytes(rest.begin() + 3, rest.begin() + static_cast<std::ptrdiff_t>(size) - 2)};
    at += size;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
  return found;
}

void FrameSplitter::Idle() {
  if (!pending_.empty()) {
    pending_.erase(pending_.begin());
    ++dropped_;
  }
}

void ViscaSplitter::Feed(ByteView bytes) {
  for (const std::uint8_t byte : bytes) {
    if (pending_.empty() && (byte < 0x80 || byte >= 0xA0)) {
      ++dropped_;
    } else if (byte != kTerminator) {
      if (pending_.size() < kMaxPacket) {
        pending_.push_back(byte);
      }
    } else {
      pending_.push_back(byte);
      packets_.push_back(std::move(pending_));
      pending_.clear();
    }
  }
}

std::optional<Bytes> ViscaSplitter::Next() {
  if (packets_.empty()) {
    return std::nullopt;
  }
  Bytes packet = std::move(packets_.front());
  packets_.pop_front();
  return packet;
}

void ViscaSplitter::Idle() {
  dropped_ += pending_.size();
  pending_.clear();
}

}  // namespace sim
