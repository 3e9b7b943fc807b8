// The tables of all commands and inquiries, and the look-up of the row for a packet.
#include "simulator/model/Protocol.h"

#include <algorithm>
#include <array>

namespace sim {
namespace {

using V = Var;
using enum Code;
using enum Motion;

// clang-format off
const std::vector<Row> kCamera = {
    // name                  command                    inquiry     reply                fields
    // The settings that the device's software reads and writes, each with its own layout.
    {"CAM_AE",               "04 39 vv",                "04 39",    "vv",                {{'v', V::ae_mode}}},
    {"CAM_Shutter Direct",   "04 4A 00 00 vv vv",       "04 4A",    "00 00 vv vv",       {{'v', V::shutter}}, Needs::ShutterFree},
    {"CAM_Iris Direct",      "04 4B 00 00 0v 0v",       "04 4B",    "00 00 0v 0v",       {{'v', V::iris_pos}}, Needs::IrisFree},
    {"CAM_Gain Direct",      "04 4C 00 00 0v 0v",       "04 4C",    "00 00 0v 0v",       {{'v', V::gain_pos}}, Needs::GainFree},
    {"CAM_Gain Limit",       "04 2C 0v",                "04 2C",    "0v",                {{'v', V::gain_limit}}},
    {"CAM_ExpComp",          "04 3E vv",                "04 3E",    "vv",                {{'v', V::exp_comp}}},
    {"CAM_ExpComp Direct",   "04 4E 00 00 0v 0v",       "04 4E",    "00 00 0v 0v",       {{'v', V::exp_comp_step}}},
    {"CAM_HighSensitivity",  "04 5E vv",                "04 5E",    "vv",                {{'v', V::high_sensitivity}}},
    {"CAM_WD",               "04 3D vv",                "04 3D",    "vv",                {{'v', V::wdr_mode}}},
    {"CAM_WD Parameters",    "04 2D 0d 0s 0b 0w 0r 0r 00 00", "04 2D", "0d 0s 0b 0w 0r 0r 00 00",
        {{'d', V::wdr_display}, {'s', V::wdr_sensitivity}, {'b', V::wdr_shadow}, {'w', V::wdr_highlight}, {'r', V::wdr_ratio}}},
    {"CAM_WB",               "04 35 vv",                "04 35",    "vv",                {{'v', V::wb_mode}}},
    {"CAM_RGain Direct",     "04 43 00 00 0v 0v",       "04 43",    "00 00 0v 0v",       {{'v', V::r_gain}}, Needs::WbManual},
    {"CAM_BGain Direct",     "04 44 00 00 0v 0v",       "04 44",    "00 00 0v 0v",       {{'v', V::b_gain}}, Needs::WbManual},
    {"CAM_ColorGain",        "04 49 00 00 00 vv",       "04 49",    "00 00 00 vv",       {{'v', V::color_gain}}},
    {"CAM_NR",               "04 53 0v",                "04 53",    "0v",                {{'v', V::nr}}},
    {"CAM_PictureFlip",      "04 66 vv",                "04 66",    "vv",                {{'v', V::picture_flip}}},
    {"CAM_LR_Reverse",       "04 61 vv",                "04 61",    "vv",                {{'v', V::lr_reverse}}},
    {"CAM_ICR",              "04 01 vv",                "04 01",    "vv",                {{'v', V::icr}}},
    {"CAM_AutoICR",          "04 51 vv",                "04 51",    "vv",                {{'v', V::auto_icr}}},
    {"CAM_AFMode",           "04 57 vv",                "04 57",    "vv",                {{'v', V::af_mode}}},
    {"CAM_Focus Mode",       "04 38 vv",                "04 38",    "vv",                {{'v', V::focus_mode}}},
    {"CAM_Register",         "04 24 rr 0v 0v",          "04 24 rr", "0v 0v",             {{'r', V::register_number}, {'v', V::register_value}}, Needs::Power, Act::Register},
    {"CAM_WB One Push",      "04 10 05",                "",         "",                  {}, Needs::Power, Act::Nothing},
    // Power, version, identity.
    {"CAM_Power",            "04 00 vv",                "04 00",    "vv",                {{'v', V::power}}, Needs::Standby, Act::Power},
    {"CAM_Version",          "",                        "00 02",    "00 20 mm mm rr rr 02", {{'m', V::model}, {'r', V::rom_version}}, Needs::Standby},
    {"CAM_ID",               "04 22 0v 0v 0v 0v",       "04 22",    "0v 0v 0v 0v",       {{'v', V::camera_id}}},
    // Zoom and focus, as any VISCA controller drives them. Tele raises the zoom's position, far lowers the focus's. In
    // a row with the variable `move`, the motion is that of move 2 (tele or far); move 3 is the opposite.
    {"CAM_Zoom",             "04 07 0m",                "",         "",                  {{'m', V::move}}, Needs::Power, Act::MoveZoom, Up},
    {"CAM_Zoom Tele",        "04 07 2s",                "",         "",                  {{'s', V::speed}}, Needs::Power, Act::MoveZoom, Up},
    {"CAM_Zoom Wide",        "04 07 3s",                "",         "",                  {{'s', V::speed}}, Needs::Power, Act::MoveZoom, Down},
    {"CAM_Zoom Direct",      "04 47 0z 0z 0z 0z",       "04 47",    "0z 0z 0z 0z",       {{'z', V::zoom_pos}}, Needs::Power, Act::ZoomTo},
    {"CAM_Zoom+Focus Direct", "04 47 0z 0z 0z 0z 0f 0f 0f 0f", "", "",                   {{'z', V::zoom_pos}, {'f', V::focus_pos}}, Needs::FocusManual, Act::ZoomFocusTo},
    {"CAM_DZoom",            "04 06 vv",                "04 06",    "vv",                {{'v', V::digital_zoom}}},
    {"CAM_DZoom Mode",       "04 36 vv",                "04 36",    "vv",                {{'v', V::dzoom_mode}}},
    {"CAM_DZoom Direct",     "04 46 00 00 0v 0v",       "04 46",    "00 00 0v 0v",       {{'v', V::digital_zoom_pos}}},
    {"CAM_Focus",            "04 08 0m",                "",         "",                  {{'m', V::move}}, Needs::FocusManual, Act::MoveFocus, Down},
    {"CAM_Focus Far",        "04 08 2s",                "",         "",                  {{'s', V::speed}}, Needs::FocusManual, Act::MoveFocus, Down},
    {"CAM_Focus Near",       "04 08 3s",                "",         "",                  {{'s', V::speed}}, Needs::FocusManual, Act::MoveFocus, Up},
    {"CAM_Focus Direct",     "04 48 0f 0f 0f 0f",       "04 48",    "0f 0f 0f 0f",       {{'f', V::focus_pos}}, Needs::FocusManual, Act::FocusTo},
    {"CAM_Focus Auto/Manual", "04 38 10",               "",         "",                  {}, Needs::Power, Act::ToggleFocus},
    {"CAM_Focus One Push",   "04 18 01",                "",         "",                  {}, Needs::FocusManual, Act::Nothing},
    {"CAM_Focus Infinity",   "04 18 02",                "",         "",                  {}, Needs::FocusManual, Act::FocusInfinity},
    {"CAM_Focus Near Limit", "04 28 0f 0f 0f 0f",       "04 28",    "0f 0f 0f 0f",       {{'f', V::focus_near_limit}}},
    {"CAM_AF Sensitivity",   "04 58 vv",                "04 58",    "vv",                {{'v', V::af_sensitivity}}},
    {"CAM_AF Times",         "04 27 0a 0a 0i 0i",       "04 27",    "0a 0a 0i 0i",       {{'a', V::af_active_time}, {'i', V::af_interval_time}}},
    // Steps: reset, up, down.
    {"CAM_Shutter",          "04 0A ss",                "",         "",                  {{'s', V::step}, {kStepped, V::shutter}}, Needs::ShutterFree, Act::Step},
    {"CAM_Iris",             "04 0B ss",                "",         "",                  {{'s', V::step}, {kStepped, V::iris_pos}}, Needs::IrisFree, Act::Step},
    {"CAM_Gain",             "04 0C ss",                "",         "",                  {{'s', V::step}, {kStepped, V::gain_pos}}, Needs::GainFree, Act::Step},
    {"CAM_Bright",           "04 0D ss",                "",         "",                  {{'s', V::step}, {kStepped, V::bright_pos}}, Needs::BrightFree, Act::Step},
    {"CAM_ExpComp Step",     "04 0E ss",                "",         "",                  {{'s', V::step}, {kStepped, V::exp_comp_step}}, Needs::Power, Act::Step},
    {"CAM_RGain",            "04 03 ss",                "",         "",                  {{'s', V::step}, {kStepped, V::r_gain}}, Needs::WbManual, Act::Step},
    {"CAM_BGain",            "04 04 ss",                "",         "",                  {{'s', V::step}, {kStepped, V::b_gain}}, Needs::WbManual, Act::Step},
    {"CAM_Aperture",         "04 02 ss",                "",         "",                  {{'s', V::step}, {kStepped, V::aperture}}, Needs::Power, Act::Step},
    // On a VISCA line a controller writes the shutter's position in two nibbles; the device's software writes two bytes.
    {"CAM_Shutter Direct (VISCA line)", "04 4A 00 00 0v 0v", "04 4A", "00 00 0v 0v",     {{'v', V::shutter}}, Needs::ShutterFree, Act::Set, None, Line::Visca},
    // The other settings that the blocks show.
    {"CAM_Bright Direct",    "04 4D 00 00 0v 0v",       "04 4D",    "00 00 0v 0v",       {{'v', V::bright_pos}}, Needs::BrightFree},
    {"CAM_Aperture Direct",  "04 42 00 00 00 0v",       "04 42",    "00 00 00 0v",       {{'v', V::aperture}}},
    {"CAM_SlowShutter",      "04 5A vv",                "04 5A",    "vv",                {{'v', V::slow_shutter}}},
    {"CAM_BackLight",        "04 33 vv",                "04 33",    "vv",                {{'v', V::back_light}}},
    {"CAM_SpotAE",           "04 59 vv",                "04 59",    "vv",                {{'v', V::spot_ae}}},
    {"CAM_SpotAE Position",  "04 29 00 00 00 0v",       "04 29",    "00 00 00 0v",       {{'v', V::spot_ae_pos}}},
    {"CAM_AE Response",      "04 5D vv",                "04 5D",    "vv",                {{'v', V::ae_response}}},
    {"CAM_HighResolution",   "04 52 vv",                "04 52",    "vv",                {{'v', V::high_res}}},
    {"CAM_ChromaSuppress",   "04 5F 0v",                "04 5F",    "0v",                {{'v', V::chroma_suppress}}},
    {"CAM_Gamma",            "04 5B 0v",                "04 5B",    "0v",                {{'v', V::gamma}}},
    {"CAM_Freeze",           "04 62 vv",                "04 62",    "vv",                {{'v', V::freeze}}},
    {"CAM_PictureEffect",    "04 63 vv",                "04 63",    "vv",                {{'v', V::picture_effect}}},
    {"CAM_Mute",             "04 75 vv",                "04 75",    "vv",                {{'v', V::mute}}},
    {"CAM_Title",            "04 74 vv",                "04 74",    "vv",                {{'v', V::title_display}}},
    {"CAM_Title Clear",      "04 74 00",                "",         "",                  {}, Needs::Power, Act::Nothing},
    {"CAM_Display",          "04 15 vv",                "04 15",    "vv",                {{'v', V::display}}},
    {"CAM_Memory",           "",                        "04 3F",    "0n",                {{'n', V::memory_last}}},
    {"CAM_Memory Reset",     "04 3F 00 0n",             "",         "",                  {{'n', V::memory_number}}, Needs::Power, Act::MemoryReset},
    {"CAM_Memory Set",       "04 3F 01 0n",             "",         "",                  {{'n', V::memory_number}}, Needs::Power, Act::MemorySet},
    {"CAM_Memory Recall",    "04 3F 02 0n",             "",         "",                  {{'n', V::memory_number}}, Needs::Power, Act::MemoryRecall},
    // The five blocks of thirteen bytes, packed from the same state.
    {"Block 0 Lens",         "", "7E 7E 00", "0z 0z 0z 0z 0n 0n 0f 0f 0f 0f 00 00daasgo 0000lmxy",
        {{'z', V::zoom_pos}, {'n', V::focus_near_limit, High8}, {'f', V::focus_pos}, {'d', V::dzoom_mode}, {'a', V::af_mode},
         {'s', V::af_sensitivity, OnOff}, {'g', V::digital_zoom, OnOff}, {'o', V::focus_mode, OnOff}, {'l', V::low_contrast},
         {'m', V::memory_recall}, {'x', V::focus_moving}, {'y', V::zoom_moving}}},
    {"Block 1 Camera",       "", "7E 7E 01", "0r 0r 0b 0b 0w 0a 0e 00hdtlcs 000vvvvv 000iiiii 0000gggg 000kkkkk 0000pppp",
        {{'r', V::r_gain}, {'b', V::b_gain}, {'w', V::wb_mode}, {'a', V::aperture}, {'e', V::ae_mode}, {'h', V::high_res, OnOff},
         {'d', V::wdr_mode, NotOff}, {'t', V::spot_ae, OnOff}, {'l', V::back_light, OnOff}, {'c', V::exp_comp, OnOff},
         {'s', V::slow_shutter, OnOff}, {'v', V::shutter}, {'i', V::iris_pos}, {'g', V::gain_pos}, {'k', V::bright_pos},
         {'p', V::exp_comp_step}}},
    {"Block 2 Other",        "", "7E 7E 02", "0000ai0p 000cfl00 00vmtd00 00000eee 00 00 0k 0k 0k 0k 000y0j0h 00 00",
        {{'a', V::auto_icr_alarm}, {'i', V::auto_icr, OnOff}, {'p', V::power, OnOff}, {'c', V::icr, OnOff}, {'f', V::freeze, OnOff},
         {'l', V::lr_reverse, OnOff}, {'v', V::privacy_zone}, {'m', V::mute, OnOff}, {'t', V::title_display, OnOff},
         {'d', V::display, OnOff}, {'e', V::picture_effect}, {'k', V::camera_id}, {'y', V::memory}, {'j', V::icr, OnOff}, {'h', V::field_50hz}}},
    {"Block 3 Enlarge 1",    "", "7E 7E 03", "0z 0z 0a 0a 0b 0b 00 0s 00000mip 00gggvjq 000rrrrr 0yyyhnnn 0ccckkkk",
        {{'z', V::digital_zoom_pos}, {'a', V::af_active_time}, {'b', V::af_interval_time}, {'s', V::spot_ae_pos}, {'m', V::md},
         {'i', V::alarm}, {'p', V::picture_flip, OnOff}, {'g', V::color_gain}, {'v', V::advanced_privacy}, {'j', V::alarm}, {'q', V::picture_flip, OnOff}, {'r', V::ae_response},
         {'y', V::gamma}, {'h', V::high_sensitivity, OnOff}, {'n', V::nr}, {'c', V::chroma_suppress}, {'k', V::gain_limit}}},
    {"Block 4 Enlarge 2",    "", "7E 7E 04", "00000mmm 0000ddss 0000bbww 0r 0r 00 00 00 00 00 00 00 00",
        {{'m', V::wdr_mode, WdrMode}, {'d', V::wdr_display}, {'s', V::wdr_sensitivity}, {'b', V::wdr_shadow},
         {'w', V::wdr_highlight}, {'r', V::wdr_ratio}}},
};

const std::vector<Row> kMcu = {
    // name                  command                    reply
    {"PelcoD",               "01 aa bb cc dd",          "", "10", {{'a', V::pelco_1}, {'b', V::pelco_2}, {'c', V::pelco_3}, {'d', V::pelco_4}}, Needs::Power, Act::Pelco},
    {"Sony Lens",            "02",                      "", "",   {}, Needs::Power, Act::Sony},
    {"Max Speed",            "03 vv vv",                "", "10", {{'v', V::max_speed}}},
    {"Scan Speed",           "04 vv",                   "", "10", {{'v', V::scan_speed}}},
    {"Tilt Angle",           "05 vv",                   "", "10", {{'v', V::tilt_angle}}},
    {"Auto Flip",            "06 vv",                   "", "10", {{'v', V::auto_flip}}},
    {"Proportional P/T",     "07 vv",                   "", "10", {{'v', V::proportional}}},
    {"Scan Angle",           "08 vv",                   "", "10", {{'v', V::scan_angle}}},
    {"Scan Limit Enable",    "09 vv",                   "", "10", {{'v', V::scan_limit}}},
    {"Scan Right Limit",     "0A vv vv vv vv",          "", "10", {{'v', V::scan_right_limit}}},
    {"Scan Left Limit",      "0B vv vv vv vv",          "", "10", {{'v', V::scan_left_limit}}},
    {"Lens Power Control",   "0C vv",                   "", "10", {{'v', V::lens_power}}},
    {"Load Default",         "0D ..",                   "", "10", {}, Needs::Power, Act::LoadDefault},
    {"Get Alarm In State",   "0E ..",                   "", "vv", {{'v', V::alarm_in}}, Needs::Power, Act::Nothing},
    {"Get H/W Default I/O State", "0F ..",              "", "vv", {{'v', V::io_state}}, Needs::Power, Act::Nothing},
    {"Get Version",          "10 ..",                   "", "vv", {{'v', V::mcu_version}}, Needs::Power, Act::Nothing},
    {"Get PTZ",              "11 mm",                   "", "pp pp pp pp tt tt zz zz", {{'m', V::ptz_report}, {'p', V::pan}, {'t', V::tilt}, {'z', V::zoom}}},
    {"Set PTZ",              "12 pp pp pp pp tt tt zz zz", "", "10", {{'p', V::pan}, {'t', V::tilt}, {'z', V::zoom}}},
    {"Set Alarm Out",        "13 vv",                   "", "10", {{'v', V::alarm_out}}},
    {"Get Motor State",      "14 mm",                   "", "vv", {{'m', V::motor_report}, {'v', V::motor_state}}},
    {"Set Pan Tilt Angle",   "15 vv",                   "", "10", {{'v', V::pan_tilt_angle}}},
};
// clang-format on

// The camera's rows by the second byte of one of their templates, the one in `column`. Its first two bytes are fixed.
class Index {
 public:
  explicit Index(Template Row::*column) : column_(column) {
    for (const Row& row : kCamera) {
      if (!(row.*column).empty()) {
        rows_[(row.*column).Fixed(1).value()].push_back(&row);
      }
    }
  }

