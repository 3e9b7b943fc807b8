// Builds the descriptions of requests, replies and reports, and the lines of the trace.
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

// `rejected` is set if the MCU will not carry the request out.
std::string McuRequestText(const Frame& frame, const Row*& row, bool& rejected) {
  row = FindMcu(frame.code);
  rejected = true;
  if (row == nullptr) {
    return "unknown MCU command " + Hex2(frame.code);
  }
  Bytes bytes = {frame.code};
  bytes.insert(bytes.end(), frame.data.begin(), frame.data.end());
  const auto values = Match(row->command, row->fields, bytes);
  if (!values) {
    return std::string(row->name) + " with " + ToHex(frame.data);
  }
  rejected = !Accepted(*values);
  return Join(row->name, ValuesText(*values));
}

// `rejected`: the request is known to be rejected, so a single byte is a result.
std::string McuReplyText(const Frame& frame, const Row* row, bool rejected) {
  const bool one = frame.data.size() == 1;
  const std::string_view result = one ? McuResultText(frame.data[0]) : "";
  const auto values = row != nullptr && row->reply != kMcuOkReply && !(rejected && one)
                          ? Match(row->reply, row->fields, frame.data)
                          : std::nullopt;
  if (!values) {
    return one ? std::string(result) : "data " + ToHex(frame.data);
  }
  const bool either = one && IsMcuError(frame.data[0]);  // one byte may be a value or a result
  return ValuesText(*values) + (either ? " (or " + std::string(result) + ")" : "");
}

// Says which cameras a packet is for; empty for the camera with address 1.
std::string AddressText(std::uint8_t header) {
  return header == kViscaBroadcast               ? " (to all cameras)"
         : header == ViscaTo(kViscaFirstAddress) ? ""
                                                 : " (to camera " + std::to_string(header & 0x07) + ")";
}

// Describes the packets that have the same form in both directions; empty for any other packet.
std::string LinePacketText(ByteView packet) {
  if (packet.size() == 4 && packet[0] == kViscaBroadcast && packet[1] == kViscaAddressSet) {
    return "Address Set " + std::to_string(packet[2]);
  }
  const bool clears = packet.size() == 5 && packet[1] == kViscaCommand && packet[2] == 0x00 && packet[3] == 0x01;
  return clears ? "Interface Clear" + AddressText(packet[0]) : "";
}

}  // namespace

std::string ViscaRequestText(ByteView packet, const Row** row, sim::Line line) {
  *row = nullptr;
  const std::string raw = "VISCA " + ToHex(packet);
  if (!IsViscaPacket(packet)) {
    return raw;
  }
  if (const std::string text = LinePacketText(packet); !text.empty()) {
    return text;
  }
  if (packet.size() == kViscaLeast && (packet[1] & kViscaKind) == kViscaCancel) {
    return "Cancel socket " + std::to_string(packet[1] & kViscaSocket) + AddressText(packet[0]);
  }
  const ByteView data = ViscaData(packet);
  const bool command = packet[1] == kViscaCommand;
  const auto found = command                      ? FindCommand(data, line)
                     : packet[1] == kViscaInquiry ? FindInquiry(data, line)
                                                  : std::nullopt;
  if (!found) {
    return raw;
  }
  *row = found->row;
  return Join(found->row->name, ValuesText(found->values)) + (command ? "" : "?") + AddressText(packet[0]);
}

