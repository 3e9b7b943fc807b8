/* A C program, like the device's other software: starts up the camera for the mains frequency in its argument, then
   changes a setting. */
#include <stdio.h>
#include <stdlib.h>

#include <zr4410/MsgqClient.h>
#include <zr4410/QM2150.h>
#include <zr4410/SnrQM2150.h>

int main(int argc, char** argv) {
  if (argc != 2 || ZR4410_MsgQ_Open() < 0) {
    return 1;
  }
  const int result = SnrQM2150_init(atoi(argv[1]));
  printf("init %d: mcu 0x%02x model 0x%04x rom 0x%04x snr 0x%02x ae 0x%02x shutter 0x%04x wb 0x%02x af 0x%02x\n",
         result, gtParams.mcuVersion, gtParams.model, gtParams.romVersion, gtParams.snrMode, gtParams.aeMode,
         gtParams.shutter, gtParams.wbMode, gtParams.afMode);
  uint8_t level = 0;
  const int set = QM2150_SetNR(5);
  const int got = QM2150_GetNR(&level);
  printf("noise reduction %d %d %u\n", set, got, level);
  return 0;
}
