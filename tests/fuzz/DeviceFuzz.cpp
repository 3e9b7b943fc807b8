// Sends any requests to the simulated device, as messages and on its VISCA line. Input: a byte of options, then
// requests, each a length and that many bytes. If the length is 128 or more, its low 7 bits are the length, and the
// bytes are the code and the data of a good frame.
#include "simulator/model/Device.h"
#include "tests/fuzz/Fuzz.h"

void TestOneInput(const uint8_t* data, size_t size) {
  Input input(Input::FromHex(data, size));
  sim::Setup setup;
  const uint8_t options = input.Byte();
  setup.sockets = (options & 1) != 0;
  setup.strict = (options & 2) == 0;
  sim::Device device(setup);
  sim::Time now = 0;
  uint8_t sequence = 0;
  while (!input.AtEnd()) {
    const uint8_t length = input.Byte();
    sim::Bytes body = input.Bytes(length & 0x7F);
    const bool framed = length > 0x7F && !body.empty() && body.size() <= 1 + sim::kMaxData;
    if (framed) {
      sim::Frame frame;
      frame.code = body[0];
      frame.data.assign(body.begin() + 1, body.end());
      body = sim::EncodeRelay(++sequence, frame.Encode());
    }
    device.Request(1, body, now);
    for (int moves = 0; moves < 20 && device.NextDue(); ++moves) {
      now = std::max(now, *device.NextDue());
      device.Advance(now);
      while (const auto out = device.Take(now)) {
        Require(out->body.size() == sim::kBodySize, "a reply is a complete message");
        Require(sim::DecodeRelay(out->body).flaw == sim::Flaw::None, "a reply is a good frame");
      }
    }
    for (const sim::Bytes& packet : device.Visca(body, now).packets) {
      Require(packet.size() >= 3 && packet.size() <= 16 && packet.back() == 0xFF, "a VISCA reply is a packet");
    }
    device.TakeVisca();
  }
}
