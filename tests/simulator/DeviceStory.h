// A device without queues, for the tests of the device and of its faults.
#pragma once

#include <string>

#include "simulator/model/Device.h"
#include "tests/simulator/Support.h"

// What leaves the device: "AA AA 01 06 ... 55" without the zeros at the end, or what the daemon does.
inline std::string Text(const sim::Outgoing& out) {
  if (out.kind != sim::Outgoing::Kind::Message) {
    return std::string(out.kind == sim::Outgoing::Kind::Leave ? "leaves" : "restarts") + " for " +
           std::to_string(out.pause / 1000) + " ms";
  }
  Packet body = out.body;
  const std::size_t size = body.size();
  while (body.size() > 4 && body.back() == 0) {
    body.pop_back();
  }
  return Hex(body) + (size == kMessageSize ? "" : " (" + std::to_string(size) + " bytes)");
}

// A device and its clock. Ask and Later return what leaves the device at that time, "message | message".
class DeviceStory {
 public:
  static constexpr std::int32_t kType = 77;

  explicit DeviceStory(sim::Setup setup = {.fast = true}) : device_(setup) {}

  std::string Ask(const std::string& body) {
    note_ = device_.Request(kType, Body(body), now_);
    return Take();
  }
  std::string Take() {
    std::string text;
    device_.Advance(now_);
    while (const auto out = device_.Take(now_)) {
      text += (text.empty() ? "" : " | ") + Text(*out);
      EXPECT_EQ(out->type, out->kind == sim::Outgoing::Kind::Message ? kType : 1);
    }
    return text;
  }
  std::string Later(sim::Time by) {
    now_ += by;
    return Take();
  }

  sim::Device device_;
  sim::Time now_ = 1_s;
  std::string note_;
};