std::string ViscaReplyText(ByteView packet, const Row* row) {
  const std::string raw = "VISCA " + ToHex(packet);
  if (!IsViscaPacket(packet)) {
    return raw;
  }
  if (const std::string text = LinePacketText(packet); !text.empty()) {
    return text;
  }
  const std::uint8_t error = ViscaError(packet);
  const std::uint8_t kind = packet[1] & kViscaKind;
  const int socket = packet[1] & kViscaSocket;
  const std::string where = socket != 0 ? " (socket " + std::to_string(socket) + ")" : "";
  if (error != 0) {
    return std::string(ViscaErrorText(error)) + where;
  }
  if (packet.size() == kViscaLeast) {
    return packet[1] == kViscaNetworkChange ? "network change: the camera has started"
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

// Returns where the request of an exchange is stored; nullptr for a message that belongs to no exchange.
Dissector::Asked* Dissector::Place(const Event& event, std::uint8_t sequence) {
  if (event.exchange != 0) {
    return &exchanges_[event.exchange % kExchanges];
  }
  return event.time < 0 ? &sequences_[sequence] : nullptr;
}

std::string Dissector::Meaning(const Event& event) {
  const Relay relay = DecodeRelay(event.body);
  if (relay.flaw != Flaw::None && relay.flaw != Flaw::Checksum) {
    return std::string(FlawText(relay.flaw));
  }
  std::string flaw = relay.flaw == Flaw::None ? "" : " (" + std::string(FlawText(relay.flaw)) + ")";
  const Frame& frame = relay.frame;
  Asked* const place = Place(event, relay.sequence);
  if (event.direction == Direction::Request) {
    Asked asked;
    asked.exchange = event.exchange;
    asked.code = frame.code;
    if (frame.code != kCameraCode) {
      asked.text = McuRequestText(frame, asked.row, asked.rejected);
      asked.rejected = asked.rejected || relay.flaw == Flaw::Checksum;
    } else if (IsNotice(frame)) {
      asked.text = "notice " + std::to_string(frame.data[0]);
    } else {
      asked.text = ViscaRequestText(frame.data, &asked.row, Line::Any);
    }
    std::string text = asked.text + flaw;
    if (place != nullptr) {
      *place = std::move(asked);
    }
    return text;
  }
  bool known = place != nullptr && place->exchange == event.exchange && !place->text.empty();
  const bool wrong_code = known && frame.code != ReplyCode(place->code);
  known = known && (!wrong_code || event.exchange != 0);  // in a dump, another code is probably a report's
  const Asked asked = known ? *place : Asked{};
  const std::uint8_t code = known ? asked.code : static_cast<std::uint8_t>(frame.code - kReplyBit);
  std::string question = asked.text;
  std::string answer;
  if (code != kCameraCode) {
    const Row* row = FindMcu(code);
    // A request such as "Get PTZ get" says no more than its name, and a report has no request.
    if (row != nullptr && (row->reply != kMcuOkReply || !known)) {
      question = row->name;
    }
    answer = McuReplyText(frame, row, asked.rejected);
  } else if (frame.data.size() == 1) {
    answer = frame.data[0] == kMcuOk ? "acknowledged" : "refused: " + std::string(McuResultText(frame.data[0]));
  } else {
    answer = ViscaReplyText(frame.data, asked.row);
  }
  if (wrong_code && known) {
    flaw += " (wrong command code)";
  }
  return (question.empty() ? "" : question + " \u2192 ") + answer + flaw;
}

std::string Dissector::Line(const Event& event, bool colour) {
  const bool request = event.direction == Direction::Request;
  const ByteView body = event.body;
  // Shows only the frame if it is in its place, otherwise the whole message.
  const bool framed = body.size() == kBodySize && body[kFrameAt + 2] <= kMaxData;
  const ByteView shown = framed ? body.subspan(kFrameAt, body[kFrameAt + 2] + kFrameOverhead)
                                : body.first(std::min(body.size(), kMostShown));
  char head[64];
  std::snprintf(head, sizeof head, "%s%-7s #%-3d ", event.time >= 0 ? TimeText(event.time).c_str() : "",
                request ? "request" : "reply", Sequence(body));
  std::string line = head + HexColumn(ToHex(shown)) + "  " + Meaning(event);
  if (!event.note.empty()) {
    line += colour ? std::string("  ") + kNoteColour + "[" + event.note + "]" + kNoColour : "  [" + event.note + "]";
  }
  return colour ? (request ? kRequestColour : kReplyColour) + line + kNoColour : line;
}

}  // namespace sim
