// Encodes and checks relay messages and frames.
#include "simulator/model/Relay.h"

#include <algorithm>
#include <numeric>

namespace sim {
namespace {

constexpr std::uint8_t kHeader = 0xAA;  // twice

}  // namespace

std::uint8_t Checksum(ByteView bytes) {
  return static_cast<std::uint8_t>(-std::accumulate(bytes.begin(), bytes.end(), 0));
}

Bytes Frame::Encode() const {
  Bytes bytes;
  bytes.reserve(data.size() + kFrameOverhead);
  bytes.assign({kFrameStart, code, static_cast<std::uint8_t>(data.size())});
  bytes.insert(bytes.end(), data.begin(), data.end());
  bytes.push_back(Checksum(bytes));
  bytes.push_back(kFrameStop);
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
      return "wrong message size";
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
    relay.flaw = flaw;
    return relay;
  };
  relay.sequence = Sequence(body);
  if (body.size() > kFrameAt + 1) {
    relay.frame.code = body[kFrameAt + 1];
  }
  if (body.size() != kBodySize) {
    return flawed(Flaw::Size);
  }
  if (body[0] != kHeader || body[1] != kHeader) {
    return flawed(Flaw::Header);
  }
  if (body[kFrameAt] != kFrameStart) {
    return flawed(Flaw::Start);
  }
  const std::size_t length = body[kFrameAt + 2];
  if (length > kMaxData) {
    return flawed(Flaw::Length);
  }
  const ByteView frame = body.subspan(kFrameAt, length + kFrameOverhead);
  relay.frame.data.assign(frame.begin() + kDataAt, frame.end() - 2);
  if (body[kFrameLengthAt] != frame.size()) {
    return flawed(Flaw::FrameLength);
  }
  if (frame.back() != kFrameStop) {
    return flawed(Flaw::Stop);
  }
  if (frame[kDataAt + length] != Checksum(frame.first(kDataAt + length))) {
    return flawed(Flaw::Checksum);
  }
  return relay;
}

Bytes EncodeRelay(std::uint8_t sequence, ByteView frame) {
  Bytes body(kBodySize, 0);
  const std::size_t size = std::min(frame.size(), kBodySize - kFrameAt);
  body[0] = body[1] = kHeader;
  body[kSequenceAt] = sequence;
  body[kFrameLengthAt] = static_cast<std::uint8_t>(frame.size());
  std::copy_n(frame.begin(), size, body.begin() + kFrameAt);
  return body;
}

std::uint8_t Sequence(ByteView body) { return body.size() > kSequenceAt ? body[kSequenceAt] : std::uint8_t{0}; }

}  // namespace sim
