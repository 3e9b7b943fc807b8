// Makes the JSON of messages, the state and the faults.
#include "simulator/connect/Json.h"

#include "simulator/connect/Capture.h"
#include "simulator/model/Change.h"

namespace sim {

std::string JsonText(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string ServerEvent(const std::string& name, const Json& data) {
  return (name.empty() ? "" : "event: " + name + "\n") + "data: " + JsonText(data) + "\n\n";
}

Json MessageJson(const MessageLog::Message& message) {
  Json json = {{"number", message.event.number}};
  json.update(EventJson(message.event, message.meaning));
  return json;
}

Json StateJson(const State& state, bool supply) {
  Json json = {{"camera", Json::object()}, {"mcu", Json::object()}, {"registers", Json::object()}, {"supply", supply}};
  for (std::size_t i = 0; i < kVarCount; ++i) {
    const Var var{static_cast<std::uint8_t>(i)};
    if (const std::string section(VariableSection(var)); !section.empty()) {
      json[section][std::string(Info(var).name)] = {{"value", state[var]}, {"text", ValueText(var, state[var])}};
    }
  }
  const std::uint8_t mode = state.registers[kSensorModeRegister];  // shown as a variable too
  json["camera"]["sensor_mode"] = {{"value", mode}, {"text", std::to_string(mode)}};
  for (std::size_t number = 0; number < state.registers.size(); ++number) {
    json["registers"]["0x" + ToHex(Bytes{static_cast<std::uint8_t>(number)})] = state.registers[number];
  }
  return json;
}

Json FaultsJson(const std::vector<ActiveFault>& faults) {
  Json list = Json::array();
  for (const ActiveFault& active : faults) {
    list.push_back({{"id", active.id},
                    {"fault", FaultText(active.fault)},
                    {"counted", active.counted},
                    {"struck", active.struck}});
  }
  return list;
}

}  // namespace sim
