// The state of the simulated device: one row per variable, with its starting value and the values it may take.
// Protocol.h says where a variable is in a packet.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace sim {

struct ValueName {
  std::uint32_t value;
  std::string_view name;
};

// VISCA settings use 2 for on (or auto) and 3 for off (or manual); the block inquiries use 1 and 0.
constexpr std::uint32_t kOn = 2;
constexpr std::uint32_t kOff = 3;
constexpr std::uint32_t kAuto = 2;
constexpr std::uint32_t kManual = 3;
inline constexpr ValueName kOnOff[] = {{kOn, "on"}, {kOff, "off"}};
inline constexpr ValueName kAutoManual[] = {{kAuto, "auto"}, {kManual, "manual"}};

constexpr std::uint32_t kAeManual = 0x03;
constexpr std::uint32_t kAeShutterPriority = 0x0A;
constexpr std::uint32_t kAeIrisPriority = 0x0B;
constexpr std::uint32_t kAeBright = 0x0D;
inline constexpr ValueName kAeModes[] = {{0x00, "fully auto"},
                                         {kAeManual, "manual"},
                                         {kAeShutterPriority, "shutter priority"},
                                         {kAeIrisPriority, "iris priority"},
                                         {kAeBright, "bright"}};
constexpr std::uint32_t kWbManual = 5;
inline constexpr ValueName kWbModes[] = {
    {0, "auto"},           {1, "indoor"},       {2, "outdoor"},          {3, "one push"},   {4, "atw"},
    {kWbManual, "manual"}, {6, "outdoor auto"}, {7, "sodium lamp auto"}, {8, "sodium lamp"}};
inline constexpr ValueName kAfModes[] = {{0, "normal"}, {1, "interval"}, {2, "zoom trigger"}};
inline constexpr ValueName kAfSensitivities[] = {{2, "normal"}, {3, "low"}};
inline constexpr ValueName kZoomModes[] = {{0, "combined"}, {1, "separate"}};
inline constexpr ValueName kWdrModes[] = {{0, "auto"}, {1, "exposure ratio"}, {2, "on"}, {3, "off"}, {4, "histogram"}};
inline constexpr ValueName kEffects[] = {{0, "none"}, {2, "negative"}, {4, "black and white"}};
inline constexpr ValueName kYesNo[] = {{0, "no"}, {1, "yes"}};
inline constexpr ValueName kSwitch[] = {{0, "off"}, {1, "on"}};
inline constexpr ValueName kOnce[] = {{0, "get"}, {1, "automatic response"}};
inline constexpr ValueName kTiltAngles[] = {{0, "indoor 85"}, {1, "outdoor 92"}};
inline constexpr ValueName kStartStop[] = {{0, "stop"}, {1, "start"}};
constexpr std::uint32_t kStepReset = 0;
constexpr std::uint32_t kStepUp = 2;
inline constexpr ValueName kSteps[] = {{kStepReset, "reset"}, {kStepUp, "up"}, {3, "down"}};
constexpr std::uint32_t kMoveStop = 0;
constexpr std::uint32_t kMoveTeleOrFar = 2;
inline constexpr ValueName kMoves[] = {{kMoveStop, "stop"}, {kMoveTeleOrFar, "tele or far"}, {3, "wide or near"}};
inline constexpr std::span<const ValueName> kNumber = {};

