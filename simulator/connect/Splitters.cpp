// Finds the next frame or packet in the bytes, and drops the bytes that belong to none.
#include "simulator/connect/Splitters.h"

#include <utility>

#include "simulator/model/Visca.h"

namespace sim {
namespace {

constexpr std::uint8_t kFirstAddress = 0x80;  // of a packet to a camera, or from one
constexpr std::uint8_t kEndOfAddresses = 0xA0;

}  // namespace

void FrameSplitter::Feed(ByteView bytes) { pending_.insert(pending_.end(), bytes.begin(), bytes.end()); }

std::optional<Frame> FrameSplitter::Next() {
  std::size_t at = 0;
  std::optional<Frame> found;
  while (at < pending_.size() && !found) {
    const ByteView rest = ByteView(pending_).subspan(at);
    if (rest[0] == kFrameStart && rest.size() < kDataAt) {
      break;  // may become a frame
    }
    if (rest[0] != kFrameStart || rest[2] > kMaxData) {
      ++at;
      ++dropped_;
      continue;
    }
    const std::size_t size = rest[2] + kFrameOverhead;
    if (rest.size() < size) {
      break;
    }
    if (rest[size - 1] != kFrameStop || rest[size - 2] != Checksum(rest.first(size - 2))) {
      ++at;  // a start byte inside garbage: look again from the next byte
      ++dropped_;
      continue;
    }
    found = Frame{rest[1], Bytes(rest.begin() + kDataAt, rest.begin() + static_cast<std::ptrdiff_t>(size) - 2)};
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
    if (pending_.empty() && (byte < kFirstAddress || byte >= kEndOfAddresses)) {
      ++dropped_;
    } else if (byte != kViscaEnd) {
      if (pending_.size() < kViscaMost) {
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
