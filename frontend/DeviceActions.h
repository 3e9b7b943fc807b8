// The actions of -s (camera module) and -m (MCU).
#ifndef ZR4410_FRONTEND_DEVICEACTIONS_H
#define ZR4410_FRONTEND_DEVICEACTIONS_H

extern "C" {
// Performs camera action giArgv1 with its argument giArgv2: prints the answer, logs failures. Always returns 0.
int QM2150Process(void);

// Performs MCU command giArgv1 with its value giArgv2: prints the answer, logs failures. Returns 0, also for an
// unsupported command; otherwise the result of the MCU routine that failed.
int McuComm(void);
}

#endif
