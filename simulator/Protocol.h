// Every command and inquiry of the camera and the MCU, one row each: what goes out, what comes back, the state
// it touches. The model obeys this table, the trace reads messages with it and docs/protocol.md is printed
// from it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/State.h"

namespace sim {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// How a variable's value is written.
enum class Code : std::uint8_t {
  Plain,    // as it is, the low bits where the template has too few
  OnOff,    // 1 where the setting is 2, else 0
  Not3,     // 0 where the setting is 3 ("off"), else 1
  High8,    // the high byte of a 16-bit position
  WdrMode,  // the block's own numbers for the wide-dynamic-range mode
};

struct Field {
  char letter;
  Var var;
  Code code = Code::Plain;
};

// When a command can be carried out. All but Standby also need the power on.
enum class Needs : std::uint8_t { Power, Standby, ShutterFree, IrisFree, GainFree, BrightFree, WbManual, FocusManual };

// What a command does with the fields it carries.
enum class Act : std::uint8_t {
  Set,            // writes them to their variables
  Nothing,        // is accepted
  Power,          // switches between on and standby
  Step,           // up, down or back to the start: the variable named first
  MoveZoom,       // starts or stops the zoom
  MoveFocus,      // starts or stops the focus
  ZoomTo,         // drives to a position, which takes its time
  FocusTo,        // likewise
  ZoomFocusTo,    // both
  ToggleFocus,    // auto to manual and back
  FocusInfinity,  // drives the focus to the far end
  Register,       // writes a register
  MemoryReset,
  MemorySet,
  MemoryRecall,
  Sony,         // MCU 0x02: the data is a VISCA packet for the camera
  Pelco,        // MCU: pan and tilt start or stop
  LoadDefault,  // MCU: back to the starting values
};

// Templates are bytes: two characters are two nibbles, eight are eight bits. Digits and capitals stand for
// themselves, a small letter for the field of that letter, whose digits are collected from left to right.
// ".." is a byte that may be absent and means nothing. The parts common to all packets are left out:
//   camera   command 81 01 ... FF      inquiry 81 09 ... FF      reply 90 50 ... FF
//   MCU      AA ... (id, then length and data) checksum 55       reply AA id+80 ... checksum 55
struct Row {
  std::string_view name;
  std::string_view command;
  std::string_view inquiry;
  std::string_view reply;
  std::vector<Field> fields;
  Needs needs = Needs::Power;
  Act act = Act::Set;
};
std::span<const Row> CameraTable();
std::span<const Row> McuTable();

struct FieldValue {
  const Field* field;
  std::uint32_t value;
};
using Values = std::vector<FieldValue>;

// The fields of `data` when it has the shape of `text`.
std::optional<Values> Match(std::string_view text, std::span<const Field> fields, ByteView data);
// The bytes of `text` with its fields taken from the state.
Bytes Fill(std::string_view text, std::span<const Field> fields, const State& state);
// "manual", "pan 64000, tilt 300, zoom 16".
std::string ValuesText(const Values& values);

// A camera packet's row, by its bytes between 8x 01 or 8x 09 and FF.
struct Match1 {
  const Row* row;
  Values values;
};
std::optional<Match1> FindCommand(ByteView data);
std::optional<Match1> FindInquiry(ByteView data);
// The MCU command of that identifier; nullptr when there is none.
const Row* FindMcu(std::uint8_t id);

// VISCA error codes and MCU result codes.
enum : std::uint8_t {
  kErrLength = 0x01,
  kErrSyntax = 0x02,
  kErrBufferFull = 0x03,
  kErrCancelled = 0x04,
  kErrNoSocket = 0x05,
  kErrNotExecutable = 0x41
};
enum : std::uint8_t { kMcuOk = 0x10, kMcuChecksum = 0x20, kMcuUnknown = 0x30, kMcuRange = 0x40, kMcuBusy = 0x50 };
std::string_view ViscaErrorText(std::uint8_t code);
std::string_view McuResultText(std::uint8_t code);

// The tables as Markdown, for docs/protocol.md.
std::string ProtocolMarkdown();

}  // namespace sim
