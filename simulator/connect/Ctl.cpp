// Turns the commands of ctl into requests to the control interface, and the answers into text.
#include "simulator/connect/Ctl.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <nlohmann/json.hpp>
#include <ostream>

#include "simulator/connect/Control.h"
#include "simulator/connect/Files.h"
#include "simulator/model/Change.h"
#include "simulator/model/Error.h"
#include "simulator/model/Faults.h"
#include "simulator/model/Text.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

// Exit statuses.
constexpr int kRefused = 1;  // also: the output cannot be written
constexpr int kNoSimulator = 2;

constexpr const char* kNotASimulator = "the server there is not a simulator";

constexpr int kAnswerSeconds = 10;
constexpr int kFirstFailure = 400;  // HTTP statuses from here on

// A failure with its exit status.
struct Failure {
  int status;
  std::string text;
};

std::string Encoded(const std::string& text) {
  std::string encoded;
  for (const char c : text) {
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0;
    encoded += plain ? std::string(1, c) : "%" + ToHex(Bytes{static_cast<std::uint8_t>(c)});
  }
  return encoded;
}

// The text of a JSON string, safe to print on a terminal.
std::string Shown(const Json& json) { return Printable(json.get<std::string>()); }

bool IsHex(std::string_view text) { return text.starts_with("0x") || text.starts_with("0X"); }

// Returns the number of a register as the simulator writes it, "0x7F"; anything else unchanged.
std::string RegisterName(const std::string& name) {
  const bool hex = IsHex(name);
  std::uint8_t number = 0;
  const char* const end = name.data() + name.size();
  const auto parsed = std::from_chars(name.data() + (hex ? 2 : 0), end, number, hex ? 16 : 10);
  return parsed.ec == std::errc() && parsed.ptr == end ? "0x" + ToHex(Bytes{number}) : name;
}

// Adds the section to a name without one: "ae_mode" becomes "camera.ae_mode", "0x72" becomes "registers.0x72".
std::string FullName(const std::string& name) {
  constexpr std::string_view kRegisters = "registers.";
  if (name.starts_with(kRegisters)) {
    return std::string(kRegisters) + RegisterName(name.substr(kRegisters.size()));
  }
  if (name.find('.') != std::string::npos) {
    return name;
  }
  const auto var = FindVar(name);
  if (var && !VariableSection(*var).empty()) {
    return std::string(VariableSection(*var)) + "." + name;
  }
  return IsHex(name) ? std::string(kRegisters) + RegisterName(name) : "camera." + name;
}

// Returns a number, true or false, or a string.
Json ValueOf(const std::string& text) {
  const Json json = Json::parse(text, nullptr, false);
  if (json.is_number() || json.is_boolean()) {
    return json;
  }
  const bool hex = IsHex(text);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data() + (hex ? 2 : 0), text.data() + text.size(), number, 16);
  return hex && error == std::errc() && end == text.data() + text.size() ? Json(number) : Json(text);
}

Json SetBody(const std::vector<std::string>& words) {
  Json body = Json::object();
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
      throw Failure{kRefused, word + ": must be NAME=VALUE"};
    }
    const std::string name = FullName(word.substr(0, equals));
    const std::size_t dot = name.find('.');
    Json& section = body[name.substr(0, dot)];
    if (section.contains(name.substr(dot + 1))) {
      throw Failure{kRefused, name + ": given twice"};
    }
    section[name.substr(dot + 1)] = ValueOf(word.substr(equals + 1));
  }
  return body;
}

std::string StateText(const Json& state, const std::string& wanted) {
  std::string text;
  for (const char* const section : {"camera", "mcu", "registers"}) {
    for (const auto& [key, value] : state.at(section).items()) {
      const std::string name = std::string(section) + "." + key;
      const std::string shown = value.is_object() ? Shown(value.at("text")) : value.dump();
      if (name == wanted) {
        return shown + "\n";
      }
      if (shown != "0" || value.is_object()) {
        text += name + "=" + shown + "\n";
      }
    }
  }
  const std::string supply = state.at("supply").get<bool>() ? "on" : "off";
  if (wanted == "supply") {
    return supply + "\n";
  }
  if (!wanted.empty()) {
    throw Failure{kRefused, wanted + ": no such variable"};
  }
  return text + "supply=" + supply + "\n";
}

std::string FaultsText(const Json& list) {
  std::string text;
  for (const Json& fault : list.at("faults")) {
    text += std::to_string(fault.at("id").get<std::uint32_t>()) + " " + Shown(fault.at("fault")) + " counted " +
            std::to_string(fault.at("counted").get<std::uint32_t>()) + " struck " +
            std::to_string(fault.at("struck").get<std::uint32_t>()) + "\n";
  }
  return text;
}

std::string MessageText(const Json& message) {
  const std::string note = Shown(message.at("note"));
  std::string text = std::to_string(message.at("number").get<std::uint64_t>());
  for (const char* const key : {"direction", "body", "meaning"}) {
    text += " " + Shown(message.at(key));
  }
  return text + (note.empty() ? "" : " [" + note + "]") + "\n";
}

std::string MessagesText(const Json& list) {
  std::string text;
  if (const auto dropped = list.at("dropped").get<std::uint64_t>(); dropped != 0) {
    text = "... " + std::to_string(dropped) +
           (dropped == 1 ? " message has been dropped\n" : " messages have been dropped\n");
  }
  for (const Json& message : list.at("messages")) {
    text += MessageText(message);
  }
  return text;
}

