// The actions of -s (camera module) and -m (MCU).
#ifndef ZR4410_FRONTEND_DEVICEACTIONS_H
#define ZR4410_FRONTEND_DEVICEACTIONS_H

extern "C" {
// Performs camera action giArgv1 with its argument giArgv2: 0 model and ROM version, 1 sensor mode (argument 1: list of
// the modes), 2 set the sensor mode to the low 8 bits of the argument. Prints the answer; logs failures and unknown
// actions. Always returns 0.
int QM2150Process(void);

// Performs MCU command giArgv1 with its value giArgv2: 12 camera power (low byte: 0 off, 1 on), 16 version (value 1:
// list of the commands), 17 pan, tilt and zoom (low byte: 0 once, 1 automatic response). Prints the answer; logs
// failures and unknown commands. Returns 0, even for an unknown command, or the result of the MCU routine that failed.
int McuComm(void);
}

#endif
