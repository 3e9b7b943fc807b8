// The JSON of the control interface: the parts that several requests share.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "simulator/connect/MessageLog.h"
#include "simulator/model/Faults.h"
#include "simulator/model/State.h"

namespace sim {

using Json = nlohmann::ordered_json;

// Returns the JSON as text; bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const Json& json);
// Returns the text of a server-sent event. Without a `name` it is a plain message.
std::string ServerEvent(const std::string& name, const Json& data);

Json MessageJson(const MessageLog::Message& message);
// Returns all variables with their texts, all registers, and `supply`: whether the camera's cable is connected.
Json StateJson(const State& state, bool supply);
Json FaultsJson(const std::vector<ActiveFault>& faults);

}  // namespace sim
