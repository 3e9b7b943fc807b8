// A message received from or sent to the tool, in the form that traces and captures use.
#pragma once

#include <cstdint>
#include <string>

#include "simulator/model/Bytes.h"
#include "simulator/model/Time.h"

namespace sim {

enum class Direction : std::uint8_t { Request, Reply };

struct Event {
  Time time = 0;  // negative: unknown
  Direction direction = Direction::Request;
  std::int32_t type = 0;       // the queue's message type
  std::uint32_t exchange = 0;  // number of the request, from 1; a reply has its request's; 0: a reply to no request
  Bytes body;
  std::string note;          // a remark for the trace
  std::uint64_t number = 0;  // counts all messages of a run, from 1; 0: unknown
};

}  // namespace sim
