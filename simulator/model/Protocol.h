// Every command and inquiry of the camera and the MCU, one row each: request, reply, and the variables in them. The
// models follow these tables, the trace describes messages with them, and docs/protocol.md is generated from them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "simulator/model/Bytes.h"
#include "simulator/model/Template.h"

namespace sim {

// The condition for executing a command. All but Standby also need the camera's power to be on.
enum class Needs : std::uint8_t { Power, Standby, ShutterFree, IrisFree, GainFree, BrightFree, WbManual, FocusManual };

// What a command does with the fields it carries.
enum class Act : std::uint8_t {
  Set,            // writes them to their variables
  Nothing,        // is accepted and has no effect
  Power,          // switches between on and standby
  Step,           // raises, lowers or resets the variable of its kStepped field, the second of the row
  MoveZoom,       // starts the zoom or stops it
  MoveFocus,      // the same for the focus
  ZoomTo,         // drives to a position, which takes time
  FocusTo,        // the same for the focus
  ZoomFocusTo,    // both
  ToggleFocus,    // auto to manual and back
  FocusInfinity,  // drives the focus to the far end
  Register,       // writes a register; an inquiry reads it
  MemoryReset,
  MemorySet,
  MemoryRecall,
  Sony,         // MCU 0x02: the data is a VISCA packet for the camera
  Pelco,        // MCU: pan and tilt start or stop
  LoadDefault,  // MCU: back to the starting values
};

// On which line a row is valid: the camera knows one more form of a packet on a VISCA line than behind the queues.
enum class Line : std::uint8_t { Any, Visca };

// Whether a motor's position decreases or increases while it moves.
enum class Motion : std::int8_t { Down = -1, None = 0, Up = 1 };

// The templates (see Template.h) leave out what all packets have in common:
//   camera   command 81 01 ... FF      inquiry 81 09 ... FF      reply 90 50 ... FF
//   MCU      AA ... (id, then length and data) checksum 55       reply AA id+80 ... checksum 55
// An empty template means that there is no such packet.
struct Row {
  std::string_view name;
  Template command;
  Template inquiry;
  Template reply;  // to the inquiry, or to the MCU's command
  std::vector<Field> fields;
  Needs needs = Needs::Power;
  Act act = Act::Set;
  Motion motion = Motion::None;  // of MoveZoom and MoveFocus
  Line line = Line::Any;
};
std::span<const Row> CameraTable();
std::span<const Row> McuTable();

// A row and the values of its fields in a packet.
struct Found {
  const Row* row;
  Values values;
};
// Find the camera's row for the bytes between 8x 01 (a command) or 8x 09 (an inquiry) and FF. Nothing if no row
// matches. The values may be out of range. With Line::Visca the rows of that line come first, otherwise they are left
// out.
std::optional<Found> FindCommand(ByteView data, Line line);
std::optional<Found> FindInquiry(ByteView data, Line line);
// The MCU's row for a command id; nullptr if there is none.
const Row* FindMcu(std::uint8_t id);
// The condition in words; empty for Standby.
std::string_view NeedsText(Needs needs);

// The MCU's command ids that the models use by name; the others are only in the table.
constexpr std::uint8_t kGetPtz = 0x11;
constexpr std::uint8_t kSetPtz = 0x12;
constexpr std::uint8_t kGetMotorState = 0x14;

// The result byte of an MCU reply that carries no data of its own.
enum : std::uint8_t { kMcuOk = 0x10, kMcuChecksum = 0x20, kMcuUnknown = 0x30, kMcuRange = 0x40, kMcuBusy = 0x50 };
constexpr std::string_view kMcuOkReply = "10";  // kMcuOk as a template
std::string_view McuResultText(std::uint8_t code);
// Returns whether the byte is the code of a failure.
constexpr bool IsMcuError(std::uint8_t code) {
  return code == kMcuChecksum || code == kMcuUnknown || code == kMcuRange || code == kMcuBusy;
}

}  // namespace sim
