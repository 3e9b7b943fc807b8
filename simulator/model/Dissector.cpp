#include "simulator/model/Dissector.h"

#include <algorithm>
#include <cstdio>

#include "simulator/model/Relay.h"
#include "simulator/model/Visca.h"

namespace sim {
namespace {

constexpr std::size_t kHexWidth = 32;   // of the column of bytes
constexpr std::size_t kMostShown = 64;  // bytes shown of a message without a frame
constexpr const char* kRequestColour = "\x1b[36m";
constexpr const char* kReplyColour = "\x1b[32m";
constexpr const char* kNoteColour = "\x1b[33m";
constexpr const char* kNoColour = "\x1b[0m";

std::string Hex2(std::uint8_t value) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02X", value);
  return text;
}

std::string TimeText(Time time) {
  char text[32];
  std::snprintf(text, sizeof text, "%9.3f ", static_cast<double>(time) / static_cast<double>(kSecond));
  return text;
}

std::string HexColumn(std::string text) {
  text.resize(std::max(text.size(), kHexWidth), ' ');
  return text;
}

std::string Join(std::string_view name, const std::string& values) {
  return std::string(name) + (values.empty() ? "" : " " + values);
}

std::string McuRequestText(const Frame& frame, const Row*& row) {
  row = FindMcu(frame.code);
  if (row == nullptr) {
    return "unknown MCU command " + Hex2(frame.code);
  }
  Bytes bytes = {frame.code};
  bytes.insert(bytes.end(), frame.data.begin(), frame.data.end());
  const auto values = Match(row->command, row->fields, bytes);
  return values ? Join(row->name, ValuesText(*values)) : std::string(row->name) + " with " + ToHex(frame.data);
}

std::string McuReplyText(const Frame& frame, const Row* row) {
  const auto values =
      row != nullptr && row->reply != kMcuOkReply ? Match(row->reply, row->fields, frame.data) : std::nullopt;
  if (values) {
    return ValuesText(*values);
  }
  return frame.data.size() == 1 ? std::string(McuResultText(frame.data[0])) : "data " + ToHex(frame.data);
}

}  // namespace

std::string ViscaRequestText(ByteView packet, const Row** row) {
  *row = nullptr;
  const std::string raw = "VISCA " + ToHex(packet);
  if (!IsViscaPacket(packet)) {
    return raw;
  }
  if (packet[0] == kViscaBroadcast && packet[1] == kViscaAddressSet) {
    return "Address Set";
  }
  if (packet.size() == 5 && packet[1] == kViscaCommand && packet[2] == 0x00 && packet[3] == 0x01) {
    return "Interface Clear";
  }
  if (packet.size() == kViscaLeast && (packet[1] & kViscaKind) == kViscaCancel) {
    return "Cancel socket " + std::to_string(packet[1] & 0x0F);
  }
  const ByteView data = ViscaData(packet);
  const bool command = packet[1] == kViscaCommand;
  const auto found = command ? FindCommand(data) : packet[1] == kViscaInquiry ? FindInquiry(data) : std::nullopt;
  if (!found) {
    return raw;
  }
  *row = found->row;
  return Join(found->row->name, ValuesText(found->values)) + (command ? "" : "?");
}

std::string ViscaReplyText(ByteView packet, const Row* row) {
  const std::string raw = "VISCA " + ToHex(packet);
  if (!IsViscaPacket(packet)) {
    return raw;
  }
  const std::uint8_t error = ViscaError(packet);
  const std::uint8_t kind = packet[1] & kViscaKind;
  const int socket = packet[1] & 0x0F;
  const std::string where = socket != 0 ? " (socket " + std::to_string(socket) + ")" : "";
  if (error != 0) {
    return std::string(ViscaErrorText(error)) + where;
  }
  if (packet.size() == kViscaLeast) {
    return packet[1] == kViscaNetworkChange ? "network change"
           : kind == kViscaAccepted         ? "accepted" + where
           : kind == kViscaCompleted        ? "completed" + where
                                            : raw;
  }
  const auto values = row != nullptr ? Match(row->reply, row->fields, ViscaData(packet)) : std::nullopt;
  return kind == kViscaCompleted && values ? ValuesText(*values) + where : raw;
}

std::string ViscaLine(Time now, const char* direction, ByteView packet, const std::string& meaning) {
  char head[64];
  std::snprintf(head, sizeof head, "%s%-7s       ", TimeText(now).c_str(), direction);
  return head + HexColumn(ToHex(packet)) + "  " + meaning;
}

std::string Dissector::Meaning(Direction direction, ByteView body) {
  const Relay relay = DecodeRelay(body);
  if (relay.flaw != Flaw::None && relay.flaw != Flaw::Checksum) {
    return std::string(FlawText(relay.flaw));
  }
  const std::string flaw = relay.flaw == Flaw::None ? "" : " (" + std::string(FlawText(relay.flaw)) + ")";
  const Frame& frame = relay.frame;
  if (direction == Direction::Request) {
    Asked asked;
    if (frame.code != kCameraCode) {
      asked.text = McuRequestText(frame, asked.row);
    } else if (IsNotice(frame)) {
      asked.text = "notice " + std::to_string(frame.data[0]);
    } else {
      asked.text = ViscaRequestText(frame.data, &asked.row);
    }
    asked_[relay.sequence] = asked;
    return asked.text + flaw;
  }
  Asked asked = asked_[relay.sequence];
  std::string answer;
  if (frame.code != ReplyCode(kCameraCode)) {
    const Row* row = FindMcu(static_cast<std::uint8_t>(frame.code - kReplyBit));
    if (row != asked.row ||
        (row != nullptr && row->reply != kMcuOkReply)) {  // a report, or a reply with data of its own
      asked.text = row != nullptr ? std::string(row->name) : asked.text;
    }
    answer = McuReplyText(frame, row);
  } else if (frame.data.size() == 1) {
    answer = frame.data[0] == kMcuOk ? "acknowledged" : "refused: " + std::string(McuResultText(frame.data[0]));
  } else {
    answer = ViscaReplyText(frame.data, asked.row);
  }
  return (asked.text.empty() ? "" : asked.text + " \u2192 ") + answer + flaw;
}

std::string Dissector::Line(const Event& event, bool colour) {
  const bool request = event.direction == Direction::Request;
  const ByteView body = event.body;
  // Only the frame if it is where it belongs, otherwise the whole message.
  const bool framed = body.size() == kBodySize && body[kFrameAt + 2] <= kMaxData;
  const ByteView shown = framed ? body.subspan(kFrameAt, body[kFrameAt + 2] + kFrameOverhead)
                                : body.first(std::min(body.size(), kMostShown));
  char head[64];
  std::snprintf(head, sizeof head, "%s%-7s #%-3d ", event.time >= 0 ? TimeText(event.time).c_str() : "",
                request ? "request" : "reply", Sequence(body));
  std::string line = head + HexColumn(ToHex(shown)) + "  " + Meaning(event.direction, body);
  if (!event.note.empty()) {
    line += colour ? std::string("  ") + kNoteColour + "[" + event.note + "]" + kNoColour : "  [" + event.note + "]";
  }
  return colour ? (request ? kRequestColour : kReplyColour) + line + kNoColour : line;
}

}  // namespace sim