// The rows: name; starting value; least and greatest value that a command may set; greatest value that fits the field
// in the packet; names of the values. If values have names, a command may only set a value that has one. A scenario may
// set any value that fits the field.
// clang-format off
#define ZR4410_CAMERA_VARIABLES(X)                                \
  /* exposure */                                                  \
  X(ae_mode,             0x00, 0, 0x0D,   0x0F,   kAeModes)       \
  X(shutter,             6,    0, 21,     0xFFFF, kNumber)        \
  X(iris_pos,            14,   0, 17,     0xFF,   kNumber)        \
  X(gain_pos,            1,    0, 15,     0xFF,   kNumber)        \
  X(bright_pos,          17,   0, 31,     0xFF,   kNumber)        \
  X(exp_comp,            3,    2, 3,      0xFF,   kOnOff)         \
  X(exp_comp_step,       7,    0, 14,     0xFF,   kNumber)        \
  X(gain_limit,          11,   0, 15,     0x0F,   kNumber)        \
  X(high_sensitivity,    3,    2, 3,      0xFF,   kOnOff)         \
  X(slow_shutter,        3,    2, 3,      0xFF,   kAutoManual)    \
  X(back_light,          3,    2, 3,      0xFF,   kOnOff)         \
  X(spot_ae,             3,    2, 3,      0xFF,   kOnOff)         \
  X(spot_ae_pos,         0,    0, 15,     0x0F,   kNumber)        \
  X(ae_response,         1,    1, 31,     0x1F,   kNumber)        \
  /* wide dynamic range */                                        \
  X(wdr_mode,            3,    0, 4,      0xFF,   kWdrModes)      \
  X(wdr_display,         0,    0, 15,     0x0F,   kNumber)        \
  X(wdr_sensitivity,     1,    0, 15,     0x0F,   kNumber)        \
  X(wdr_shadow,          1,    0, 15,     0x0F,   kNumber)        \
  X(wdr_highlight,       1,    0, 15,     0x0F,   kNumber)        \
  X(wdr_ratio,           7,    0, 255,    0xFF,   kNumber)        \
  /* white balance and colour */                                  \
  X(wb_mode,             0,    0, 8,      0x0F,   kWbModes)       \
  X(r_gain,              0xC8, 0, 255,    0xFF,   kNumber)        \
  X(b_gain,              0xB4, 0, 255,    0xFF,   kNumber)        \
  X(color_gain,          4,    0, 14,     0xFF,   kNumber)        \
  X(chroma_suppress,     1,    0, 3,      0x07,   kNumber)        \
  X(gamma,               0,    0, 4,      0x07,   kNumber)        \
  /* picture */                                                   \
  X(nr,                  3,    0, 7,      0x0F,   kNumber)        \
  X(aperture,            8,    0, 15,     0x0F,   kNumber)        \
  X(high_res,            3,    2, 3,      0xFF,   kOnOff)         \
  X(picture_flip,        3,    2, 3,      0xFF,   kOnOff)         \
  X(lr_reverse,          3,    2, 3,      0xFF,   kOnOff)         \
  X(freeze,              3,    2, 3,      0xFF,   kOnOff)         \
  X(picture_effect,      0,    0, 4,      0x07,   kEffects)       \
  X(mute,                3,    2, 3,      0xFF,   kOnOff)         \
  X(title_display,       3,    2, 3,      0xFF,   kOnOff)         \
  X(display,             3,    2, 3,      0xFF,   kOnOff)         \
  X(privacy_zone,        0,    0, 1,      1,      kYesNo)         \
  X(advanced_privacy,    0,    0, 1,      1,      kYesNo)         \
  X(md,                  0,    0, 1,      1,      kYesNo)         \
  X(alarm,               0,    0, 1,      1,      kYesNo)         \
  /* day and night */                                             \
  X(icr,                 3,    2, 3,      0xFF,   kOnOff)         \
  X(auto_icr,            3,    2, 3,      0xFF,   kOnOff)         \
  X(auto_icr_alarm,      0,    0, 1,      1,      kYesNo)         \
  /* lens */                                                      \
  X(zoom_pos,            0,    0, 31424,  0xFFFF, kNumber)        \
  X(digital_zoom,        3,    2, 3,      0xFF,   kOnOff)         \
  X(digital_zoom_pos,    0,    0, 235,    0xFF,   kNumber)        \
  X(dzoom_mode,          0,    0, 1,      1,      kZoomModes)     \
  X(focus_mode,          2,    2, 3,      0xFF,   kAutoManual)    \
  X(focus_pos,           0x8000, 0x1000, 0xF000, 0xFFFF, kNumber) \
  X(focus_near_limit,    0xD000, 0x1000, 0xF000, 0xFFFF, kNumber) \
  X(af_mode,             0,    0, 2,      0x03,   kAfModes)       \
  X(af_sensitivity,      2,    2, 3,      0xFF,   kAfSensitivities) \
  X(af_active_time,      5,    0, 255,    0xFF,   kNumber)        \
  X(af_interval_time,    5,    0, 255,    0xFF,   kNumber)        \
  X(low_contrast,        0,    0, 1,      1,      kYesNo)         \
  /* the camera itself; kept when the supply is cut, but it comes back with power on */ \
  X(power,               2,    2, 3,      0xFF,   kOnOff)         \
  X(camera_id,           0x1234, 0, 0xFFFF, 0xFFFF, kNumber)      \
  X(model,               0x0720, 0, 0xFFFF, 0xFFFF, kNumber)      \
  X(rom_version,         0x0103, 0, 0xFFFF, 0xFFFF, kNumber)      \
  X(memory,              0,    0, 1,      1,      kYesNo)         \
  X(memory_last,         0,    0, 15,     0x0F,   kNumber)

