// Finds the messages in a dump, which may be cut off or mixed with other output.
#include "simulator/connect/Decode.h"

#include <cstring>
#include <sstream>
#include <string>

#include "simulator/model/Dissector.h"
#include "simulator/model/Relay.h"

namespace sim {
namespace {

constexpr std::size_t kTypeWord = 4;       // before the body, in the dumping machine's byte order
constexpr std::size_t kSentDump = 36;      // the type word and 32 bytes of the body
constexpr std::size_t kReceivedDump = 40;  // the type word and the whole body

}  // namespace

std::size_t Decode(std::istream& in, std::ostream& out, bool colour) {
  Dissector dissector;
  std::size_t messages = 0;
  enum { Looking, Heading, Dump } at = Looking;
  Direction direction = Direction::Request;
  std::size_t whole = 0;
  Bytes bytes;
  // Prints the message collected so far, if there is one.
  const auto print = [&] {
    const bool cut = bytes.size() < whole;
    Event event{.time = -1, .direction = direction, .type = 0, .exchange = 0, .body = {}, .note = cut ? "cut" : ""};
    if (at == Dump && bytes.size() > kTypeWord) {
      std::memcpy(&event.type, bytes.data(), kTypeWord);
      event.body.assign(bytes.begin() + kTypeWord, bytes.end());
      event.body.resize(kBodySize, 0);  // the dump of a sent message lacks the last four bytes, which no frame reaches
      if (!cut || DecodeRelay(event.body).flaw == Flaw::None) {
        out << dissector.Line(event, colour) << '\n';
        ++messages;
      }
    }
    at = Looking;
  };
  for (std::string line; std::getline(in, line);) {
    const bool sent = line.find("client msgsnd:") != std::string::npos;
    if (sent || line.find("client msgrcv:") != std::string::npos) {
      print();
      at = Heading;
      direction = sent ? Direction::Request : Direction::Reply;
      whole = sent ? kSentDump : kReceivedDump;
      bytes.clear();
      continue;
    }
    std::string_view rest = line;
    const std::string count = "(" + std::to_string(whole) + "):";
    if (at == Heading && rest.starts_with(count)) {
      rest.remove_prefix(count.size());
      at = Dump;
    }
    if (at != Dump) {
      continue;
    }
    std::istringstream words{std::string(rest)};
    for (std::string word; words >> word && bytes.size() < whole;) {
      const auto byte = word.size() == 2 ? FromHex(word) : std::nullopt;
      if (!byte) {
        print();
        break;
      }
      bytes.push_back(byte->front());
    }
    if (at == Dump && bytes.size() == whole) {
      print();
    }
  }
  print();
  return messages;
}

}  // namespace sim