  // Returns the first row of that line whose template matches and whose variables accept the values; if there is none,
  // the first row whose template matches.
  std::optional<Found> Find(ByteView data, Line line) const {
    std::optional<Found> found;
    if (data.size() < 2) {
      return found;
    }
    for (const Row* row : rows_[data[1]]) {
      const auto values = row->line == line ? Match(row->*column_, row->fields, data) : std::nullopt;
      if (!values) {
        continue;
      }
      const bool accepted = Accepted(*values);
      if (accepted || !found) {
        found = Found{row, *values};
      }
      if (accepted) {
        break;
      }
    }
    return found;
  }

 private:
  Template Row::*const column_;
  std::array<std::vector<const Row*>, 256> rows_;
};

std::optional<Found> Find(const Index& index, ByteView data, Line line) {
  auto found = line == Line::Visca ? index.Find(data, line) : std::nullopt;
  return found ? found : index.Find(data, Line::Any);
}

}  // namespace

std::span<const Row> CameraTable() { return kCamera; }
std::span<const Row> McuTable() { return kMcu; }

std::optional<Found> FindCommand(ByteView data, Line line) {
  static const Index index(&Row::command);
  return Find(index, data, line);
}

std::optional<Found> FindInquiry(ByteView data, Line line) {
  static const Index index(&Row::inquiry);
  return Find(index, data, line);
}

const Row* FindMcu(std::uint8_t id) {
  const auto found = std::ranges::find(kMcu, id, [](const Row& row) { return row.command.Fixed(0); });
  return found != kMcu.end() ? &*found : nullptr;
}

std::string_view NeedsText(Needs needs) {
  switch (needs) {
    case Needs::Power:
      return "power on";
    case Needs::Standby:
      return "";
    case Needs::ShutterFree:
      return "AE manual or shutter priority";
    case Needs::IrisFree:
      return "AE manual or iris priority";
    case Needs::GainFree:
      return "AE manual";
    case Needs::BrightFree:
      return "AE bright";
    case Needs::WbManual:
      return "WB manual";
    case Needs::FocusManual:
      return "focus manual";
  }
  return "";
}

std::string_view McuResultText(std::uint8_t code) {
  switch (code) {
    case kMcuOk:
      return "OK";
    case kMcuChecksum:
      return "checksum error";
    case kMcuUnknown:
      return "command not defined";
    case kMcuRange:
      return "value out of range";
    case kMcuBusy:
      return "busy";
    default:
      return "unknown result";
  }
}

}  // namespace sim
