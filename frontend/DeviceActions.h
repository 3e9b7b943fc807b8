// The actions of -s (camera module) and -m (MCU).
#ifndef ZR4410_FRONTEND_DEVICEACTIONS_H
#define ZR4410_FRONTEND_DEVICEACTIONS_H

extern "C" {
// Camera action giArgv1 with its argument giArgv2: prints the answer, logs failures. Always 0.
int QM2150Process(void);

// MCU command giArgv1 with its value giArgv2: prints the answer, logs failures. 0, also for an unsupported command, or
// the result of the MCU call that failed.
int McuComm(void);
}

#endif
