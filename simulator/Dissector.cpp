#include "simulator/Dissector.h"

#include <algorithm>
#include <cstdio>

namespace sim {
namespace {

std::string Hex2(std::uint8_t value) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02X", value);
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
  const auto values = row != nullptr && row->reply != "10" ? Match(row->reply, row->fields, frame.data) : std::nullopt;
  if (values) {
    return ValuesText(*values);
  }
  return frame.data.size() == 1 ? std::string(McuResultText(frame.data[0])) : "data " + ToHex(frame.data);
}

}  // namespace

std::string ViscaRequestText(ByteView packet, const Row** row) {
  *row = nullptr;
  const std::string raw = "VISCA " + ToHex(packet);
  if (packet.size() < 3 || packet.back() != 0xFF) {
    return raw;
  }
  if (packet[0] == 0x88 && packet[1] == 0x30) {
    return "Address Set";
  }
  if (packet.size() == 5 && packet[1] == 0x01 && packet[2] == 0x00 && packet[3] == 0x01) {
    return "Interface Clear";
  }
  if (packet.size() == 3 && (packet[1] & 0xF0) == 0x20) {
    return "Cancel socket " + std::to_string(packet[1] & 0x0F);
  }
  const ByteView data = packet.subspan(2, packet.size() - 3);
  const bool command = packet[1] == 0x01;
  const auto found = command ? FindCommand(data) : packet[1] == 0x09 ? FindInquiry(data) : std::nullopt;
  if (!found) {
    return raw;
  }
  *row = found->row;
  return Join(found->row->name, ValuesText(found->values)) + (command ? "" : "?");
}

std::string ViscaReplyText(ByteView packet, const Row* row) {
  const std::string raw = "VISCA " + ToHex(packet);
  if (packet.size() < 3 || packet.back() != 0xFF) {
    return raw;
  }
  const std::uint8_t error = packet.size() == 4 && (packet[1] & 0xF0) == 0x60 ? packet[2] : std::uint8_t{0};
  const int socket = packet[1] & 0x0F;
  const std::string where = socket != 0 ? " (socket " + std::to_string(socket) + ")" : "";
  if (error != 0) {
    return std::string(ViscaErrorText(error)) + where;
  }
  if (packet.size() == 3) {
    const int kind = packet[1] >> 4;
    return packet[1] == 0x38 ? "network change"
           : kind == 4       ? "accepted" + where
           : kind == 5       ? "completed" + where
                             : raw;
  }
  const auto values =
      row != nullptr ? Match(row->reply, row->fields, packet.subspan(2, packet.size() - 3)) : std::nullopt;
  return (packet[1] & 0xF0) == 0x50 && values ? ValuesText(*values) + where : raw;
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
  if (frame.code != kCameraCode + kReplyBit) {
    const Row* row = FindMcu(static_cast<std::uint8_t>(frame.code - kReplyBit));
    if (row != asked.row || (row != nullptr && row->reply != "10")) {  // a report, or a reply that speaks for itself
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
  // The frame alone when it is where it should be, else the whole message.
  const std::size_t end = body.size() == kBodySize && body[6] <= kMaxData ? 4U + body[6] + 5U : 0;
  const std::string bytes =
      end != 0 ? ToHex(body.subspan(4, end - 4)) : ToHex(body.first(std::min<std::size_t>(body.size(), 64)));
  char head[64];
  char time[24] = "";  // a dump has none
  if (event.time >= 0) {
    std::snprintf(time, sizeof time, "%9.3f ", static_cast<double>(event.time) / static_cast<double>(kSecond));
  }
  std::snprintf(head, sizeof head, "%s%-7s #%-3d ", time, request ? "request" : "reply", body.size() > 2 ? body[2] : 0);
  std::string line = head + bytes + std::string(bytes.size() < 32 ? 32 - bytes.size() : 0, ' ') + "  " +
                     Meaning(event.direction, body);
  if (!event.note.empty()) {
    line += colour ? "  \x1b[33m[" + event.note + "]\x1b[0m" : "  [" + event.note + "]";
  }
  return colour ? (request ? "\x1b[36m" : "\x1b[32m") + line + "\x1b[0m" : line;
}

}  // namespace sim