#define ZR4410_MCU_VARIABLES(X)                                    \
  X(mcu_version,         0x21, 0, 0xFF,   0xFF,   kNumber)         \
  X(lens_power,          1,    0, 1,      1,      kSwitch)         \
  X(pan,                 32000, 0, 64000, 0xFFFFFFFF, kNumber)     \
  X(tilt,                450,  0, 0xFFFF, 0xFFFF, kNumber)         \
  X(zoom,                0,    0, 0xFFFF, 0xFFFF, kNumber)         \
  X(max_speed,           300,  30, 430,   0xFFFF, kNumber)         \
  X(scan_speed,          30,   1, 90,     0xFF,   kNumber)         \
  X(tilt_angle,          0,    0, 1,      1,      kTiltAngles)     \
  X(auto_flip,           1,    0, 1,      1,      kSwitch)         \
  X(proportional,        1,    0, 1,      1,      kSwitch)         \
  X(scan_angle,          90,   1, 90,     0xFF,   kNumber)         \
  X(scan_limit,          0,    0, 1,      1,      kSwitch)         \
  X(scan_right_limit,    64000, 0, 64000, 0xFFFFFFFF, kNumber)     \
  X(scan_left_limit,     0,    0, 64000,  0xFFFFFFFF, kNumber)     \
  X(alarm_in,            0,    0, 0xFF,   0xFF,   kNumber)         \
  X(io_state,            0,    0, 0xFF,   0xFF,   kNumber)         \
  X(alarm_out,           0,    0, 1,      1,      kSwitch)         \
  X(motor_state,         0,    0, 0xFF,   0xFF,   kNumber)         \
  X(pan_tilt_angle,      1,    0, 1,      1,      kStartStop)      \
  X(ptz_report,          0,    0, 1,      1,      kOnce)           \
  X(motor_report,        0,    0, 1,      1,      kOnce)

// Fields of a packet that are not stored: a register's number, a step, a direction; and flags that the camera computes
// for each inquiry.
#define ZR4410_TRANSIENT_VARIABLES(X)                              \
  X(register_number,     0,    0, 0xFF,   0xFF,   kNumber)         \
  X(register_value,      0,    0, 0xFF,   0xFF,   kNumber)         \
  X(step,                0,    0, 3,      0xFF,   kSteps)          \
  X(move,                0,    0, 3,      0xFF,   kMoves)          \
  X(speed,               0,    0, 7,      0x0F,   kNumber)         \
  X(memory_number,       0,    0, 15,     0x0F,   kNumber)         \
  X(zoom_moving,         0,    0, 1,      1,      kYesNo)          \
  X(focus_moving,        0,    0, 1,      1,      kYesNo)          \
  X(memory_recall,       0,    0, 1,      1,      kYesNo)          \
  X(field_50hz,          0,    0, 1,      1,      kYesNo)          \
  X(pelco_1,             0,    0, 0xFF,   0xFF,   kNumber)         \
  X(pelco_2,             0,    0, 0xFF,   0xFF,   kNumber)         \
  X(pelco_3,             0,    0, 0xFF,   0xFF,   kNumber)         \
  X(pelco_4,             0,    0, 0xFF,   0xFF,   kNumber)
// clang-format on

enum class Var : std::uint8_t {
#define X(name, ...) name,
  ZR4410_CAMERA_VARIABLES(X) ZR4410_MCU_VARIABLES(X) ZR4410_TRANSIENT_VARIABLES(X)
#undef X
      count
};
constexpr std::size_t kVarCount = static_cast<std::size_t>(Var::count);
// The variables in order: those that the camera resets when its supply returns (except the positions of zoom and focus,
// which it keeps), those that it keeps (except power, which is then on), those of the MCU, the transient ones.
constexpr Var kFirstKept = Var::power;
constexpr Var kFirstMcu = Var::mcu_version;
constexpr Var kFirstTransient = Var::register_number;

// The groups in which the view shows the variables: each begins with a variable and ends before the next group.
struct VarGroup {
  Var first;
  std::string_view title;
};
inline constexpr VarGroup kVarGroups[] = {
    {Var::ae_mode, "Exposure"},
    {Var::wdr_mode, "Wide dynamic range"},
    {Var::wb_mode, "White balance and colour"},
    {Var::nr, "Picture"},
    {Var::icr, "Day and night"},
    {Var::zoom_pos, "Lens"},
    {Var::power, "Camera"},
    {Var::mcu_version, "Pan, tilt and alarms"},
};

struct VarInfo {
  std::string_view name;
  std::uint32_t start, least, greatest, wire;
  std::span<const ValueName> names;  // empty: any number from `least` to `greatest`

  // Returns whether a command may set the variable to that value.
  bool Accepts(std::uint32_t value) const;
  // Returns the value with that name; nothing if there is none.
  std::optional<std::uint32_t> FromName(std::string_view text) const;
};
const VarInfo& Info(Var var);
std::optional<Var> FindVar(std::string_view name);
// Returns the value's name, otherwise its number: "manual", "0x0E", "64000".
std::string ValueText(Var var, std::uint32_t value);

constexpr std::size_t kSensorModeRegister = 0x72;

// The device's state, except for motors in motion and commands in progress, which the models keep. The constructor
// gives each variable its starting value. A value always fits its field in the packet, but need not be one that a
// command may set: a scenario may start with any.
struct State {
  State();
  std::uint32_t& operator[](Var var) { return values[static_cast<std::size_t>(var)]; }
  std::uint32_t operator[](Var var) const { return values[static_cast<std::size_t>(var)]; }

  std::array<std::uint32_t, kVarCount> values;
  std::array<std::uint8_t, 256> registers{};
};

}  // namespace sim