// Returns the simulator's answer. Throws Failure if it refuses the request or does not answer.
Json Ask(const Ctl::Send& send, const std::string& method, const std::string& target, const std::string& body = "",
         int seconds = kAnswerSeconds) {
  const std::optional<Answer> answer = send(method, target, body, seconds);
  if (!answer) {
    throw Failure{kNoSimulator, "there is no simulator"};
  }
  if (answer->status == kNoAnswer) {
    throw Failure{kNoSimulator, "the simulator does not answer"};
  }
  Json json = Json::parse(answer->body, nullptr, false);
  if (!json.is_object()) {
    throw Failure{kNoSimulator, kNotASimulator};
  }
  if (answer->status >= kFirstFailure) {
    throw Failure{kRefused, json.value("error", "refused")};
  }
  return json;
}

}  // namespace

Ctl::Ctl(CLI::App& app) : command_(app.add_subcommand("ctl", "Query or change a simulator that runs with --control")) {
  command_->require_subcommand(1);
  command_->add_option("--control", where_, "The value of the simulator's --control")
      ->envname("ZR4410_CONTROL")
      ->required();
  CLI::App* const get = command_->add_subcommand("get", "Print one variable, or all variables and registers");
  get->add_option("NAME", name_, "Such as ae_mode, mcu.pan, registers.0x72, supply");
  CLI::App* const set = command_->add_subcommand("set", "Change variables and registers, all or none");
  set->add_option("SETTING", words_, "NAME=VALUE, such as ae_mode=manual pan=64000")->required();
  CLI::App* const fault = command_->add_subcommand("fault", "Add faults, and print their ids");
  fault->add_option("FAULT", words_, "As for --fault, such as late:ms=2500,nth=1")->required();
  command_->add_subcommand("faults", "List the faults");
  CLI::App* const clear = command_->add_subcommand("clear", "Remove one fault, or all faults");
  clear->add_option("ID", id_, "The fault's id");
  CLI::App* const supply = command_->add_subcommand("supply", "Connect or cut the camera's supply");
  supply->add_option("on|off", on_)->required()->check(CLI::IsMember({"on", "off"}));
  CLI::App* const scenario = command_->add_subcommand("scenario", "Restart the device from a scenario");
  scenario->add_option("FILE", name_, "A TOML file, or the name of an installed scenario")->required();
  CLI::App* const messages = command_->add_subcommand("messages", "List the last messages");
  CLI::App* const wait = command_->add_subcommand("wait", "Wait for a message, and print it");
  for (CLI::App* const listing : {messages, wait}) {
    listing->add_option("--since", since_, "Only messages with a greater number")->check(CLI::NonNegativeNumber);
    listing->add_option("--match", match_, "Only messages with these bytes, in hexadecimal");
  }
  wait->add_option("--timeout", timeout_ms_, "How long to wait, in milliseconds")
      ->check(CLI::Range(std::uint64_t{0}, kGreatestWaitMs))
      ->capture_default_str();
}

bool Ctl::given() const { return command_->parsed(); }

int Ctl::Run(std::ostream& out, std::ostream& error) {
  const Send send = [this](const std::string& method, const std::string& target, const std::string& body, int seconds) {
    return Control::Send(where_, method, target, body, seconds);
  };
  return Run(send, out, error);
}

int Ctl::Run(const Send& send, std::ostream& out, std::ostream& error) {
  const auto is = [this](const char* name) { return command_->got_subcommand(name); };
  std::string query;  // of messages and wait
  const auto add = [&query](const std::string& key, const std::string& value) {
    query += (query.empty() ? "?" : "&") + key + "=" + value;
  };
  if (since_) {
    add("since", std::to_string(*since_));
  }
  if (!match_.empty()) {
    add("match", Encoded(match_));
  }
  const auto complain = [this, &error](const Failure& failure) {
    const std::string place = failure.status == kNoSimulator ? where_ + ": " : "";
    error << "simZR4410: " << Printable(place + failure.text) << '\n';
    return failure.status;
  };
  try {
    if (is("get")) {
      const std::string name = name_ == "supply" || name_.empty() ? name_ : FullName(name_);
      out << StateText(Ask(send, "GET", "/state"), name);
    } else if (is("set")) {
      Ask(send, "PATCH", "/state", SetBody(words_).dump());
    } else if (is("fault")) {
      for (const std::string& word : words_) {
        ParseFault(word);  // rejects an invalid one before any is added
      }
      for (const std::string& word : words_) {
        out << Ask(send, "POST", "/faults", Json{{"kind", word}}.dump()).at("id") << '\n';
      }
    } else if (is("faults")) {
      out << FaultsText(Ask(send, "GET", "/faults"));
    } else if (is("clear")) {
      Ask(send, "DELETE", id_ ? "/faults/" + std::to_string(*id_) : "/faults");
    } else if (is("supply")) {
      Ask(send, "POST", "/supply", Json{{"on", on_ == "on"}}.dump());
    } else if (is("scenario")) {
      Ask(send, "POST", "/scenario", ReadFile(ScenarioFile(name_)));
    } else if (is("messages")) {
      out << MessagesText(Ask(send, "GET", "/messages" + query));
    } else if (is("wait")) {
      add("timeout_ms", std::to_string(timeout_ms_));
      const auto seconds = static_cast<int>(timeout_ms_ / 1000) + kAnswerSeconds;
      out << MessageText(Ask(send, "GET", "/wait" + query, "", seconds));
    }
    if (!out.flush()) {
      throw Failure{kRefused, "standard output cannot be written"};
    }
  } catch (const Failure& failure) {
    return complain(failure);
  } catch (const Error& failure) {
    return complain({kRefused, failure.what()});
  } catch (const Json::exception&) {
    return complain({kNoSimulator, kNotASimulator});
  }
  return 0;
}

}  // namespace sim
