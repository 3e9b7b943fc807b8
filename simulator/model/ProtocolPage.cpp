// Prints the tables of Protocol.cpp and State.h.
#include "simulator/model/ProtocolPage.h"

#include "simulator/model/Protocol.h"

namespace sim {
namespace {

std::string InFull(std::string_view head, std::string_view text, std::string_view tail) {
  return text.empty() ? "" : "`" + std::string(head) + std::string(text) + std::string(tail) + "`";
}

std::string_view CodeText(Code code) {
  switch (code) {
    case Code::Plain:
      return "";
    case Code::OnOff:
      return " (1 when on)";
    case Code::NotOff:
      return " (0 when off)";
    case Code::High8:
      return " (high byte)";
    case Code::WdrMode:
      return " (block numbers)";
  }
  return "";
}

std::string FieldsText(const Row& row) {
  std::string text;
  for (const Field& field : row.fields) {
    if (field.letter == kStepped) {
      text += "; steps " + std::string(Info(field.var).name);
      continue;
    }
    text += (text.empty() ? "" : ", ") + std::string(1, field.letter) + " = " + std::string(Info(field.var).name);
    text += CodeText(field.code);
  }
  return text;
}

}  // namespace

std::string ProtocolMarkdown() {
  std::string text = "### Camera\n\n| name | command | inquiry | reply | fields | needs |\n|---|---|---|---|---|---|\n";
  for (const Row& row : CameraTable()) {
    text += "| " + std::string(row.name) + " | " + InFull("81 01 ", row.command, " FF") + " | " +
            InFull("81 09 ", row.inquiry, " FF") + " | " + InFull("90 50 ", row.reply, " FF") + " | " +
            FieldsText(row) + " | " + std::string(NeedsText(row.needs)) + " |\n";
  }
  text += "\n### MCU\n\n| name | id and data | reply data | fields |\n|---|---|---|---|\n";
  for (const Row& row : McuTable()) {
    text += "| " + std::string(row.name) + " | " + InFull("", row.command, "") + " | " + InFull("", row.reply, "") +
            " | " + FieldsText(row) + " |\n";
  }
  text += "\n### Variables\n\n| name | start | set by a command to | names |\n|---|---|---|---|\n";
  for (std::size_t i = 0; i < static_cast<std::size_t>(kFirstTransient); ++i) {
    const Var var = static_cast<Var>(i);
    const VarInfo& info = Info(var);
    std::string names;
    for (const ValueName& n : info.names) {
      names += (names.empty() ? "" : ", ") + std::to_string(n.value) + " " + std::string(n.name);
    }
    text += "| " + std::string(info.name) + " | " + std::to_string(info.start) + " | " +
            (names.empty() ? std::to_string(info.least) + " to " + std::to_string(info.greatest) : "a named value") +
            " | " + names + " |\n";
  }
  return text;
}

}  // namespace sim
