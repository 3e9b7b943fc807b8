/* A C program that calls one routine of the library and prints its result and, if that is 0, the value.

     call get NAME           QM2150_GetNAME
     call set NAME VALUE     QM2150_SetNAME
     call ROUTINE [VALUE]    another routine, see below */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <zr4410/McuComm.h>
#include <zr4410/MsgqClient.h>
#include <zr4410/QM2150.h>
#include <zr4410/SnrQM2150.h>

#define PAIR(name) \
  { #name, QM2150_Get##name, QM2150_Set##name }
static const struct {
  const char* name;
  int (*get)(uint8_t*);
  int (*set)(uint8_t);
} kBytes[] = {PAIR(NR),          PAIR(WdrMode), PAIR(Bgain),       PAIR(Rgain),
              PAIR(IrisPos),     PAIR(GainPos), PAIR(GainLimit),   PAIR(HighSensitivity),
              PAIR(ExpCompStep), PAIR(ExpComp), PAIR(PictureFlip), PAIR(LrReverse),
              PAIR(Icr),         PAIR(AutoIcr), PAIR(ColorGain),   PAIR(AfMode),
              PAIR(FocusMode),   PAIR(AeMode),  PAIR(WbMode),      PAIR(SnrMode)};

static int Print(int result, unsigned value) {
  printf(result == 0 ? "%d 0x%02x\n" : "%d\n", result, value);
  return 0;
}

static int Get(const char* name) {
  uint16_t shutter = 0;
  tWdrParam wdr = {0};
  uint8_t value = 0;
  if (strcmp(name, "Shutter") == 0) {
    const int result = QM2150_GetShutter(&shutter);
    return Print(result, shutter);
  }
  if (strcmp(name, "WdrParams") == 0) {
    const int result = QM2150_GetWdrParams(&wdr);
    return Print(result, wdr.parameter5);
  }
  for (size_t i = 0; i < sizeof kBytes / sizeof kBytes[0]; ++i) {
    if (strcmp(name, kBytes[i].name) == 0) {
      const int result = kBytes[i].get(&value);
      return Print(result, value);
    }
  }
  return 1;
}

static int Set(const char* name, unsigned value) {
  const tWdrParam wdr = {0, 1, 1, 1, (uint8_t)value};
  if (strcmp(name, "Shutter") == 0) {
    return Print(QM2150_SetShutter((uint16_t)value), value);
  }
  if (strcmp(name, "WdrParams") == 0) {
    return Print(QM2150_SetWdrParams(&wdr), value);
  }
  for (size_t i = 0; i < sizeof kBytes / sizeof kBytes[0]; ++i) {
    if (strcmp(name, kBytes[i].name) == 0) {
      return Print(kBytes[i].set((uint8_t)value), value);
    }
  }
  return 1;
}

static int Block(unsigned number) {
  switch (number) {
    case 0:
      return Print(QM2150_GetLensControl(&gtLensControl), 0);
    case 1:
      return Print(QM2150_GetCameraControl(&gtCamControl), 0);
    case 2:
      return Print(QM2150_GetOtherControl(&gtOtherControl), 0);
    case 3:
      return Print(QM2150_GetEnlargeFunction1(&gtEnlargeFun1), 0);
    default:
      return Print(QM2150_GetEnlargeFunction2(&gtEnlargeFun2), 0);
  }
}

static int Other(const char* name, unsigned value) {
  uint16_t model = 0, rom = 0, tilt = 0, zoom = 0;
  uint32_t pan = 0;
  uint8_t version = 0;
  int result = 0;
  if (strcmp(name, "block") == 0) {
    return Block(value);
  }
  if (strcmp(name, "version") == 0) {
    result = QM2150_GetVersion(&model, &rom);
    return Print(result, model);
  }
  if (strcmp(name, "one-push") == 0) {
    return Print(QM2150_WbOnePushTrigger(), 0);
  }
  if (strcmp(name, "mcu-version") == 0) {
    result = MCU_GetVersion(&version);
    return Print(result, version);
  }
  if (strcmp(name, "mcu-power") == 0) {
    return Print(MCU_LensPowerControl(1), 0);
  }
  if (strcmp(name, "mcu-ptz") == 0) {
    result = MCU_GetPTZ(0, &pan, &tilt, &zoom);
    return Print(result, pan);
  }
  if (strcmp(name, "focus-mode") == 0) {
    return Print(SnrQM2150_SetFocusMode((int32_t)value), value);
  }
  if (strcmp(name, "backlight") == 0) {
    return Print(SnrQM2150_SetBlcIndex((int32_t)value), value);
  }
  if (strcmp(name, "mirror") == 0) {
    return Print(SnrQM2150_SetMirror((int32_t)value), value);
  }
  if (strcmp(name, "flip") == 0) {
    return Print(SnrQM2150_SetMirrorFlip(0, (int32_t)value), value);
  }
  if (strcmp(name, "night") == 0) {
    return Print(SnrQM2150_SetDnNightMode(), 0);
  }
  if (strcmp(name, "saturation") == 0) {
    return Print(SnrQM2150_SetSaturation((int32_t)value), value);
  }
  if (strcmp(name, "mains") == 0) {
    result = SnrQM2150_SetSnrMode((int32_t)value);
    return Print(result, gtParams.snrMode);
  }
  if (strcmp(name, "start-up") == 0) {
    result = SnrQM2150_init((int32_t)value);
    return Print(result, gtParams.snrMode);
  }
  return 1;
}

int main(int argc, char** argv) {
  if (argc < 2 || ZR4410_MsgQ_Open() < 0) {
    return 1;
  }
  if (argc == 3 && strcmp(argv[1], "get") == 0) {
    return Get(argv[2]);
  }
  if (argc == 4 && strcmp(argv[1], "set") == 0) {
    return Set(argv[2], (unsigned)strtoul(argv[3], NULL, 0));
  }
  return Other(argv[1], argc > 2 ? (unsigned)strtoul(argv[2], NULL, 0) : 0);
}
