// The raw inquiry (-i) and the five system reports (-y).
#ifndef ZR4410_FRONTEND_REPORTS_H
#define ZR4410_FRONTEND_REPORTS_H

extern "C" {
// Sends the first giArgv1 bytes of gbArgv as an inquiry of category giCategoryCode and prints the reply.
// Returns 0; -1 on failure, which is logged.
int Inquiry(void);

// Logs report giArgv1: 0 lens, 1 exposure and white balance, 2 day/night, 3 digital zoom, high sensitivity, gain limit
// and noise reduction, 4 wide dynamic range.
// Returns 0; -1 for any other number; or the result of the step that failed, which is logged.
int SystemInquiry(void);

// These log report 3 and report 4. They return 0, or the result of the step that failed, which is logged.
int GetEnlargeFun1Inquiry(void);
int GetEnlargeFun2Inquiry(void);
}

#endif
